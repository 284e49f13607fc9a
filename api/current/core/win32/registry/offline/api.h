#pragma once

// Registry hive files that nobody has loaded, as keys and values; IOfflineRegistryKey.h says what these do.

#include "core/win32/utils/memory/api.h"
#include "core/win32/utils/objectmanager/include/Api.h"
#include "win32/registry/include/HiveLoss.h"
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

/// Reads what can still be reached of a damaged hive file, by our own engine, and writes it to a new file, a
/// whole and compact hive. Of a hive that is whole nothing is lost. `losses` takes a record for each place
/// that was left out, 10,000 at most, in one buffer that the caller frees with utilsFreeMemory; `count` how
/// many these are, `total` how many places there were. A key's path of more than 1,000 characters is cut
/// there.
///
/// @return 0; 87; 8; 1009 (there is not even a root key to be found); 183 (the new file is there already);
/// 223 (too large for a hive); or the system's code. The damaged file is only read
SYSMAINT_API long HiveFileSalvage(const wchar_t* damagedFile, const wchar_t* newFile, HiveLoss** losses,
                                  size_t* count, size_t* total);
