#include "core/win32/utils/checksums/api.h"
#include "core/win32/utils/checksums/include/CRC32.h"
#include "core/win32/utils/checksums/include/FileChecksum.h"
#include "core/win32/utils/checksums/include/MD5.h"
#include "core/win32/utils/checksums/include/SHA256.h"
#include "core/win32/utils/lookup/include/SHA1.h"
#include "exports/UtilityFrame.h"

using namespace utilityframe;

long ChecksumCrc32(const void* bytes, size_t length, unsigned long start, unsigned long* value)
{
    return utilityFrame(
        outputs(value),
        [=](std::basic_string_view<unsigned char> all) {
            CRC32 crc(start);
            crc.update(all.data(), all.size());
            return crc.finish();
        },
        Bytes{bytes, length});
}

long ChecksumFileCrc32(const wchar_t* path, void* cancelEvent, ChecksumProgress progress, void* context,
                       unsigned long* value)
{
    return utilityFrame(
        outputs(value),
        [&](const wchar_t* name) {
            return checksumOfFile<CRC32>({name, cancelEvent, progress, context});
        },
        path);
}

long ChecksumMd5(const void* bytes, size_t length, unsigned char* digest)
{
    return utilityFrame(outputs(digest), checksumOf<MD5>, Bytes{bytes, length});
}

long ChecksumFileMd5(const wchar_t* path, void* cancelEvent, ChecksumProgress progress, void* context,
                     unsigned char* digest)
{
    return utilityFrame(
        outputs(digest),
        [&](const wchar_t* name) {
            return checksumOfFile<MD5>({name, cancelEvent, progress, context});
        },
        path);
}

long ChecksumSha1(const void* bytes, size_t length, unsigned char* digest)
{
    return utilityFrame(outputs(digest), checksumOf<CSHA1>, Bytes{bytes, length});
}

long ChecksumFileSha1(const wchar_t* path, void* cancelEvent, ChecksumProgress progress, void* context,
                      unsigned char* digest)
{
    return utilityFrame(
        outputs(digest),
        [&](const wchar_t* name) {
            return checksumOfFile<CSHA1>({name, cancelEvent, progress, context});
        },
        path);
}

long ChecksumSha256(const void* bytes, size_t length, unsigned char* digest)
{
    return utilityFrame(outputs(digest), checksumOf<SHA256>, Bytes{bytes, length});
}

long ChecksumFileSha256(const wchar_t* path, void* cancelEvent, ChecksumProgress progress, void* context,
                        unsigned char* digest)
{
    return utilityFrame(
        outputs(digest),
        [&](const wchar_t* name) {
            return checksumOfFile<SHA256>({name, cancelEvent, progress, context});
        },
        path);
}
