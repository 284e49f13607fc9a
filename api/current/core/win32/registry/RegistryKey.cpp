#include "core/win32/registry/include/RegistryKey.h"

#include <winternl.h>

#include <typeinfo>

#include "core/win32/registry/include/UserSession.h"

// The platform headers leave it out, though its counterparts for files are there.
extern "C" NTSTATUS NTAPI NtDeleteKey(HANDLE key);

#define REGISTRY_KEY_HEADER "core\\win32\\registry\\include\\RegistryKey.h"

using namespace primitives;

namespace {
constexpr DWORD kLongestKeyName = 255;
constexpr REGSAM kDeleteAccess = DELETE | KEY_ENUMERATE_SUB_KEYS;

void requireStatus(LSTATUS status)
{
    requireSuccess(static_cast<long>(status));
}

std::uint32_t rootNumber(HKEY root) noexcept
{
    return static_cast<std::uint32_t>(reinterpret_cast<std::uintptr_t>(root));
}

/// A predefined root from its number; these are sign-extended 32-bit numbers. 0 is that of a handle that
/// means nothing to whoever loads the item.
HKEY rootFromNumber(std::uint32_t number)
{
    if (number == 0)
        return nullptr;
    for (const HKEY root :
         {HKEY_CLASSES_ROOT, HKEY_CURRENT_USER, HKEY_LOCAL_MACHINE, HKEY_USERS, HKEY_CURRENT_CONFIG})
        if (rootNumber(root) == number)
            return root;
    throw static_cast<long>(ERROR_INVALID_DATA);
}

/// Deletes a key and what is below it, deepest first. `key` was opened as itself where it is a link (which
/// has no sub-keys of its own), and is deleted by its handle: by name the system may go through the link and
/// delete what it leads to. What somebody else deletes in between is gone as well. Raises the bare code of
/// the first key that cannot be deleted.
void deleteTree(HKEY key, REGSAM view)
{
    std::wstring gone;
    for (;;) {
        wchar_t name[kLongestKeyName + 1];
        DWORD length = kLongestKeyName + 1;
        // Always the first: the others move up.
        LSTATUS status = RegEnumKeyExW(key, 0, name, &length, nullptr, nullptr, nullptr, nullptr);
        if (status == ERROR_NO_MORE_ITEMS || status == ERROR_KEY_DELETED)
            break;
        requireStatus(status);
        // Win32 would open, and this function delete, the key whose name is the part before the zero.
        const std::wstring_view found(name, length);
        if (found.find(L'\0') != std::wstring_view::npos)
            throw static_cast<long>(ERROR_INVALID_NAME);
        HKEY opened = nullptr;
        status = RegOpenKeyExW(key, name, REG_OPTION_OPEN_LINK, kDeleteAccess | view, &opened);
        // One that is listed again after it was not there is none that somebody deleted.
        if (status == ERROR_FILE_NOT_FOUND && gone != found) {
            gone = found;
            continue;
        }
        if (status == ERROR_KEY_DELETED)
            break; // this key itself is gone
        requireStatus(status);
        const RegistryKeyHandle child(opened);
        deleteTree(opened, view);
    }
    const auto deleted = static_cast<LSTATUS>(RtlNtStatusToDosError(NtDeleteKey(key)));
    if (deleted != ERROR_KEY_DELETED)
        requireStatus(deleted);
}
} // namespace

HeapStringW joinKey(std::wstring_view key, std::wstring_view name)
{
    HeapStringW path;
    path.reserve(key.size() + 1 + name.size());
    path.append(key);
    if (!path.empty() && path.back() != L'\\')
        path += L'\\';
    path.append(name);
    return path;
}

std::wstring_view rootName(HKEY root) noexcept
{
    if (root == HKEY_CLASSES_ROOT)
        return L"HKEY_CLASSES_ROOT";
    if (root == HKEY_LOCAL_MACHINE)
        return L"HKEY_LOCAL_MACHINE";
    if (root == HKEY_USERS)
        return L"HKEY_USERS";
    if (root == HKEY_CURRENT_CONFIG)
        return L"HKEY_CURRENT_CONFIG";
    return L"HKEY_CURRENT_USER";
}

RegistryKey::RegistryKey(HKEY root, const wchar_t* subKey, unsigned long options)
    : RegistryKey(kRegistryKeyItem, root, subKey, options)
{
}

RegistryKey::RegistryKey(const RegistryKey& parent, HeapStringW&& subKey)
    : RegistryKey(kRegistryKeyItem, parent, std::move(subKey), true)
{
}

RegistryKey::RegistryKey(std::uint32_t type, HKEY root, const wchar_t* subKey, unsigned long options)
    : ScanItem(type), m_root(root), m_options(options)
{
    placedStep(PLACE(REGISTRY_KEY_HEADER, "RegistryKey::RegistryKey", __LINE__), [&] {
        const unsigned long views = kRegistryView64 | kRegistryView32;
        if (root == nullptr || subKey == nullptr || (options & views) == views)
            throw static_cast<long>(ERROR_INVALID_PARAMETER);
        setPath(subKey, 0);
    });
}

RegistryKey::RegistryKey(std::uint32_t type, const RegistryKey& parent, HeapStringW&& subKey, bool isFound)
    : ScanItem(type, CachedPath(std::move(subKey))), m_root(parent.m_root), m_options(parent.m_options),
      m_isFound(isFound), m_userHive(parent.m_userHive)
{
}

const CachedPath& RegistryKey::fullPath() const
{
    {
        const ReadLocker locker(m_lock);
        if (m_fullPath)
            return *m_fullPath;
    }
    const WriteLocker locker(m_lock);
    if (!m_fullPath) {
        const std::wstring_view root = rootName(m_root);
        const std::wstring_view suffix = pathSuffix();
        HeapStringW text;
        text.reserve(root.size() + 1 + subKey().size() + suffix.size());
        text.append(root).append(1, L'\\').append(subKey());
        if (!suffix.empty() && text.back() == L'\\')
            text.pop_back(); // the suffix brings its own
        m_fullPath.emplace(std::move(text.append(suffix)));
    }
    return *m_fullPath;
}

const wchar_t* RegistryKey::getPath() const
{
    return fullPath().getPath();
}

const IIdentifierW& RegistryKey::getIdentifier() const
{
    return fullPath();
}

void RegistryKey::setPath(const wchar_t* path, int expand)
{
    ScanItem::setPath(path, expand);
    const WriteLocker locker(m_lock);
    m_fullPath.reset();
}

bool RegistryKey::isInterchangeable(const ScanItem& filed) const
{
    const auto* other = dynamic_cast<const RegistryKey*>(&filed);
    return other != nullptr && typeid(*this) == typeid(*other) && m_root == other->m_root &&
           m_options == other->m_options && subKey() == other->subKey();
}

HKEY RegistryKey::getHKEY() const
{
    if (m_root != HKEY_CURRENT_USER)
        return m_root;
    {
        const ReadLocker locker(m_lock);
        if (m_userHive)
            return m_userHive->get();
    }
    HKEY hive = nullptr;
    placedStep(PLACE(REGISTRY_KEY_HEADER, "RegistryKey::getHKEY", __LINE__), [&] {
        ThreadIdentity identity;
        requireSuccess(impersonateLoggedOnUser());
        const LSTATUS status = RegOpenCurrentUser(KEY_READ, &hive);
        RegistryKeyHandle opened(status == ERROR_SUCCESS ? hive : nullptr);
        requireSuccess(
            identity.restore()); // comes first: a thread that stays somebody else is the worse failure
        requireStatus(status);
        const UserHive shared = makeShared<RegistryKeyHandle>(std::move(opened));
        const WriteLocker locker(m_lock);
        if (!m_userHive)
            m_userHive = shared;
        hive = m_userHive->get();
    });
    return hive;
}

REGSAM RegistryKey::view() const noexcept
{
    return ((m_options & kRegistryView64) != 0 ? KEY_WOW64_64KEY : 0U) |
           ((m_options & kRegistryView32) != 0 ? KEY_WOW64_32KEY : 0U);
}

void RegistryKey::requireWritable() const
{
    if ((m_options & kRegistryReadOnly) != 0)
        throw static_cast<long>(ERROR_ACCESS_DENIED);
}

RegistryKeyHandle RegistryKey::open(REGSAM access, DWORD openOptions) const
{
    HKEY key = nullptr;
    const DWORD options = openOptions | (m_isFound ? REG_OPTION_OPEN_LINK : 0U);
    requireStatus(RegOpenKeyExW(getHKEY(), path().getPath(), options, access | view(), &key));
    return RegistryKeyHandle(key);
}

RegistryKeyHandle RegistryKey::openExisting(REGSAM access) const
{
    try {
        return open(access);
    } catch (const long code) {
        if (code != ERROR_FILE_NOT_FOUND && code != ERROR_PATH_NOT_FOUND && code != ERROR_KEY_DELETED)
            throw;
        return RegistryKeyHandle();
    }
}

void RegistryKey::create()
{
    placedOperation(PLACE(REGISTRY_KEY_HEADER, "RegistryKey::create", __LINE__), [&] {
        requireWritable();
        HKEY key = nullptr;
        requireStatus(RegCreateKeyExW(getHKEY(), path().getPath(), 0, nullptr, REG_OPTION_NON_VOLATILE,
                                      MAXIMUM_ALLOWED | view(), nullptr, &key, nullptr));
        RegCloseKey(key);
    });
}

void RegistryKey::deleteItem()
{
    placedOperation(PLACE(REGISTRY_KEY_HEADER, "RegistryKey::deleteItem", __LINE__), [&] {
        requireWritable();
        if (subKey().find_first_not_of(L'\\') == std::wstring_view::npos)
            throw static_cast<long>(ERROR_INVALID_PARAMETER);
        deleteTree(open(kDeleteAccess, REG_OPTION_OPEN_LINK).get(), view());
    });
}

int RegistryKey::exists() const
{
    int found = 0;
    placedOperation(PLACE(REGISTRY_KEY_HEADER, "RegistryKey::exists", __LINE__),
                    [&] { found = openExisting(KEY_READ).isValid() ? 1 : 0; });
    return found;
}

long RegistryKey::dump(unsigned long code, IOutputByteStream& stream) const
{
    ScanItem::dump(code, stream);
    placedStep(PLACE(REGISTRY_KEY_HEADER, "RegistryKey::dump", __LINE__), [&] {
        const bool named = rootName(m_root) != rootName(HKEY_CURRENT_USER);
        writeU32(stream, named || m_root == HKEY_CURRENT_USER ? rootNumber(m_root) : 0);
        writeU32(stream, m_options);
    });
    return ERROR_SUCCESS;
}

long RegistryKey::load(unsigned long code, IInputByteStream& stream)
{
    ScanItem::load(code, stream);
    placedStep(PLACE(REGISTRY_KEY_HEADER, "RegistryKey::load", __LINE__), [&] {
        const HKEY root = rootFromNumber(readU32(stream));
        const unsigned long options = readU32(stream);
        const unsigned long views = kRegistryView64 | kRegistryView32;
        if ((options & views) == views)
            throw static_cast<long>(ERROR_INVALID_DATA);
        const WriteLocker locker(m_lock);
        m_root = root;
        m_options = options;
        m_isFound = false;
        m_fullPath.reset();
        m_userHive = UserHive();
    });
    return ERROR_SUCCESS;
}
