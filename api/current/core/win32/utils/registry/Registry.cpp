#include "core/win32/utils/registry/include/Registry.h"

#include <algorithm>
#include <cstring>
#include <iterator>

#include "core/win32/registry/include/KeyPath.h"
#include "core/win32/registry/include/RegistryKey.h"
#include "core/win32/utils/objectmanager/include/Raise.h"
#include "core/win32/utils/paths/include/OpenedItself.h"
#include "core/win32/utils/paths/include/Paths.h"
#include "core/win32/utils/paths/include/Variables.h"
#include "core/win32/utils/strings/include/Strings.h"
#include "core/win32/utils/time/include/Time.h"

namespace {
constexpr wchar_t kLinkValue[] = L"SymbolicLinkValue";
REGSAM viewAccess(unsigned view)
{
    switch (view) {
    case 0:
        return 0;
    case 32:
        return KEY_WOW64_32KEY;
    case 64:
        return KEY_WOW64_64KEY;
    default:
        raiseCode(ERROR_INVALID_PARAMETER);
    }
}

/// Whether a root is the wanted one, also without sign extension, as other languages pass it.
bool isRoot(HKEY root, HKEY wanted) noexcept
{
    const auto low = static_cast<std::uint32_t>(reinterpret_cast<std::uintptr_t>(wanted));
    return root == wanted || reinterpret_cast<std::uintptr_t>(root) == low;
}

/// Performance data has no keys; querying it counts everything on the machine.
void requireKeys(HKEY root)
{
    for (HKEY data : {HKEY_PERFORMANCE_DATA, HKEY_PERFORMANCE_TEXT, HKEY_PERFORMANCE_NLSTEXT})
        if (isRoot(root, data))
            raiseCode(ERROR_NOT_SUPPORTED);
}

/// keypath::open in a view.
LSTATUS openKey(HKEY root, const wchar_t* key, unsigned view, REGSAM access, DWORD options, HKEY* opened)
{
    requireKeys(root);
    return keypath::open(root, key, options, access | viewAccess(view), opened);
}

/// A change must name a key below the root in one hive; HKEY_CLASSES_ROOT shows two as one.
void requireOwnKey(HKEY root, const wchar_t* key)
{
    if (std::wstring_view(key).find_first_not_of(L'\\') == std::wstring_view::npos)
        raiseCode(ERROR_INVALID_PARAMETER);
    if (isRoot(root, HKEY_CLASSES_ROOT))
        raiseCode(ERROR_NOT_SUPPORTED);
}

std::wstring characters(const std::vector<unsigned char>& data)
{
    std::wstring text(data.size() / sizeof(wchar_t), L'\0');
    if (!text.empty())
        std::memcpy(text.data(), data.data(), text.size() * sizeof(wchar_t));
    return text;
}

template <class Number>
Number number(const registry::Value& value)
{
    if (value.data.size() != sizeof(Number))
        raiseCode(ERROR_INVALID_DATA);
    Number result;
    std::memcpy(&result, value.data.data(), sizeof result);
    return result;
}

/// Win32 would cut a name at a zero inside it.
void requireName(std::wstring_view name)
{
    if (name.find(L'\0') != std::wstring_view::npos)
        raiseCode(ERROR_INVALID_NAME);
}

/// All values of a key.
std::vector<std::pair<std::wstring, registry::Value>> valuesOf(HKEY key)
{
    std::vector<std::pair<std::wstring, registry::Value>> values;
    std::vector<wchar_t> name(registry::kLongestValueName + 1);
    std::vector<unsigned char> data(4096);
    for (DWORD index = 0;;) {
        DWORD length = static_cast<DWORD>(name.size());
        DWORD size = static_cast<DWORD>(data.size());
        DWORD type = REG_NONE;
        const LSTATUS status =
            RegEnumValueW(key, index, name.data(), &length, nullptr, &type, data.data(), &size);
        if (status == ERROR_NO_MORE_ITEMS)
            return values;
        if (status == ERROR_MORE_DATA) {
            data.resize(std::max<std::size_t>(size, data.size() * 2));
            continue;
        }
        requireSuccess(status);
        requireName({name.data(), length});
        values.push_back({std::wstring(name.data(), length), {type, {data.begin(), data.begin() + size}}});
        ++index;
    }
}

std::vector<std::wstring> subKeysOf(HKEY key)
{
    std::vector<std::wstring> names;
    wchar_t name[keyway::kLongestName + 1];
    for (DWORD index = 0;; ++index) {
        DWORD length = static_cast<DWORD>(std::size(name));
        const LSTATUS status = RegEnumKeyExW(key, index, name, &length, nullptr, nullptr, nullptr, nullptr);
        if (status == ERROR_NO_MORE_ITEMS)
            return names;
        requireSuccess(status);
        requireName({name, length});
        names.emplace_back(name, length);
    }
}

/// Creates a link like `link` below `parent`.
void copyLink(const registry::TreeKey& link, HKEY parent, const std::wstring& name, unsigned view)
{
    HKEY made = nullptr;
    DWORD disposition = 0;
    LSTATUS status = RegOpenKeyExW(parent, name.c_str(), REG_OPTION_OPEN_LINK,
                                   KEY_QUERY_VALUE | KEY_SET_VALUE | viewAccess(view), &made);
    const bool isThere = !keypath::isMissing(status);
    if (!isThere)
        status =
            RegCreateKeyExW(parent, name.c_str(), 0, nullptr, REG_OPTION_CREATE_LINK,
                            KEY_SET_VALUE | KEY_CREATE_LINK | viewAccess(view), nullptr, &made, &disposition);
    requireSuccess(status);
    const RegistryKeyHandle key(made);
    // The value alone does not make a key a link.
    if (isThere ? !keyway::isLink(made) : disposition != REG_CREATED_NEW_KEY)
        raiseCode(ERROR_ALREADY_EXISTS);
    for (const auto& [id, value] : link.values)
        if (value.type == REG_LINK)
            registry::set(made, kLinkValue, REG_LINK, {value.data.data(), value.data.size()});
}

std::wstring below(const wchar_t* key, const std::wstring& path)
{
    std::wstring whole(key);
    if (!whole.empty() && whole.back() != L'\\' && !path.empty())
        whole += L'\\';
    return whole + path;
}

const struct
{
    const wchar_t* shortName;
    const wchar_t* name;
    HKEY root;
} kRoots[] = {
    {L"HKLM", L"HKEY_LOCAL_MACHINE", HKEY_LOCAL_MACHINE},
    {L"HKCU", L"HKEY_CURRENT_USER", HKEY_CURRENT_USER},
    {L"HKCR", L"HKEY_CLASSES_ROOT", HKEY_CLASSES_ROOT},
    {L"HKU", L"HKEY_USERS", HKEY_USERS},
    {L"HKCC", L"HKEY_CURRENT_CONFIG", HKEY_CURRENT_CONFIG},
};
} // namespace

namespace registry {
RegistryKeyHandle open(HKEY root, const wchar_t* key, unsigned view, REGSAM access, DWORD options)
{
    HKEY opened = nullptr;
    requireSuccess(openKey(root, key, view, access, options, &opened));
    RegistryKeyHandle handle(opened);
    if (keypath::isStandIn(opened, root))
        raiseCode(ERROR_NOT_SUPPORTED);
    return handle;
}

KeyWay wayFrom(HKEY root, unsigned view)
{
    requireKeys(root);
    return {root, viewAccess(view)};
}

void set(HKEY key, const wchar_t* name, DWORD type, std::basic_string_view<unsigned char> data)
{
    if (data.size() > MAXDWORD)
        raiseCode(ERROR_INVALID_PARAMETER);
    requireSuccess(RegSetValueExW(key, name, 0, type, data.data(), static_cast<DWORD>(data.size())));
}

RegistryKeyHandle createKey(HKEY root, const wchar_t* key, unsigned view)
{
    requireKeys(root);
    HKEY opened = nullptr;
    requireSuccess(
        keypath::create(root, key, KEY_SET_VALUE | KEY_CREATE_SUB_KEY | viewAccess(view), &opened));
    RegistryKeyHandle created(opened);
    if (keypath::isStandIn(opened, root))
        raiseCode(ERROR_NOT_SUPPORTED);
    return created;
}

Value read(HKEY root, const wchar_t* key, const wchar_t* name, unsigned view)
{
    const RegistryKeyHandle handle = open(root, key, view, KEY_QUERY_VALUE);
    Value value;
    value.data.resize(256);
    for (;;) {
        DWORD size = static_cast<DWORD>(value.data.size());
        const LSTATUS status =
            RegQueryValueExW(handle.get(), name, nullptr, &value.type, value.data.data(), &size);
        if (status != ERROR_MORE_DATA) {
            requireSuccess(status);
            value.data.resize(size);
            return value;
        }
        value.data.resize(std::max<std::size_t>(size, value.data.size() * 2));
    }
}

std::wstring readString(HKEY root, const wchar_t* key, const wchar_t* name, unsigned view, bool expand)
{
    const Value value = read(root, key, name, view);
    if (value.type != REG_SZ && value.type != REG_EXPAND_SZ)
        raiseCode(ERROR_UNSUPPORTED_TYPE);
    std::wstring text = characters(value.data); // its writer may have ended it with any number of zeros
    text.resize(std::min(text.find(L'\0'), text.size()));
    if (value.type != REG_EXPAND_SZ || !expand)
        return text;
    return variables::expand(text);
}

std::tuple<std::wstring, std::size_t> readMultiString(HKEY root, const wchar_t* key, const wchar_t* name,
                                                      unsigned view)
{
    const Value value = read(root, key, name, view);
    if (value.type != REG_MULTI_SZ)
        raiseCode(ERROR_UNSUPPORTED_TYPE);
    const std::wstring all = characters(value.data);
    std::wstring list;
    std::size_t count = 0;
    for (std::wstring_view rest = all; !rest.empty() && rest.front() != L'\0'; ++count) {
        const std::wstring_view entry = rest.substr(0, rest.find(L'\0'));
        list.append(entry).push_back(L'\0');
        rest.remove_prefix(std::min(entry.size() + 1, rest.size()));
    }
    return {list, count};
}

unsigned long readDword(HKEY root, const wchar_t* key, const wchar_t* name, unsigned view)
{
    const Value value = read(root, key, name, view);
    if (value.type != REG_DWORD)
        raiseCode(ERROR_UNSUPPORTED_TYPE);
    return number<unsigned long>(value);
}

unsigned long long readQword(HKEY root, const wchar_t* key, const wchar_t* name, unsigned view)
{
    const Value value = read(root, key, name, view);
    if (value.type != REG_QWORD)
        raiseCode(ERROR_UNSUPPORTED_TYPE);
    return number<unsigned long long>(value);
}

std::tuple<std::vector<unsigned char>, unsigned long> readBinary(HKEY root, const wchar_t* key,
                                                                 const wchar_t* name, unsigned view)
{
    Value value = read(root, key, name, view);
    return {std::move(value.data), value.type};
}

void write(HKEY root, const wchar_t* key, const wchar_t* name, unsigned view, unsigned long type,
           std::basic_string_view<unsigned char> data)
{
    set(createKey(root, key, view).get(), name, type, data);
}

void writeString(HKEY root, const wchar_t* key, const wchar_t* name, unsigned view, std::wstring_view text,
                 unsigned long type)
{
    if (type != REG_SZ && type != REG_EXPAND_SZ)
        raiseCode(ERROR_INVALID_PARAMETER);
    // With the terminating zero of the caller's text.
    write(root, key, name, view, type,
          {reinterpret_cast<const unsigned char*>(text.data()), (text.size() + 1) * sizeof(wchar_t)});
}

bool keyExists(HKEY root, const wchar_t* key, unsigned view)
{
    HKEY opened = nullptr;
    const LSTATUS status = openKey(root, key, view, MAXIMUM_ALLOWED, 0, &opened);
    const RegistryKeyHandle handle(opened);
    if (status != ERROR_SUCCESS && status != ERROR_ACCESS_DENIED && !keypath::isMissing(status))
        raiseCode(status);
    return !keypath::isMissing(status); // a key that refuses access exists
}

bool valueExists(HKEY root, const wchar_t* key, const wchar_t* name, unsigned view)
{
    HKEY opened = nullptr;
    LSTATUS status = openKey(root, key, view, KEY_QUERY_VALUE, 0, &opened);
    const RegistryKeyHandle handle(opened);
    if (status == ERROR_SUCCESS)
        status = RegQueryValueExW(opened, name, nullptr, nullptr, nullptr, nullptr);
    if (!keypath::isMissing(status))
        requireSuccess(status);
    return status == ERROR_SUCCESS;
}

RegistryKeyHandle openItself(HKEY root, const wchar_t* key, unsigned view, REGSAM access)
{
    const std::vector<std::wstring> names = paths::namesOf(key);
    if (names.empty())
        return open(root, key, view, access);
    const std::wstring& last = names.back();
    KeyWay way = wayFrom(root, view);
    const HKEY parent = way.open(std::wstring_view(key).substr(0, std::wstring_view(key).rfind(last)));
    RegistryKeyHandle itself = open(parent, last.c_str(), view, access, REG_OPTION_OPEN_LINK);
    // And the whole path names the same key, in any view.
    if (keypath::nameOf(itself.get()) !=
        keypath::nameOf(open(root, key, view, access, REG_OPTION_OPEN_LINK).get()))
        raiseCode(kStoppedOnSymlink);
    return itself;
}

void deleteTree(HKEY root, const wchar_t* key, unsigned view)
{
    requireOwnKey(root, key);
    deleteKeyTree(openItself(root, key, view, DELETE | KEY_ENUMERATE_SUB_KEYS));
}

void deleteValue(HKEY root, const wchar_t* key, const wchar_t* name, unsigned view)
{
    try {
        KeyWay way = wayFrom(root, view);
        requireSuccess(RegDeleteValueW(way.open(key), name));
    } catch (long code) {
        if (!keypath::isMissing(code))
            throw;
    }
}

std::vector<TreeKey> readTree(HKEY root, const wchar_t* key, unsigned view)
{
    std::vector<TreeKey> tree;
    std::vector<std::wstring> pending = {L""};
    while (!pending.empty()) {
        std::wstring path = std::move(pending.back());
        pending.pop_back();
        HKEY opened = nullptr;
        const LSTATUS status =
            openKey(root, below(key, path).c_str(), view, KEY_QUERY_VALUE | KEY_ENUMERATE_SUB_KEYS,
                    path.empty() ? 0 : REG_OPTION_OPEN_LINK, &opened);
        if (keypath::isMissing(status) && !path.empty())
            continue; // deleted since it was found
        requireSuccess(status);
        const RegistryKeyHandle handle(opened);
        if (keypath::isStandIn(opened, root))
            continue; // stands for performance data
        tree.push_back({path, false, valuesOf(opened)});
        tree.back().isLink =
            std::any_of(tree.back().values.begin(), tree.back().values.end(), [](const auto& value) {
                return value.second.type == REG_LINK && strings::equalsIgnoringCase(value.first, kLinkValue);
            });
        std::vector<std::wstring> names = subKeysOf(opened);
        for (std::size_t i = names.size(); i != 0; --i)
            pending.push_back(path.empty() ? names[i - 1] : path + L"\\" + names[i - 1]);
    }
    return tree;
}

void copyTree(HKEY sourceRoot, const wchar_t* source, HKEY targetRoot, const wchar_t* target, unsigned view)
{
    requireOwnKey(targetRoot, target);
    // Read it all first: the target may be inside the source.
    const std::vector<TreeKey> tree = readTree(sourceRoot, source, view);
    KeyWay way = wayFrom(targetRoot, view);
    for (const TreeKey& each : tree) {
        const std::wstring path = below(target, each.path);
        if (each.isLink) {
            copyLink(each, way.make(path.substr(0, path.rfind(L'\\'))), path.substr(path.rfind(L'\\') + 1),
                     view);
            continue;
        }
        const HKEY key = way.make(path);
        for (const auto& [name, value] : each.values)
            set(key, name.c_str(), value.type, {value.data.data(), value.data.size()});
    }
}

std::tuple<HKEY, std::wstring> parsePath(std::wstring_view text)
{
    constexpr std::wstring_view kComputer = L"Computer\\"; // as the registry editor shows paths
    if (strings::startsWith(text, kComputer, true))
        text.remove_prefix(kComputer.size());
    const std::wstring_view name = text.substr(0, text.find(L'\\'));
    text.remove_prefix(std::min(name.size() + 1, text.size()));
    for (const auto& known : kRoots)
        if (strings::equalsIgnoringCase(name, known.shortName) ||
            strings::equalsIgnoringCase(name, known.name))
            return {known.root, std::wstring(text)};
    raiseCode(ERROR_BAD_PATHNAME);
}

std::wstring formatPath(HKEY root, std::wstring_view key)
{
    for (const auto& known : kRoots)
        if (known.root == root)
            return known.name + std::wstring(key.empty() ? L"" : L"\\") + std::wstring(key);
    raiseCode(ERROR_INVALID_HANDLE);
}

unsigned long long lastWrite(HKEY root, const wchar_t* key, unsigned view)
{
    FILETIME time;
    requireSuccess(RegQueryInfoKeyW(open(root, key, view, KEY_QUERY_VALUE).get(), nullptr, nullptr, nullptr,
                                    nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, &time));
    return timetext::number(time);
}

std::wstring typeName(unsigned long type)
{
    constexpr const wchar_t* kNames[] = {L"REG_NONE",
                                         L"REG_SZ",
                                         L"REG_EXPAND_SZ",
                                         L"REG_BINARY",
                                         L"REG_DWORD",
                                         L"REG_DWORD_BIG_ENDIAN",
                                         L"REG_LINK",
                                         L"REG_MULTI_SZ",
                                         L"REG_RESOURCE_LIST",
                                         L"REG_FULL_RESOURCE_DESCRIPTOR",
                                         L"REG_RESOURCE_REQUIREMENTS_LIST",
                                         L"REG_QWORD"};
    return type < std::size(kNames) ? kNames[type] : std::to_wstring(type);
}
} // namespace registry
