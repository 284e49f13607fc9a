#include "core/win32/utils/scanengine/include/FilePath.h"

#include "core/win32/utils/scanengine/include/File.h"

constexpr char kFilePathHeader[] = "core\\win32\\utils\\scanengine\\include\\FilePath.h";

namespace {
constexpr std::wstring_view kNotInNames(L"\\/\0", 3);

bool isGone(long code) noexcept
{
    return code == ERROR_FILE_NOT_FOUND || code == ERROR_PATH_NOT_FOUND;
}
} // namespace

FilePath::FilePath(const wchar_t* path, int expand, std::uint32_t level) : ScanPath(level)
{
    primitives::placedStep(PLACE(kFilePathHeader, "FilePath::FilePath", __LINE__),
                           [&] { setPath(path, expand); });
}

const char* FilePath::scanPlace() const noexcept
{
    return PLACE(kFilePathHeader, "FilePath::scan", __LINE__);
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
        if (isGone(code) && !isRoot)
            return false;
        throw ListingFailure{
            Exception(PLACE(kFilePathHeader, "FilePath::getFiles", __LINE__),
                      isGone(code) ? ERROR_PATH_NOT_FOUND : static_cast<unsigned long>(code))};
    }
}

void FilePath::getFiles(Walk& walk)
{
    // An empty path is not a folder, though "*" alone would list the current one.
    if (path().view().empty())
        throw ListingFailure{
            Exception(PLACE(kFilePathHeader, "FilePath::getFiles", __LINE__), ERROR_PATH_NOT_FOUND)};
    const bool isRoot = &walk.root == static_cast<ScanPath*>(this);
    // A root named by a caller, or a link found by a walk, is the root for what is found below it.
    const bool isNamed = isRoot && !wasPlainFolder();
    PathOrigin below = isNamed ? origin().ofItemsBelow(path().view()) : origin();
    if (!holdFolder(walk, below, isRoot))
        return;
    if (isNamed && !walk.held.isRootLink())
        below = below.ofItemsBelowFolder();
    const ItemTarget folder(getPath(), below);
    FolderListing listing(walk.held.listable(), folder, walk.listed);
    bool hasUnnamed = false;
    while (const FolderEntry* entry = nextEntry(listing, isRoot)) {
        // Some systems behind a share have names that Win32 would read as a path to another file.
        if (entry->name.find_first_of(kNotInNames) != std::wstring_view::npos) {
            hasUnnamed = true;
            continue;
        }
        if (walk.poll())
            return;
        reportEntry(*entry, below, walk);
        if (walk.cancelled)
            return;
    }
    if (hasUnnamed)
        throw ListingFailure{
            Exception(PLACE(kFilePathHeader, "FilePath::getFiles", __LINE__), ERROR_INVALID_NAME), true};
}

const FolderEntry* FilePath::nextEntry(FolderListing& listing, bool isRoot)
{
    try {
        return listing.next();
    } catch (long code) {
        if (!isRoot && !listing.hasBegun() && isGone(code))
            return nullptr; // not every system lets a folder be held
        throw ListingFailure{Exception(PLACE(kFilePathHeader, "FilePath::getFiles", __LINE__),
                                       static_cast<unsigned long>(code)),
                             listing.hasBegun()};
    }
}

void FilePath::reportEntry(const FolderEntry& entry, const PathOrigin& below, Walk& walk) const
{
    HeapStringW found = joinPath(path().view(), entry.name);
    if ((entry.attributes & FILE_ATTRIBUTE_DIRECTORY) == 0) {
        reportLeaf(walk, makeShared<ScanItem, File>(std::move(found), below, entry.size));
        return;
    }
    const std::uint32_t level = getLevel() + 1;
    const bool link = (entry.attributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0 && isLinkTag(entry.tag);
    reportContainer(walk, makeShared<ScanItem, FilePath>(std::move(found), below, link, level), level,
                    link || isFetchedOnAccess(entry.attributes));
}
