#pragma once

#include <cstdint>
#include <type_traits>
#include <utility>

#include "win32/communication/include/Primitives.h"
#include "win32/stateholder/include/Serializable.h"

inline constexpr char kMessageHeader[] = "win32\\communication\\include\\Message.h";

/// A message: the topic it belongs to, by name or by number, and a 32-bit id chosen by the sender.
///
/// Copies own their topic name. Serialized form: topic kind (u32: 0 named, 1 numbered); the name as a string
/// or the number as u32; the id as u32. Any other kind means no topic. A null topic name is written as "<dump
/// error>". Constructors and copies raise a bare 8 when memory runs out. load and dump raise an Exception
/// that names the failing step: 30 reading (also for impossible lengths), 29 writing, 8 memory.
template <class Char>
class BasicMessage : public std::conditional_t<sizeof(Char) == 1, SerializableA, SerializableW>
{
public:
    static constexpr std::uint32_t kNamedTopic = 0;
    static constexpr std::uint32_t kNumberedTopic = 1;

    /// A message without a topic name and with id 0, ready to be loaded.
    BasicMessage() noexcept = default;
    /// A message on the topic with this name, which is copied; null is allowed.
    BasicMessage(const Char* topic, std::uint32_t id) : m_id(id) { m_topic.name = copyName(topic); }
    /// A message on the topic with this number.
    BasicMessage(std::uint32_t topic, std::uint32_t id) noexcept : m_kind(kNumberedTopic), m_id(id)
    {
        m_topic.number = topic;
    }
    BasicMessage(const BasicMessage& other) : m_kind(other.m_kind), m_id(other.m_id)
    {
        if (m_kind == kNamedTopic)
            m_topic.name = copyName(other.m_topic.name);
        else
            m_topic.number = other.m_topic.number;
    }
    BasicMessage& operator=(const BasicMessage& other)
    {
        BasicMessage copy(other);
        std::swap(m_kind, copy.m_kind);
        std::swap(m_topic, copy.m_topic);
        std::swap(m_id, copy.m_id);
        return *this;
    }
    ~BasicMessage() override { releaseName(); }

    /// 0 for a named topic, 1 for a numbered one.
    [[nodiscard]] std::uint32_t getTopicKind() const noexcept { return m_kind; }
    /// The topic's name; null when it has none. Owned by the message.
    [[nodiscard]] const Char* getTopicName() const noexcept
    {
        return m_kind == kNamedTopic ? m_topic.name : nullptr;
    }
    /// The topic's number; 0 when it is named.
    [[nodiscard]] std::uint32_t getTopicNumber() const noexcept
    {
        return m_kind == kNumberedTopic ? m_topic.number : 0;
    }
    [[nodiscard]] std::uint32_t getId() const noexcept { return m_id; }
    void setId(std::uint32_t id) noexcept { m_id = id; }

    long dump(unsigned long, IOutputByteStream& stream) const override
    {
        using namespace primitives;
        placedStep(
            place(PLACE(kMessageHeader, "MessageA::dump", 299), PLACE(kMessageHeader, "MessageW::dump", 299)),
            [&] { writeU32(stream, m_kind); });
        if (m_kind == kNamedTopic)
            placedStep(place(PLACE(kMessageHeader, "MessageA::dump", 307),
                             PLACE(kMessageHeader, "MessageW::dump", 307)),
                       [&] { writeString(stream, static_cast<const Char*>(m_topic.name)); });
        else if (m_kind == kNumberedTopic)
            placedStep(place(PLACE(kMessageHeader, "MessageA::dump", 314),
                             PLACE(kMessageHeader, "MessageW::dump", 314)),
                       [&] { writeU32(stream, m_topic.number); });
        placedStep(
            place(PLACE(kMessageHeader, "MessageA::dump", 321), PLACE(kMessageHeader, "MessageW::dump", 321)),
            [&] { writeU32(stream, m_id); });
        return ERROR_SUCCESS;
    }

    long load(unsigned long, IInputByteStream& stream) override
    {
        using namespace primitives;
        releaseName();
        placedStep(
            place(PLACE(kMessageHeader, "MessageA::load", 258), PLACE(kMessageHeader, "MessageW::load", 258)),
            [&] { m_kind = readU32(stream); });
        if (m_kind == kNamedTopic)
            placedStep(place(PLACE(kMessageHeader, "MessageA::load", 266),
                             PLACE(kMessageHeader, "MessageW::load", 266)),
                       [&] { m_topic.name = readString<Char>(stream); });
        else if (m_kind == kNumberedTopic)
            placedStep(place(PLACE(kMessageHeader, "MessageA::load", 273),
                             PLACE(kMessageHeader, "MessageW::load", 273)),
                       [&] { m_topic.number = readU32(stream); });
        placedStep(
            place(PLACE(kMessageHeader, "MessageA::load", 280), PLACE(kMessageHeader, "MessageW::load", 280)),
            [&] { m_id = readU32(stream); });
        return ERROR_SUCCESS;
    }

protected:
    static constexpr const char* place(const char* narrow, const char* wide) noexcept
    {
        return sizeof(Char) == 1 ? narrow : wide;
    }

private:
    union Topic
    {
        Char* name = nullptr; // process heap
        std::uint32_t number;
    };

    static Char* copyName(const Char* name)
    {
        if (name == nullptr)
            return nullptr;
        const std::size_t size = (std::char_traits<Char>::length(name) + 1) * sizeof(Char);
        return static_cast<Char*>(processheap::copy(name, size));
    }

    void releaseName() noexcept
    {
        if (m_kind == kNamedTopic)
            processheap::release(m_topic.name);
        m_topic = Topic{};
    }

    std::uint32_t m_kind = kNamedTopic;
    Topic m_topic;
    std::uint32_t m_id = 0;
};

using MessageA = BasicMessage<char>;
using MessageW = BasicMessage<wchar_t>;
