#pragma once

#include <string>

/// What the exported functions of the environment and the system do; see api.h. They raise bare codes.
namespace environment {
inline constexpr unsigned long kOwn = 0xFFFFFFFF; ///< not a session: the caller's own environment
[[nodiscard]] std::wstring expand(const wchar_t* text, unsigned long session);
[[nodiscard]] std::wstring get(const wchar_t* name);
void setPersistent(const wchar_t* name, const wchar_t* text, bool forMachine);
} // namespace environment

namespace systemstate {
[[nodiscard]] bool isOnBattery();
[[nodiscard]] bool isSafeMode();
[[nodiscard]] unsigned long long idleTime();
void restart(unsigned long kind, unsigned long seconds);
} // namespace systemstate
