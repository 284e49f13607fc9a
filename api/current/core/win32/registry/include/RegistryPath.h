#pragma once

#include "core/win32/registry/include/RegistryKey.h"
#include "core/win32/utils/scanengine/include/ScanPath.h"

/// A registry key that can be walked; see IScanPath. A key's values are reported before its sub-keys.
class RegistryPath final : public RegistryKey, public ScanPath
{
public:
    /// Raises RegistryKey's failures from RegistryPath::RegistryPath.
    RegistryPath(HKEY root, const wchar_t* subKey, unsigned long options);
    /// For the walk: a key below `parent`.
    RegistryPath(const RegistryPath& parent, HeapStringW&& subKey)
        : RegistryKey(parent, std::move(subKey)), ScanPath(parent.getLevel() + 1)
    {
    }

private:
    void list(Walk& walk) override;
    [[nodiscard]] const char* scanPlace() const noexcept override;
    [[nodiscard]] bool isFoundLink() const override;
    [[nodiscard]] bool hasValues() const noexcept override { return true; }

    /// Opens the key. Empty when it has been deleted since it was found, and when it only stands for
    /// performance data. Raises a ListingFailure.
    [[nodiscard]] RegistryKeyHandle openToList(bool isRoot) const;
    void requireHive(LSTATUS status) const;
    [[nodiscard]] bool isUserClasses() const noexcept;
    bool openUserClasses(HKEY hive, REGSAM access, HKEY* opened) const;
    /// Both return the code that the listing ended with; everything found before that is reported.
    LSTATUS reportValues(HKEY key, Walk& walk) const;
    LSTATUS reportKeys(HKEY key, Walk& walk) const;
};
