// The exported functions of offline hive files.

#include "core/win32/registry/offline/api.h"
#include "core/win32/registry/offline/include/OfflineRegistryKey.h"
#include "core/win32/registry/offline/include/OfflineSave.h"
#include "core/win32/utils/paths/include/Win32Path.h"
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
    bool isWritten = false;
    const long code = utilityFrame(
        outputs(counted(losses, count), total),
        [&](const wchar_t* damaged, const wchar_t* target) {
            auto found = offline::salvageFile(damaged, target);
            isWritten = true;
            return found;
        },
        damagedFile, newFile);
    if (code != ERROR_SUCCESS && isWritten) // no memory for the records
        boundary::statusFrame([&]() -> long {
            DeleteFileW(Win32Path(newFile));
            return ERROR_SUCCESS;
        });
    return code;
}
