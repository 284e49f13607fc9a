#pragma once

// Listeners and reporters: topics that reach across processes. A listener serves a pipe or a socket and
// delivers what arrives to a topic of its process; a reporter is a handler that forwards what a topic
// delivers to the listener of another process. Listeners and reporters of the same topic on both sides make
// it one topic of two processes.
//
// On the wire everything is little-endian. A client begins with the 8 characters "smtopic1" and 8 bytes that
// stand for it, random and the same in each connection of one reporter. Each request is what to do (4 bytes:
// 0 post, 1 send), the value that travels with the message (4 bytes, 0xFFFFFFFF none), the message's number
// (8 bytes; posts of a client are numbered upwards from 1), and the message as ConnectionSendMessage sends
// it. The listener answers each with a code (4 bytes) and whether a reply follows (4 bytes, 1 or 0), and the
// reply as a message. A post whose number is not above the last one that was posted for its client is
// answered with 0 and not posted again; 1816 asks for another attempt later. A listener knows the last 1,024
// clients that posted, connected or not; one that it has forgotten is a new one to it. A request whose
// message has come whole but is none is answered with 13, and the client stays connected.
//
// Nothing is encrypted, and whoever may connect may deliver to the topic: serve pipes, or sockets on
// 127.0.0.1, unless other machines are meant to.
//
// These are the functions that C takes as well.

#include "core/win32/utils/objectmanager/include/Export.h"

SYSMAINT_C_BEGIN
/// Opens the listener of that name. Last errors: 87, 1168 (no such listener), 8.
SYSMAINT_API void* OpenMessageListener(const wchar_t* name);
/// Gives a handle back; nonzero, or 0 for a handle that is not open. The last one stops listening and
/// disconnects all clients at once. It waits for handlers that are being called for one of them, unless the
/// call comes from inside, or such a handler waits for the calling thread in a close; in the loader lock for
/// 5 seconds at most. What has been posted is still delivered while the topic is open; a post whose answer is
/// cut off so arrives once more when its client finds another listener there.
SYSMAINT_API int CloseMessageListener(void* listener);
/// The listener's name, valid while it is open. Codes: 87, 6, 487.
SYSMAINT_API long ListenerGetNameByHandle(void* listener, const wchar_t** name);
SYSMAINT_C_END
