#include "core/win32/utils/strings/include/Strings.h"

#include <windows.h>

#include <algorithm>
#include <array>
#include <limits>

#include "core/win32/utils/objectmanager/include/Raise.h"
#include "core/win32/utils/strings/include/CaseFolding.h"
#include "core/win32/utils/strings/include/TextSearch.h"
#include "core/win32/utils/strings/include/Unicode.h"
#include "core/win32/utils/strings/include/WildcardMatcher.h"

extern "C" NTSYSAPI WCHAR NTAPI RtlDowncaseUnicodeChar(WCHAR character);

namespace {
/// A set of whole characters: half of a surrogate pair is in none.
class CharacterSet
{
public:
    explicit CharacterSet(std::wstring_view characters)
    {
        while (!characters.empty()) {
            const char32_t c = unicode::nextCharacter(characters);
            if (c < m_isSmall.size())
                m_isSmall[c] = true;
            else
                m_others += c;
        }
        std::sort(m_others.begin(), m_others.end());
    }
    [[nodiscard]] bool has(char32_t c) const noexcept
    {
        return c < m_isSmall.size() ? m_isSmall[c] : std::binary_search(m_others.begin(), m_others.end(), c);
    }

private:
    std::array<bool, 256> m_isSmall{}; // separators are nearly always below 256
    std::u32string m_others;
};

bool equals(std::wstring_view text, std::wstring_view other, bool ignoreCase) noexcept
{
    return ignoreCase ? strings::equalsIgnoringCase(text, other) : text == other;
}

bool isDigit(wchar_t c) noexcept
{
    return c >= L'0' && c <= L'9';
}

/// Removes the digits from the front of `rest` and returns them without leading zeros.
std::wstring_view takeNumber(std::wstring_view& rest) noexcept
{
    std::size_t length = 0;
    while (length < rest.size() && isDigit(rest[length]))
        ++length;
    std::wstring_view number = rest.substr(0, length);
    rest.remove_prefix(length);
    number.remove_prefix(std::min(number.find_first_not_of(L'0'), number.size()));
    return number;
}

template <class T>
int orderOf(const T& first, const T& second) noexcept
{
    return first < second ? -1 : second < first ? 1 : 0;
}
} // namespace

namespace strings {
std::wstring duplicate(std::wstring_view text)
{
    return std::wstring(text);
}

std::wstring trim(std::wstring_view text, std::wstring_view characters)
{
    const CharacterSet set(characters);
    const wchar_t* begin = nullptr;
    const wchar_t* end = nullptr;
    for (std::wstring_view rest = text; !rest.empty();) {
        const wchar_t* at = rest.data();
        if (set.has(unicode::nextCharacter(rest)))
            continue;
        begin = begin == nullptr ? at : begin;
        end = rest.data();
    }
    return std::wstring(begin, end);
}

std::wstring replaceAll(std::wstring_view text, std::wstring_view from, std::wstring_view to, bool ignoreCase)
{
    if (from.empty())
        raiseCode(ERROR_INVALID_PARAMETER);
    const textsearch::Searcher wanted(from, ignoreCase);
    std::wstring result;
    std::size_t at = 0;
    for (std::size_t found; (found = wanted.find(text, at)) != std::wstring_view::npos;
         at = found + from.size())
        result.append(text.substr(at, found - at)).append(to);
    return result.append(text.substr(at));
}

std::tuple<std::wstring, std::size_t> split(std::wstring_view text, std::wstring_view separators,
                                            bool keepEmpty)
{
    const CharacterSet set(separators);
    std::wstring list;
    std::size_t count = 0;
    const auto add = [&](const wchar_t* begin, const wchar_t* end) {
        if (begin == end && !keepEmpty)
            return;
        list.append(begin, end).push_back(L'\0');
        ++count;
    };
    const wchar_t* begin = text.data();
    for (std::wstring_view rest = text; !rest.empty();) {
        const wchar_t* at = rest.data();
        if (set.has(unicode::nextCharacter(rest))) {
            add(begin, at);
            begin = rest.data();
        }
    }
    add(begin, text.data() + text.size());
    return {std::move(list), count};
}

std::wstring join(std::wstring_view list, std::wstring_view separator)
{
    std::wstring text;
    while (!list.empty()) {
        const std::wstring_view entry = list.substr(0, list.find(L'\0'));
        text.append(entry);
        list.remove_prefix(std::min(entry.size() + 1, list.size()));
        if (!list.empty())
            text.append(separator);
    }
    return text;
}

bool equalsIgnoringCase(std::wstring_view text, std::wstring_view other) noexcept
{
    return std::equal(text.begin(), text.end(), other.begin(), other.end(),
                      [](wchar_t a, wchar_t b) { return casefolding::fold(a) == casefolding::fold(b); });
}

bool startsWith(std::wstring_view text, std::wstring_view prefix, bool ignoreCase)
{
    return equals(text.substr(0, prefix.size()), prefix, ignoreCase);
}

bool endsWith(std::wstring_view text, std::wstring_view suffix, bool ignoreCase)
{
    return text.size() >= suffix.size() &&
           equals(text.substr(text.size() - suffix.size()), suffix, ignoreCase);
}

bool contains(std::wstring_view text, std::wstring_view part, bool ignoreCase)
{
    return textsearch::Searcher(part, ignoreCase).find(text, 0) != std::wstring_view::npos;
}

int compareNatural(std::wstring_view first, std::wstring_view second) noexcept
{
    std::wstring_view a = first;
    std::wstring_view b = second;
    while (!a.empty() && !b.empty()) {
        int order = 0;
        if (isDigit(a.front()) && isDigit(b.front())) {
            const std::wstring_view left = takeNumber(a);
            const std::wstring_view right = takeNumber(b);
            order = left.size() != right.size() ? orderOf(left.size(), right.size()) : orderOf(left, right);
        } else {
            order = orderOf(casefolding::fold(a.front()), casefolding::fold(b.front()));
            a.remove_prefix(1);
            b.remove_prefix(1);
        }
        if (order != 0)
            return order;
    }
    if (a.empty() != b.empty())
        return a.empty() ? -1 : 1;
    return first.size() != second.size() ? orderOf(first.size(), second.size()) : orderOf(first, second);
}

bool matchesPattern(std::wstring_view text, std::wstring_view pattern)
{
    return matchesWildcard(casefolding::FoldedText(text).view(), casefolding::FoldedText(pattern).view());
}

std::wstring toUpper(std::wstring_view text)
{
    std::wstring result(text);
    std::transform(result.begin(), result.end(), result.begin(), casefolding::fold);
    return result;
}

std::wstring toLower(std::wstring_view text)
{
    std::wstring result(text);
    std::transform(result.begin(), result.end(), result.begin(), RtlDowncaseUnicodeChar);
    return result;
}

unsigned digitValue(wchar_t c) noexcept
{
    if (isDigit(c))
        return static_cast<unsigned>(c - L'0');
    const wchar_t letter = c < 0x80 ? casefolding::fold(c) : L'\0';
    return letter >= L'A' && letter <= L'Z' ? static_cast<unsigned>(letter - L'A') + 10U : 36U;
}

long long toInt64(std::wstring_view text, int base)
{
    if (base != 0 && (base < 2 || base > 36))
        raiseCode(ERROR_INVALID_PARAMETER);
    const bool negative = !text.empty() && text.front() == L'-';
    if (!text.empty() && (negative || text.front() == L'+'))
        text.remove_prefix(1);
    const bool marked = text.size() > 1 && text[0] == L'0' && (text[1] | 0x20) == L'x';
    if (marked && (base == 0 || base == 16))
        text.remove_prefix(2);
    const auto radix = static_cast<unsigned>(base != 0 ? base : marked ? 16 : 10);
    // Accumulates below zero, because the smallest number has no positive form.
    constexpr long long kLeast = std::numeric_limits<long long>::min();
    unsigned long long limit = static_cast<unsigned long long>(kLeast) - (negative ? 0U : 1U);
    unsigned long long value = 0;
    bool overflow = false;
    for (const wchar_t c : text) {
        const unsigned digit = digitValue(c);
        if (digit >= radix)
            raiseCode(ERROR_INVALID_PARAMETER);
        overflow = overflow || value > (limit - digit) / radix;
        value = overflow ? 0 : value * radix + digit;
    }
    if (text.empty())
        raiseCode(ERROR_INVALID_PARAMETER);
    if (overflow)
        raiseCode(ERROR_ARITHMETIC_OVERFLOW);
    return static_cast<long long>(negative ? 0 - value : value);
}

std::wstring formatHex(std::basic_string_view<unsigned char> bytes)
{
    constexpr wchar_t kDigits[] = L"0123456789abcdef";
    std::wstring text;
    text.reserve(bytes.size() * 2);
    for (const unsigned char byte : bytes) {
        text += kDigits[byte >> 4U];
        text += kDigits[byte & 0xFU];
    }
    return text;
}

std::vector<unsigned char> parseHex(std::wstring_view text)
{
    if (text.size() % 2 != 0)
        raiseCode(ERROR_INVALID_PARAMETER);
    std::vector<unsigned char> bytes(text.size() / 2);
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        const unsigned high = digitValue(text[2 * i]);
        const unsigned low = digitValue(text[2 * i + 1]);
        if (high > 15 || low > 15)
            raiseCode(ERROR_INVALID_PARAMETER);
        bytes[i] = static_cast<unsigned char>(high << 4U | low);
    }
    return bytes;
}

std::wstring quoteArgument(std::wstring_view argument)
{
    if (!argument.empty() && argument.find_first_of(L" \t\n\v\"") == std::wstring_view::npos)
        return std::wstring(argument);
    std::wstring quoted = L"\"";
    std::size_t backslashes = 0;
    for (const wchar_t c : argument) {
        // Backslashes are special only before a quotation mark, where each must be doubled.
        if (c == L'"')
            quoted.append(backslashes + 1, L'\\');
        backslashes = c == L'\\' ? backslashes + 1 : 0;
        quoted += c;
    }
    quoted.append(backslashes, L'\\');
    return quoted + L'"';
}
} // namespace strings
