#pragma once

#include <windows.h>

#include "core/win32/utils/objectmanager/include/Win32Handle.h"
#include "core/win32/utils/paths/include/FileIdentity.h"
#include "core/win32/utils/paths/include/OpenedItself.h"

/// Opens a file to be destroyed, not shared: for all access, and where that is refused with 5, because it
/// includes the right to take the file over, for reading, writing and deleting. The last error is that of the
/// call that was last.
[[nodiscard]] Win32Handle openToDestroy(const wchar_t* target, DWORD disposition, DWORD flags) noexcept;

/// What stands under the path of something that is to go, looked at as itself: a link is seen as the link.
///
/// What cannot be told is not touched: were it a link, its target would be destroyed, and were it none, it
/// would go without being overwritten.
class WipeTarget
{
public:
    /// Looks at `target`, a path as Win32Path gives it that outlives this object. Takes read-only, hidden and
    /// system away where its removal needs that. Raises the bare code.
    explicit WipeTarget(const wchar_t* target);

    [[nodiscard]] bool isLink() const noexcept { return m_isLink; }
    [[nodiscard]] bool isFolder() const noexcept { return m_isFolder; }
    /// As they were when it was looked at.
    [[nodiscard]] DWORD attributes() const noexcept { return m_attributes; }

    /// Removes a link, which may stand for a file or for a folder, or a folder: removal::removeByName for
    /// what was looked at. Raises the bare code.
    void remove(HANDLE cancelEvent) const;
    /// Looks again. Raises the bare code, 681 when it is a link now and 1006 when it is another file.
    void requireUnchanged() const;
    /// Raises 1006 when `opened` is not what was looked at, and the bare code when that cannot be told.
    void requireSame(HANDLE opened) const;
    /// Opens the file to be overwritten: for all access, not shared, deleted when it is closed. While
    /// somebody holds it, looks and tries again for about a second. When what was opened is not what was
    /// looked at, the deletion is taken back and the failure of `requireSame` raised. Raises the bare code.
    [[nodiscard]] Win32Handle open(HANDLE cancelEvent) const;
    /// Closes what `open` gave, so that it is deleted. Returns whether the name is surely gone then, whoever
    /// else has the file open: so it is where the system deletes in the POSIX way (Windows 10 on NTFS), by
    /// one call more.
    bool close(Win32Handle& file) const noexcept;
    /// removal::requireGone for what was looked at, which is deleted. A file that cannot be distinguished
    /// from it raises 1006, not 5: it may be a new one that was given the same number.
    void requireGone(HANDLE cancelEvent) const;

private:
    void keep(Win32Handle& file) const noexcept;

    const wchar_t* m_target;
    FileIdentity m_identity;
    DWORD m_attributes;
    bool m_isLink;
    bool m_isFolder;
};
