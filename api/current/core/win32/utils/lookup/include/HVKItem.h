#pragma once

#include <windows.h>

#include <string>

#include "core/win32/utils/lookup/include/SHA1.h"

/// One file to be looked up: its path and the hash that names its content to the server.
class HVKItem
{
public:
    using Hash = CSHA1::Digest;

    /// What a relative path names is settled now. Raises the bare code when it names nothing.
    HVKItem(const wchar_t* path, long priority);

    /// The path as it was given.
    [[nodiscard]] const std::wstring& getPath() const noexcept { return m_path; }
    /// The same for all ways to write one path. Case counts: a folder may tell names apart by it.
    [[nodiscard]] const std::wstring& getKey() const noexcept { return m_settled; }
    [[nodiscard]] long getPriority() const noexcept { return m_priority; }
    [[nodiscard]] const Hash& getHash() const noexcept { return m_hash; }
    /// Reads the whole file. Raises 1223 when `cancelEvent` (may be null) is signalled meanwhile, or the
    /// system's code for a file that cannot be read; both bare.
    void computeHash(HANDLE cancelEvent);

private:
    std::wstring m_path;
    std::wstring m_settled;
    long m_priority;
    Hash m_hash{};
};
