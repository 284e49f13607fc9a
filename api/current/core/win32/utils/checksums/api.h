#pragma once

#include "core/win32/utils/memory/api.h"
#include "win32/checksums/include/ChecksumProgress.h"

// Checksums and hashes of memory and of files. The processor's instructions for them are used where it has
// any. core/win32/utils/memory/api.h describes what all utility functions have in common.
//
// A file is read in pieces of 1 MiB while others may read, write and rename it. `cancelEvent`, `progress` and
// `context` may be null. The event is polled before each piece. `progress` is called after each on the
// calling thread, with the bytes done, the file's size at the beginning, and `context`. A file that grows
// meanwhile is read to its end all the same.

SYSMAINT_C_BEGIN
/// CRC-32 of Ethernet, ZIP and PNG.
///
/// @param start  0, or the value of the bytes before these
/// @return 0, 87
SYSMAINT_API long ChecksumCrc32(const void* bytes, size_t length, unsigned long start, unsigned long* value);

/// The same for a file.
///
/// @return 0, 87, 8, 6 (no event), 1223 (cancelled), or the system's code for opening and reading
SYSMAINT_API long ChecksumFileCrc32(const wchar_t* path, void* cancelEvent, ChecksumProgress progress,
                                    void* context, unsigned long* value);

/// MD5 (RFC 1321): detects damage, but not tampering.
///
/// @param digest  receives 16 bytes
/// @return 0, 87
SYSMAINT_API long ChecksumMd5(const void* bytes, size_t length, unsigned char* digest);

/// The same for a file; codes as of ChecksumFileCrc32.
SYSMAINT_API long ChecksumFileMd5(const wchar_t* path, void* cancelEvent, ChecksumProgress progress,
                                  void* context, unsigned char* digest);

/// SHA-1 (FIPS 180-4): identifies files; two files with the same hash can be constructed.
///
/// @param digest  receives 20 bytes
/// @return 0, 87
SYSMAINT_API long ChecksumSha1(const void* bytes, size_t length, unsigned char* digest);

/// The same for a file; codes as of ChecksumFileCrc32.
SYSMAINT_API long ChecksumFileSha1(const wchar_t* path, void* cancelEvent, ChecksumProgress progress,
                                   void* context, unsigned char* digest);

/// SHA-256 (FIPS 180-4).
///
/// @param digest  receives 32 bytes
/// @return 0, 87
SYSMAINT_API long ChecksumSha256(const void* bytes, size_t length, unsigned char* digest);

/// The same for a file; codes as of ChecksumFileCrc32.
SYSMAINT_API long ChecksumFileSha256(const wchar_t* path, void* cancelEvent, ChecksumProgress progress,
                                     void* context, unsigned char* digest);
SYSMAINT_C_END
