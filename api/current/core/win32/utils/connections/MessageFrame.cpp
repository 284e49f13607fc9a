#include "core/win32/utils/connections/include/MessageFrame.h"

#include <array>
#include <cstring>
#include <vector>

#include "core/win32/utils/objectmanager/include/Boundary.h"

namespace {
using messageframe::Header;

/// Collects a frame behind what goes before it, up to a limit.
class FrameStream final : public IOutputByteStream
{
public:
    FrameStream(const void* before, std::size_t size, std::uint32_t limit)
        : m_bytes(size + sizeof(Header)), m_begin(size), m_limit(limit)
    {
        if (size != 0)
            std::memcpy(m_bytes.data(), before, size);
    }

    long write(const void* source, std::size_t size) override
    {
        m_exceeded = m_exceeded || size > m_limit - getLength();
        if (m_exceeded)
            return ERROR_WRITE_FAULT;
        const auto* from = static_cast<const unsigned char*>(source);
        return boundary::statusOf([&]() -> long {
            m_bytes.insert(m_bytes.end(), from, from + size);
            return ERROR_SUCCESS;
        });
    }
    [[nodiscard]] bool isExceeded() const noexcept { return m_exceeded; }
    [[nodiscard]] std::vector<unsigned char> finish(MessageClass messageClass) noexcept
    {
        const Header header{static_cast<std::uint32_t>(getLength()),
                            static_cast<std::uint32_t>(messageClass)};
        std::memcpy(m_bytes.data() + m_begin, &header, sizeof header);
        return std::move(m_bytes);
    }

private:
    [[nodiscard]] std::size_t getLength() const noexcept { return m_bytes.size() - m_begin - sizeof(Header); }

    std::vector<unsigned char> m_bytes;
    std::size_t m_begin; // of the header
    std::uint32_t m_limit;
    bool m_exceeded = false;
};

template <class Serializable>
std::vector<unsigned char> make(const void* before, std::size_t size, MessageClass messageClass,
                                const Serializable& message, std::uint32_t limit)
{
    FrameStream stream(before, size, limit);
    const long code = boundary::statusOf([&] { return message.dump(0, stream); });
    if (stream.isExceeded())
        raiseCode(ERROR_MESSAGE_EXCEEDS_MAX_SIZE);
    requireSuccess(code);
    return stream.finish(messageClass);
}

template <class Serializable>
void send(Wire& wire, MessageClass messageClass, const Serializable& message, std::uint32_t limit,
          const WaitLimits& limits)
{
    const std::vector<unsigned char> frame = make(nullptr, 0, messageClass, message, limit);
    wire.writeAll(frame.data(), frame.size(), limits);
}

SharedPtr<MessageW> makeWide(MessageClass messageClass, ArrayMessage::ElementFactory elements)
{
    switch (messageClass) {
    case MessageClass::MessageW:
        return makeShared<MessageW>();
    case MessageClass::DataMessage:
        return makeShared<MessageW, DataMessage>();
    case MessageClass::HashMessageW:
        return makeShared<MessageW, HashMessageW>();
    case MessageClass::ArrayMessage: {
        ArrayMessage message;
        message.setElementFactory(elements);
        return makeShared<MessageW, ArrayMessage>(message);
    }
    default:
        return {};
    }
}

SharedPtr<MessageA> makeNarrow(MessageClass messageClass)
{
    switch (messageClass) {
    case MessageClass::MessageA:
        return makeShared<MessageA>();
    case MessageClass::HashMessageA:
        return makeShared<MessageA, HashMessageA>();
    default:
        return {};
    }
}

template <class Message>
void load(Message& message, MemoryInputByteStream& stream)
{
    const long code = boundary::statusOf([&] { return message.load(0, stream); });
    if (code == ERROR_NOT_ENOUGH_MEMORY)
        raiseCode(code);
    if (code != ERROR_SUCCESS || stream.getRemaining() != 0)
        raiseCode(ERROR_INVALID_DATA);
}
} // namespace

std::vector<unsigned char> messageframe::makeFrame(const void* before, std::size_t size,
                                                   MessageClass messageClass, const SerializableW& message,
                                                   std::uint32_t limit)
{
    return make(before, size, messageClass, message, limit);
}

void messageframe::sendFrame(Wire& wire, MessageClass messageClass, const SerializableW& message,
                             std::uint32_t limit, const WaitLimits& limits)
{
    send(wire, messageClass, message, limit, limits);
}

void messageframe::sendFrame(Wire& wire, MessageClass messageClass, const SerializableA& message,
                             std::uint32_t limit, const WaitLimits& limits)
{
    send(wire, messageClass, message, limit, limits);
}

messageframe::Body::Body(Wire& wire, std::size_t size, const WaitLimits& limits) : m_size(size)
{
    constexpr std::size_t kFirst = 1U << 20U;
    std::size_t capacity = 0;
    for (std::size_t done = 0; done < size; done = capacity) {
        capacity = std::min(size, std::max(kFirst, capacity * 2));
        auto larger = std::make_unique_for_overwrite<unsigned char[]>(capacity);
        if (done != 0)
            std::memcpy(larger.get(), m_bytes.get(), done);
        m_bytes = std::move(larger);
        wire.readAll(m_bytes.get() + done, capacity - done, limits);
    }
}

AnyMessage messageframe::loadMessage(std::uint32_t messageClass, MemoryInputByteStream stream,
                                     ArrayMessage::ElementFactory elements)
{
    AnyMessage message;
    message.messageClass = static_cast<MessageClass>(messageClass);
    message.wide = makeWide(message.messageClass, elements);
    message.narrow = makeNarrow(message.messageClass);
    if (message.wide)
        load(*message.wide, stream);
    else if (message.narrow)
        load(*message.narrow, stream);
    else
        raiseCode(ERROR_INVALID_DATA);
    return message;
}

void messageframe::skipBody(Wire& wire, std::size_t size, const WaitLimits& limits)
{
    std::vector<unsigned char> piece(std::min(size, std::size_t{64U << 10U}));
    while (size != 0)
        size -= wire.readSome(piece.data(), std::min(size, piece.size()), limits);
}

AnyMessage messageframe::receiveFrame(Wire& wire, std::uint32_t limit, ArrayMessage::ElementFactory elements,
                                      const WaitLimits& limits)
{
    constexpr auto kLastClass = static_cast<std::uint32_t>(MessageClass::HashMessageA);
    Header header;
    wire.readAll(&header, sizeof header, limits); // of which nothing may have come: the wire is as it was
    try {
        if (header.messageClass > kLastClass)
            raiseCode(ERROR_INVALID_DATA);
        if (header.length > limit)
            raiseCode(ERROR_MESSAGE_EXCEEDS_MAX_SIZE);
        const Body body(wire, header.length, limits);
        return loadMessage(header.messageClass, body.getStream(), elements);
    } catch (...) {
        wire.close(); // nobody knows where the next frame begins
        throw;
    }
}
