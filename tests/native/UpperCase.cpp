// Upper case as the C library has it, where there is no Windows to ask.

#include <array>
#include <clocale>
#include <cwctype>

#include "core/win32/registry/offline/include/HiveNames.h"

const char16_t* offline::upperCaseTable() noexcept
{
    static const auto table = [] {
        std::array<char16_t, 0x10000> upper{};
        const locale_t locale = newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr);
        for (std::size_t c = 0; c < upper.size(); ++c) {
            const std::wint_t folded = towupper_l(static_cast<std::wint_t>(c), locale);
            upper[c] = static_cast<char16_t>(folded < upper.size() ? folded : c);
        }
        freelocale(locale);
        return upper;
    }();
    return table.data();
}
