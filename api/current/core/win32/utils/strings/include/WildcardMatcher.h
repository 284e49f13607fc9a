#pragma once

#include <string_view>

/// Matches the whole of a text against a wildcard pattern; the characters of both are folded already
/// (casefolding).
///
/// The rules are those of IScanValidator: no backtracking, `*` anchors on the last place of the character
/// after it in the text, negated sets go on as ordinary characters. They are relied on as they are.
[[nodiscard]] bool matchesWildcard(std::wstring_view foldedText, std::wstring_view foldedPattern) noexcept;
