#include "core/win32/registry/defragmenter/include/HiveList.h"

#include <algorithm>

#include "core/win32/registry/defragmenter/include/DriveLetters.h"
#include "core/win32/registry/include/RegistryKey.h"
#include "core/win32/registry/include/ValueData.h"

constexpr char kHiveListHeader[] = "core\\win32\\registry\\defragmenter\\include\\HiveList.h";

namespace {
class HiveListKey final : public RegistryKey
{
public:
    HiveListKey()
        : RegistryKey(HKEY_LOCAL_MACHINE, L"System\\CurrentControlSet\\Control\\hivelist", kRegistryReadOnly)
    {
    }
    using RegistryKey::open;
};

/// All value names, each once: hives that are loaded or unloaded meanwhile shift the others.
std::vector<std::wstring> readNames(HKEY key)
{
    constexpr DWORD kLongestName = 16383;
    std::vector<wchar_t> name(kLongestName + 1);
    std::vector<std::wstring> names;
    for (DWORD index = 0;; ++index) {
        DWORD length = kLongestName + 1;
        const LSTATUS status =
            RegEnumValueW(key, index, name.data(), &length, nullptr, nullptr, nullptr, nullptr);
        if (status == ERROR_NO_MORE_ITEMS)
            return names;
        requireSuccess(status);
        std::wstring found(name.data(), length);
        // A name with a zero inside cannot be queried.
        if (found.find(L'\0') == std::wstring::npos &&
            std::find(names.begin(), names.end(), found) == names.end())
            names.push_back(std::move(found));
    }
}

/// Reads the path of a hive's file. Returns false when it has no file, or is no longer loaded.
bool readPath(HKEY key, LoadedHive& hive)
{
    DWORD type = REG_NONE;
    DWORD size = 0;
    std::wstring text;
    const LSTATUS status =
        valuedata::query(key, hive.mountName.c_str(), type, size, [&](std::size_t capacity) {
            text.resize(capacity / sizeof(wchar_t) + 1);
            return static_cast<void*>(text.data());
        });
    if (status == ERROR_FILE_NOT_FOUND)
        return false;
    requireSuccess(status);
    if (type != REG_SZ && type != REG_EXPAND_SZ)
        return true;
    text.resize(size / sizeof(wchar_t));
    hive.path = text.c_str(); // up to its first zero, if it has one
    return !hive.path.empty();
}
} // namespace

std::vector<LoadedHive> readHiveList()
{
    std::vector<LoadedHive> hives;
    primitives::placedStep(PLACE(kHiveListHeader, "readHiveList", __LINE__), [&] {
        const RegistryKeyHandle key = HiveListKey().open(KEY_QUERY_VALUE);
        for (std::wstring& name : readNames(key.get())) {
            LoadedHive hive{std::move(name), {}};
            if (readPath(key.get(), hive))
                hives.push_back(std::move(hive));
        }
    });
    return hives;
}

void dumpHiveList(IOutputByteStream& stream)
{
    const std::vector<LoadedHive> hives = readHiveList();
    const DriveLetters drives;
    primitives::placedStep(PLACE(kHiveListHeader, "dumpHiveList", __LINE__), [&] {
        primitives::writeU32(stream, static_cast<std::uint32_t>(hives.size()));
        for (const LoadedHive& hive : hives) {
            std::wstring path = hive.path;
            const long code = primitives::codeOfStep([&] { path = drives.resolve(path); });
            if (code == ERROR_NOT_ENOUGH_MEMORY)
                raiseCode(code);
            primitives::writeString(stream, hive.mountName.c_str());
            primitives::writeString(stream, path.c_str());
        }
    });
}
