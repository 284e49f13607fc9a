#include "core/win32/utils/wiper/include/ForceDelete.h"

#include <windows.h>

#include <string>

#include "core/win32/utils/objectmanager/include/Win32Handle.h"

namespace {
/// The list's path, always with two backslashes before the name; empty when there is none.
std::wstring listPath()
{
    wchar_t folder[MAX_PATH] = {};
    const UINT length = GetWindowsDirectoryW(folder, MAX_PATH);
    if (length == 0 || length >= MAX_PATH)
        return {};
    std::wstring path = folder;
    if (path.back() != L'\\')
        path += L'\\';
    return path + L"\\ForceDelete.txt";
}

/// Whether the list has no header yet. One that cannot be read is taken for one that has.
bool isNew(const std::wstring& list)
{
    const Win32Handle file(CreateFileW(list.c_str(), GENERIC_READ,
                                       FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                                       OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!file.isValid())
        return GetLastError() == ERROR_FILE_NOT_FOUND;
    LARGE_INTEGER size{};
    return GetFileSizeEx(file.get(), &size) && size.QuadPart == 0;
}

std::wstring lineOf(const wchar_t* path, std::uint32_t method, std::uint32_t passes)
{
    // The last field has no closing star: the reader goes by the line end.
    return std::wstring(L"*FileShred*\t*\\??\\") + path + L"*\t*" +
           std::to_wstring(static_cast<std::int32_t>(method)) + L"*\t*" +
           std::to_wstring(static_cast<std::int32_t>(passes)) + L"\r\n";
}
} // namespace

void ScheduleForceDelete(const wchar_t* path, std::uint32_t method, std::uint32_t passes) noexcept
{
    try {
        const std::wstring list = listPath();
        if (list.empty())
            return;
        std::wstring text;
        if (isNew(list))
            text.assign(L"\0\0\r\n", 4);
        text += lineOf(path, method, passes);
        const Win32Handle file(CreateFileW(list.c_str(), GENERIC_WRITE, FILE_SHARE_WRITE, nullptr,
                                           OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
        if (!file.isValid())
            return;
        // One write at "the end, wherever it is by then": a second writer's line is never written over.
        OVERLAPPED end{};
        end.Offset = end.OffsetHigh = 0xFFFFFFFF;
        DWORD written = 0;
        WriteFile(file.get(), text.data(), static_cast<DWORD>(text.size() * sizeof(wchar_t)), &written, &end);
    } catch (...) { // NOLINT(bugprone-empty-catch): without memory the file is not on the list
    }
}
