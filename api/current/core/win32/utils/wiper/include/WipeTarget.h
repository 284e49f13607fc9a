#pragma once

#include <windows.h>

#include "core/win32/utils/objectmanager/include/Win32Handle.h"
#include "core/win32/utils/paths/include/FileIdentity.h"
#include "core/win32/utils/paths/include/OpenedItself.h"

/// Opens a file to be destroyed, not shared, for all access. Where that is refused with 5, because it
/// includes the right to take ownership, opens it for reading, writing and deleting only. The last error is
/// that of the last call.
[[nodiscard]] Win32Handle openToDestroy(const wchar_t* target, DWORD disposition, DWORD flags) noexcept;

/// Identifies what a path to be destroyed names, without following links: a link is seen as the link.
///
/// What cannot be identified is not touched: a link's target would be destroyed, or a file would be deleted
/// without being overwritten.
class WipeTarget
{
public:
    /// Examines `target`, a path from Win32Path that outlives this object. Clears the read-only, hidden and
    /// system attributes where the removal needs that. Raises the bare code.
    explicit WipeTarget(const wchar_t* target);

    [[nodiscard]] bool isLink() const noexcept { return m_isLink; }
    [[nodiscard]] bool isFolder() const noexcept { return m_isFolder; }
    /// As found by the constructor.
    [[nodiscard]] DWORD attributes() const noexcept { return m_attributes; }

    /// Removes a folder, or a link to a file or a folder: removal::removeByName for what was examined. Raises
    /// the bare code.
    void remove(HANDLE cancelEvent) const;
    /// Examines the path again. Raises the bare code, 681 when it is a link by now and 1006 when it is
    /// another file.
    void requireUnchanged() const;
    /// Raises 1006 when `opened` is not what was examined, and the bare code when that cannot be determined.
    void requireSame(HANDLE opened) const;
    /// Opens the file to be overwritten: for all access, not shared, deleted when it is closed. While
    /// somebody holds it, checks the name and tries again for about a second. When another file was opened
    /// than the one examined, undoes its deletion and raises the failure of `requireSame`. Raises the bare
    /// code.
    [[nodiscard]] Win32Handle open(HANDLE cancelEvent) const;
    /// Closes what `open` returned, which deletes it. Returns whether the name is surely gone then, even if
    /// others have the file open. That is so where the system supports POSIX deletion (Windows 10 on NTFS),
    /// at the cost of one call.
    bool close(Win32Handle& file) const noexcept;
    /// removal::requireGone for the deleted file. A file that cannot be distinguished from it raises 1006,
    /// not 5: it may be a new one that was given the same number.
    void requireGone(HANDLE cancelEvent) const;

private:
    void keep(Win32Handle& file) const noexcept;

    const wchar_t* m_target;
    FileIdentity m_identity;
    DWORD m_attributes;
    bool m_isLink;
    bool m_isFolder;
};
