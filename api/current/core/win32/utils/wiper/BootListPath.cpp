#include "core/win32/utils/wiper/include/BootListPath.h"

#include <windows.h>

#include <algorithm>

#include "core/win32/utils/objectmanager/include/Raise.h"
#include "core/win32/utils/paths/include/OpenedItself.h"
#include "core/win32/utils/paths/include/Win32Path.h"
#include "core/win32/utils/wiper/include/ForceDelete.h"
#include "core/win32/utils/wiper/include/WipeTarget.h"

namespace {
constexpr std::size_t kPrefix = 4; // \\?\ or \??\.
constexpr std::wstring_view kNetworkPrefix = LR"(\\?\UNC\)";
constexpr std::size_t kVolumeRoot = 45; // Volume{ and a GUID of 36 characters, } and a backslash

bool isDriveRoot(std::wstring_view text) noexcept
{
    const wchar_t letter = text.empty() ? L'\0' : static_cast<wchar_t>(text[0] | 0x20);
    return text.size() == 3 && letter >= L'a' && letter <= L'z' && text[1] == L':' && text[2] == L'\\';
}

bool isVolumeRoot(std::wstring_view text) noexcept
{
    return text.size() == kVolumeRoot && _wcsnicmp(text.data(), L"Volume{", 7) == 0 &&
           text.substr(kVolumeRoot - 2) == L"}\\" &&
           text.substr(7, 36).find_first_not_of(L"0123456789abcdefABCDEF-") == std::wstring_view::npos;
}

/// Whether the drive belongs to the machine, and is not this session's name for a folder or a share.
bool isThereAtStart(std::wstring_view root)
{
    const std::wstring drive(root);
    const UINT type = GetDriveTypeW(drive.c_str());
    if (type == DRIVE_REMOTE || type == DRIVE_UNKNOWN || type == DRIVE_NO_ROOT_DIR)
        return false;
    wchar_t device[MAX_PATH] = {};
    return QueryDosDeviceW(drive.substr(0, 2).c_str(), device, MAX_PATH) != 0 &&
           std::wstring_view(device).substr(0, kPrefix) != LR"(\??\)";
}

bool isTheList(HANDLE opened)
{
    try {
        return FileIdentity::of(OpenedItself(bootlist::filePath().c_str()).get()) == FileIdentity::of(opened);
    } catch (long code) {
        if (code != ERROR_FILE_NOT_FOUND && code != ERROR_PATH_NOT_FOUND)
            throw;
        return false;
    }
}

bool isPlainName(std::wstring_view name) noexcept
{
    return !name.empty() && name != L"." && name != L".." &&
           name.find_first_of(L"*?<>\"|/:") == std::wstring_view::npos &&
           std::all_of(name.begin(), name.end(), [](wchar_t c) { return c >= 0x20; });
}

/// The system's final path of what is open, without names that stand for something else; empty when the
/// system does not tell.
std::wstring finalPath(HANDLE opened)
{
    std::wstring path(MAX_PATH, L'\0');
    for (;;) {
        const DWORD length =
            GetFinalPathNameByHandleW(opened, path.data(), static_cast<DWORD>(path.size()), VOLUME_NAME_DOS);
        const bool fits = length < path.size();
        path.resize(length);
        if (fits)
            return path;
    }
}
} // namespace

std::wstring bootlist::filePath()
{
    wchar_t folder[MAX_PATH] = {};
    const UINT length = GetWindowsDirectoryW(folder, MAX_PATH);
    if (length == 0 || length >= MAX_PATH)
        raiseCode(length == 0 ? GetLastError() : ERROR_FILENAME_EXCED_RANGE);
    std::wstring path = folder;
    if (path.back() != L'\\')
        path += L'\\';
    return path + L"\\ForceDelete.txt";
}

std::wstring bootlist::plainPath(std::wstring_view path)
{
    std::wstring text = settledPath(path);
    if (text.size() <= kPrefix)
        return {};
    text.erase(0, kPrefix);
    const std::wstring_view whole(text);
    std::wstring_view rest;
    if (isDriveRoot(whole.substr(0, 3)) && isThereAtStart(whole.substr(0, 3)))
        rest = whole.substr(3);
    else if (isVolumeRoot(whole.substr(0, kVolumeRoot)))
        rest = whole.substr(kVolumeRoot);
    for (;;) {
        const std::size_t end = std::min(rest.find(L'\\'), rest.size());
        if (!isPlainName(rest.substr(0, end)))
            return {};
        if (end == rest.size())
            return text;
        rest.remove_prefix(end + 1);
    }
}

std::wstring forcedelete::listedPath(std::wstring_view path)
{
    const std::wstring target = settledPath(path);
    if (target.size() <= kPrefix)
        return {};
    if (!isDriveRoot(std::wstring_view(target).substr(kPrefix, 3)) && bootlist::plainPath(path).empty())
        return {};
    try {
        const OpenedItself found(target.c_str());
        if (found.isFolder() || found.isLink() || isTheList(found.get()))
            return {};
        const std::wstring final = finalPath(found.get());
        if (final.substr(0, kNetworkPrefix.size()) == kNetworkPrefix)
            return {};
        // A letter that this session gives to a folder does not exist at the next start; the folder does.
        std::wstring text = bootlist::plainPath(target);
        return !text.empty() ? text : bootlist::plainPath(final);
    } catch (long) {
        return {}; // what does not exist or cannot be examined
    }
}
