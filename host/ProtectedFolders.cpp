#include "ProtectedFolders.h"

#include <algorithm>
#include <iterator>
#include <vector>

#include "Command.h"
#include "Console.h"

namespace {
/// One folder by its identity and by the system's path for it; either may be unknown.
struct Place
{
    bool known = false;
    DWORD volume = 0;
    DWORD indexHigh = 0;
    DWORD indexLow = 0;
    std::wstring path;

    [[nodiscard]] bool is(const Place& other) const
    {
        return (known && other.known && volume == other.volume && indexHigh == other.indexHigh &&
                indexLow == other.indexLow) ||
               (!path.empty() &&
                CompareStringOrdinal(path.c_str(), -1, other.path.c_str(), -1, TRUE) == CSTR_EQUAL);
    }
};

/// The target of a path. `itself`: what the path names, even if that is a link.
Place placeOf(const std::wstring& literal, bool itself)
{
    Place place;
    const OwnedHandle file(
        ::CreateFileW(literal.c_str(), FILE_READ_ATTRIBUTES,
                      FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr, OPEN_EXISTING,
                      FILE_FLAG_BACKUP_SEMANTICS | (itself ? FILE_FLAG_OPEN_REPARSE_POINT : 0), nullptr));
    if (file.get() == INVALID_HANDLE_VALUE)
        return place;
    BY_HANDLE_FILE_INFORMATION info;
    if (GetFileInformationByHandle(file.get(), &info)) {
        place.known = true;
        place.volume = info.dwVolumeSerialNumber;
        place.indexHigh = info.nFileIndexHigh;
        place.indexLow = info.nFileIndexLow;
    }
    std::wstring full(32768, L'\0');
    full.resize(GetFinalPathNameByHandleW(file.get(), full.data(), static_cast<DWORD>(full.size()), 0));
    place.path = full;
    return place;
}

/// Appends the targets of the folders above a literal path, from the nearest to the root.
void appendAbove(std::vector<Place>& places, const std::wstring& literal)
{
    constexpr std::size_t kPrefix = 4;
    for (std::size_t end = literal.find_last_of(L'\\'); end != std::wstring::npos && end > kPrefix;
         end = literal.find_last_of(L'\\', end - 1)) {
        std::wstring folder = literal.substr(0, end);
        if (folder.find(L'\\', kPrefix) == std::wstring::npos)
            folder += L'\\'; // a root keeps its backslash
        places.push_back(placeOf(folder, false));
        if (places.back().path.empty())
            places.back().path = folder;
    }
}

/// Every folder that contains something, by the given path and by the system's.
std::vector<Place> placesAbove(const std::wstring& literal)
{
    std::vector<Place> places;
    appendAbove(places, literal);
    if (!places.empty() && places.front().path.size() > 4)
        appendAbove(places, places.front().path + L"\\.");
    return places;
}

struct ProtectedFolder
{
    const wchar_t* name;
    bool withContent; // also its content
    Place place;
    std::vector<Place> above;
};

/// The text of a value below HKEY_LOCAL_MACHINE, expanded; empty when there is none.
std::wstring machineText(const wchar_t* key, const wchar_t* value)
{
    wchar_t text[1024];
    DWORD size = sizeof text;
    return RegGetValueW(HKEY_LOCAL_MACHINE, key, value, RRF_RT_REG_SZ, nullptr, text, &size) == ERROR_SUCCESS
               ? text
               : L"";
}

/// A folder with its name for messages.
struct NamedFolder
{
    const wchar_t* name;
    std::wstring path;
    bool withContent = false;
};

/// The users' profiles, wherever they are.
void appendProfiles(std::vector<NamedFolder>& folders, const std::wstring& listKey)
{
    HKEY list = nullptr;
    if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, listKey.c_str(), 0, KEY_ENUMERATE_SUB_KEYS, &list) != ERROR_SUCCESS)
        return;
    wchar_t user[256]; // no key has a longer name
    for (DWORD i = 0, size = 256;
         RegEnumKeyExW(list, i, user, &size, nullptr, nullptr, nullptr, nullptr) == ERROR_SUCCESS;
         ++i, size = 256)
        folders.push_back(
            {L"a user's profile", machineText((listKey + L"\\" + user).c_str(), L"ProfileImagePath")});
    RegCloseKey(list);
}

std::wstring windowsFolder(UINT(WINAPI* ask)(LPWSTR, UINT))
{
    wchar_t path[MAX_PATH];
    const UINT length = ask(path, MAX_PATH);
    if (length == 0 || length >= MAX_PATH)
        throw static_cast<long>(ERROR_PATH_NOT_FOUND);
    return path;
}

// The shell could tell most of these, but it loads user32, and programs with that loaded are not notified of
// the end of the session.
std::vector<ProtectedFolder> protectedFolders()
{
    constexpr const wchar_t* kVersion = L"Software\\Microsoft\\Windows\\CurrentVersion";
    constexpr const wchar_t* kProfiles = L"Software\\Microsoft\\Windows NT\\CurrentVersion\\ProfileList";
    std::vector<NamedFolder> folders = {
        // On Remote Desktop hosts the first may be a folder of the user's own.
        {L"the Windows folder", windowsFolder(&GetWindowsDirectoryW), true},
        {L"the Windows folder", windowsFolder(&GetSystemWindowsDirectoryW), true},
        {L"the folder of programs", machineText(kVersion, L"ProgramFilesDir")},
        {L"the folder of programs", machineText(kVersion, L"ProgramFilesDir (x86)")},
        {L"the folder of programs' data", machineText(kProfiles, L"ProgramData")},
        {L"the folder of the users' profiles", machineText(kProfiles, L"ProfilesDirectory")},
        {L"the profile of all users", machineText(kProfiles, L"Public")},
        {L"the profile for new users", machineText(kProfiles, L"Default")},
    };
    appendProfiles(folders, kProfiles);
    std::vector<ProtectedFolder> result;
    for (const auto& folder : folders) {
        if (folder.path.empty())
            continue;
        const std::wstring literal = literalPath(folder.path);
        result.push_back({folder.name, folder.withContent, placeOf(literal, false), placesAbove(literal)});
        if (result.back().place.path.empty())
            result.back().place.path = literal;
    }
    return result;
}

bool contains(const std::vector<Place>& places, const Place& place)
{
    return std::any_of(places.begin(), places.end(), [&](const Place& each) { return each.is(place); });
}
} // namespace

void requireUnprotected(const WipeTarget& target)
{
    const std::wstring name = printable(target.text());
    Place place = isLink(target.literal()) ? Place() : placeOf(target.literal(), true);
    if (place.path.empty())
        place.path = target.literal();
    const std::vector<Place> above = placesAbove(target.literal());
    for (const ProtectedFolder& folder : protectedFolders()) {
        if (place.is(folder.place) || contains(folder.above, place))
            throw UsageError{name + L" is or holds " + folder.name};
        if (folder.withContent && contains(above, folder.place))
            throw UsageError{name + L" is in " + folder.name};
    }
}

void requireUnprotectedDrive(const std::wstring& root)
{
    wchar_t device[1024] = {};
    if (QueryDosDeviceW(root.substr(0, 2).c_str(), device, static_cast<DWORD>(std::size(device))) != 0 &&
        std::wstring_view(device).substr(0, 4) == L"\\??\\")
        throw UsageError{root + L" stands for a folder of another drive"};
    const Place place = placeOf(literalPath(root), true);
    for (const ProtectedFolder& folder : protectedFolders())
        if (place.is(folder.place) || contains(folder.above, place))
            throw UsageError{root + L" holds " + folder.name};
}
