#pragma once

#include <algorithm>

#include "core/win32/utils/objectmanager/include/Raise.h"

/// Reads and writes any number of bytes; one system call takes less than 4 GiB.
namespace filetransfer {
inline constexpr DWORD kLargest = 1U << 30U;

/// Reads `size` bytes from the file's current position, or fewer up to its end. `done` receives how many were
/// read, also after a failure. Returns 0 or the system's code.
inline long read(HANDLE file, void* target, unsigned long long size, unsigned long long& done) noexcept
{
    for (done = 0; done != size;) {
        const auto wanted = static_cast<DWORD>(std::min<unsigned long long>(size - done, kLargest));
        DWORD got = 0;
        if (!ReadFile(file, static_cast<unsigned char*>(target) + done, wanted, &got, nullptr))
            return lastError();
        if (got == 0)
            break;
        done += got;
    }
    return ERROR_SUCCESS;
}

/// Writes `size` bytes at the file's current position. Returns 0, 29 when the system takes none of them, or
/// its code; some may have been written.
inline long write(HANDLE file, const void* source, unsigned long long size) noexcept
{
    const auto* at = static_cast<const unsigned char*>(source);
    while (size != 0) {
        const auto wanted = static_cast<DWORD>(std::min<unsigned long long>(size, kLargest));
        DWORD put = 0;
        if (!WriteFile(file, at, wanted, &put, nullptr))
            return lastError();
        if (put == 0)
            return ERROR_WRITE_FAULT;
        put = std::min(put, wanted); // some systems report more than they were given
        at += put;
        size -= put;
    }
    return ERROR_SUCCESS;
}
} // namespace filetransfer
