#include <windows.h>

#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "Bench.h"
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

struct PeerMessage
{
    std::wstring topic;
    std::uint32_t id;
};

/// What somebody writes who needs a queue with one consumer.
class PeerQueue
{
public:
    explicit PeerQueue(long& delivered) : m_delivered(delivered), m_consumer([this] { run(); }) {}
    PeerQueue(const PeerQueue&) = delete;
    PeerQueue& operator=(const PeerQueue&) = delete;
    /// Ends when everything is delivered.
    ~PeerQueue()
    {
        {
            const std::lock_guard lock(m_mutex);
            m_ended = true;
        }
        m_posted.notify_one();
        m_consumer.join();
    }
    void post(PeerMessage message)
    {
        {
            const std::lock_guard lock(m_mutex);
            m_queue.push_back(std::move(message));
        }
        m_posted.notify_one();
    }

private:
    void run()
    {
        std::unique_lock lock(m_mutex);
        for (;;) {
            m_posted.wait(lock, [this] { return m_ended || !m_queue.empty(); });
            if (m_queue.empty())
                return;
            const PeerMessage message = std::move(m_queue.front());
            m_queue.pop_front();
            lock.unlock();
            ++m_delivered;
            consume(message.id);
            lock.lock();
        }
    }
    long& m_delivered;
    std::mutex m_mutex;
    std::condition_variable m_posted;
    std::deque<PeerMessage> m_queue;
    bool m_ended = false;
    std::thread m_consumer;
};

BenchRow postRow(int posters, long each)
{
    const long count = posters * each;
    return {"post and deliver on a topic, " + std::to_string(posters) +
                (posters == 1 ? " poster" : " posters"),
            "a queue and condition variable by hand",
            0,
            static_cast<double>(count),
            [=] {
                Subscriber subscriber;
                {
                    const TopicHandle topic = CreateMessageTopic(L"bench");
                    TopicSubscribe(topic, subscriber);
                    const MessageW message(L"bench", 7);
                    onThreads(posters, [&] {
                        for (long i = 0; i < each; ++i)
                            require(TopicPostMessage(topic, message) == ERROR_SUCCESS, "a post failed");
                    });
                    require(TopicConsumeAll(topic, INFINITE) == ERROR_SUCCESS, "delivery failed");
                }
                require(subscriber.count == count, "not every message was delivered");
            },
            [=] {
                long delivered = 0;
                {
                    PeerQueue queue(delivered);
                    onThreads(posters, [&] {
                        for (long i = 0; i < each; ++i)
                            queue.post({L"bench", 7});
                    });
                }
                require(delivered == count, "the queue lost a message");
            }};
}
} // namespace

std::vector<BenchRow> topicRows(BenchScale scale)
{
    return {postRow(1, scale(20000)), postRow(8, scale(2500))};
}
