#pragma once

#include <windows.h>

#include "win32/communication/include/ByteStream.h"

/// Bits of a registry item's options word. 0 behaves like the plain Win32 calls.
enum RegistryOption : unsigned long
{
    kRegistryReadOnly = 0x0001, ///< create, deleteItem and setValue are refused with 5
    kRegistryView64 = 0x0100,   ///< the 64-bit view of the registry
    kRegistryView32 = 0x0200    ///< the 32-bit view; both views together are refused with 87
};

/// What registry items have in common. Failing operations raise an Exception with the system's Win32 code.
///
/// Paths may have any length. Names longer than the registry accepts, 255 characters for a key and 16,383 for
/// a value, are refused with 206 by every operation that calls the registry.
///
/// The key of an item found by a walk is opened without following links: a link put in its place meanwhile is
/// not followed. Before such an item is changed or deleted, the path from the walk's root is checked key by
/// key: when one of the keys has become a link, the operation is refused with 681 and touches nothing.
/// Reading does follow a link that replaced a key further up.
///
/// HKEY_CLASSES_ROOT merges two keys: the logged-on user's below HKEY_CURRENT_USER\Software\Classes and the
/// machine's below HKEY_LOCAL_MACHINE\Software\Classes. Reading uses the merged view. A change affects one of
/// the two hives and never the other:
/// - A key or value is deleted where it is. One that is in both hives is refused with 50 and nothing is
///   touched: after deletion from one it would still be visible from the other. To delete one half, name it
///   by its own root.
/// - A value is written into the user's key if there is one, otherwise into the machine's. A new key is
///   created in the hive of the nearest existing key above it, the user's first; if there is none, in the
///   machine's.
/// - While nobody is logged on, only the machine's hive counts. A caller's own handle below HKEY_CLASSES_ROOT
///   is not resolved like this: deleting a key then removes the one that the system opens, with what is below
///   it in that hive only.
///
/// When the logged-on user logs off, the hive is gone, and the system reports every key in it as deleted
/// (1018). That code is checked against the hive. For reading, an item named by a caller then opens the
/// current user's hive and tries again. For changes, and for items found by a walk, 1018 is raised. It ends a
/// scan. Something is reported missing only if its hive is there.
///
/// A walk from HKEY_CURRENT_USER follows the system's own link HKEY_CURRENT_USER\Software\Classes to the
/// user's classes, HKEY_USERS\<SID>_Classes, and no other link.
///
/// Both were proven with Windows' answers simulated.
///
/// A key that only stands for performance data, such as ...\Perflib\009, lists as empty; deleting it or
/// writing its values is refused with 50.
struct IRegistryItem
{
    virtual ~IRegistryItem() = default;
    /// The full path: the root's long name, a backslash and the sub-key path; for a value, another backslash
    /// and its name. Any root other than HKEY_CLASSES_ROOT, HKEY_LOCAL_MACHINE, HKEY_USERS or
    /// HKEY_CURRENT_CONFIG is called "HKEY_CURRENT_USER". Owned by the item.
    ///
    /// Rules that compare names see what PathFindFileNameW returns: the text after the last backslash, slash
    /// or colon that something else follows. For a key's default value, whose path ends with a backslash,
    /// that is the key's name and the backslash.
    [[nodiscard]] virtual const wchar_t* getPath() const = 0;
    /// Creates the key with all missing parents, or writes the value into its key, which must exist. A value
    /// whose data was neither set nor read is written empty.
    virtual void create() = 0;
    /// Removes the value, or the key with everything below it. Links below it are removed, their targets are
    /// not. The first failure is raised at once: what was removed by then is gone; the rest, with all keys
    /// above it, stays. A key whose name contains a zero, which Win32 cannot name, stops the operation with
    /// 123; one that stands for performance data stops it with 50. A key without a sub-key path, a whole
    /// root, is refused with 87.
    virtual void deleteItem() = 0;
    /// Nonzero when the key or value exists. Raises the system's code when that cannot be determined.
    [[nodiscard]] virtual int exists() const = 0;
    /// The handle to open under: the root, or for HKEY_CURRENT_USER the hive of the current user
    /// (SetCurrentUserSession). The hive is opened once (ImpersonateCurrentUser, RegOpenCurrentUser for
    /// reading), and again after the user has logged off. Owned by the item, which keeps the old handles
    /// open.
    [[nodiscard]] virtual HKEY getHKEY() const = 0;
    /// Reads and writes the item's state; see ScanItem for the bits of `code`. The path text is the sub-key
    /// path. Own fields: the root as the low 32 bits of its predefined handle and the options word, u32 each.
    /// Any other handle is meaningless to the loading process: it is written as 0, and all operations of the
    /// loaded item, except those on its texts and data, return 6.
    virtual long load(unsigned long code, IInputByteStream& stream) = 0;
    virtual long dump(unsigned long code, IOutputByteStream& stream) const = 0;
};

/// A registry key.
struct IRegistryKey : IRegistryItem
{
};

/// A value of a registry key. Own fields of its serialized form, after those of its key: the name (string),
/// the type (u32), what is known (u32: bit 0 the data, bit 1 the type; other bits are refused with 13), and
/// if known the data as a blob.
struct IRegistryValue : IRegistryItem
{
    /// The value's name; empty for a key's default value. Owned by the item.
    [[nodiscard]] virtual const wchar_t* getName() const noexcept = 0;
    /// The value's type (REG_SZ, ...): as set, as seen by the scan that found it, or as the registry reports
    /// it now.
    [[nodiscard]] virtual unsigned long getValueType() = 0;
    /// The data that was set, otherwise the value's data, read at the first call and kept. `size` receives
    /// its length in bytes. Owned by the item, valid until the item is changed; may be null when `size` is 0.
    virtual const void* getData(unsigned long& size) = 0;
    /// Keeps a type and a copy of `size` bytes for create to write. Raises 87 for null data with a size other
    /// than 0, or 8; the old data is kept then.
    virtual void setData(unsigned long type, const void* data, unsigned long size) = 0;
    /// Writes the value to the registry and then keeps it as setData does. On any failure the item keeps its
    /// old type and data.
    virtual void setValue(unsigned long type, const void* data, unsigned long size) = 0;
};
