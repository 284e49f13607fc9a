#include "core/win32/utils/wiper/include/FillPattern.h"

#include <cstdlib>

void fillpattern::fillRandomText(wchar_t* text, std::size_t length) noexcept
{
    for (std::size_t i = 0; i < length; ++i)
        text[i] = static_cast<unsigned char>(kAlphabet[std::rand() % kAlphabetSize]);
    text[length] = L'\0';
}
