#include "core/win32/utils/strings/include/CaseFolding.h"

#include <windows.h>

#include <array>

// As the system compares file names. CharUpperBuffW would do as well, but would load user32.dll into every
// program that uses the library, services too.
extern "C" NTSYSAPI WCHAR NTAPI RtlUpcaseUnicodeChar(WCHAR character);

namespace casefolding {
namespace {
constexpr int kCodeUnits = 0x10000;

struct Table
{
    Table() noexcept
    {
        for (int c = 0; c < kCodeUnits; ++c)
            upper[static_cast<std::size_t>(c)] = RtlUpcaseUnicodeChar(static_cast<wchar_t>(c));
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
