#include "core/win32/utils/strings/include/TextSearch.h"

#include <windows.h>

#include <algorithm>
#include <cwchar>

#include "core/win32/utils/strings/include/CaseFolding.h"

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
    do {
        if (!nextToken(text, separators, found))
            return ERROR_NOT_FOUND;
    } while (index-- != 0);
    if (needed != nullptr)
        *needed = static_cast<unsigned long>(found.size());
    if (token == nullptr || capacity <= found.size())
        return ERROR_MORE_DATA;
    found.copy(token, found.size());
    token[found.size()] = L'\0';
    return ERROR_SUCCESS;
}

wchar_t* replaceFirst(wchar_t* text, wchar_t find, wchar_t replacement) noexcept
{
    wchar_t* found = text != nullptr && find != L'\0' ? std::wcschr(text, find) : nullptr;
    if (found != nullptr)
        *found = replacement;
    return found;
}
} // namespace textsearch
