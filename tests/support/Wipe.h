#pragma once

#include "core/win32/utils/wiper/api.h"
#include "support/Scan.h"

#include <winioctl.h>

using Bytes = std::vector<unsigned char>;

inline void writeBytes(const std::wstring& path, const Bytes& bytes)
{
    std::ofstream file(std::filesystem::path(path), std::ios::binary);
    file.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    EXPECT_TRUE(file.flush());
}

/// All bytes of a file; none for a missing one.
inline Bytes readBytes(const std::wstring& path)
{
    std::ostringstream text;
    text << std::ifstream(std::filesystem::path(path), std::ios::binary).rdbuf();
    return Bytes(text.view().begin(), text.view().end());
}

/// The same of UTF-16; half a character, as hostile files have it, may be added.
inline void writeText(const std::wstring& path, const std::wstring& text, bool isOdd = false)
{
    const auto* bytes = reinterpret_cast<const unsigned char*>(text.c_str());
    writeBytes(path, Bytes(bytes, bytes + text.size() * sizeof(wchar_t) + (isOdd ? 1 : 0)));
}
inline std::wstring readText(const std::wstring& path)
{
    const Bytes bytes = readBytes(path);
    return {reinterpret_cast<const wchar_t*>(bytes.data()), bytes.size() / sizeof(wchar_t)};
}

/// The names of a folder's entries, each with a blank behind it.
inline std::wstring entriesOf(const std::wstring& folder)
{
    std::wstring names;
    for (const auto& entry : std::filesystem::directory_iterator(folder))
        names += entry.path().filename().wstring() + L" ";
    return names;
}

inline bool isThere(const std::wstring& path)
{
    return GetFileAttributesW(path.c_str()) != INVALID_FILE_ATTRIBUTES;
}

inline std::wstring bootListPath()
{
    wchar_t folder[MAX_PATH];
    GetWindowsDirectoryW(folder, MAX_PATH);
    return std::wstring(folder) + L"\\ForceDelete.txt";
}

/// What is on the boot-time list, which is empty afterwards.
inline std::wstring takeBootList()
{
    std::wstring list = readText(bootListPath());
    DeleteFileW(bootListPath().c_str());
    return list;
}

inline std::uint64_t positionOf(HANDLE file)
{
    LARGE_INTEGER at{};
    SetFilePointerEx(file, {}, &at, FILE_CURRENT);
    return static_cast<std::uint64_t>(at.QuadPart);
}

using Opens = Replaced<"CreateFileW", HANDLE(WINAPI*)(LPCWSTR, DWORD, DWORD, LPSECURITY_ATTRIBUTES, DWORD,
                                                      DWORD, HANDLE)>; // the DLL exports one of that name
using Deletions = Replaced<"DeleteFileW", decltype(&DeleteFileW)>;
using Removals = Replaced<"RemoveDirectoryW", decltype(&RemoveDirectoryW)>;
using Controls = Replaced<"DeviceIoControl", decltype(&DeviceIoControl)>;
using Settings = Replaced<"SetFileInformationByHandle", decltype(&SetFileInformationByHandle)>;
using Writes = Replaced<"WriteFile", decltype(&WriteFile)>;
using Flushes = Replaced<"FlushFileBuffers", decltype(&FlushFileBuffers)>;
using Looks = Replaced<"GetFileInformationByHandle", decltype(&GetFileInformationByHandle)>;
using Attributes = Replaced<"GetFileAttributesW", decltype(&GetFileAttributesW)>;
using FreeSpaceQueries = Replaced<"GetDiskFreeSpaceExW", decltype(&GetDiskFreeSpaceExW)>;

/// A hook that tells of a full volume.
inline const auto isFull = [](auto, LPCWSTR, auto*, auto*, auto* free) { return free->QuadPart = 0, TRUE; };

/// A hook for files that have one attribute more. A missing file has all bits set.
inline auto markedBy(DWORD mark)
{
    return [mark](auto original, LPCWSTR path) { return original(path) | mark; };
}

constexpr std::uint64_t kChunk = 1048576;
constexpr DWORD kOpenToWipe = 0x04000080; // the flags of the open that deletes

/// A wiper, a folder for it, and an empty boot-time list.
class WipeTest : public testing::Test
{
protected:
    WipeTest() { takeBootList(); }
    ~WipeTest() override
    {
        onChunk = nullptr;
        takeBootList();
    }

    [[nodiscard]] std::wstring at(const std::wstring& name) const { return folder + L"\\" + name; }
    long wipe(std::uint32_t kind, const std::wstring& path, std::uint32_t method = kWipeZeros,
              std::uint32_t passes = 1, HANDLE event = nullptr)
    {
        progress = {0, total};
        return wiper->Wipe(callback, &progress, kind, path.c_str(), &stack, nullptr, method, passes, event);
    }
    static void callback(WipeProgress*)
    {
        if (onChunk)
            onChunk();
    }

    static inline std::function<void()> onChunk;
    std::wstring folder = scratchFolder();
    std::unique_ptr<IWiper> wiper{DllGetWiper()};
    DirectoryStack stack;
    WipeProgress progress;
    std::uint64_t total = 0; // to begin with
    Opens files;
};
