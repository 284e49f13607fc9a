#pragma once

#include <tuple>

#include "core/win32/utils/memory/include/UtilityMemory.h"
#include "win32/registry/include/HiveLoss.h"

namespace offline {
/// Opens a registry hive that nobody has loaded and saves it into another file, compactly: through the
/// system's offreg.dll where it is there (it is loaded from the system folder only), and through our own
/// engine otherwise. The source is only read, and shared with readers alone. A file that has the
/// destination's name is overwritten as soon as the source has been read; when this returns it is complete
/// and flushed, and what could not be written whole is deleted.
///
/// Raises a bare code: 8; the system's of a file that cannot be opened, read or written; 1009 (no hive), 1015
/// (a damaged one), 223 (too large for one); of offreg.dll also its own, such as 1017. The way through
/// offreg.dll was proven with a stand-in for it.
void saveCompact(const wchar_t* sourceFile, const wchar_t* destinationFile);

/// See HiveFileSalvage. Returns the records and how many places were left out in all. Raises a bare code.
[[nodiscard]] std::tuple<RecordList<HiveLoss>, std::size_t> salvageFile(const wchar_t* damagedFile,
                                                                        const wchar_t* newFile);
} // namespace offline
