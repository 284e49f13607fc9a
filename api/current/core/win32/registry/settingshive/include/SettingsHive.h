#pragma once

#include <optional>
#include <string>
#include <tuple>

#include "core/win32/registry/offline/include/OfflineFile.h"
#include "core/win32/utils/objectmanager/include/ObjectTable.h"
#include "core/win32/utils/objectmanager/include/ReadWriteLock.h"
#include "win32/registry/include/SettingsHiveFlags.h"

/// Settings in a hive file; api.h documents the operations. They raise bare codes.
class SettingsHive
{
public:
    static constexpr const char* kClassName = "SettingsHive";
    /// A list of names or texts as callers get it, and its length.
    using List = std::tuple<std::wstring, std::size_t>;
    using Bytes = std::basic_string<unsigned char>;

    SettingsHive(const wchar_t* path, unsigned long flags);
    /// The same for all spellings of a file. Raises 87 for an empty one, 161 for what is no file.
    [[nodiscard]] static std::wstring nameOf(const wchar_t* path);
    [[nodiscard]] bool isReadOnly() const noexcept { return (m_flags & kSettingsReadOnly) != 0; }
    SettingsHive(const SettingsHive&) = delete;
    SettingsHive& operator=(const SettingsHive&) = delete;
    virtual ~SettingsHive() = default;

    void save();
    [[nodiscard]] unsigned long state() const;

    void createKey(std::wstring_view key);
    void deleteKey(std::wstring_view key);
    [[nodiscard]] List keys(std::wstring_view key) const;
    [[nodiscard]] List values(std::wstring_view key) const;
    /// Type and data.
    [[nodiscard]] std::tuple<unsigned long, Bytes> value(std::wstring_view key, std::wstring_view name) const;
    void setValue(std::wstring_view key, std::wstring_view name, unsigned long type, const void* data,
                  std::size_t size);
    void deleteValue(std::wstring_view key, std::wstring_view name);

    [[nodiscard]] std::wstring text(std::wstring_view key, std::wstring_view name) const;
    [[nodiscard]] List texts(std::wstring_view key, std::wstring_view name) const;
    /// Data of exactly this type, and of this size unless that is 0.
    [[nodiscard]] Bytes data(std::wstring_view key, std::wstring_view name, unsigned long type,
                             std::size_t size) const;

private:
    void load(std::vector<std::byte>&& bytes);
    /// Raises 2 for a missing key. The caller holds the lock.
    [[nodiscard]] offline::KeyId find(std::wstring_view key) const;
    [[nodiscard]] offline::ValueId find(offline::KeyId key, std::wstring_view name) const;
    template <class Change>
    void change(Change&& change);

    std::wstring m_path; // absolute
    unsigned long m_flags;
    ReadWriteLock m_saving; // acquired before the other one: one save at a time
    mutable ReadWriteLock m_lock;
    std::optional<offline::Hive> m_hive;
    std::optional<offline::FileStamp> m_stamp; // of the file that was read or saved; guarded by m_saving
    unsigned long m_original = 0;              // bits of SettingsHiveState that the file gave
    std::optional<std::vector<std::byte>>
        m_damaged; // the damaged or unclosed file as it was read, until a save has replaced it
    bool m_isNew = false;
    unsigned long long m_changes = 0;
    unsigned long long m_saved = 0; // how many of them are saved
};

/// The table of all settings.
extern ObjectTable<SharedPtr<SettingsHive>> settingsHives;
