// The C interface: restore points and snapshots.

#include "core/win32/utils/restoremanager/include/RestoreManager.h"
#include "core/win32/utils/restoremanager/include/VRL.h"

#include "exports/c/CFrames.h"

using cframes::requireArguments;
using cframes::status;

static_assert(SYSMAINT_SNAPSHOT_CURRENT == kSnapshotCurrent &&
              SYSMAINT_SNAPSHOT_BASELINE == kSnapshotBaseline && SYSMAINT_SNAPSHOT_TIME == kSnapshotTime &&
              SYSMAINT_SNAPSHOT_NAMED == kSnapshotNamed);

namespace {
/// The code that the system has for the tool's NT status.
long codeOf(long ntStatus) noexcept
{
    if (ntStatus == kSnapshotNoMemory)
        return ERROR_NOT_ENOUGH_MEMORY;
    return ntStatus == ERROR_SUCCESS ? ERROR_SUCCESS : ERROR_GEN_FAILURE;
}
} // namespace

std::int32_t sysmaint_restore_point_number(void* manager, std::int64_t* number)
{
    return status(__func__, [&] {
        const auto object = cframes::objectOf<SharedPtr<RestoreManager>>(restoreManagers(), manager);
        requireArguments(number != nullptr);
        *number = object->getRestorePointId();
    });
}

std::int32_t sysmaint_snapshot_create(const wchar_t* tool, const wchar_t* name, const wchar_t* comment,
                                      const wchar_t* user, const wchar_t* password)
{
    return status(__func__, [&] {
        requireArguments(tool != nullptr && name != nullptr);
        return codeOf(VRL().createSnapshot(tool, name, comment, user, password));
    });
}

std::int32_t sysmaint_snapshot_restore(std::uint32_t mode, const wchar_t* tool, const wchar_t* user,
                                       const wchar_t* password, const wchar_t* name, const wchar_t* time)
{
    return status(__func__, [&] {
        requireArguments(tool != nullptr && mode <= SYSMAINT_SNAPSHOT_NAMED &&
                         (mode != SYSMAINT_SNAPSHOT_NAMED || name != nullptr) &&
                         (mode != SYSMAINT_SNAPSHOT_TIME || time != nullptr));
        return codeOf(VRL().restoreSnapshot(mode, tool, user, password, name, time));
    });
}
