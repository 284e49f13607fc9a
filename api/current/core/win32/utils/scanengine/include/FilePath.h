#pragma once

#include "core/win32/utils/scanengine/include/Directory.h"
#include "core/win32/utils/scanengine/include/FolderListing.h"
#include "core/win32/utils/scanengine/include/ScanPath.h"

/// A folder that can be walked; see IScanPath.
class FilePath final : public Directory, public ScanPath
{
public:
    /// Raises CachedPath's failures from FilePath::FilePath.
    FilePath(const wchar_t* path, int expand, std::uint32_t level);
    /// For the walk; see Directory.
    FilePath(HeapStringW&& path, const PathOrigin& origin, bool isLink, std::uint32_t level)
        : Directory(std::move(path), origin, isLink), ScanPath(level)
    {
    }
    [[nodiscard]] bool isInterchangeable(const ScanItem& filed) const override;

private:
    void list(Walk& walk) override { getFiles(walk); }
    [[nodiscard]] const char* scanPlace() const noexcept override;
    [[nodiscard]] bool isFoundLink() const override { return !wasPlainFolder(); }

    void getFiles(Walk& walk);
    /// Holds this folder and those above it during the listing. Returns false when it is gone.
    bool holdFolder(Walk& walk, const PathOrigin& below, bool isRoot) const;
    [[nodiscard]] static const FolderEntry* nextEntry(FolderListing& listing, bool isRoot);
    void reportEntry(const FolderEntry& entry, const PathOrigin& below, Walk& walk) const;
};
