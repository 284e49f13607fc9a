#include "core/win32/utils/strings/include/TextSearch.h"

#include <windows.h>

#include <algorithm>
#include <cstring>
#include <cwchar>

#include "core/win32/utils/strings/include/CaseFolding.h"
#include "core/win32/utils/strings/include/Unicode.h"

namespace {
bool tokenAt(std::wstring_view text, std::wstring_view separators, unsigned long index,
             std::wstring_view& token) noexcept
{
    do {
        if (!textsearch::nextToken(text, separators, token))
            return false;
    } while (index-- != 0);
    return true;
}
} // namespace

namespace textsearch {
Searcher::Searcher(std::wstring_view pattern, bool ignoreCase) noexcept
    : m_pattern(pattern), m_ignoreCase(ignoreCase)
{
    std::size_t forward = 0;
    std::size_t backward = 0;
    const std::size_t first = largestSuffix(false, forward);
    const std::size_t second = largestSuffix(true, backward);
    m_cut = std::max(first, second);
    m_period = first > second ? forward : backward;
    m_isPeriodic = m_cut + m_period <= pattern.size();
    for (std::size_t i = 0; m_isPeriodic && i < m_cut; ++i)
        m_isPeriodic = at(i) == at(i + m_period);
    if (!m_isPeriodic)
        m_period = std::max(m_cut, pattern.size() - m_cut) + 1;
}

std::size_t Searcher::largestSuffix(bool isReversed, std::size_t& period) const noexcept
{
    std::size_t begin = 0;  // of the largest suffix found so far
    std::size_t other = 1;  // of the suffix it is compared with
    std::size_t length = 0; // common to both, within one period
    period = 1;
    while (other + length < m_pattern.size()) {
        const wchar_t a = at(other + length);
        const wchar_t b = at(begin + length);
        if (a == b) {
            if (++length == period) {
                other += period;
                length = 0;
            }
        } else if ((a < b) != isReversed) {
            other += length + 1;
            length = 0;
            period = other - begin;
        } else {
            begin = other++;
            length = 0;
            period = 1;
        }
    }
    return begin;
}

std::size_t Searcher::find(std::wstring_view text, std::size_t from) const noexcept
{
    if (from > text.size())
        return std::wstring_view::npos;
    const std::size_t size = m_pattern.size();
    const auto equals = [&](std::size_t place, std::size_t i) { return at(i) == folded(text[place + i]); };
    std::size_t known = 0; // characters at the beginning that are known to be equal
    for (std::size_t place = from; text.size() - place >= size;) {
        std::size_t i = std::max(m_cut, known);
        while (i < size && equals(place, i))
            ++i;
        if (i < size) {
            place += i - m_cut + 1;
            known = 0;
        } else {
            i = m_cut;
            while (i > known && equals(place, i - 1))
                --i;
            if (i <= known)
                return place;
            place += m_period;
            known = m_isPeriodic ? size - m_period : 0;
        }
        if (place > text.size())
            break;
    }
    return std::wstring_view::npos;
}

wchar_t Searcher::folded(wchar_t c) const noexcept
{
    return m_ignoreCase ? casefolding::fold(c) : c;
}

const wchar_t* find(const wchar_t* text, const wchar_t* pattern) noexcept
{
    if (text == nullptr || pattern == nullptr)
        return nullptr;
    const std::size_t found = Searcher(pattern, true).find(text, 0);
    return found == std::wstring_view::npos ? nullptr : text + found;
}

bool nextToken(std::wstring_view& rest, std::wstring_view separators, std::wstring_view& token) noexcept
{
    const std::size_t begin = rest.find_first_not_of(separators);
    if (begin == std::wstring_view::npos)
        return false;
    rest.remove_prefix(begin);
    const std::size_t end = std::min(rest.find_first_of(separators), rest.size());
    token = rest.substr(0, end);
    rest.remove_prefix(end);
    return true;
}

long copyToken(std::wstring_view text, std::wstring_view separators, unsigned long index, wchar_t* token,
               unsigned long capacity, unsigned long* needed) noexcept
{
    std::wstring_view found;
    return tokenAt(text, separators, index, found) ? copyWhole<wchar_t>(found, token, capacity, needed)
                                                   : ERROR_NOT_FOUND;
}

long copyToken(std::string_view text, std::string_view separators, unsigned long index, char* token,
               unsigned long capacity, unsigned long* needed)
{
    const std::wstring wide = unicode::wideFromUtf8(text);
    std::wstring_view found;
    if (!tokenAt(wide, unicode::wideFromUtf8(separators), index, found))
        return ERROR_NOT_FOUND;
    return copyWhole<char>(unicode::utf8FromWide(found), token, capacity, needed);
}

const char* find(const char* text, const char* pattern)
{
    if (text == nullptr || pattern == nullptr)
        return nullptr;
    const std::wstring wide = unicode::wideFromUtf8(text);
    const wchar_t* found = find(wide.c_str(), unicode::wideFromUtf8(pattern).c_str());
    if (found == nullptr)
        return nullptr;
    const std::wstring_view before(wide.c_str(), static_cast<std::size_t>(found - wide.c_str()));
    return text + unicode::utf8FromWide(before).size();
}

wchar_t* replaceFirst(wchar_t* text, wchar_t find, wchar_t replacement) noexcept
{
    wchar_t* found = text != nullptr && find != L'\0' ? std::wcschr(text, find) : nullptr;
    if (found != nullptr)
        *found = replacement;
    return found;
}

char* replaceFirst(char* text, char find, char replacement) noexcept
{
    const auto isAscii = [](char c) { return static_cast<unsigned char>(c) < 0x80; };
    char* found = text != nullptr && find != '\0' && isAscii(find) && isAscii(replacement)
                      ? std::strchr(text, find)
                      : nullptr;
    if (found != nullptr)
        *found = replacement;
    return found;
}
} // namespace textsearch
