#pragma once

// Secure deletion, and the files and programs that wait for the next restart.

#include "core/win32/utils/objectmanager/include/Api.h"
#include "core/win32/utils/wiper/plain.h"
#include "win32/wiper/include/IWiper.h"

/// Creates a wiper, which the caller deletes through the interface. Null when memory runs out (last error 8).
SYSMAINT_API IWiper* DllGetWiper();

/// Overwrites what deleted files left in a volume's file table, which a wipe of the free space does not
/// reach: their names, and the contents of files small enough to be kept there. Creates small files in a
/// hidden folder "FileTable.qmx" of its own until the table has no free record left and grows, then deletes
/// them all, also when the call is cancelled or fails. No existing file is opened. The table keeps its new
/// size, at most a few hundred KiB more.
///
/// It reaches the records of the table (NTFS). It does not reach names in the index of an existing folder,
/// names in the file system's journals, or, on a file system without a table (FAT), the names in the folders.
/// There, and where the free space is unknown, the call ends after a few hundred files. The clusters of
/// deleted folders are free space.
///
/// @param volume      the volume, as a folder with its closing backslash such as "D:\"
/// @param callback    called after every 256 files if `progress` is given too; may be null
/// @param progress    counts the bytes of the files, 600 each; their number is not known beforehand, so the
///                    total is raised as needed; ignored without a callback; may be null
/// @param cancelEvent signalled to stop; polled before every file; null never cancels, a handle that cannot
///                    be polled does; not checked to be an event, and a mutex would be taken
/// @return 0; 1223 (cancelled); 87 (null or empty path); 183 ("FileTable.qmx" exists already, say from a run
///         that was killed: it is left alone, delete it first); 112 (the volume was full before the table
///         was: free some space, or the table keeps what it still holds); 145 (somebody put a file into the
///         folder; that file stays); 8; what the callback raises, 574 if it carries no code; otherwise the
///         system's code of the call that failed
SYSMAINT_API long WipeFileTable(const wchar_t* volume, WipeCallback callback, WipeProgress* progress,
                                HANDLE cancelEvent);
