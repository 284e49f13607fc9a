#pragma once

#include <cstdint>

/// Puts a file on the list of those that the boot-time program overwrites and deletes at the next start:
/// appends one line to "ForceDelete.txt" in the Windows folder, UTF-16 without byte-order mark, behind a
/// header of a 32-bit zero and a line end that a new or empty list gets first.
///
/// `path` is written as it stands behind "\??\", so it must be absolute and without a prefix of its own: the
/// wiper makes it so.
/// Reports nothing: when the list cannot be written the file is not on it.
void ScheduleForceDelete(const wchar_t* path, std::uint32_t method, std::uint32_t passes) noexcept;
