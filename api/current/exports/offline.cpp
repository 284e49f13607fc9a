// The exported functions of offline hive files.

#include "core/win32/registry/offline/api.h"
#include "core/win32/registry/offline/include/OfflineRegistryKey.h"
#include "exports/Frames.h"

IOfflineRegistryKey* DllGetOfflineRegistryKey(const wchar_t* hiveFile, const wchar_t* path, unsigned long way)
{
    return frames::makeObject<IOfflineRegistryKey, OfflineRegistryKey>(hiveFile, path, way);
}

IOfflineRegistryKey* DllGetOfflineRegistryKey(const wchar_t* hiveFile, const wchar_t* path)
{
    return DllGetOfflineRegistryKey(hiveFile, path, kOfflineAny);
}
