// The exported functions of restore managers and of the snapshot tool.

#include "core/win32/utils/restoremanager/include/RestoreManager.h"
#include "core/win32/utils/restoremanager/api.h"
#include "core/win32/utils/restoremanager/include/VRL.h"
#include "exports/Frames.h"

using boundary::createFrame;
using boundary::statusFrame;

namespace {
constexpr char kRestoreApi[] = "core\\win32\\utils\\restoremanager\\api.h";
} // namespace

void* CreateRestoreManager(const wchar_t* name)
{
    return createFrame(PLACE(kRestoreApi, "CreateRestoreManager", __LINE__),
                       PLACE(kRestoreApi, "CreateRestoreManager", __LINE__), restoreManagers(), name,
                       [&] { return new RestoreManager(name); });
}

long CreateRestorePoint(void* manager)
{
    return statusFrame(PLACE(kRestoreApi, "CreateRestorePoint", __LINE__), restoreManagers(), manager,
                       [](RestoreManager& object) { object.createRestorePoint(); });
}

long DeleteRestorePoint(void* manager, std::int64_t sequenceNumber)
{
    return statusFrame(PLACE(kRestoreApi, "DeleteRestorePoint", __LINE__), restoreManagers(), manager,
                       [&](RestoreManager& object) { object.deleteRestorePoint(sequenceNumber); });
}

long EnableSystemRestore(void* manager, const wchar_t* drive)
{
    return statusFrame(PLACE(kRestoreApi, "EnableSystemRestore", __LINE__), restoreManagers(), manager,
                       [&](RestoreManager&) { RestoreManager::enableSystemRestore(drive); });
}

long IsSystemRestoreEnabled(void* manager, int* enabled)
{
    return statusFrame(PLACE(kRestoreApi, "IsSystemRestoreEnabled", __LINE__), restoreManagers(), manager,
                       [&](RestoreManager&) { RestoreManager::isSystemRestoreEnabled(enabled); });
}

long GetRestorePointID(void* manager, std::int64_t& sequenceNumber)
{
    return statusFrame(PLACE(kRestoreApi, "GetRestorePointID", __LINE__), restoreManagers(), manager,
                       [&](RestoreManager& object) { sequenceNumber = object.getRestorePointId(); });
}

long GetRestorePointName(void* manager, wchar_t* buffer, std::uint64_t* size)
{
    return statusFrame(PLACE(kRestoreApi, "GetRestorePointName", __LINE__), restoreManagers(), manager,
                       [&](RestoreManager& object) { object.copyRestorePointName(buffer, size); });
}

int CloseRestoreManager(void* manager)
{
    return restoreManagers().close(manager);
}

IVRL* DllGetVRL()
{
    return frames::makeObject<IVRL, VRL>();
}
