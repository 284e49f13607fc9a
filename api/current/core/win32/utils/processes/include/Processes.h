#pragma once

#include <windows.h>

#include <string>

/// What the exported process functions do; see api.h. They raise bare codes.
namespace processes {
[[nodiscard]] std::wstring path(unsigned long id);
[[nodiscard]] std::wstring commandLine(unsigned long id);
[[nodiscard]] unsigned long long startTime(unsigned long id);
[[nodiscard]] unsigned long parent(unsigned long id);
/// Tells a process to end, through a handle that has the right to. The system refuses (5) one that is ending
/// by itself: that counts as told.
void end(HANDLE process);
void terminateTree(unsigned long id, unsigned long timeout);
[[nodiscard]] unsigned long runAndWait(const wchar_t* program, const wchar_t* arguments,
                                       unsigned long timeout, HANDLE cancelEvent);
[[nodiscard]] bool is32Bit(unsigned long id);
} // namespace processes
