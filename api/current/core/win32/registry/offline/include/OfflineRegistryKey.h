#pragma once

#include "core/win32/registry/offline/include/OfflineHive.h"
#include "core/win32/utils/objectmanager/include/ReadWriteLock.h"
#include "core/win32/utils/objectmanager/include/SharedPtr.h"
#include "win32/registry/include/IOfflineRegistryKey.h"

/// A hive shared by keys and values, and its lock.
struct SharedHive
{
    std::unique_ptr<offline::OfflineHive> hive;
    ReadWriteLock lock;
};

/// IOfflineRegistryKey documents the operations.
class OfflineRegistryKey final : public IOfflineRegistryKey
{
public:
    /// Raises a bare code.
    OfflineRegistryKey(const wchar_t* hiveFile, const wchar_t* path, unsigned long way);
    OfflineRegistryKey(const SharedPtr<SharedHive>& hive, std::wstring&& path);

    [[nodiscard]] const wchar_t* getPath() const noexcept override { return m_path.c_str(); }
    [[nodiscard]] unsigned long getWay() const noexcept override;
    long exists(int* isThere) const noexcept override;
    long create(const wchar_t* className) noexcept override;
    long deleteItem() noexcept override;
    long getInformation(unsigned long long* lastWriteTime, wchar_t** className) const noexcept override;
    long listSubKeys(wchar_t** names, std::size_t* count) const noexcept override;
    long listValues(wchar_t** names, std::size_t* count) const noexcept override;
    long getKey(const wchar_t* path, IOfflineRegistryKey** key) const noexcept override;
    long getValue(const wchar_t* name, IOfflineRegistryValue** value) const noexcept override;
    long save(const wchar_t* newFile) const noexcept override;
    long getCounts(std::size_t* subKeys, std::size_t* values, std::size_t* keysBelow) const noexcept override;

private:
    SharedPtr<SharedHive> m_hive;
    std::wstring m_path;
};

/// IOfflineRegistryValue documents the operations.
class OfflineRegistryValue final : public IOfflineRegistryValue
{
public:
    OfflineRegistryValue(const SharedPtr<SharedHive>& hive, const std::wstring& key, const wchar_t* name);

    [[nodiscard]] const wchar_t* getName() const noexcept override { return m_name.c_str(); }
    long exists(int* isThere) const noexcept override;
    long getData(unsigned long* type, unsigned char** data, std::size_t* size) const noexcept override;
    long setData(unsigned long type, const void* data, std::size_t size) noexcept override;
    long deleteItem() noexcept override;

private:
    SharedPtr<SharedHive> m_hive;
    std::wstring m_key;
    std::wstring m_name;
};
