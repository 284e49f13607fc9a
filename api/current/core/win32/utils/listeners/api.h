#pragma once

// Listeners and reporters: plain.h has what C takes as well, and describes all of it.

#include <windows.h>

#include "core/win32/utils/communication/api.h"
#include "core/win32/utils/connections/api.h"
#include "core/win32/utils/listeners/plain.h"
#include "win32/communication/include/IMessageReporter.h"
#include "win32/communication/include/ListenerOptions.h"

/// Listens on a server's connection and begins to serve all clients that come: what they post is posted to
/// the topic, what they send is delivered on a thread of the client, and the reply is sent back with the code
/// of the delivery. Only this topic can be reached, whatever topic a message names. An ArrayMessage's
/// elements arrive as ParameterW objects. Narrow messages, which topics do not take, are answered with 50.
///
/// The size of a message is limited by ConnectionSetMessageLimit. A client that breaks the form or a limit is
/// disconnected, and no other is affected; one whose message has come whole, but is none or is too large,
/// is answered with the code and may go on. The listener opens the connection and the topic once more, so the
/// caller may close its handles; a name that exists already is opened, whatever the other arguments say.
///
/// Failure is the invalid handle, with the last error: 87 a null name or senseless options; 6, 487 for the
/// connection's or the topic's handle; 1 a client's connection; 170 it has another listener; those of
/// ConnectionListen; 8; the system's code for a thread or an event that was refused.
SYSMAINT_API void* CreateMessageListener(const wchar_t* name, void* connection, const TopicHandle& topic,
                                         const ListenerOptions& options = {});
/// Codes: 87 a null pointer; 6, 487.
SYSMAINT_API long ListenerGetState(void* listener, ListenerState* state);

/// A reporter that forwards over a client's connection, which it alone uses from then on. It connects with
/// the first message. The caller may close its handle. Failure is null, with the last error: 87 senseless
/// options; 6, 487 for the connection's handle; 1 a server's connection, or an accepted one; 170 it has
/// another reporter that has not been stopped; 8; the system's code for a thread or an event that was
/// refused.
SYSMAINT_API IMessageReporter* DllGetMessageReporter(void* connection, const ReporterOptions& options = {});
