#pragma once

// What the tests of listeners and reporters share.

#include "core/win32/utils/listeners/api.h"
#include "support/Connections.h"
#include "support/Faults.h"
#include "support/Pools.h"

using ListenerHandle = SmartHandle<CloseMessageListener>;
using Reporter = std::unique_ptr<IMessageReporter>;

inline const std::string kBody = bytesOf(1U) + bytesOf(5U) + bytesOf(7U); // topic number 5, id 7

inline std::string request(std::uint32_t task, std::uint64_t number,
                           const std::string& frame = framed(0, kBody))
{
    return bytesOf(task) + bytesOf(0xFFFFFFFFU) + bytesOf(number) + frame;
}
inline std::string greeting(std::uint64_t client)
{
    return "smtopic1" + bytesOf(client);
}

/// Records what it is called with; doubles the ids of what is sent, or does something else.
struct Receipts : IMessageHandler
{
    template <class Message>
    void record(const std::string&, const Message& message, Message& reply, std::uint32_t value, void*)
    {
        {
            const std::lock_guard locker(lock);
            bodies.push_back(dumped(message));
            ids.push_back(message.getId());
            values.push_back(value);
        }
        reply = message;
        reply.setId(message.getId() * 2);
        if (act)
            act();
    }
    [[nodiscard]] std::size_t count()
    {
        const std::lock_guard locker(lock);
        return ids.size();
    }

    std::function<void()> act;
    std::mutex lock;
    std::vector<std::string> bodies;
    std::vector<std::uint32_t> ids, values;
};

using Codes = std::vector<std::uint32_t>;
using Receiver = TakesAll<Receipts>;

/// A listener that delivers to the topic "far", and a client's connection to it.
class Listeners : public testing::TestWithParam<bool>
{
protected:
    Listeners() { EXPECT_EQ(TopicSubscribe(m_far, m_receiver), ERROR_SUCCESS); }
    ~Listeners() override
    {
        dropReporter();
        m_listener.reset();
        TopicUnsubscribe(m_far, m_receiver, INFINITE);
    }
    void dropReporter()
    {
        if (m_reporter)
            TopicUnsubscribe(m_near, *m_reporter, INFINITE);
        m_reporter.reset();
    }
    void listen(const ListenerOptions& options = {})
    {
        if (!m_server.isValid())
            m_server = Connected::makeServer(m_isPipe);
        m_listener.reset(CreateMessageListener(L"far", m_server.get(), m_far, options));
        ASSERT_TRUE(m_listener.isValid()) << GetLastError();
        askPort();
    }
    void askPort() { EXPECT_TRUE(m_isPipe || ConnectionGetPort(m_server.get(), &m_port) == ERROR_SUCCESS); }
    [[nodiscard]] ConnectionHandle makeClient(const wchar_t* name) const
    {
        if (m_isPipe)
            return ConnectionHandle(
                CreatePipeConnection((std::wstring(L"sysmaint test\\") + name).c_str(), kClient));
        return ConnectionHandle(CreateSocketConnection(kClient, name, L"127.0.0.1", m_port, 0));
    }
    void report(const ReporterOptions& options)
    {
        dropReporter(); // it has the connection
        m_reporter.reset(DllGetMessageReporter(makeClient(L"reporter").get(), options));
        ASSERT_TRUE(m_reporter) << GetLastError();
        ASSERT_EQ(TopicSubscribe(m_near, *m_reporter), ERROR_SUCCESS);
    }
    /// Lets the reporter have a message without its topic.
    void queue(std::uint32_t id) const
    {
        MessageW none;
        m_reporter->onMessage(MessageW(L"", id), none, nullptr);
    }
    long sendOne(std::uint32_t id)
    {
        MessageW reply;
        const long code = TopicSendMessage(m_near, MessageW(L"near", id), reply, nullptr);
        EXPECT_TRUE(code != ERROR_SUCCESS || reply.getId() == 2 * id);
        return code;
    }
    void post(std::uint32_t first, std::uint32_t last)
    {
        for (std::uint32_t id = first; id <= last; ++id)
            ASSERT_EQ(TopicPostMessage(m_near, MessageW(L"near", id)), ERROR_SUCCESS);
        ASSERT_EQ(TopicConsumeAll(m_near, INFINITE), ERROR_SUCCESS);
    }
    [[nodiscard]] ListenerState getState() const
    {
        ListenerState state;
        EXPECT_EQ(ListenerGetState(m_listener.get(), &state), ERROR_SUCCESS);
        return state;
    }
    /// What a client that writes these bytes gets: the codes of its answers, and
    /// 1 if it is disconnected.
    Codes answersTo(const std::string& bytes, std::size_t most)
    {
        const ConnectionHandle client = makeClient(L"raw");
        EXPECT_EQ(ConnectionConnect(client.get(), 60000, nullptr), ERROR_SUCCESS);
        EXPECT_EQ(ConnectionWrite(client.get(), bytes.data(), bytes.size(), 60000, nullptr), ERROR_SUCCESS);
        Codes codes;
        std::uint32_t answer[2];
        while (codes.size() < most &&
               ConnectionReadAll(client.get(), answer, sizeof answer, 60000, nullptr) == ERROR_SUCCESS) {
            codes.push_back(answer[0]);
            AnyMessage reply;
            EXPECT_TRUE(answer[1] != 1 ||
                        ConnectionReceiveMessage(client.get(), reply, nullptr, 60000, nullptr) == 0);
        }
        if (codes.size() < most)
            codes.push_back(1);
        return codes;
    }

    const bool m_isPipe = GetParam();
    Receiver m_receiver;
    const TopicHandle m_far = CreateMessageTopic(L"far");
    const TopicHandle m_near = CreateMessageTopic(L"near");
    ConnectionHandle m_server;
    unsigned short m_port = 0;
    ListenerHandle m_listener;
    Reporter m_reporter;
};
