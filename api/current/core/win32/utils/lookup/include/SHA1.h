#pragma once

#include "core/win32/utils/checksums/include/BlockHash.h"

/// Functions that add whole blocks of 64 bytes to a hash.
namespace sha1 {
struct Algorithm
{
    using State = std::array<std::uint32_t, 5>;
    static constexpr State kInitialState = {0x67452301, 0xEFCDAB89, 0x98BADCFE, 0x10325476, 0xC3D2E1F0};
    static constexpr bool kBigEndian = true;
};
using State = Algorithm::State;
using TakeBlocks = BlockHash<Algorithm>::TakeBlocks;

TakeBlocks takeBlocksPortably;
/// Only where processor::features().sha.
TakeBlocks takeBlocksWithExtensions;
/// The faster of those that this processor supports.
[[nodiscard]] TakeBlocks& fastestTakeBlocks() noexcept;
} // namespace sha1

/// SHA-1 (FIPS 180-4) of data of any length, in pieces of any size. It identifies files, but does not protect
/// against somebody who constructs two files with the same hash.
///
/// Uses the SHA extensions where the processor has them. An object serves one thread at a time. No operation
/// can fail.
class CSHA1 : public BlockHash<sha1::Algorithm>
{
public:
    explicit CSHA1(sha1::TakeBlocks& takeBlocks = sha1::fastestTakeBlocks()) noexcept : BlockHash(takeBlocks)
    {
    }
};
