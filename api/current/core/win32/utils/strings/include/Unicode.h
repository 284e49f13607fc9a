#pragma once

#include <string>
#include <string_view>
#include <tuple>

/// UTF-8 and UTF-16 of any length, strictly: nothing is replaced. Both raise 1113
/// (ERROR_NO_UNICODE_TRANSLATION) for what is not valid.
namespace unicode {
/// Overlong forms, surrogates and what lies above U+10FFFF are not valid.
[[nodiscard]] std::wstring wideFromUtf8(std::string_view text);
/// Lone surrogates are not valid.
[[nodiscard]] std::string utf8FromWide(std::wstring_view text);

/// Takes the next character off the front of `rest`, which is not empty. A lone surrogate is one by itself.
[[nodiscard]] char32_t nextCharacter(std::wstring_view& rest) noexcept;

/// A text of a code page, by the system's tables, and whether something was lost in it: what the code page
/// lacks becomes its substitute ("?"). Raises the bare code.
[[nodiscard]] std::tuple<std::string, bool> ansiFromWide(std::wstring_view text, unsigned codePage);
/// Raises 1113 for bytes that are no character of the code page, and the system's code.
[[nodiscard]] std::wstring wideFromAnsi(std::string_view text, unsigned codePage);
} // namespace unicode
