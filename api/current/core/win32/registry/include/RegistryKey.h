#pragma once

#include <optional>
#include <string>
#include <vector>

#include "core/win32/utils/objectmanager/include/ReadWriteLock.h"
#include "core/win32/utils/objectmanager/include/Win32Handle.h"
#include "win32/communication/include/Primitives.h"
#include "win32/registry/include/IRegistryKey.h"
#include "win32/scanengine/include/ScanItem.h"

/// Deletes a key and what is below it, deepest first. `top` was opened as itself where it is a link (which
/// has no sub-keys of its own), and is deleted by its handle: by name the system may go through the link and
/// delete what it leads to. What somebody else deletes in between is gone as well. Raises the bare code of
/// the first key that cannot be deleted. Returns whether nothing had gone before.
bool deleteKeyTree(RegistryKeyHandle&& top);

/// The logged-on user's hive, shared by the keys of one walk.
using UserHive = SharedPtr<RegistryKeyHandle>;

/// A registry key; see IRegistryKey for what its operations promise.
class RegistryKey : public ScanItem, public IRegistryKey
{
public:
    /// Of an item that a walk has found, the length of the walk's root within its sub-key path.
    using RootLength = std::optional<std::size_t>;

    RegistryKey() : RegistryKey(kRegistryKeyItem) {}
    /// Raises an Exception from RegistryKey::RegistryKey: 87 for a null root or path or both views at
    /// once, 8.
    RegistryKey(HKEY root, const wchar_t* subKey, unsigned long options);
    /// For the walk: a key below `parent`, with what the parent knows.
    RegistryKey(const RegistryKey& parent, HeapStringW&& subKey);
    RegistryKey(const RegistryKey&) = delete;
    RegistryKey& operator=(const RegistryKey&) = delete;

    /// The full path, built at the first request and kept.
    [[nodiscard]] const wchar_t* getPath() const override;
    /// Sets the sub-key path.
    void setPath(const wchar_t* path, int expand) override;
    [[nodiscard]] const IIdentifierW& getIdentifier() const override;
    /// A key and a value may have the same full path, and so may keys of different roots or views.
    [[nodiscard]] bool isInterchangeable(const ScanItem& filed) const override;
    void create() override;
    void deleteItem() override;
    [[nodiscard]] int exists() const override;
    [[nodiscard]] HKEY getHKEY() const override;
    [[nodiscard]] RootLength rootLength() const noexcept { return m_rootLength; }
    long load(unsigned long code, IInputByteStream& stream) override;
    long dump(unsigned long code, IOutputByteStream& stream) const override;

protected:
    /// Has the full path built anew after the sub-key path was changed, or after a change of it failed.
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
    /// Puts path, root and options back as they were, unless it is released.
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
    /// Of what a walk finds below this key.
    [[nodiscard]] std::size_t rootLengthBelow() const noexcept
    {
        return m_rootLength.value_or(subKey().size());
    }

    [[nodiscard]] std::wstring_view subKey() const noexcept { return path().view(); }
    /// What follows the key's full path in the item's.
    [[nodiscard]] virtual std::wstring_view pathSuffix() const noexcept { return {}; }
    /// Runs one operation; what it raises becomes an Exception at `place`, but for what getHKEY raises, which
    /// has its own.
    template <class Step>
    void placedOperation(const char* place, Step&& step) const
    {
        static_cast<void>(getHKEY());
        primitives::placedStep(place, step);
    }
    /// Opens the key. Raises the bare code, or what getHKEY raises. A key that a walk has found, or that
    /// holds a value that it has found, is opened as itself: what was put in its place meanwhile, a link, is
    /// not followed.
    [[nodiscard]] RegistryKeyHandle open(REGSAM access, DWORD options = 0) const;
    /// What a key is opened for.
    enum class Change
    {
        kWrite,
        kDelete
    };
    /// Opens the key to change it: below HKEY_CLASSES_ROOT in the hive that holds it. Of what a walk has
    /// found no link on the way from the walk's root is followed, either (681). Raises as open does, 5 for a
    /// key that was made for reading only, or 50 for what stands in both hives and is to be deleted, and for
    /// a key that only stands for performance data.
    [[nodiscard]] RegistryKeyHandle openToChange(Change change, REGSAM access, DWORD options = 0) const;
    /// Whether the key, or what an item of a derived class is within it, is there; a key that refuses to be
    /// asked is. `root` is one of the two hives below HKEY_CLASSES_ROOT, `subKey` the key's path in it.
    /// Raises the bare code.
    [[nodiscard]] virtual bool isThereIn(HKEY root, const wchar_t* subKey) const;
    /// Whether `status` says "deleted" because the whole hive of the user is gone: he has logged off, and his
    /// keys are where they were.
    [[nodiscard]] bool isHiveGone(long status) const noexcept;
    /// Has the user's hive opened anew by the next that asks for it. Returns false without memory.
    [[nodiscard]] bool dropHive() const noexcept;
    /// Opens it when it is there; the handle is empty otherwise.
    [[nodiscard]] RegistryKeyHandle openExisting(REGSAM access) const;
    /// Opens the key as open does, by its path below another root.
    [[nodiscard]] RegistryKeyHandle openIn(HKEY root, const wchar_t* subKey, REGSAM access,
                                           DWORD options = 0) const;
    /// Raises a bare 5 for a key that was made for reading only.
    void requireWritable() const;
    [[nodiscard]] REGSAM view() const noexcept;
    [[nodiscard]] bool isOfCurrentUser() const noexcept { return m_root == HKEY_CURRENT_USER; }

private:
    /// Whether the root is one that means the same to everybody.
    [[nodiscard]] bool isNamedRoot() const noexcept;
    /// The logged-on user's hive, opened at the first request and kept. Raises what getHKEY raises.
    [[nodiscard]] HKEY userHive() const;
    /// The same, or null while nobody is logged on.
    [[nodiscard]] HKEY userClassHive() const;
    /// The hive of HKEY_CLASSES_ROOT that holds the item; the machine's when none does. Raises a bare 50 when
    /// both do.
    [[nodiscard]] HKEY onlyClassHive() const;
    /// The hive that HKEY_CLASSES_ROOT shows the key of, or the nearest key above it that is there: the
    /// user's comes first.
    [[nodiscard]] HKEY nearestClassHive() const;
    const CachedPath& fullPath() const;

    HKEY m_root = nullptr;
    unsigned long m_options = 0;
    RootLength m_rootLength;
    mutable ReadWriteLock m_lock; // guards what is built on first request
    mutable std::optional<CachedPath> m_fullPath;
    mutable UserHive m_userHive;
    mutable std::vector<UserHive> m_lostHives; // kept: another thread may still be asking them
};

/// The path of a key below another. Only a backslash separates: a slash or a colon is part of a name.
[[nodiscard]] HeapStringW joinKey(std::wstring_view key, std::wstring_view name);

/// The long name of a root key.
[[nodiscard]] std::wstring_view rootName(HKEY root) noexcept;
