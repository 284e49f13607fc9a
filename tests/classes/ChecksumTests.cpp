#include "core/win32/utils/checksums/include/CRC32.h"
#include "core/win32/utils/checksums/include/Processor.h"
#include "core/win32/utils/checksums/include/SHA256.h"
#include "core/win32/utils/lookup/include/SHA1.h"
#include "support/Test.h"

// Most machines only run one of the two ways: the other must give the same result for every length and cut.
TEST(Checksums, BothWaysAgree)
{
    std::mt19937 random(18);
    std::vector<unsigned char> data(5001);
    for (unsigned char& byte : data)
        byte = static_cast<unsigned char>(random());
    SHA256 fast(sha256::fastestTakeBlocks());
    SHA256 portable(sha256::takeBlocksPortably);
    CSHA1 fast1;
    CSHA1 portable1(sha1::takeBlocksPortably);
    for (std::size_t size = 0; size < 1000; ++size) {
        const std::size_t cut = size == 0 ? 0 : random() % size;
        const auto update = [&](auto&... hashes) { // one for all sizes: each is as new after its end
            (hashes.update(data.data() + 1, cut), ...);
            for (std::size_t at = cut, piece = 0; at < size; at += piece) {
                piece = std::min<std::size_t>(random() % 150, size - at);
                (hashes.update(data.data() + 1 + at, piece), ...);
            }
        };
        update(fast, portable, fast1, portable1);
        EXPECT_EQ(fast.finish(), portable.finish()) << size;
        EXPECT_EQ(fast1.finish(), portable1.finish()) << size;
        const bool hasClmul = processor::features().clmul;
        CRC32 crcs[] = {CRC32(7), CRC32(7, crc::takePortably),
                        CRC32(7, hasClmul ? crc::takeWithExtensions : crc::takePortably)};
        for (CRC32& crc : crcs) {
            crc.update(data.data() + 1, cut);
            crc.update(data.data() + 1 + cut, size - cut);
        }
        EXPECT_EQ(crcs[0].finish(), crcs[1].finish()) << size;
        EXPECT_EQ(crcs[2].finish(), crcs[1].finish()) << size;
    }
}

// More than a word holds, as sha1sum has them.
TEST(Checksums, OfManyBits)
{
    const std::vector<unsigned char> zeros(1U << 20U);
    CSHA1 hash(sha1::takeBlocksPortably);
    for (int i = 0; i < 512; ++i)
        hash.update(zeros.data(), zeros.size());
    EXPECT_EQ(hash.finish(), (CSHA1::Digest{0x5b, 0x08, 0x84, 0x92, 0xc9, 0xf4, 0x77, 0x8f, 0x40, 0x9b,
                                            0x7a, 0xe6, 0x14, 0x77, 0xde, 0xc1, 0x24, 0xc9, 0x90, 0x33}));
}
