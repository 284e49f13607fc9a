#pragma once

// The lookup client: asks a server what it knows of files. A file is named to it by its SHA-1 hash alone;
// neither its path nor its content is sent. Nothing is sent anywhere before HVKSetServer says where.
//
// Files are hashed and asked for in the background, up to 255 in one request, one request of a queue at a
// time. For each file that the server answers a HashMessageW is posted to the topic "HVKResponses", which the
// caller creates and subscribes to before: with the queue's message id, the file's path as it was added in
// "Path" (text), and the server's status in "HVKStatus" (32-bit number). What a status means the server says.
// Of a request that failed nothing is posted, unless it fails while its answers are being posted.
//
// Requests are not encrypted, and answers are believed: a server on a network that others share may be
// another one.
//
// The workers run in the pools "HVKQueueThreadPool" (hashing) and "HVKThreadPool" (asking), in categories of
// the queue's name. Status functions return a Win32 code: 6, 487 for the handle, 8, and their own. These are
// the functions that C takes as well.

#include "core/win32/utils/objectmanager/include/Export.h"

SYSMAINT_C_BEGIN
/// Creates the queue of that name, or opens it; `value` is the id of the messages that it posts. Failure is
/// the invalid handle, with the last error 87 (null name) or 8.
SYSMAINT_API void* CreateHVK(const wchar_t* name, unsigned long value);
/// Opens the queue of that name. Last errors: 87, 1168 (no such queue), 8.
SYSMAINT_API void* OpenHVK(const wchar_t* name);
/// Gives a handle back; nonzero, or 0 for a handle that is not open. The last one ends the queue: what waits
/// is dropped, what runs is cancelled and waited for, and nothing is posted afterwards.
SYSMAINT_API int CloseHVK(void* hvk);

/// Says which server is asked from the next request on.
///
/// @param host           its name or address; at first "lookup.invalid", which no name server knows
/// @param port           1 to 65535; 4448 is usual
/// @param answerTimeout  milliseconds for sending a request, and again for its whole answer; 60,000 at first.
///                       Connecting has 15 seconds
/// @return 0 or 87
SYSMAINT_API long HVKSetServer(void* hvk, const wchar_t* host, unsigned short port,
                               unsigned long answerTimeout);
/// Gives up all files that have no answer yet: they are without one for the reason 1223.
SYSMAINT_API long HVKCancel(void* hvk);
/// Waits until each file has an answer, which may still wait in its topic, or is known to get none.
///
/// @param timeout      milliseconds, INFINITE without end
/// @param cancelEvent  may be null
/// @return 0 when each file has its answer, else the reason for the first that has none; 258 the time is
///         over; 1223 also when the cancel event was signalled; 6 also when that is no event; 487 the queue
///         was closed meanwhile
SYSMAINT_API long HVKWait(void* hvk, unsigned long timeout, void* cancelEvent);
/// Tells of the files that got no answer.
///
/// @param path    as it was added
/// @param reason  the system's code for a file that could not be read; 1223 cancelled; the connection's code;
///                1169 the server answered another request (those of one second have the same number); 259 it
///                answered nothing, or nothing for this file; 13 it answered for more files than it was
///                asked; 1168 nobody has created the topic
typedef void (*HVKUnanswered)(const wchar_t* path, long reason, void* context);
/// Calls `visit` for each file that got no answer, in the order in which that became known, and forgets them.
/// Codes: 87 null `visit`.
SYSMAINT_API long HVKTakeUnanswered(void* hvk, HVKUnanswered visit, void* context);
SYSMAINT_C_END
