#pragma once

#include "core/win32/utils/scanengine/include/Directory.h"
#include "core/win32/utils/scanengine/include/ScanPath.h"

/// Whether a found folder or file stands for another one. Where the tag is unknown it is taken for a link: a
/// walk that leaves a folder out is a nuisance, one that leaves its root is a disaster.
[[nodiscard]] bool isLink(const WIN32_FIND_DATAW& entry) noexcept;

/// A folder that can be walked; see IScanPath.
class FilePath final : public Directory, public ScanPath
{
public:
    /// Raises CachedPath's failures from FilePath::FilePath.
    FilePath(const wchar_t* path, int expand, std::uint32_t level);
    /// For the walk: takes a ready text over.
    FilePath(HeapStringW&& path, std::uint32_t level) : Directory(std::move(path)), ScanPath(level) {}

private:
    void list(Walk& walk) override { getFiles(walk); }
    [[nodiscard]] const char* scanPlace() const noexcept override;

    void getFiles(Walk& walk);
    void handleEntry(const WIN32_FIND_DATAW& entry, Walk& walk) const;
};
