#pragma once

/// The system's list of boot-time command lines. The exported functions document these; they return the Win32
/// code or raise it.
namespace bootexecute {
long add(const wchar_t* entry);
long remove(const wchar_t* entry);
[[nodiscard]] bool isScheduled(const wchar_t* entry);
} // namespace bootexecute
