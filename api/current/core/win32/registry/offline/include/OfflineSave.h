#pragma once

#include <tuple>

#include "core/win32/utils/memory/include/UtilityMemory.h"
#include "win32/registry/include/HiveLoss.h"

namespace offline {
/// Saves a registry hive that is not loaded compactly to another file: through the system's offreg.dll if
/// there is one (loaded from the system folder only), otherwise with the built-in engine. The source is only
/// read, and shared only with readers. A file with the destination's name is overwritten once the source has
/// been read. On return it is complete and flushed; one that could not be written completely is deleted.
///
/// Raises a bare code: 8; the system's of a file that cannot be opened, read or written; 1009 (not a hive),
/// 1015 (a damaged hive), 223 (too large for a hive); offreg.dll's own codes, such as 1017. The use of
/// offreg.dll was proven with a stand-in for it.
void saveCompact(const wchar_t* sourceFile, const wchar_t* destinationFile);

/// See HiveFileSalvage. Returns the records and the total number of omitted places. Raises a bare code.
[[nodiscard]] std::tuple<RecordList<HiveLoss>, std::size_t> salvageFile(const wchar_t* damagedFile,
                                                                        const wchar_t* newFile);
} // namespace offline
