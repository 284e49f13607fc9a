#pragma once

#include <windows.h>

/// A file on an FTP server: the item of type 3, reached from a ScanItem with dynamic_cast. Failing operations
/// raise an Exception with the codes of core/win32/utils/ftp/api.h. `cancelEvent` may be null.
///
/// An item keeps its connection, and the password with it; neither is in its serialized form, whose own
/// fields are whether the size is known (u32: 0 or 1) and the size (two u32, the lower one first). An item
/// that was loaded, or whose path was set, belongs to no connection: operations raise 2250.
struct IFtpFile
{
    virtual ~IFtpFile() = default;
    /// "ftp://host/folder/name", with the port unless it is 21: for the eye, names as they are and not
    /// escaped. Owned by the item.
    [[nodiscard]] virtual const wchar_t* getPath() const = 0;
    /// Whether the server lists it as a link. Downloading follows it, deleting does not.
    [[nodiscard]] virtual bool isLink() const = 0;
    /// The size in bytes: as the listing says it, otherwise as the server says it now.
    [[nodiscard]] virtual unsigned long long getSize() const = 0;
    /// Nonzero when the server says that the file exists.
    [[nodiscard]] virtual int exists() const = 0;
    /// Copies the file's bytes into a local file: a new one (80 when the name is taken), or with `goOn` into
    /// the one that an earlier download left, behind what it holds already. A link is not written to (681).
    /// Raises 13 when the local file is larger than the server's, or when the server sends another number of
    /// bytes than it said; no more than it said is ever written.
    ///
    /// After a failure what has come stays, to be gone on with, but never a file that looks complete. When
    /// the server sends more than it said (as one does that begins at 0 again), or says after the last byte
    /// that the transfer failed, the file is cut back to what it held before this call. When the server's
    /// word on a transfer that came whole does not come itself, the last byte is cut off, so going on asks
    /// the server again. A file of which the server said that all of it was sent stays, whatever came after
    /// that. A file that this call created and that would be empty is deleted.
    virtual void download(const wchar_t* localPath, bool goOn, HANDLE cancelEvent) const = 0;
    /// Replaces the file on the server by the content of a local file, and asks for NOOP as below. After a
    /// failure the server may hold a part of it.
    virtual void upload(const wchar_t* localPath, HANDLE cancelEvent) const = 0;
    /// Deletes the file from the server. The server is then asked to do nothing (NOOP), and only if it agrees
    /// to that has the file been deleted: its yes might have been a late reply to something else. Raises 13
    /// when it is out of step; whether the file is gone is not known then.
    virtual void deleteItem(HANDLE cancelEvent) const = 0;
};
