#pragma once

#include <string>

/// What the exported formatting functions do; see api.h. They raise bare codes.
namespace formatting {
[[nodiscard]] std::wstring byteSize(unsigned long long bytes, unsigned decimals);
[[nodiscard]] std::wstring count(unsigned long long number);
[[nodiscard]] std::wstring duration(unsigned long long milliseconds);
[[nodiscard]] std::wstring percent(unsigned long long part, unsigned long long whole);
[[nodiscard]] std::wstring dateTime(unsigned long long time, bool longForm);
[[nodiscard]] std::wstring systemError(unsigned long code);
} // namespace formatting
