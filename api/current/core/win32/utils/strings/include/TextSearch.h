#pragma once

#include <windows.h>

#include <string_view>

/// Searches and splits texts for the exported string functions.
namespace textsearch {
/// Finds one pattern in texts in linear time and without allocating memory: the two-way algorithm of
/// Crochemore and Perrin, "Two-way string-matching", Journal of the ACM 38 (1991). The pattern is split in
/// two where no shorter period crosses the cut; the right part is compared first.
class Searcher
{
public:
    /// `pattern` must outlive this object.
    Searcher(std::wstring_view pattern, bool ignoreCase) noexcept;
    /// The first position at or after `from`, or npos. An empty pattern occurs everywhere.
    [[nodiscard]] std::size_t find(std::wstring_view text, std::size_t from) const noexcept;

private:
    [[nodiscard]] wchar_t folded(wchar_t c) const noexcept;
    [[nodiscard]] wchar_t at(std::size_t i) const noexcept { return folded(m_pattern[i]); }
    /// Where the largest suffix begins, in the order of the characters or the reversed one, and its period.
    std::size_t largestSuffix(bool isReversed, std::size_t& period) const noexcept;

    std::wstring_view m_pattern;
    bool m_ignoreCase;
    std::size_t m_cut = 0;
    std::size_t m_period = 1;
    bool m_isPeriodic = false;
};

/// The first occurrence of `pattern` in `text` without regard to case, or null.
[[nodiscard]] const wchar_t* find(const wchar_t* text, const wchar_t* pattern) noexcept;

/// Removes the next entry from the front of `rest`; separators before it are skipped, so no entry is empty.
/// Returns false when none is left.
bool nextToken(std::wstring_view& rest, std::wstring_view separators, std::wstring_view& token) noexcept;

/// What GetTokenW and SetFirstCharW do; see there. The texts of copyToken are not null.
long copyToken(std::wstring_view text, std::wstring_view separators, unsigned long index, wchar_t* token,
               unsigned long capacity, unsigned long* needed) noexcept;
wchar_t* replaceFirst(wchar_t* text, wchar_t find, wchar_t replacement) noexcept;

/// Copies a text with its terminator, completely or not at all. Returns 0, or 234 when there is no room;
/// `needed`, which may be null, receives the length.
template <class Char>
long copyWhole(std::basic_string_view<Char> text, Char* target, unsigned long capacity,
               unsigned long* needed) noexcept
{
    if (needed != nullptr)
        *needed = static_cast<unsigned long>(text.size());
    if (target == nullptr || capacity <= text.size())
        return ERROR_MORE_DATA;
    text.copy(target, text.size());
    target[text.size()] = Char();
    return ERROR_SUCCESS;
}

/// The same for UTF-8. They raise 1113 and std::bad_alloc.
[[nodiscard]] const char* find(const char* text, const char* pattern);
long copyToken(std::string_view text, std::string_view separators, unsigned long index, char* token,
               unsigned long capacity, unsigned long* needed);
char* replaceFirst(char* text, char find, char replacement) noexcept;
} // namespace textsearch
