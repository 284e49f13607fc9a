#pragma once

#include "core/win32/registry/include/RegistryKey.h"

/// A value of a registry key; see IRegistryValue for the contract of its operations.
class RegistryValue final : public RegistryKey, public IRegistryValue
{
public:
    RegistryValue() : RegistryKey(kRegistryValueItem) { setName({}); }
    /// Raises an Exception from RegistryValue::RegistryValue: 87 for a null root, path or name, 8.
    RegistryValue(HKEY root, const wchar_t* subKey, const wchar_t* name, unsigned long options);
    /// With initial data: `text` as a REG_SZ value, which create writes. Raises as above.
    RegistryValue(HKEY root, const wchar_t* subKey, const wchar_t* name, const wchar_t* text);
    /// For the walk: a value of `key`, whose sub-key path is `subKey`.
    RegistryValue(const RegistryKey& key, std::wstring_view subKey, std::wstring_view name,
                  unsigned long type);
    ~RegistryValue() override { processheap::release(m_data); }

    [[nodiscard]] const wchar_t* getPath() const override { return RegistryKey::getPath(); }
    /// Sets the sub-key path and discards what was read of the old key's value.
    void setPath(const wchar_t* path, int expand) override;
    void create() override;
    void deleteItem() override;
    [[nodiscard]] int exists() const override;
    [[nodiscard]] HKEY getHKEY() const override { return RegistryKey::getHKEY(); }
    [[nodiscard]] const wchar_t* getName() const noexcept override { return m_suffix.c_str() + 1; }
    [[nodiscard]] unsigned long getValueType() override;
    const void* getData(unsigned long& size) override;
    void setData(unsigned long type, const void* data, unsigned long size) override;
    void setValue(unsigned long type, const void* data, unsigned long size) override;
    long load(unsigned long code, IInputByteStream& stream) override;
    long dump(unsigned long code, IOutputByteStream& stream) const override;

private:
    [[nodiscard]] bool isThereIn(HKEY root, const wchar_t* subKey) const override;
    [[nodiscard]] std::wstring_view pathSuffix() const noexcept override { return m_suffix; }
    struct Content
    {
        std::optional<unsigned long> type;
        const void* data;
        unsigned long size;
        bool isKnown;
    };
    /// What is known so far. It stays in place until the item is changed.
    [[nodiscard]] Content content() const noexcept;
    void setName(std::wstring_view name);
    void keep(unsigned long type, void* data, unsigned long size) noexcept;
    /// These raise the bare code.
    void requireName() const;
    [[nodiscard]] bool hasValue(HKEY key) const;
    void write(unsigned long type, const void* data, unsigned long size) const;

    HeapStringW m_suffix; // a backslash and the name
    std::optional<unsigned long> m_type;
    void* m_data = nullptr; // process heap
    unsigned long m_size = 0;
    bool m_hasData = false;
    bool m_isRead = false;            // type and data come from the registry, not from the caller
    mutable ReadWriteLock m_dataLock; // guards what is read at the first call
};
