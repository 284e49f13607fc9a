#pragma once

#include <windows.h>

#include <winioctl.h>

#include <cstring>

#include "core/win32/registry/offline/include/HiveFile.h"
#include "support/Wipe.h"

inline constexpr DWORD kCluster = 4096;

/// A hive file with an empty root key in one bin, and so many empty bins.
inline Bytes hiveOf(std::uint32_t emptyBins)
{
    const std::vector<std::byte> compact = offline::Hive::create(1).compact();
    EXPECT_EQ(compact.size(), 2 * kCluster);
    Bytes hive(std::size_t{kCluster} * (2 + emptyBins));
    std::memcpy(hive.data(), compact.data(), compact.size());
    const auto put = [&](std::size_t offset, std::uint32_t number) {
        std::memcpy(&hive.at(offset), &number, sizeof number);
    };
    for (std::uint32_t bin = 1; bin <= emptyBins; ++bin) {
        const std::size_t at = kCluster * (1 + std::size_t{bin});
        std::copy_n("hbin", 4, hive.begin() + static_cast<std::ptrdiff_t>(at));
        put(at + 4, kCluster * bin);
        put(at + 8, kCluster);
        put(at + 32, kCluster - 32); // one free cell
    }
    const std::uint32_t size = kCluster * (1 + emptyBins);
    put(40, size); // of all bins; the checksum has every word by exclusive or
    std::uint32_t sum = 0;
    std::memcpy(&sum, &hive[508], sizeof sum);
    put(508, sum ^ kCluster ^ size);
    return hive;
}

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

using Controls = Replaced<"DeviceIoControl", decltype(&DeviceIoControl)>;
