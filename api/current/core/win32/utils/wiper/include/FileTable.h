#pragma once

#include <cstdint>

#include "win32/wiper/include/IWiper.h"

namespace filetable {
/// More small files than a table has room for between the others on any healthy volume.
inline constexpr std::uint32_t kMostFiles = 16'777'216;

/// See WipeFileTable. Raises its codes bare.
long wipe(const wchar_t* volume, WipeCallback callback, WipeProgress* progress, HANDLE cancelEvent);
} // namespace filetable
