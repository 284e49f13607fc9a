#pragma once

#include <string>
#include <string_view>
#include <tuple>
#include <vector>

/// What the exported string functions do; see api.h. They raise bare codes.
namespace strings {
[[nodiscard]] std::wstring duplicate(std::wstring_view text);
[[nodiscard]] std::wstring trim(std::wstring_view text, std::wstring_view characters);
[[nodiscard]] std::wstring replaceAll(std::wstring_view text, std::wstring_view from, std::wstring_view to,
                                      bool ignoreCase);
/// The list, and how many entries it has.
[[nodiscard]] std::tuple<std::wstring, std::size_t> split(std::wstring_view text,
                                                          std::wstring_view separators, bool keepEmpty);
[[nodiscard]] std::wstring join(std::wstring_view list, std::wstring_view separator);
[[nodiscard]] bool startsWith(std::wstring_view text, std::wstring_view prefix, bool ignoreCase);
[[nodiscard]] bool endsWith(std::wstring_view text, std::wstring_view suffix, bool ignoreCase);
[[nodiscard]] bool contains(std::wstring_view text, std::wstring_view part, bool ignoreCase);
[[nodiscard]] bool equalsIgnoringCase(std::wstring_view text, std::wstring_view other) noexcept;
[[nodiscard]] int compareNatural(std::wstring_view first, std::wstring_view second) noexcept;
[[nodiscard]] bool matchesPattern(std::wstring_view text, std::wstring_view pattern);
[[nodiscard]] std::wstring toUpper(std::wstring_view text);
[[nodiscard]] std::wstring toLower(std::wstring_view text);
[[nodiscard]] long long toInt64(std::wstring_view text, int base);
[[nodiscard]] std::wstring formatHex(std::basic_string_view<unsigned char> bytes);
[[nodiscard]] std::vector<unsigned char> parseHex(std::wstring_view text);
[[nodiscard]] std::wstring quoteArgument(std::wstring_view argument);

/// The value of a digit or letter, 0 to 35; 36 for any other character.
[[nodiscard]] unsigned digitValue(wchar_t c) noexcept;
} // namespace strings
