#pragma once

// Connections: plain.h has what C takes as well, and describes all of it.

#include <windows.h>

#include "core/win32/utils/connections/plain.h"
#include "core/win32/utils/objectmanager/include/Api.h"
#include "win32/communication/include/AnyMessage.h"
#include "win32/connection/include/ConnectionRole.h"

// ---- Connections. The functions that create one open it if the name exists already, whatever the other
// arguments say. They touch neither a pipe nor the network. Failure is the invalid handle, with the last
// error 87, 8, or the code of the system when it has no socket library.

/// One end of a named pipe of this machine. The name up to the first backslash is the pipe's; what follows
/// tells connections of one process to the same pipe apart ("stock\client 3"). It is at most 247 characters
/// long; characters below the blank, "/", "<", ">", quotation marks, "|", "?", "*", and a dot or a blank at
/// its end are refused with 87.
///
/// A server's pipe gives access to the process's user and to administrators, refuses other machines, and must
/// be the first of its name. A client lets the server identify its user, and not act as it.
SYSMAINT_API void* CreatePipeConnection(const wchar_t* name, ConnectionRole role);
/// One end of a TCP connection.
///
/// @param name      the object's name
/// @param host      client: name or address of the server; all addresses of a name are tried, IPv6 and IPv4
///                  alike. Server: the address to listen on, or "*" for all of this machine
/// @param port      1 to 65535; 0 for a server lets the system choose one (ConnectionGetPort)
/// @param protocol  0: TCP; there is no other
SYSMAINT_API void* CreateSocketConnection(ConnectionRole role, const wchar_t* name, const wchar_t* host,
                                          unsigned short port, unsigned long protocol);

// ---- Messages

/// Sends a message of any class. Codes: 4336 it is larger than the limit, and nothing has been sent; what
/// dumping it raises; those of ConnectionWrite.
SYSMAINT_API long ConnectionSendMessage(void* connection, const MessageW& message, unsigned long timeout,
                                        void* cancelEvent);
SYSMAINT_API long ConnectionSendMessage(void* connection, const MessageA& message, unsigned long timeout,
                                        void* cancelEvent);
/// Receives a message; on failure `message` is as it was. `elements` makes the elements of an ArrayMessage,
/// null makes ParameterW objects. A call that ends before anything has come leaves the connection as it was;
/// all other failures end it: 4336 the peer announces a message larger than the limit; 13 an unknown class,
/// or bytes that are no such message; 109 the peer is gone in the middle of one.
SYSMAINT_API long ConnectionReceiveMessage(void* connection, AnyMessage& message,
                                           ArrayMessage::ElementFactory elements, unsigned long timeout,
                                           void* cancelEvent);
