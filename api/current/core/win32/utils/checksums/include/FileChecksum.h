#pragma once

#include <windows.h>

#include <functional>
#include <string_view>

#include "win32/checksums/include/ChecksumProgress.h"

/// How a file is read to be hashed.
struct FileReading
{
    const wchar_t* path;
    HANDLE cancelEvent;        ///< may be null
    ChecksumProgress progress; ///< may be null
    void* context;
};

namespace filechecksum {
/// Passes the whole file to `take`, piece by piece. Raises the bare code.
void read(const FileReading& reading, const std::function<void(const void* data, std::size_t size)>& take);
} // namespace filechecksum

/// The checksum of a file by a class with update and finish.
template <class Hash>
typename Hash::Digest checksumOfFile(const FileReading& reading)
{
    Hash hash;
    filechecksum::read(reading, [&](const void* data, std::size_t size) { hash.update(data, size); });
    return hash.finish();
}
template <class Hash>
typename Hash::Digest checksumOf(std::basic_string_view<unsigned char> bytes) noexcept
{
    Hash hash;
    hash.update(bytes.data(), bytes.size());
    return hash.finish();
}
