#pragma once

// Damaged registry hive files: the function that C takes as well.

#include "core/win32/utils/memory/api.h"
#include "win32/registry/include/HiveLoss.h"

SYSMAINT_C_BEGIN
/// Reads what can still be reached in a damaged hive file with the built-in engine, and writes it to a new
/// file as a complete, compact hive. An undamaged hive loses nothing. `losses` receives a record for each
/// omitted place, at most 10,000, in one buffer that the caller frees with utilsFreeMemory; `count` receives
/// their number, `total` the number of all omitted places. Key paths are cut after 1,000 characters.
///
/// @return 0; 87; 8; 1009 (not even a root key was found); 183 (the new file exists already); 161 (its path
/// cannot be that of a file on a disk); 223 (too large for a hive); or the system's code. On failure no new
/// file is left. The damaged file is only read
SYSMAINT_API long HiveFileSalvage(const wchar_t* damagedFile, const wchar_t* newFile,
                                  struct HiveLoss** losses, size_t* count, size_t* total);
SYSMAINT_C_END
