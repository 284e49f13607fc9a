#include "core/win32/utils/wiper/include/ForceDelete.h"

#include <windows.h>

#include <algorithm>
#include <string>
#include <string_view>

#include "core/win32/utils/objectmanager/include/Boundary.h"
#include "core/win32/utils/objectmanager/include/FileTransfer.h"
#include "core/win32/utils/objectmanager/include/Win32Handle.h"
#include "core/win32/utils/strings/include/CaseFolding.h"
#include "core/win32/utils/wiper/include/BootListPath.h"

namespace {
constexpr std::wstring_view kTag = L"*FileShred*\t*\\??\\";
constexpr std::wstring_view kFieldEnd = L"*\t*";
constexpr std::wstring_view kLineEnd = L"\r\n";
constexpr DWORD kPatience = 2000; // milliseconds

/// Repeats `step`, which returns a code, as long as somebody else holds what it needs.
template <class Step>
DWORD patiently(Step&& step)
{
    const ULONGLONG begin = GetTickCount64();
    for (DWORD pause = 1;; pause = pause < 32 ? pause * 2 : pause) {
        const DWORD code = step();
        const bool isHeld = code == ERROR_SHARING_VIOLATION || code == ERROR_LOCK_VIOLATION;
        if (!isHeld || GetTickCount64() - begin >= kPatience)
            return code;
        Sleep(pause);
    }
}

Win32Handle openList(DWORD access, DWORD share, DWORD disposition)
{
    const std::wstring list = bootlist::filePath();
    Win32Handle file;
    const DWORD code = patiently([&]() -> DWORD {
        file.reset(
            CreateFileW(list.c_str(), access, share, nullptr, disposition, FILE_ATTRIBUTE_NORMAL, nullptr));
        return file.isValid() ? ERROR_SUCCESS : GetLastError();
    });
    requireSuccess(static_cast<long>(code));
    return file;
}

/// Keeps the other writers of this library, in all processes, from reading the list's size and appending to
/// it. The range is far beyond every line, so nobody else is blocked; closing the file unlocks it.
void lockList(HANDLE file)
{
    const DWORD code = patiently([&]() -> DWORD {
        OVERLAPPED place{};
        place.OffsetHigh = 0x40000000;
        const BOOL locked =
            LockFileEx(file, LOCKFILE_EXCLUSIVE_LOCK | LOCKFILE_FAIL_IMMEDIATELY, 0, 1, 0, &place);
        return locked ? ERROR_SUCCESS : GetLastError();
    });
    requireSuccess(static_cast<long>(code));
}

ULONGLONG sizeOf(HANDLE file)
{
    LARGE_INTEGER size{};
    if (!GetFileSizeEx(file, &size))
        raiseLastError();
    return static_cast<ULONGLONG>(size.QuadPart);
}

/// How the list ends, as long as it has this size.
struct ListEnd
{
    ULONGLONG size = 0;
    bool isLineEnd = true;
};

/// When the list cannot be read now, somebody is appending to it and has already checked its end.
ListEnd lookAtEnd()
{
    ListEnd found;
    const Win32Handle file(CreateFileW(bootlist::filePath().c_str(), GENERIC_READ,
                                       FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                                       OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!file.isValid())
        return found;
    found.size = sizeOf(file.get());
    const DWORD length = kLineEnd.size() * sizeof(wchar_t);
    wchar_t last[2] = {};
    OVERLAPPED place{};
    const ULONGLONG offset = found.size < length ? 0 : found.size - length;
    place.Offset = static_cast<DWORD>(offset);
    place.OffsetHigh = static_cast<DWORD>(offset >> 32U);
    DWORD read = 0;
    const BOOL succeeded = ReadFile(file.get(), last, length, &read, &place);
    found.isLineEnd = !succeeded || (read == length && std::wstring_view(last, 2) == kLineEnd);
    return found;
}

/// What must be written before a line: the header of a new list; or the end of a line that somebody could
/// write only in part, maybe up to half a character, so that it does not pass for a whole one.
std::string beginOf(ULONGLONG size, const ListEnd& end)
{
    constexpr char kHeader[] = {0, 0, 0, 0, '\r', 0, '\n', 0};
    constexpr char kMissingEnd[] = {0, '?', 0, '\r', 0, '\n', 0}; // the first completes half a character
    if (size == 0)
        return {kHeader, sizeof kHeader};
    if (size != end.size || end.isLineEnd)
        return {};
    return size % sizeof(wchar_t) != 0 ? std::string(kMissingEnd, sizeof kMissingEnd)
                                       : std::string(kMissingEnd + 1, sizeof kMissingEnd - 1);
}

void appendText(HANDLE file, ULONGLONG size, const std::string& text)
{
    // One write at the end, wherever that is by then: another writer's line is never overwritten.
    OVERLAPPED end{};
    end.Offset = end.OffsetHigh = 0xFFFFFFFF;
    DWORD written = 0;
    const BOOL succeeded = WriteFile(file, text.data(), static_cast<DWORD>(text.size()), &written, &end);
    if (succeeded && written == text.size())
        return;
    const DWORD code = succeeded ? ERROR_DISK_FULL : GetLastError();
    // A part of a line would spoil the next one.
    FILE_END_OF_FILE_INFO before{};
    before.EndOfFile.QuadPart = static_cast<LONGLONG>(size);
    if (written != 0 && sizeOf(file) == size + written)
        SetFileInformationByHandle(file, FileEndOfFileInfo, &before, sizeof before);
    raiseCode(code);
}

/// Whether a line ends as append ends it: two numbers with a field separator between them.
bool hasNumbers(std::wstring_view fields)
{
    const auto isNumber = [](std::wstring_view text) {
        text.remove_prefix(text.substr(0, 1) == L"-" ? 1 : 0);
        return !text.empty() && text.find_first_not_of(L"0123456789") == std::wstring_view::npos;
    };
    const std::size_t end = fields.find(kFieldEnd);
    return end != std::wstring_view::npos && isNumber(fields.substr(0, end)) &&
           isNumber(fields.substr(end + kFieldEnd.size()));
}

std::wstring readList()
{
    const Win32Handle file =
        openList(GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, OPEN_EXISTING);
    std::wstring text(static_cast<std::size_t>(sizeOf(file.get())) / sizeof(wchar_t), L'\0');
    unsigned long long read = 0;
    requireSuccess(filetransfer::read(file.get(), text.data(), text.size() * sizeof(wchar_t), read));
    text.resize(static_cast<std::size_t>(read) / sizeof(wchar_t));
    return text;
}
} // namespace

long forcedelete::append(const std::wstring& listedPath, std::uint32_t method, std::uint32_t passes) noexcept
{
    return boundary::statusFrame([&]() -> long {
        // The last field has no closing star: the reader looks for the line end.
        std::wstring line(kTag);
        line.append(listedPath).append(kFieldEnd);
        line.append(std::to_wstring(static_cast<std::int32_t>(method))).append(kFieldEnd);
        line.append(std::to_wstring(static_cast<std::int32_t>(passes))).append(kLineEnd);
        const ListEnd end = lookAtEnd();
        const Win32Handle file = openList(GENERIC_WRITE, FILE_SHARE_WRITE, OPEN_ALWAYS);
        lockList(file.get());
        const ULONGLONG size = sizeOf(file.get());
        std::string bytes = beginOf(size, end);
        if ((size + bytes.size()) % sizeof(wchar_t) != 0) // half a character that somebody wrote just now
            return ERROR_INVALID_DATA;
        bytes.append(reinterpret_cast<const char*>(line.data()), line.size() * sizeof(wchar_t));
        appendText(file.get(), size, bytes);
        return ERROR_SUCCESS;
    });
}

bool forcedelete::isScheduled(std::wstring_view path)
{
    std::wstring listed = bootlist::plainPath(path);
    if (listed.empty())
        listed = forcedelete::listedPath(path); // by the drive letter of a folder
    if (listed.empty())
        return false;
    std::wstring text;
    try {
        text = readList();
    } catch (long code) {
        if (code == ERROR_FILE_NOT_FOUND)
            return false;
        throw;
    }
    std::wstring wanted(kTag);
    wanted.append(listed).append(kFieldEnd);
    const casefolding::FoldedText folded(wanted);
    std::wstring_view rest(text);
    for (std::size_t end = rest.find(kLineEnd); end != std::wstring_view::npos; end = rest.find(kLineEnd)) {
        // After a line that was written only in part, the next one begins with its tag.
        const std::size_t begin = rest.substr(0, end).rfind(kTag);
        const std::wstring_view whole =
            rest.substr(0, end).substr(begin == std::wstring_view::npos ? 0 : begin);
        const casefolding::FoldedText line(whole.substr(0, wanted.size()));
        if (line.view() == folded.view() && hasNumbers(whole.substr(wanted.size())))
            return true;
        rest.remove_prefix(end + kLineEnd.size());
    }
    return false;
}

void ScheduleForceDelete(const wchar_t* path, std::uint32_t method, std::uint32_t passes) noexcept
{
    boundary::statusFrame([&]() -> long {
        const std::wstring listed = forcedelete::listedPath(path);
        return listed.empty() ? ERROR_INVALID_NAME : forcedelete::append(listed, method, passes);
    });
}
