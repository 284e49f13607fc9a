#include <windows.h>

#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "Bench.h"
#include "Callers.h"
#include "core/win32/utils/communication/api.h"

namespace {
struct Subscriber : IMessageHandler
{
    void onMessage(const MessageW& message, MessageW&, void*) override
    {
        ++count;
        consume(message.getId());
    }
    long count = 0;
};

/// The system's lock and condition variable under the standard's names: Visual Studio implements the
/// standard's with these, while MinGW's cost kernel calls.
struct SystemMutex
{
    void lock() { AcquireSRWLockExclusive(&srw); }
    void unlock() { ReleaseSRWLockExclusive(&srw); }
    SRWLOCK srw = SRWLOCK_INIT;
};
struct SystemCondition
{
    void wait(std::unique_lock<SystemMutex>& lock)
    {
        SleepConditionVariableSRW(&variable, &lock.mutex()->srw, INFINITE, 0);
    }
    void notify_one() { WakeConditionVariable(&variable); }
    CONDITION_VARIABLE variable = CONDITION_VARIABLE_INIT;
};

/// What somebody would write who needs a queue and one thread that delivers its items.
template <class Mutex, class Condition>
class HandMadeQueue
{
public:
    explicit HandMadeQueue(Subscriber& subscriber)
        : m_subscriber(subscriber), m_delivery([this] { deliver(); })
    {
    }
    HandMadeQueue(const HandMadeQueue&) = delete;
    HandMadeQueue& operator=(const HandMadeQueue&) = delete;
    /// Ends when everything is delivered.
    ~HandMadeQueue()
    {
        {
            const std::lock_guard lock(m_mutex);
            m_ended = true;
        }
        m_posted.notify_one();
        m_delivery.join();
    }

    void post(const MessageW& message)
    {
        {
            const std::lock_guard lock(m_mutex);
            m_queue.push_back(message);
        }
        m_posted.notify_one();
    }

private:
    void deliver()
    {
        std::unique_lock lock(m_mutex);
        for (;;) {
            while (!m_ended && m_queue.empty())
                m_posted.wait(lock);
            if (m_queue.empty())
                return;
            const MessageW message = m_queue.front();
            m_queue.pop_front();
            lock.unlock();
            MessageW reply;
            static_cast<IMessageHandler&>(m_subscriber).onMessage(message, reply, nullptr);
            lock.lock();
        }
    }

    Subscriber& m_subscriber;
    Mutex m_mutex;
    Condition m_posted;
    std::deque<MessageW> m_queue;
    bool m_ended = false;
    std::thread m_delivery;
};

/// Both sides copy the same message into the queue, begin with the delivering thread and end when everything
/// is delivered. The peer also copies it out again.
template <class Queue>
BenchRow postRow(const std::shared_ptr<Callers>& callers, int posters, long each, const char* peerName)
{
    const long count = posters * each;
    const auto message = std::make_shared<MessageW>(L"lookups", 7U);
    BenchRow row{"post and deliver on a topic, " + counted(posters, "poster"),
                 peerName,
                 0,
                 static_cast<double>(count),
                 [=] {
                     Subscriber subscriber;
                     {
                         const TopicHandle topic = CreateMessageTopic(L"lookups");
                         require(TopicSubscribe(topic, subscriber) == ERROR_SUCCESS, "cannot subscribe");
                         callers->run([&] {
                             for (long i = 0; i < each; ++i)
                                 require(TopicPostMessage(topic, *message) == ERROR_SUCCESS, "a post failed");
                         });
                         require(TopicConsumeAll(topic, INFINITE) == ERROR_SUCCESS, "delivery failed");
                     }
                     require(subscriber.count == count, "not every message was delivered");
                 },
                 [=] {
                     Subscriber subscriber;
                     {
                         Queue queue(subscriber);
                         callers->run([&] {
                             for (long i = 0; i < each; ++i)
                                 queue.post(*message);
                         });
                     }
                     require(subscriber.count == count, "the queue lost a message");
                 }};
    row.peerCounted = std::is_same_v<Queue, HandMadeQueue<std::mutex, std::condition_variable>>;
    return row;
}
} // namespace

BenchRows topicRows(BenchScale scale)
{
    BenchRows rows;
    for (const int posters : {1, 8}) {
        const auto callers = std::make_shared<Callers>(posters);
        const long each = scale(20000 / posters);
        rows.timed.push_back(postRow<HandMadeQueue<SystemMutex, SystemCondition>>(
            callers, posters, each, "queue, SRW lock, condition variable"));
        rows.timed.push_back(postRow<HandMadeQueue<std::mutex, std::condition_variable>>(
            callers, posters, each, "queue, std::mutex, condition variable"));
    }
    return rows;
}
