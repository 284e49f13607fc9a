#pragma once

#include "core/win32/utils/checksums/include/BlockHash.h"

/// The ways to take whole blocks of 64 bytes into a hash.
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
/// The faster of those that this processor has.
[[nodiscard]] TakeBlocks& fastestTakeBlocks() noexcept;
} // namespace sha1

/// SHA-1 as FIPS 180-4 gives it, over data of any length that arrives in pieces of any size. It names files
/// to those who know them; it is no protection against somebody who makes two files of one hash.
///
/// Where the processor has the SHA extensions they do the work. An object belongs to one thread at a time.
/// No operation can fail.
class CSHA1 : public BlockHash<sha1::Algorithm>
{
public:
    explicit CSHA1(sha1::TakeBlocks& takeBlocks = sha1::fastestTakeBlocks()) noexcept : BlockHash(takeBlocks)
    {
    }
};
