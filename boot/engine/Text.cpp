#include "engine/Text.h"

extern "C" NTSYSAPI WCHAR NTAPI RtlUpcaseUnicodeChar(WCHAR); // a table lookup

bool Text::startsWithName(Text wanted) const
{
    if (wanted.length > length)
        return false;
    for (std::size_t i = 0; i < wanted.length; ++i)
        if (data[i] != wanted.data[i] &&
            RtlUpcaseUnicodeChar(data[i]) != RtlUpcaseUnicodeChar(wanted.data[i]))
            return false;
    return true;
}

TextBuilder& TextBuilder::addNumber(std::uint64_t number, unsigned base, int digits)
{
    wchar_t text[24];
    int at = 24;
    for (; number != 0 || digits > 0; number /= base, --digits)
        text[--at] = L"0123456789ABCDEF"[number % base];
    return add(Text(text + at, static_cast<std::size_t>(24 - at)));
}

TextBuilder& TextBuilder::addVisible(Text text)
{
    for (std::size_t i = 0; i < text.length; ++i)
        if (text[i] < L' ')
            add(L'<').addNumber(text[i], 16, 2).add(L'>');
        else
            add(text[i]);
    return *this;
}
