#pragma once

#include <functional>

#include "core/win32/utils/communication/include/MessageTopic.h"
#include "exports/c/CFrames.h"

/// An opening of a topic by the C interface.
using OpenTopic = cframes::Opening<MessageTopicPtr, closeTopic>;
extern cframes::Table<sysmaint_topic, OpenTopic> topics;

/// One more opening of an open topic.
class OwnOpening : public OpenTopic
{
public:
    /// Raises 6 when the topic is closed meanwhile.
    explicit OwnOpening(const OpenTopic& topic)
        : OpenTopic(messageTopics(), [number = topic.number()] {
              requireSuccess(messageTopics().openAgain(number));
              return number;
          })
    {
        if (&**this != &*topic) // its number belongs to another by now
            raiseCode(ERROR_INVALID_HANDLE);
    }
};

/// A subscriber in a topic, with an opening of the topic of its own.
class Subscription
{
public:
    /// Raises 6 when the topic is closed meanwhile.
    Subscription(const OpenTopic& topic, SubscriberHold owner) : m_topic(topic), m_owner(std::move(owner)) {}

    /// Subscribes a part of the owner in one of its roles.
    template <class Role>
    void begin(Role& subscriber)
    {
        m_end = [&subscriber](MessageTopic& topic, std::uint32_t timeout) {
            topic.unsubscribe(subscriber, timeout);
        };
        m_topic->subscribe(subscriber, m_owner);
    }
    /// Ends it, unless another thread has. Raises 258 and 1131: it goes on.
    void end(std::uint32_t timeout) const
    {
        const long code = boundary::statusOf([&]() -> long {
            m_end(*m_topic, timeout);
            return ERROR_SUCCESS;
        });
        if (code != ERROR_NOT_FOUND)
            requireSuccess(code);
    }

private:
    OwnOpening m_topic;
    SubscriberHold m_owner;
    std::function<void(MessageTopic& topic, std::uint32_t timeout)> m_end;
};
