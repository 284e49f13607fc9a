#pragma once

#include <windows.h>

#include <string>
#include <string_view>
#include <vector>

#include "core/win32/utils/objectmanager/include/Win32Handle.h"

/// "This is a link, and what it leads to is left alone": ERROR_STOPPED_ON_SYMLINK, which not every platform
/// header names.
inline constexpr long kStoppedOnSymlink = 681;

/// What stands under a path, opened as itself: of a link the link, never what it leads to.
///
/// While it is open without sharing deletion, and with an access that counts for sharing (FILE_LIST_DIRECTORY
/// does, FILE_READ_ATTRIBUTES does not), nobody can rename it, remove it or put something else in its place.
class OpenedItself
{
public:
    /// Opens `target`, a path as Win32Path gives it. Raises the bare code.
    explicit OpenedItself(const wchar_t* target, DWORD access = FILE_READ_ATTRIBUTES,
                          DWORD share = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE);

    [[nodiscard]] bool isFolder() const noexcept { return (m_attributes & FILE_ATTRIBUTE_DIRECTORY) != 0; }
    /// Whether it stands for something else: a name-surrogate reparse point, or one whose tag cannot be read.
    [[nodiscard]] bool isLink() const noexcept { return m_isLink; }
    [[nodiscard]] DWORD attributes() const noexcept { return m_attributes; }
    [[nodiscard]] HANDLE get() const noexcept { return m_handle.get(); }

private:
    void askHandle();

    Win32Handle m_handle;
    DWORD m_attributes = 0;
    bool m_isLink = false;
};

/// Whether a reparse tag stands for a link. An unknown one does: a walk that leaves a folder out is a
/// nuisance, one that leaves its root is a disaster.
[[nodiscard]] inline bool isLinkTag(DWORD tag) noexcept
{
    return tag == 0 || IsReparseTagNameSurrogate(tag);
}

/// Holds every folder from a scan's root down to one folder open, each opened as itself and without sharing
/// its deletion, so that none of them can be renamed, removed or swapped for a link meanwhile. The folders
/// that the next call has in common with the last stay open.
class HeldFolders
{
public:
    /// `folder` is `root`, or `root` and names below it; both absolute, without "." or "..". With
    /// `rootMayBeLink` the root itself may be a link: then the link is held. Raises the bare code: the
    /// system's, 681 (ERROR_STOPPED_ON_SYMLINK) when a folder is a link now, 267 (ERROR_DIRECTORY) when one
    /// is no folder, 87 when `folder` is not below `root`. The folders above the one that failed stay held.
    void hold(std::wstring_view root, std::wstring_view folder, bool rootMayBeLink = true);
    /// Whether the root that is held is a link.
    [[nodiscard]] bool isRootLink() const noexcept
    {
        return !m_folders.empty() && m_folders.front().folder.isLink();
    }

    /// The folder that is deepest down, for listing it: it is open for FILE_LIST_DIRECTORY. Null when only
    /// its name leads to the entries, since opened as itself it is a link or another reparse point.
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

    std::wstring m_path; ///< of the folder that is deepest down
    std::vector<Held> m_folders;
};
