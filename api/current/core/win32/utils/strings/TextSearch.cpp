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
const wchar_t* find(const wchar_t* text, const wchar_t* pattern) noexcept
{
    if (text == nullptr || pattern == nullptr)
        return nullptr;
    if (*pattern == L'\0')
        return text;
    const wchar_t first = casefolding::fold(*pattern);
    for (; *text != L'\0'; ++text) {
        if (casefolding::fold(*text) != first)
            continue;
        std::size_t i = 1;
        // The terminator folds to itself and equals no other character, so this never runs past the text.
        while (pattern[i] != L'\0' && casefolding::fold(text[i]) == casefolding::fold(pattern[i]))
            ++i;
        if (pattern[i] == L'\0')
            return text;
    }
    return nullptr;
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
