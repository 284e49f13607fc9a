#pragma once

#include "core/win32/utils/checksums/include/BlockHash.h"

namespace md5 {
struct Algorithm
{
    using State = std::array<std::uint32_t, 4>;
    static constexpr State kInitialState = {0x67452301, 0xEFCDAB89, 0x98BADCFE, 0x10325476};
    static constexpr bool kBigEndian = false;
};
BlockHash<Algorithm>::TakeBlocks takeBlocks;
} // namespace md5

/// MD5 (RFC 1321). It detects damage to a file, but not tampering.
class MD5 : public BlockHash<md5::Algorithm>
{
public:
    MD5() noexcept : BlockHash(md5::takeBlocks) {}
};
