#include "core/win32/utils/communication/include/MessageTopic.h"

#include <algorithm>
#include <optional>

#include "core/win32/utils/threadpool/include/THPWorkItem.h"
#include "core/win32/utils/threadpool/include/WaitingThread.h"

using primitives::placedStep;

namespace {
const wchar_t* checkedName(const wchar_t* name)
{
    if (name == nullptr)
        throw Exception(PLACE(kMessageTopicHeader, "MessageTopic::MessageTopic", 274),
                        ERROR_INVALID_PARAMETER);
    return name;
}
} // namespace

// Topics hold pools, and call handlers that may hold anything.
ObjectTable<MessageTopicPtr> messageTopics(10);

MessageTopic::MessageTopic(const wchar_t* name) : m_name(checkedName(name)) {}

void MessageTopic::post(const Posted& posted)
{
    std::uint64_t number = 0;
    bool begins = false;
    {
        const WriteLocker locker(m_workLock);
        requireOpen();
        placedStep(PLACE(kMessageTopicHeader, "MessageTopic::postMessage", 712),
                   [&] { number = m_queue.push(posted); });
        try {
            placedStep(PLACE(kMessageTopicHeader, "MessageTopic::postMessage", 718),
                       [&] { begins = !m_beginning && !isWorking(); });
        } catch (...) {                   // an Exception, or no memory for one
            if (m_queue.withdraw(number)) // otherwise it was delivered after all
                throw;
        }
        m_beginning = m_beginning || begins;
    }
    if (!begins)
        return;
    try {
        placedStep(PLACE(kMessageTopicHeader, "MessageTopic::postMessage", 718), [&] { beginWork(); });
    } catch (...) {
        const bool withdrawn = m_queue.withdraw(number);
        beginOrGiveUp();
        if (withdrawn)
            throw;
    }
}

void MessageTopic::requireOpen() const
{
    if (m_closed)
        throw Exception(PLACE(kMessageTopicHeader, "MessageTopic::postMessage", __LINE__),
                        ERROR_INVALID_ADDRESS);
}

// One thread for the category: a consumer that is being stopped and the next one never deliver at the same
// time.
void MessageTopic::requirePool()
{
    if (m_pool.isValid())
        return;
    const char* place = PLACE(kMessageTopicHeader, "MessageTopic::beginWork", 187);
    PoolOpening pool(place, (m_name + L"Topic").c_str());
    requireSuccess(place,
                   pool.requireCategory(THPIdentifier(kConsumerCategory), THPCategoryOptions(1, 0, 0, 0)));
    const WriteLocker locker(m_workLock);
    m_pool = std::move(pool);
}

// Called by the one thread that has set m_beginning. The consumer first waits for m_beginLock, and then finds
// itself among the instances.
void MessageTopic::beginWork()
{
    const WriteLocker beginning(m_beginLock);
    const char* place = PLACE(kMessageTopicHeader, "MessageTopic::beginWork", 194);
    void* instance = nullptr;
    const long code = boundary::statusOf([&]() -> long {
        requirePool();
        {
            const WriteLocker locker(m_workLock);
            dropEnded();
            m_instances.reserve(m_instances.size() + 1);
        }
        return m_pool.with([&](ThreadPool& pool) {
            return pool.queueWork({kConsumerCategory, kConsumerWork}, *this, HashMessageW(),
                                  ITHPWorkItem::ScheduleOption::AtEnd, &instance);
        });
    });
    const WriteLocker locker(m_workLock);
    m_beginning = false;
    requireSuccess(place, code);
    m_instances.push_back(instance); // has room: no other thread adds to it
    m_accepting = !m_closed;
    if (m_closed)
        cancelConsumer(instance);
}

// Others may have posted, and relied on it, while a consumer could not begin. If none can begin now either,
// the next post delivers their messages.
void MessageTopic::beginOrGiveUp()
{
    {
        const WriteLocker locker(m_workLock);
        if (m_closed || m_beginning || m_accepting || !m_queue.hasItems())
            return;
        m_beginning = true;
    }
    const long code = boundary::statusOf([&]() -> long {
        beginWork();
        return ERROR_SUCCESS;
    });
    if (code != ERROR_SUCCESS)
        m_queue.releaseWaiters();
}

void MessageTopic::dropEnded() noexcept
{
    std::erase_if(m_instances, [&](void* instance) { return !isRunning(instance); });
}

bool MessageTopic::isWorking()
{
    if (!m_accepting)
        return false;
    if (m_consumerThread != 0)
        return true; // no need to query the pool
    bool running = false;
    requireSuccess(PLACE(kMessageTopicHeader, "MessageTopic::isWorking", 222),
                   askPool(m_instances.back(), running));
    return running;
}

bool MessageTopic::isRunning(void* instance) noexcept
{
    bool running = false;
    return askPool(instance, running) != ERROR_SUCCESS || running;
}

long MessageTopic::askPool(void* instance, bool& running) noexcept
{
    return m_pool.with([&](ThreadPool& pool) {
        running = pool.isRunning({kConsumerCategory, kConsumerWork, instance});
        return ERROR_SUCCESS;
    });
}

long MessageTopic::cancelConsumer(void* instance) noexcept
{
    return m_pool.with([&](ThreadPool& pool) {
        return pool.cancelWork({kConsumerCategory, kConsumerWork, instance},
                               IThreadPool::OperationType::CancelAndReturn);
    });
}

long MessageTopic::waitForInstance(void* instance, DWORD timeout) noexcept
{
    return m_pool.with([&](ThreadPool& pool) {
        return pool.wait({kConsumerCategory, kConsumerWork, instance}, timeout, nullptr);
    });
}

void MessageTopic::stopConsumer()
{
    if (!isWorking())
        return;
    // Only this topic's own work: the pool may also serve an older topic with the same name that is still
    // ending.
    requireSuccess(PLACE(kMessageTopicHeader, "MessageTopic::stopWork", 248),
                   cancelConsumer(m_instances.back()));
    m_accepting = false;
    m_queue.releaseWaiters();
}

void MessageTopic::stopWork()
{
    const WriteLocker locker(m_workLock);
    stopConsumer();
}

void MessageTopic::stopAndWait(const Deadline& deadline)
{
    std::vector<void*> instances;
    {
        const WriteLocker locker(m_workLock);
        stopConsumer();
        if (!isConsumer())
            instances = m_instances;
    }
    for (void* instance : instances) {
        const long code = waitForInstance(instance, deadline.getLeft());
        if (code != ERROR_SUCCESS && code != ERROR_CANCELLED && isRunning(instance))
            requireSuccess(PLACE(kMessageTopicHeader, "MessageTopic::unsubscribe", __LINE__), code);
    }
}

/// The consumer at work. A handler may end the thread in the middle of it.
class MessageTopic::Consuming final : public ThreadScope
{
public:
    Consuming(MessageTopic& topic, void* instance, HANDLE cancelEvent) noexcept
        : m_topic(topic), m_instance(instance), m_cancelEvent(cancelEvent)
    {
    }

private:
    void abandon() noexcept override { m_topic.abandonConsumer(m_instance, m_cancelEvent); }

    MessageTopic& m_topic;
    void* m_instance;
    HANDLE m_cancelEvent;
};

// A stopped consumer may still be delivering a message.
bool MessageTopic::isStopping() noexcept
{
    return std::any_of(m_instances.begin(), m_instances.end(),
                       [&](void* instance) { return isRunning(instance); });
}

void MessageTopic::consumeAll(std::uint32_t timeout)
{
    const char* place = PLACE(kMessageTopicHeader, "MessageTopic::consumeAll", 879);
    if (isConsumer())
        throw Exception(place, ERROR_POSSIBLE_DEADLOCK);
    std::uint64_t released = 0;
    {
        const WriteLocker locker(m_workLock);
        const bool working = m_beginning || isWorking();
        if (!working && !isStopping())
            return;
        if (!working && m_queue.hasItems())
            throw Exception(place, ERROR_CANCELLED);
        released = m_queue.getReleased();
    }
    std::optional<WaitingThread> waiting;
    if (WaitingThread::isNeeded(waitLimit(timeout)) && waiting.emplace(m_consumerThread).closesCircle())
        throw Exception(place, ERROR_POSSIBLE_DEADLOCK);
    requireSuccess(place, m_queue.waitEmptied(waitLimit(timeout), released));
}

void MessageTopic::consumeItem(const Posted& posted)
{
    const auto deliver = [&]<class MessageType>(const MessageType& message) {
        MessageType reply;
        sendMessage(message, reply, posted.first, nullptr);
    };
    const MessageW& message = *posted.second;
    if (const auto* hash = dynamic_cast<const HashMessageW*>(&message))
        deliver(*hash);
    else if (const auto* data = dynamic_cast<const DataMessage*>(&message))
        deliver(*data);
    else if (const auto* array = dynamic_cast<const ArrayMessage*>(&message))
        deliver(*array);
    else
        deliver(message);
}

long MessageTopic::operator()(IThreadContext& context, void* cancelEvent)
{
    if (context.getIDType() != ITHPIdentifier::kNumber || context.getID() != kConsumerWork)
        throw Exception(PLACE(kMessageTopicHeader, "MessageTopic::operator()", __LINE__),
                        ERROR_INVALID_PARAMETER);
    const InsideLibrary inside;
    void* instance = static_cast<THPWorkItem&>(context.getWorkItem()).getInstance();
    {
        const ReadLocker begun(m_beginLock);
        const WriteLocker locker(m_workLock);
        m_consumerThread = GetCurrentThreadId();
    }
    const long code = boundary::statusOf([&] {
        const Consuming consuming(*this, instance, cancelEvent);
        return m_queue.consume(cancelEvent, [&](const Posted& posted) {
            consumeItem(posted);
            if (isClosed())
                raiseCode(ERROR_CANCELLED); // the event may have failed
        });
    });
    const bool cancelled = isSignalled(cancelEvent);
    if (endWork(instance, !cancelled))
        delete this;
    if (!cancelled)
        requireSuccess(PLACE(kMessageTopicHeader, "MessageTopic::consumeItem", __LINE__), code);
    return ERROR_CANCELLED;
}

// A handler has ended the consumer's thread: that ends the delivery and the consumer, like an exception.
void MessageTopic::abandonConsumer(void* instance, HANDLE cancelEvent) noexcept
{
    m_queue.abandonItem();
    if (endWork(instance, !isSignalled(cancelEvent)))
        delete this;
}

// Returns whether the topic must be destroyed; if not, the calling thread must not touch it any more. If a
// handler's exception ended this consumer, a new one gets what is still queued.
bool MessageTopic::endWork(void* instance, bool restart) noexcept
{
    bool latest = false;
    {
        const WriteLocker locker(m_workLock);
        m_consumerThread = 0;
        latest = !m_instances.empty() && m_instances.back() == instance;
        restart = restart && latest && m_accepting && !m_closed;
        m_accepting = m_accepting && !latest;
    }
    if (restart)
        beginOrGiveUp();
    else if (latest)
        m_queue.releaseWaiters(); // the next post begins again
    const WriteLocker locker(m_workLock);
    std::erase(m_instances, instance);
    if (m_orphaned)
        dropEnded();
    return m_orphaned && m_instances.empty();
}

long MessageTopic::close() noexcept
{
    if (isProcessEnding())
        return ERROR_SUCCESS;
    {
        const WriteLocker locker(m_workLock);
        m_closed = true;
        m_accepting = false;
        m_queue.releaseWaiters();
    }
    const Deadline deadline(waitLimit(INFINITE));
    const Deadline telling(ThreadPool::kTelling);
    long code = ERROR_SUCCESS;
    while (waitForConsumer(deadline, telling, code)) {
    }
    return code;
}

// Returns whether there is still something to wait for. `code` receives why a consumer could not be told to
// stop.
bool MessageTopic::waitForConsumer(const Deadline& deadline, const Deadline& telling, long& code) noexcept
{
    constexpr DWORD kLook = 1000; // milliseconds between checks whom the consumer is waiting for
    void* instance = nullptr;
    DWORD thread = 0;
    {
        const WriteLocker locker(m_workLock);
        code = ERROR_SUCCESS;
        dropEnded();
        if (m_instances.empty())
            return false;
        for (void* running : m_instances) {
            if (const long failure = cancelConsumer(running); failure != ERROR_SUCCESS)
                code = failure;
        }
        instance = m_instances.front();
        thread = m_consumerThread;
    }
    const WaitingThread waiting(thread);
    if (deadline.getLeft() == 0 || (code != ERROR_SUCCESS && telling.getLeft() == 0) ||
        (thread != 0 && waiting.closesCircle()))
        return false;
    const long waited = waitForInstance(instance, std::min(deadline.getLeft(), kLook));
    if (waited != ERROR_SUCCESS && waited != ERROR_CANCELLED && waited != WAIT_TIMEOUT)
        SwitchToThread(); // a wait that fails says nothing about the consumer
    return true;
}

void MessageTopic::dismiss() noexcept
{
    if (isProcessEnding())
        return;
    if (!isClosed()) // otherwise it has waited already
        close();
    {
        const WriteLocker locker(m_workLock);
        dropEnded();
        m_orphaned = !m_instances.empty();
        if (m_orphaned)
            return;
    }
    delete this;
}
