#include "core/win32/registry/offline/include/HiveNames.h"

#include <algorithm>
#include <cstring>

namespace offline {
std::u16string NameView::text() const
{
    std::u16string text(size(), u'\0');
    for (std::size_t i = 0; i < text.size(); ++i)
        text[i] = (*this)[i];
    return text;
}

bool NameView::isOfPaths() const noexcept
{
    for (std::size_t i = 0; i < size(); ++i)
        if ((*this)[i] == u'\\' || (*this)[i] == u'\0')
            return false;
    return true;
}

namespace {
/// Of the first `count` characters.
template <class Left, class Right>
std::strong_ordering compareUnits(std::size_t count, Left&& left, Right&& right)
{
    for (std::size_t i = 0; i < count; ++i) {
        const char16_t a = left(i);
        const char16_t b = right(i);
        if (a == b)
            continue;
        const char16_t* const upper = upperCaseTable();
        if (upper[a] != upper[b])
            return upper[a] <=> upper[b];
    }
    return std::strong_ordering::equal;
}
} // namespace

std::strong_ordering NameView::compare(const NameView& other) const noexcept
{
    const std::size_t common = std::min(size(), other.size());
    std::strong_ordering order = std::strong_ordering::equal;
    if (m_isLatin1 && other.m_isLatin1) {
        // Names under one key often share a prefix.
        constexpr std::size_t kWord = sizeof(std::uint64_t);
        std::size_t same = 0;
        while (common - same >= kWord && std::memcmp(m_bytes + same, other.m_bytes + same, kWord) == 0)
            same += kWord;
        order = compareUnits(
            common - same, [&](std::size_t i) { return static_cast<char16_t>(m_bytes[same + i]); },
            [&](std::size_t i) { return static_cast<char16_t>(other.m_bytes[same + i]); });
    } else {
        order = compareUnits(
            common, [&](std::size_t i) { return (*this)[i]; }, [&](std::size_t i) { return other[i]; });
    }
    return order != std::strong_ordering::equal ? order : size() <=> other.size();
}

std::uint32_t NameView::hash() const noexcept
{
    constexpr std::uint32_t kFactor = 37;
    const char16_t* const upper = upperCaseTable();
    std::uint32_t hash = 0;
    const std::size_t length = size();
    if (m_isLatin1)
        for (std::size_t i = 0; i < length; ++i)
            hash = kFactor * hash + upper[static_cast<unsigned char>(m_bytes[i])];
    else
        for (std::size_t i = 0; i < length; ++i)
            hash = kFactor * hash + upper[(*this)[i]];
    return hash;
}
} // namespace offline
