#pragma once

#include <windows.h>

#include <cstddef>
#include <cstring>
#include <limits>

#include "core/win32/utils/objectmanager/include/FileTransfer.h"
#include "core/win32/utils/objectmanager/include/ProcessHeap.h"
#include "core/win32/utils/objectmanager/include/Win32Handle.h"

/// A source of bytes. Its content is not trusted: readers check `getRemaining` before they allocate for a
/// length that came from the stream.
struct IInputByteStream
{
    virtual ~IInputByteStream() = default;
    /// Reads exactly `size` bytes into `target`. Returns 0, or 30 when fewer are left or the source fails.
    virtual long read(void* target, std::size_t size) = 0;
    /// How many bytes are left.
    [[nodiscard]] virtual unsigned long long getRemaining() const noexcept = 0;
};

/// A sink of bytes.
struct IOutputByteStream
{
    virtual ~IOutputByteStream() = default;
    /// Writes all `size` bytes. Returns 0, or 29 when the sink cannot take them.
    virtual long write(const void* source, std::size_t size) = 0;
};

namespace primitives {
/// Copies bytes. Messages consist mostly of numbers of 4 and 8 bytes, which need no call.
inline void copyBytes(void* target, const void* source, std::size_t size) noexcept
{
    if (size == 8)
        std::memcpy(target, source, 8);
    else if (size == 4)
        std::memcpy(target, source, 4);
    else if (size != 0)
        std::memcpy(target, source, size);
}
} // namespace primitives

/// Reads from memory that the caller owns and must not change meanwhile.
class MemoryInputByteStream : public IInputByteStream
{
public:
    MemoryInputByteStream(const void* data, std::size_t size) noexcept
        : m_data(static_cast<const unsigned char*>(data)), m_size(data != nullptr ? size : 0)
    {
    }

    long read(void* target, std::size_t size) override
    {
        if (size > m_size - m_position)
            return ERROR_READ_FAULT;
        primitives::copyBytes(target, m_data + m_position, size);
        m_position += size;
        return ERROR_SUCCESS;
    }
    [[nodiscard]] unsigned long long getRemaining() const noexcept override { return m_size - m_position; }

private:
    const unsigned char* m_data;
    std::size_t m_size;
    std::size_t m_position = 0;
};

/// Collects bytes in its own memory, which grows as needed.
class MemoryOutputByteStream : public IOutputByteStream
{
public:
    MemoryOutputByteStream() noexcept = default;
    MemoryOutputByteStream(const MemoryOutputByteStream&) = delete;
    MemoryOutputByteStream& operator=(const MemoryOutputByteStream&) = delete;
    ~MemoryOutputByteStream() override { processheap::release(m_data); }

    /// Returns 29 when memory runs out; what was written before stays.
    long write(const void* source, std::size_t size) override
    {
        if (size > m_capacity - m_size && !grow(size))
            return ERROR_WRITE_FAULT;
        primitives::copyBytes(m_data + m_size, source, size);
        m_size += size;
        return ERROR_SUCCESS;
    }

    [[nodiscard]] const unsigned char* getData() const noexcept { return m_data; }
    [[nodiscard]] std::size_t getSize() const noexcept { return m_size; }
    /// Discards the content and keeps the memory.
    void clear() noexcept { m_size = 0; }

private:
    bool grow(std::size_t more) noexcept
    {
        constexpr std::size_t kMost = std::numeric_limits<std::size_t>::max() / 2;
        if (more > kMost - m_size)
            return false;
        std::size_t capacity = m_capacity < 64 ? 64 : m_capacity * 2;
        if (capacity < m_size + more)
            capacity = m_size + more;
        void* data = m_data == nullptr ? HeapAlloc(GetProcessHeap(), 0, capacity)
                                       : HeapReAlloc(GetProcessHeap(), 0, m_data, capacity);
        if (data == nullptr)
            return false;
        m_data = static_cast<unsigned char*>(data);
        m_capacity = capacity;
        return true;
    }

    unsigned char* m_data = nullptr;
    std::size_t m_size = 0;
    std::size_t m_capacity = 0;
};

/// Writes to memory that the caller owns, never past its end.
class FixedOutputByteStream : public IOutputByteStream
{
public:
    FixedOutputByteStream(void* target, std::size_t capacity) noexcept
        : m_target(static_cast<unsigned char*>(target)), m_capacity(target != nullptr ? capacity : 0)
    {
    }

    /// Returns 29, and writes nothing, when `size` bytes do not fit.
    long write(const void* source, std::size_t size) override
    {
        if (size > m_capacity - m_size)
            return ERROR_WRITE_FAULT;
        if (size != 0)
            std::memcpy(m_target + m_size, source, size);
        m_size += size;
        return ERROR_SUCCESS;
    }
    [[nodiscard]] std::size_t getSize() const noexcept { return m_size; }

private:
    unsigned char* m_target;
    std::size_t m_capacity;
    std::size_t m_size = 0;
};

/// Reads from an open file, from its current position to its end as of construction. The caller keeps the
/// handle open meanwhile; it must be seekable.
class FileInputByteStream : public IInputByteStream
{
public:
    explicit FileInputByteStream(HANDLE file) noexcept : m_file(file)
    {
        LARGE_INTEGER size{};
        LARGE_INTEGER position{};
        if (GetFileSizeEx(file, &size) && SetFilePointerEx(file, {}, &position, FILE_CURRENT) &&
            position.QuadPart < size.QuadPart)
            m_remaining = static_cast<unsigned long long>(size.QuadPart - position.QuadPart);
    }

    long read(void* target, std::size_t size) override
    {
        if (size > m_remaining)
            return ERROR_READ_FAULT;
        unsigned long long done = 0;
        const long code = filetransfer::read(m_file, target, size, done);
        m_remaining -= done;
        return code == ERROR_SUCCESS && done == size ? ERROR_SUCCESS : ERROR_READ_FAULT;
    }
    [[nodiscard]] unsigned long long getRemaining() const noexcept override { return m_remaining; }

private:
    HANDLE m_file;
    unsigned long long m_remaining = 0;
};

/// Writes to an open file at its current position. The caller keeps the handle open meanwhile.
class FileOutputByteStream : public IOutputByteStream
{
public:
    explicit FileOutputByteStream(HANDLE file) noexcept : m_file(file) {}

    /// Returns 29 when the file does not take all bytes; some may have been written.
    long write(const void* source, std::size_t size) override
    {
        return filetransfer::write(m_file, source, size) == ERROR_SUCCESS ? ERROR_SUCCESS : ERROR_WRITE_FAULT;
    }

private:
    HANDLE m_file;
};
