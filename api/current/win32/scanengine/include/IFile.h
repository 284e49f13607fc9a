#pragma once

#include "win32/communication/include/ByteStream.h"

/// What file-system items have in common. The operations raise an Exception with the system's Win32 code.
struct IFileSystemItem
{
    virtual ~IFileSystemItem() = default;
    /// The path as it was given, or as its macros were expanded. Owned by the item.
    [[nodiscard]] virtual const wchar_t* getPath() const = 0;
    /// Makes the item on the system.
    virtual void create() = 0;
    /// Removes the item from the system: one file, or one empty folder. A link is removed, never its target.
    virtual void deleteItem() = 0;
    /// Nonzero when something exists under the path.
    [[nodiscard]] virtual int exists() const = 0;
    /// Reads and writes the item's state; see ScanItem for the bits of `code`.
    virtual long load(unsigned long code, IInputByteStream& stream) = 0;
    virtual long dump(unsigned long code, IOutputByteStream& stream) const = 0;
};

/// A file. Own fields of its serialized form: whether data has been set (u32: 0 or 1), and if so the data as
/// a blob. `create` makes it anew, empty or with the data that was set.
struct IFile : IFileSystemItem
{
    /// The file's size in bytes: as the scan that found it saw it, otherwise as the system says now. Raises
    /// an Exception.
    [[nodiscard]] virtual unsigned long long getSize() const = 0;
    /// The file's whole content, read at the first call and kept. A file that is missing is created empty.
    /// `size` receives the count of bytes. Owned by the item, valid until it is changed; may be null when
    /// `size` is 0. Raises an Exception, also with 8 when the content does not fit the memory.
    virtual const void* getData(unsigned long long& size) = 0;
    /// Keeps a copy of `size` bytes for create to write. Raises an Exception with 87 for null data of a size
    /// other than 0, or 8; the old data is kept then.
    virtual void setData(const void* data, unsigned long long size) = 0;
};

/// A folder. It has no fields of its own in its serialized form.
struct IDirectory : IFileSystemItem
{
};
