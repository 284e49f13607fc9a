#pragma once

// Registry hive files that nobody has loaded, as keys and values; IOfflineRegistryKey.h says what these do.

#include "core/win32/utils/objectmanager/include/Api.h"
#include "win32/registry/include/IOfflineRegistryKey.h"

/// Reads a hive file and gives the key at `path` in it (empty: the root), there or not. A null file stands
/// for a new hive. The file is not kept open. `way` is one of OfflineWay. The caller deletes the key.
///
/// Returns null with the last error 87 (null path, unknown way), 8, 123, 206, 126 or 127 (kOfflineLibrary
/// without the library or its functions), 1009 (no hive), 1015 (a damaged one), 223 (too large for one), or
/// the system's code.
SYSMAINT_API IOfflineRegistryKey* DllGetOfflineRegistryKey(const wchar_t* hiveFile, const wchar_t* path,
                                                           unsigned long way);
/// The same with kOfflineAny.
SYSMAINT_API IOfflineRegistryKey* DllGetOfflineRegistryKey(const wchar_t* hiveFile, const wchar_t* path);
