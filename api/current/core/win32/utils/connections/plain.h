#pragma once

// Connections: streams of bytes between two processes, over a named pipe or a TCP socket, and messages over
// them. A client connects to a server; a server accepts any number of clients, each of which becomes a
// connection of its own.
//
// Status functions return a Win32 code, or the socket layer's for sockets (10061 refused, 10054 reset, 11001
// no such host, 10048 the port is taken). Besides their own:
//
//   6, 487  no such handle, or its object is gone; 6 also for a cancel event that is none
//   8       no memory
//   87      a null or senseless argument
//   258     the time is over
//   1223    the cancel event was signalled, also before the call; a null event never cancels
//   2250    not connected, or disconnected by another thread meanwhile
//   109     the peer has closed its end or is gone
//   170     another thread reads, writes or connects at the same time
//
// Every wait ends at once when its time is over, its cancel event is signalled, or the connection is
// disconnected or closed. Time-outs are in milliseconds for the whole call (INFINITE: without end); a thread
// that holds the loader lock waits for 5 seconds at most. One thread may read from a connection while another
// one writes to it.
//
// Nothing is encrypted. Whoever can listen on the network sees what goes over a socket.
//
// These are the functions that C takes as well.

#include "core/win32/utils/objectmanager/include/Export.h"

SYSMAINT_C_BEGIN
/// Opens the connection of that name. Last errors: 87, 1168 (no such connection), 8.
SYSMAINT_API void* OpenConnection(const wchar_t* name);
/// Gives a handle back; nonzero, or 0 for a handle that is not open. The last one disconnects.
SYSMAINT_API int CloseConnection(void* connection);
/// The connection's name, valid while it is open.
SYSMAINT_API long ConnectionGetNameByHandle(void* connection, const wchar_t** name);

// ---- Coming together. Functions of the other role return 1.

/// Connects a client. Of several addresses each but the last gets an equal share of the time that is left;
/// the code is that of the last. A pipe whose server is busy is waited for, one without a server is not (2).
/// Codes: 1230 it is connected already; 5 the pipe is another user's.
SYSMAINT_API long ConnectionConnect(void* connection, unsigned long timeout, void* cancelEvent);
/// Begins to listen, so that clients can connect; ConnectionAccept does it by itself. Repeating it has no
/// effect. Codes: 5 or 231 somebody else serves a pipe of that name; 10013, 10048 or 10049 for a port or an
/// address that is not to be had.
SYSMAINT_API long ConnectionListen(void* connection, unsigned long timeout, void* cancelEvent);
/// The port that a server listens on; 2250 while it does not.
SYSMAINT_API long ConnectionGetPort(void* connection, unsigned short* port);
/// Waits for a client. `client` receives the handle of its connection, to be closed by the caller; its name
/// is the server's followed by "#" and a number. Several threads may wait at once.
SYSMAINT_API long ConnectionAccept(void* connection, unsigned long timeout, void* cancelEvent, void** client);
/// Ends the connection, and all calls that wait on it. A server listens no more; its clients stay connected.
/// What has been written already still reaches the peer. A client and a server can be used again afterwards.
SYSMAINT_API long ConnectionDisconnect(void* connection);

// ---- Bytes

/// Reads what has arrived, from 1 to `size` bytes; `read` says how many. A call that ends without any leaves
/// the connection as it was.
SYSMAINT_API long ConnectionRead(void* connection, void* buffer, size_t size, unsigned long timeout,
                                 void* cancelEvent, size_t* read);
/// Reads exactly `size` bytes. If it ends after some of them, the connection is ended: nobody would know
/// where to go on.
SYSMAINT_API long ConnectionReadAll(void* connection, void* buffer, size_t size, unsigned long timeout,
                                    void* cancelEvent);
/// Writes `size` bytes. If it fails the connection is ended: nobody can tell how much the peer has got. What
/// is larger than the system's buffers waits for a peer that reads: two sides that both write first wait for
/// each other until their time is over.
SYSMAINT_API long ConnectionWrite(void* connection, const void* data, size_t size, unsigned long timeout,
                                  void* cancelEvent);

// ---- Messages. On the wire a message is the length of its serialized form (4 bytes), its class (4 bytes,
// MessageClass), and its serialized form, all little-endian.

/// The largest serialized message to be sent or received over this connection, 64 MiB at first; a client that
/// is accepted takes the server's over. Codes: 87 for 0.
SYSMAINT_API long ConnectionSetMessageLimit(void* connection, unsigned long bytes);
SYSMAINT_C_END
