#include "core/win32/registry/settingshive/include/SettingsHive.h"

#include "core/win32/registry/offline/include/OfflineFile.h"
#include "core/win32/registry/offline/include/OfflineHive.h"
#include "core/win32/utils/paths/include/Win32Path.h"
#include "win32/paths/include/CachedPath.h"
#include "win32/registry/include/SettingsHiveFlags.h"

using namespace offline;

ObjectTable<SharedPtr<SettingsHive>> settingsHives(20);

namespace {
constexpr long kUnsupportedType = 1630; // not every platform header names it

/// Raises 123 for a path with an empty name.
void requirePath(std::wstring_view key)
{
    if (key.starts_with(L'\\') || key.ends_with(L'\\') || key.find(L"\\\\") != std::wstring_view::npos)
        raiseCode(kInvalidName);
}

bool isMissing(long code) noexcept
{
    return code == ERROR_FILE_NOT_FOUND || code == ERROR_PATH_NOT_FOUND;
}

/// The characters of a text's data. Raises 13 for half a character.
std::wstring charactersOf(const SettingsHive::Bytes& bytes)
{
    if (bytes.size() % sizeof(wchar_t) != 0)
        raiseCode(ERROR_INVALID_DATA);
    std::wstring text(bytes.size() / sizeof(wchar_t), L'\0');
    CopyMemory(text.data(), bytes.data(), bytes.size());
    return text;
}

/// Adds a name that can be passed to a function: without any of the `unusable` characters.
void add(SettingsHive::List& list, const NameView& name, std::wstring_view unusable)
{
    auto& [text, count] = list;
    const std::wstring wide = wideOf(name.text());
    if (wide.empty() || wide.find_first_of(unusable) != std::wstring::npos)
        return;
    text.append(wide).push_back(L'\0');
    ++count;
}
} // namespace

std::wstring SettingsHive::nameOf(const wchar_t* path)
{
    if (*path == L'\0')
        raiseCode(ERROR_INVALID_PARAMETER);
    return nameOfFile(requireFilePath(CachedPath(path, 1).getPath()));
}

SettingsHive::SettingsHive(const wchar_t* path, unsigned long flags) : m_flags(flags)
{
    if (*path == L'\0' || (flags & ~(kSettingsMustExist | kSettingsReadOnly)) != 0)
        raiseCode(ERROR_INVALID_PARAMETER);
    m_path = requireFilePath(CachedPath(path, 1).getPath());
    std::vector<std::byte> bytes;
    try {
        bytes = readFile(m_path.c_str(), &m_stamp.emplace());
    } catch (const long code) {
        if (!isMissing(code) || (flags & kSettingsMustExist) != 0)
            throw;
        m_stamp.reset();
        m_isNew = true;
        m_hive = Hive::create(currentTime());
        return;
    }
    load(std::move(bytes));
}

void SettingsHive::load(std::vector<std::byte>&& bytes)
{
    std::vector<Loss> losses;
    m_original = kSettingsDamaged;
    try {
        // The same as parse for an undamaged hive.
        m_hive = Hive::salvage(std::vector<std::byte>(bytes), losses);
        m_original =
            (losses.empty() ? 0UL : kSettingsDamaged) | (m_hive->isClean() ? 0UL : kSettingsUnclosed);
        m_hive->indexValues(); // several threads may only read later
    } catch (const long code) {
        if (code != kBadDatabase)
            throw;
        m_hive = Hive::create(currentTime());
    }
    if (m_original != 0)
        m_damaged = std::move(bytes);
}

void SettingsHive::save()
{
    if ((m_flags & kSettingsReadOnly) != 0)
        raiseCode(ERROR_ACCESS_DENIED);
    const WriteLocker saving(m_saving);
    std::vector<std::byte> bytes;
    unsigned long long changes = 0;
    {
        const ReadLocker locker(m_lock);
        bytes = m_hive->compact();
        changes = m_changes;
    }
    replaceFile(m_path, bytes, m_stamp, m_damaged.has_value() ? &*m_damaged : nullptr);
    const WriteLocker locker(m_lock);
    m_damaged.reset();
    m_original = 0;
    m_isNew = false;
    m_saved = changes;
}

unsigned long SettingsHive::state() const
{
    const ReadLocker locker(m_lock);
    return (m_isNew ? kSettingsNew : 0UL) | m_original | (m_changes != m_saved ? kSettingsChanged : 0UL);
}

template <class Change>
void SettingsHive::change(Change&& change)
{
    if ((m_flags & kSettingsReadOnly) != 0)
        raiseCode(ERROR_ACCESS_DENIED);
    const WriteLocker locker(m_lock);
    change(*m_hive);
    ++m_changes;
}

KeyId SettingsHive::find(std::wstring_view key) const
{
    requirePath(key);
    const auto found = m_hive->findPath(Hive::root(), unitsOf(key));
    if (!found.has_value())
        raiseCode(ERROR_FILE_NOT_FOUND);
    return *found;
}

ValueId SettingsHive::find(KeyId key, std::wstring_view name) const
{
    const auto found = m_hive->findValue(key, unitsOf(name));
    if (!found.has_value())
        raiseCode(ERROR_FILE_NOT_FOUND);
    return *found;
}

void SettingsHive::createKey(std::wstring_view key)
{
    requirePath(key);
    change([&](Hive& hive) { hive.createPath(Hive::root(), unitsOf(key), currentTime()); });
}

void SettingsHive::deleteKey(std::wstring_view key)
{
    change([&](Hive& hive) { hive.deleteKey(find(key), currentTime()); });
}

SettingsHive::List SettingsHive::keys(std::wstring_view key) const
{
    const ReadLocker locker(m_lock);
    List list;
    for (const KeyId each : m_hive->subKeys(find(key)))
        add(list, m_hive->name(each), kNoKeyName);
    return list;
}

SettingsHive::List SettingsHive::values(std::wstring_view key) const
{
    const ReadLocker locker(m_lock);
    List list;
    for (const ValueId each : m_hive->values(find(key)))
        add(list, m_hive->valueName(each), {L"\0", 1});
    return list;
}

std::tuple<unsigned long, SettingsHive::Bytes> SettingsHive::value(std::wstring_view key,
                                                                   std::wstring_view name) const
{
    const ReadLocker locker(m_lock);
    const ValueId found = find(find(key), name);
    Bytes bytes;
    bytes.reserve(m_hive->dataSize(found));
    m_hive->forEachPart(found, [&](std::span<const std::byte> part) {
        bytes.append(reinterpret_cast<const unsigned char*>(part.data()), part.size());
    });
    return {m_hive->type(found), std::move(bytes)};
}

void SettingsHive::setValue(std::wstring_view key, std::wstring_view name, unsigned long type,
                            const void* data, std::size_t size)
{
    requirePath(key);
    change([&](Hive& hive) {
        const HiveTime now = currentTime();
        KeyId firstMade = Hive::kNone;
        const KeyId made = hive.createPath(Hive::root(), unitsOf(key), now, &firstMade);
        try {
            hive.setValue(made, unitsOf(name), type, {static_cast<const std::byte*>(data), size}, now);
        } catch (...) {
            if (firstMade != Hive::kNone)
                hive.deleteKey(firstMade, now);
            throw;
        }
    });
}

void SettingsHive::deleteValue(std::wstring_view key, std::wstring_view name)
{
    change([&](Hive& hive) {
        if (!hive.deleteValue(find(key), unitsOf(name), currentTime()))
            raiseCode(ERROR_FILE_NOT_FOUND);
    });
}

std::wstring SettingsHive::text(std::wstring_view key, std::wstring_view name) const
{
    const auto [type, bytes] = value(key, name);
    if (type != REG_SZ && type != REG_EXPAND_SZ)
        raiseCode(kUnsupportedType);
    const std::wstring characters = charactersOf(bytes);
    return characters.substr(0, characters.find(L'\0'));
}

SettingsHive::List SettingsHive::texts(std::wstring_view key, std::wstring_view name) const
{
    const std::wstring characters = charactersOf(data(key, name, REG_MULTI_SZ, 0));
    List list;
    auto& [texts, count] = list;
    for (std::size_t at = 0; at < characters.size() && characters[at] != L'\0'; ++count) {
        const std::size_t end = std::min(characters.find(L'\0', at), characters.size());
        texts.append(characters, at, end - at).push_back(L'\0');
        at = end + 1;
    }
    return list;
}

SettingsHive::Bytes SettingsHive::data(std::wstring_view key, std::wstring_view name, unsigned long type,
                                       std::size_t size) const
{
    auto [found, bytes] = value(key, name);
    if (found != type)
        raiseCode(kUnsupportedType);
    if (size != 0 && bytes.size() != size)
        raiseCode(ERROR_INVALID_DATA);
    return std::move(bytes);
}
