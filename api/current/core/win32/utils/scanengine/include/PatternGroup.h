#pragma once

#include <string_view>
#include <vector>

#include "core/win32/utils/scanengine/include/KeywordTrie.h"

/// Any number of patterns that a text is compared with at once: asks few of them or none, and says what
/// asking each of them would say. Never changes once it is made.
class PatternGroup
{
public:
    struct Pattern
    {
        std::wstring_view
            text;         ///< folded (casefolding), without a zero; not copied, to be kept by the caller
        bool isSubstring; ///< to be anywhere in the text; else as matchesWildcard takes it
    };

    /// Raises std::bad_alloc, also for patterns of more than 16 million characters.
    explicit PatternGroup(const std::vector<Pattern>& patterns);

    /// No text matches.
    [[nodiscard]] bool isEmpty() const noexcept;
    /// Whether any of the patterns matches the text, which is folded and has no zero.
    [[nodiscard]] bool matches(std::wstring_view text) const noexcept;

private:
    [[nodiscard]] bool isInside(std::wstring_view text) const noexcept;

    bool m_all = false; // a pattern that every text matches
    KeywordTrie m_ends;
    KeywordTrie m_parts;
    std::vector<std::wstring_view> m_asked;   // about texts that have a certain stretch of theirs in them
    std::vector<std::wstring_view> m_unaided; // about every text
};
