#pragma once

#include "core/win32/utils/scanengine/include/PathOrigin.h"
#include "win32/scanengine/include/IFile.h"
#include "win32/scanengine/include/ScanItem.h"

/// A folder on a disk; see IDirectory for the contract of its operations.
class Directory : public ScanItem, public IDirectory
{
public:
    Directory() noexcept : ScanItem(kDirectoryItem) {}
    /// Raises CachedPath's failures from Directory::Directory.
    Directory(const wchar_t* path, int expand);
    /// For the walk: takes over a finished text, and the origin of what is found below the walk's root.
    Directory(HeapStringW&& path, const PathOrigin& origin, bool isLink) noexcept
        : ScanItem(kDirectoryItem, CachedPath(std::move(path))), m_origin(origin), m_isPlainFolder(!isLink)
    {
    }

    [[nodiscard]] const wchar_t* getPath() const override { return ScanItem::getPath(); }
    void setPath(const wchar_t* path, int expand) override;
    [[nodiscard]] bool isInterchangeable(const ScanItem& filed) const override;
    /// Creates one level: the parent must exist. Raises 183 when the folder already exists.
    void create() override;
    void deleteItem() override;
    [[nodiscard]] int exists() const override;
    long load(unsigned long code, IInputByteStream& stream) override;
    long dump(unsigned long code, IOutputByteStream& stream) const override
    {
        return ScanItem::dump(code, stream);
    }

protected:
    [[nodiscard]] const PathOrigin& origin() const noexcept { return m_origin; }
    /// Whether a walk found it, and it was not a link then.
    [[nodiscard]] bool wasPlainFolder() const noexcept { return m_isPlainFolder; }

private:
    void settle();

    PathOrigin m_origin;
    bool m_isPlainFolder = false;
};
