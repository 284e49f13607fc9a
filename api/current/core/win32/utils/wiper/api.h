#pragma once

// Secure deletion, and the programs and files that wait for the next start of the machine.

#include "core/win32/utils/objectmanager/include/Api.h"
#include "win32/wiper/include/IWiper.h"

/// A wiper, which the caller deletes through the interface; null when memory is short (last error 8).
SYSMAINT_API IWiper* DllGetWiper();

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
