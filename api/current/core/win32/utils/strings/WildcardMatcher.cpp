#include "core/win32/utils/strings/include/WildcardMatcher.h"

#include <cstddef>

namespace {
class Matcher
{
public:
    Matcher(std::wstring_view text, std::wstring_view pattern) noexcept : m_text(text), m_pattern(pattern) {}

    bool run() noexcept
    {
        while (m_patternPosition < m_pattern.size()) {
            const wchar_t c = m_pattern[m_patternPosition];
            bool goesOn = false;
            if (c == L'*') {
                if (m_patternPosition + 1 == m_pattern.size())
                    return true;
                goesOn = skipRun();
            } else if (c == L'?') {
                goesOn = take(m_textPosition < m_text.size(), 1);
            } else if (c == L'[' && m_pattern.find(L']', m_patternPosition + 1) != std::wstring_view::npos) {
                goesOn = matchSet(m_pattern.find(L']', m_patternPosition + 1));
            } else {
                goesOn = take(m_textPosition < m_text.size() && m_text[m_textPosition] == c, 1);
            }
            if (!goesOn)
                return false;
        }
        return m_textPosition == m_text.size();
    }

private:
    /// The text character at `index`; zero at the end of the text, as in the pattern.
    [[nodiscard]] wchar_t textAt(std::size_t index) const noexcept
    {
        return index < m_text.size() ? m_text[index] : L'\0';
    }
    [[nodiscard]] wchar_t patternAt(std::size_t index) const noexcept
    {
        return index < m_pattern.size() ? m_pattern[index] : L'\0';
    }

    /// Consumes one text character and `length` pattern characters when `matched`.
    bool take(bool matched, std::size_t length) noexcept
    {
        if (matched) {
            ++m_textPosition;
            m_patternPosition += length;
        }
        return matched;
    }

    /// A `*` with something after it. `next` is one more than the position in the text taken for the
    /// character after the star, so 0 means "before the first character".
    bool skipRun() noexcept
    {
        const wchar_t anchor = m_pattern[m_patternPosition + 1];
        const wchar_t after = patternAt(m_patternPosition + 2);
        std::size_t next = m_text.size();
        while (next > 0 && m_text[next - 1] != anchor)
            --next;
        if (textAt(next) != after) {
            // Not followed by what must follow: look further. Before a second star any next character is
            // accepted.
            ++next;
            while (next <= m_text.size() && after != L'*' && m_text[next - 1] != anchor)
                ++next;
            if (next > m_text.size())
                return false;
        }
        m_textPosition = next;
        m_patternPosition += 2;
        return true;
    }

    bool matchSet(std::size_t close) noexcept
    {
        const std::wstring_view set = m_pattern.substr(m_patternPosition + 1, close - m_patternPosition - 1);
        const bool atEnd = m_textPosition >= m_text.size();
        const wchar_t c = textAt(m_textPosition);
        const std::size_t length = close - m_patternPosition + 1;

        if (!set.empty() && set[0] == L'!') {
            if (set.size() > 3 && set[2] == L'-') {
                if (c < set[1] || c > set[3])
                    return take(!atEnd, length);
                m_patternPosition += 1; // the "!" and what follows it are ordinary characters from here on
                return true;
            }
            // The first listed character is never examined.
            if (!atEnd && set.size() > 2 && set.substr(2).find(c) != std::wstring_view::npos)
                return false;
            m_patternPosition = close; // the "]" is an ordinary character from here on
            return true;
        }
        if (set.size() > 2 && set[1] == L'-')
            return take(!atEnd && c >= set[0] && c <= set[2], length);
        return take(!atEnd && set.find(c) != std::wstring_view::npos, length);
    }

    std::wstring_view m_text;
    std::wstring_view m_pattern;
    std::size_t m_textPosition = 0;
    std::size_t m_patternPosition = 0;
};

bool isOrdinary(wchar_t c) noexcept
{
    return c != L'*' && c != L'?' && c != L'[' && c != L']';
}
} // namespace

bool matchesWildcard(std::wstring_view foldedText, std::wstring_view foldedPattern) noexcept
{
    // A pattern that ends in an ordinary character only matches a text that ends in it: this alone rules out
    // most of a list of extensions. Only an empty text can match without a check of its last character.
    if (!foldedText.empty() && !foldedPattern.empty() && isOrdinary(foldedPattern.back()) &&
        foldedPattern.back() != foldedText.back())
        return false;
    return Matcher(foldedText, foldedPattern).run();
}
