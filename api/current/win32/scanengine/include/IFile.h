#pragma once

#include "win32/communication/include/ByteStream.h"

/// What file-system items have in common. The operations raise an Exception with the system's Win32 code.
///
/// What a path names is settled when it is given (constructed, set, loaded): changing the current folder
/// later changes nothing, and only exact \\?\ and \??\ paths are literal to the letter. The text stays as it
/// was given.
///
/// Before something is deleted, emptied or opened for its data the name is looked at again, links not
/// followed: create and getData raise 681 (ERROR_STOPPED_ON_SYMLINK) for a link and leave what it leads to
/// alone. For an item that a walk found, every folder from the walk's root down is besides opened as itself
/// and held until the operation is done: 681 when one is a link by now, 267 when one is no folder, 32 when
/// somebody has it open so that it cannot be held. What remains is the moment between the look and the call,
/// in which the last name alone (of what a caller named also the folders above it) can be swapped by whoever
/// may write there.
struct IFileSystemItem
{
    virtual ~IFileSystemItem() = default;
    /// The path as it was given, or as its macros were expanded. Owned by the item.
    [[nodiscard]] virtual const wchar_t* getPath() const = 0;
    /// Makes the item on the system. A file that is hidden or the system's, which Windows does not make anew
    /// (5), loses these marks first; one that is read-only refuses. (Proven with Windows' answer simulated.)
    virtual void create() = 0;
    /// Removes the item from the system: one file, or one empty folder. A link is removed, never its target;
    /// but a folder that a walk found raises 681 when it is a link by now.
    ///
    /// While somebody holds it (5, 32, 33; 145 when everything in a folder is being deleted), it is looked at
    /// and tried again for about a second. What is deleted while others have it open keeps its name until the
    /// last of them has closed it: when that takes longer than about a second, 303 (ERROR_DELETE_PENDING) is
    /// raised. Costs one look at the name.
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
    /// One that would be fetched from elsewhere by being read (FILE_ATTRIBUTE_RECALL_ON_OPEN,
    /// FILE_ATTRIBUTE_RECALL_ON_DATA_ACCESS) is not fetched: 4350 (ERROR_FILE_OFFLINE).
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
