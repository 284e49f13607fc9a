// Queries that access the disk: links, and folders that must not be deleted.

#include <windows.h>

#include <winioctl.h>

#include <algorithm>
#include <cstring>
#include <iterator>
#include <vector>

#include "core/win32/utils/objectmanager/include/Raise.h"
#include "core/win32/utils/objectmanager/include/SystemText.h"
#include "core/win32/utils/paths/include/OpenedItself.h"
#include "core/win32/utils/paths/include/Paths.h"
#include "core/win32/utils/paths/include/Win32Path.h"
#include "core/win32/utils/strings/include/Strings.h"

namespace {
constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;

/// The system's path of what a path leads to; empty when it cannot be opened.
std::wstring finalPath(const std::wstring& path)
{
    const Win32Handle file(CreateFileW(Win32Path(path.c_str()), FILE_READ_ATTRIBUTES, kShareAll, nullptr,
                                       OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr));
    if (!file.isValid())
        return {};
    return paths::normalize(systemText(
        [&](wchar_t* text, DWORD size) { return GetFinalPathNameByHandleW(file.get(), text, size, 0); }));
}

/// A text from the machine's settings; empty when there is none.
std::wstring machineText(const wchar_t* key, const wchar_t* value)
{
    wchar_t text[1024];
    DWORD size = sizeof text;
    const bool found =
        RegGetValueW(HKEY_LOCAL_MACHINE, key, value, RRF_RT_REG_SZ, nullptr, text, &size) == ERROR_SUCCESS;
    return found ? text : L"";
}

std::wstring resolved(const std::wstring& path)
{
    std::wstring found = path.empty() ? path : finalPath(path);
    return found.empty() ? path : found;
}

/// An item's path with all links above it resolved, but not the item's own.
std::wstring placeOf(const std::wstring& path)
{
    const DWORD attributes = GetFileAttributesW(Win32Path(path.c_str()));
    if (attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_REPARSE_POINT) == 0)
        return resolved(path);
    try {
        return std::wstring(joinPath(resolved(paths::parent(path)), paths::fileName(path.c_str())));
    } catch (long) {
        return path; // a root
    }
}

/// The target of a junction or link, from the file system's data. Any length in it may be false.
std::wstring linkText(const unsigned char* data, std::size_t size)
{
    struct
    {
        DWORD tag;
        WORD length, reserved;
        WORD substituteOffset, substituteLength, printOffset, printLength;
    } header;
    if (size < sizeof header)
        raiseCode(ERROR_INVALID_REPARSE_DATA);
    std::memcpy(&header, data, sizeof header);
    const bool symbolic = header.tag == IO_REPARSE_TAG_SYMLINK;
    if (!symbolic && header.tag != IO_REPARSE_TAG_MOUNT_POINT)
        raiseCode(ERROR_REPARSE_TAG_MISMATCH);
    const std::size_t begin = sizeof header + (symbolic ? sizeof(DWORD) : 0); // its flags
    const auto text = [&](std::size_t offset, std::size_t length) {
        if (begin + offset + length > size)
            raiseCode(ERROR_INVALID_REPARSE_DATA);
        std::wstring result(length / sizeof(wchar_t), L'\0');
        if (!result.empty())
            std::memcpy(result.data(), data + begin + offset, result.size() * sizeof(wchar_t));
        return result;
    };
    const std::wstring target = text(header.substituteOffset, header.substituteLength);
    // The other name is for display, and may contain anything.
    return strings::startsWith(target, LR"(\??\)", false) ? paths::fromNative(target) : target;
}
/// Whether it is somebody's profile, or one of the folders in it that hold what all programs keep for him.
bool isProfileFolder(const std::wstring& place, const std::wstring& profiles)
{
    if (!paths::isInside(place, profiles))
        return false;
    std::wstring_view below = std::wstring_view(place).substr(std::min(profiles.size() + 1, place.size()));
    below.remove_prefix(std::min(below.find(L'\\'), below.size())); // the user's name
    for (const std::wstring_view folder :
         {LR"()", LR"(\AppData)", LR"(\AppData\Local)", LR"(\AppData\LocalLow)", LR"(\AppData\Roaming)"})
        if (strings::equalsIgnoringCase(below, folder))
            return true;
    return false;
}

/// A name without what Win32, file systems and servers pass over: dots and blanks at the end, and streams
/// ("name::$INDEX_ALLOCATION" is the folder itself). Empty for a name that has nothing else.
std::wstring plainName(std::wstring_view name)
{
    const std::wstring_view plain = name.substr(0, name.find(L':'));
    return std::wstring(plain.substr(0, plain.find_last_not_of(L". ") + 1));
}

/// The folder that a share of an administrator's stands for ("C$", "ADMIN$"); empty for any other.
std::wstring sharedFolder(const std::wstring& share)
{
    if (strings::equalsIgnoringCase(share, L"ADMIN$"))
        return systemText([](wchar_t* text, DWORD size) { return GetSystemWindowsDirectoryW(text, size); });
    return share.size() == 2 && share.back() == L'$' ? share.substr(0, 1) + L":" : std::wstring();
}

/// A path by a volume's own name ("\\?\Volume{...}\x"), by the name of a drive or folder where it is mounted;
/// empty when there is none. Any other path as it stands, but for devices and further names of the object
/// manager: empty.
std::wstring mountedSpelling(const std::wstring& path)
{
    constexpr std::wstring_view kLiteral = LR"(\\?\)";
    constexpr std::wstring_view kVolume = LR"(\\?\Volume{)";
    const std::wstring_view below = std::wstring_view(path).substr(std::min(kLiteral.size(), path.size()));
    if (!strings::startsWith(path, kLiteral, false) || strings::startsWith(below, LR"(UNC\)", true) ||
        (below.size() > 1 && below[1] == L':'))
        return path;
    const std::size_t end = path.find(L'\\', kLiteral.size());
    if (!strings::startsWith(path, kVolume, true) || end == std::wstring::npos)
        return {};
    wchar_t mounts[MAX_PATH * 2] = {};
    DWORD length = 0;
    if (!GetVolumePathNamesForVolumeNameW(path.substr(0, end + 1).c_str(), mounts,
                                          static_cast<DWORD>(std::size(mounts)), &length))
        return {};
    return mounts + path.substr(mounts[0] != L'\0' ? end + 1 : path.size());
}

/// The same path in the spelling that the folders of the system are known by. Of another server's shares it
/// is what would be protected there.
std::wstring otherSpelling(std::wstring_view path)
{
    constexpr std::wstring_view kLiteral = LR"(\\?\)";
    const bool isLiteral = path.substr(0, kLiteral.size()) == kLiteral;
    bool isShare = !isLiteral && path.substr(0, 2) == LR"(\\)";
    std::vector<std::wstring> names = paths::namesOf(path.substr(isLiteral ? kLiteral.size() : 0));
    if (isLiteral && !names.empty() && strings::equalsIgnoringCase(names.front(), L"UNC")) {
        names.erase(names.begin());
        isShare = true;
    }
    const std::size_t roots = isShare ? 2 : 1;
    if (names.size() < roots)
        return std::wstring(path);
    std::transform(names.begin() + static_cast<std::ptrdiff_t>(roots), names.end(),
                   names.begin() + static_cast<std::ptrdiff_t>(roots), plainName);
    names.erase(std::remove(names.begin() + static_cast<std::ptrdiff_t>(roots), names.end(), L""),
                names.end());
    std::wstring result = isShare ? sharedFolder(plainName(names[1])) : names.front();
    if (result.empty())
        result = LR"(\\)" + names[0] + L"\\" + names[1];
    else if (result.size() != 2 && !isShare)
        result.insert(0, kLiteral);
    for (std::size_t i = roots; i < names.size(); ++i)
        result.append(L"\\").append(names[i]);
    return names.size() == roots ? result + L"\\" : result;
}

bool isProtectedPlace(const std::wstring& path)
{
    constexpr const wchar_t* kVersion = LR"(Software\Microsoft\Windows\CurrentVersion)";
    constexpr const wchar_t* kProfiles = LR"(Software\Microsoft\Windows NT\CurrentVersion\ProfileList)";
    const std::wstring place = paths::literalForm(placeOf(path));
    try {
        static_cast<void>(paths::parent(place));
    } catch (long) {
        return true; // the root of a drive, volume or share
    }
    const std::wstring windows =
        systemText([](wchar_t* text, DWORD size) { return GetSystemWindowsDirectoryW(text, size); });
    const std::wstring profiles = machineText(kProfiles, L"ProfilesDirectory");
    if (paths::isInside(place, resolved(windows)))
        return true;
    for (const std::wstring& folder :
         {windows, profiles, machineText(kProfiles, L"ProgramData"),
          machineText(kVersion, L"ProgramFilesDir"), machineText(kVersion, L"ProgramFilesDir (x86)"),
          machineText(kVersion, L"CommonFilesDir"), machineText(kVersion, L"CommonFilesDir (x86)")})
        if (!folder.empty() && paths::isInside(resolved(folder), place))
            return true;
    return !profiles.empty() && isProfileFolder(place, paths::literalForm(resolved(profiles)));
}
} // namespace

namespace paths {
std::tuple<bool, unsigned long> isReparsePoint(const wchar_t* path)
{
    const Win32Path target(path);
    const DWORD attributes = GetFileAttributesW(target);
    if (attributes == INVALID_FILE_ATTRIBUTES)
        raiseLastError();
    if ((attributes & FILE_ATTRIBUTE_REPARSE_POINT) == 0)
        return {false, 0};
    std::wstring name(target.get());
    while (!name.empty() && name.back() == L'\\') // no search finds "folder\"
        name.pop_back();
    WIN32_FIND_DATAW found;
    const FindHandle search(FindFirstFileW(name.c_str(), &found));
    if (!search.isValid())
        raiseLastError();
    return {true, found.dwReserved0};
}

std::wstring readLinkTarget(const wchar_t* path)
{
    const Win32Handle link(CreateFileW(Win32Path(path), FILE_READ_ATTRIBUTES, kShareAll, nullptr,
                                       OPEN_EXISTING,
                                       FILE_FLAG_OPEN_REPARSE_POINT | FILE_FLAG_BACKUP_SEMANTICS, nullptr));
    if (!link.isValid())
        raiseLastError();
    std::vector<unsigned char> data(MAXIMUM_REPARSE_DATA_BUFFER_SIZE);
    DWORD size = 0;
    if (!DeviceIoControl(link.get(), FSCTL_GET_REPARSE_POINT, nullptr, 0, data.data(),
                         static_cast<DWORD>(data.size()), &size, nullptr))
        raiseLastError();
    return linkText(data.data(), std::min<std::size_t>(size, data.size()));
}
} // namespace paths

bool paths::isProtected(std::wstring_view path)
{
    const std::wstring normal = mountedSpelling(normalize(path));
    if (normal.empty()) // nobody can tell what it leads to
        return true;
    return isProtectedPlace(normal) || isProtectedPlace(otherSpelling(normal));
}
