#pragma once

#include <cstdint>

#include "win32/wiper/include/IWiper.h"

namespace filetable {
/// More small files than the table of any healthy volume has free records for.
inline constexpr std::uint32_t kMostFiles = 16'777'216;

/// See WipeFileTable. Raises the bare code.
long wipe(const wchar_t* volume, WipeCallback callback, WipeProgress* progress, HANDLE cancelEvent);
} // namespace filetable
