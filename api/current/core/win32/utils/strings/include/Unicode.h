#pragma once

#include <string>
#include <string_view>
#include <tuple>

/// Converts UTF-8 and UTF-16 of any length strictly: nothing is replaced. Both functions raise 1113
/// (ERROR_NO_UNICODE_TRANSLATION) for invalid text.
namespace unicode {
/// Overlong forms, surrogates and code points above U+10FFFF are invalid.
[[nodiscard]] std::wstring wideFromUtf8(std::string_view text);
/// Lone surrogates are invalid.
[[nodiscard]] std::string utf8FromWide(std::wstring_view text);

/// Removes the next character from the front of `rest`, which is not empty. A lone surrogate counts as a
/// character.
[[nodiscard]] char32_t nextCharacter(std::wstring_view& rest) noexcept;

/// A text in a code page, by the system's tables, and whether something was lost: what the code page lacks
/// becomes its substitute ("?"). Raises the bare code.
[[nodiscard]] std::tuple<std::string, bool> ansiFromWide(std::wstring_view text, unsigned codePage);
/// Raises 1113 for bytes that are no character of the code page, and the system's code.
[[nodiscard]] std::wstring wideFromAnsi(std::string_view text, unsigned codePage);
} // namespace unicode
