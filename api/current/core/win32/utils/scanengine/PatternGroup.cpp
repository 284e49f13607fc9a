#include "core/win32/utils/scanengine/include/PatternGroup.h"

#include <algorithm>
#include <tuple>

#include "core/win32/utils/strings/include/WildcardMatcher.h"

namespace {
/// What is known about a wildcard pattern without a text. It is read in the same way as the matcher reads it,
/// which takes one path through every pattern, up to the first negated set.
///
/// A stretch is a run of ordinary characters between other elements. The matcher passes each stretch only if
/// the text has it at the place after the previous one: a matching text contains every stretch. The first is
/// at the text's beginning if no element precedes it, the last at its end if none follows, since the whole
/// text must be used up. The character after a star, its anchor, belongs to no stretch: a text without it is
/// compared from its beginning.
///
/// Unless a second star follows the anchor, the matcher continues after the last anchor of the text, or at
/// the beginning of a text that has none, or fails. Either way what the elements up to the next star are
/// compared with contains no anchor: a pattern with its anchor in a stretch there matches nothing.
class PatternReader
{
public:
    explicit PatternReader(std::wstring_view pattern) : m_pattern(pattern) { read(); }

    [[nodiscard]] const std::vector<Keyword>& stretches() const noexcept { return m_stretches; }
    /// Whether no text matches.
    [[nodiscard]] bool isVain() const noexcept { return m_vain; }
    /// A text without other elements: it matches only itself.
    [[nodiscard]] bool isText() const noexcept { return m_plain && m_stars == 0; }
    /// A text and a star: matches what begins with the text.
    [[nodiscard]] bool isBeginning() const noexcept { return m_plain && m_stars == 1 && m_openEnd; }
    /// A star, its anchor, which may be any character, and a text, which may be empty. The text must be all
    /// that follows the last anchor, or the whole of a text without an anchor. So unless it is vain, it
    /// matches what ends with the anchor and the text, and the text alone.
    [[nodiscard]] bool isEnding() const noexcept
    {
        return m_plain && m_stars == 1 && !m_openEnd && m_pattern.front() == L'*';
    }

private:
    void read()
    {
        while (m_position < m_pattern.size()) {
            const wchar_t c = m_pattern[m_position];
            const std::size_t close =
                c == L'[' ? m_pattern.find(L']', m_position + 1) : std::wstring_view::npos;
            if (c == L'*') {
                endStretch(false);
                ++m_stars;
                m_openEnd = m_position + 1 == m_pattern.size();
                if (m_openEnd)
                    return;
                m_anchor = m_pattern[m_position + 1];
                goOn(m_position + 2);
            } else if (c == L'?' || close != std::wstring_view::npos) {
                endStretch(false);
                m_plain = false;
                if (c == L'[' && m_pattern[m_position + 1] == L'!')
                    return;
                goOn(c == L'?' ? m_position + 1 : close + 1);
            } else {
                ++m_position;
            }
        }
        endStretch(true);
    }
    void endStretch(bool atEnd)
    {
        const std::wstring_view stretch = m_pattern.substr(m_begin, m_position - m_begin);
        m_vain = m_vain || stretch.find(m_anchor) != std::wstring_view::npos;
        if (!stretch.empty())
            m_stretches.push_back({stretch, m_begin == 0, atEnd});
    }
    void goOn(std::size_t at) noexcept { m_begin = m_position = at; }

    std::wstring_view m_pattern;
    std::vector<Keyword> m_stretches;
    std::size_t m_begin = 0;
    std::size_t m_position = 0;
    wchar_t m_anchor = L'\0'; // of the last star
    int m_stars = 0;
    bool m_plain = true; // only ordinary characters and stars
    bool m_openEnd = false;
    bool m_vain = false;
};

/// Appends the stretch of each rule that is likely to be in the fewest texts: very short ones are in many,
/// and a text with one shared by several rules has to be compared with all of them.
void chooseStretches(std::vector<Keyword>& stretches, std::size_t rules, std::vector<Keyword>& chosen)
{
    constexpr std::size_t kRare = 4;
    const auto order = [](const Keyword& a, const Keyword& b) {
        return std::tie(a.text, a.atBegin, a.atEnd) < std::tie(b.text, b.atBegin, b.atEnd);
    };
    std::sort(stretches.begin(), stretches.end(), order);
    using Merit = std::tuple<std::size_t, std::ptrdiff_t, std::size_t>;
    std::vector<std::pair<Merit, const Keyword*>> best(rules);
    for (auto first = stretches.begin(); first != stretches.end();) {
        const auto last = std::upper_bound(first, stretches.end(), *first, order);
        const Merit merit(std::min(first->size(), kRare), first - last, first->size());
        for (; first != last; ++first)
            if (best[first->rule].second == nullptr || best[first->rule].first < merit)
                best[first->rule] = {merit, &*first};
    }
    for (const auto& choice : best)
        chosen.push_back(*choice.second);
}
} // namespace

PatternGroup::PatternGroup(const std::vector<Pattern>& patterns)
{
    std::vector<Keyword> ends;
    std::vector<Keyword> parts;
    std::vector<Keyword> stretches;
    for (const Pattern& pattern : patterns) {
        const PatternReader reader(pattern.isSubstring ? std::wstring_view() : pattern.text);
        if (pattern.isSubstring ? pattern.text.empty() : pattern.text == L"*") {
            m_all = true;
        } else if (pattern.isSubstring) {
            parts.push_back({pattern.text});
        } else if (reader.isVain()) {
            continue;
        } else if (reader.isText()) {
            ends.push_back({pattern.text, true});
        } else if (reader.isBeginning()) {
            parts.push_back(reader.stretches().front());
        } else if (reader.isEnding()) {
            ends.push_back({pattern.text.substr(1)});
            ends.push_back({pattern.text.substr(2), true});
        } else if (reader.stretches().empty()) {
            m_unaided.push_back(pattern.text);
        } else {
            for (const Keyword& stretch : reader.stretches())
                stretches.push_back({stretch.text, stretch.atBegin, stretch.atEnd,
                                     static_cast<std::uint32_t>(m_asked.size())});
            m_asked.push_back(pattern.text);
        }
    }
    chooseStretches(stretches, m_asked.size(), parts);
    m_ends = KeywordTrie(ends, KeywordTrie::Reading::Backward);
    m_parts = KeywordTrie(parts, KeywordTrie::Reading::Forward);
}

bool PatternGroup::isEmpty() const noexcept
{
    return !m_all && m_ends.isEmpty() && m_parts.isEmpty() && m_unaided.empty();
}

bool PatternGroup::matches(std::wstring_view text) const noexcept
{
    return m_all || m_ends.isEndOf(text) || isInside(text) ||
           std::any_of(m_unaided.begin(), m_unaided.end(),
                       [&](std::wstring_view pattern) { return matchesWildcard(text, pattern); });
}

bool PatternGroup::isInside(std::wstring_view text) const noexcept
{
    // Stretches that are found repeatedly must not cost more than comparing every rule once.
    std::size_t left = m_asked.size();
    bool allAsked = false;
    return m_parts.occursIn(text, [&](std::uint32_t rule) {
        if (allAsked)
            return false;
        if (left > 0) {
            --left;
            return matchesWildcard(text, m_asked[rule]);
        }
        allAsked = true;
        return std::any_of(m_asked.begin(), m_asked.end(),
                           [&](std::wstring_view pattern) { return matchesWildcard(text, pattern); });
    });
}
