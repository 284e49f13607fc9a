#pragma once

#include <windows.h>

#include <cstddef>
#include <string_view>
#include <vector>

#include "core/win32/utils/objectmanager/include/Win32Handle.h"

/// One entry of a folder.
struct FolderEntry
{
    std::wstring_view name; ///< until the next entry is asked for
    DWORD attributes;
    DWORD tag; ///< of a reparse point
    unsigned long long size;
};

/// The entries of one folder, but for "." and "..".
///
/// A folder that is held open is listed through its handle: what is listed is what was looked at, and it need
/// not be opened once more. Where the file system cannot do that, and where only the name leads to the
/// entries (links and other reparse points), the folder is searched by name.
class FolderListing
{
public:
    /// Room for the entries that the system gives at once. Listings that do not overlap may share one.
    using Buffer = std::vector<std::byte>;

    /// `folder` is open for FILE_LIST_DIRECTORY, or null; `path` names the same folder as Win32Path gives it.
    /// What both refer to must outlive this object. Raises std::bad_alloc.
    FolderListing(HANDLE folder, const wchar_t* path, Buffer& buffer);

    /// The next entry, null at the end. Raises the bare code; 13 when the system's answer makes no sense.
    [[nodiscard]] const FolderEntry* next();
    /// Whether an entry, "." and ".." too, or the end was reached: a failure after that is one on the way.
    [[nodiscard]] bool hasBegun() const noexcept { return m_hasBegun; }

private:
    void fillBuffer();
    [[nodiscard]] bool takeFromBuffer();
    [[nodiscard]] bool findNext();
    [[nodiscard]] bool beginSearch();

    HANDLE m_folder;
    const wchar_t* m_path;
    Buffer& m_buffer;
    std::size_t m_position = 0; ///< in the buffer, of the entry to come
    std::size_t m_end = 0;
    bool m_hasBegun = false;
    FindHandle m_search;
    WIN32_FIND_DATAW m_found;
    FolderEntry m_entry{};
};
