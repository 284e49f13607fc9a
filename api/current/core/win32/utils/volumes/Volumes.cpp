#include "core/win32/utils/volumes/include/Volumes.h"

#include <windows.h>

#include <winioctl.h>

#include <algorithm>
#include <iterator>

#include "core/win32/utils/objectmanager/include/Raise.h"
#include "core/win32/utils/objectmanager/include/Win32Handle.h"
#include "core/win32/utils/paths/include/Paths.h"
#include "core/win32/utils/strings/include/Strings.h"

namespace {
/// The volume itself, not its root: "\\.\C:" or "\\?\Volume{...}".
Win32Handle openVolume(const wchar_t* root, DWORD access)
{
    std::wstring name(root);
    while (!name.empty() && (name.back() == L'\\' || name.back() == L'/'))
        name.pop_back();
    const bool drive = name.size() == 2 && name[1] == L':';
    if (!drive && !strings::startsWith(name, LR"(\\?\Volume{)", true))
        raiseCode(ERROR_INVALID_NAME);
    Win32Handle volume(CreateFileW((drive ? LR"(\\.\)" + name : name).c_str(), access,
                                   FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING, 0, nullptr));
    if (!volume.isValid())
        raiseLastError();
    return volume;
}

std::wstring withBackslash(const wchar_t* root)
{
    std::wstring name(root);
    if (name.empty())
        raiseCode(ERROR_INVALID_NAME);
    if (name.back() != L'\\')
        name += L'\\';
    return name;
}

/// Whether a path with a closing backslash is the root of a volume or a share.
bool isRoot(const std::wstring& path)
{
    try {
        static_cast<void>(paths::parent(paths::normalize(path)));
        return false;
    } catch (long) {
        return true;
    }
}

void add(RecordList<VolumeRecord>& records, const std::wstring& root)
{
    wchar_t label[MAX_PATH + 1] = {};
    wchar_t fileSystem[MAX_PATH + 1] = {};
    VolumeRecord record{};
    DWORD serial = 0;
    // A drive without a medium has neither, but is still listed.
    record.isReady = GetVolumeInformationW(root.c_str(), label, MAX_PATH + 1, &serial, nullptr, nullptr,
                                           fileSystem, MAX_PATH + 1) != 0
                         ? 1
                         : 0;
    record.type = GetDriveTypeW(root.c_str());
    record.serial = serial;
    records.add(record, {{&VolumeRecord::root, root},
                         {&VolumeRecord::label, record.isReady != 0 ? label : L""},
                         {&VolumeRecord::fileSystem, record.isReady != 0 ? fileSystem : L""}});
}
} // namespace

namespace volumes {
RecordList<VolumeRecord> enumerate()
{
    RecordList<VolumeRecord> records;
    const DWORD drives = GetLogicalDrives();
    if (drives == 0)
        raiseLastError();
    for (wchar_t letter = L'A'; letter <= L'Z'; ++letter)
        if ((drives >> (letter - L'A') & 1U) != 0)
            add(records, {letter, L':', L'\\'});
    // Then those without a letter, by their own names.
    wchar_t name[MAX_PATH];
    const HANDLE search = FindFirstVolumeW(name, MAX_PATH);
    if (search == INVALID_HANDLE_VALUE)
        return records;
    try {
        do {
            wchar_t points[MAX_PATH];
            DWORD length = 0;
            const bool known = GetVolumePathNamesForVolumeNameW(name, points, MAX_PATH, &length) != 0;
            if (known && points[0] == L'\0')
                add(records, name);
        } while (FindNextVolumeW(search, name, MAX_PATH));
    } catch (...) {
        FindVolumeClose(search);
        throw;
    }
    FindVolumeClose(search);
    return records;
}

unsigned long clusterSize(const wchar_t* root)
{
    DWORD sectors = 0;
    DWORD bytes = 0;
    DWORD free = 0;
    DWORD all = 0;
    const std::wstring name = withBackslash(root);
    if (!isRoot(name))
        raiseCode(ERROR_INVALID_NAME);
    if (!GetDiskFreeSpaceW(name.c_str(), &sectors, &bytes, &free, &all))
        raiseLastError();
    return sectors * bytes;
}

bool isSolidState(const wchar_t* root)
{
    const Win32Handle volume = openVolume(root, 0);
    STORAGE_PROPERTY_QUERY query{};
    query.PropertyId = StorageDeviceSeekPenaltyProperty;
    query.QueryType = PropertyStandardQuery;
    struct
    {
        DWORD version, size;
        BOOLEAN hasSeekPenalty;
    } answer{};
    DWORD length = 0;
    if (!DeviceIoControl(volume.get(), IOCTL_STORAGE_QUERY_PROPERTY, &query, sizeof query, &answer,
                         sizeof answer, &length, nullptr) ||
        length < sizeof answer)
        raiseCode(ERROR_NOT_SUPPORTED);
    return answer.hasSeekPenalty == FALSE;
}

std::tuple<std::wstring, std::size_t> letters(const wchar_t* volume)
{
    const std::wstring name = withBackslash(volume);
    std::wstring list(MAX_PATH, L'\0');
    DWORD length = 0;
    while (!GetVolumePathNamesForVolumeNameW(name.c_str(), list.data(), static_cast<DWORD>(list.size()),
                                             &length)) {
        if (GetLastError() != ERROR_MORE_DATA)
            raiseLastError();
        list.resize(std::max<std::size_t>(length, list.size() * 2));
    }
    std::size_t count = 0;
    std::size_t end = 0;
    for (; list[end] != L'\0'; end = list.find(L'\0', end) + 1)
        ++count;
    list.resize(end);
    return {list, count};
}

void flush(const wchar_t* root)
{
    if (!FlushFileBuffers(openVolume(root, GENERIC_READ | GENERIC_WRITE).get()))
        raiseLastError();
}
} // namespace volumes
