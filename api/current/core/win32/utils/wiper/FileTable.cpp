#include "core/win32/utils/wiper/include/FileTable.h"

#include <winioctl.h>

#include <algorithm>
#include <array>
#include <cwchar>
#include <iterator>
#include <optional>
#include <string>
#include <utility>

#include "core/win32/utils/objectmanager/include/Boundary.h"
#include "core/win32/utils/objectmanager/include/Raise.h"
#include "core/win32/utils/paths/include/OpenedItself.h"
#include "core/win32/utils/paths/include/Win32Path.h"

namespace {
constexpr wchar_t kFolderName[] = L"FileTable.qmx";
// Small enough to be kept in the table beside a name of eight characters, with records of 1 KiB.
constexpr DWORD kContentSize = 600;
// Files between two checks of the table. In a folder, so many entries take far less than half a KiB each; in
// a table, so many records take more.
constexpr std::uint32_t kBatch = 256;
constexpr std::uint64_t kGrowth = kBatch * 512ULL;

/// The folder of the small files. The destructor always deletes it with all of them.
class SmallFiles
{
public:
    explicit SmallFiles(const std::wstring& folder) : m_folder(folder), m_path(folder + L"\\00000000")
    {
        if (!CreateDirectoryW(Win32Path(m_folder.c_str()), nullptr))
            raiseLastError();
        try {
            // Held, so nobody can replace it with a link: only what was created here is deleted below.
            m_held.emplace(Win32Path(m_folder.c_str()), FILE_LIST_DIRECTORY | FILE_READ_ATTRIBUTES,
                           FILE_SHARE_READ | FILE_SHARE_WRITE);
            if (m_held->isLink() || !m_held->isFolder())
                raiseCode(kStoppedOnSymlink);
        } catch (...) {
            m_held.reset();
            RemoveDirectoryW(Win32Path(m_folder.c_str()));
            throw;
        }
        SetFileAttributesW(Win32Path(m_folder.c_str()), FILE_ATTRIBUTE_HIDDEN); // only cosmetic
    }
    SmallFiles(const SmallFiles&) = delete;
    SmallFiles& operator=(const SmallFiles&) = delete;
    ~SmallFiles() { remove(); }

    [[nodiscard]] HANDLE folder() const noexcept { return m_held->get(); }

    /// Creates one more.
    void add()
    {
        static constexpr std::array<unsigned char, kContentSize> kContent{};
        const Win32Handle file(CreateFileW(Win32Path(pathOf(m_count)), GENERIC_WRITE, 0, nullptr, CREATE_NEW,
                                           FILE_ATTRIBUTE_NORMAL, nullptr));
        if (!file.isValid())
            raiseLastError();
        ++m_count;
        DWORD written = 0;
        if (!WriteFile(file.get(), kContent.data(), kContentSize, &written, nullptr))
            raiseLastError();
    }

    /// Deletes everything. Returns the code of the first failure; the rest is deleted anyway.
    long remove() noexcept
    {
        long result = ERROR_SUCCESS;
        DWORD longestPause = 512; // in milliseconds, until one file was held that long
        const auto step = [&](auto&& body) {
            const long code = boundary::statusFrame([&]() -> long {
                if (!body())
                    raiseLastError();
                return ERROR_SUCCESS;
            });
            result = result != ERROR_SUCCESS ? result : code;
        };
        for (; m_count != 0; --m_count)
            step([&] {
                const std::wstring path = pathOf(m_count - 1);
                const Win32Path target(path.c_str());
                for (DWORD pause = 1; !DeleteFileW(target); pause *= 2) { // virus scanners hold new files
                    if (pause > longestPause) {
                        longestPause = 0;
                        return false;
                    }
                    const DWORD code = GetLastError();
                    Sleep(pause);
                    SetLastError(code);
                }
                return true;
            });
        if (m_held) {
            m_held.reset();
            step([&] { return RemoveDirectoryW(Win32Path(m_folder.c_str())); });
        }
        return result;
    }

private:
    // Overwrites the previous result. All paths have the same length, so none needs memory and every file can
    // always be removed.
    [[nodiscard]] const wchar_t* pathOf(std::uint32_t number) noexcept
    {
        wchar_t name[9];
        std::swprintf(name, std::size(name), L"%08X", number);
        std::copy_n(name, 8, m_path.end() - 8);
        return m_path.c_str();
    }

    std::wstring m_folder; // absolute, as are the paths below it: Win32Path does not change them
    std::wstring m_path;
    std::optional<OpenedItself> m_held;
    std::uint32_t m_count = 0;
};

/// Detects when the table has no free record left.
class TableGauge
{
public:
    TableGauge(HANDLE folder, const std::wstring& volume) : m_folder(folder), m_volume(volume)
    {
        m_knowsTable = readTable(m_records);
        m_free = readFree();
    }

    /// Call it after every kBatch files.
    bool isFull()
    {
        std::uint64_t records = 0;
        if (m_knowsTable && readTable(records))
            return records > m_records;
        // Elsewhere the space that a growing table takes shows it. Where small files have clusters of their
        // own there is no table to fill; the first batch shows that in the same way.
        const std::uint64_t before = std::exchange(m_free, readFree());
        // A volume on which not even the folder's entries take space shows nothing.
        return before == m_free || (before > m_free && before - m_free >= kGrowth);
    }

private:
    bool readTable(std::uint64_t& bytes) const
    {
        NTFS_VOLUME_DATA_BUFFER data{};
        DWORD returned = 0;
        if (!DeviceIoControl(m_folder, FSCTL_GET_NTFS_VOLUME_DATA, nullptr, 0, &data, sizeof data, &returned,
                             nullptr) ||
            data.MftValidDataLength.QuadPart <= 0)
            return false;
        bytes = static_cast<std::uint64_t>(data.MftValidDataLength.QuadPart);
        return true;
    }

    [[nodiscard]] std::uint64_t readFree() const
    {
        ULARGE_INTEGER bytes{};
        if (!GetDiskFreeSpaceExW(Win32Path(m_volume.c_str()), nullptr, nullptr, &bytes))
            raiseLastError();
        return bytes.QuadPart;
    }

    HANDLE m_folder;
    const std::wstring& m_volume;
    bool m_knowsTable = false;
    std::uint64_t m_records = 0;
    std::uint64_t m_free = 0;
};
} // namespace

long filetable::wipe(const wchar_t* volume, WipeCallback callback, WipeProgress* progress, HANDLE cancelEvent)
{
    if (volume == nullptr || *volume == L'\0')
        raiseCode(ERROR_INVALID_PARAMETER);
    const auto requireGoOn = [&] {
        if (isCancelled(cancelEvent))
            raiseCode(ERROR_CANCELLED);
    };
    requireGoOn(); // before the folder is made
    const std::wstring root = settledPath(volume);
    SmallFiles files(settledPath(std::wstring(volume) + kFolderName));
    TableGauge gauge(files.folder(), root);
    for (std::uint32_t made = 0; made < kMostFiles; ++made) {
        if (made != 0)
            requireGoOn();
        files.add();
        if ((made + 1) % kBatch != 0)
            continue;
        if (callback != nullptr && progress != nullptr) {
            progress->done += std::uint64_t{kBatch} * kContentSize;
            progress->total = std::max(progress->total, progress->done);
            const OutsideLibrary outside;
            callback(progress);
        }
        if (gauge.isFull())
            break;
    }
    return files.remove();
}
