#pragma once

// Registry hive files that are not loaded, as keys and values; see IOfflineRegistryKey.h.

#include "core/win32/registry/offline/plain.h"
#include "core/win32/utils/objectmanager/include/Api.h"
#include "win32/registry/include/IOfflineRegistryKey.h"

/// Reads a hive file and returns the key at `path` in it (empty: the root), whether or not it exists. A null
/// file creates a new hive. The file is not kept open. A hive that was not closed is read without what is
/// only in its logs, and the objects do not tell: SettingsHiveGetState does (kSettingsUnclosed). `way` is one
/// of OfflineWay. The caller deletes the key.
///
/// Returns null with the last error 87 (null path, unknown way), 8, 123, 206, 126 or 127 (kOfflineLibrary
/// without the library or its functions), 1009 (not a hive), 1015 (a damaged hive), 223 (too large for a
/// hive), or the system's code.
SYSMAINT_API IOfflineRegistryKey* DllGetOfflineRegistryKey(const wchar_t* hiveFile, const wchar_t* path,
                                                           unsigned long way);
/// The same with kOfflineAny.
SYSMAINT_API IOfflineRegistryKey* DllGetOfflineRegistryKey(const wchar_t* hiveFile, const wchar_t* path);
