#pragma once

#include "core/win32/utils/memory/api.h"
#include "win32/checksums/include/ChecksumProgress.h"

// Checksums and hashes of memory and of files. Where the processor has instructions for them they are used.
// What all utility functions have in common is said in core/win32/utils/memory/api.h.
//
// A file is read in pieces of 1 MiB while others may read, write and rename it. `cancelEvent`, `progress` and
// `context` may be null; the event is polled before each piece, `progress` is called after each with the
// bytes done, the size that the file had at first, and `context`, on the calling thread.

extern "C" {
/// CRC-32 of Ethernet, ZIP and PNG.
///
/// @param start  0, or the value of the bytes before these
/// @return 0, 87
SYSMAINT_API long ChecksumCrc32(const void* bytes, size_t length, unsigned long start, unsigned long* value);

/// The same of a file.
///
/// @return 0, 87, 8, 6 (no event), 1223 (cancelled), or the system's code for opening and reading
SYSMAINT_API long ChecksumFileCrc32(const wchar_t* path, void* cancelEvent, ChecksumProgress progress,
                                    void* context, unsigned long* value);

/// MD5 (RFC 1321): for damage, not against anybody.
///
/// @param digest  receives 16 bytes
/// @return 0, 87
SYSMAINT_API long ChecksumMd5(const void* bytes, size_t length, unsigned char* digest);

/// The same of a file; codes as of ChecksumFileCrc32.
SYSMAINT_API long ChecksumFileMd5(const wchar_t* path, void* cancelEvent, ChecksumProgress progress,
                                  void* context, unsigned char* digest);

/// SHA-1 (FIPS 180-4): it names files; two files of one hash can be made.
///
/// @param digest  receives 20 bytes
/// @return 0, 87
SYSMAINT_API long ChecksumSha1(const void* bytes, size_t length, unsigned char* digest);

/// The same of a file; codes as of ChecksumFileCrc32.
SYSMAINT_API long ChecksumFileSha1(const wchar_t* path, void* cancelEvent, ChecksumProgress progress,
                                   void* context, unsigned char* digest);

/// SHA-256 (FIPS 180-4).
///
/// @param digest  receives 32 bytes
/// @return 0, 87
SYSMAINT_API long ChecksumSha256(const void* bytes, size_t length, unsigned char* digest);

/// The same of a file; codes as of ChecksumFileCrc32.
SYSMAINT_API long ChecksumFileSha256(const wchar_t* path, void* cancelEvent, ChecksumProgress progress,
                                     void* context, unsigned char* digest);
}
