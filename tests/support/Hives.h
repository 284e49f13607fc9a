#pragma once

#include "core/win32/registry/offline/include/HiveFile.h"
#include "support/Wipe.h"

inline constexpr DWORD kCluster = 4096;

/// A hive file with so many empty bins at its end.
inline Bytes hiveOf(std::uint32_t emptyBins, const offline::Hive& content = offline::Hive::create(1))
{
    const std::vector<std::byte> compact = content.compact();
    const auto used = static_cast<std::uint32_t>(compact.size());
    Bytes hive(used + std::size_t{kCluster} * emptyBins);
    std::memcpy(hive.data(), compact.data(), used);
    const auto put = [&](std::size_t at, std::uint32_t number) { std::memcpy(&hive.at(at), &number, 4); };
    for (std::uint32_t at = used; at < hive.size(); at += kCluster) {
        std::copy_n("hbin", 4, hive.begin() + at);
        put(at + 4, at - kCluster);
        put(at + 8, kCluster);
        put(at + 32, kCluster - 32); // one free cell
    }
    const auto size = static_cast<std::uint32_t>(hive.size() - kCluster);
    put(40, size); // of all bins; the checksum has every word by exclusive or
    std::uint32_t sum = 0;
    std::memcpy(&sum, &hive[508], sizeof sum);
    put(508, sum ^ (used - kCluster) ^ size);
    return hive;
}

/// The system's offreg.dll for a scope: a stand-in for it, or none.
struct OffregLibrary
{
    explicit OffregLibrary(bool isThere) : exists(isThere) {}

    bool exists;
    const Replaced<"LoadLibraryExW", decltype(&LoadLibraryExW)> loads{
        [this](auto original, LPCWSTR name, HANDLE file, DWORD flags) -> HMODULE {
            if (std::wstring_view(name) != L"offreg.dll")
                return original(name, file, flags);
            EXPECT_EQ(flags, DWORD{LOAD_LIBRARY_SEARCH_SYSTEM32});
            SetLastError(ERROR_MOD_NOT_FOUND);
            return exists ? LoadLibraryW(besideTests(L"offline_registry.dll").c_str()) : nullptr;
        }};
};

/// A run of clusters: how many, and where they are on the volume; -1 for nowhere.
struct Extent
{
    LONGLONG count;
    LONGLONG at;
};
using Extents = std::vector<Extent>;

/// The file system's answer about a file's extents. Returns what DeviceIoControl returns.
inline BOOL tellExtents(const Extents& extents, LPVOID answer, DWORD size, LPDWORD returned)
{
    *returned = static_cast<DWORD>(16 * (1 + extents.size()));
    if (extents.empty() || *returned > size) {
        SetLastError(extents.empty() ? ERROR_HANDLE_EOF : ERROR_MORE_DATA);
        return FALSE;
    }
    auto& buffer = *static_cast<RETRIEVAL_POINTERS_BUFFER*>(answer);
    buffer.ExtentCount = static_cast<DWORD>(extents.size());
    buffer.StartingVcn.QuadPart = 0;
    LONGLONG next = 0;
    for (std::size_t i = 0; i < extents.size(); ++i) {
        next += extents[i].count;
        (&buffer.Extents[0])[i].NextVcn.QuadPart = next;
        (&buffer.Extents[0])[i].Lcn.QuadPart = extents[i].at;
    }
    return TRUE;
}
