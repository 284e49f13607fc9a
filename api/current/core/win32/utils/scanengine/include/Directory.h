#pragma once

#include "win32/scanengine/include/IFile.h"
#include "win32/scanengine/include/ScanItem.h"

/// A folder on a disk; see IDirectory for what its operations promise.
class Directory : public ScanItem, public IDirectory
{
public:
    Directory() noexcept : ScanItem(kDirectoryItem) {}
    /// Raises CachedPath's failures from Directory::Directory.
    Directory(const wchar_t* path, int expand);
    /// For the walk: takes a ready text over.
    explicit Directory(HeapStringW&& path) noexcept : ScanItem(kDirectoryItem, CachedPath(std::move(path))) {}

    [[nodiscard]] const wchar_t* getPath() const override { return ScanItem::getPath(); }
    /// One level: its parent must exist. Raises 183 when it exists already.
    void create() override;
    void deleteItem() override;
    [[nodiscard]] int exists() const override;
    long load(unsigned long code, IInputByteStream& stream) override { return ScanItem::load(code, stream); }
    long dump(unsigned long code, IOutputByteStream& stream) const override
    {
        return ScanItem::dump(code, stream);
    }
};
