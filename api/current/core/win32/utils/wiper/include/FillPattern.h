#pragma once

#include <cstddef>
#include <cstdint>

/// What the wiper overwrites with, as bytes in memory.
namespace fillpattern {
/// The number of passes of the Gutmann method.
inline constexpr std::uint32_t kGutmannPasses = 35;

/// Fills `text` with `length` random characters of "0-9A-Za-z" and a terminating zero.
void fillRandomText(wchar_t* text, std::size_t length) noexcept;

/// Lays a pattern of `period` bytes over `length` bytes, beginning at its first byte.
void fillRepeated(unsigned char* buffer, std::size_t length, const unsigned char* pattern,
                  std::size_t period) noexcept;

/// The bytes of a fixed pass: `period` of them, or 0 for a random pass.
struct Pass
{
    unsigned char bytes[3];
    unsigned char period;
};
/// Pass 0 to 34.
[[nodiscard]] const Pass& gutmannPass(std::uint32_t pass) noexcept;
} // namespace fillpattern
