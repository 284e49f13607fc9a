#pragma once

#include "core/win32/utils/checksums/include/BlockHash.h"

namespace sha256 {
struct Algorithm
{
    using State = std::array<std::uint32_t, 8>;
    static constexpr State kInitialState = {0x6a09e667, 0xbb67ae85, 0x3c6ef372, 0xa54ff53a,
                                            0x510e527f, 0x9b05688c, 0x1f83d9ab, 0x5be0cd19};
    static constexpr bool kBigEndian = true;
};
using TakeBlocks = BlockHash<Algorithm>::TakeBlocks;

TakeBlocks takeBlocksPortably;
/// Only where processor::features().sha.
TakeBlocks takeBlocksWithExtensions;
/// The faster of those that this processor supports.
[[nodiscard]] TakeBlocks& fastestTakeBlocks() noexcept;
} // namespace sha256

/// SHA-256 (FIPS 180-4). Uses the SHA extensions where the processor has them.
class SHA256 : public BlockHash<sha256::Algorithm>
{
public:
    explicit SHA256(sha256::TakeBlocks& takeBlocks = sha256::fastestTakeBlocks()) noexcept
        : BlockHash(takeBlocks)
    {
    }
};
