#pragma once

// FTP: folders on a server as roots of scans, and files on it as items. Everything is checked that the server
// sends: a name that is no plain name (with a separator or a control character) is never reported, replies
// and listings are limited (64 KiB and 64 MiB), and data connections go to the server itself, whatever
// address it names.
//
// Nothing is encrypted: there is no TLS yet. The password and all data can be read by whoever listens on the
// network.
//
// Status functions return a Win32 code, or the socket layer's (10061 refused, 10054 reset, 11001 no such
// host). Besides their own:
//
//   2, 3   the server does not have the file or the folder, or does not let us see it: FTP has one reply for
//          both
//   5      the server refuses, or lists nothing of a folder, not even the folder itself as for others
//   6, 487 no such handle, or its object is gone
//   8      no memory
//   13     the server sent what is no FTP, or not what it announced, or a reply that nothing had asked for:
//          the next one would be taken for the answer to another command, so the connection is ended. A
//          listing that says itself (by "unique") that it is of another folder.
//          Also when the server does not know PWD or NOOP, whose replies show that none is left over
//   50     the server does not know the command
//   87     a null or senseless argument
//   161    a local path of a device
//   109, 10053, 10054, 1236  the server has ended the connection in the middle of the operation, which is
//          not repeated if it changes something: whether the server has carried it out is not known. A server
//          that ends it between two operations goes unnoticed: the next one connects again
//   1225, 1117, 112, 123, 170  the server's replies 425; 451; 452 and 552; 501 and 553; 450. Also 123: a name
//          with a byte of 255, which servers read in two ways
//   258    the server has not answered in time. As above, and with 1223, what the server was told is not
//          taken back: a file may be deleted, or uploaded whole or in part
//   1223   the cancel event was signalled; a null event never cancels. It must be an event.
//          FtpConnectionConnect refuses anything else with 6; for the others it is signalled
//   1326   the server does not accept the user or the password
//   2250   the connection was closed, or the item belongs to none
//   4336   a reply or a listing without end

#include <windows.h>

#include "core/win32/utils/objectmanager/include/Api.h"
#include "win32/communication/include/ByteStream.h"
#include "win32/ftp/include/IFtpFile.h"
#include "win32/scanengine/include/IScanEngine.h"
#include "win32/scanengine/include/IScanPath.h"

// ---- Connections: an account at a server. It connects when it is first needed, and again after a failure;
// threads take turns.

/// Creates the connection of that name, or opens it, whatever the other arguments say. Nothing is sent yet.
///
/// @param host      name or address
/// @param port      0 is 21
/// @param user      null or empty: anonymous
/// @param password  sent as it is, without encryption; null: none. It is kept in memory until the connection
///                  and all items that it gave are gone
/// @return the invalid handle on failure, with the last error 87 (also for control characters) or 8
SYSMAINT_API void* CreateFtpConnection(const wchar_t* name, const wchar_t* host, unsigned short port,
                                       const wchar_t* user, const wchar_t* password);
/// Opens the connection of that name. Last errors: 87, 1168 (no such connection), 8.
SYSMAINT_API void* OpenFtpConnection(const wchar_t* name);
/// Gives a handle back; nonzero, or 0 for a handle that is not open. The last one ends what its items wait
/// for; they cannot be used any more (2250).
SYSMAINT_API int CloseFtpConnection(void* connection);
/// The time for each step: connecting, a command with its reply, a piece of data. 30,000 milliseconds at
/// first; a whole listing may take ten times as long.
SYSMAINT_API long FtpConnectionSetTimeout(void* connection, unsigned long timeout);
/// Connects and logs in, if it has not yet.
SYSMAINT_API long FtpConnectionConnect(void* connection, void* cancelEvent);
/// A file on the server, which need not exist. The caller deletes it through the interface. Null on failure,
/// with the last error 87 for a path that is null or empty, ends in a slash, names a folder "." or "..", or
/// contains a backslash or a control character; 6, 487; 8.
///
/// @param path  from the server's root, with slashes
SYSMAINT_API IFtpFile* DllGetFtpFile(void* connection, const wchar_t* path);
/// The file item stored in `stream`, written with the same code (StateCodes.h); it has no connection. Codes:
/// 30, and 13 for an item of another type.
SYSMAINT_API IFtpFile* DllGetFtpFile(unsigned long loadCode, IInputByteStream& stream);

// ---- FTP scan engine: as the file scan engine (core/win32/utils/scanengine/api.h), for folders on servers.
// Folders are reported under key 1 as items of type 1, files under key 0 as items of type 3 (IFtpFile), links
// among the files. The path of an item is "ftp://host/folder/name"; names that are not UTF-8 are read in code
// page 1252. A folder is listed completely before any of it is reported, so handlers may use the server. One
// that cannot be listed, or whose listing has lines that are no names (123) or not understood (13), goes to
// the handlers under key 2, and the rest is walked. So does one whose path on the server has more than 4,096
// characters (206). A folder that the server says (by the fact "unique" of MLSD) to be one of those that it
// was reached through is a link to it: it is reported, but not listed. A server that cannot be reached any
// more ends the scan.
//
// Folders are listed with MLSD, or else with LIST. If STAT shows two that differ as LIST does (vsftpd), the
// others are asked for with it: over the control connection, which takes one round trip instead of three. A
// listing there could be ended early by a file's name with a line's end in it, and replies be forged behind
// it. So each is followed by a random position for REST, which the server has to repeat, and "REST 0";
// uploads and downloads over such a connection begin with "REST 0" as well.
//
// FTP cannot hold a folder while it is listed: one that became a link after the folder above was listed is
// walked, unless its listing says (by "unique") that it is another: that goes to key 2 (13). And what a
// folder holds is the server's word: one that enters another folder than it says, or heeds paths only for a
// while and changes at the same time, can show files where they are not.

SYSMAINT_API void* CreateFtpScanEngine(const wchar_t* name);
SYSMAINT_API void* OpenFtpScanEngine(const wchar_t* name);
/// Appends a folder on a server; the arguments as above. Nothing is sent before the scan. Codes: 87, 183 when
/// another kind of item is registered there.
SYSMAINT_API long FtpSEngineAddPath(void* engine, const wchar_t* server, const wchar_t* path,
                                    unsigned short port, const wchar_t* user, const wchar_t* password);
/// The time for each step, as above, for the roots that are added from now on.
SYSMAINT_API long FtpSEngineSetTimeout(void* engine, unsigned long timeout);
SYSMAINT_API long FtpSEngineRegisterHandler(void* engine, INotifyHandler& handler, unsigned long first,
                                            unsigned long second, unsigned long long value);
SYSMAINT_API long FtpSEngineRegisterHandlers(void* engine, INotifyProvider& provider, unsigned long first,
                                             unsigned long second);
/// Walks every root. The cancel event also ends what waits for the server.
SYSMAINT_API long FtpSEngineScan(void* engine, void* cancelEvent, const SharedPtr<IScanValidator>& validator,
                                 ScanOptions options);
SYSMAINT_API long FtpSEngineClearHandlers(void* engine);
SYSMAINT_API long FtpSEngineClear(void* engine);
/// Closes the handle. Returns nonzero, or 0 for a handle that is not open. Running scans continue.
SYSMAINT_API long CloseFtpScanEngine(void* engine);
