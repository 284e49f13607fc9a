#include "core/win32/registry/include/RegistryPath.h"

#include <cwchar>
#include <deque>
#include <unordered_set>
#include <vector>

#include "core/win32/registry/include/KeyPath.h"
#include "core/win32/registry/include/RegistryValue.h"
#include "core/win32/utils/registry/include/KeyWay.h"

constexpr char kRegistryPathHeader[] = "core\\win32\\registry\\include\\RegistryPath.h";

namespace {
constexpr DWORD kLongestName = 16383; // for a value; keys have 255

struct FoundName
{
    std::wstring name;
    DWORD type;
};

/// All names that `enumerate` returns by index. They are read before any is reported, because an entry that
/// comes or goes in between moves the others. An entry that is read twice for this reason is returned once.
template <class Enumerate>
LSTATUS readNames(std::deque<FoundName>& names, Enumerate&& enumerate)
{
    std::vector<wchar_t> buffer(kLongestName + 1);
    std::unordered_set<std::wstring_view> seen; // views into `names`, whose elements do not move
    LSTATUS skipped = ERROR_SUCCESS;
    for (DWORD index = 0;; ++index) {
        DWORD length = kLongestName + 1;
        DWORD type = REG_NONE;
        const LSTATUS status = enumerate(index, buffer.data(), &length, &type);
        if (status == ERROR_NO_MORE_ITEMS)
            return skipped;
        if (status != ERROR_SUCCESS)
            return status;
        // A name that contains a zero cannot be passed to Win32 calls: its item would stand for, and delete,
        // the entry whose name is the part before the zero.
        if (std::wcslen(buffer.data()) != length) {
            skipped = ERROR_INVALID_NAME;
            continue;
        }
        names.push_back({std::wstring(buffer.data(), length), type});
        if (!seen.insert(names.back().name).second)
            names.pop_back();
    }
}
} // namespace

RegistryPath::RegistryPath(HKEY root, const wchar_t* subKey, unsigned long options)
    : RegistryKey(root, subKey, options), ScanPath(0)
{
}

const char* RegistryPath::scanPlace() const noexcept
{
    return PLACE(kRegistryPathHeader, "RegistryPath::scan", __LINE__);
}

RegistryKeyHandle RegistryPath::openToList(bool isRoot) const
{
    HKEY root = nullptr;
    try {
        root = getHKEY();
    } catch (const Exception& raised) {
        throw ListingFailure{raised};
    }
    HKEY opened = nullptr;
    const auto open = [&] {
        // Further down links are opened as links and never followed: a link has no sub-keys of its own, and
        // its only value holds its target.
        const DWORD options = isRoot ? 0 : REG_OPTION_OPEN_LINK;
        constexpr REGSAM kAccess = KEY_QUERY_VALUE | KEY_ENUMERATE_SUB_KEYS;
        if (!isRoot && isUserClasses() && openUserClasses(root, kAccess, &opened))
            return LSTATUS{ERROR_SUCCESS};
        const LSTATUS status = keypath::open(root, path().getPath(), options, kAccess | view(), &opened);
        if (status != ERROR_ACCESS_DENIED)
            return status;
        // One of the two may be allowed; the other fails below.
        return keypath::open(root, path().getPath(), options, MAXIMUM_ALLOWED | view(), &opened);
    };
    LSTATUS status = open();
    if (isRoot && isHiveGone(status) && dropHive()) {
        root = getHKEY();
        status = open();
    }
    requireHive(status);
    if (!isRoot && keypath::isMissing(status))
        return RegistryKeyHandle(); // deleted since it was found
    if (status != ERROR_SUCCESS)
        throw ListingFailure{Exception(PLACE(kRegistryPathHeader, "RegistryPath::list", __LINE__),
                                       static_cast<unsigned long>(status))};
    return RegistryKeyHandle(keypath::isStandIn(opened, root) ? nullptr : opened);
}

/// A key that refuses access is there all the same, and hardly a link; one that is gone is no container.
bool RegistryPath::isFoundLink() const
{
    try {
        const RegistryKeyHandle key = openToList(false);
        return !key.isValid() || keyway::isLink(key.get());
    } catch (const ListingFailure&) {
        return false;
    }
}

/// Ends the scan when the user's hive is gone: nothing that still exists would be found any more.
void RegistryPath::requireHive(LSTATUS status) const
{
    if (isHiveGone(status))
        throw Exception(PLACE(kRegistryPathHeader, "RegistryPath::list", __LINE__), ERROR_KEY_DELETED);
}

bool RegistryPath::isUserClasses() const noexcept
{
    return isOfCurrentUser() && _wcsicmp(path().getPath(), L"Software\\Classes") == 0;
}

/// The user's classes are a separate hive, and HKEY_CURRENT_USER contains a system link to it. This link is
/// followed if it leads to that hive.
bool RegistryPath::openUserClasses(HKEY hive, REGSAM access, HKEY* opened) const
{
    HKEY key = nullptr;
    RegistryKeyHandle followed(
        keypath::open(hive, path().getPath(), 0, access | view(), &key) == ERROR_SUCCESS ? key : nullptr);
    if (!followed.isValid())
        return false;
    if (!keypath::isUserClasses(keypath::nameOf(hive), keypath::nameOf(followed.get())))
        return false;
    *opened = followed.release();
    return true;
}

void RegistryPath::list(Walk& walk)
{
    const RegistryKeyHandle key = openToList(&walk.root == this);
    if (!key.isValid())
        return;
    // If the values cannot be listed, the sub-keys still are.
    const LSTATUS values =
        walk.purpose == Purpose::FindContainer ? ERROR_SUCCESS : reportValues(key.get(), walk);
    const LSTATUS keys =
        walk.cancelled || walk.purpose == Purpose::KeepLeaves ? ERROR_SUCCESS : reportKeys(key.get(), walk);
    requireHive(values);
    requireHive(keys);
    const LSTATUS failed = values != ERROR_SUCCESS && !keypath::isMissing(values) ? values : keys;
    if (failed != ERROR_SUCCESS && !keypath::isMissing(failed))
        throw ListingFailure{Exception(PLACE(kRegistryPathHeader, "RegistryPath::list", __LINE__),
                                       static_cast<unsigned long>(failed)),
                             values != ERROR_ACCESS_DENIED || keys != ERROR_ACCESS_DENIED};
}

LSTATUS RegistryPath::reportValues(HKEY key, Walk& walk) const
{
    std::deque<FoundName> values;
    const LSTATUS status = readNames(values, [&](DWORD index, wchar_t* name, DWORD* length, DWORD* type) {
        return RegEnumValueW(key, index, name, length, nullptr, type, nullptr, nullptr);
    });
    for (const FoundName& value : values) {
        // The value of a link, which is deleted with it.
        if (value.type == REG_LINK && _wcsicmp(value.name.c_str(), L"SymbolicLinkValue") == 0)
            continue;
        if (walk.poll())
            break;
        reportLeaf(walk, makeShared<ScanItem, RegistryValue>(*this, subKey(), value.name, value.type));
        if (walk.cancelled)
            break;
    }
    return status;
}

LSTATUS RegistryPath::reportKeys(HKEY key, Walk& walk) const
{
    std::deque<FoundName> keys;
    const LSTATUS status = readNames(keys, [&](DWORD index, wchar_t* name, DWORD* length, DWORD*) {
        return RegEnumKeyExW(key, index, name, length, nullptr, nullptr, nullptr, nullptr);
    });
    for (const FoundName& found : keys) {
        if (walk.poll())
            break;
        const SharedPtr<ScanItem> item =
            makeShared<ScanItem, RegistryPath>(*this, joinKey(subKey(), found.name));
        reportContainer(walk, item, getLevel() + 1, false); // listing it shows whether it is a link
        if (walk.cancelled)
            break;
    }
    return status;
}
