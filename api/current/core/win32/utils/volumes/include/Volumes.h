#pragma once

#include <string>
#include <tuple>

#include "core/win32/utils/memory/include/UtilityMemory.h"
#include "win32/volumes/include/VolumeRecord.h"

/// What the exported volume functions do; see api.h. They raise bare codes.
namespace volumes {
[[nodiscard]] RecordList<VolumeRecord> enumerate();
[[nodiscard]] unsigned long clusterSize(const wchar_t* root);
[[nodiscard]] bool isSolidState(const wchar_t* root);
/// The list of mount points, and their number.
[[nodiscard]] std::tuple<std::wstring, std::size_t> letters(const wchar_t* volume);
void flush(const wchar_t* root);
} // namespace volumes
