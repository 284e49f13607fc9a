#pragma once

// The functions of this module that C takes as well: the lists of files and programs that wait for the next
// restart.

#include "core/win32/utils/objectmanager/include/Export.h"

SYSMAINT_C_BEGIN
/// Returns 1 when a whole line of the boot-time list names the file, otherwise 0, also when the list cannot
/// be read (last error: 0 when it was read or does not exist, 87 for a null path). This tells whether a file
/// that could not be wiped really waits for the restart; IWiper::getNeedsReboot only tells that it should.
SYSMAINT_API int ForceDeleteIsScheduled(const wchar_t* path);

// ---- The command lines that the system runs when it starts, before anything else can open a file: the
// multi-string "BootExecute" of HKEY_LOCAL_MACHINE\System\CurrentControlSet\Control\Session Manager. Whole
// entries are compared, without regard to case. A value of zero bytes is an empty list. A value that is not a
// well-formed multi-string (another type, an odd size, no closing empty string, entries after it) is refused
// with 13 and never written.
//
// Adding and removing hold the mutex "Global\sysmaint.BootExecute" from reading to writing, so threads,
// processes and sessions never lose each other's changes; other programs that edit the value may hold it too.
// The code is 1460 when the mutex is not free within 10 seconds, 5 when its creator denies the caller access,
// and 6 when another kind of object has its name; nothing is read or written then. A mutex whose owner died
// is taken over. Queries take no mutex: the value is read whole.

/// Appends a command line. Returns 0; 87 (null or empty entry); 183 (it exists already; nothing is written);
/// 13; 2 (no such value); 1460, 5 or 6 (the mutex); 8; or the system's code.
SYSMAINT_API long AddBootExecute(const wchar_t* entry);
/// Removes every equal entry, and writes the value back even if there is none. Returns 0; 87; 13; 2; 1460, 5
/// or 6 (the mutex); 8; or the system's code.
SYSMAINT_API long RemoveBootExecute(const wchar_t* entry);
/// Returns 1 when an equal entry exists, otherwise 0, also when the value cannot be read or is not
/// well-formed.
SYSMAINT_API int BootExecuteIsScheduled(const wchar_t* entry);
SYSMAINT_C_END
