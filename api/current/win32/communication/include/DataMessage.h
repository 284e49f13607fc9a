#pragma once

#include "win32/communication/include/Message.h"

inline constexpr char kDataMessageHeader[] = "win32\\communication\\include\\DataMessage.h";

/// A message with one buffer of bytes, copied to the process heap and owned by the message.
///
/// Serialized form: the message, the size as a blob of 8 bytes, the bytes as a blob. load and dump raise an
/// Exception that names the failing step, with 30 (also when the size disagrees with the blob), 29 or 8.
class DataMessage : public MessageW
{
public:
    using MessageW::MessageW;
    DataMessage() noexcept = default;
    DataMessage(const DataMessage& other) : MessageW(other) { setData(other.m_data, other.m_size); }
    DataMessage& operator=(const DataMessage& other)
    {
        if (this != &other) {
            DataMessage copy(other);
            MessageW::operator=(other);
            std::swap(m_size, copy.m_size);
            std::swap(m_data, copy.m_data);
        }
        return *this;
    }
    ~DataMessage() override { processheap::release(m_data); }

    /// Replaces the bytes by a copy of `size` bytes; null data empties them. Raises a bare 8 and keeps the
    /// old bytes.
    void setData(const void* data, std::uint64_t size)
    {
        void* copy = data != nullptr ? processheap::copy(data, static_cast<std::size_t>(size), 1) : nullptr;
        processheap::release(m_data);
        m_data = copy;
        m_size = data != nullptr ? size : 0;
    }
    [[nodiscard]] const void* getData() const noexcept { return m_data; }
    [[nodiscard]] std::uint64_t getSize() const noexcept { return m_size; }

    long dump(unsigned long code, IOutputByteStream& stream) const override
    {
        using namespace primitives;
        placedStep(PLACE(kDataMessageHeader, "DataMessage::dump", 172),
                   [&] { MessageW::dump(code, stream); });
        placedStep(PLACE(kDataMessageHeader, "DataMessage::dump", 176),
                   [&] { writeU64Blob(stream, m_size); });
        placedStep(PLACE(kDataMessageHeader, "DataMessage::dump", 180),
                   [&] { writeBlob(stream, m_data, m_size); });
        return ERROR_SUCCESS;
    }

    long load(unsigned long code, IInputByteStream& stream) override
    {
        using namespace primitives;
        placedStep(PLACE(kDataMessageHeader, "DataMessage::load", 141),
                   [&] { MessageW::load(code, stream); });
        std::uint64_t size = 0;
        placedStep(PLACE(kDataMessageHeader, "DataMessage::load", 145), [&] { size = readU64Blob(stream); });
        placedStep(PLACE(kDataMessageHeader, "DataMessage::load", 153), [&] {
            Blob data;
            data.read(stream);
            if (data.getSize() != size)
                raiseCode(ERROR_READ_FAULT);
            processheap::release(m_data);
            m_data = data.release();
            m_size = size;
        });
        return ERROR_SUCCESS;
    }

private:
    std::uint64_t m_size = 0;
    void* m_data = nullptr; // process heap
};
