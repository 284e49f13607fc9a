#pragma once

#include <cstddef>

/// Which of two ways serves the keys of a hive file.
enum OfflineWay : unsigned long
{
    kOfflineAny = 0,     ///< the system's library where it is there, the engine otherwise
    kOfflineLibrary = 1, ///< the system's offreg.dll, from the system folder alone
    kOfflineEngine = 2   ///< our own
};

// Keys and values of a registry hive file that nobody has loaded. All objects that come from one call of
// DllGetOfflineRegistryKey share the hive, which lives in memory as long as one of them; changes reach a file
// only by save. They may be used by several threads.
//
// The operations return 0 or a code: 87 for a null pointer, 8, 2 for a key or value that is not there, and
// those that they name; nothing has changed then, unless they say otherwise. 123 is a path with an empty name
// in it (one that begins or ends with a backslash, or has two together), 206 a name of more than 255
// characters (of a value, 16,383) or a key of more than 512 levels. Names are found without regard to case.
// Buffers are the caller's, who frees them with utilsFreeMemory. The system's library may have further codes
// of its own; that way was proven with a stand-in for it alone.

/// A value, or the place of one that is not there yet.
struct IOfflineRegistryValue
{
    virtual ~IOfflineRegistryValue() = default;
    /// Empty for the key's unnamed value. Owned by the object.
    [[nodiscard]] virtual const wchar_t* getName() const noexcept = 0;
    /// Also 0 with `isThere` 0 when the key is not there.
    virtual long exists(int* isThere) const noexcept = 0;
    /// Type and data as they stand.
    virtual long getData(unsigned long* type, unsigned char** data, std::size_t* size) const noexcept = 0;
    /// Sets both; the key must be there. Also 223 for more than about 1 GB.
    virtual long setData(unsigned long type, const void* data, std::size_t size) noexcept = 0;
    virtual long deleteItem() noexcept = 0;
};

/// A key, or the place of one that is not there yet.
struct IOfflineRegistryKey
{
    virtual ~IOfflineRegistryKey() = default;
    /// Below the hive's root; empty for the root. Owned by the object.
    [[nodiscard]] virtual const wchar_t* getPath() const noexcept = 0;
    /// kOfflineLibrary or kOfflineEngine.
    [[nodiscard]] virtual unsigned long getWay() const noexcept = 0;
    virtual long exists(int* isThere) const noexcept = 0;
    /// Makes the key with all that are missing above it. One that is there already stays as it is.
    /// `className` may be null. Where the library fails in between, those above it may have been made.
    virtual long create(const wchar_t* className) noexcept = 0;
    /// Deletes the key with all that is below it. Also 50 for the root. Where the library fails in between,
    /// what went until then is gone.
    virtual long deleteItem() noexcept = 0;
    /// The number of 100 ns since 1601 in UTC, and the class name, mostly empty.
    virtual long getInformation(unsigned long long* lastWriteTime, wchar_t** className) const noexcept = 0;
    /// Names, each terminated, and an empty one behind the last; in the system's order. Names with a zero in
    /// them, which no function can be given, are left out.
    virtual long listSubKeys(wchar_t** names, std::size_t* count) const noexcept = 0;
    /// The same, in the order of the file, without the unnamed value.
    virtual long listValues(wchar_t** names, std::size_t* count) const noexcept = 0;
    /// The key at `path` below this one; empty: this one. The caller deletes it.
    virtual long getKey(const wchar_t* path, IOfflineRegistryKey** key) const noexcept = 0;
    /// The caller deletes it.
    virtual long getValue(const wchar_t* name, IOfflineRegistryValue** value) const noexcept = 0;
    /// Writes the whole hive to a new file, compactly, and flushes it. Also 183 for a file that is there, 223
    /// (above 2 GiB), or the system's code: then there is no such file.
    virtual long save(const wchar_t* newFile) const noexcept = 0;
};
