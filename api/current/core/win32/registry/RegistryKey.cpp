#include "core/win32/registry/include/RegistryKey.h"

#include <winternl.h>

#include <typeinfo>
#include <vector>

#include "core/win32/registry/include/KeyPath.h"
#include "core/win32/utils/objectmanager/include/LibraryCall.h"
#include "core/win32/utils/paths/include/UserSession.h"

// Missing from the platform headers, which have its counterparts for files.
extern "C" NTSTATUS NTAPI NtDeleteKey(HANDLE key);

constexpr char kRegistryKeyHeader[] = "core\\win32\\registry\\include\\RegistryKey.h";

using namespace primitives;

namespace {
constexpr DWORD kLongestKeyName = 255;
constexpr REGSAM kDeleteAccess = DELETE | KEY_ENUMERATE_SUB_KEYS;

std::uint32_t rootNumber(HKEY root) noexcept
{
    return static_cast<std::uint32_t>(reinterpret_cast<std::uintptr_t>(root));
}

/// A predefined root from its number; these are sign-extended 32-bit numbers. 0 stands for a handle that is
/// meaningless to the loading process.
HKEY rootFromNumber(std::uint32_t number)
{
    if (number == 0)
        return nullptr;
    for (const HKEY root :
         {HKEY_CLASSES_ROOT, HKEY_CURRENT_USER, HKEY_LOCAL_MACHINE, HKEY_USERS, HKEY_CURRENT_CONFIG})
        if (rootNumber(root) == number)
            return root;
    raiseCode(ERROR_INVALID_DATA);
}

/// Returns the first sub-key of `key`; when it is deleted the others move up. Returns false when there is
/// none or the key is gone.
bool findFirstSubKey(HKEY key, std::wstring& found)
{
    wchar_t name[kLongestKeyName + 1];
    DWORD length = kLongestKeyName + 1;
    const LSTATUS status = RegEnumKeyExW(key, 0, name, &length, nullptr, nullptr, nullptr, nullptr);
    if (status == ERROR_NO_MORE_ITEMS || status == ERROR_KEY_DELETED)
        return false;
    requireSuccess(status);
    found.assign(name, length);
    // Win32 would open, and deleteTree delete, the key whose name is the part before the zero.
    if (found.find(L'\0') != std::wstring::npos)
        raiseCode(ERROR_INVALID_NAME);
    return true;
}

} // namespace

bool deleteKeyTree(RegistryKeyHandle&& top)
{
    bool wasAllThere = true;
    struct Level
    {
        RegistryKeyHandle key;
        std::wstring gone; // the last sub-key that was listed but missing
    };
    std::vector<Level> levels; // from the top to the current key: a tree may be deeper than a stack
    levels.push_back({std::move(top), {}});
    std::wstring name;
    while (!levels.empty()) {
        Level& level = levels.back();
        if (findFirstSubKey(level.key.get(), name)) {
            HKEY opened = nullptr;
            // Without a view: what was listed is what is opened.
            const LSTATUS status =
                RegOpenKeyExW(level.key.get(), name.c_str(), REG_OPTION_OPEN_LINK, kDeleteAccess, &opened);
            // If it is listed again after it was missing, nobody has deleted it.
            if (status == ERROR_FILE_NOT_FOUND && level.gone != name) {
                level.gone = name;
                continue;
            }
            if (status != ERROR_KEY_DELETED) { // otherwise the current key is gone
                requireSuccess(status);
                if (keypath::isStandIn(opened, level.key.get()))
                    raiseCode(ERROR_NOT_SUPPORTED);
                levels.push_back({RegistryKeyHandle(opened), {}});
                continue;
            }
        }
        const auto deleted = static_cast<LSTATUS>(RtlNtStatusToDosError(NtDeleteKey(level.key.get())));
        wasAllThere = wasAllThere && deleted != ERROR_KEY_DELETED;
        if (deleted != ERROR_KEY_DELETED)
            requireSuccess(deleted);
        levels.pop_back();
    }
    return wasAllThere;
}

namespace {
std::wstring_view withoutBackslashes(std::wstring_view path) noexcept
{
    const std::size_t begin = path.find_first_not_of(L'\\');
    return begin == std::wstring_view::npos ? std::wstring_view()
                                            : path.substr(begin, path.find_last_not_of(L'\\') + 1 - begin);
}

/// The path of a key of HKEY_CLASSES_ROOT below the hives that this root merges.
HeapStringW classPath(std::wstring_view subKey)
{
    return joinKey(L"Software\\Classes", withoutBackslashes(subKey));
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
    : RegistryKey(kRegistryKeyItem, parent, std::move(subKey), parent.rootLengthBelow())
{
}

RegistryKey::RegistryKey(std::uint32_t type, HKEY root, const wchar_t* subKey, unsigned long options)
    : ScanItem(type), m_root(root), m_options(options)
{
    placedStep(PLACE(kRegistryKeyHeader, "RegistryKey::RegistryKey", __LINE__), [&] {
        const unsigned long views = kRegistryView64 | kRegistryView32;
        if (root == nullptr || subKey == nullptr || (options & views) == views)
            raiseCode(ERROR_INVALID_PARAMETER);
        setPath(subKey, 0);
    });
}

// The parent's hive is already open and stays, but below HKEY_CLASSES_ROOT another thread may just be opening
// it.
RegistryKey::RegistryKey(std::uint32_t type, const RegistryKey& parent, HeapStringW&& subKey,
                         RootLength rootLength)
    : ScanItem(type, CachedPath(std::move(subKey))), m_root(parent.m_root), m_options(parent.m_options),
      m_rootLength(rootLength),
      m_userHive(parent.m_root == HKEY_CURRENT_USER ? parent.m_userHive : UserHive())
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
            text.pop_back(); // the suffix has its own
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
    const InsideLibrary inside;
    return fullPath();
}

void RegistryKey::setPath(const wchar_t* path, int expand)
{
    const InsideLibrary inside;
    const FullPathReset reset(*this);
    ScanItem::setPath(path, expand);
}

RegistryKey::FullPathReset::~FullPathReset()
{
    const WriteLocker locker(m_key.m_lock);
    m_key.m_fullPath.reset();
}

bool RegistryKey::isNamedRoot() const noexcept
{
    return m_root == HKEY_CURRENT_USER || rootName(m_root) != rootName(HKEY_CURRENT_USER);
}

bool RegistryKey::isInterchangeable(const ScanItem& filed) const
{
    const InsideLibrary inside;
    const auto* other = dynamic_cast<const RegistryKey*>(&filed);
    return other != nullptr && typeid(*this) == typeid(*other) && m_root == other->m_root &&
           m_options == other->m_options && subKey() == other->subKey();
}

HKEY RegistryKey::getHKEY() const
{
    const InsideLibrary inside;
    return m_root == HKEY_CURRENT_USER ? userHive() : m_root;
}

HKEY RegistryKey::userHive() const
{
    {
        const ReadLocker locker(m_lock);
        if (m_userHive)
            return m_userHive->get();
    }
    HKEY hive = nullptr;
    placedStep(PLACE(kRegistryKeyHeader, "RegistryKey::getHKEY", __LINE__), [&] {
        ThreadIdentity identity;
        requireSuccess(impersonateLoggedOnUser());
        const LSTATUS status = RegOpenCurrentUser(KEY_READ, &hive);
        RegistryKeyHandle opened(status == ERROR_SUCCESS ? hive : nullptr);
        requireSuccess(
            identity.restore()); // comes first: a thread left with a foreign identity is the worse failure
        requireSuccess(status);
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
        raiseCode(ERROR_ACCESS_DENIED);
}

RegistryKeyHandle RegistryKey::openIn(HKEY root, const wchar_t* subKey, REGSAM access, DWORD options) const
{
    HKEY key = nullptr;
    requireSuccess(keypath::open(root, subKey, options | (m_rootLength ? REG_OPTION_OPEN_LINK : 0U),
                                 access | view(), &key));
    return RegistryKeyHandle(key);
}

RegistryKeyHandle RegistryKey::open(REGSAM access, DWORD options) const
{
    try {
        return openIn(getHKEY(), path().getPath(), access, options);
    } catch (const long code) {
        // What a walk found was in that hive and in no other.
        if (!isHiveGone(code) || m_rootLength || !dropHive())
            throw;
    }
    return openIn(getHKEY(), path().getPath(), access, options);
}

bool RegistryKey::isHiveGone(long status) const noexcept
{
    if (status != ERROR_KEY_DELETED)
        return false;
    const ReadLocker locker(m_lock);
    return m_userHive &&
           RegQueryInfoKeyW(m_userHive->get(), nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                            nullptr, nullptr, nullptr, nullptr) == ERROR_KEY_DELETED;
}

bool RegistryKey::dropHive() const noexcept
{
    const WriteLocker locker(m_lock);
    try {
        m_lostHives.push_back(m_userHive);
    } catch (const std::bad_alloc&) {
        return false;
    }
    m_userHive = UserHive();
    return true;
}

RegistryKeyHandle RegistryKey::openExisting(REGSAM access) const
{
    try {
        return open(access);
    } catch (const long code) {
        if (!keypath::isMissing(code) || isHiveGone(code))
            throw;
        return RegistryKeyHandle();
    }
}

RegistryKeyHandle RegistryKey::openToChange(Change change, REGSAM access, DWORD options) const
{
    requireWritable();
    const bool isClass = m_root == HKEY_CLASSES_ROOT;
    const HKEY root = !isClass ? getHKEY() : change == Change::kDelete ? onlyClassHive() : nearestClassHive();
    const HeapStringW path = isClass ? classPath(subKey()) : HeapStringW(subKey());
    if (m_rootLength) {
        HKEY key = nullptr;
        const std::size_t below = subKey().size() - *m_rootLength;
        requireSuccess(keypath::openFound(root, path.c_str(), path.size() - below, access | view(), &key));
        return RegistryKeyHandle(key);
    }
    RegistryKeyHandle key = openIn(root, path.c_str(), access, options);
    if (keypath::isStandIn(key.get(), root))
        raiseCode(ERROR_NOT_SUPPORTED);
    return key;
}

HKEY RegistryKey::userClassHive() const
{
    try {
        return userHive();
    } catch (const Exception& raised) {
        if (raised.getCode() != ERROR_NO_SUCH_LOGON_SESSION && raised.getCode() != ERROR_NO_TOKEN)
            throw;
        return nullptr; // nobody is logged on: only the machine's classes exist
    }
}

HKEY RegistryKey::onlyClassHive() const
{
    const HKEY user = userClassHive();
    const HeapStringW path = classPath(subKey());
    const bool isUsers = user != nullptr && isThereIn(user, path.c_str());
    if (isUsers && isThereIn(HKEY_LOCAL_MACHINE, path.c_str()))
        raiseCode(ERROR_NOT_SUPPORTED);
    return isUsers ? user : HKEY_LOCAL_MACHINE;
}

HKEY RegistryKey::nearestClassHive() const
{
    const HKEY user = userClassHive();
    for (std::wstring_view key = withoutBackslashes(subKey()); !key.empty();) {
        const HeapStringW path = classPath(key);
        if (user != nullptr && RegistryKey::isThereIn(user, path.c_str()))
            return user;
        if (RegistryKey::isThereIn(HKEY_LOCAL_MACHINE, path.c_str()))
            break;
        const std::size_t end = key.rfind(L'\\');
        key = withoutBackslashes(key.substr(0, end == std::wstring_view::npos ? 0 : end));
    }
    return HKEY_LOCAL_MACHINE;
}

bool RegistryKey::isThereIn(HKEY root, const wchar_t* subKey) const
{
    HKEY key = nullptr;
    const LSTATUS status = keypath::open(root, subKey, REG_OPTION_OPEN_LINK, KEY_QUERY_VALUE | view(), &key);
    const RegistryKeyHandle opened(key);
    const bool isMissing = keypath::isMissing(status) && !isHiveGone(status);
    if (status != ERROR_SUCCESS && status != ERROR_ACCESS_DENIED && !isMissing)
        raiseCode(status);
    return !isMissing;
}

void RegistryKey::create()
{
    const InsideLibrary inside;
    placedOperation(PLACE(kRegistryKeyHeader, "RegistryKey::create", __LINE__), [&] {
        requireWritable();
        const bool isClass = m_root == HKEY_CLASSES_ROOT;
        HKEY key = nullptr;
        requireSuccess(keypath::create(isClass ? nearestClassHive() : getHKEY(),
                                       isClass ? classPath(subKey()).c_str() : path().getPath(),
                                       MAXIMUM_ALLOWED | view(), &key));
        const RegistryKeyHandle created(key);
    });
}

void RegistryKey::deleteItem()
{
    const InsideLibrary inside;
    placedOperation(PLACE(kRegistryKeyHeader, "RegistryKey::deleteItem", __LINE__), [&] {
        requireWritable();
        if (withoutBackslashes(subKey()).empty())
            raiseCode(ERROR_INVALID_PARAMETER);
        RegistryKeyHandle key = openToChange(Change::kDelete, kDeleteAccess, REG_OPTION_OPEN_LINK);
        // A caller's own handle may show the keys of two hives.
        if (!deleteKeyTree(isNamedRoot() ? std::move(key) : keypath::itself(key.get())) &&
            isHiveGone(ERROR_KEY_DELETED))
            raiseCode(ERROR_KEY_DELETED);
    });
}

int RegistryKey::exists() const
{
    const InsideLibrary inside;
    int found = 0;
    placedOperation(PLACE(kRegistryKeyHeader, "RegistryKey::exists", __LINE__),
                    [&] { found = openExisting(KEY_READ).isValid() ? 1 : 0; });
    return found;
}

long RegistryKey::dump(unsigned long code, IOutputByteStream& stream) const
{
    const InsideLibrary inside;
    ScanItem::dump(code, stream);
    placedStep(PLACE(kRegistryKeyHeader, "RegistryKey::dump", __LINE__), [&] {
        writeU32(stream, isNamedRoot() ? rootNumber(m_root) : 0);
        writeU32(stream, m_options);
    });
    return ERROR_SUCCESS;
}

RegistryKey::KeptState::~KeptState()
{
    if (m_isReleased)
        return;
    const WriteLocker locker(m_key.m_lock);
    m_key.m_root = m_root;
    m_key.m_options = m_options;
    m_key.m_rootLength = m_rootLength;
    m_key.m_userHive = m_userHive;
}

long RegistryKey::load(unsigned long code, IInputByteStream& stream)
{
    const InsideLibrary inside;
    const FullPathReset reset(*this); // runs after the path is restored
    KeptState kept(*this);
    ScanItem::load(code, stream);
    placedStep(PLACE(kRegistryKeyHeader, "RegistryKey::load", __LINE__), [&] {
        const HKEY root = rootFromNumber(readU32(stream));
        const unsigned long options = readU32(stream);
        const unsigned long views = kRegistryView64 | kRegistryView32;
        if ((options & views) == views)
            raiseCode(ERROR_INVALID_DATA);
        const WriteLocker locker(m_lock);
        m_root = root;
        m_options = options;
        m_rootLength.reset();
        m_userHive = UserHive();
    });
    kept.release();
    return ERROR_SUCCESS;
}
