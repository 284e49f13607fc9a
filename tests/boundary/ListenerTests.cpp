#include "boundary/ListenerTest.h"

#include <numeric>

INSTANTIATE_TEST_SUITE_P(Kinds, Listeners, testing::Bool());

TEST_P(Listeners, CarryMessagesOfAllClassesBothWays)
{
    listen();
    HashMessageW hash(L"topic", 3);
    ASSERT_EQ(hash.setParameter(L"number", 42U), ERROR_SUCCESS);
    ArrayMessage array(7U, 4);
    array.addElement(makeShared<SerializableW, ParameterW>(3, "abc"));
    DataMessage data(L"data", 2);
    const std::string much(std::size_t{1} << 20U, 'x');
    data.setData(much.data(), much.size());
    constexpr std::uint32_t kNone = 0xFFFFFFFF;
    for (const ReportMode mode : {ReportMode::Send, ReportMode::Queue}) {
        report({mode});
        std::vector<std::string> sent;
        const auto deliver = [&]<class Message>(const Message& message) {
            sent.push_back(dumped(message));
            Message reply;
            ASSERT_EQ(TopicSendMessage(m_near, message, reply, nullptr), ERROR_SUCCESS);
            ASSERT_EQ(reply.getId(), mode == ReportMode::Send ? message.getId() * 2 : 0);
            sent.push_back(sent.back());
            ASSERT_EQ(TopicPostMessage(m_near, message, 9), ERROR_SUCCESS);
            ASSERT_EQ(TopicConsumeAll(m_near, INFINITE), ERROR_SUCCESS);
        };
        deliver(MessageW(L"topic", 1));
        deliver(data);
        deliver(hash);
        deliver(array);
        ASSERT_EQ(m_reporter->flush(60000, nullptr), ERROR_SUCCESS);
        ASSERT_EQ(TopicConsumeAll(m_far, INFINITE), ERROR_SUCCESS);
        EXPECT_EQ(m_receiver.bodies, sent);
        EXPECT_EQ(m_receiver.values, (Codes{kNone, 9, kNone, 9, kNone, 9, kNone, 9}));
        m_receiver.bodies.clear(), m_receiver.values.clear();
        EXPECT_EQ(m_reporter->getState().delivered, 8U);
    }
    EXPECT_EQ(getState().sent + getState().posted, 16U);
    // Topics take no narrow ones: a client is told so, and goes on.
    EXPECT_EQ(answersTo(greeting(1) + request(1, 0, framed(4, kBody)) + request(1, 0), 2), (Codes{50, 0}));
}

// Through two listeners and the time without one: in order, each once, and what did not fit is counted. Only
// the first message in the queue wakes the reporter's thread.
TEST_P(Listeners, GetAllThatAReporterQueues)
{
    listen();
    report({ReportMode::Queue, 60000, 40ULL * 4096});
    m_listener.reset();
    int wakes = 0;
    {
        const Replaced<"WakeAllConditionVariable", decltype(&WakeAllConditionVariable)> counted(
            before([&, own = GetCurrentThreadId()](auto) { wakes += GetCurrentThreadId() == own ? 1 : 0; }));
        DataMessage large(L"", 1), none;
        large.setData(std::string(4096 - 200, 'x').data(), 4096 - 200);
        for (std::uint32_t id = 1; id <= 50; ++id) {
            large.setId(id);
            m_reporter->onMessage(large, none, nullptr);
        }
    }
    EXPECT_EQ(wakes, 1);
    ReporterState state = m_reporter->getState();
    EXPECT_GE(state.waiting, 40U);
    EXPECT_EQ(std::tuple(state.waiting + state.refused, state.refusal), std::tuple(50, 1816));
    EXPECT_EQ(m_reporter->flush(300, nullptr), WAIT_TIMEOUT);
    EXPECT_NE(m_reporter->getState().connection, ERROR_SUCCESS);
    const auto queued = static_cast<std::uint32_t>(state.waiting);

    if (!m_isPipe) // the same port once more
        m_server.reset(CreateSocketConnection(kServer, L"again", L"127.0.0.1", m_port, 0));
    std::atomic<bool> closed = false;
    m_receiver.act = [&] {
        if (m_receiver.count() == queued / 2 && !closed.exchange(true))
            CloseMessageListener(m_listener.release()); // from inside, with clients connected
    };
    listen();
    ASSERT_TRUE(comesTrue([&] { return closed.load(); }));
    ASSERT_EQ(TopicConsumeAll(m_far, INFINITE), ERROR_SUCCESS);
    listen();
    EXPECT_EQ(m_reporter->flush(60000, nullptr), ERROR_SUCCESS);
    ASSERT_EQ(TopicConsumeAll(m_far, INFINITE), ERROR_SUCCESS);
    EXPECT_LE(m_receiver.ids.size(), queued + 1U); // one answer may have been cut off
    m_receiver.ids.erase(std::unique(m_receiver.ids.begin(), m_receiver.ids.end()), m_receiver.ids.end());
    Codes all(queued);
    std::iota(all.begin(), all.end(), 1U);
    EXPECT_EQ(m_receiver.ids, all);
    state = m_reporter->getState();
    EXPECT_EQ(std::tuple(state.delivered, state.connection), std::tuple(queued, ERROR_SUCCESS));
}

TEST_P(Listeners, PostWhatIsRepeatedOnce)
{
    listen();
    for (int time = 0; time < 2; ++time)
        EXPECT_EQ(answersTo(greeting(1) + request(0, 1), 1), Codes{0});
    EXPECT_EQ(getState().posted, 1U);
    EXPECT_EQ(answersTo(greeting(1) + request(0, 1) + request(0, 2), 2), (Codes{0, 0}));
    EXPECT_EQ(answersTo(greeting(2) + request(0, 1), 1), Codes{0});
    EXPECT_EQ(getState().posted, 3U);
}

// Whatever one client does, the next one is served.
TEST_P(Listeners, LoseOnlyTheClientThatBreaksTheRules)
{
    listen({.timeout = 300});
    ASSERT_EQ(ConnectionSetMessageLimit(m_server.get(), 1000), ERROR_SUCCESS);
    const std::string hello = greeting(1);
    const std::string large = framed(0, std::string(2000, 'x'));
    const std::pair<std::string, Codes> rows[] = {
        {"smtopic2" + bytesOf(std::uint64_t{1}), {1}},
        {hello.substr(0, 15), {1}}, // and then nothing, as with all that is cut short
        {hello + request(0, 1).substr(0, 15), {1}},
        {hello + request(0, 1).substr(0, 20), {1}},
        {hello + request(0, 1, framed(0, kBody).substr(0, 10)), {1}},
        {hello + request(2, 1), {1}},
        {hello + request(1, 0, bytesOf(0xFFFFFFFFU) + bytesOf(0U) + kBody), {1}},
        {hello + request(1, 0, large) + request(1, 0), {ERROR_MESSAGE_EXCEEDS_MAX_SIZE, 0}},
        {hello + request(1, 0, framed(6, kBody)) + request(1, 0), {ERROR_INVALID_DATA, 0}},
        {hello + request(0, 1, framed(3, kBody)) + request(1, 0), {ERROR_INVALID_DATA, 0}},
        {hello + request(0, 1, framed(0, kBody + "x")) + request(1, 0), {ERROR_INVALID_DATA, 0}}};
    unsigned long long gone = 0;
    for (const auto& [bytes, codes] : rows) {
        SCOPED_TRACE(testing::PrintToString(bytes));
        EXPECT_EQ(answersTo(bytes, codes.size()), codes);
        EXPECT_EQ(answersTo(hello + request(1, 0), 1), Codes{0});
        gone += codes.front() == 1 ? 1 : 0;
    }
    EXPECT_TRUE(comesTrue([&] { return getState().disconnected == gone && getState().clients == 0; }));
    EXPECT_EQ(getState().posted, 0U);

    // One that is silent between its messages stays.
    report({ReportMode::Send});
    EXPECT_EQ(sendOne(1), ERROR_SUCCESS);
    Sleep(600);
    EXPECT_TRUE(getState().clients == 1 && sendOne(2) == ERROR_SUCCESS);
}

TEST_P(Listeners, RefuseWhatIsTooMuch)
{
    listen({.mostClients = 1, .mostWaiting = 3000});
    const TestEvent goOn;
    m_receiver.act = [&] { WaitForSingleObject(goOn.get(), 60000); };
    std::string bytes = greeting(1);
    for (std::uint64_t number = 1; number <= 5; ++number)
        bytes += request(0, number);
    const std::uint32_t busy = ERROR_NOT_ENOUGH_QUOTA;
    // The first is being delivered, the second waits.
    EXPECT_EQ(answersTo(bytes, 5), (Codes{0, 0, busy, busy, busy}));
    EXPECT_TRUE(comesTrue([&] { return getState().clients == 0; }));
    report({});
    post(1, 5);
    EXPECT_TRUE(comesTrue([&] { return m_reporter->getState().connection == ERROR_NOT_ENOUGH_QUOTA; }));
    const ConnectionHandle second = makeClient(L"second");
    char byte = 0;
    EXPECT_EQ(ConnectionConnect(second.get(), 60000, nullptr), ERROR_SUCCESS);
    EXPECT_NE(ConnectionReadAll(second.get(), &byte, 1, 60000, nullptr), ERROR_SUCCESS);
    EXPECT_TRUE(getState().disconnected == 1 && m_reporter->getState().delivered == 0);
    goOn.set();
    EXPECT_TRUE(m_reporter->flush(60000, nullptr) == 0 && m_reporter->getState().delivered == 5);
    ASSERT_EQ(TopicConsumeAll(m_far, INFINITE), ERROR_SUCCESS);
    EXPECT_EQ(m_receiver.count(), 7U);
}

// A process that listens and reports on one topic, with a peer that does the
// same.
TEST_P(Listeners, DoNotEcho)
{
    listen();
    report({});
    Receiver own;
    ASSERT_EQ(TopicSubscribe(m_near, own), ERROR_SUCCESS);
    const ConnectionHandle back(CreatePipeConnection(L"sysmaint back\\s", kServer));
    const ListenerHandle nearListener(CreateMessageListener(L"near", back.get(), m_near));
    const ConnectionHandle client(CreatePipeConnection(L"sysmaint back\\c", kClient));
    const Reporter farReporter(DllGetMessageReporter(client.get()));
    ASSERT_EQ(TopicSubscribe(m_far, *farReporter), ERROR_SUCCESS);
    post(1, 1);
    ASSERT_TRUE(comesTrue([&] { return m_receiver.count() == 1; }));
    ASSERT_EQ(TopicPostMessage(m_far, MessageW(L"far", 2)), ERROR_SUCCESS);
    ASSERT_TRUE(comesTrue([&] { return own.count() == 2 && m_receiver.count() == 2; }));
    for (IMessageReporter* each : {m_reporter.get(), farReporter.get()})
        EXPECT_TRUE(each->flush(60000, nullptr) == 0 && each->getState().delivered == 1);
    TopicUnsubscribe(m_far, *farReporter, INFINITE);
    TopicUnsubscribe(m_near, own, INFINITE);
}

TEST(ListenersAndReporters, RefuseWrongArguments)
{
    const TopicHandle topic = CreateMessageTopic(L"far");
    const ConnectionHandle server = Connected::makeServer(true);
    const ConnectionHandle client(CreatePipeConnection(L"sysmaint test\\client", kClient));
    const auto listener = [&](const wchar_t* name, void* connection, const TopicHandle& to,
                              const ListenerOptions& options = {}) {
        return refusalOf(ListenerHandle(CreateMessageListener(name, connection, to, options)).get());
    };
    EXPECT_EQ((Codes{listener(nullptr, server.get(), topic), listener(L"l", nullptr, topic),
                     listener(L"l", server.get(), TopicHandle()), listener(L"l", client.get(), topic)}),
              (Codes{87, 6, 6, 1}));
    for (const auto& options : {ListenerOptions{0}, ListenerOptions{1, 0}, ListenerOptions{1, 1, 0}})
        EXPECT_EQ(listener(L"l", server.get(), topic, options), 87U);
    for (int time = 0; time < 2; ++time) // closed before the second
        EXPECT_EQ(listener(L"l", server.get(), topic), 0U);
    void* const open = CreateMessageListener(L"l", server.get(), topic);
    EXPECT_EQ(listener(L"another", server.get(), topic), 170U);
    const wchar_t* name = nullptr;
    ListenerState state;
    {
        const ListenerHandle again(OpenMessageListener(L"l"));
        EXPECT_EQ(ListenerGetNameByHandle(again.get(), &name), 0);
        EXPECT_STREQ(name, L"l");
        EXPECT_EQ(ListenerGetNameByHandle(again.get(), nullptr), 87);
        EXPECT_EQ(ListenerGetState(again.get(), nullptr), 87);
        EXPECT_TRUE(CloseMessageListener(open));
    }
    EXPECT_FALSE(CloseMessageListener(open));
    for (void* handle : {static_cast<void*>(nullptr), open, INVALID_HANDLE_VALUE})
        EXPECT_TRUE(ListenerGetState(handle, &state) == 6 && ListenerGetNameByHandle(handle, &name) == 6);
    EXPECT_EQ(OpenMessageListener(L"l"), INVALID_HANDLE_VALUE);

    const auto reporter = [](const ConnectionHandle& connection, const ReporterOptions& options = {}) {
        return refusalOf(Reporter(DllGetMessageReporter(connection.get(), options)).get());
    };
    EXPECT_EQ((Codes{reporter(ConnectionHandle()), reporter(server), reporter(client)}), (Codes{6, 1, 0}));
    for (const auto& options :
         {ReporterOptions{static_cast<ReportMode>(2)}, ReporterOptions{ReportMode::Send, 0},
          ReporterOptions{ReportMode::Send, 1, 0}})
        EXPECT_EQ(reporter(client, options), 87U);
    const Reporter first(DllGetMessageReporter(client.get()));
    EXPECT_EQ(reporter(client), 170U);
    const Win32Handle mutex(CreateMutexW(nullptr, FALSE, nullptr)); // which a wait would take
    void* none = nullptr;
    for (const long code : {first->flush(0, mutex.get()), ConnectionConnect(client.get(), 0, mutex.get()),
                            ConnectionListen(server.get(), 0, mutex.get()),
                            ConnectionAccept(server.get(), 0, mutex.get(), &none)})
        EXPECT_EQ(code, 6);
    first->stop();
    EXPECT_EQ(reporter(client), 0U);
}
