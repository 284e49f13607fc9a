#pragma once

#include <cstddef>

/// The way in which a hive file is served.
enum OfflineWay : unsigned long
{
    kOfflineAny = 0,     ///< the system's library if there is one, otherwise the engine
    kOfflineLibrary = 1, ///< the system's offreg.dll, from the system folder only
    kOfflineEngine = 2   ///< the built-in engine
};

// Keys and values of a registry hive file that is not loaded. All objects that come from one call of
// DllGetOfflineRegistryKey share the hive, which stays in memory while one of them lives; only save writes
// changes to a file. Several threads may use them.
//
// The operations return 0 or a code: 87 for a null pointer, 8, 2 for a missing key or value, and those that
// they name. A failure changes nothing unless stated otherwise. 123 means a path with an empty name (one that
// begins or ends with a backslash, or has two in a row), 206 a name of more than 255 characters (for a value,
// 16,383), a key more than 511 levels below the root, or a class name of more than 32,767 characters. Names
// are found without regard to case. The caller frees returned buffers with utilsFreeMemory. The system's
// library may return further codes; that way was proven only with a stand-in for it.

/// A value, which need not exist yet.
struct IOfflineRegistryValue
{
    virtual ~IOfflineRegistryValue() = default;
    /// Empty for the key's unnamed value. Owned by the object.
    [[nodiscard]] virtual const wchar_t* getName() const noexcept = 0;
    /// Also returns 0, with `isThere` 0, when the key does not exist.
    virtual long exists(int* isThere) const noexcept = 0;
    /// The type and the raw data.
    virtual long getData(unsigned long* type, unsigned char** data, std::size_t* size) const noexcept = 0;
    /// Sets both; the key must exist. `data` may be null when `size` is 0. Also 223 for more than about 1 GB.
    virtual long setData(unsigned long type, const void* data, std::size_t size) noexcept = 0;
    virtual long deleteItem() noexcept = 0;
};

/// A key, which need not exist yet.
struct IOfflineRegistryKey
{
    virtual ~IOfflineRegistryKey() = default;
    /// Below the hive's root; empty for the root. Owned by the object.
    [[nodiscard]] virtual const wchar_t* getPath() const noexcept = 0;
    /// kOfflineLibrary or kOfflineEngine.
    [[nodiscard]] virtual unsigned long getWay() const noexcept = 0;
    virtual long exists(int* isThere) const noexcept = 0;
    /// Creates the key and its missing parents. An existing key stays unchanged. `className` may be null. If
    /// the system's library fails in between, some parents may have been created.
    virtual long create(const wchar_t* className) noexcept = 0;
    /// Deletes the key and everything below it. Also 50 for the root. If the system's library fails in
    /// between, what was deleted by then is gone; it deletes no key whose name no path can express (123).
    virtual long deleteItem() noexcept = 0;
    /// The number of 100 ns since 1601 in UTC, and the class name, usually empty.
    virtual long getInformation(unsigned long long* lastWriteTime, wchar_t** className) const noexcept = 0;
    /// The names in the system's order, each terminated, with an empty one at the end. Names that contain a
    /// zero or a backslash, which hostile files have and no path can express, are omitted.
    virtual long listSubKeys(wchar_t** names, std::size_t* count) const noexcept = 0;
    /// The same, in the order of the file, without the unnamed value; only names that contain a zero are
    /// omitted.
    virtual long listValues(wchar_t** names, std::size_t* count) const noexcept = 0;
    /// The key at `path` below this one; empty: this one. The caller deletes it.
    virtual long getKey(const wchar_t* path, IOfflineRegistryKey** key) const noexcept = 0;
    /// The caller deletes it.
    virtual long getValue(const wchar_t* name, IOfflineRegistryValue** value) const noexcept = 0;
    /// Writes the whole hive to a new file, compactly, and flushes it; it appears complete under its name,
    /// and is <name>.<process id>-<number>.tmp until then. Also 183 for an existing file, 161 for what cannot
    /// be a file on a disk (a device such as NUL, a pipe, a stream, a path that ends with a backslash), 223
    /// (above 2 GiB), or the system's code: no new file is left then.
    virtual long save(const wchar_t* newFile) const noexcept = 0;
    /// How many sub-keys and values the key itself has, with those that cannot be listed and the unnamed
    /// value, and how many keys there are below it at any depth; the system's library does not count those
    /// below a key whose name no path can express.
    virtual long getCounts(std::size_t* subKeys, std::size_t* values,
                           std::size_t* keysBelow) const noexcept = 0;
};
