#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>

/// The patterns of the passes, for the wiper and for the boot-time program, which has no runtime library.
namespace fillpattern {
/// The number of passes of the Gutmann method.
inline constexpr std::uint32_t kGutmannPasses = 35;

/// The number of different characters in random text.
inline constexpr std::uint32_t kAlphabetSize = 62;
inline constexpr char kAlphabet[kAlphabetSize + 1] =
    "0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz";

/// The bytes of a fixed pass: `period` of them, or 0 for a random pass.
struct Pass
{
    unsigned char bytes[3];
    unsigned char period;
};

inline constexpr Pass kRandomPass = {{0, 0, 0}, 0};

constexpr Pass one(unsigned char byte)
{
    return {{byte, 0, 0}, 1};
}

constexpr Pass three(unsigned char first, unsigned char second, unsigned char third)
{
    return {{first, second, third}, 3};
}

// Pass 27 would be 24 92 49 in the published order. Here it ends with the bytes of pass 28, and that is kept.
inline constexpr Pass kPasses[kGutmannPasses] = {
    kRandomPass,
    kRandomPass,
    kRandomPass,
    kRandomPass,
    one(0x55),
    one(0xAA),
    three(0x92, 0x49, 0x24),
    three(0x49, 0x24, 0x92),
    three(0x24, 0x92, 0x49),
    one(0x00),
    one(0x11),
    one(0x22),
    one(0x33),
    one(0x44),
    one(0x55),
    one(0x66),
    one(0x77),
    one(0x88),
    one(0x99),
    one(0xAA),
    one(0xBB),
    one(0xCC),
    one(0xDD),
    one(0xEE),
    one(0xFF),
    three(0x92, 0x49, 0x24),
    three(0x49, 0x24, 0x92),
    three(0x6D, 0xB6, 0xDB),
    three(0x6D, 0xB6, 0xDB),
    three(0xB6, 0xDB, 0x6D),
    three(0xDB, 0x6D, 0xB6),
    kRandomPass,
    kRandomPass,
    kRandomPass,
    kRandomPass,
};

/// Fills `length` bytes with a pattern of `period` bytes, starting with the pattern's first byte.
inline void fillRepeated(unsigned char* buffer, std::size_t length, const unsigned char* pattern,
                         std::size_t period) noexcept
{
    if (period == 1) {
        std::memset(buffer, pattern[0], length);
        return;
    }
    // A block that fits the first-level cache and holds a whole number of periods.
    constexpr std::size_t kBlock = 6144;
    const std::size_t block = std::min(length, kBlock / period * period);
    for (std::size_t i = 0; i < block; ++i)
        buffer[i] = pattern[i % period];
    for (std::size_t at = block; at < length; at += block)
        std::memcpy(buffer + at, buffer, std::min(block, length - at));
}
} // namespace fillpattern
