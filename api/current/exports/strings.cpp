// The exported functions of texts.

#include "core/win32/utils/strings/include/Strings.h"
#include "core/win32/utils/strings/api.h"
#include "core/win32/utils/strings/include/TextSearch.h"
#include "exports/UtilityFrame.h"

using namespace utilityframe;

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

long StringDuplicateW(const wchar_t* text, wchar_t** result)
{
    return utilityFrame(outputs(result), strings::duplicate, text);
}

long StringDuplicateA(const char* text, char** result)
{
    return utilityFrame(outputs(result), strings::duplicate, text);
}

long StringTrimW(const wchar_t* text, const wchar_t* characters, wchar_t** result)
{
    return utilityFrame(outputs(result), strings::trim, text, characters);
}

long StringTrimA(const char* text, const char* characters, char** result)
{
    return utilityFrame(outputs(result), strings::trim, text, characters);
}

long StringReplaceAllW(const wchar_t* text, const wchar_t* from, const wchar_t* to, int ignoreCase,
                       wchar_t** result)
{
    return utilityFrame(outputs(result), strings::replaceAll, text, from, to, ignoreCase);
}

long StringReplaceAllA(const char* text, const char* from, const char* to, int ignoreCase, char** result)
{
    return utilityFrame(outputs(result), strings::replaceAll, text, from, to, ignoreCase);
}

long StringSplitW(const wchar_t* text, const wchar_t* separators, int keepEmpty, wchar_t** list,
                  size_t* count)
{
    return utilityFrame(outputs(list, count), strings::split, text, separators, keepEmpty);
}

long StringSplitA(const char* text, const char* separators, int keepEmpty, char** list, size_t* count)
{
    return utilityFrame(outputs(list, count), strings::split, text, separators, keepEmpty);
}

long StringJoinW(const wchar_t* list, const wchar_t* separator, wchar_t** result)
{
    return utilityFrame(outputs(result), strings::join, listed(list), separator);
}

long StringJoinA(const char* list, const char* separator, char** result)
{
    return utilityFrame(outputs(result), strings::join, listed(list), separator);
}

long StringStartsWithW(const wchar_t* text, const wchar_t* prefix, int ignoreCase, int* result)
{
    return utilityFrame(outputs(result), strings::startsWith, text, prefix, ignoreCase);
}

long StringStartsWithA(const char* text, const char* prefix, int ignoreCase, int* result)
{
    return utilityFrame(outputs(result), strings::startsWith, text, prefix, ignoreCase);
}

long StringEndsWithW(const wchar_t* text, const wchar_t* suffix, int ignoreCase, int* result)
{
    return utilityFrame(outputs(result), strings::endsWith, text, suffix, ignoreCase);
}

long StringEndsWithA(const char* text, const char* suffix, int ignoreCase, int* result)
{
    return utilityFrame(outputs(result), strings::endsWith, text, suffix, ignoreCase);
}

long StringContainsW(const wchar_t* text, const wchar_t* part, int ignoreCase, int* result)
{
    return utilityFrame(outputs(result), strings::contains, text, part, ignoreCase);
}

long StringContainsA(const char* text, const char* part, int ignoreCase, int* result)
{
    return utilityFrame(outputs(result), strings::contains, text, part, ignoreCase);
}

long StringCompareNaturalW(const wchar_t* first, const wchar_t* second, int* order)
{
    return utilityFrame(outputs(order), strings::compareNatural, first, second);
}

long StringCompareNaturalA(const char* first, const char* second, int* order)
{
    return utilityFrame(outputs(order), strings::compareNatural, first, second);
}

long StringMatchesPatternW(const wchar_t* text, const wchar_t* pattern, int* result)
{
    return utilityFrame(outputs(result), strings::matchesPattern, text, pattern);
}

long StringMatchesPatternA(const char* text, const char* pattern, int* result)
{
    return utilityFrame(outputs(result), strings::matchesPattern, text, pattern);
}

long StringToUpperW(const wchar_t* text, wchar_t** result)
{
    return utilityFrame(outputs(result), strings::toUpper, text);
}

long StringToUpperA(const char* text, char** result)
{
    return utilityFrame(outputs(result), strings::toUpper, text);
}

long StringToLowerW(const wchar_t* text, wchar_t** result)
{
    return utilityFrame(outputs(result), strings::toLower, text);
}

long StringToLowerA(const char* text, char** result)
{
    return utilityFrame(outputs(result), strings::toLower, text);
}

long StringToInt64W(const wchar_t* text, int base, long long* value)
{
    return utilityFrame(outputs(value), strings::toInt64, text, base);
}

long StringToInt64A(const char* text, int base, long long* value)
{
    return utilityFrame(outputs(value), strings::toInt64, text, base);
}

long StringFormatHexW(const void* bytes, size_t length, wchar_t** result)
{
    return utilityFrame(outputs(result), strings::formatHex, Bytes{bytes, length});
}

long StringFormatHexA(const void* bytes, size_t length, char** result)
{
    return utilityFrame(outputs(result), strings::formatHex, Bytes{bytes, length});
}

long StringParseHexW(const wchar_t* text, unsigned char** bytes, size_t* length)
{
    return utilityFrame(outputs(counted(bytes, length)), strings::parseHex, text);
}

long StringParseHexA(const char* text, unsigned char** bytes, size_t* length)
{
    return utilityFrame(outputs(counted(bytes, length)), strings::parseHex, text);
}

long StringQuoteArgumentW(const wchar_t* argument, wchar_t** result)
{
    return utilityFrame(outputs(result), strings::quoteArgument, argument);
}

long StringQuoteArgumentA(const char* argument, char** result)
{
    return utilityFrame(outputs(result), strings::quoteArgument, argument);
}

long StringWideToUtf8(const wchar_t* text, size_t length, char** utf8, size_t* utf8Length)
{
    return utilityFrame(outputs(counted(utf8, utf8Length)), unicode::utf8FromWide,
                        Sized<wchar_t>{text, length});
}

long StringUtf8ToWide(const char* utf8, size_t length, wchar_t** text, size_t* textLength)
{
    return utilityFrame(outputs(counted(text, textLength)), unicode::wideFromUtf8, Sized<char>{utf8, length});
}

long StringWideToAnsi(const wchar_t* text, unsigned int codePage, char** narrow, int* lossy)
{
    return utilityFrame(outputs(narrow, lossy), unicode::ansiFromWide, text, codePage);
}

long StringAnsiToWide(const char* narrow, unsigned int codePage, wchar_t** text)
{
    return utilityFrame(outputs(text), unicode::wideFromAnsi, Sized<char>{narrow, kTerminated}, codePage);
}

const char* _stristr(const char* text, const char* pattern)
{
    return boundary::resultFrame<const char*>(nullptr, [&] { return textsearch::find(text, pattern); });
}

long GetTokenA(const char* text, const char* separators, unsigned long index, char* token,
               unsigned long capacity, unsigned long* needed)
{
    if (text == nullptr || separators == nullptr)
        return ERROR_INVALID_PARAMETER;
    return boundary::statusFrame(
        [&] { return textsearch::copyToken(text, separators, index, token, capacity, needed); });
}

char* SetFirstCharA(char* text, char find, char replacement)
{
    return textsearch::replaceFirst(text, find, replacement);
}
