#pragma once

#include <windows.h>

#include <cstddef>
#include <string_view>
#include <vector>

#include "core/win32/utils/objectmanager/include/Win32Handle.h"

/// One entry of a folder.
struct FolderEntry
{
    std::wstring_view name; ///< valid until the next call
    DWORD attributes;
    DWORD tag; ///< for a reparse point
    unsigned long long size;
};

/// The entries of one folder, without "." and "..".
///
/// A folder that is held open is listed through its handle: what is listed is what was checked, and it need
/// not be opened again. Where the file system does not support that, and where only the name leads to the
/// entries (links and other reparse points), the folder is searched by name.
class FolderListing
{
public:
    /// Buffer for the entries that the system returns at once. Listings that do not overlap may share one.
    using Buffer = std::vector<std::byte>;

    /// `folder` is open for FILE_LIST_DIRECTORY, or null; `path` names the same folder in the form of
    /// Win32Path. Both must outlive this object. Raises std::bad_alloc.
    FolderListing(HANDLE folder, const wchar_t* path, Buffer& buffer);

    /// The next entry, null at the end. Raises the bare code; 13 when the system's answer makes no sense.
    [[nodiscard]] const FolderEntry* next();
    /// Whether an entry, "." and ".." included, or the end was reached. A failure after that interrupts the
    /// listing.
    [[nodiscard]] bool hasBegun() const noexcept { return m_hasBegun; }

private:
    void fillBuffer();
    [[nodiscard]] bool takeFromBuffer();
    [[nodiscard]] bool findNext();
    [[nodiscard]] bool beginSearch();

    HANDLE m_folder;
    const wchar_t* m_path;
    Buffer& m_buffer;
    std::size_t m_position = 0; ///< in the buffer, of the next entry
    std::size_t m_end = 0;
    bool m_hasBegun = false;
    FindHandle m_search;
    WIN32_FIND_DATAW m_found;
    FolderEntry m_entry{};
};
