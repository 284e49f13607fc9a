#include <windows.h>

#include <bcrypt.h>

#include <memory>
#include <vector>

#include "Bench.h"
#include "core/win32/utils/lookup/include/SHA1.h"

namespace {
CSHA1::Digest systemHash(const std::vector<unsigned char>& data)
{
    BCRYPT_ALG_HANDLE algorithm = nullptr;
    BCRYPT_HASH_HANDLE hash = nullptr;
    CSHA1::Digest digest{};
    require(BCryptOpenAlgorithmProvider(&algorithm, BCRYPT_SHA1_ALGORITHM, nullptr, 0) == 0 &&
                BCryptCreateHash(algorithm, &hash, nullptr, 0, nullptr, 0, 0) == 0 &&
                BCryptHashData(hash, const_cast<unsigned char*>(data.data()), static_cast<ULONG>(data.size()),
                               0) == 0 &&
                BCryptFinishHash(hash, digest.data(), CSHA1::kDigestSize, 0) == 0,
            "the system's SHA-1 failed");
    BCryptDestroyHash(hash);
    BCryptCloseAlgorithmProvider(algorithm, 0);
    return digest;
}

CSHA1::Digest ourHash(const std::vector<unsigned char>& data, sha1::TakeBlocks& takeBlocks)
{
    CSHA1 hash(takeBlocks);
    hash.update(data.data(), data.size());
    return hash.finish();
}
} // namespace

BenchRows hashingRows(BenchScale scale)
{
    const long mebibytes = scale(64);
    const auto data = std::make_shared<std::vector<unsigned char>>();
    const auto expected = std::make_shared<CSHA1::Digest>();
    BenchRows rows;
    const auto prepare = [=] {
        if (!data->empty())
            return;
        data->resize(static_cast<std::size_t>(mebibytes) * 1048576);
        for (std::size_t i = 0; i < data->size(); ++i)
            (*data)[i] = static_cast<unsigned char>(i * 7919 >> 3U);
        *expected = systemHash(*data);
    };
    const auto ours = [=](sha1::TakeBlocks& takeBlocks) {
        return [=, &takeBlocks] {
            require(ourHash(*data, takeBlocks) == *expected, "another hash than the system's");
        };
    };
    const auto system = [=] { require(systemHash(*data) == *expected, "the system's hash has changed"); };
    const char* peer = "the system's crypto library";
    const auto operations = static_cast<double>(mebibytes);
    rows.timed = {{"SHA-1 of 64 MiB (op: 1 MiB)", peer, 1.5, operations, ours(sha1::fastestTakeBlocks()),
                   system, prepare},
                  {"the same without the SHA extensions", peer, 0, operations, ours(sha1::takeBlocksPortably),
                   system, prepare}};
    return rows;
}
