// The exported functions of offline hive files.

#include "core/win32/registry/offline/api.h"
#include "core/win32/registry/offline/include/OfflineRegistryKey.h"
#include "core/win32/registry/offline/include/OfflineSave.h"
#include "exports/Frames.h"
#include "exports/UtilityFrame.h"

using namespace utilityframe;

IOfflineRegistryKey* DllGetOfflineRegistryKey(const wchar_t* hiveFile, const wchar_t* path, unsigned long way)
{
    return frames::makeObject<IOfflineRegistryKey, OfflineRegistryKey>(hiveFile, path, way);
}

IOfflineRegistryKey* DllGetOfflineRegistryKey(const wchar_t* hiveFile, const wchar_t* path)
{
    return DllGetOfflineRegistryKey(hiveFile, path, kOfflineAny);
}

long HiveFileSalvage(const wchar_t* damagedFile, const wchar_t* newFile, HiveLoss** losses, size_t* count,
                     size_t* total)
{
    return utilityFrame(outputs(counted(losses, count), total), offline::salvageFile, damagedFile, newFile);
}
