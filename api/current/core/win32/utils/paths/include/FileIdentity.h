#pragma once

#include <windows.h>

#include <cstdint>

/// "Another file stands there by now": ERROR_FILE_INVALID.
inline constexpr long kAnotherFile = ERROR_FILE_INVALID;

/// What distinguishes a file or folder from every other, whatever its names are. Some network systems number
/// nothing; there all files of a share look the same. A file system may give the number of a deleted file to
/// a new one.
struct FileIdentity
{
    DWORD volume = 0;
    std::uint64_t index = 0;

    /// Raises the bare code.
    static FileIdentity of(HANDLE opened);
    static FileIdentity of(const BY_HANDLE_FILE_INFORMATION& information) noexcept;
    friend bool operator==(const FileIdentity& a, const FileIdentity& b) noexcept
    {
        return a.volume == b.volume && a.index == b.index;
    }
    friend bool operator!=(const FileIdentity& a, const FileIdentity& b) noexcept { return !(a == b); }
};
