#pragma once

// Secure deletion, and the programs and files that wait for the next start of the machine.

#include "core/win32/utils/objectmanager/include/Api.h"
#include "win32/wiper/include/IWiper.h"

/// A wiper, which the caller deletes through the interface; null when memory is short (last error 8).
SYSMAINT_API IWiper* DllGetWiper();

/// Overwrites what deleted files left in a volume's file table, where a wipe of the free space does not
/// reach: their names, and the contents of files so small that they were kept there. Makes small files in a
/// hidden folder "FileTable.qmx" of its own until the table has no free record left and grows, and deletes
/// them all again, in every case: also when the call is cancelled or fails. Nothing that exists is opened.
/// The table stays as large as it has become by then, some hundred KiB larger at most.
///
/// It reaches the records of the table (NTFS). It does not reach the names that stand in the index of a
/// folder that is still there, those in the file system's journals, nor, on a file system without a table
/// (FAT), the names in the folders; there, and where the free space is not told, the call ends after some
/// hundred files. What lay in the clusters of deleted folders is free space.
///
/// @param volume      the volume, as a folder with its closing backslash such as "D:\"
/// @param callback    called after every 256 files if `progress` is given too; may be null
/// @param progress    counts the bytes of the files, 600 each; how many come nobody knows, so the total is
///                    raised as needed; not used without a callback; may be null
/// @param cancelEvent signalled means stop; polled before every file; null never cancels
/// @return 0; 1223 (cancelled); 87 (null or empty path); 183 ("FileTable.qmx" is there already, say from a
///         run that was ended by force: it is left alone, delete it first); 112 (the volume was full before
///         the table was told to be: make room, or what the table still holds stays); 145 (somebody put a
///         file into the folder; that one stays); 8; what the callback raises, 574 if it is nothing with a
///         code; otherwise the system's code of the call that failed
SYSMAINT_API long WipeFileTable(const wchar_t* volume, WipeCallback callback, WipeProgress* progress,
                                HANDLE cancelEvent);

/// 1 when a whole line of the boot-time list names the file; 0 when not, or when the list cannot be read
/// (last error: 0 when it was read or is not there, 87 for a null path). Whether what failed to be wiped
/// really waits for the restart is told by this and not by IWiper::getNeedsReboot, which says that it should.
SYSMAINT_API int ForceDeleteIsScheduled(const wchar_t* path);

// ---- The command lines that the system runs at its start, before anything else can open a file: the
// multi-string "BootExecute" of HKEY_LOCAL_MACHINE\System\CurrentControlSet\Control\Session Manager. Entries
// are compared whole and without regard to case. A value of zero bytes is an empty list. One that is not a
// well-formed multi-string (another type, an odd size, no closing empty string, entries behind it) is refused
// with 13 and never written.
//
// Adding and removing hold the mutex "Global\sysmaint.BootExecute" from reading to writing, so that threads,
// processes and sessions lose nothing of each other's; other programs that edit the value may hold it, too.
// One that is not free within 10 seconds is 1460, one that its maker keeps from the caller is 5, another kind
// of object under its name is 6, and nothing is read or written then. A mutex whose owner died is taken over.
// Asking takes no mutex: the value is read whole.

/// Appends a command line. Returns 0; 87 (null or empty entry); 183 (it is there already; nothing is
/// written); 13; 2 (no such value); 1460, 5 or 6 (the mutex); 8; or the system's code.
SYSMAINT_API long AddBootExecute(const wchar_t* entry);
/// Removes every entry that is equal, and writes the value back also when there is none. Returns 0; 87; 13;
/// 2; 1460, 5 or 6 (the mutex); 8; or the system's code.
SYSMAINT_API long RemoveBootExecute(const wchar_t* entry);
/// 1 when an equal entry is there; 0 when not, or when the value cannot be read or is not well-formed.
SYSMAINT_API int BootExecuteIsScheduled(const wchar_t* entry);
