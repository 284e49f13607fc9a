#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

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
    using State = std::array<std::uint32_t, 5>;

    /// Takes the next `size` bytes; null is allowed for none.
    void update(const void* data, std::size_t size) noexcept;

    /// The hash of all that was taken, in the standard's order of bytes. The object then stands as a new one.
    Digest finish() noexcept;

private:
    static constexpr State kInitialState = {0x67452301, 0xEFCDAB89, 0x98BADCFE, 0x10325476, 0xC3D2E1F0};

    State m_state = kInitialState;
    std::uint64_t m_length = 0; // bytes taken; those of the last unfinished block are in m_block
    std::array<unsigned char, kBlockSize> m_block{};
};

/// The two ways to take in whole blocks, of which CSHA1 chooses.
namespace sha1 {
using TakeBlocks = void(CSHA1::State& state, const unsigned char* blocks, std::size_t count) noexcept;

TakeBlocks takeBlocksPortably;
/// Only where hasExtensions().
TakeBlocks takeBlocksWithExtensions;
/// Whether this processor has the SHA extensions and what the code for them needs besides.
[[nodiscard]] bool hasExtensions() noexcept;
} // namespace sha1
