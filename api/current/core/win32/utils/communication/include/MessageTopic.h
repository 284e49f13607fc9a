#pragma once

#include "core/win32/utils/communication/include/SubscriberSet.h"
#include "core/win32/utils/objectmanager/include/ObjectTable.h"
#include "core/win32/utils/objectmanager/include/ProcessEnd.h"
#include "core/win32/utils/objectmanager/include/SmartHandle.h"
#include "core/win32/utils/threadpool/include/ThreadPool.h"
#include "win32/communication/include/ConsumerQueue.h"
#include "win32/communication/include/MessageFilter.h"
#include "win32/threadpool/include/ITHPIdentifier.h"

inline constexpr char kMessageTopicHeader[] = "core\\win32\\utils\\communication\\include\\MessageTopic.h";

/// A named channel: filters and handlers, and a queue of posted messages that a consumer on the topic's own
/// thread pool delivers one after the other. The topic is itself the work that the pool runs.
///
/// The operations raise their failures. The exported functions document each operation.
class MessageTopic final : public ITHPWorkItem
{
public:
    static constexpr const char* kClassName = "MessageTopic";
    /// Instead of a value: the message travels without one.
    static constexpr std::uint32_t kNoValue = 0xFFFFFFFF;

    /// Raises 87 for a null name and 8 when memory runs out.
    explicit MessageTopic(const wchar_t* name);
    MessageTopic(const MessageTopic&) = delete;
    MessageTopic& operator=(const MessageTopic&) = delete;

    /// A subscriber with an owner is held until it is unsubscribed and no delivery calls it.
    template <class Subscriber>
    void subscribe(Subscriber& subscriber, const SubscriberHold& owner = nullptr)
    {
        setOf(subscriber).add(subscriber, owner);
    }
    template <class Subscriber>
    void unsubscribe(Subscriber& subscriber, std::uint32_t timeout)
    {
        const char* place = PLACE(kMessageTopicHeader, "MessageTopic::unsubscribe", __LINE__);
        auto& set = setOf(subscriber);
        if (!set.contains(subscriber))
            throw Exception(place, ERROR_NOT_FOUND);
        const Deadline deadline(waitLimit(timeout));
        stopAndWait(deadline);
        // Two threads that unsubscribe each other's handler from inside must not wait for each other.
        const long code = set.remove(subscriber, !isDelivering(), deadline);
        requireSuccess(place, code);
    }

    /// Delivers at once, on the calling thread.
    template <class MessageType>
    void sendMessage(const MessageType& message, MessageType& reply, std::uint32_t value, void* context)
    {
        const auto call = [&](IMessageHandler& subscriber) {
            if (value == kNoValue)
                subscriber.onMessage(message, reply, context);
            else
                subscriber.onMessage(message, reply, value, context);
        };
        m_filters.deliver(call);
        m_handlers.deliver(call);
    }

    /// Queues a copy of the message.
    template <class MessageType>
    void postMessage(const MessageType& message, std::uint32_t value)
    {
        postShared(makeShared<MessageW, MessageType>(message), value);
    }
    /// Queues a message that nobody changes any more.
    void postShared(const SharedPtr<MessageW>& message, std::uint32_t value) { post({value, message}); }

    void consumeAll(std::uint32_t timeout);
    void stopWork();

    [[nodiscard]] std::uint32_t getIDType() const override { return ITHPIdentifier::kNumber; }
    [[nodiscard]] const wchar_t* getName() const override { return m_name.c_str(); }
    [[nodiscard]] std::uint32_t getID() const override { return kConsumerWork; }
    [[nodiscard]] void* getUserData() const override { return nullptr; }
    /// The consumer, run by the pool.
    long operator()(IThreadContext& context, void* cancelEvent) override;

    /// Ends the topic with its last handle, while calls may still be in progress: posting is refused, and
    /// what is queued is dropped. Stops the consumer and waits for it, unless it is the calling thread or
    /// waits for that; at most 5 seconds in the loader lock. Returns 0, or the system's code if the consumer
    /// could not be told to stop for 5 seconds: then it may still be running.
    long close() noexcept;
    /// Destroys the topic when its last reference goes. If the consumer is still running, the consumer
    /// destroys it at its end.
    void dismiss() noexcept;

private:
    /// Value and message.
    using Posted = std::pair<std::uint32_t, SharedPtr<MessageW>>;

    static constexpr unsigned long kConsumerCategory = 0;
    static constexpr unsigned long kConsumerWork = 0;

    class Consuming;

    ~MessageTopic() override = default;

    SubscriberSet<IMessageHandler>& setOf(IMessageHandler&) noexcept { return m_handlers; }
    SubscriberSet<MessageFilter>& setOf(MessageFilter&) noexcept { return m_filters; }

    void post(const Posted& posted);
    void consumeItem(const Posted& posted);
    [[nodiscard]] bool isClosed() noexcept
    {
        const ReadLocker locker(m_workLock);
        return m_closed;
    }
    [[nodiscard]] bool isConsumer() const noexcept { return m_consumerThread == GetCurrentThreadId(); }
    [[nodiscard]] bool isDelivering() noexcept
    {
        return m_handlers.isDelivering() || m_filters.isDelivering();
    }
    // These are called with the work lock held.
    void requireOpen() const;
    [[nodiscard]] bool isWorking();
    [[nodiscard]] bool isStopping() noexcept;
    void stopConsumer();
    [[nodiscard]] bool isRunning(void* instance) noexcept;
    // These return the pool's code.
    long askPool(void* instance, bool& running) noexcept;
    long cancelConsumer(void* instance) noexcept;
    long waitForInstance(void* instance, DWORD timeout) noexcept;
    void dropEnded() noexcept;
    // These are called without it.
    void requirePool();
    void beginWork();
    void beginOrGiveUp();
    void stopAndWait(const Deadline& deadline);
    bool waitForConsumer(const Deadline& deadline, const Deadline& telling, long& code) noexcept;
    void abandonConsumer(void* instance, HANDLE cancelEvent) noexcept;
    bool endWork(void* instance, bool restart) noexcept;

    HeapStringW m_name;
    SubscriberSet<IMessageHandler> m_handlers;
    SubscriberSet<MessageFilter> m_filters;
    ConsumerQueue<Posted> m_queue;

    // Held while a consumer is being queued, by the one thread that queues it; only that consumer waits for
    // it.
    ReadWriteLock m_beginLock;
    // Guards the members below. Held while the pool is queried, never while a subscriber is called or a
    // consumer begins, which may need the loader.
    ReadWriteLock m_workLock;
    PoolOpening m_pool;                     // once work has begun it stays until the topic is destroyed
    std::vector<void*> m_instances;         // consumer work that may not have ended, the latest last
    bool m_beginning = false;               // a thread is about to queue the next
    bool m_accepting = false;               // the latest consumer will still check the queue
    bool m_closed = false;                  // the last handle is gone
    bool m_orphaned = false;                // the running consumer must destroy the topic
    std::atomic<DWORD> m_consumerThread{0}; // the thread that the consumer runs on, or 0
};

/// Ends a topic's life as described at MessageTopic::dismiss.
template <class Topic>
struct DismissTopic
{
    void operator()(Topic* topic) const noexcept { topic->dismiss(); }
};
using MessageTopicPtr = SharedPtr<MessageTopic, DismissTopic<MessageTopic>>;

/// The table of all topics.
extern ObjectTable<MessageTopicPtr> messageTopics;

/// Opens the topic with that name, or creates it. Returns its handle, or the invalid handle with the last
/// error 87 (null name) or 8, with the place text `place`.
[[nodiscard]] inline void* createTopic(const char* place, const wchar_t* name) noexcept
{
    // The frame turns it into 8. NOLINTBEGIN(bugprone-unhandled-exception-at-new)
    return boundary::createFrame(PLACE(kMessageTopicHeader, "MessageTopic::MessageTopic", 274), place,
                                 messageTopics(), name, [&] { return new MessageTopic(name); });
    // NOLINTEND(bugprone-unhandled-exception-at-new)
}

/// Closes one opening of a topic; the last one closes the topic. Does nothing at the end of the process.
/// Returns 0 for a handle that is not open, and with the last error set if the consumer could not be told to
/// stop.
inline int closeTopic(void* topic) noexcept
{
    if (isProcessEnding())
        return 1;
    return closeTelling(messageTopics(), topic, [](MessageTopic& object) { return object.close(); });
}

/// Runs a status operation on the topic behind `handle`, which is held meanwhile. `operation` takes the topic
/// by reference and returns nothing or a status. Returns 0; 6 or 487 for the handle; 1115 at the end of the
/// process, when its threads are gone, without calling `operation`; or the code that it returns or raises.
template <class Operation>
long withTopic(const char* place, void* handle, Operation&& operation) noexcept
{
    if (isProcessEnding())
        return ERROR_SHUTDOWN_IN_PROGRESS;
    return boundary::statusFrame(place, messageTopics(), handle, std::forward<Operation>(operation));
}

/// The same for an operation that calls handlers: if one ends the thread, the topic is released all the same.
template <class Operation>
long withCalledTopic(const char* place, void* handle, Operation&& operation) noexcept
{
    class Held final : public ThreadScope
    {
    public:
        explicit Held(MessageTopicPtr& topic) noexcept : m_topic(topic) {}

    private:
        void abandon() noexcept override { m_topic = MessageTopicPtr(); }

        MessageTopicPtr& m_topic;
    };

    if (isProcessEnding())
        return ERROR_SHUTDOWN_IN_PROGRESS;
    return boundary::statusFrame([&]() -> long {
        MessageTopicPtr topic;
        requireSuccess(place, messageTopics().get(handle, topic));
        const Held held(topic);
        operation(*topic);
        return ERROR_SUCCESS;
    });
}
