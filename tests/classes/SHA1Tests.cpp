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

const std::vector<unsigned char> kData = [] {
    std::vector<unsigned char> data(1000004);
    for (std::size_t i = 0; i < data.size(); ++i)
        data[i] = static_cast<unsigned char>(i * 7919 >> 3U);
    return data;
}();

} // namespace

// The expected hashes are the standard's own and those of another implementation.
TEST(SHA1, KnownHashes)
{
    std::mt19937 random(20);
    // Most machines only run one of the two ways.
    for (sha1::TakeBlocks* takeBlocks : {&sha1::takeBlocksPortably, &sha1::fastestTakeBlocks()}) {
        CSHA1 hash(*takeBlocks); // one for all: it is as new after each
        const auto hashOf = [&](const void* data, std::size_t size) {
            hash.update(data, size);
            return hash.finish();
        };
        EXPECT_EQ(hex(hashOf(nullptr, 0)), "da39a3ee5e6b4b0d3255bfef95601890afd80709");
        EXPECT_EQ(hex(hashOf("abc", 3)), "a9993e364706816aba3e25717850c26c9cd0d89d");
        const unsigned char* const data = kData.data() + 1; // not aligned
        EXPECT_EQ(hex(hashOf(data, 1000003)), "127d90129b8ba6dd5c08f5334496d88bee02ec70");
        // The hash of the hashes of all sizes, whole and in pieces of any size.
        for (const std::size_t longest : {1000U, 150U}) {
            CSHA1 all;
            for (std::size_t size = 0; size < 1000; ++size) {
                for (std::size_t at = 0, piece = 0; at < size; at += piece) {
                    piece = std::min<std::size_t>(longest == 1000 ? size : random() % longest, size - at);
                    hash.update(data + at, piece);
                }
                all.update(hash.finish().data(), CSHA1::kDigestSize);
            }
            EXPECT_EQ(hex(all.finish()), "42744f73bdb012a18c00b36145fd89d9d9ecbfcc");
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
