#pragma once

// The encodings of all serialized state: 32-bit numbers, blobs (an 8-byte length and that many bytes) and
// strings (blobs of the characters with their terminating zero). Little-endian, unaligned, no padding.
// Failures are raised as a bare long: 29 writing, 30 reading, 87 for a null target, 8 when memory runs out.

#include <cstdint>
#include <new>
#include <string>

#include "core/win32/utils/objectmanager/include/Boundary.h"
#include "core/win32/utils/objectmanager/include/ProcessHeap.h"
#include "win32/communication/include/ByteStream.h"

namespace primitives {
/// The text that stands for a missing string, in narrow and wide form.
template <class Char>
constexpr const Char* missingText() noexcept
{
    if constexpr (sizeof(Char) == 1)
        return "<dump error>";
    else
        return L"<dump error>";
}

inline void writeU32(IOutputByteStream& stream, std::uint32_t value)
{
    requireSuccess(stream.write(&value, sizeof value));
}

[[nodiscard]] inline std::uint32_t readU32(IInputByteStream& stream)
{
    std::uint32_t value = 0;
    requireSuccess(stream.read(&value, sizeof value));
    return value;
}

inline void writeBlob(IOutputByteStream& stream, const void* data, std::uint64_t size)
{
    requireSuccess(stream.write(&size, sizeof size));
    requireSuccess(stream.write(data, static_cast<std::size_t>(size)));
}

/// Reads the length of a blob; a length beyond what the stream still holds is refused (30).
[[nodiscard]] inline std::size_t readBlobLength(IInputByteStream& stream)
{
    std::uint64_t length = 0;
    requireSuccess(stream.read(&length, sizeof length));
    if (length > stream.getRemaining() || length > static_cast<std::size_t>(-1) - sizeof(wchar_t))
        raiseCode(ERROR_READ_FAULT);
    return static_cast<std::size_t>(length);
}

/// Bytes on the process heap with their length. Releases them unless they are taken over.
class Blob
{
public:
    Blob() noexcept = default;
    Blob(const Blob&) = delete;
    Blob& operator=(const Blob&) = delete;
    ~Blob() { processheap::release(m_data); }

    /// Allocates `size` bytes, followed in memory by `extra` zero bytes. The old bytes are lost.
    void allocate(std::uint64_t size, std::size_t extra = 1)
    {
        if (size > static_cast<std::size_t>(-1) - extra)
            raiseCode(ERROR_NOT_ENOUGH_MEMORY);
        const auto length = static_cast<std::size_t>(size);
        void* data = processheap::allocate(length + extra);
        ZeroMemory(static_cast<unsigned char*>(data) + length, extra);
        processheap::release(m_data);
        m_data = data;
        m_size = length;
    }

    /// Reads a blob and puts `extra` zero bytes behind it in memory.
    void read(IInputByteStream& stream, std::size_t extra = 1)
    {
        allocate(readBlobLength(stream), extra);
        requireSuccess(stream.read(m_data, m_size));
    }

    [[nodiscard]] void* getData() noexcept { return m_data; }
    [[nodiscard]] const void* getData() const noexcept { return m_data; }
    [[nodiscard]] std::size_t getSize() const noexcept { return m_size; }
    /// Hands the memory to the caller, who releases it with processheap::release.
    [[nodiscard]] void* release() noexcept { return std::exchange(m_data, nullptr); }

private:
    void* m_data = nullptr;
    std::size_t m_size = 0;
};

/// Reads a blob into a number of 8 bytes. A shorter blob fills the low bytes; a longer one is refused (30).
[[nodiscard]] inline std::uint64_t readU64Blob(IInputByteStream& stream)
{
    const std::size_t length = readBlobLength(stream);
    std::uint64_t value = 0;
    if (length > sizeof value)
        raiseCode(ERROR_READ_FAULT);
    requireSuccess(stream.read(&value, length));
    return value;
}

inline void writeU64Blob(IOutputByteStream& stream, std::uint64_t value)
{
    const std::uint64_t blob[] = {sizeof value, value}; // one write: every parameter begins with this
    requireSuccess(stream.write(blob, sizeof blob));
}

/// Writes a string with its terminator; a null text is written as "<dump error>".
template <class Char>
void writeString(IOutputByteStream& stream, const Char* text)
{
    if (text == nullptr)
        text = missingText<Char>();
    writeBlob(stream, text, (std::char_traits<Char>::length(text) + 1) * sizeof(Char));
}

/// Whether `size` characters form a string, with a terminator at the end and none before. One inside would
/// cut the text short: a path would become that of a folder above.
template <class Char>
[[nodiscard]] bool isTerminated(const Char* text, std::size_t size)
{
    return size != 0 && std::char_traits<Char>::find(text, size, Char()) == text + size - 1;
}

/// Reads a string. One whose first zero is not its last character is refused (30). The caller releases the
/// returned text with processheap::release.
template <class Char>
[[nodiscard]] Char* readString(IInputByteStream& stream)
{
    Blob blob;
    blob.read(stream, sizeof(Char));
    const std::size_t size = blob.getSize();
    const auto* text = static_cast<const Char*>(blob.getData());
    if (size % sizeof(Char) != 0 || !isTerminated(text, size / sizeof(Char)))
        raiseCode(ERROR_READ_FAULT);
    return static_cast<Char*>(blob.release());
}

/// Reads a string's length in characters, terminator included: at least one.
template <class Char>
[[nodiscard]] std::size_t readTextCapacity(IInputByteStream& stream)
{
    const std::size_t size = readBlobLength(stream);
    if (size == 0 || size % sizeof(Char) != 0)
        raiseCode(ERROR_READ_FAULT);
    if (size > PTRDIFF_MAX) // a stream that does not know where it ends
        raiseCode(ERROR_NOT_ENOUGH_MEMORY);
    return size / sizeof(Char);
}

/// Reads `capacity` characters, of which the last and no other must be zero. Returns how many precede it.
template <class Char>
[[nodiscard]] std::size_t readCharacters(IInputByteStream& stream, Char* text, std::size_t capacity)
{
    requireSuccess(stream.read(text, capacity * sizeof(Char)));
    if (!isTerminated(text, capacity))
        raiseCode(ERROR_READ_FAULT);
    return capacity - 1;
}

/// Reads a string into a string object.
template <class Char>
[[nodiscard]] HeapString<Char> readText(IInputByteStream& stream)
{
    HeapString<Char> text(readTextCapacity<Char>(stream), Char());
    text.resize(readCharacters(stream, text.data(), text.size()));
    return text;
}

/// Runs one step of a load or dump. Returns 0 or the code of what it raises.
template <class Step>
long codeOfStep(Step&& step) noexcept
{
    return boundary::statusOf([&]() -> long {
        step();
        return ERROR_SUCCESS;
    });
}

/// Runs one step of a load or dump. Anything it raises becomes an Exception at `place` with the same code.
template <class Step>
void placedStep(const char* place, Step&& step)
{
    requireSuccess(place, codeOfStep(step));
}

/// Runs one step of a load or dump. Anything it raises becomes a bare long with the same code.
template <class Step>
void bareStep(Step&& step)
{
    requireSuccess(codeOfStep(step));
}
} // namespace primitives
