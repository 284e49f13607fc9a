#include "core/win32/registry/offline/include/OfflineFile.h"

#include <sddl.h>

#include <algorithm>
#include <cwchar>
#include <memory>
#include <utility>

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

constexpr unsigned kMostNames = 1000;

/// Tries names until one is free: `attempt`, from 1, raises 183 for one that is not.
template <class Attempt>
void underFreeName(Attempt&& attempt)
{
    for (unsigned number = 1;; ++number)
        try {
            return attempt(number);
        } catch (const long code) {
            if (code != ERROR_ALREADY_EXISTS || number == kMostNames)
                throw;
        }
}

/// Raises 183 when a file with the new name exists and `flags` do not let it be replaced.
void moveFile(const wchar_t* path, const wchar_t* newPath, DWORD flags)
{
    Patience patience; // scanners open what is new
    while (!MoveFileExW(path, newPath, flags))
        if (const DWORD code = GetLastError(); !patience.isWorthAnotherTry(code))
            raiseCode(code == ERROR_FILE_EXISTS ? DWORD{ERROR_ALREADY_EXISTS} : code);
}

/// A file of ours that is deleted again unless it is kept.
class NewFile
{
public:
    /// Lets `write` make it under the first free one of the temporary names for `path`.
    template <class Write>
    NewFile(const std::wstring& path, Write&& write)
    {
        underFreeName([&](unsigned attempt) {
            m_name = temporaryName(path, attempt);
            write(m_name.c_str());
        });
    }
    NewFile(const NewFile&) = delete;
    NewFile& operator=(const NewFile&) = delete;
    ~NewFile()
    {
        if (!m_isKept)
            DeleteFileW(m_name.c_str());
    }

    [[nodiscard]] const wchar_t* name() const noexcept { return m_name.c_str(); }
    void keep() noexcept { m_isKept = true; }
    /// Gives it another name. Raises the bare code.
    void move(std::wstring path, DWORD flags)
    {
        moveFile(name(), path.c_str(), flags | MOVEFILE_WRITE_THROUGH);
        m_name.swap(path);
    }

private:
    std::wstring m_name;
    bool m_isKept = false;
};

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

/// Raises 161 for what is open but no file, such as a device.
void requireDisk(HANDLE file)
{
    if (GetFileType(file) != FILE_TYPE_DISK)
        raiseCode(ERROR_BAD_PATHNAME);
}

/// Raises a code unless the file with that name may be replaced.
void requireReplaceable(const std::wstring& path, const std::optional<FileStamp>& known)
{
    const Win32Handle file = openItself(path.c_str());
    if (!file.isValid())
        return;
    requireDisk(file.get());
    const FileStamp found = stampOf(file.get());
    if ((found.attributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0)
        raiseCode(kStoppedOnSymlink);
    if ((found.attributes & FILE_ATTRIBUTE_READONLY) != 0)
        raiseCode(ERROR_ACCESS_DENIED);
    if (!known.has_value() || !found.isOfSame(*known))
        raiseCode(kAnotherFile);
}

/// Whether the file is certainly still the known one.
bool isStill(const std::wstring& path, const std::optional<FileStamp>& known) noexcept
{
    try {
        requireReplaceable(path, known);
        return openItself(path.c_str()).isValid();
    } catch (...) {
        return false;
    }
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

constexpr std::wstring_view kEnd = L".tmp";

/// The process that made a temporary file, NAME.<process>-<number>.tmp, and NAME; 0: it is none.
std::pair<DWORD, std::wstring_view> makerOf(std::wstring_view file)
{
    constexpr std::size_t kMostDigits = 9;
    if (!file.ends_with(kEnd))
        return {};
    file.remove_suffix(kEnd.size());
    const std::size_t dot = file.rfind(L'.');
    if (dot == std::wstring_view::npos)
        return {};
    const std::wstring_view rest = file.substr(dot + 1);
    const std::size_t dash = rest.find(L'-');
    const std::wstring_view process = rest.substr(0, dash);
    const std::wstring_view number = dash == std::wstring_view::npos ? L"" : rest.substr(dash + 1);
    const auto isNumber = [](std::wstring_view digits) {
        return !digits.empty() && digits.size() <= kMostDigits && digits[0] != L'0' &&
               digits.find_first_not_of(L"0123456789") == std::wstring_view::npos;
    };
    if (!isNumber(process) || !isNumber(number))
        return {};
    return {std::wcstoul(process.data(), nullptr, 10), file.substr(0, dot)};
}

std::size_t nameBegin(std::wstring_view path) noexcept
{
    return path.rfind(L'\\') + 1; // from the beginning without one
}

/// The path of what temporary files for a file are named after: they must not be too long for a name.
std::wstring stemOf(const std::wstring& path)
{
    constexpr std::size_t kMostCharacters = 200;
    return path.substr(0, nameBegin(path) + kMostCharacters);
}

/// What saves of ended processes left for this file.
void deleteLeftoversOf(const std::wstring& path)
{
    const std::wstring stem = stemOf(path);
    deleteLeftovers(stem + L".*.tmp", [name = std::wstring_view(stem).substr(nameBegin(stem))](
                                          std::wstring_view found) { return found == name; });
}

/// Whether a settled path leads to pipes or mailslots, of this machine or another.
bool isOfPipes(std::wstring_view settled)
{
    constexpr std::size_t kPrefix = 4;
    settled.remove_prefix(kPrefix);
    const auto takeName = [&settled] {
        std::wstring name(settled.substr(0, settled.find(L'\\')));
        settled.remove_prefix(std::min(name.size() + 1, settled.size()));
        return name;
    };
    std::wstring first = takeName();
    if (_wcsicmp(first.c_str(), L"UNC") == 0) {
        takeName(); // the server
        first = takeName();
    }
    return _wcsicmp(first.c_str(), L"pipe") == 0 || _wcsicmp(first.c_str(), L"mailslot") == 0;
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

void flushFile(const wchar_t* path)
{
    const Win32Handle file(
        CreateFileW(path, GENERIC_WRITE, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr));
    if (!file.isValid() || !FlushFileBuffers(file.get()))
        raiseLastError();
}

std::wstring requireFilePath(const wchar_t* path)
{
    std::wstring settled = settledPath(path);
    const std::wstring name = settled.substr(nameBegin(settled));
    if (name.empty() || name.find(L':') != std::wstring::npos || (settled != path && isDeviceName(name)) ||
        isOfPipes(settled))
        raiseCode(ERROR_BAD_PATHNAME);
    return settled;
}

std::wstring temporaryName(const std::wstring& path, unsigned number)
{
    return stemOf(path).append(L".") + std::to_wstring(GetCurrentProcessId()) + L'-' +
           std::to_wstring(number) + std::wstring(kEnd);
}

std::wstring moveToTemporaryName(const std::wstring& file, const std::wstring& path)
{
    std::wstring name;
    underFreeName([&](unsigned attempt) {
        name = temporaryName(path, attempt);
        moveFile(file.c_str(), name.c_str(), 0);
    });
    return name;
}

void deleteLeftovers(const std::wstring& pattern, const std::function<bool(std::wstring_view)>& isOwn)
{
    const std::wstring folder = pattern.substr(0, nameBegin(pattern));
    WIN32_FIND_DATAW found;
    const FindHandle search(FindFirstFileW(pattern.c_str(), &found));
    if (!search.isValid())
        return;
    do {
        const auto [maker, name] = makerOf(&found.cFileName[0]);
        constexpr DWORD kOthers = FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_REPARSE_POINT;
        if (maker != 0 && (found.dwFileAttributes & kOthers) == 0 && isOwn(name) && !isAlive(maker) &&
            isLocal(folder))
            DeleteFileW((folder + &found.cFileName[0]).c_str());
    } while (FindNextFileW(search.get(), &found));
}

namespace {
std::wstring damagedName(const std::wstring& path, unsigned number)
{
    return path + L".damaged" + (number == 1 ? std::wstring() : L'-' + std::to_wstring(number));
}

/// Whether a copy of a damaged file is there already, from a save that was ended in the middle.
bool isKept(const std::wstring& path, const std::vector<std::byte>& bytes)
{
    for (unsigned number = 1; number <= kMostNames; ++number)
        try {
            const std::wstring name = damagedName(path, number);
            const Win32Handle found = openItself(name.c_str());
            if (!found.isValid())
                return false;
            const FileStamp stamp = stampOf(found.get());
            constexpr DWORD kOthers = FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_REPARSE_POINT;
            if ((stamp.attributes & kOthers) == 0 && stamp.size == bytes.size() &&
                readFile(name.c_str()) == bytes)
                return true;
        } catch (const long code) { // cannot be read: what it holds is unknown
            if (code == ERROR_NOT_ENOUGH_MEMORY)
                throw;
        }
    return false;
}
} // namespace

void createFile(const wchar_t* path, const std::function<void(const wchar_t*)>& write)
{
    const std::wstring target = requireFilePath(path);
    if (openItself(target.c_str()).isValid())
        raiseCode(ERROR_ALREADY_EXISTS);
    deleteLeftoversOf(target);
    NewFile fresh(target, write);
    fresh.move(target, 0);
    fresh.keep();
}

namespace {
void moveInPlace(NewFile& fresh, const std::wstring& path, bool replaces)
{
    try {
        fresh.move(path, replaces ? MOVEFILE_REPLACE_EXISTING : 0);
    } catch (long code) {
        if (!replaces && (code == ERROR_ALREADY_EXISTS || code == ERROR_FILE_EXISTS))
            raiseCode(ERROR_FILE_INVALID); // somebody else's, made meanwhile
        throw;
    }
}
} // namespace

void replaceFile(const std::wstring& path, const std::vector<std::byte>& bytes,
                 std::optional<FileStamp>& known, const std::vector<std::byte>* old)
{
    const ReplacementTurn turn(path);
    requireReplaceable(path, known);
    deleteLeftoversOf(path);
    NewFile fresh(path, [&](const wchar_t* name) { writeNew(name, bytes); });
    std::optional<NewFile> copy; // gets its name when it is whole
    if (old != nullptr && !isKept(path, *old))
        copy.emplace(path, [&](const wchar_t* name) { writeNew(name, *old); });
    const FileStamp stamp = stampOf(openItself(fresh.name()).get());
    requireReplaceable(path, known); // writing takes time
    if (copy.has_value())
        underFreeName([&](unsigned attempt) { copy->move(damagedName(path, attempt), 0); });
    try {
        moveInPlace(fresh, path, known.has_value());
    } catch (...) {
        if (copy.has_value() && !isStill(path, known))
            copy->keep(); // it may be all that is left
        throw;
    }
    fresh.keep();
    if (copy.has_value())
        copy->keep();
    known = stamp;
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
