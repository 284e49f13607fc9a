#pragma once

#include <cstdint>
#include <string>

/// Puts a file on the list of those that the boot-time program overwrites and deletes at the next start:
/// appends one line to "ForceDelete.txt" in the Windows folder. The list is UTF-16 without byte-order mark; a
/// new or empty one first gets a header of a 32-bit zero and a line end.
///
/// Reports nothing: a path that is refused, or whose line cannot be written, is not on the list. Callers that
/// need to know use the functions below.
void ScheduleForceDelete(const wchar_t* path, std::uint32_t method, std::uint32_t passes) noexcept;

namespace forcedelete {
/// The text by which the boot-time program finds `path`, starting with a drive letter or "Volume{...}". Empty
/// when the path is refused because the program would find nothing, something else or more than one file:
/// - anything but a plain path below the root of a drive or volume: a root itself, a device, an empty name, a
/// name "." or "..", any of *?<>"|/ or of the characters below 0x20, a stream (what follows its colon may
/// name the file itself or its folder);
/// - what is on the network, under any name. A drive letter that stands for a folder in this session only is
/// replaced with that folder's own path;
/// - a folder, a link (the program would open its target), what cannot be examined, and what does not exist:
/// another file may have its name by the next start;
/// - the list itself. Relative paths are resolved first. Raises the bare code when that fails.
[[nodiscard]] std::wstring listedPath(std::wstring_view path);

/// Appends the whole line of a path from `listedPath`; any number of threads and processes may do so. Waits
/// up to two seconds for others that hold the list. Returns 0 when the line was written; 8; or the system's
/// code, 32 and 33 when the list was held all the time. After a failure no part of the line remains.
[[nodiscard]] long append(const std::wstring& listedPath, std::uint32_t method,
                          std::uint32_t passes) noexcept;

/// Whether a whole line of the list names `path`. Raises the bare code when the list cannot be read; a
/// missing list names nothing.
[[nodiscard]] bool isScheduled(std::wstring_view path);
} // namespace forcedelete
