#pragma once

#include <string_view>
#include <vector>

#include "core/win32/utils/scanengine/include/KeywordTrie.h"

/// Any number of patterns compared with a text at once. The result is the same as comparing each of them, but
/// few or none are compared. Immutable once built.
class PatternGroup
{
public:
    struct Pattern
    {
        std::wstring_view
            text;         ///< folded (casefolding), without a zero; not copied, the caller keeps it alive
        bool isSubstring; ///< found anywhere in the text; otherwise matched as by matchesWildcard
    };

    /// Raises std::bad_alloc, also for patterns of more than 16 million characters.
    explicit PatternGroup(const std::vector<Pattern>& patterns);

    /// Whether no text can match.
    [[nodiscard]] bool isEmpty() const noexcept;
    /// Whether any of the patterns matches the text, which is folded and contains no zero.
    [[nodiscard]] bool matches(std::wstring_view text) const noexcept;

private:
    [[nodiscard]] bool isInside(std::wstring_view text) const noexcept;

    bool m_all = false; // a pattern that every text matches
    KeywordTrie m_ends;
    KeywordTrie m_parts;
    std::vector<std::wstring_view> m_asked;   // compared with texts that contain a certain part of theirs
    std::vector<std::wstring_view> m_unaided; // compared with every text
};
