// The exported functions of texts.

#include <windows.h>

#include "core/win32/utils/strings/api.h"
#include "core/win32/utils/strings/include/TextSearch.h"

const wchar_t* _wcsistr(const wchar_t* text, const wchar_t* pattern)
{
    return textsearch::find(text, pattern);
}

long GetTokenW(const wchar_t* text, const wchar_t* separators, unsigned long index, wchar_t* token,
               unsigned long capacity, unsigned long* needed)
{
    if (text == nullptr || separators == nullptr)
        return ERROR_INVALID_PARAMETER;
    return textsearch::copyToken(text, separators, index, token, capacity, needed);
}

wchar_t* SetFirstCharW(wchar_t* text, wchar_t find, wchar_t replacement)
{
    return textsearch::replaceFirst(text, find, replacement);
}
