#pragma once

#include <string_view>

/// Matches a whole text against a wildcard pattern; both must be folded already (casefolding).
///
/// The rules are those of IScanValidator: no backtracking, `*` anchors on the last occurrence in the text of
/// the character after it, negated sets continue as ordinary characters. Callers rely on exactly these rules.
[[nodiscard]] bool matchesWildcard(std::wstring_view foldedText, std::wstring_view foldedPattern) noexcept;
