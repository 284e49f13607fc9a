#pragma once

#include <optional>
#include <string>
#include <vector>

#include "core/win32/utils/objectmanager/include/ReadWriteLock.h"
#include "core/win32/utils/objectmanager/include/Win32Handle.h"
#include "win32/communication/include/Primitives.h"
#include "win32/registry/include/IRegistryKey.h"
#include "win32/scanengine/include/ScanItem.h"

/// Deletes a key and everything below it, deepest first. If `top` is a link (which has no sub-keys of its
/// own), it was opened without following it, and it is deleted by handle: by name the system may follow the
/// link and delete its target. Keys that somebody else deletes meanwhile count as deleted. Raises the bare
/// code of the first key that cannot be deleted. Returns whether nothing was already gone.
bool deleteKeyTree(RegistryKeyHandle&& top);

/// The logged-on user's hive, shared by the keys of one walk.
using UserHive = SharedPtr<RegistryKeyHandle>;

/// A registry key; see IRegistryKey for the contract of its operations.
class RegistryKey : public ScanItem, public IRegistryKey
{
public:
    /// For an item found by a walk, the length of the walk's root within its sub-key path.
    using RootLength = std::optional<std::size_t>;

    RegistryKey() : RegistryKey(kRegistryKeyItem) {}
    /// Raises an Exception from RegistryKey::RegistryKey: 87 for a null root or path or both views at
    /// once, 8.
    RegistryKey(HKEY root, const wchar_t* subKey, unsigned long options);
    /// For the walk: a key below `parent`, which passes on what it knows.
    RegistryKey(const RegistryKey& parent, HeapStringW&& subKey);
    RegistryKey(const RegistryKey&) = delete;
    RegistryKey& operator=(const RegistryKey&) = delete;

    /// The full path, built at the first call and kept.
    [[nodiscard]] const wchar_t* getPath() const override;
    /// Sets the sub-key path.
    void setPath(const wchar_t* path, int expand) override;
    [[nodiscard]] const IIdentifierW& getIdentifier() const override;
    /// A key and a value may have the same full path, as may keys of different roots or views.
    [[nodiscard]] bool isInterchangeable(const ScanItem& filed) const override;
    void create() override;
    void deleteItem() override;
    [[nodiscard]] int exists() const override;
    [[nodiscard]] HKEY getHKEY() const override;
    [[nodiscard]] RootLength rootLength() const noexcept { return m_rootLength; }
    long load(unsigned long code, IInputByteStream& stream) override;
    long dump(unsigned long code, IOutputByteStream& stream) const override;

protected:
    /// Makes the full path be rebuilt after the sub-key path was changed, or after a change failed.
    class FullPathReset
    {
    public:
        explicit FullPathReset(RegistryKey& key) noexcept : m_key(key) {}
        FullPathReset(const FullPathReset&) = delete;
        FullPathReset& operator=(const FullPathReset&) = delete;
        ~FullPathReset();

    private:
        RegistryKey& m_key;
    };
    /// Restores path, root and options unless it is released.
    class KeptState
    {
    public:
        explicit KeptState(RegistryKey& key)
            : m_key(key), m_path(key), m_root(key.m_root), m_options(key.m_options),
              m_rootLength(key.m_rootLength), m_userHive(key.m_userHive)
        {
        }
        KeptState(const KeptState&) = delete;
        KeptState& operator=(const KeptState&) = delete;
        ~KeptState();
        void release() noexcept
        {
            m_isReleased = true;
            m_path.release();
        }

    private:
        RegistryKey& m_key;
        KeptPath m_path;
        HKEY m_root;
        unsigned long m_options;
        RootLength m_rootLength;
        UserHive m_userHive;
        bool m_isReleased = false;
    };

    explicit RegistryKey(std::uint32_t type) : ScanItem(type) {}
    RegistryKey(std::uint32_t type, HKEY root, const wchar_t* subKey, unsigned long options);
    RegistryKey(std::uint32_t type, const RegistryKey& parent, HeapStringW&& subKey, RootLength rootLength);
    /// The root length for what a walk finds below this key.
    [[nodiscard]] std::size_t rootLengthBelow() const noexcept
    {
        return m_rootLength.value_or(subKey().size());
    }

    [[nodiscard]] std::wstring_view subKey() const noexcept { return path().view(); }
    /// What the item's full path has in addition to the key's.
    [[nodiscard]] virtual std::wstring_view pathSuffix() const noexcept { return {}; }
    /// Runs one operation. What it raises becomes an Exception at `place`, except what getHKEY raises, which
    /// has its own.
    template <class Step>
    void placedOperation(const char* place, Step&& step) const
    {
        static_cast<void>(getHKEY());
        primitives::placedStep(place, step);
    }
    /// Opens the key. Raises the bare code, or what getHKEY raises. If the key, or a value in it, was found
    /// by a walk, the key is opened without following links: a link put in its place meanwhile is not
    /// followed.
    [[nodiscard]] RegistryKeyHandle open(REGSAM access, DWORD options = 0) const;
    /// What a key is opened for.
    enum class Change
    {
        kWrite,
        kDelete
    };
    /// Opens the key to change it; below HKEY_CLASSES_ROOT, in the hive that holds it. For an item found by a
    /// walk no link on the way from the walk's root is followed (681). Raises as open does; 5 for a key that
    /// was created read-only; 50 when something to delete is in both hives, and for a key that only stands
    /// for performance data.
    [[nodiscard]] RegistryKeyHandle openToChange(Change change, REGSAM access, DWORD options = 0) const;
    /// Whether the key, or a derived class's item within it, exists; a key that refuses access counts as
    /// existing. `root` is one of the two hives below HKEY_CLASSES_ROOT, `subKey` the key's path in it.
    /// Raises the bare code.
    [[nodiscard]] virtual bool isThereIn(HKEY root, const wchar_t* subKey) const;
    /// Whether `status` says "deleted" because the user's whole hive is gone: the user has logged off, and
    /// the keys were not deleted.
    [[nodiscard]] bool isHiveGone(long status) const noexcept;
    /// Makes the next caller that needs the user's hive open it anew. Returns false when memory runs out.
    [[nodiscard]] bool dropHive() const noexcept;
    /// Opens the key if it exists; the handle is empty otherwise.
    [[nodiscard]] RegistryKeyHandle openExisting(REGSAM access) const;
    /// Opens the key as open does, by its path below another root.
    [[nodiscard]] RegistryKeyHandle openIn(HKEY root, const wchar_t* subKey, REGSAM access,
                                           DWORD options = 0) const;
    /// Raises a bare 5 for a key that was created read-only.
    void requireWritable() const;
    [[nodiscard]] REGSAM view() const noexcept;
    [[nodiscard]] bool isOfCurrentUser() const noexcept { return m_root == HKEY_CURRENT_USER; }

private:
    /// Whether the root means the same to every process.
    [[nodiscard]] bool isNamedRoot() const noexcept;
    /// The logged-on user's hive, opened at the first call and kept. Raises what getHKEY raises.
    [[nodiscard]] HKEY userHive() const;
    /// The same, or null while nobody is logged on.
    [[nodiscard]] HKEY userClassHive() const;
    /// The hive of HKEY_CLASSES_ROOT that holds the item; the machine's when none does. Raises a bare 50 when
    /// both do.
    [[nodiscard]] HKEY onlyClassHive() const;
    /// The hive from which HKEY_CLASSES_ROOT shows the key, or the nearest existing key above it; the user's
    /// comes first.
    [[nodiscard]] HKEY nearestClassHive() const;
    const CachedPath& fullPath() const;

    HKEY m_root = nullptr;
    unsigned long m_options = 0;
    RootLength m_rootLength;
    mutable ReadWriteLock m_lock; // guards what is built at the first call
    mutable std::optional<CachedPath> m_fullPath;
    mutable UserHive m_userHive;
    mutable std::vector<UserHive> m_lostHives; // kept: other threads may still be using them
};

/// The path of a key below another. Only a backslash separates: slashes and colons are part of a name.
[[nodiscard]] HeapStringW joinKey(std::wstring_view key, std::wstring_view name);

/// The long name of a root key.
[[nodiscard]] std::wstring_view rootName(HKEY root) noexcept;
