#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

/// The ways to take whole blocks of 64 bytes into a hash.
namespace sha1 {
using State = std::array<std::uint32_t, 5>;
using TakeBlocks = void(State& state, const unsigned char* blocks, std::size_t count) noexcept;

TakeBlocks takeBlocksPortably;
/// Only where hasExtensions().
TakeBlocks takeBlocksWithExtensions;
/// Whether this processor has the SHA extensions and what the code for them needs besides.
[[nodiscard]] bool hasExtensions() noexcept;
/// The faster of those that this processor has.
[[nodiscard]] TakeBlocks& fastestTakeBlocks() noexcept;
} // namespace sha1

/// SHA-1 as FIPS 180-4 gives it, over data of any length that arrives in pieces of any size. It names files
/// to those who know them; it is no protection against somebody who makes two files of one hash.
///
/// Where the processor has the SHA extensions they do the work. An object belongs to one thread at a time.
/// No operation can fail.
class CSHA1
{
public:
    static constexpr std::size_t kDigestSize = 20; // bytes
    static constexpr std::size_t kBlockSize = 64;  // bytes
    using Digest = std::array<unsigned char, kDigestSize>;

    explicit CSHA1(sha1::TakeBlocks& takeBlocks = sha1::fastestTakeBlocks()) noexcept
        : m_takeBlocks(&takeBlocks)
    {
    }

    /// Takes the next `size` bytes; null is allowed for none.
    void update(const void* data, std::size_t size) noexcept;

    /// The hash of all that was taken, in the standard's order of bytes. The object then stands as a new one.
    Digest finish() noexcept;

private:
    sha1::TakeBlocks* m_takeBlocks;
    sha1::State m_state = {0x67452301, 0xEFCDAB89, 0x98BADCFE, 0x10325476, 0xC3D2E1F0};
    std::uint64_t m_length = 0; // bytes taken; those of the last unfinished block are in m_block
    std::array<unsigned char, kBlockSize> m_block{};
};
