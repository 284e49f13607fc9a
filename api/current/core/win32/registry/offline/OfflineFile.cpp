#include "core/win32/registry/offline/include/OfflineFile.h"

#include "core/win32/utils/objectmanager/include/FileTransfer.h"
#include "core/win32/utils/objectmanager/include/Win32Handle.h"
#include "core/win32/utils/paths/include/OpenedItself.h"
#include "core/win32/utils/paths/include/Patience.h"
#include "core/win32/utils/paths/include/Win32Path.h"

namespace offline {
namespace {
/// The bins of the largest hive, its base block and what may follow them.
constexpr unsigned long long kMostBytes = (1ULL << 31U) + (1ULL << 20U);

long writeWhole(HANDLE file, const std::vector<std::byte>& bytes) noexcept
{
    const long code = filetransfer::write(file, bytes.data(), bytes.size());
    return code == ERROR_SUCCESS && !FlushFileBuffers(file) ? lastError() : code;
}

/// Creates a new file. Raises the bare code, 183 when it exists.
void writeNew(const wchar_t* path, const std::vector<std::byte>& bytes)
{
    Win32Handle file(
        CreateFileW(path, GENERIC_WRITE, 0, nullptr, CREATE_NEW, FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!file.isValid())
        raiseCode(GetLastError() == ERROR_FILE_EXISTS ? ERROR_ALREADY_EXISTS : lastError());
    const long code = writeWhole(file.get(), bytes);
    file.reset();
    if (code == ERROR_SUCCESS)
        return;
    DeleteFileW(path);
    raiseCode(code);
}

/// The same under the first free one of some names, which is returned.
template <class NameOf>
std::wstring writeFree(const std::vector<std::byte>& bytes, NameOf&& nameOf)
{
    constexpr int kAttempts = 1000;
    for (int attempt = 1;; ++attempt) {
        std::wstring name = nameOf(attempt);
        try {
            writeNew(name.c_str(), bytes);
            return name;
        } catch (const long code) {
            if (code != ERROR_ALREADY_EXISTS || attempt == kAttempts)
                throw;
        }
    }
}
} // namespace

std::vector<std::byte> readFile(const wchar_t* path)
{
    const Win32Handle file(CreateFileW(Win32Path(path), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_DELETE,
                                       nullptr, OPEN_EXISTING, FILE_FLAG_SEQUENTIAL_SCAN, nullptr));
    LARGE_INTEGER size{};
    if (!file.isValid() || !GetFileSizeEx(file.get(), &size))
        raiseLastError();
    if (static_cast<unsigned long long>(size.QuadPart) > kMostBytes)
        raiseCode(kTooLarge);
    std::vector<std::byte> bytes(static_cast<std::size_t>(size.QuadPart));
    unsigned long long done = 0;
    requireSuccess(filetransfer::read(file.get(), bytes.data(), bytes.size(), done));
    bytes.resize(static_cast<std::size_t>(done));
    return bytes;
}

void writeFile(const wchar_t* path, const std::vector<std::byte>& bytes)
{
    const Win32Path target(path);
    Win32Handle file(
        CreateFileW(target, GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!file.isValid())
        raiseLastError();
    const long code = writeWhole(file.get(), bytes);
    if (code == ERROR_SUCCESS)
        return;
    file.reset();
    DeleteFileW(target);
    raiseCode(code);
}

void createFile(const wchar_t* path, const std::vector<std::byte>& bytes)
{
    writeNew(Win32Path(path), bytes);
}

void replaceFile(const std::wstring& path, const std::vector<std::byte>& bytes)
{
    const DWORD attributes = GetFileAttributesW(path.c_str());
    if (attributes == INVALID_FILE_ATTRIBUTES && GetLastError() != ERROR_FILE_NOT_FOUND)
        raiseLastError(); // it is unknown what would be replaced
    if (attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0)
        raiseCode(kStoppedOnSymlink);
    const std::wstring fresh = writeFree(bytes, [&](int attempt) {
        return path + L'.' + std::to_wstring(GetCurrentProcessId()) + L'-' + std::to_wstring(attempt) +
               L".tmp";
    });
    Patience patience;
    while (!MoveFileExW(fresh.c_str(), path.c_str(), MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH)) {
        const DWORD code = GetLastError();
        if (patience.isWorthAnotherTry(code))
            continue;
        DeleteFileW(fresh.c_str());
        raiseCode(code);
    }
}

void keepFile(const std::wstring& path, const std::vector<std::byte>& bytes)
{
    writeFree(bytes,
              [&](int attempt) { return attempt == 1 ? path : path + L'-' + std::to_wstring(attempt); });
}

HiveTime currentTime() noexcept
{
    FILETIME time;
    GetSystemTimeAsFileTime(&time);
    return static_cast<HiveTime>(time.dwHighDateTime) << 32U | time.dwLowDateTime;
}
} // namespace offline
