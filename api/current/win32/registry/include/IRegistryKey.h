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

/// What registry items have in common. The operations raise an Exception with the system's Win32 code.
///
/// Paths may have any length. Names longer than the registry takes them, 255 characters for a key and 16,383
/// for a value, are refused with 206 by every operation that asks the registry.
///
/// Of an item that a walk has found, the key is opened as itself: when a link was put in its place meanwhile,
/// that is not followed. Before it is changed or deleted, the way to it is gone key by key from the walk's
/// root on: when one of them is a link by then, it is refused with 681 and nothing is touched. Reading
/// follows a link that was put in the place of a key further up.
///
/// HKEY_CLASSES_ROOT shows two keys as one: the logged-on user's below HKEY_CURRENT_USER\Software\Classes and
/// the machine's below HKEY_LOCAL_MACHINE\Software\Classes. Reading goes through that view. Changes go to one
/// of the two hives, and never to what the other one holds:
/// - Deleting takes the key or the value away where it stands. One that stands in both hives is refused with
///   50 and nothing is touched, because what is deleted in one would still be seen in the other; to delete
///   one half, name it by its own root.
/// - A value is written into the user's key if there is one, else into the machine's. A new key is made in
/// the
///   hive of the nearest key above it, the user's first; without any, in the machine's.
/// - While nobody is logged on, only the machine's hive counts.
/// A caller's own handle below HKEY_CLASSES_ROOT is not taken apart like this: deleting a key then takes away
/// the one that the system opens, with what is below it in that hive alone.
///
/// When the logged-on user logs off, his hive is gone, and the system says of every key in it that it is
/// deleted (1018). That code is checked against the hive: an item that a caller named then opens the hive of
/// whoever is the current user by now and asks once more, for reading; for changes, and of what a walk has
/// found, 1018 is raised. A scan ends with it. What is not there is told of a hive that is.
///
/// A walk from HKEY_CURRENT_USER goes through the system's own link HKEY_CURRENT_USER\Software\Classes to the
/// user's classes, HKEY_USERS\<SID>_Classes, and through no other link.
///
/// Both were proven with Windows' answers simulated.
///
/// A key that only stands for performance data, such as ...\Perflib\009, lists as empty; deleting it or
/// writing its values is refused with 50.
struct IRegistryItem
{
    virtual ~IRegistryItem() = default;
    /// The full path: the root's long name, a backslash and the sub-key path; for a value another backslash
    /// and its name follow. Any root that is not HKEY_CLASSES_ROOT, HKEY_LOCAL_MACHINE, HKEY_USERS or
    /// HKEY_CURRENT_CONFIG is called "HKEY_CURRENT_USER". Owned by the item.
    ///
    /// Rules that look at names see what PathFindFileNameW cuts out: what follows the last backslash, slash
    /// or colon that something else follows. For a key's default value, whose path ends with a backslash,
    /// that is the key's name and the backslash.
    [[nodiscard]] virtual const wchar_t* getPath() const = 0;
    /// Makes the key with all missing parents, or writes the value into its key, which must exist; without
    /// data that was set or read it is an empty one.
    virtual void create() = 0;
    /// Removes the value, or the key with everything below it. Links below it are removed, not their targets.
    /// When something cannot be removed the code is raised at once: what was removed until then is gone, the
    /// rest, with all keys above it, is left. A key whose name holds a zero, which Win32 cannot name, stops
    /// it with 123, and one that stands for performance data with 50. A key without a sub-key path, a whole
    /// root, is refused with 87.
    virtual void deleteItem() = 0;
    /// Nonzero when the key or value is there. Raises the system's code when it cannot tell.
    [[nodiscard]] virtual int exists() const = 0;
    /// The handle to open under: the root, or for HKEY_CURRENT_USER the hive of the current user
    /// (SetCurrentUserSession), which is opened once (ImpersonateCurrentUser, RegOpenCurrentUser for
    /// reading), and anew after he has logged off. Owned by the item, which keeps the old ones open.
    [[nodiscard]] virtual HKEY getHKEY() const = 0;
    /// Reads and writes the item's state; see ScanItem for the bits of `code`. The path text is the sub-key
    /// path. Own fields: the root as the low 32 bits of its predefined handle and the options word, u32 each.
    /// Any other handle means nothing to whoever loads the item: it is written as 0, and all operations of
    /// the loaded item but those on its texts and its data give 6.
    virtual long load(unsigned long code, IInputByteStream& stream) = 0;
    virtual long dump(unsigned long code, IOutputByteStream& stream) const = 0;
};

/// A registry key.
struct IRegistryKey : IRegistryItem
{
};

/// A value of a registry key. Own fields of its serialized form after those of its key: the name (string),
/// the type (u32), what is known (u32: bit 0 the data, bit 1 the type; other bits are refused with 13), and
/// if it is known the data as a blob.
struct IRegistryValue : IRegistryItem
{
    /// The value's name, empty for a key's default value. Owned by the item.
    [[nodiscard]] virtual const wchar_t* getName() const noexcept = 0;
    /// The value's type (REG_SZ, ...), as set, as the scan that found it saw it, or as the registry says now.
    [[nodiscard]] virtual unsigned long getValueType() = 0;
    /// The data that was set, or else the value's data, read at the first call and kept. `size` receives its
    /// length in bytes. Owned by the item, valid until it is changed; may be null when `size` is 0.
    virtual const void* getData(unsigned long& size) = 0;
    /// Keeps a type and a copy of `size` bytes for create to write. Raises 87 for null data of a size other
    /// than 0, or 8; the old data is kept then.
    virtual void setData(unsigned long type, const void* data, unsigned long size) = 0;
    /// Writes it to the registry and, once it is written, keeps it as setData does. When anything fails the
    /// item keeps its old type and data.
    virtual void setValue(unsigned long type, const void* data, unsigned long size) = 0;
};
