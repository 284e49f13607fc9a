#pragma once

#include <cstdint>
#include <string>

/// Puts a file on the list of those that the boot-time program overwrites and deletes at the next start:
/// appends one line to "ForceDelete.txt" in the Windows folder, UTF-16 without byte-order mark, behind a
/// header of a 32-bit zero and a line end that a new or empty list gets first.
///
/// Reports nothing: a path that is refused, or one whose line cannot be written, is not on the list.
/// Whoever needs to know calls the functions below.
void ScheduleForceDelete(const wchar_t* path, std::uint32_t method, std::uint32_t passes) noexcept;

namespace forcedelete {
/// The text by which the boot-time program finds `path`: from a drive's letter or "Volume{...}" on. Empty
/// when the path is refused, because the program would find nothing, something else or more than one file:
/// - everything but a plain path below the root of a drive or volume: a root itself, a device, an empty name,
///   a name "." or "..", a wildcard or any other of *?<>"|/ and of the characters below 0x20, a stream
///   (behind its colon may stand the file itself or its folder);
/// - what is on the network, by whatever name. A drive's letter that stands for a folder in this session
/// alone
///   is replaced by that folder's own path;
/// - a folder, a link (the program would open what it leads to), what cannot be looked at, and what is not
///   there: another file may have its name by the start;
/// - the list itself.
/// Relative paths are settled first. Raises the bare code when that fails.
[[nodiscard]] std::wstring listedPath(std::wstring_view path);

/// Appends the line of a path from `listedPath`, whole: any number of threads and processes may do so. Waits
/// up to two seconds for others that hold the list. Returns 0 when the line stands; 8; or the system's code,
/// 32 and 33 when the list was held all the time. Then there is no part of the line either.
[[nodiscard]] long append(const std::wstring& listedPath, std::uint32_t method,
                          std::uint32_t passes) noexcept;

/// Whether a whole line of the list names `path`. Raises the bare code when the list cannot be read; one
/// that is not there names nothing.
[[nodiscard]] bool isScheduled(std::wstring_view path);
} // namespace forcedelete
