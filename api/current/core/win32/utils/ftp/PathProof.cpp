#include "core/win32/utils/ftp/include/PathProof.h"

#include <algorithm>

namespace {
constexpr unsigned kMostAttempts = 2;

bool isHarmless(char c) noexcept
{
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' ||
           c == '.' || c == '-';
}
} // namespace

std::size_t PathProof::depthOf(const std::string& folder) noexcept
{
    std::size_t depth = 0;
    char before = '\0';
    for (const char c : folder) {
        const bool isFirst = before == '/' || before == '\0'; // of a name
        if (c == '/' ? isFirst && before != '\0' : !isHarmless(c) || (isFirst && c == '-'))
            return 0;
        depth += c == '/' ? 1 : 0;
        before = c;
    }
    return before == '/' ? 0 : depth;
}

bool PathProof::begin(const std::string& folder) noexcept
{
    return m_attempts < kMostAttempts && depthOf(folder) != 0 && !covers(folder) && ++m_attempts != 0;
}

void PathProof::confirm(const std::string& folder) noexcept
{
    m_depth = std::max(m_depth, depthOf(folder));
    m_length = std::max(m_length, folder.size());
    m_attempts = 0;
}

void PathProof::refute() noexcept
{
    *this = PathProof();
    m_attempts = kMostAttempts;
}
