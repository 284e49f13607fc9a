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

CSHA1::Digest hashOf(const void* data, std::size_t size)
{
    CSHA1 hash;
    hash.update(data, size);
    return hash.finish();
}
} // namespace

// The expected hashes are the standard's own and those of another implementation.
TEST(SHA1, KnownHashes)
{
    EXPECT_EQ(hex(hashOf(nullptr, 0)), "da39a3ee5e6b4b0d3255bfef95601890afd80709");
    EXPECT_EQ(hex(hashOf("abc", 3)), "a9993e364706816aba3e25717850c26c9cd0d89d");
    const std::string two = "abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq";
    EXPECT_EQ(hex(hashOf(two.data(), two.size())), "84983e441c3bd26ebaae4aa1f95129e5e54670f1");
    const std::string million(1000000, 'a');
    EXPECT_EQ(hex(hashOf(million.data(), million.size())), "34aa973cd4c4daa4f61eeb2bdbad27316534016f");

    // Around the ends of blocks, where the closing bits do and do not fit.
    const struct
    {
        std::size_t size;
        const char* hash;
    } rows[] = {
        {1, "5ba93c9db0cff93f52b521d7420e43f6eda2784f"},
        {55, "1821dd80e07c35fcd1be8a6c38cdee8573b47705"},
        {56, "5c7ea603f6157d5538991edfdeea5a1f93a9fccf"},
        {57, "9985a4ca563f70c1cd9b83f7f3e2c29c9e18208c"},
        {63, "dea8136895d7ce7e950ed9e677fdd993b5c7a5ab"},
        {64, "04e4df16e9eba1a5113fe4f54943ecda1d1ff33d"},
        {65, "b98858dc1ab149b13c2a5cafac228f22f2882a77"},
        {119, "10095dba9fc8f9eba334817f95bd16782ded615b"},
        {120, "128b8c0956efcf748cfe61cff2444b664581a31f"},
        {127, "3ef3c7e6303549d1c46461958c26f4e9190b6790"},
        {128, "51abcd7a8be2f44e4da2520b27ed7dcfa21b18f2"},
        {129, "deda45e1f5290cdd7b58b274f8173119087e35f0"},
        {1000003, "9b04234c205c77e352e80145db6b3c939fe4c404"},
    };
    for (const auto& row : rows)
        EXPECT_EQ(hex(hashOf(dataOf(row.size).data(), row.size)), row.hash) << row.size;
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

// Most machines only ever run one of the two ways; here it is the extensions', so the other is asked for by
// name.
TEST(SHA1, BothWaysToTakeBlocksAgree)
{
    CSHA1::State portable = {0x67452301, 0xEFCDAB89, 0x98BADCFE, 0x10325476, 0xC3D2E1F0};
    unsigned char block[CSHA1::kBlockSize] = {'a', 'b', 'c', 0x80};
    block[CSHA1::kBlockSize - 1] = 24; // bits
    sha1::takeBlocksPortably(portable, block, 1);
    EXPECT_EQ(portable, (CSHA1::State{0xa9993e36, 0x4706816a, 0xba3e2571, 0x7850c26c, 0x9cd0d89d}));

    if (!sha1::hasExtensions())
        return; // then KnownHashes has tried the portable way
    std::mt19937 random(21);
    for (int turn = 0; turn < 2000; ++turn) {
        CSHA1::State states[2];
        for (std::size_t i = 0; i < states[0].size(); ++i)
            states[0][i] = states[1][i] = static_cast<std::uint32_t>(random());
        std::vector<unsigned char> blocks(CSHA1::kBlockSize * (random() % 4) + 1); // and not aligned
        std::generate(blocks.begin(), blocks.end(), [&] { return static_cast<unsigned char>(random()); });
        sha1::takeBlocksPortably(states[0], blocks.data() + 1, blocks.size() / CSHA1::kBlockSize);
        sha1::takeBlocksWithExtensions(states[1], blocks.data() + 1, blocks.size() / CSHA1::kBlockSize);
        ASSERT_EQ(states[0], states[1]) << "turn " << turn;
    }
}
