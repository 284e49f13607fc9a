#include "core/win32/utils/scanengine/include/FilePath.h"

#include <cwchar>

#include "core/win32/utils/scanengine/include/File.h"

#define FILE_PATH_HEADER "core\\win32\\utils\\scanengine\\include\\FilePath.h"

namespace {
bool isDots(const wchar_t* name) noexcept
{
    return name[0] == L'.' && (name[1] == L'\0' || (name[1] == L'.' && name[2] == L'\0'));
}

FindHandle beginSearch(const wchar_t* mask, WIN32_FIND_DATAW& entry)
{
    FindHandle search(FindFirstFileExW(mask, FindExInfoBasic, &entry, FindExSearchNameMatch, nullptr,
                                       FIND_FIRST_EX_LARGE_FETCH));
    if (search.isValid())
        return search;
    switch (GetLastError()) {
    // Systems and network file systems that know neither basic information nor large fetches say so.
    case ERROR_INVALID_PARAMETER:
    case ERROR_INVALID_FUNCTION:
    case ERROR_NOT_SUPPORTED:
    case ERROR_INVALID_LEVEL:
        search.reset(FindFirstFileW(mask, &entry));
        break;
    default:
        break;
    }
    return search;
}
} // namespace

bool isLink(const WIN32_FIND_DATAW& entry) noexcept
{
    if ((entry.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) == 0)
        return false;
    const DWORD tag = entry.dwReserved0;
    return isLinkTag(tag);
}

FilePath::FilePath(const wchar_t* path, int expand, std::uint32_t level) : ScanPath(level)
{
    primitives::placedStep(PLACE(FILE_PATH_HEADER, "FilePath::FilePath", __LINE__),
                           [&] { setPath(path, expand); });
}

const char* FilePath::scanPlace() const noexcept
{
    return PLACE(FILE_PATH_HEADER, "FilePath::scan", __LINE__);
}

bool FilePath::isInterchangeable(const ScanItem& filed) const
{
    const auto* other = dynamic_cast<const FilePath*>(&filed);
    return other != nullptr && getLevel() == other->getLevel() && Directory::isInterchangeable(filed);
}

bool FilePath::holdFolder(Walk& walk, const PathOrigin& below, bool isRoot) const
{
    try {
        below.hold(walk.held, path().view());
        return true;
    } catch (long code) {
        const bool gone = code == ERROR_FILE_NOT_FOUND || code == ERROR_PATH_NOT_FOUND;
        if (gone && !isRoot)
            return false;
        throw ListingFailure{Exception(PLACE(FILE_PATH_HEADER, "FilePath::getFiles", __LINE__),
                                       gone ? ERROR_PATH_NOT_FOUND : static_cast<unsigned long>(code))};
    }
}

void FilePath::getFiles(Walk& walk)
{
    // An empty path is no folder, though "*" by itself would list the current one.
    if (path().view().empty())
        throw ListingFailure{
            Exception(PLACE(FILE_PATH_HEADER, "FilePath::getFiles", __LINE__), ERROR_PATH_NOT_FOUND)};
    const bool isRoot = &walk.root == static_cast<ScanPath*>(this);
    // A root that a caller names, or a link that a walk found, is the root of what is found below it.
    const bool isNamed = isRoot && !wasPlainFolder();
    PathOrigin below = isNamed ? origin().ofItemsBelow(path().view()) : origin();
    if (!holdFolder(walk, below, isRoot))
        return;
    if (isNamed && !walk.held.isRootLink())
        below = below.ofItemsBelowFolder();
    const ItemTarget folder(getPath(), below);
    const HeapStringW mask = joinPath(folder.get(), L"*");
    const Win32Path target(mask.c_str());
    WIN32_FIND_DATAW entry;
    const FindHandle search = beginSearch(target, entry);
    if (!search.isValid()) {
        const DWORD code = GetLastError();
        if (code == ERROR_FILE_NOT_FOUND) {
            const DWORD attributes = GetFileAttributesW(folder);
            if (attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0)
                return; // it is there, and nothing in it, not even itself: so an empty volume's root answers
        }
        if (!isRoot && (code == ERROR_FILE_NOT_FOUND || code == ERROR_PATH_NOT_FOUND))
            return; // gone: not every system keeps a folder that is held
        throw ListingFailure{Exception(PLACE(FILE_PATH_HEADER, "FilePath::getFiles", __LINE__), code)};
    }
    bool hasUnnamed = false;
    do {
        if (isDots(entry.cFileName))
            continue;
        // Some systems under a share have names that Win32 would take for a path, to another file.
        if (std::wcspbrk(entry.cFileName, L"\\/") != nullptr) {
            hasUnnamed = true;
            continue;
        }
        if (walk.poll())
            return;
        handleEntry(entry, below, walk);
        if (walk.cancelled)
            return;
    } while (FindNextFileW(search.get(), &entry));
    if (GetLastError() != ERROR_NO_MORE_FILES)
        throw ListingFailure{Exception(PLACE(FILE_PATH_HEADER, "FilePath::getFiles", __LINE__)), true};
    if (hasUnnamed)
        throw ListingFailure{
            Exception(PLACE(FILE_PATH_HEADER, "FilePath::getFiles", __LINE__), ERROR_INVALID_NAME), true};
}

void FilePath::handleEntry(const WIN32_FIND_DATAW& entry, const PathOrigin& below, Walk& walk) const
{
    HeapStringW found = joinPath(path().view(), entry.cFileName);
    if ((entry.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) == 0) {
        const unsigned long long size =
            (static_cast<unsigned long long>(entry.nFileSizeHigh) << 32U) | entry.nFileSizeLow;
        reportLeaf(walk, makeShared<ScanItem, File>(std::move(found), below, size));
        return;
    }
    const std::uint32_t level = getLevel() + 1;
    const bool link = isLink(entry);
    reportContainer(walk, makeShared<ScanItem, FilePath>(std::move(found), below, link, level), level,
                    link || isFetchedOnAccess(entry.dwFileAttributes));
}
