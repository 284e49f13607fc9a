#include "core/win32/registry/defragmenter/include/HiveCopy.h"

#include <winioctl.h>

#include <limits>
#include <vector>

#include "core/win32/utils/objectmanager/include/Exception.h"
#include "core/win32/utils/objectmanager/include/Win32Handle.h"
#include "core/win32/utils/paths/include/Win32Path.h"

constexpr char kHiveCopyHeader[] = "core\\win32\\registry\\defragmenter\\include\\HiveCopy.h";

namespace {
DWORD clusterSizeOf(wchar_t drive)
{
    const wchar_t root[] = {drive, L':', L'\\', L'\0'};
    DWORD sectorsPerCluster = 0;
    DWORD bytesPerSector = 0;
    DWORD freeClusters = 0;
    DWORD clusters = 0;
    if (!GetDiskFreeSpaceW(root, &sectorsPerCluster, &bytesPerSector, &freeClusters, &clusters))
        throw Exception(PLACE(kHiveCopyHeader, "HiveCopy", 118));
    const ULONGLONG size = ULONGLONG{sectorsPerCluster} * bytesPerSector;
    if (size == 0 || size > std::numeric_limits<DWORD>::max())
        throw Exception(PLACE(kHiveCopyHeader, "HiveCopy", 118), ERROR_UNRECOGNIZED_VOLUME);
    return static_cast<DWORD>(size);
}

/// A file's size, and where its clusters are on the volume.
class FileExtents
{
public:
    FileExtents(HANDLE file, DWORD clusterSize)
    {
        const char* const place = PLACE(kHiveCopyHeader, "HiveCopy", 137);
        if (!GetFileSizeEx(file, &m_size))
            throw Exception(place);
        const ULONGLONG extents = static_cast<ULONGLONG>(m_size.QuadPart) / clusterSize + 2;
        const ULONGLONG bytes = extents * kExtentSize;
        if (bytes > std::numeric_limits<DWORD>::max())
            throw Exception(place, ERROR_NOT_ENOUGH_MEMORY);
        m_buffer.resize(bytes / sizeof(ULONGLONG));
        STARTING_VCN_INPUT_BUFFER start{};
        DWORD returned = 0;
        if (!DeviceIoControl(file, FSCTL_GET_RETRIEVAL_POINTERS, &start, sizeof start, m_buffer.data(),
                             static_cast<DWORD>(bytes), &returned, nullptr))
            throw Exception(place);
        if (returned < kExtentSize || get().ExtentCount > returned / kExtentSize - 1)
            throw Exception(place, ERROR_INVALID_DATA);
    }

    [[nodiscard]] LARGE_INTEGER getSize() const noexcept { return m_size; }
    [[nodiscard]] const RETRIEVAL_POINTERS_BUFFER& get() const noexcept
    {
        return *reinterpret_cast<const RETRIEVAL_POINTERS_BUFFER*>(m_buffer.data());
    }

private:
    static constexpr DWORD kExtentSize = 16; // also the size of what precedes the first one

    LARGE_INTEGER m_size{};
    std::vector<ULONGLONG> m_buffer;
};

Win32Handle openVolume(wchar_t drive)
{
    const wchar_t device[] = {L'\\', L'\\', L'.', L'\\', drive, L':', L'\0'};
    Win32Handle volume(CreateFileW(device, GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                   OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!volume.isValid())
        throw Exception(PLACE(kHiveCopyHeader, "HiveCopy", 151));
    return volume;
}

Win32Handle createDestination(const wchar_t* path, LARGE_INTEGER size)
{
    const Win32Path target(path);
    Win32Handle destination(
        CreateFileW(target, GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!destination.isValid() || !SetFilePointerEx(destination.get(), size, nullptr, FILE_BEGIN) ||
        !SetEndOfFile(destination.get()))
        throw Exception(PLACE(kHiveCopyHeader, "HiveCopy", 163));
    return destination;
}

/// Copies one cluster from the volume to its place in the file.
class ClusterCopy
{
public:
    ClusterCopy(HANDLE volume, HANDLE destination, DWORD clusterSize)
        : m_volume(volume), m_destination(destination), m_cluster(clusterSize)
    {
    }

    void run(LONGLONG logical, LONGLONG virtualCluster)
    {
        const auto size = static_cast<DWORD>(m_cluster.size());
        DWORD done = 0;
        if (!SetFilePointerEx(m_volume, offsetOf(logical), nullptr, FILE_BEGIN))
            throw Exception(PLACE(kHiveCopyHeader, "HiveCopy", 184));
        if (!ReadFile(m_volume, m_cluster.data(), size, &done, nullptr))
            throw Exception(PLACE(kHiveCopyHeader, "HiveCopy", 187));
        if (done != size) // the volume ends here
            throw Exception(PLACE(kHiveCopyHeader, "HiveCopy", 187), ERROR_HANDLE_EOF);
        if (!SetFilePointerEx(m_destination, offsetOf(virtualCluster), nullptr, FILE_BEGIN))
            throw Exception(PLACE(kHiveCopyHeader, "HiveCopy", 190));
        if (!WriteFile(m_destination, m_cluster.data(), size, &done, nullptr))
            throw Exception(PLACE(kHiveCopyHeader, "HiveCopy", 193));
        if (done != size)
            throw Exception(PLACE(kHiveCopyHeader, "HiveCopy", 193), ERROR_WRITE_FAULT);
    }

private:
    /// An extent without clusters (-1) lies before the volume's beginning, which the system refuses.
    [[nodiscard]] LARGE_INTEGER offsetOf(LONGLONG cluster) const noexcept
    {
        LARGE_INTEGER offset;
        offset.QuadPart = static_cast<LONGLONG>(static_cast<ULONGLONG>(cluster) * m_cluster.size());
        return offset;
    }

    HANDLE m_volume;
    HANDLE m_destination;
    std::vector<unsigned char> m_cluster;
};
} // namespace

void HiveCopy(const wchar_t* source, const wchar_t* destination, HANDLE stopEvent)
{
    const Win32Path path(source);
    const Win32Handle file(CreateFileW(path, FILE_READ_ATTRIBUTES, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                                       FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!file.isValid())
        throw Exception(PLACE(kHiveCopyHeader, "HiveCopy", 113));
    const wchar_t drive = source[0];
    const DWORD clusterSize = clusterSizeOf(drive);
    const FileExtents extents(file.get(), clusterSize);
    const Win32Handle volume = openVolume(drive);
    const Win32Handle copy = createDestination(destination, extents.getSize());

    const auto requireGoOn = [&] {
        if (isCancelled(stopEvent))
            throw Exception(PLACE(kHiveCopyHeader, "HiveCopy", __LINE__), ERROR_CANCELLED);
    };
    ClusterCopy cluster(volume.get(), copy.get(), clusterSize);
    const RETRIEVAL_POINTERS_BUFFER& found = extents.get();
    LONGLONG virtualCluster = found.StartingVcn.QuadPart;
    for (DWORD extent = 0; extent < found.ExtentCount; ++extent) {
        requireGoOn();
        const auto& [next, first] = found.Extents[extent];
        for (LONGLONG logical = first.QuadPart; virtualCluster < next.QuadPart; ++virtualCluster, ++logical) {
            requireGoOn();
            cluster.run(logical, virtualCluster);
        }
    }
}
