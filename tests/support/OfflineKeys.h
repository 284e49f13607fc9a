#pragma once

#include "core/win32/registry/offline/api.h"
#include "support/Utilities.h"

// The objects of hives, as owners of what their calls return.
using OfflineKey = std::unique_ptr<IOfflineRegistryKey>;
using OfflineValue = std::unique_ptr<IOfflineRegistryValue>;

inline OfflineKey keyOf(const OfflineKey& key, const std::wstring& path)
{
    IOfflineRegistryKey* found = nullptr;
    EXPECT_EQ(key->getKey(path.c_str(), &found), 0);
    return OfflineKey(found);
}
inline OfflineValue valueOf(const OfflineKey& key, const std::wstring& name)
{
    IOfflineRegistryValue* found = nullptr;
    EXPECT_EQ(key->getValue(name.c_str(), &found), 0);
    return OfflineValue(found);
}
inline std::wstring keysOf(const OfflineKey& key)
{
    return listOf([&](auto... list) { return key->listSubKeys(list...); });
}
inline std::wstring valuesOf(const OfflineKey& key)
{
    return listOf([&](auto... list) { return key->listValues(list...); });
}
/// "type: bytes", or the code.
inline std::string dataOf(const OfflineKey& key, const std::wstring& name)
{
    unsigned long type = 0;
    Given<unsigned char> data;
    std::size_t size = 0;
    const long code = valueOf(key, name)->getData(&type, &data, &size);
    return code != 0 ? "code " + std::to_string(code)
                     : std::to_string(type) + ": " + std::string(data.get(), data.get() + size);
}
/// The number of places that a salvage of the file omitted, or minus its code.
inline long long salvage(const std::wstring& file, const std::wstring& target)
{
    Given<HiveLoss> losses;
    std::size_t count = 0;
    return numberOf<std::size_t>(
        [&](auto* total) { return HiveFileSalvage(file.c_str(), target.c_str(), &losses, &count, total); });
}
