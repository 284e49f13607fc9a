#include "core/win32/utils/paths/include/OpenedItself.h"

#include "core/win32/utils/objectmanager/include/Raise.h"
#include "core/win32/utils/paths/include/Win32Path.h"

namespace {
bool isSeparator(wchar_t c) noexcept
{
    return c == L'\\' || c == L'/';
}

/// The end of the name that begins at or after `begin`, skipping separators before it.
std::size_t endOfName(std::wstring_view path, std::size_t begin) noexcept
{
    while (begin < path.size() && isSeparator(path[begin]))
        ++begin;
    while (begin < path.size() && !isSeparator(path[begin]))
        ++begin;
    return begin;
}
} // namespace

OpenedItself::OpenedItself(const wchar_t* target, DWORD access, DWORD share)
    : m_handle(CreateFileW(target, access, share, nullptr, OPEN_EXISTING,
                           FILE_FLAG_OPEN_REPARSE_POINT | FILE_FLAG_BACKUP_SEMANTICS, nullptr))
{
    if (!m_handle.isValid())
        raiseLastError();
    // Some systems and network redirectors follow links in spite of the flag; the name shows it. While nobody
    // can replace the item, its name gives everything except the tag.
    m_attributes = GetFileAttributesW(target);
    if (m_attributes == INVALID_FILE_ATTRIBUTES)
        raiseLastError();
    m_isLink = (m_attributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0;
    const bool pinned = (share & FILE_SHARE_DELETE) == 0 && (access & FILE_LIST_DIRECTORY) != 0;
    if (m_isLink || !pinned)
        askHandle();
}

void OpenedItself::askHandle()
{
    FILE_ATTRIBUTE_TAG_INFO info{};
    if (!GetFileInformationByHandleEx(get(), FileAttributeTagInfo, &info, sizeof info)) {
        BY_HANDLE_FILE_INFORMATION plain; // file systems without reparse points may not support the tag
        if (!GetFileInformationByHandle(get(), &plain))
            raiseLastError();
        info.FileAttributes = plain.dwFileAttributes;
    }
    if ((info.FileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0) {
        m_attributes = info.FileAttributes;
        m_isLink = isLinkTag(info.ReparseTag);
    }
}

void HeldFolders::keepCommon(std::wstring_view root, std::wstring_view folder)
{
    // The root must be the same, and each folder below it must be a whole name in both.
    std::size_t kept = 0;
    while (kept < m_folders.size()) {
        const std::size_t end = m_folders[kept].end;
        const std::size_t wanted = kept == 0 ? root.size() : endOfName(folder, m_folders[kept - 1].end);
        if (end != wanted || folder.substr(0, end) != std::wstring_view(m_path).substr(0, end))
            break;
        ++kept;
    }
    m_folders.erase(m_folders.begin() + static_cast<std::ptrdiff_t>(kept), m_folders.end());
    m_path.resize(kept == 0 ? 0 : m_folders.back().end);
}

void HeldFolders::hold(std::wstring_view root, std::wstring_view folder, bool rootMayBeLink)
{
    const bool below =
        folder.substr(0, root.size()) == root && !root.empty() &&
        (folder.size() == root.size() || isSeparator(root.back()) || isSeparator(folder[root.size()]));
    if (!below)
        raiseCode(ERROR_INVALID_PARAMETER);
    keepCommon(root, folder);
    if (isRootLink() && !rootMayBeLink)
        raiseCode(kStoppedOnSymlink);
    std::size_t end = m_path.size();
    while (m_folders.empty() || end != folder.size()) {
        const bool isRoot = m_folders.empty();
        end = isRoot ? root.size() : endOfName(folder, end);
        m_path.assign(folder.substr(0, end));
        if (isRoot && m_path.back() == L':')
            m_path += L'\\'; // without it the drive's device is meant
        OpenedItself opened(Win32Path(m_path.c_str()), FILE_LIST_DIRECTORY | FILE_READ_ATTRIBUTES,
                            FILE_SHARE_READ | FILE_SHARE_WRITE);
        m_path.resize(end);
        if (opened.isLink() && !(isRoot && rootMayBeLink))
            raiseCode(kStoppedOnSymlink);
        if (!opened.isFolder())
            raiseCode(ERROR_DIRECTORY);
        m_folders.push_back({end, std::move(opened)});
    }
}
