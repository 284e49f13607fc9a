#include <algorithm>
#include <array>

#include "core/win32/registry/offline/include/HiveNames.h"
#include "core/win32/utils/strings/include/CaseFolding.h"

namespace offline {
namespace {
struct Table
{
    Table() noexcept { std::copy_n(casefolding::table(), upper.size(), upper.begin()); }
    std::array<char16_t, 0x10000> upper;
};
} // namespace

const char16_t* upperCaseTable() noexcept
{
    static const Table system;
    return system.upper.data();
}
} // namespace offline
