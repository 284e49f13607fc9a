#include "core/win32/utils/connections/include/MessageFrame.h"

#include <array>
#include <cstring>
#include <vector>

#include "core/win32/utils/objectmanager/include/Boundary.h"

namespace {
struct Header
{
    std::uint32_t length;
    std::uint32_t messageClass;
};

/// Collects a frame, with room for its header, up to a limit.
class FrameStream final : public IOutputByteStream
{
public:
    explicit FrameStream(std::uint32_t limit) : m_bytes(sizeof(Header)), m_limit(limit) {}

    long write(const void* source, std::size_t size) override
    {
        m_exceeded = m_exceeded || size > m_limit - (m_bytes.size() - sizeof(Header));
        if (m_exceeded)
            return ERROR_WRITE_FAULT;
        const auto* from = static_cast<const unsigned char*>(source);
        return boundary::statusOf([&]() -> long {
            m_bytes.insert(m_bytes.end(), from, from + size);
            return ERROR_SUCCESS;
        });
    }
    [[nodiscard]] bool isExceeded() const noexcept { return m_exceeded; }
    [[nodiscard]] const std::vector<unsigned char>& finish(MessageClass messageClass) noexcept
    {
        const Header header{static_cast<std::uint32_t>(m_bytes.size() - sizeof(Header)),
                            static_cast<std::uint32_t>(messageClass)};
        std::memcpy(m_bytes.data(), &header, sizeof header);
        return m_bytes;
    }

private:
    std::vector<unsigned char> m_bytes;
    std::uint32_t m_limit;
    bool m_exceeded = false;
};

template <class Serializable>
void send(Wire& wire, MessageClass messageClass, const Serializable& message, std::uint32_t limit,
          const WaitLimits& limits)
{
    FrameStream stream(limit);
    const long code = boundary::statusOf([&] { return message.dump(0, stream); });
    if (stream.isExceeded())
        raiseCode(ERROR_MESSAGE_EXCEEDS_MAX_SIZE);
    requireSuccess(code);
    const std::vector<unsigned char>& frame = stream.finish(messageClass);
    wire.writeAll(frame.data(), frame.size(), limits);
}

/// The body of a frame, whose memory grows with what has arrived.
class Body
{
public:
    Body(Wire& wire, std::size_t size, const WaitLimits& limits) : m_size(size)
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
    [[nodiscard]] MemoryInputByteStream getStream() const noexcept { return {m_bytes.get(), m_size}; }

private:
    std::unique_ptr<unsigned char[]> m_bytes;
    std::size_t m_size;
};

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
void load(Message& message, const Body& body)
{
    MemoryInputByteStream stream = body.getStream();
    const long code = boundary::statusOf([&] { return message.load(0, stream); });
    if (code == ERROR_NOT_ENOUGH_MEMORY)
        raiseCode(code);
    if (code != ERROR_SUCCESS || stream.getRemaining() != 0)
        raiseCode(ERROR_INVALID_DATA);
}
} // namespace

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

AnyMessage messageframe::receiveFrame(Wire& wire, std::uint32_t limit, ArrayMessage::ElementFactory elements,
                                      const WaitLimits& limits)
{
    Header header{};
    wire.readAll(&header, sizeof header, limits); // of which nothing may have come: the wire is as it was
    try {
        AnyMessage message;
        message.messageClass = static_cast<MessageClass>(header.messageClass);
        message.wide = makeWide(message.messageClass, elements);
        message.narrow = makeNarrow(message.messageClass);
        if (!message.wide && !message.narrow)
            raiseCode(ERROR_INVALID_DATA);
        if (header.length > limit)
            raiseCode(ERROR_MESSAGE_EXCEEDS_MAX_SIZE);
        const Body body(wire, header.length, limits);
        if (message.wide)
            load(*message.wide, body);
        else
            load(*message.narrow, body);
        return message;
    } catch (...) {
        wire.close(); // nobody knows where the next frame begins
        throw;
    }
}
