#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include "core/win32/utils/lookup/include/SHA1.h"

namespace {
std::string hex(const CSHA1::Digest& digest)
{
    std::string text;
    for (const unsigned char byte : digest)
        for (const int digit : {byte >> 4, byte & 15})
            text += "0123456789abcdef"[digit];
    return text;
}

std::vector<unsigned char> dataOf(std::size_t size)
{
    std::vector<unsigned char> data(size);
    for (std::size_t i = 0; i < size; ++i)
        data[i] = static_cast<unsigned char>(i * 7919 >> 3U);
    return data;
}

CSHA1::Digest hashOf(const void* data, std::size_t size,
                     sha1::TakeBlocks& takeBlocks = sha1::fastestTakeBlocks())
{
    CSHA1 hash(takeBlocks);
    hash.update(data, size);
    return hash.finish();
}
} // namespace

// The expected hashes are the standard's own and those of another implementation.
TEST(SHA1, KnownHashes)
{
    // Around the ends of blocks, where the closing bits do and do not fit.
    const struct
    {
        std::size_t size;
        const char* hash;
    } rows[] = {
        {1, "a4ac408fb9d6def070ad3a76312ca092863048e5"},
        {55, "2b11326f4f38709eb761b1be1df897fb349265a7"},
        {56, "79cf6f19cd45725146c9a100475ae0da511e7eca"},
        {57, "7b61942757ddc3355a7321490f65e14c07f6950a"},
        {63, "485f378a65aabd78490acc941d5f4d352a728434"},
        {64, "33c05417025a19a960d6d98d2434a941123e18e2"},
        {65, "78257c0f1485b5c87593d206bc9bbb1c42896eb0"},
        {119, "0e93869b5db8e7b7034d086faad1329c00fc2ee1"},
        {120, "5ef12e99fa0ee2c58a8368148536b60e917e6d4b"},
        {127, "74570058a70c83122e855cd70b72d00357bac3f4"},
        {128, "58d36ab6b924876dca38dc93f142ce81b1a68df5"},
        {129, "b12f114cd5ceeeaec59d872ffad2c90416e79a98"},
        {1000003, "127d90129b8ba6dd5c08f5334496d88bee02ec70"},
    };
    // Most machines only ever run one of the two ways.
    for (sha1::TakeBlocks* takeBlocks : {&sha1::takeBlocksPortably, &sha1::fastestTakeBlocks()}) {
        EXPECT_EQ(hex(hashOf(nullptr, 0, *takeBlocks)), "da39a3ee5e6b4b0d3255bfef95601890afd80709");
        EXPECT_EQ(hex(hashOf("abc", 3, *takeBlocks)), "a9993e364706816aba3e25717850c26c9cd0d89d");
        for (const auto& row : rows) {
            const auto data = dataOf(row.size + 1); // and not aligned
            EXPECT_EQ(hex(hashOf(data.data() + 1, row.size, *takeBlocks)), row.hash) << row.size;
        }
    }
}

TEST(SHA1, MoreBitsThanAWordHolds)
{
    const std::vector<unsigned char> zeros(1U << 20U);
    CSHA1 hash;
    for (int i = 0; i < 512; ++i)
        hash.update(zeros.data(), zeros.size());
    EXPECT_EQ(hex(hash.finish()), "5b088492c9f4778f409b7ae61477dec124c99033");
}

TEST(SHA1, PiecesOfAnySizeGiveTheHashOfTheWhole)
{
    std::mt19937 random(20);
    CSHA1 hash; // one for all: it stands as new after each
    for (int turn = 0; turn < 2000; ++turn) {
        const auto data = dataOf(random() % 1000);
        for (std::size_t at = 0; at < data.size();) {
            const std::size_t piece = std::min<std::size_t>(random() % 150, data.size() - at);
            hash.update(data.data() + at, piece);
            at += piece;
        }
        ASSERT_EQ(hash.finish(), hashOf(data.data(), data.size())) << "turn " << turn;
    }
}
