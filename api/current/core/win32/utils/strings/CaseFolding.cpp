#include "core/win32/utils/strings/include/CaseFolding.h"

#include <windows.h>

#include <array>

namespace casefolding {
namespace {
constexpr int kCodeUnits = 0x10000;

struct Table
{
    Table() noexcept
    {
        for (int c = 0; c < kCodeUnits; ++c)
            upper[static_cast<std::size_t>(c)] = static_cast<wchar_t>(c);
        // From 1: a zero character would be taken for the end of the text by some implementations.
        CharUpperBuffW(upper.data() + 1, kCodeUnits - 1);
    }
    std::array<wchar_t, kCodeUnits> upper;
};
} // namespace

const wchar_t* table() noexcept
{
    static const Table folded;
    return folded.upper.data();
}
} // namespace casefolding
