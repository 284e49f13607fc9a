#include "core/win32/utils/communication/include/MessageTopic.h"

#include "core/win32/utils/objectmanager/include/ProcessEnd.h"

using primitives::placedStep;

namespace {
const wchar_t* checkedName(const wchar_t* name)
{
    if (name == nullptr)
        throw Exception(PLACE(MESSAGE_TOPIC_HEADER, "MessageTopic::MessageTopic", 274),
                        ERROR_INVALID_PARAMETER);
    return name;
}

void requireAt(const char* place, long code)
{
    if (code != ERROR_SUCCESS)
        throw Exception(place, static_cast<unsigned long>(code));
}
} // namespace

MessageTopic::MessageTopic(const wchar_t* name) : m_name(checkedName(name)) {}

void MessageTopic::post(const Posted& posted)
{
    const WriteLocker locker(m_workLock);
    std::uint64_t number = 0;
    placedStep(PLACE(MESSAGE_TOPIC_HEADER, "MessageTopic::postMessage", 712),
               [&] { number = m_queue.push(posted); });
    try {
        placedStep(PLACE(MESSAGE_TOPIC_HEADER, "MessageTopic::postMessage", 718), [&] {
            if (!isWorking())
                beginWork();
        });
    } catch (const Exception&) {
        if (m_queue.withdraw(number)) // else somebody has delivered it after all
            throw;
    }
}

// One thread for the category: a consumer that is being stopped and the next one never deliver at once.
void MessageTopic::beginWork()
{
    m_accepting = false;
    const char* poolPlace = PLACE(MESSAGE_TOPIC_HEADER, "MessageTopic::beginWork", 187);
    if (!m_pool.isValid()) {
        SmartHandle<THPCloseThreadpool> pool(THPCreateThreadPool((m_name + L"Topic").c_str()));
        if (!pool.isValid())
            throw Exception(poolPlace);
        const long code = THPCreateCategory(pool.get(), kConsumerCategory, THPCategoryOptions(1, 0, 0, 0));
        if (code != ERROR_ALREADY_EXISTS)
            requireAt(poolPlace, code);
        m_pool = std::move(pool);
    }
    std::erase_if(m_instances, [&](void* instance) { return !isRunning(instance); });
    m_instances.push_back(nullptr);
    const long code = THPQueueWork(m_pool.get(), kConsumerCategory, kConsumerWork, *this, HashMessageW(),
                                   ITHPWorkItem::ScheduleOption::AtEnd, &m_instances.back());
    if (code != ERROR_SUCCESS)
        m_instances.pop_back();
    requireAt(PLACE(MESSAGE_TOPIC_HEADER, "MessageTopic::beginWork", 194), code);
    m_accepting = true;
}

bool MessageTopic::isWorking()
{
    if (!m_accepting)
        return false;
    if (m_consumerThread != 0)
        return true; // no need to ask the pool
    int running = 0;
    requireAt(PLACE(MESSAGE_TOPIC_HEADER, "MessageTopic::isWorking", 222),
              THPIsRunning(m_pool.get(), kConsumerCategory, kConsumerWork, m_instances.back(), running));
    return running != 0;
}

bool MessageTopic::isRunning(void* instance) noexcept
{
    int running = 0;
    const long code = THPIsRunning(m_pool.get(), kConsumerCategory, kConsumerWork, instance, running);
    if (code == ERROR_INVALID_HANDLE || code == ERROR_INVALID_ADDRESS || code == ERROR_NOT_FOUND)
        return false; // somebody has closed the pool, and so has ended its work
    return code != ERROR_SUCCESS || running != 0;
}

void MessageTopic::stopConsumer()
{
    if (!isWorking())
        return;
    // This topic's own work only: the pool may also serve an older topic of the name that is still ending.
    requireAt(PLACE(MESSAGE_TOPIC_HEADER, "MessageTopic::stopWork", 248),
              THPCancelWork(m_pool.get(), kConsumerCategory, kConsumerWork, m_instances.back(),
                            IThreadPool::OperationType::CancelAndReturn));
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
        const long code =
            THPWait(m_pool.get(), instance, kConsumerCategory, kConsumerWork, deadline.getLeft(), nullptr);
        // Other codes than 0 may be those that the consumer ended with.
        if (code != ERROR_SUCCESS && isRunning(instance))
            requireAt(PLACE(MESSAGE_TOPIC_HEADER, "MessageTopic::unsubscribe", __LINE__), code);
    }
}

void MessageTopic::consumeAll(std::uint32_t timeout)
{
    const char* place = PLACE(MESSAGE_TOPIC_HEADER, "MessageTopic::consumeAll", 879);
    if (isConsumer())
        throw Exception(place, ERROR_POSSIBLE_DEADLOCK);
    std::uint64_t released = 0;
    {
        const WriteLocker locker(m_workLock);
        if (!isWorking())
            return;
        released = m_queue.getReleased();
    }
    requireAt(place, m_queue.waitEmptied(timeout, released));
}

void MessageTopic::consumeItem(const Posted& posted)
{
    const THPThread::OutsideLibrary outside;
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
        throw Exception(PLACE(MESSAGE_TOPIC_HEADER, "MessageTopic::operator()", __LINE__),
                        ERROR_INVALID_PARAMETER);
    const THPThread::InsideLibrary inside;
    void* instance = static_cast<THPWorkItem&>(context.getWorkItem()).getInstance();
    m_consumerThread = GetCurrentThreadId();
    const long code = boundary::statusFrame(
        [&] { return m_queue.consume(cancelEvent, [&](const Posted& posted) { consumeItem(posted); }); });
    const bool cancelled = isCancelled(cancelEvent);
    if (endWork(instance, !cancelled))
        delete this;
    if (!cancelled)
        requireAt(PLACE(MESSAGE_TOPIC_HEADER, "MessageTopic::consumeItem", __LINE__), code);
    return ERROR_CANCELLED;
}

// Returns whether the topic is to be destroyed. A handler that raised has ended this consumer; what is still
// queued goes to a new one.
bool MessageTopic::endWork(void* instance, bool restart) noexcept
{
    const WriteLocker locker(m_workLock);
    m_consumerThread = 0;
    if (m_orphaned)
        return true;
    if (m_instances.empty() || m_instances.back() != instance)
        return false; // the next consumer is there already, or the topic is being destroyed
    if (restart && m_accepting && m_queue.hasItems()) {
        m_accepting = false;
        boundary::statusFrame([&]() -> long {
            beginWork();
            return ERROR_SUCCESS;
        });
    } else {
        m_accepting = false;
    }
    if (!m_accepting)
        m_queue.releaseWaiters(); // the next post begins again
    return false;
}

void MessageTopic::dismiss() noexcept
{
    if (isProcessEnding())
        return;
    const THPThread::InsideLibrary inside;
    std::vector<void*> instances;
    {
        const WriteLocker locker(m_workLock);
        if (m_accepting) {
            m_accepting = false;
            THPCancelWork(m_pool.get(), kConsumerCategory, kConsumerWork, m_instances.back(),
                          IThreadPool::OperationType::CancelAndReturn);
        }
        if (isConsumer()) {
            m_orphaned = true;
            return;
        }
        instances.swap(m_instances);
    }
    for (void* instance : instances) {
        // A wait that fails says nothing about the consumer, which must not be left behind.
        while (isRunning(instance)) {
            THPCancelWork(m_pool.get(), kConsumerCategory, kConsumerWork, instance,
                          IThreadPool::OperationType::CancelAndReturn);
            THPWait(m_pool.get(), instance, kConsumerCategory, kConsumerWork, INFINITE, nullptr);
        }
    }
    delete this;
}
