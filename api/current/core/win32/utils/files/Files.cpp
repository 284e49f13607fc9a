#include "core/win32/utils/files/include/Files.h"

#include <restartmanager.h>
#include <shellapi.h>

#include <algorithm>
#include <memory>
#include <utility>

#include "core/win32/utils/objectmanager/include/FileTransfer.h"
#include "core/win32/utils/objectmanager/include/SystemLibrary.h"
#include "core/win32/utils/paths/include/OpenedItself.h"
#include "core/win32/utils/paths/include/Paths.h"
#include "core/win32/utils/paths/include/Patience.h"
#include "core/win32/utils/paths/include/Win32Path.h"
#include "core/win32/utils/time/include/Time.h"
#include "core/win32/utils/wiper/include/ForceDelete.h"
#include "win32/wiper/include/IWiper.h"

namespace {
constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
constexpr long kDirectoryNotSupported = 336; // not every platform header names it
constexpr std::size_t kPiece = 1U << 20U;

/// Opens the target of a path, also a folder.
Win32Handle open(const wchar_t* path, DWORD access, DWORD share = kShareAll)
{
    Win32Handle file(CreateFileW(Win32Path(path), access, share, nullptr, OPEN_EXISTING,
                                 FILE_FLAG_BACKUP_SEMANTICS, nullptr));
    if (!file.isValid())
        raiseLastError();
    return file;
}

BY_HANDLE_FILE_INFORMATION informationOf(const wchar_t* path)
{
    BY_HANDLE_FILE_INFORMATION information;
    if (!GetFileInformationByHandle(open(path, FILE_READ_ATTRIBUTES).get(), &information))
        raiseLastError();
    return information;
}

/// What a replaced file passes on to its replacement.
struct Inherited
{
    DWORD attributes = FILE_ATTRIBUTE_NORMAL;
    std::vector<unsigned char> rights; // a security descriptor; empty when there is none
};

/// The access list of an open file; empty on file systems without access lists.
std::vector<unsigned char> rightsOf(HANDLE file)
{
    std::vector<unsigned char> descriptor(1024);
    for (;;) {
        DWORD needed = 0;
        if (GetKernelObjectSecurity(file, DACL_SECURITY_INFORMATION, descriptor.data(),
                                    static_cast<DWORD>(descriptor.size()), &needed))
            break;
        const DWORD code = GetLastError();
        if (code == ERROR_NOT_SUPPORTED || code == ERROR_INVALID_FUNCTION)
            return {};
        if (code != ERROR_INSUFFICIENT_BUFFER || needed <= descriptor.size())
            raiseLastError();
        descriptor.resize(needed);
    }
    // The system drops the mark of inherited entries unless asked to keep it.
    constexpr SECURITY_DESCRIPTOR_CONTROL kInherited = SE_DACL_AUTO_INHERITED;
    constexpr SECURITY_DESCRIPTOR_CONTROL kRequested = SE_DACL_AUTO_INHERIT_REQ;
    SECURITY_DESCRIPTOR_CONTROL control = 0;
    DWORD revision = 0;
    if (!GetSecurityDescriptorControl(descriptor.data(), &control, &revision) ||
        ((control & kInherited) != 0 &&
         !SetSecurityDescriptorControl(descriptor.data(), kRequested, kRequested)))
        raiseLastError();
    return descriptor;
}

/// Examines what the new file will replace; raises when that must not be replaced.
Inherited inheritedFrom(const std::wstring& target)
{
    constexpr DWORD kKept = FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM | FILE_ATTRIBUTE_ARCHIVE |
                            FILE_ATTRIBUTE_NOT_CONTENT_INDEXED | FILE_ATTRIBUTE_ENCRYPTED;
    try {
        const OpenedItself old(target.c_str(), READ_CONTROL | FILE_READ_ATTRIBUTES);
        if (old.isLink())
            raiseCode(kStoppedOnSymlink); // the link would be lost
        if (old.isFolder())
            raiseCode(kDirectoryNotSupported); // some systems would replace it with all its content
        if ((old.attributes() & FILE_ATTRIBUTE_READONLY) != 0)
            raiseCode(ERROR_FILE_READ_ONLY); // some systems would replace it
        return {old.attributes() & kKept, rightsOf(old.get())};
    } catch (long code) {
        if (code != ERROR_FILE_NOT_FOUND)
            throw;
        return {};
    }
}

/// Deletes a file, or a link to one, by its Win32 path. Programs that examine new files (virus scanners,
/// indexers) soon close them.
long deleteFile(const wchar_t* target)
{
    constexpr int kAttempts = 5;
    constexpr DWORD kPause = 100; // milliseconds
    for (int attempt = 1;; ++attempt) {
        if (DeleteFileW(target))
            return ERROR_SUCCESS;
        const long code = lastError();
        if ((code != ERROR_SHARING_VIOLATION && code != ERROR_ACCESS_DENIED) || attempt == kAttempts)
            return code;
        Sleep(kPause);
    }
}

/// A new file beside another. The destructor deletes it unless it has replaced the other.
class TemporaryFile
{
public:
    TemporaryFile(const std::wstring& folder, const Inherited& inherited)
    {
        constexpr int kAttempts = 100;
        for (int i = 0; i < kAttempts && !m_file.isValid(); ++i) {
            LARGE_INTEGER now;
            QueryPerformanceCounter(&now);
            // A short name: with the target's name in it, it might be too long for the file system.
            m_path = joinPath(folder, L"~" + std::to_wstring(GetCurrentProcessId()) + L"-" +
                                          std::to_wstring(GetCurrentThreadId()) + L"-" +
                                          std::to_wstring(now.QuadPart) + L".tmp");
            m_file.reset(CreateFileW(m_path.c_str(), GENERIC_WRITE | WRITE_DAC, 0, nullptr, CREATE_NEW,
                                     inherited.attributes, nullptr));
            if (!m_file.isValid() && GetLastError() != ERROR_FILE_EXISTS &&
                GetLastError() != ERROR_ALREADY_EXISTS)
                break;
        }
        if (!m_file.isValid())
            raiseLastError();
        // Before it has any content to be read.
        if (!inherited.rights.empty() &&
            !SetKernelObjectSecurity(m_file.get(), DACL_SECURITY_INFORMATION,
                                     const_cast<unsigned char*>(inherited.rights.data()))) {
            const long code = lastError();
            remove();
            raiseCode(code);
        }
    }
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;
    ~TemporaryFile()
    {
        if (!m_placed)
            remove();
    }

    [[nodiscard]] HANDLE get() const noexcept { return m_file.get(); }
    /// Renames it to `target` in one step, whether or not that exists.
    void place(const std::wstring& target)
    {
        m_file.reset();
        Patience patience; // others may briefly hold either file
        do
            m_placed = MoveFileExW(m_path.c_str(), target.c_str(),
                                   MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH) != 0;
        while (!m_placed && patience.isWorthAnotherTry(GetLastError()));
        if (!m_placed)
            raiseLastError();
    }

private:
    void remove() noexcept
    {
        m_file.reset();
        deleteFile(m_path.c_str());
    }

    std::wstring m_path;
    Win32Handle m_file;
    bool m_placed = false;
};

DWORD attributesOf(const wchar_t* target)
{
    const DWORD attributes = GetFileAttributesW(target);
    if (attributes == INVALID_FILE_ATTRIBUTES)
        raiseLastError();
    return attributes;
}

bool isBinOff(const std::wstring& root)
{
    wchar_t volume[64];
    if (!GetVolumeNameForVolumeMountPointW(root.c_str(), volume, 64))
        return false;
    const std::wstring name(volume);
    const std::size_t open = name.find(L'{');
    const std::size_t close = name.find(L'}');
    if (open == std::wstring::npos || close == std::wstring::npos)
        return false;
    const std::wstring key = LR"(Software\Microsoft\Windows\CurrentVersion\Explorer\BitBucket\Volume\)" +
                             name.substr(open, close - open + 1);
    DWORD off = 0;
    DWORD size = sizeof off;
    return RegGetValueW(HKEY_CURRENT_USER, key.c_str(), L"NukeOnDelete", RRF_RT_REG_DWORD, nullptr, &off,
                        &size) == ERROR_SUCCESS &&
           off != 0;
}
} // namespace

namespace files {
std::tuple<unsigned long long, unsigned long long> sizes(const wchar_t* path)
{
    FILE_STANDARD_INFO information;
    if (!GetFileInformationByHandleEx(open(path, FILE_READ_ATTRIBUTES).get(), FileStandardInfo, &information,
                                      sizeof information))
        raiseLastError();
    return {static_cast<unsigned long long>(information.EndOfFile.QuadPart),
            static_cast<unsigned long long>(information.AllocationSize.QuadPart)};
}

std::tuple<unsigned long long, unsigned long long, unsigned long long> times(const wchar_t* path)
{
    const BY_HANDLE_FILE_INFORMATION information = informationOf(path);
    return {timetext::number(information.ftCreationTime), timetext::number(information.ftLastAccessTime),
            timetext::number(information.ftLastWriteTime)};
}

void setTimes(const wchar_t* path, const unsigned long long* created, const unsigned long long* accessed,
              const unsigned long long* written)
{
    const unsigned long long* given[] = {created, accessed, written};
    FILETIME values[3];
    for (int i = 0; i < 3; ++i) {
        // To the system, 0 and -1 mean: leave the time unchanged, now or for all later operations.
        if (given[i] != nullptr && (*given[i] == 0 || *given[i] >> 63U != 0))
            raiseCode(ERROR_INVALID_PARAMETER);
        values[i] = timetext::fileTime(given[i] != nullptr ? *given[i] : 0);
    }
    const auto value = [&](int i) { return given[i] != nullptr ? &values[i] : nullptr; };
    if (!SetFileTime(open(path, FILE_WRITE_ATTRIBUTES).get(), value(0), value(1), value(2)))
        raiseLastError();
}

std::tuple<unsigned long, unsigned long long, unsigned long> identity(const wchar_t* path)
{
    const BY_HANDLE_FILE_INFORMATION information = informationOf(path);
    return {information.dwVolumeSerialNumber,
            (static_cast<unsigned long long>(information.nFileIndexHigh) << 32U) | information.nFileIndexLow,
            information.nNumberOfLinks};
}

std::vector<unsigned char> readAll(const wchar_t* path, unsigned long long limit)
{
    const Win32Handle file(CreateFileW(Win32Path(path), GENERIC_READ, kShareAll, nullptr, OPEN_EXISTING,
                                       FILE_FLAG_SEQUENTIAL_SCAN, nullptr));
    LARGE_INTEGER size;
    if (!file.isValid() || !GetFileSizeEx(file.get(), &size))
        raiseLastError();
    std::vector<unsigned char> bytes;
    if (static_cast<unsigned long long>(size.QuadPart) <= limit)
        bytes.reserve(static_cast<std::size_t>(size.QuadPart));
    for (;;) { // the file may grow meanwhile
        if (static_cast<unsigned long long>(size.QuadPart) > limit || bytes.size() > limit)
            raiseCode(ERROR_FILE_TOO_LARGE);
        const std::size_t at = bytes.size();
        const std::size_t known = static_cast<std::size_t>(size.QuadPart);
        bytes.resize(at + std::clamp<std::size_t>(known > at ? known - at : 1, 1, kPiece));
        unsigned long long read = 0;
        requireSuccess(filetransfer::read(file.get(), bytes.data() + at, bytes.size() - at, read));
        bytes.resize(at + read);
        if (read == 0)
            return bytes;
    }
}

void writeAtomically(const wchar_t* path, std::basic_string_view<unsigned char> bytes)
{
    const std::wstring target = settledPath(path);
    const Inherited inherited = inheritedFrom(target);
    TemporaryFile file(paths::parent(target), inherited);
    requireSuccess(filetransfer::write(file.get(), bytes.data(), bytes.size()));
    if (!FlushFileBuffers(file.get()))
        raiseLastError();
    file.place(target);
}

unsigned long clearReadOnly(const wchar_t* path)
{
    const Win32Path target(path);
    const DWORD attributes = attributesOf(target);
    if ((attributes & FILE_ATTRIBUTE_READONLY) != 0 &&
        !SetFileAttributesW(target, attributes & ~static_cast<DWORD>(FILE_ATTRIBUTE_READONLY)))
        raiseLastError();
    return attributes;
}

bool deleteForced(const wchar_t* path)
{
    const std::wstring settled = settledPath(path);
    const DWORD attributes = attributesOf(settled.c_str());
    if ((attributes & FILE_ATTRIBUTE_DIRECTORY) != 0)
        raiseCode(kDirectoryNotSupported);
    // Of a link these would be the target's attributes.
    const bool cleared =
        (attributes & (FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_REPARSE_POINT)) == FILE_ATTRIBUTE_READONLY &&
        SetFileAttributesW(settled.c_str(), attributes & ~static_cast<DWORD>(FILE_ATTRIBUTE_READONLY));
    const long code = deleteFile(settled.c_str());
    if (code == ERROR_SUCCESS)
        return false;
    if (code != ERROR_FILE_NOT_FOUND && code != ERROR_PATH_NOT_FOUND) {
        const std::wstring listed = forcedelete::listedPath(settled);
        if (!listed.empty() && forcedelete::append(listed, kWipeZeros, 1) == ERROR_SUCCESS)
            return true;
    }
    if (cleared)
        SetFileAttributesW(settled.c_str(), attributes);
    raiseCode(code);
}

bool isInUse(const wchar_t* path)
{
    const Win32Handle file(CreateFileW(Win32Path(path), GENERIC_READ, 0, nullptr, OPEN_EXISTING,
                                       FILE_FLAG_BACKUP_SEMANTICS, nullptr));
    if (file.isValid())
        return false;
    if (const long code = lastError(); code != ERROR_SHARING_VIOLATION && code != ERROR_LOCK_VIOLATION)
        raiseCode(code);
    return true;
}

std::vector<unsigned long> lockers(const wchar_t* path)
{
    const SystemLibrary library(L"rstrtmgr.dll");
    const std::wstring normal = paths::normalize(path);
    attributesOf(Win32Path(path));
    const wchar_t* names[] = {normal.c_str()};
    DWORD session = 0;
    wchar_t key[CCH_RM_SESSION_KEY + 1] = {};
    requireSuccess(
        static_cast<long>(library.function<decltype(&RmStartSession)>("RmStartSession")(&session, 0, key)));
    const auto end = [&](const DWORD* open) {
        library.function<decltype(&RmEndSession)>("RmEndSession")(*open);
    };
    const std::unique_ptr<const DWORD, decltype(end)> owner(&session, end);
    requireSuccess(static_cast<long>(library.function<decltype(&RmRegisterResources)>("RmRegisterResources")(
        session, 1, names, 0, nullptr, 0, nullptr)));
    std::vector<RM_PROCESS_INFO> processes(16);
    UINT count = 0;
    for (;;) {
        UINT needed = 0;
        count = static_cast<UINT>(processes.size());
        DWORD reasons = 0;
        const DWORD code = library.function<decltype(&RmGetList)>("RmGetList")(session, &needed, &count,
                                                                               processes.data(), &reasons);
        if (code == ERROR_SUCCESS)
            break;
        if (code != ERROR_MORE_DATA)
            raiseCode(static_cast<long>(code));
        processes.resize(std::max<std::size_t>(needed, processes.size() * 2));
    }
    std::vector<unsigned long> result;
    for (UINT i = 0; i < std::min<UINT>(count, static_cast<UINT>(processes.size())); ++i)
        result.push_back(processes[i].Process.dwProcessId);
    return result;
}

void moveToRecycleBin(const wchar_t* path)
{
    // The shell accepts no longer path, and expands wildcards.
    std::wstring names = paths::normalize(path);
    while (names.size() > 3 && names.back() == L'\\') // a folder is not found by that name
        names.pop_back();
    if (names.size() >= MAX_PATH)
        raiseCode(ERROR_FILENAME_EXCED_RANGE);
    if (names.compare(0, 2, LR"(\\)") == 0 || names.find_first_of(L"*?") != std::wstring::npos)
        raiseCode(ERROR_NOT_SUPPORTED);
    if (paths::isProtected(names))
        raiseCode(ERROR_NOT_SUPPORTED);
    attributesOf(names.c_str());
    // Without a bin the shell would delete permanently, without asking.
    const std::wstring root = names.substr(0, 3);
    const UINT kind = GetDriveTypeW(root.c_str());
    if (kind == DRIVE_REMOTE || kind == DRIVE_REMOVABLE || kind == DRIVE_CDROM || isBinOff(root))
        raiseCode(ERROR_NOT_SUPPORTED);
    names.push_back(L'\0'); // a list of one
    SHFILEOPSTRUCTW operation{};
    operation.wFunc = FO_DELETE;
    operation.pFrom = names.c_str();
    operation.fFlags =
        FOF_ALLOWUNDO | FOF_NOCONFIRMATION | FOF_SILENT | FOF_NOERRORUI | FOF_NO_CONNECTED_ELEMENTS;
    SystemLibrary shell(L"shell32.dll");
    const auto operate = shell.function<decltype(&SHFileOperationW)>("SHFileOperationW");
    shell.keep();
    if (const int code = operate(&operation); code != 0)
        raiseCode(code < 0x71 || code > 0xB7 ? code
                                             : ERROR_ACCESS_DENIED); // the shell's own codes tell no more
    if (operation.fAnyOperationsAborted)
        raiseCode(ERROR_CANCELLED);
    if (GetFileAttributesW(names.c_str()) != INVALID_FILE_ATTRIBUTES) // whatever the shell says
        raiseCode(ERROR_ACCESS_DENIED);
}
} // namespace files
