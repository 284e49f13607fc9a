#include <windows.h>

#include <bcrypt.h>
#include <zlib.h>

#include <functional>
#include <memory>
#include <vector>

#include "Bench.h"
#include "core/win32/utils/checksums/include/CRC32.h"
#include "core/win32/utils/checksums/include/MD5.h"
#include "core/win32/utils/checksums/include/Processor.h"
#include "core/win32/utils/checksums/include/SHA256.h"
#include "core/win32/utils/lookup/include/SHA1.h"

namespace {
using Data = std::vector<unsigned char>;

template <class Digest>
Digest systemHash(const wchar_t* name, const Data& data)
{
    BCRYPT_ALG_HANDLE algorithm = nullptr;
    BCRYPT_HASH_HANDLE hash = nullptr;
    Digest digest{};
    require(BCryptOpenAlgorithmProvider(&algorithm, name, nullptr, 0) == 0 &&
                BCryptCreateHash(algorithm, &hash, nullptr, 0, nullptr, 0, 0) == 0 &&
                BCryptHashData(hash, const_cast<unsigned char*>(data.data()), static_cast<ULONG>(data.size()),
                               0) == 0 &&
                BCryptFinishHash(hash, digest.data(), static_cast<ULONG>(digest.size()), 0) == 0,
            "the system's hash failed");
    BCryptDestroyHash(hash);
    BCryptCloseAlgorithmProvider(algorithm, 0);
    return digest;
}

unsigned long zlibChecksum(const Data& data)
{
    return crc32(crc32(0, nullptr, 0), data.data(), static_cast<uInt>(data.size()));
}

/// The bytes that the rows share, created when the first row needs them.
struct Bytes
{
    std::size_t mebibytes;
    Data data;
    void make()
    {
        if (!data.empty())
            return;
        data.resize(mebibytes * 1048576);
        for (std::size_t i = 0; i < data.size(); ++i)
            data[i] = static_cast<unsigned char>(i * 7919 >> 3U);
    }
};

/// Ours and the peer's do the same and must give the same result.
template <class Ours, class Peer>
BenchRow row(const char* name, const char* peerName, double goal, const std::shared_ptr<Bytes>& bytes,
             Ours ours, Peer peer)
{
    using Result = decltype(peer(bytes->data));
    const auto expected = std::make_shared<Result>();
    BenchRow made;
    made.name = name;
    made.peerName = peerName;
    made.goal = goal;
    made.operations = static_cast<double>(bytes->mebibytes);
    made.prepare = [=, isMade = std::make_shared<bool>(false)] {
        bytes->make();
        if (!*isMade)
            *expected = peer(bytes->data);
        *isMade = true;
    };
    made.ours = [=] { require(ours(bytes->data) == *expected, "another checksum than the peer's"); };
    made.peer = [=] { require(peer(bytes->data) == *expected, "the peer's checksum has changed"); };
    return made;
}

template <class Hash>
typename Hash::Digest finished(Hash hash, const Data& data)
{
    hash.update(data.data(), data.size());
    return hash.finish();
}
} // namespace

BenchRows hashingRows(BenchScale scale)
{
    const auto bytes = std::make_shared<Bytes>();
    bytes->mebibytes = static_cast<std::size_t>(scale(64));
    const auto sha1By = [](sha1::TakeBlocks& take) {
        return [&take](const Data& d) { return finished(CSHA1(take), d); };
    };
    const auto sha256By = [](sha256::TakeBlocks& take) {
        return [&take](const Data& d) { return finished(SHA256(take), d); };
    };
    const auto crcBy = [](crc::Take& take) {
        return [&take](const Data& d) -> unsigned long { return finished(CRC32(0, take), d); };
    };
    const auto system = [](const wchar_t* name, auto digest) {
        return [=](const Data& d) { return systemHash<decltype(digest)>(name, d); };
    };
    const auto systemSha1 = system(BCRYPT_SHA1_ALGORITHM, CSHA1::Digest());
    const auto systemSha256 = system(BCRYPT_SHA256_ALGORITHM, SHA256::Digest());
    const char* peer = "the system's crypto library";
    // What a processor without the wide instructions does.
    crc::Take& half = processor::features().clmul ? crc::takeWithExtensions : crc::takePortably;
    BenchRows rows;
    rows.timed = {
        row("SHA-1 of 64 MiB (op: 1 MiB)", peer, 1.5, bytes, sha1By(sha1::fastestTakeBlocks()), systemSha1),
        row("the same without the SHA extensions", peer, 0, bytes, sha1By(sha1::takeBlocksPortably),
            systemSha1),
        row("SHA-256 of 64 MiB (op: 1 MiB)", peer, 1.0, bytes, sha256By(sha256::fastestTakeBlocks()),
            systemSha256),
        row("the same without the SHA extensions", peer, 0, bytes, sha256By(sha256::takeBlocksPortably),
            systemSha256),
        row(
            "MD5 of 64 MiB (op: 1 MiB)", peer, 1.0, bytes, [](const Data& d) { return finished(MD5(), d); },
            system(BCRYPT_MD5_ALGORITHM, MD5::Digest())),
        row("CRC-32 of 64 MiB (op: 1 MiB)", "zlib", 3.0, bytes, crcBy(crc::fastestTake()), zlibChecksum),
        row("the same by half as wide ones", "zlib", 0, bytes, crcBy(half), zlibChecksum),
        row("the same without its instructions", "zlib", 0, bytes, crcBy(crc::takePortably), zlibChecksum)};
    return rows;
}
