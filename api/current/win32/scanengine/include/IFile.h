#pragma once

#include "win32/communication/include/ByteStream.h"

/// What file-system items have in common. Failing operations raise an Exception with the system's Win32 code.
///
/// A path gets its meaning when it is given (constructed, set, loaded): changing the current folder later has
/// no effect on it. Only exact \\?\ and \??\ paths are taken literally. The text stays as it was given.
///
/// Before an item is deleted, emptied or opened for its data, the name is checked again without following
/// links: for a link, create and getData raise 681 (ERROR_STOPPED_ON_SYMLINK) and leave its target alone. For
/// an item found by a walk, every folder from the walk's root down is also opened without following links and
/// held until the operation is done: 681 when one has become a link, 267 when one is not a folder, 32 when
/// another program's handle prevents holding it. One gap remains, between the check and the call: whoever may
/// write there can swap the last name (for a path named by the caller, the folders above it too).
struct IFileSystemItem
{
    virtual ~IFileSystemItem() = default;
    /// The path as given, or with its macros expanded. Owned by the item.
    [[nodiscard]] virtual const wchar_t* getPath() const = 0;
    /// Creates the item on the system. Windows refuses to recreate a hidden or system file (5), so these
    /// attributes are removed first; a read-only file is refused. (Proven with Windows' answer simulated.)
    virtual void create() = 0;
    /// Removes the item from the system: one file or one empty folder. A link is removed, never its target. A
    /// folder found by a walk raises 681 when it has become a link.
    ///
    /// While others hold the item (5, 32, 33; 145 when everything in a folder is being deleted), the deletion
    /// is retried for about a second, with a check of the name each time: when another file has taken it,
    /// that file stays (1006, ERROR_FILE_INVALID). An item deleted while others have it open keeps its name
    /// until the last of them closes it; when that takes longer than about a second, 303
    /// (ERROR_DELETE_PENDING) is raised. When the system reports the item deleted and something stands under
    /// its name all the same, perhaps a new item of somebody's, 5 is raised. Costs one check of the name.
    virtual void deleteItem() = 0;
    /// Nonzero when the path exists.
    [[nodiscard]] virtual int exists() const = 0;
    /// Reads and writes the item's state; see ScanItem for the bits of `code`.
    virtual long load(unsigned long code, IInputByteStream& stream) = 0;
    virtual long dump(unsigned long code, IOutputByteStream& stream) const = 0;
};

/// A file. Own fields of its serialized form: whether data has been set (u32: 0 or 1), and if so the data as
/// a blob. `create` writes the file anew, empty or with the data that was set.
struct IFile : IFileSystemItem
{
    /// The file's size in bytes: as the scan saw it when it found the file, otherwise as the system reports
    /// it now. Raises an Exception.
    [[nodiscard]] virtual unsigned long long getSize() const = 0;
    /// The file's whole content, read at the first call and kept. A missing file is created empty. A file
    /// that reading would fetch from elsewhere (FILE_ATTRIBUTE_RECALL_ON_OPEN,
    /// FILE_ATTRIBUTE_RECALL_ON_DATA_ACCESS) is not fetched: 4350 (ERROR_FILE_OFFLINE). `size` receives the
    /// number of bytes. Owned by the item, valid until the item is changed; may be null when `size` is 0.
    /// Raises an Exception, also with 8 when the content does not fit into memory.
    virtual const void* getData(unsigned long long& size) = 0;
    /// Keeps a copy of `size` bytes for create to write. Raises an Exception with 87 for null data with a
    /// size other than 0, or 8; the old data is kept then.
    virtual void setData(const void* data, unsigned long long size) = 0;
};

/// A folder. Its serialized form has no fields of its own.
struct IDirectory : IFileSystemItem
{
};
