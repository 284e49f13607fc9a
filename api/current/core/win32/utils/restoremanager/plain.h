#pragma once

// System Restore: the functions that C takes as well.
//
// A restore manager creates one restore point for a change. The restore client ("srclient.dll") and COM are
// loaded on demand, from the system directory only. Each call initialises COM on the calling thread for its
// duration; a thread that already has an apartment keeps it, of either kind. Each call requests the process's
// COM security; a process that has set it already keeps its own, and must let the local service, the network
// service and the local system call into it, or the system may refuse to create restore points. All calls
// block until the system answers: a restore point takes seconds to minutes.
//
// Codes: a failure of COM or WMI is returned as the low 16 bits of its HRESULT (0x80041003 as 4099), or as
// 574 when these are 0; everything else is a Win32 code.
//
// The platform that this is tested on has only stubs, so all calls of the restore client and all rows that
// WMI finds were proven with stand-ins only. Enabling has been run against WMI itself.

#include <stdint.h>

#include "core/win32/utils/objectmanager/include/Export.h"

SYSMAINT_C_BEGIN
/// Creates or opens the restore manager of that name. Its restore point is described by the name, "_" and the
/// current local time: "Registry_05.03.2010 14:07:09".
///
/// Returns the handle, or the invalid handle with the last error 87 (null name) or 8.
SYSMAINT_API void* CreateRestoreManager(const wchar_t* name);
/// Creates a restore point with the manager's description, cut to 255 characters, and keeps its number. The
/// system change is begun and ended at once: the restore point precedes the caller's change.
///
/// From Windows 8 on the system creates one restore point in 24 hours (unless the registry says otherwise)
/// and answers further calls with success and the number of an older one. So the description of the restore
/// point with that number is checked: when it differs, or the number is 0 or that of the manager's previous
/// restore point, none was created and the call returns 183. When the description cannot be read, the
/// system's success counts.
///
/// @return 0; 183 (the system created none); 6, 487 (the handle); 126 (no restore client) or 127 (it lacks
///         the function); a code of COM; or the client's failure: the last error, else the status that it
///         returns, else 1003. The number is stored only with 0; with any other code an earlier one stays
SYSMAINT_API long CreateRestorePoint(void* manager);
/// Removes a restore point. The manager's number is 0 afterwards, even if this fails.
///
/// @return 0; 87 (a number that does not fit 32 bits: truncated, it would name another restore point; nothing
///         is removed); 6, 487; 126, 127; a code of COM; or the last error, else what the client returns
SYSMAINT_API long DeleteRestorePoint(void* manager, int64_t sequenceNumber);
/// Enables System Restore for a drive such as "C:\". The system requires it to be enabled for its own drive
/// first.
///
/// @return 0; 87 (null, or an empty text, which the system takes for all drives); 6, 487; 13 (the answer is
///         not a number); a code of COM, 4098 when there is no answer; or the code that WMI's method returns
SYSMAINT_API long EnableSystemRestore(void* manager, const wchar_t* drive);
/// Tells whether System Restore is enabled: `*enabled` becomes 1 or 0. On NT 5.1 and 5.2 the registry is
/// read, where no key means enabled; from NT 6.0 on, present systems included, WMI is asked. Other systems
/// leave the flag unchanged (0).
///
/// @return 0; 87 (null); 6, 487; 1168 (WMI has no configuration of System Restore, so it is unknown); 13 (the
///         configuration is not a number); a code of COM; a code of the registry, such as 2 (no such value)
///         or 1630 (a value of another type). All of them leave the flag unchanged
SYSMAINT_API long IsSystemRestoreEnabled(void* manager, int* enabled);
/// Copies the whole description.
///
/// @param buffer  takes the text and its closing zero
/// @param size    the buffer's size in characters; when that is too small, set to the size needed, including
///                the closing zero
/// @return 0, or 234 (too small; nothing is copied), 87 (null buffer or size), 6, 487
SYSMAINT_API long GetRestorePointName(void* manager, wchar_t* buffer, uint64_t* size);
/// Closes the handle. Returns nonzero, or 0 for a handle that is not open. Restore points stay.
SYSMAINT_API int CloseRestoreManager(void* manager);
SYSMAINT_C_END
