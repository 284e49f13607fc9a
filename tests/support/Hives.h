#pragma once

#include "core/win32/registry/offline/include/HiveFile.h"
#include "support/StandIn.h"
#include "support/Wipe.h"

inline constexpr DWORD kCluster = 4096;

/// A hive file with so many empty bins at its end.
inline Bytes hiveOf(std::uint32_t emptyBins)
{
    const std::vector<std::byte> compact = offline::Hive::create(1).compact();
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

/// The byte that lies so far behind the place where a hive first has that text; throws where it has none.
inline unsigned char& byteBehind(Bytes& hive, std::string_view text, std::ptrdiff_t distance)
{
    const auto found = std::search(hive.begin(), hive.end(), text.begin(), text.end());
    if (found == hive.end())
        throw std::runtime_error("not in the hive: " + std::string(text));
    return *(found + distance);
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
