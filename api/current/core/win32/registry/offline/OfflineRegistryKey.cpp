#include "core/win32/registry/offline/include/OfflineRegistryKey.h"

#include "core/win32/registry/offline/include/OfflineFile.h"
#include "core/win32/registry/offline/include/OfflineLibrary.h"
#include "core/win32/utils/memory/include/UtilityMemory.h"
#include "core/win32/utils/objectmanager/include/Boundary.h"

using offline::Hive;
using offline::OfflineHive;

namespace {
/// Raises 123 or 206 for an invalid path, so both ways refuse the same.
void requirePath(std::wstring_view path)
{
    std::size_t levels = 1;
    while (!path.empty()) {
        const std::size_t end = path.find(L'\\');
        const std::size_t length = std::min(end, path.size());
        if (length == 0 || end == path.size() - 1)
            raiseCode(offline::kInvalidName);
        if (length > Hive::kLongestKeyName || ++levels > Hive::kMostLevels)
            raiseCode(offline::kTooDeep);
        path.remove_prefix(std::min(length + 1, path.size()));
    }
}

SharedPtr<SharedHive> shared(const wchar_t* file, unsigned long way)
{
    auto hive = std::make_unique<SharedHive>();
    hive->hive = offline::openHive(file, way);
    return SharedPtr<SharedHive>(hive.release());
}

/// One operation on the hive. `given` tells whether all pointers were given.
template <class Operation>
long operate(const SharedPtr<SharedHive>& shared, bool given, Operation&& operation) noexcept
{
    return boundary::statusFrame([&]() -> long {
        if (!given)
            return ERROR_INVALID_PARAMETER;
        const WriteLocker locker(shared->lock);
        operation(*shared->hive);
        return ERROR_SUCCESS;
    });
}

/// Whether `look` finds its object: false when it raises that it does not exist.
template <class Look>
int isThere(Look&& look)
{
    try {
        look();
        return 1;
    } catch (const long code) {
        if (code != ERROR_FILE_NOT_FOUND)
            throw;
        return 0;
    }
}

/// Gives the names that can be passed to a function: none with one of the `unusable` characters.
void give(const OfflineHive::Names& names, std::wstring_view unusable, wchar_t** target, std::size_t* count)
{
    std::wstring list;
    std::size_t listed = 0;
    for (const std::wstring& name : names) {
        if (name.empty() || name.find_first_of(unusable) != std::wstring::npos)
            continue;
        list.append(name).push_back(L'\0');
        ++listed;
    }
    *target = static_cast<wchar_t*>(utilitymemory::copyText<wchar_t>(list).release());
    *count = listed;
}
} // namespace

std::unique_ptr<OfflineHive> offline::openHive(const wchar_t* file, unsigned long way)
{
    switch (way) {
    case kOfflineAny:
        return OfflineLibrary::load().has_value() ? openByLibrary(file) : openByEngine(file);
    case kOfflineLibrary:
        return openByLibrary(file);
    case kOfflineEngine:
        return openByEngine(file);
    default:
        raiseCode(ERROR_INVALID_PARAMETER);
    }
}

OfflineRegistryKey::OfflineRegistryKey(const wchar_t* hiveFile, const wchar_t* path, unsigned long way)
{
    if (path == nullptr)
        raiseCode(ERROR_INVALID_PARAMETER);
    requirePath(path);
    m_path = path;
    m_hive = shared(hiveFile, way);
}

OfflineRegistryKey::OfflineRegistryKey(const SharedPtr<SharedHive>& hive, std::wstring&& path)
    : m_hive(hive), m_path(std::move(path))
{
    requirePath(m_path);
}

unsigned long OfflineRegistryKey::getWay() const noexcept
{
    return m_hive->hive->way();
}

long OfflineRegistryKey::exists(int* isThere) const noexcept
{
    return operate(m_hive, isThere != nullptr, [&](OfflineHive& hive) {
        *isThere = ::isThere([&] { static_cast<void>(hive.information(m_path)); });
    });
}

long OfflineRegistryKey::create(const wchar_t* className) noexcept
{
    return operate(m_hive, true, [&](OfflineHive& hive) { hive.create(m_path, className); });
}

long OfflineRegistryKey::deleteItem() noexcept
{
    return operate(m_hive, true, [&](OfflineHive& hive) {
        if (m_path.empty())
            raiseCode(offline::kNotPossible);
        hive.remove(m_path);
    });
}

long OfflineRegistryKey::getInformation(unsigned long long* lastWriteTime, wchar_t** className) const noexcept
{
    return operate(m_hive, lastWriteTime != nullptr && className != nullptr, [&](OfflineHive& hive) {
        const auto [time, name] = hive.information(m_path);
        *className = static_cast<wchar_t*>(utilitymemory::copyText<wchar_t>(name).release());
        *lastWriteTime = time;
    });
}

long OfflineRegistryKey::listSubKeys(wchar_t** names, std::size_t* count) const noexcept
{
    return operate(m_hive, names != nullptr && count != nullptr,
                   [&](OfflineHive& hive) { give(hive.keys(m_path), offline::kNoKeyName, names, count); });
}

long OfflineRegistryKey::listValues(wchar_t** names, std::size_t* count) const noexcept
{
    return operate(m_hive, names != nullptr && count != nullptr, [&](OfflineHive& hive) {
        give(hive.values(m_path), {L"\0", 1}, names, count);
    });
}

long OfflineRegistryKey::getKey(const wchar_t* path, IOfflineRegistryKey** key) const noexcept
{
    return operate(m_hive, path != nullptr && key != nullptr, [&](OfflineHive&) {
        const std::wstring_view below(path);
        std::wstring whole = m_path;
        if (!whole.empty() && !below.empty())
            whole += L'\\';
        whole += below;
        *key = std::make_unique<OfflineRegistryKey>(m_hive, std::move(whole)).release();
    });
}

long OfflineRegistryKey::getValue(const wchar_t* name, IOfflineRegistryValue** value) const noexcept
{
    return operate(m_hive, name != nullptr && value != nullptr, [&](OfflineHive&) {
        *value = std::make_unique<OfflineRegistryValue>(m_hive, m_path, name).release();
    });
}

long OfflineRegistryKey::save(const wchar_t* newFile) const noexcept
{
    return operate(m_hive, newFile != nullptr, [&](OfflineHive& hive) {
        offline::createFile(newFile, [&](const wchar_t* name) { hive.save(name); });
    });
}

long OfflineRegistryKey::getCounts(std::size_t* subKeys, std::size_t* values,
                                   std::size_t* keysBelow) const noexcept
{
    return operate(m_hive, subKeys != nullptr && values != nullptr && keysBelow != nullptr,
                   [&](OfflineHive& hive) { std::tie(*subKeys, *values, *keysBelow) = hive.counts(m_path); });
}

OfflineRegistryValue::OfflineRegistryValue(const SharedPtr<SharedHive>& hive, const std::wstring& key,
                                           const wchar_t* name)
    : m_hive(hive), m_key(key), m_name(name)
{
    if (m_name.size() > Hive::kLongestValueName)
        raiseCode(offline::kTooDeep);
}

long OfflineRegistryValue::exists(int* isThere) const noexcept
{
    return operate(m_hive, isThere != nullptr, [&](OfflineHive& hive) {
        *isThere = ::isThere([&] { static_cast<void>(hive.value(m_key, m_name)); });
    });
}

long OfflineRegistryValue::getData(unsigned long* type, unsigned char** data,
                                   std::size_t* size) const noexcept
{
    return operate(m_hive, type != nullptr && data != nullptr && size != nullptr, [&](OfflineHive& hive) {
        const auto [found, bytes] = hive.value(m_key, m_name);
        utilitymemory::Owner memory = utilitymemory::allocate(bytes.size());
        if (!bytes.empty())
            std::memcpy(memory.get(), bytes.data(), bytes.size());
        *data = static_cast<unsigned char*>(memory.release());
        *type = found;
        *size = bytes.size();
    });
}

long OfflineRegistryValue::setData(unsigned long type, const void* data, std::size_t size) noexcept
{
    return operate(m_hive, data != nullptr || size == 0,
                   [&](OfflineHive& hive) { hive.setValue(m_key, m_name, type, data, size); });
}

long OfflineRegistryValue::deleteItem() noexcept
{
    return operate(m_hive, true, [&](OfflineHive& hive) { hive.removeValue(m_key, m_name); });
}
