#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

/// The layout of a hive file. Numbers are little-endian. Offsets count from the end of the base block, those
/// in records from the beginning of a cell's payload.
namespace offline::layout {
static_assert(std::endian::native == std::endian::little);

inline constexpr std::uint32_t kNoOffset = 0xFFFFFFFF;
inline constexpr std::uint32_t kPage = 4096;
/// Offsets with the highest bit set mean volatile cells, which no file contains.
inline constexpr std::uint32_t kMostBins = 0x80000000;

inline constexpr std::uint32_t signature(const char (&text)[5]) noexcept
{
    return static_cast<std::uint32_t>(static_cast<unsigned char>(text[0])) |
           static_cast<std::uint32_t>(static_cast<unsigned char>(text[1])) << 8U |
           static_cast<std::uint32_t>(static_cast<unsigned char>(text[2])) << 16U |
           static_cast<std::uint32_t>(static_cast<unsigned char>(text[3])) << 24U;
}
inline constexpr std::uint16_t signature(const char (&text)[3]) noexcept
{
    return static_cast<std::uint16_t>(static_cast<unsigned char>(text[0]) |
                                      static_cast<unsigned char>(text[1]) << 8U);
}

namespace base {
inline constexpr std::uint32_t kSignature = signature("regf");
inline constexpr std::size_t kPrimary = 4;
inline constexpr std::size_t kSecondary = 8;
inline constexpr std::size_t kTime = 12;
inline constexpr std::size_t kMajor = 20;
inline constexpr std::size_t kMinor = 24;
inline constexpr std::size_t kType = 28;
inline constexpr std::size_t kFormat = 32;
inline constexpr std::size_t kRoot = 36;
inline constexpr std::size_t kBinsSize = 40;
inline constexpr std::size_t kClustering = 44;
inline constexpr std::size_t kName = 48;
inline constexpr std::size_t kChecksum = 508;
inline constexpr std::uint32_t kOldest = 3; ///< minor version
inline constexpr std::uint32_t kNewest = 6;
} // namespace base

namespace bin {
inline constexpr std::uint32_t kSignature = signature("hbin");
inline constexpr std::size_t kOwnOffset = 4;
inline constexpr std::size_t kSize = 8;
inline constexpr std::size_t kTime = 20;
inline constexpr std::uint32_t kHeader = 32;
} // namespace bin

inline constexpr std::uint32_t kCellHeader = 4;
inline constexpr std::uint32_t kUnit = 8; ///< a cell's size and offset are multiples of this

namespace nk {
inline constexpr std::uint16_t kSignature = signature("nk");
inline constexpr std::size_t kFlags = 2;
inline constexpr std::size_t kTime = 4;
inline constexpr std::size_t kAccess = 12;
inline constexpr std::size_t kParent = 16;
inline constexpr std::size_t kSubKeys = 20;
inline constexpr std::size_t kSubKeyList = 28;
inline constexpr std::size_t kVolatileList = 32;
inline constexpr std::size_t kValues = 36;
inline constexpr std::size_t kValueList = 40;
inline constexpr std::size_t kSecurity = 44;
inline constexpr std::size_t kClass = 48;
inline constexpr std::size_t kLargestName = 52; ///< the upper half holds user flags
inline constexpr std::size_t kUserFlags = 54;
inline constexpr std::size_t kLargestClass = 56;
inline constexpr std::size_t kLargestValueName = 60;
inline constexpr std::size_t kLargestData = 64;
inline constexpr std::size_t kNameLength = 72;
inline constexpr std::size_t kClassLength = 74;
inline constexpr std::size_t kName = 76;

inline constexpr std::uint16_t kVolatileKey = 0x01;
inline constexpr std::uint16_t kMountPoint = 0x02;
inline constexpr std::uint16_t kRootKey = 0x04;
inline constexpr std::uint16_t kNoDelete = 0x08;
inline constexpr std::uint16_t kLatin1Name = 0x20;
inline constexpr std::uint16_t kPredefined = 0x40; ///< the field of the number of values is a handle
/// The predefined handles are 0x80000000 to 0x800000FF.
inline constexpr unsigned kHandleBits = 8;
inline constexpr std::uint32_t kHandles = 0x800000;
} // namespace nk

namespace vk {
inline constexpr std::uint16_t kSignature = signature("vk");
inline constexpr std::size_t kNameLength = 2;
inline constexpr std::size_t kDataSize = 4;
inline constexpr std::size_t kData = 8;
inline constexpr std::size_t kType = 12;
inline constexpr std::size_t kFlags = 16;
inline constexpr std::size_t kName = 20;

inline constexpr std::uint32_t kInside = 0x80000000; ///< the data is stored in place of its offset
inline constexpr std::uint32_t kMostInside = 4;
inline constexpr std::uint16_t kLatin1Name = 0x01;
} // namespace vk

/// Lists of sub-keys: a signature, a 16-bit count and the entries.
namespace list {
inline constexpr std::uint16_t kPlain = signature("li");
inline constexpr std::uint16_t kHinted = signature("lf");
inline constexpr std::uint16_t kHashed = signature("lh");
inline constexpr std::uint16_t kLists = signature("ri");
inline constexpr std::size_t kCount = 2;
inline constexpr std::size_t kEntries = 4;
inline constexpr std::size_t kHint = 4;       ///< in an entry of a hinted or hashed list, after the offset
inline constexpr std::size_t kWideEntry = 8;  ///< the size of such an entry
inline constexpr std::size_t kMostWide = 507; ///< what fits in a page with the headers of bin, cell and list
} // namespace list

namespace db {
inline constexpr std::uint16_t kSignature = signature("db");
inline constexpr std::size_t kCount = 2;
inline constexpr std::size_t kList = 4;
inline constexpr std::size_t kRecord = 8;
inline constexpr std::uint32_t kSegment = 16344;
/// Other readers ignore the last bytes of a segment's cell: they are padding.
inline constexpr std::uint32_t kPadding = 4;
inline constexpr std::uint32_t kOldest = 4; ///< minor version; before that, large data is in a large cell
} // namespace db

namespace sk {
inline constexpr std::uint16_t kSignature = signature("sk");
inline constexpr std::size_t kNext = 4;
inline constexpr std::size_t kPrevious = 8;
inline constexpr std::size_t kReferences = 12;
inline constexpr std::size_t kLength = 16;
inline constexpr std::size_t kDescriptor = 20;
} // namespace sk

template <class Number>
[[nodiscard]] inline Number load(const std::byte* at) noexcept
{
    Number number;
    std::memcpy(&number, at, sizeof number);
    return number;
}
[[nodiscard]] inline std::uint16_t load16(const std::byte* at) noexcept
{
    return load<std::uint16_t>(at);
}
[[nodiscard]] inline std::uint32_t load32(const std::byte* at) noexcept
{
    return load<std::uint32_t>(at);
}

template <class Number>
inline void store(std::byte* at, Number number) noexcept
{
    std::memcpy(at, &number, sizeof number);
}

/// Of the first 127 words of a base block.
[[nodiscard]] inline std::uint32_t checksum(const std::byte* block) noexcept
{
    std::uint32_t sum = 0;
    for (std::size_t i = 0; i < base::kChecksum; i += sizeof sum)
        sum ^= load32(block + i);
    if (sum == 0)
        return 1;
    return sum == 0xFFFFFFFF ? 0xFFFFFFFE : sum;
}
} // namespace offline::layout
