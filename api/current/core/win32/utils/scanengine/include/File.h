#pragma once

#include <optional>

#include "core/win32/utils/objectmanager/include/ReadWriteLock.h"
#include "core/win32/utils/scanengine/include/PathOrigin.h"
#include "win32/scanengine/include/IFile.h"
#include "win32/scanengine/include/ScanItem.h"

/// A file on a disk; see IFile for the contract of its operations.
class File : public ScanItem, public IFile
{
public:
    File() noexcept : ScanItem(kFileItem) {}
    /// Raises CachedPath's failures from File::File.
    File(const wchar_t* path, int expand);
    /// For the walk: takes over a finished text, the origin of what is found below the walk's root, and the
    /// size from the folder's entry.
    File(HeapStringW&& path, const PathOrigin& origin, unsigned long long size) noexcept
        : ScanItem(kFileItem, CachedPath(std::move(path))), m_origin(origin), m_foundSize(size)
    {
    }
    File(const File&) = delete;
    File& operator=(const File&) = delete;
    ~File() override { processheap::release(m_data); }

    [[nodiscard]] const wchar_t* getPath() const override { return ScanItem::getPath(); }
    void setPath(const wchar_t* path, int expand) override;
    [[nodiscard]] bool isInterchangeable(const ScanItem& filed) const override;
    void create() override;
    void deleteItem() override;
    [[nodiscard]] int exists() const override;
    [[nodiscard]] unsigned long long getSize() const override;
    const void* getData(unsigned long long& size) override;
    void setData(const void* data, unsigned long long size) override;
    /// Creates the file with a copy of these bytes, which are its kept content then. On failure the item
    /// keeps what it has.
    void write(const void* data, unsigned long long size);
    long load(unsigned long code, IInputByteStream& stream) override;
    long dump(unsigned long code, IOutputByteStream& stream) const override;

private:
    struct Content
    {
        const void* data;
        unsigned long long size;
        bool isKnown;
    };
    /// What is known so far. It stays in place until the item is changed.
    [[nodiscard]] Content content() const noexcept;
    void keepData(void* data, unsigned long long size) noexcept;
    void settle();
    void readData();
    void store(const void* data, unsigned long long size) const;

    PathOrigin m_origin;

    void* m_data = nullptr; // process heap
    unsigned long long m_size = 0;
    bool m_hasData = false;
    bool m_wasRead = false;       // read from the file, not set by the caller
    mutable ReadWriteLock m_lock; // guards what getData reads at its first call
    std::optional<unsigned long long> m_foundSize;
};

/// Whether `path` exists. Raises the bare system code when the system cannot tell.
[[nodiscard]] bool pathExists(const wchar_t* path);
