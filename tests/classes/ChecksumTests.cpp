#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "core/win32/utils/checksums/include/CRC32.h"
#include "core/win32/utils/checksums/include/Processor.h"
#include "core/win32/utils/checksums/include/SHA256.h"

// Most machines only run one of the two ways: the other must give the same result for every length and cut.
TEST(Checksums, BothWaysAgree)
{
    std::mt19937 random(18);
    std::vector<unsigned char> data(5001);
    for (unsigned char& byte : data)
        byte = static_cast<unsigned char>(random());
    SHA256 fast(sha256::fastestTakeBlocks());
    SHA256 portable(sha256::takeBlocksPortably);
    for (std::size_t size = 0; size < 1000; ++size) {
        const std::size_t cut = size == 0 ? 0 : random() % size;
        for (SHA256* hash : {&fast, &portable}) {
            hash->update(data.data() + 1, cut);
            hash->update(data.data() + 1 + cut, size - cut);
        }
        EXPECT_EQ(fast.finish(), portable.finish()) << size;
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
    CRC32 whole(0, crc::takePortably);
    whole.update("123456789", 9);
    EXPECT_EQ(whole.finish(), 0xcbf43926U); // the standard check value
}
