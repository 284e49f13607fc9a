// The C interface: message topics.

#include "exports/c/Topics.h"
#include "exports/c/Messages.h"

using cframes::requireArguments;
using cframes::status;

cframes::Table<sysmaint_topic, OpenTopic> topics;

namespace {
constexpr char kHeader[] = "c\\sysmaint.h";

/// Takes what a delivery brings in all its forms, as a handler or as a filter.
template <class Role>
class Receiver final : public Role
{
public:
    Receiver(sysmaint_message_callback function, void* context) noexcept
        : m_function(function), m_context(context)
    {
    }

    void onMessage(const MessageW& message, MessageW& reply, void* context) override
    {
        deliver(message, reply, nullptr, context);
    }
    void onMessage(const MessageW& message, MessageW& reply, std::uint32_t value, void* context) override
    {
        deliver(message, reply, &value, context);
    }
    void onMessage(const DataMessage& message, DataMessage& reply, void* context) override
    {
        deliver(message, reply, nullptr, context);
    }
    void onMessage(const DataMessage& message, DataMessage& reply, std::uint32_t value,
                   void* context) override
    {
        deliver(message, reply, &value, context);
    }
    void onMessage(const ArrayMessage& message, ArrayMessage& reply, void* context) override
    {
        deliver(message, reply, nullptr, context);
    }
    void onMessage(const ArrayMessage& message, ArrayMessage& reply, std::uint32_t value,
                   void* context) override
    {
        deliver(message, reply, &value, context);
    }
    void onMessage(const HashMessageW& message, HashMessageW& reply, void* context) override
    {
        deliver(message, reply, nullptr, context);
    }
    void onMessage(const HashMessageW& message, HashMessageW& reply, std::uint32_t value,
                   void* context) override
    {
        deliver(message, reply, &value, context);
    }

private:
    /// Both messages are copies, so handles of them cannot outlive what they name.
    template <class Type>
    void deliver(const Type& message, Type& reply, const std::uint32_t* value, void* context)
    {
        const cframes::Lent lent(messages(), MessageHolder::copyOf(message));
        const auto answer = MessageHolder::copyOf(reply);
        const cframes::Lent lentAnswer(messages(), answer);
        const sysmaint_delivery delivery{sizeof delivery,
                                         value != nullptr ? 1U : 0U,
                                         value != nullptr ? *value : 0U,
                                         0,
                                         lent.get(),
                                         lentAnswer.get(),
                                         context};
        cframes::Callback<sysmaint_message_callback> callback(m_function, m_context);
        callback(&delivery);
        reply = answer->template as<Type>();
    }

    sysmaint_message_callback m_function;
    void* m_context;
};

/// The frame of an operation on a topic.
template <class Operation>
std::int32_t withOpen(const char* function, sysmaint_topic* topic, Operation&& operation) noexcept
{
    return status(function, [&] {
        const auto opening = topics().get(topic);
        cframes::requireRunning();
        operation(**opening);
    });
}

cframes::Table<sysmaint_subscription, Subscription> subscriptions;

template <class Role>
void subscribe(const OpenTopic& topic, sysmaint_message_callback function, void* context,
               sysmaint_subscription** subscription)
{
    auto owner = std::make_shared<Receiver<Role>>(function, context);
    auto& receiver = *owner;
    *subscription = cframes::addAndBegin(subscriptions, makeShared<Subscription>(topic, std::move(owner)),
                                         [&](Subscription& made) { made.begin<Role>(receiver); });
}

std::uint32_t valueOf(const std::uint32_t* value) noexcept
{
    return value != nullptr ? *value : MessageTopic::kNoValue;
}

/// Sends a message; `reply` may be null.
template <class Type>
void send(MessageTopic& topic, const Type& message, const SharedPtr<MessageHolder>& reply,
          std::uint32_t value, void* context)
{
    Type none;
    topic.sendMessage(message, reply ? reply->as<Type>() : none, value, context);
}
} // namespace

std::int32_t sysmaint_topic_create(const wchar_t* name, sysmaint_topic** topic)
{
    return cframes::openingStatus(__func__, topics, topic, messageTopics, [&] {
        return createTopic(PLACE(kHeader, "sysmaint_topic_create", __LINE__), name);
    });
}

std::int32_t sysmaint_topic_open(const wchar_t* name, sysmaint_topic** topic)
{
    return cframes::openingStatus(__func__, topics, topic, messageTopics,
                                  [&] { return messageTopics().lookup(name); });
}

std::int32_t sysmaint_topic_name(sysmaint_topic* topic, const wchar_t** name)
{
    return status(__func__, [&] {
        const auto opening = topics().get(topic);
        requireArguments(name != nullptr);
        *name = (*opening)->getName();
    });
}

std::int32_t sysmaint_topic_close(sysmaint_topic* topic)
{
    return status(__func__, [&] { topics().remove(topic)->close(); });
}

std::int32_t sysmaint_topic_subscribe(sysmaint_topic* topic, std::uint32_t role,
                                      sysmaint_message_callback callback, void* context,
                                      sysmaint_subscription** subscription)
{
    return status(__func__, [&] {
        const auto opening = topics().get(topic);
        cframes::requireRunning();
        requireArguments(role <= SYSMAINT_ROLE_FILTER && callback != nullptr && subscription != nullptr);
        const auto begin =
            role == SYSMAINT_ROLE_HANDLER ? &subscribe<IMessageHandler> : &subscribe<MessageFilter>;
        begin(*opening, callback, context, subscription);
    });
}

std::int32_t sysmaint_topic_unsubscribe(sysmaint_subscription* subscription, std::uint32_t timeout)
{
    return status(__func__, [&] {
        const auto object = subscriptions().get(subscription);
        cframes::requireRunning();
        object->end(timeout);
        subscriptions().remove(subscription);
    });
}

std::int32_t sysmaint_topic_send(sysmaint_topic* topic, sysmaint_message* message, sysmaint_message* reply,
                                 const std::uint32_t* value, void* context)
{
    return withOpen(__func__, topic, [&](MessageTopic& object) {
        const auto sent = messages().get(message);
        const auto answer = reply != nullptr ? messages().get(reply) : SharedPtr<MessageHolder>();
        withMessage(*sent,
                    [&](const auto& content) { send(object, content, answer, valueOf(value), context); });
    });
}

std::int32_t sysmaint_topic_post(sysmaint_topic* topic, sysmaint_message* message, const std::uint32_t* value)
{
    return withOpen(__func__, topic, [&](MessageTopic& object) {
        const auto posted = messages().get(message);
        withMessage(*posted, [&](const auto& content) { object.postMessage(content, valueOf(value)); });
    });
}

std::int32_t sysmaint_topic_consume_all(sysmaint_topic* topic, std::uint32_t timeout)
{
    return withOpen(__func__, topic, [&](MessageTopic& object) { object.consumeAll(timeout); });
}

std::int32_t sysmaint_topic_stop_consumer(sysmaint_topic* topic)
{
    return withOpen(__func__, topic, [](MessageTopic& object) { object.stopWork(); });
}
