// The exported functions of message topics, and the serving of load and dump requests.

#include <string>

#include "core/win32/utils/communication/api.h"
#include "core/win32/utils/communication/include/MessageTopic.h"
#include "core/win32/utils/communication/include/ObjectRequestServer.h"
#include "exports/Frames.h"

using boundary::resultFrame;
using boundary::statusFrame;

namespace {
constexpr char kCommunicationApi[] = "core\\win32\\utils\\communication\\api.h";

/// The name of a topic known by a number.
std::wstring topicName(unsigned long number)
{
    return L"#" + std::to_wstring(number);
}

template <class Subscriber>
long subscribe(const TopicHandle& topic, Subscriber& subscriber) noexcept
{
    return withTopic(PLACE(kCommunicationApi, "TopicSubscribe", __LINE__), topic.get(),
                     [&](MessageTopic& object) { object.subscribe(subscriber); });
}

template <class Subscriber>
long unsubscribe(const TopicHandle& topic, Subscriber& subscriber, unsigned long timeout) noexcept
{
    return withTopic(PLACE(kCommunicationApi, "TopicUnsubscribe", __LINE__), topic.get(),
                     [&](MessageTopic& object) { object.unsubscribe(subscriber, timeout); });
}

template <class Type>
long send(const TopicHandle& topic, const Type& message, Type& reply, unsigned long value,
          void* context) noexcept
{
    return withCalledTopic(PLACE(kCommunicationApi, "TopicSendMessage", __LINE__), topic.get(),
                           [&](MessageTopic& object) { object.sendMessage(message, reply, value, context); });
}

template <class Type>
long post(const TopicHandle& topic, const Type& message, unsigned long value) noexcept
{
    return withTopic(PLACE(kCommunicationApi, "TopicPostMessage", __LINE__), topic.get(),
                     [&](MessageTopic& object) { object.postMessage(message, value); });
}
} // namespace

TopicHandle CreateMessageTopic(const wchar_t* name)
{
    return TopicHandle(createTopic(PLACE(kCommunicationApi, "CreateMessageTopic", __LINE__), name));
}

TopicHandle CreateMessageTopic(unsigned long number)
{
    return resultFrame<TopicHandle>(TopicHandle(INVALID_HANDLE_VALUE),
                                    [&] { return CreateMessageTopic(topicName(number).c_str()); });
}

TopicHandle OpenMessageTopic(const wchar_t* name)
{
    return TopicHandle(messageTopics().lookup(name));
}

TopicHandle OpenMessageTopic(unsigned long number)
{
    return resultFrame<TopicHandle>(TopicHandle(INVALID_HANDLE_VALUE),
                                    [&] { return OpenMessageTopic(topicName(number).c_str()); });
}

int CloseMessageTopic(void* topic)
{
    return closeTopic(topic);
}

long TopicGetNameByHandle(const TopicHandle& topic, const wchar_t** name)
{
    return statusFrame([&]() -> long {
        requireSuccess(PLACE(kCommunicationApi, "TopicGetNameByHandle", 711),
                       messageTopics().getName(topic.get(), name));
        return ERROR_SUCCESS;
    });
}

long TopicSubscribe(const TopicHandle& topic, IMessageHandler& handler)
{
    return subscribe(topic, handler);
}

long TopicSubscribe(const TopicHandle& topic, MessageFilter& filter)
{
    return subscribe(topic, filter);
}

long TopicUnsubscribe(const TopicHandle& topic, IMessageHandler& handler, unsigned long timeout)
{
    return unsubscribe(topic, handler, timeout);
}

long TopicUnsubscribe(const TopicHandle& topic, MessageFilter& filter, unsigned long timeout)
{
    return unsubscribe(topic, filter, timeout);
}

long TopicSendMessage(const TopicHandle& topic, const MessageW& message, MessageW& reply, void* context)
{
    return send(topic, message, reply, MessageTopic::kNoValue, context);
}

long TopicSendMessage(const TopicHandle& topic, const MessageW& message, MessageW& reply, unsigned long value,
                      void* context)
{
    return send(topic, message, reply, value, context);
}

long TopicSendMessage(const TopicHandle& topic, const DataMessage& message, DataMessage& reply, void* context)
{
    return send(topic, message, reply, MessageTopic::kNoValue, context);
}

long TopicSendMessage(const TopicHandle& topic, const DataMessage& message, DataMessage& reply,
                      unsigned long value, void* context)
{
    return send(topic, message, reply, value, context);
}

long TopicSendMessage(const TopicHandle& topic, const ArrayMessage& message, ArrayMessage& reply,
                      void* context)
{
    return send(topic, message, reply, MessageTopic::kNoValue, context);
}

long TopicSendMessage(const TopicHandle& topic, const ArrayMessage& message, ArrayMessage& reply,
                      unsigned long value, void* context)
{
    return send(topic, message, reply, value, context);
}

long TopicSendMessage(const TopicHandle& topic, const HashMessageW& message, HashMessageW& reply,
                      void* context)
{
    return send(topic, message, reply, MessageTopic::kNoValue, context);
}

long TopicSendMessage(const TopicHandle& topic, const HashMessageW& message, HashMessageW& reply,
                      unsigned long value, void* context)
{
    return send(topic, message, reply, value, context);
}

long TopicPostMessage(const TopicHandle& topic, const MessageW& message)
{
    return post(topic, message, MessageTopic::kNoValue);
}

long TopicPostMessage(const TopicHandle& topic, const MessageW& message, unsigned long value)
{
    return post(topic, message, value);
}

long TopicPostMessage(const TopicHandle& topic, const DataMessage& message)
{
    return post(topic, message, MessageTopic::kNoValue);
}

long TopicPostMessage(const TopicHandle& topic, const DataMessage& message, unsigned long value)
{
    return post(topic, message, value);
}

long TopicPostMessage(const TopicHandle& topic, const ArrayMessage& message)
{
    return post(topic, message, MessageTopic::kNoValue);
}

long TopicPostMessage(const TopicHandle& topic, const ArrayMessage& message, unsigned long value)
{
    return post(topic, message, value);
}

long TopicPostMessage(const TopicHandle& topic, const HashMessageW& message)
{
    return post(topic, message, MessageTopic::kNoValue);
}

long TopicPostMessage(const TopicHandle& topic, const HashMessageW& message, unsigned long value)
{
    return post(topic, message, value);
}

long TopicConsumeAll(const TopicHandle& topic, unsigned long timeout)
{
    return withTopic(PLACE(kCommunicationApi, "TopicConsumeAll", __LINE__), topic.get(),
                     [&](MessageTopic& object) { object.consumeAll(timeout); });
}

long TopicStopConsumer(const TopicHandle& topic)
{
    return withTopic(PLACE(kCommunicationApi, "TopicStopConsumer", __LINE__), topic.get(),
                     [](MessageTopic& object) { object.stopWork(); });
}

long ServeObjectRequests(const wchar_t* className, int serve)
{
    return statusFrame([&] { return ObjectRequestServer::getInstance().serve(className, serve != 0); });
}
