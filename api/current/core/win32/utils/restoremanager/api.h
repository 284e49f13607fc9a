#pragma once

// System Restore, and the external tool for snapshots of the whole system.
//
// A restore manager takes one restore point around a change. The restore client ("srclient.dll") and COM are
// loaded when they are needed, from the system directory alone. Each call uses COM on the calling thread for
// its length; a thread that has an apartment of its own keeps it, of whatever kind. The process's COM
// security is asked for with each call, and stays as it is in a process that has set it; such a process has
// to let the local service, the network service and the local system call into it, or the system may refuse
// to make restore points. All calls block until the system has answered: a restore point takes seconds to
// minutes.
//
// Codes: what a call of COM or WMI fails with comes as the low 16 bits of its HRESULT (0x80041003 as 4099),
// and as 574 when these are 0; everything else is a Win32 code.
//
// Proven with stand-ins alone, because the platform that this is tested on has only stubs: all calls of the
// restore client, and all rows that WMI finds. Enabling has been run against WMI itself.

#include <cstdint>

#include "core/win32/utils/objectmanager/include/Api.h"
#include "win32/restoremanager/include/IVRL.h"

/// Creates the restore manager of that name, or opens it. Its restore point will be described by the name,
/// "_" and the local time of now: "Registry_05.03.2010 14:07:09".
///
/// Returns the handle, or the invalid handle with the last error 87 (null name) or 8.
SYSMAINT_API void* CreateRestoreManager(const wchar_t* name);
/// Takes a restore point with the manager's description, of which the system gets the first 255 characters,
/// and keeps its number. What is begun is ended at once: the point stands before the caller's change.
///
/// From Windows 8 on the system makes one restore point in 24 hours (unless the registry says otherwise) and
/// answers further calls with success and the number of an older one. So the description of the point that it
/// names is asked for: when it is another one, or the number is 0 or that of the manager's own last point, no
/// restore point was made and this is 183. When the description cannot be had, the system's success counts.
///
/// @return 0; 183 (the system made none); 6, 487 (the handle); 126 (no restore client) or 127 (one without
/// the
///         function); a code of COM; or why the client failed: the last error, else the status that it gives,
///         else 1003. The number is kept only with 0; with another code an earlier one stays
SYSMAINT_API long CreateRestorePoint(void* manager);
/// Removes a restore point. The manager's number is 0 afterwards, whatever comes of it.
///
/// @return 0; 87 (a number that does not fit 32 bits: cut, it would name another restore point; nothing is
///         removed); 6, 487; 126, 127; a code of COM; or the last error, else what the client returns
SYSMAINT_API long DeleteRestorePoint(void* manager, std::int64_t sequenceNumber);
/// Switches System Restore on for a drive such as "C:\". The system wants it on for its own drive first.
///
/// @return 0; 87 (null, or an empty text, which the system takes for all drives); 6, 487; 13 (an answer that
///         is no number); a code of COM, 4098 for an answer that is not there; or the code that WMI's method
///         returns
SYSMAINT_API long EnableSystemRestore(void* manager, const wchar_t* drive);
/// Tells whether System Restore is on: `*enabled` becomes 1 or 0. It is asked as the system wants it: on NT
/// 5.1 and 5.2 the registry, without a key meaning on; from NT 6.0 on, the present systems included, WMI.
/// Others leave the flag as it is (0).
///
/// @return 0; 87 (null); 6, 487; 1168 (WMI has no configuration of System Restore, so it cannot be told); 13
///         (one that is no number); a code of COM; a code of the registry, such as 2 (no such value) or 1630
///         (a value of another type). With any of them the flag is left as it is
SYSMAINT_API long IsSystemRestoreEnabled(void* manager, int* enabled);
/// The number of the restore point that the manager has taken last, or 0. Returns 0, 6 or 487.
SYSMAINT_API long GetRestorePointID(void* manager, std::int64_t& sequenceNumber);
/// Copies the whole description.
///
/// @param buffer  takes the text and its closing zero
/// @param size    how many characters the buffer has; set when that is too few to how many are needed, the
///                closing zero included
/// @return 0, or 234 (too few; nothing is copied), 87 (null buffer or size), 6, 487
SYSMAINT_API long GetRestorePointName(void* manager, wchar_t* buffer, std::uint64_t* size);
/// Gives the handle back; nonzero, or 0 for a handle that is not open. Restore points stay.
SYSMAINT_API int CloseRestoreManager(void* manager);

/// The snapshot tool; the caller deletes the object. Null with the last error 8 when memory is short.
SYSMAINT_API IVRL* DllGetVRL();
