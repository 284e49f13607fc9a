#pragma once

#include <windows.h>

#include <string>
#include <string_view>

/// What the exported time functions do; see api.h. They raise bare codes. A time is a FILETIME as a number.
namespace timetext {
[[nodiscard]] unsigned long long fromUnix(long long seconds);
[[nodiscard]] long long toUnix(unsigned long long time);
[[nodiscard]] std::wstring toText(unsigned long long time);
[[nodiscard]] unsigned long long fromText(std::wstring_view text);

/// The fields of a time, UTC. Raises 87 for a time after the year 30,827.
[[nodiscard]] SYSTEMTIME fields(unsigned long long time);
[[nodiscard]] constexpr unsigned long long number(FILETIME time) noexcept
{
    return (static_cast<unsigned long long>(time.dwHighDateTime) << 32U) | time.dwLowDateTime;
}
[[nodiscard]] constexpr FILETIME fileTime(unsigned long long time) noexcept
{
    return {static_cast<DWORD>(time), static_cast<DWORD>(time >> 32U)};
}
} // namespace timetext
