#pragma once

#include <cstring>

#include "win32/communication/include/Message.h"

inline constexpr char kParameterHeader[] = "win32\\communication\\include\\Parameter.h";

/// One untyped value of a message: a copy of `size` bytes on the process heap.
///
/// Serialized form: the size as a blob of 8 bytes, then the value as a blob. load raises an Exception that
/// names the failing step, with 30 also when the size disagrees with the value's blob; dump does the same
/// with 29.
template <class Char>
class BasicParameter : public std::conditional_t<sizeof(Char) == 1, SerializableA, SerializableW>
{
public:
    /// An empty value, ready to be loaded.
    BasicParameter() noexcept = default;
    /// Copies `size` bytes. Raises an Exception with 87 for null data and a bare 8 when memory runs out.
    BasicParameter(std::uint64_t size, const void* data)
    {
        if (data == nullptr)
            throw Exception(place(PLACE(kParameterHeader, "ParameterA::ParameterA", 64),
                                  PLACE(kParameterHeader, "ParameterW::ParameterW", 65)),
                            ERROR_INVALID_PARAMETER);
        m_data = processheap::copy(data, static_cast<std::size_t>(size), 1);
        m_size = size;
    }
    BasicParameter(const BasicParameter& other) : m_size(other.m_size)
    {
        if (other.m_data != nullptr)
            m_data = processheap::copy(other.m_data, static_cast<std::size_t>(m_size), 1);
    }
    BasicParameter& operator=(const BasicParameter& other)
    {
        BasicParameter copy(other);
        std::swap(m_size, copy.m_size);
        std::swap(m_data, copy.m_data);
        return *this;
    }
    ~BasicParameter() override { processheap::release(m_data); }

    [[nodiscard]] std::uint64_t getSize() const noexcept { return m_size; }
    /// The bytes; null for an empty value that was never set. Owned by the parameter.
    [[nodiscard]] const void* getData() const noexcept { return m_data; }

    long dump(unsigned long, IOutputByteStream& stream) const override
    {
        using namespace primitives;
        placedStep(place(PLACE(kParameterHeader, "ParameterA::dump", 180),
                         PLACE(kParameterHeader, "ParameterW::dump", 181)),
                   [&] { writeU64Blob(stream, m_size); });
        placedStep(place(PLACE(kParameterHeader, "ParameterA::dump", 184),
                         PLACE(kParameterHeader, "ParameterW::dump", 185)),
                   [&] { writeBlob(stream, m_data, m_size); });
        return ERROR_SUCCESS;
    }

    long load(unsigned long, IInputByteStream& stream) override
    {
        using namespace primitives;
        processheap::release(m_data);
        m_data = nullptr;
        m_size = 0;
        std::uint64_t size = 0;
        placedStep(place(PLACE(kParameterHeader, "ParameterA::load", 149),
                         PLACE(kParameterHeader, "ParameterW::load", 150)),
                   [&] { size = readU64Blob(stream); });
        placedStep(place(PLACE(kParameterHeader, "ParameterA::load", 157),
                         PLACE(kParameterHeader, "ParameterW::load", 158)),
                   [&] {
                       Blob value;
                       value.read(stream);
                       if (value.getSize() != size)
                           raiseCode(ERROR_READ_FAULT);
                       m_data = value.release();
                       m_size = size;
                   });
        return ERROR_SUCCESS;
    }

private:
    static constexpr const char* place(const char* narrow, const char* wide) noexcept
    {
        return sizeof(Char) == 1 ? narrow : wide;
    }

    std::uint64_t m_size = 0;
    void* m_data = nullptr; // process heap
};

using ParameterA = BasicParameter<char>;
using ParameterW = BasicParameter<wchar_t>;
