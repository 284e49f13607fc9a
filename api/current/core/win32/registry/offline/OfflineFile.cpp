#include "core/win32/registry/offline/include/OfflineFile.h"

#include <sddl.h>

#include <algorithm>
#include <cwchar>
#include <memory>

#include "core/win32/registry/offline/include/HiveNames.h"
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

FileStamp stampOf(HANDLE file)
{
    BY_HANDLE_FILE_INFORMATION found;
    if (!GetFileInformationByHandle(file, &found))
        raiseLastError();
    return {FileIdentity::of(found),
            static_cast<std::uint64_t>(found.nFileSizeHigh) << 32U | found.nFileSizeLow,
            static_cast<HiveTime>(found.ftLastWriteTime.dwHighDateTime) << 32U |
                found.ftLastWriteTime.dwLowDateTime,
            found.dwFileAttributes};
}

/// Opens what has that name itself, not a link's target. Not valid when there is nothing.
Win32Handle openItself(const wchar_t* path)
{
    Win32Handle file(CreateFileW(
        path, FILE_READ_ATTRIBUTES, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
        OPEN_EXISTING, FILE_FLAG_OPEN_REPARSE_POINT | FILE_FLAG_BACKUP_SEMANTICS, nullptr));
    if (!file.isValid() && GetLastError() != ERROR_FILE_NOT_FOUND)
        raiseLastError(); // it is unknown what is there
    return file;
}

/// Raises a code unless the file with that name may be replaced.
void requireReplaceable(const std::wstring& path, const std::optional<FileStamp>& known)
{
    const Win32Handle file = openItself(path.c_str());
    if (!file.isValid())
        return;
    const FileStamp found = stampOf(file.get());
    if ((found.attributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0)
        raiseCode(kStoppedOnSymlink);
    if ((found.attributes & FILE_ATTRIBUTE_READONLY) != 0)
        raiseCode(ERROR_ACCESS_DENIED);
    if (!known.has_value() || !found.isOfSame(*known))
        raiseCode(kAnotherFile);
}

/// The final path of an open file or folder.
std::wstring finalPathOf(HANDLE opened)
{
    std::wstring path(MAX_PATH, L'\0');
    for (;;) {
        const DWORD length =
            GetFinalPathNameByHandleW(opened, path.data(), static_cast<DWORD>(path.size()), VOLUME_NAME_DOS);
        if (length == 0)
            raiseLastError();
        const bool isComplete = length < path.size();
        path.resize(length);
        if (isComplete)
            return path;
    }
}

Win32Handle openFolderOf(const std::wstring& path)
{
    const std::wstring folder = path.substr(0, path.rfind(L'\\') + 1);
    Win32Handle opened(CreateFileW(folder.c_str(), FILE_READ_ATTRIBUTES,
                                   FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                                   OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr));
    if (!opened.isValid())
        raiseLastError();
    return opened;
}

/// Whether a file is on a drive of this machine. No if that cannot be told.
bool isLocal(const std::wstring& path) noexcept
{
    try {
        constexpr std::size_t kRoot = 4; // behind \\?\ .
        const std::wstring folder = finalPathOf(openFolderOf(path).get());
        const UINT kind = GetDriveTypeW(folder.substr(kRoot, 3).c_str());
        return kind == DRIVE_FIXED || kind == DRIVE_REMOVABLE || kind == DRIVE_RAMDISK;
    } catch (...) {
        return false;
    }
}

/// While it lives, nobody else on this machine replaces a file in the same folder by this library.
class ReplacementTurn
{
public:
    explicit ReplacementTurn(const std::wstring& path)
    {
        const Win32Handle opened = openFolderOf(path);
        const FileIdentity identity = FileIdentity::of(opened.get());
        const std::wstring name = L"Global\\sysmaint.Replacement." + std::to_wstring(identity.volume) + L'.' +
                                  std::to_wstring(identity.index);
        // Accounts that share a folder share the turn: everybody may wait for it and end their own.
        PSECURITY_DESCRIPTOR made = nullptr;
        if (!ConvertStringSecurityDescriptorToSecurityDescriptorW(L"D:(A;;0x100001;;;WD)", SDDL_REVISION_1,
                                                                  &made, nullptr))
            raiseLastError();
        const std::unique_ptr<void, decltype(&LocalFree)> descriptor(made, &LocalFree);
        SECURITY_ATTRIBUTES security{sizeof security, made, FALSE};
        m_mutex.reset(CreateMutexExW(&security, name.c_str(), 0, SYNCHRONIZE | MUTEX_MODIFY_STATE));
        if (!m_mutex.isValid())
            raiseLastError();
        constexpr DWORD kLongestWait = 10000; // milliseconds
        const DWORD wait = WaitForSingleObject(m_mutex.get(), kLongestWait);
        if (wait != WAIT_OBJECT_0 && wait != WAIT_ABANDONED)
            raiseCode(wait == WAIT_TIMEOUT ? long{ERROR_TIMEOUT} : lastError());
    }
    ReplacementTurn(const ReplacementTurn&) = delete;
    ReplacementTurn& operator=(const ReplacementTurn&) = delete;
    ~ReplacementTurn() { ReleaseMutex(m_mutex.get()); }

private:
    Win32Handle m_mutex;
};

bool isAlive(DWORD process) noexcept
{
    const Win32Handle opened(OpenProcess(SYNCHRONIZE, FALSE, process));
    if (!opened.isValid())
        return GetLastError() != ERROR_INVALID_PARAMETER;
    return WaitForSingleObject(opened.get(), 0) != WAIT_OBJECT_0;
}

/// The process that made a temporary file, NAME.<process>-<number>.tmp, for the file NAME; 0: it is none.
DWORD makerOf(std::wstring_view temporary, std::wstring_view name)
{
    constexpr std::wstring_view kEnd = L".tmp";
    constexpr std::size_t kMostDigits = 9;
    if (temporary.size() <= name.size() + 1 + kEnd.size() || !temporary.ends_with(kEnd) ||
        !temporary.starts_with(name) || temporary[name.size()] != L'.')
        return 0;
    temporary = temporary.substr(name.size() + 1, temporary.size() - name.size() - 1 - kEnd.size());
    const std::size_t dash = temporary.find(L'-');
    const std::wstring_view process = temporary.substr(0, dash);
    const std::wstring_view number = dash == std::wstring_view::npos ? L"" : temporary.substr(dash + 1);
    const auto isNumber = [](std::wstring_view digits) {
        return !digits.empty() && digits.size() <= kMostDigits &&
               digits.find_first_not_of(L"0123456789") == std::wstring_view::npos;
    };
    return isNumber(process) && isNumber(number) ? std::wcstoul(process.data(), nullptr, 10) : 0;
}

/// Deletes what saves of ended processes left for this file; not on a share, where the process may be another
/// machine's. A failure harms nothing: the next save tries
/// again.
void deleteLeftovers(const std::wstring& path)
{
    const std::size_t begin = path.rfind(L'\\') + 1;
    WIN32_FIND_DATAW found;
    const FindHandle search(FindFirstFileW((path + L".*.tmp").c_str(), &found));
    if (!search.isValid())
        return;
    do {
        const DWORD maker = makerOf(&found.cFileName[0], std::wstring_view(path).substr(begin));
        constexpr DWORD kOthers = FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_REPARSE_POINT;
        if (maker != 0 && (found.dwFileAttributes & kOthers) == 0 && !isAlive(maker) && isLocal(path))
            DeleteFileW((path.substr(0, begin) + &found.cFileName[0]).c_str());
    } while (FindNextFileW(search.get(), &found));
}
} // namespace

std::vector<std::byte> readFile(const wchar_t* path, FileStamp* stamp)
{
    const Win32Handle file(CreateFileW(Win32Path(path), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_DELETE,
                                       nullptr, OPEN_EXISTING, FILE_FLAG_SEQUENTIAL_SCAN, nullptr));
    LARGE_INTEGER size{};
    if (!file.isValid() || !GetFileSizeEx(file.get(), &size))
        raiseLastError();
    if (static_cast<unsigned long long>(size.QuadPart) > kMostBytes)
        raiseCode(kTooLarge);
    if (stamp != nullptr)
        *stamp = stampOf(file.get());
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

void replaceFile(const std::wstring& path, const std::vector<std::byte>& bytes,
                 std::optional<FileStamp>& known)
{
    const ReplacementTurn turn(path);
    requireReplaceable(path, known);
    deleteLeftovers(path);
    const std::wstring fresh = writeFree(bytes, [&](int attempt) {
        return path + L'.' + std::to_wstring(GetCurrentProcessId()) + L'-' + std::to_wstring(attempt) +
               L".tmp";
    });
    try {
        const FileStamp stamp = stampOf(openItself(fresh.c_str()).get());
        requireReplaceable(path, known); // writing takes time
        Patience patience;
        while (!MoveFileExW(fresh.c_str(), path.c_str(), MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH))
            if (const DWORD code = GetLastError(); !patience.isWorthAnotherTry(code))
                raiseCode(code);
        known = stamp;
    } catch (...) {
        DeleteFileW(fresh.c_str());
        throw;
    }
}

void keepFile(const std::wstring& path, const std::vector<std::byte>& bytes)
{
    writeFree(bytes,
              [&](int attempt) { return attempt == 1 ? path : path + L'-' + std::to_wstring(attempt); });
}

std::wstring nameOfFile(const std::wstring& path)
{
    std::wstring name = path;
    const std::size_t begin = path.rfind(L'\\') + 1;
    const auto open = [](const std::wstring& item, DWORD flags) {
        return Win32Handle(CreateFileW(item.c_str(), FILE_READ_ATTRIBUTES,
                                       FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                                       OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS | flags, nullptr));
    };
    if (const Win32Handle file = open(path, FILE_FLAG_OPEN_REPARSE_POINT); file.isValid())
        name = finalPathOf(file.get());
    else if (const Win32Handle folder = open(path.substr(0, begin), 0); folder.isValid())
        name = finalPathOf(folder.get()).append(L"\\").append(path, begin);
    std::transform(name.begin(), name.end(), name.begin(), [](wchar_t each) {
        return static_cast<wchar_t>(upperCaseTable()[static_cast<std::uint16_t>(each)]);
    });
    return name;
}

HiveTime currentTime() noexcept
{
    FILETIME time;
    GetSystemTimeAsFileTime(&time);
    return static_cast<HiveTime>(time.dwHighDateTime) << 32U | time.dwLowDateTime;
}
} // namespace offline
