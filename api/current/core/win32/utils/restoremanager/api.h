#pragma once

// System Restore, and the external tool for snapshots of the whole system. plain.h has what C takes as well,
// and describes restore managers.

#include <cstdint>

#include "core/win32/utils/objectmanager/include/Api.h"
#include "core/win32/utils/restoremanager/plain.h"
#include "win32/restoremanager/include/IVRL.h"

/// The number of the manager's last restore point, or 0. Returns 0, 6 or 487.
SYSMAINT_API long GetRestorePointID(void* manager, std::int64_t& sequenceNumber);

/// Creates a runner of the snapshot tool; the caller deletes it. Null with the last error 8 when memory runs
/// out.
SYSMAINT_API IVRL* DllGetVRL();
