#pragma once

#include <windows.h>

#include <string>
#include <string_view>
#include <vector>

#include "core/win32/utils/objectmanager/include/Win32Handle.h"

/// "This is a link, and its target is left alone": ERROR_STOPPED_ON_SYMLINK, which not every platform header
/// names.
inline constexpr long kStoppedOnSymlink = 681;

/// An item opened by its path without following links: for a link, the link itself.
///
/// While it is open without delete sharing, and with an access that counts for sharing (FILE_LIST_DIRECTORY
/// does, FILE_READ_ATTRIBUTES does not), nobody can rename it, remove it or replace it.
class OpenedItself
{
public:
    /// Opens `target`, a path in the form of Win32Path. Raises the bare code.
    explicit OpenedItself(const wchar_t* target, DWORD access = FILE_READ_ATTRIBUTES,
                          DWORD share = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE);

    [[nodiscard]] bool isFolder() const noexcept { return (m_attributes & FILE_ATTRIBUTE_DIRECTORY) != 0; }
    /// Whether it refers to something else: a name-surrogate reparse point, or one whose tag cannot be read.
    [[nodiscard]] bool isLink() const noexcept { return m_isLink; }
    [[nodiscard]] DWORD attributes() const noexcept { return m_attributes; }
    [[nodiscard]] HANDLE get() const noexcept { return m_handle.get(); }

private:
    void askHandle();

    Win32Handle m_handle;
    DWORD m_attributes = 0;
    bool m_isLink = false;
};

/// Whether a reparse tag marks a link. An unknown tag counts as a link: a walk that skips a folder is a
/// nuisance, one that leaves its root is a disaster.
[[nodiscard]] inline bool isLinkTag(DWORD tag) noexcept
{
    return tag == 0 || IsReparseTagNameSurrogate(tag);
}

/// Holds every folder from a scan's root down to one folder open, each opened without following links and
/// without delete sharing, so none of them can be renamed, removed or swapped for a link meanwhile. Folders
/// that the next call has in common with the last stay open.
class HeldFolders
{
public:
    /// `folder` is `root`, or `root` and names below it; both absolute, without "." or "..". With
    /// `rootMayBeLink` the root itself may be a link: then the link is held. Raises the bare code: the
    /// system's, 681 (ERROR_STOPPED_ON_SYMLINK) when a folder has become a link, 267 (ERROR_DIRECTORY) when
    /// one is not a folder, 87 when `folder` is not below `root`. The folders above the one that failed stay
    /// held.
    void hold(std::wstring_view root, std::wstring_view folder, bool rootMayBeLink = true);
    /// Whether the held root is a link.
    [[nodiscard]] bool isRootLink() const noexcept
    {
        return !m_folders.empty() && m_folders.front().folder.isLink();
    }

    /// The deepest folder, open for FILE_LIST_DIRECTORY. Null when only its name leads to the entries: opened
    /// without following links it is a link or another reparse point.
    [[nodiscard]] HANDLE listable() const noexcept
    {
        const OpenedItself& deepest = m_folders.back().folder;
        return (deepest.attributes() & FILE_ATTRIBUTE_REPARSE_POINT) == 0 ? deepest.get() : nullptr;
    }

private:
    struct Held
    {
        std::size_t end; ///< of the folder's path within m_path
        OpenedItself folder;
    };
    void keepCommon(std::wstring_view root, std::wstring_view folder);

    std::wstring m_path; ///< of the deepest folder
    std::vector<Held> m_folders;
};
