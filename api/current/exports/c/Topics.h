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
    explicit OwnOpening(const MessageTopic& topic)
        : OpenTopic(messageTopics(), [&] {
              void* const handle = messageTopics().lookup(topic.getName());
              if (handle == INVALID_HANDLE_VALUE && lastError() == ERROR_NOT_FOUND)
                  raiseCode(ERROR_INVALID_HANDLE);
              return handle;
          })
    {
        if (&**this != &topic) // its name belongs to another by now
            raiseCode(ERROR_INVALID_HANDLE);
    }
};

/// Makes the owner of a subscriber, held by the result alone.
template <class Owner, class... Arguments>
[[nodiscard]] SubscriberHold makeOwner(Arguments&&... arguments)
{
    // The frame turns it into 8. NOLINTNEXTLINE(bugprone-unhandled-exception-at-new)
    auto* const made = new Owner(std::forward<Arguments>(arguments)...);
    SubscriberHold hold(made);
    made->release(); // the reference that it is born with
    return hold;
}

/// A subscriber in a topic, with an opening of the topic of its own.
class Subscription
{
public:
    /// Raises 6 when the topic is closed meanwhile.
    Subscription(const MessageTopic& topic, SubscriberHold owner) : m_topic(topic), m_owner(std::move(owner))
    {
    }

    /// Subscribes a part of the owner in one of its roles.
    template <class Role>
    void begin(Role& subscriber)
    {
        m_end = [&subscriber](MessageTopic& topic, std::uint32_t timeout) {
            topic.unsubscribe(subscriber, timeout);
        };
        m_topic->subscribe(subscriber, m_owner.get());
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
