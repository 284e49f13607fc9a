#include "core/win32/utils/scanengine/include/FilePath.h"

#include "core/win32/utils/paths/include/Win32Path.h"
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
    // Systems that know neither basic information nor large fetches say so with this code.
    if (!search.isValid() && GetLastError() == ERROR_INVALID_PARAMETER)
        search.reset(FindFirstFileW(mask, &entry));
    return search;
}
} // namespace

bool isLink(const WIN32_FIND_DATAW& entry) noexcept
{
    if ((entry.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) == 0)
        return false;
    const DWORD tag = entry.dwReserved0;
    return tag == 0 || IsReparseTagNameSurrogate(tag);
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

void FilePath::getFiles(Walk& walk)
{
    // An empty path is no folder, though "*" by itself would list the current one.
    if (path().view().empty())
        throw ListingFailure{
            Exception(PLACE(FILE_PATH_HEADER, "FilePath::getFiles", __LINE__), ERROR_PATH_NOT_FOUND)};
    const HeapStringW mask = joinPath(path().view(), L"*");
    const Win32Path target(mask.c_str());
    WIN32_FIND_DATAW entry;
    const FindHandle search = beginSearch(target, entry);
    if (!search.isValid()) {
        const DWORD code = GetLastError();
        if (code == ERROR_FILE_NOT_FOUND) {
            const Win32Path folder(path().getPath());
            const DWORD attributes = GetFileAttributesW(folder);
            if (attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0)
                return; // it is there, and nothing in it, not even itself: so an empty volume's root answers
        }
        throw ListingFailure{Exception(PLACE(FILE_PATH_HEADER, "FilePath::getFiles", __LINE__), code)};
    }
    do {
        if (isDots(entry.cFileName))
            continue;
        if (walk.poll())
            return;
        handleEntry(entry, walk);
        if (walk.cancelled)
            return;
    } while (FindNextFileW(search.get(), &entry));
    if (GetLastError() != ERROR_NO_MORE_FILES)
        throw ListingFailure{Exception(PLACE(FILE_PATH_HEADER, "FilePath::getFiles", __LINE__)), true};
}

void FilePath::handleEntry(const WIN32_FIND_DATAW& entry, Walk& walk) const
{
    HeapStringW found = joinPath(path().view(), entry.cFileName);
    if ((entry.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) == 0) {
        const unsigned long long size =
            (static_cast<unsigned long long>(entry.nFileSizeHigh) << 32U) | entry.nFileSizeLow;
        reportLeaf(walk, makeShared<ScanItem, File>(std::move(found), size));
        return;
    }
    const std::uint32_t level = getLevel() + 1;
    reportContainer(walk, makeShared<ScanItem, FilePath>(std::move(found), level), level, isLink(entry));
}
