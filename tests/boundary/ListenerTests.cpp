#include "core/win32/utils/listeners/api.h"
#include "support/Connections.h"
#include "support/Faults.h"
#include "support/Threads.h"

namespace {
using ListenerHandle = SmartHandle<CloseMessageListener>;
using Reporter = std::unique_ptr<IMessageReporter>;

template <class Number>
std::string bytesOf(Number value)
{
    return {reinterpret_cast<const char*>(&value), sizeof value};
}

/// A message as it stands behind a request's header.
std::string framed(std::uint32_t messageClass, const std::string& body)
{
    return bytesOf(static_cast<std::uint32_t>(body.size())) + bytesOf(messageClass) + body;
}
const std::string kBody = bytesOf(1U) + bytesOf(5U) + bytesOf(7U); // topic number 5, id 7

std::string request(std::uint32_t task, std::uint64_t number, const std::string& frame = framed(0, kBody))
{
    return bytesOf(task) + bytesOf(0xFFFFFFFFU) + bytesOf(number) + frame;
}
std::string greeting(std::uint64_t client)
{
    return "smtopic1" + bytesOf(client);
}

/// Records what it is called with; doubles the ids of what is sent, or does
/// something else.
struct Receiver : IMessageHandler
{
    void onMessage(const MessageW& m, MessageW& reply, void*) override { take(m, reply, 0); }
    void onMessage(const MessageW& m, MessageW& reply, std::uint32_t v, void*) override { take(m, reply, v); }
    void onMessage(const DataMessage& m, DataMessage& reply, void*) override { take(m, reply, 0); }
    void onMessage(const DataMessage& m, DataMessage& reply, std::uint32_t v, void*) override
    {
        take(m, reply, v);
    }
    void onMessage(const ArrayMessage& m, ArrayMessage& reply, void*) override { take(m, reply, 0); }
    void onMessage(const ArrayMessage& m, ArrayMessage& reply, std::uint32_t v, void*) override
    {
        take(m, reply, v);
    }
    void onMessage(const HashMessageW& m, HashMessageW& reply, void*) override { take(m, reply, 0); }
    void onMessage(const HashMessageW& m, HashMessageW& reply, std::uint32_t v, void*) override
    {
        take(m, reply, v);
    }

    template <class Message>
    void take(const Message& message, Message& reply, std::uint32_t value)
    {
        MemoryOutputByteStream stream;
        message.dump(0, stream);
        {
            const std::lock_guard locker(lock);
            bodies.emplace_back(reinterpret_cast<const char*>(stream.getData()), stream.getSize());
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

std::vector<std::uint32_t> numbersTo(std::uint32_t last)
{
    std::vector<std::uint32_t> numbers(last);
    for (std::uint32_t i = 0; i < last; ++i)
        numbers[i] = i + 1;
    return numbers;
}
} // namespace

/// A listener that delivers to the topic "far", and a client's connection to
/// it.
class Listeners : public testing::TestWithParam<bool>
{
protected:
    Listeners() { EXPECT_EQ(TopicSubscribe(m_far, m_receiver), ERROR_SUCCESS); }
    ~Listeners() override
    {
        if (m_reporter)
            TopicUnsubscribe(m_near, *m_reporter, INFINITE);
        m_reporter.reset();
        m_listener.reset();
        TopicUnsubscribe(m_far, m_receiver, INFINITE);
    }
    void listen(const ListenerOptions& options = {})
    {
        if (!m_server.isValid())
            m_server = Connected::makeServer(m_isPipe);
        m_listener.reset(CreateMessageListener(L"far", m_server.get(), m_far, options));
        ASSERT_TRUE(m_listener.isValid()) << GetLastError();
        if (!m_isPipe) {
            ASSERT_EQ(ConnectionGetPort(m_server.get(), &m_port), ERROR_SUCCESS);
        }
    }
    [[nodiscard]] ConnectionHandle makeClient(const wchar_t* name) const
    {
        if (m_isPipe)
            return ConnectionHandle(CreatePipeConnection((std::wstring(L"sysmaint test\\") + name).c_str(),
                                                         ConnectionRole::Client));
        return ConnectionHandle(
            CreateSocketConnection(ConnectionRole::Client, name, L"127.0.0.1", m_port, 0));
    }
    void report(const ReporterOptions& options)
    {
        const ConnectionHandle client = makeClient(L"reporter");
        m_reporter.reset(); // it has the connection
        m_reporter.reset(DllGetMessageReporter(client.get(), options));
        ASSERT_TRUE(m_reporter) << GetLastError();
        ASSERT_EQ(TopicSubscribe(m_near, *m_reporter), ERROR_SUCCESS);
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
    std::vector<std::uint32_t> answersTo(const std::string& bytes, std::size_t most)
    {
        const ConnectionHandle client = makeClient(L"raw");
        EXPECT_EQ(ConnectionConnect(client.get(), 60000, nullptr), ERROR_SUCCESS);
        EXPECT_EQ(ConnectionWrite(client.get(), bytes.data(), bytes.size(), 60000, nullptr), ERROR_SUCCESS);
        std::vector<std::uint32_t> codes;
        std::uint32_t answer[2];
        while (codes.size() < most &&
               ConnectionReadAll(client.get(), answer, sizeof answer, 60000, nullptr) == ERROR_SUCCESS) {
            codes.push_back(answer[0]);
            AnyMessage reply;
            if (answer[1] == 1) {
                EXPECT_EQ(ConnectionReceiveMessage(client.get(), reply, nullptr, 60000, nullptr),
                          ERROR_SUCCESS);
            }
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
    for (const ReportMode mode : {ReportMode::Send, ReportMode::Queue}) {
        report({mode});
        std::vector<std::string> sent;
        const auto deliver = [&]<class Message>(const Message& message) {
            MemoryOutputByteStream stream;
            message.dump(0, stream);
            sent.emplace_back(reinterpret_cast<const char*>(stream.getData()), stream.getSize());
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
        EXPECT_EQ(m_receiver.values, (std::vector<std::uint32_t>{0, 9, 0, 9, 0, 9, 0, 9}));
        m_receiver.bodies.clear(), m_receiver.values.clear();
        EXPECT_EQ(m_reporter->getState().delivered, 8U);
        TopicUnsubscribe(m_near, *m_reporter, INFINITE);
    }
    EXPECT_EQ(getState().sent + getState().posted, 16U);
    // Topics take no narrow ones: a client is told so, and goes on.
    EXPECT_EQ(answersTo(greeting(1) + request(1, 0, framed(4, kBody)) + request(1, 0), 2),
              (std::vector<std::uint32_t>{ERROR_NOT_SUPPORTED, 0}));
}

// Through two listeners and the time without one: in order, each once, and what
// did not fit is counted.
TEST_P(Listeners, GetAllThatAReporterQueues)
{
    listen();
    report({ReportMode::Queue, 60000, 40ULL * 4096});
    m_listener.reset();
    const DataMessage large = [] {
        DataMessage message(L"", 1);
        const std::vector<char> bytes(4096 - 200);
        message.setData(bytes.data(), bytes.size());
        return message;
    }();
    for (std::uint32_t id = 1; id <= 50; ++id) {
        DataMessage message(large);
        message.setId(id);
        ASSERT_EQ(TopicPostMessage(m_near, message), ERROR_SUCCESS);
    }
    ASSERT_EQ(TopicConsumeAll(m_near, INFINITE), ERROR_SUCCESS);
    ReporterState state = m_reporter->getState();
    EXPECT_EQ(state.waiting + state.refused, 50U);
    EXPECT_GE(state.waiting, 40U);
    EXPECT_EQ(state.refusal, ERROR_NOT_ENOUGH_QUOTA);
    EXPECT_EQ(m_reporter->flush(300, nullptr), WAIT_TIMEOUT);
    EXPECT_NE(m_reporter->getState().connection, ERROR_SUCCESS);
    const auto queued = static_cast<std::uint32_t>(state.waiting);

    if (!m_isPipe) // the same port once more
        m_server.reset(CreateSocketConnection(ConnectionRole::Server, L"again", L"127.0.0.1", m_port, 0));
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
    EXPECT_EQ(m_receiver.ids, numbersTo(queued));
    state = m_reporter->getState();
    EXPECT_EQ(state.delivered, queued);
    EXPECT_EQ(state.connection, ERROR_SUCCESS);
}

TEST_P(Listeners, PostWhatIsRepeatedOnce)
{
    listen();
    const std::vector<std::uint32_t> one{0};
    EXPECT_EQ(answersTo(greeting(1) + request(0, 1), 1), one);
    EXPECT_EQ(answersTo(greeting(1) + request(0, 1), 1), one);
    EXPECT_EQ(getState().posted, 1U);
    EXPECT_EQ(answersTo(greeting(1) + request(0, 1) + request(0, 2), 2), (std::vector<std::uint32_t>{0, 0}));
    EXPECT_EQ(answersTo(greeting(2) + request(0, 1), 1), one);
    EXPECT_EQ(getState().posted, 3U);
}

// Whatever one client does, the next one is served.
TEST_P(Listeners, LoseOnlyTheClientThatBreaksTheRules)
{
    ListenerOptions options;
    options.timeout = 300;
    listen(options);
    ASSERT_EQ(ConnectionSetMessageLimit(m_server.get(), 1000), ERROR_SUCCESS);
    const std::string hello = greeting(1);
    const std::string large = framed(0, std::string(2000, 'x'));
    const std::pair<std::string, std::vector<std::uint32_t>> rows[] = {
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
        {hello + request(0, 1, framed(0, kBody + "x")) + request(1, 0), {ERROR_INVALID_DATA, 0}},
    };
    unsigned long long disconnected = 0;
    for (const auto& [bytes, codes] : rows) {
        SCOPED_TRACE(testing::PrintToString(bytes));
        EXPECT_EQ(answersTo(bytes, codes.size()), codes);
        EXPECT_EQ(answersTo(hello + request(1, 0), 1), (std::vector<std::uint32_t>{0}));
        disconnected += codes.front() == 1 ? 1 : 0;
    }
    EXPECT_TRUE(
        comesTrue([&] { return getState().disconnected == disconnected && getState().clients == 0; }));
    EXPECT_EQ(getState().posted, 0U);

    // One that is silent between its messages stays.
    report({ReportMode::Send});
    EXPECT_EQ(sendOne(1), ERROR_SUCCESS);
    Sleep(600);
    EXPECT_EQ(getState().clients, 1U);
    EXPECT_EQ(sendOne(2), ERROR_SUCCESS);
}

TEST_P(Listeners, RefuseWhatIsTooMuch)
{
    ListenerOptions options;
    options.mostClients = 1;
    options.mostWaiting = 3000;
    listen(options);
    const TestEvent goOn;
    m_receiver.act = [&] { WaitForSingleObject(goOn.get(), 60000); };
    std::string bytes = greeting(1);
    for (std::uint64_t number = 1; number <= 5; ++number)
        bytes += request(0, number);
    const std::uint32_t busy = ERROR_NOT_ENOUGH_QUOTA;
    // The first is being delivered, the second waits.
    EXPECT_EQ(answersTo(bytes, 5), (std::vector<std::uint32_t>{0, 0, busy, busy, busy}));
    EXPECT_TRUE(comesTrue([&] { return getState().clients == 0; }));
    report({});
    post(1, 5);
    EXPECT_TRUE(comesTrue([&] { return m_reporter->getState().connection == ERROR_NOT_ENOUGH_QUOTA; }));
    const ConnectionHandle second = makeClient(L"second");
    char byte = 0;
    EXPECT_EQ(ConnectionConnect(second.get(), 60000, nullptr), ERROR_SUCCESS);
    EXPECT_NE(ConnectionReadAll(second.get(), &byte, 1, 60000, nullptr), ERROR_SUCCESS);
    EXPECT_EQ(getState().disconnected, 1U);
    EXPECT_EQ(m_reporter->getState().delivered, 0U);
    goOn.set();
    EXPECT_EQ(m_reporter->flush(60000, nullptr), ERROR_SUCCESS);
    EXPECT_EQ(m_reporter->getState().delivered, 5U);
    ASSERT_EQ(TopicConsumeAll(m_far, INFINITE), ERROR_SUCCESS);
    EXPECT_EQ(m_receiver.count(), 7U);
}

// Each wait ends at once when either side is stopped, and nothing stays open.
TEST_P(Listeners, EndAtOnceAndLeaveNothing)
{
    constexpr int kWarmUps = 3; // after which nothing more is made once and kept, here or by the system
    for (int round = 0; round <= kWarmUps; ++round) {
        const HeapWatch watch(sysmaintModule());
        const ProcessCounts before = ProcessCounts::now();
        listen();
        for (const bool stopsReporter : {true, false}) {
            const TestEvent called, goOn;
            m_receiver.act = [&] {
                called.set();
                if (!stopsReporter)
                    CloseMessageListener(m_listener.release());
                WaitForSingleObject(goOn.get(), 60000);
            };
            report({ReportMode::Send});
            std::thread sender(
                [&] { EXPECT_EQ(sendOne(1), stopsReporter ? ERROR_CANCELLED : ERROR_BROKEN_PIPE); });
            EXPECT_EQ(WaitForSingleObject(called.get(), 60000), WAIT_OBJECT_0);
            if (stopsReporter)
                m_reporter->stop();
            goOn.set();
            sender.join();
            EXPECT_EQ(m_reporter->getState().refused, 1U);
            TopicUnsubscribe(m_near, *m_reporter, INFINITE);
            m_reporter.reset();
        }
        // One that still waits for a server, and one with messages that nobody
        // takes.
        report({});
        MessageW none;
        const auto queue = [&](std::uint32_t id) { m_reporter->onMessage(MessageW(L"", id), none, nullptr); };
        queue(1), queue(2), queue(3);
        EXPECT_EQ(m_reporter->flush(50, nullptr), WAIT_TIMEOUT);
        std::thread stopper([&] { Sleep(50), m_reporter->stop(); });
        EXPECT_EQ(m_reporter->flush(60000, nullptr), ERROR_CANCELLED);
        stopper.join();
        queue(4);
        EXPECT_EQ(m_reporter->getState().waiting, 3U);
        EXPECT_EQ(m_reporter->getState().refusal, ERROR_CANCELLED);
        TopicUnsubscribe(m_near, *m_reporter, INFINITE);
        m_reporter.reset();
        m_server.reset();
        m_receiver.act = nullptr;
        EXPECT_TRUE(before.isReachedAgain(60) || round != kWarmUps)
            << before.describe() << ", then " << ProcessCounts::now().describe();
    }
}

// Each allocation fails in turn: of the calls, of who accepts clients, and of who serves one.
TEST_P(Listeners, LoseNothingWithoutMemory)
{
    const HeapWatch watch(sysmaintModule());
    const auto code = [](bool isMade) { return isMade ? ERROR_SUCCESS : static_cast<long>(GetLastError()); };
    listen();
    m_listener.reset();
    const auto create = [&]() -> long {
        m_listener.reset(CreateMessageListener(L"far", m_server.get(), m_far));
        return code(m_listener.isValid());
    };
    const ConnectionHandle client = makeClient(L"reporter");
    for (const bool listens : {true, false})
        for (long failing = 1;; ++failing) {
            m_reporter.reset();
            HeapWatch::arm(failing);
            if (!listens)
                m_reporter.reset(DllGetMessageReporter(client.get()));
            const long made = listens ? create() : code(m_reporter != nullptr);
            HeapWatch::disarm();
            EXPECT_EQ(made, HeapWatch::hasFailed() ? ERROR_NOT_ENOUGH_MEMORY : ERROR_SUCCESS) << failing;
            if (!HeapWatch::hasFailed())
                break;
        }
    HeapWatch::arm(1);
    EXPECT_EQ(m_reporter->flush(0, nullptr), ERROR_NOT_ENOUGH_MEMORY);
    HeapWatch::disarm();

    const Replaced<"WaitForSingleObject", decltype(&WaitForSingleObject)> waits(
        [](auto original, HANDLE handle, DWORD limit) {
            return original(handle, limit == 1000 ? 0 : limit);
        });
    Replaced<"CreateThread", decltype(&CreateThread)> threads;
    unsigned long long posted = 0;
    for (const bool accepts : {true, false})
        for (long failing = 1;; ++failing) {
            SCOPED_TRACE(std::to_string(accepts) + " " + std::to_string(failing));
            std::atomic<bool> isArmed = false;
            const auto arm = [&] {
                if (!isArmed.exchange(true))
                    HeapWatch::arm(failing);
            };
            threads.setHook([&](auto original, auto... arguments) {
                if (accepts)
                    arm();
                return original(arguments...);
            });
            m_receiver.act = [&] {
                if (!accepts)
                    arm();
            };
            const auto number = static_cast<std::uint64_t>(failing);
            const auto codes = answersTo(greeting(accepts) + request(1, 0) + request(0, number), 2);
            posted += codes == std::vector<std::uint32_t>{0, 0} ? 1 : 0;
            if (accepts) { // the next one may not be let in at first
                MessageW none;
                m_reporter->onMessage(MessageW(L"", 1), none, nullptr);
                EXPECT_EQ(m_reporter->flush(60000, nullptr), ERROR_SUCCESS);
                m_reporter.reset(DllGetMessageReporter(client.get()));
                ++posted;
            }
            HeapWatch::disarm();
            threads.setHook(nullptr);
            EXPECT_EQ(getState().posted, posted);
            if (!HeapWatch::hasFailed())
                break;
            EXPECT_TRUE(accepts || codes.back() == 1 || codes.back() == ERROR_NOT_ENOUGH_MEMORY ||
                        codes.back() == ERROR_NOT_ENOUGH_QUOTA || codes.front() == ERROR_NOT_ENOUGH_MEMORY)
                << testing::PrintToString(codes);
        }
    EXPECT_EQ(getState().disconnected, 0U);
    m_receiver.act = nullptr;
}

TEST_P(Listeners, SurviveAHandlerThatEndsItsThread)
{
    listen();
    report({ReportMode::Send, 5000});
    m_receiver.act = [] { ExitThread(0); };
    EXPECT_EQ(sendOne(1), ERROR_BROKEN_PIPE);
    m_receiver.act = [] { throw 4711L; };
    EXPECT_EQ(sendOne(2), 4711);
    m_receiver.act = nullptr;
    EXPECT_EQ(sendOne(3), ERROR_SUCCESS);
    EXPECT_EQ(getState().clients, 1U);
    const TestEvent goOn;
    m_receiver.act = [&] { WaitForSingleObject(goOn.get(), 60000); };
    const Reporter impatient(DllGetMessageReporter(makeClient(L"impatient").get(), {ReportMode::Send, 100}));
    MessageW reply;
    long code = ERROR_SUCCESS;
    try {
        impatient->onMessage(MessageW(L"near", 1), reply, nullptr);
    } catch (long raised) {
        code = raised;
    }
    EXPECT_EQ(code, WAIT_TIMEOUT);
    EXPECT_EQ(impatient->getState().connection, WAIT_TIMEOUT);
    goOn.set();
}

// The connection of a stopped reporter is the next one's.
TEST_P(Listeners, LeaveTheNextReporterAlone)
{
    listen();
    report({ReportMode::Send});
    EXPECT_EQ(sendOne(1), ERROR_SUCCESS);
    m_reporter->stop();
    TopicUnsubscribe(m_near, *m_reporter, INFINITE);
    Reporter stopped = std::move(m_reporter);
    report({ReportMode::Send});
    EXPECT_EQ(sendOne(2), ERROR_SUCCESS);
    m_receiver.act = [&] { stopped.reset(); };
    EXPECT_EQ(sendOne(3), ERROR_SUCCESS);
}

// A process that listens and reports on one topic, with a peer that does the
// same.
TEST_P(Listeners, DoNotEcho)
{
    listen();
    report({});
    Receiver own;
    ASSERT_EQ(TopicSubscribe(m_near, own), ERROR_SUCCESS);
    const ConnectionHandle back(CreatePipeConnection(L"sysmaint back\\s", ConnectionRole::Server));
    const ListenerHandle nearListener(CreateMessageListener(L"near", back.get(), m_near));
    const ConnectionHandle client(CreatePipeConnection(L"sysmaint back\\c", ConnectionRole::Client));
    const Reporter farReporter(DllGetMessageReporter(client.get()));
    ASSERT_EQ(TopicSubscribe(m_far, *farReporter), ERROR_SUCCESS);
    post(1, 1);
    ASSERT_TRUE(comesTrue([&] { return m_receiver.count() == 1; }));
    ASSERT_EQ(TopicPostMessage(m_far, MessageW(L"far", 2)), ERROR_SUCCESS);
    ASSERT_TRUE(comesTrue([&] { return own.count() == 2 && m_receiver.count() == 2; }));
    EXPECT_EQ(m_reporter->flush(60000, nullptr), ERROR_SUCCESS);
    EXPECT_EQ(farReporter->flush(60000, nullptr), ERROR_SUCCESS);
    EXPECT_EQ(m_reporter->getState().delivered, 1U);
    EXPECT_EQ(farReporter->getState().delivered, 1U);
    TopicUnsubscribe(m_far, *farReporter, INFINITE);
    TopicUnsubscribe(m_near, own, INFINITE);
}

TEST_P(Listeners, FailWithTheCodeOfTheCallThatFails)
{
    failEachCall(
        [&] {
            m_listener.reset();
            m_reporter.reset();
            m_server.reset();
            m_server = Connected::makeServer(m_isPipe);
            ASSERT_EQ(ConnectionListen(m_server.get(), 60000, nullptr), ERROR_SUCCESS);
            if (!m_isPipe) {
                ASSERT_EQ(ConnectionGetPort(m_server.get(), &m_port), ERROR_SUCCESS);
            }
        },
        [&]() -> long {
            const ListenerHandle listener(CreateMessageListener(L"far", m_server.get(), m_far));
            if (!listener.isValid())
                return static_cast<long>(GetLastError());
            const Reporter reporter(DllGetMessageReporter(makeClient(L"reporter").get()));
            return reporter ? ERROR_SUCCESS : static_cast<long>(GetLastError());
        },
        [](const std::string& import, long code) {
            EXPECT_TRUE(code == kFailure || import == "SetEvent") << import << " " << code;
        });
}

TEST(ListenerArguments, AreRefusedWhenTheyAreWrong)
{
    const TopicHandle topic = CreateMessageTopic(L"far");
    const ConnectionHandle server = Connected::makeServer(true);
    const ConnectionHandle client(CreatePipeConnection(L"sysmaint test\\client", ConnectionRole::Client));
    const auto listener = [&](const wchar_t* name, void* connection, const TopicHandle& to,
                              const ListenerOptions& options = {}) {
        const ListenerHandle handle(CreateMessageListener(name, connection, to, options));
        return handle.isValid() ? ERROR_SUCCESS : static_cast<long>(GetLastError());
    };
    EXPECT_EQ(listener(nullptr, server.get(), topic), ERROR_INVALID_PARAMETER);
    EXPECT_EQ(listener(L"l", nullptr, topic), ERROR_INVALID_HANDLE);
    EXPECT_EQ(listener(L"l", server.get(), TopicHandle()), ERROR_INVALID_HANDLE);
    EXPECT_EQ(listener(L"l", client.get(), topic), ERROR_INVALID_FUNCTION);
    for (const ListenerOptions& options :
         {ListenerOptions{0}, ListenerOptions{1, 0}, ListenerOptions{1, 1, 0}})
        EXPECT_EQ(listener(L"l", server.get(), topic, options), ERROR_INVALID_PARAMETER);
    EXPECT_EQ(listener(L"l", server.get(), topic), ERROR_SUCCESS);
    EXPECT_EQ(listener(L"l", server.get(), topic), ERROR_SUCCESS) << "closed before";

    const auto reporter = [&](void* connection, const ReporterOptions& options = {}) {
        const Reporter made(DllGetMessageReporter(connection, options));
        return made ? ERROR_SUCCESS : static_cast<long>(GetLastError());
    };
    EXPECT_EQ(reporter(nullptr), ERROR_INVALID_HANDLE);
    EXPECT_EQ(reporter(server.get()), ERROR_INVALID_FUNCTION);
    for (const ReporterOptions& options :
         {ReporterOptions{static_cast<ReportMode>(2)}, ReporterOptions{ReportMode::Send, 0},
          ReporterOptions{ReportMode::Send, 1, 0}})
        EXPECT_EQ(reporter(client.get(), options), ERROR_INVALID_PARAMETER);
    EXPECT_EQ(reporter(client.get()), ERROR_SUCCESS);
    const Reporter first(DllGetMessageReporter(client.get()));
    EXPECT_EQ(reporter(client.get()), ERROR_BUSY);
    const Win32Handle mutex(CreateMutexW(nullptr, FALSE, nullptr)); // which a wait would take
    void* none = nullptr;
    EXPECT_EQ(first->flush(0, mutex.get()), ERROR_INVALID_HANDLE);
    EXPECT_EQ(ConnectionConnect(client.get(), 0, mutex.get()), ERROR_INVALID_HANDLE);
    EXPECT_EQ(ConnectionListen(server.get(), 0, mutex.get()), ERROR_INVALID_HANDLE);
    EXPECT_EQ(ConnectionAccept(server.get(), 0, mutex.get(), &none), ERROR_INVALID_HANDLE);
    first->stop();
    EXPECT_EQ(reporter(client.get()), ERROR_SUCCESS);

    void* open = CreateMessageListener(L"l", server.get(), topic);
    EXPECT_EQ(listener(L"another", server.get(), topic), ERROR_BUSY);
    void* again = OpenMessageListener(L"l");
    const wchar_t* name = nullptr;
    EXPECT_EQ(ListenerGetNameByHandle(again, &name), ERROR_SUCCESS);
    EXPECT_STREQ(name, L"l");
    EXPECT_EQ(ListenerGetNameByHandle(again, nullptr), ERROR_INVALID_PARAMETER);
    EXPECT_EQ(ListenerGetState(again, nullptr), ERROR_INVALID_PARAMETER);
    EXPECT_TRUE(CloseMessageListener(open) && CloseMessageListener(again));
    EXPECT_FALSE(CloseMessageListener(open));
    ListenerState state;
    for (void* handle : {static_cast<void*>(nullptr), open, INVALID_HANDLE_VALUE}) {
        EXPECT_EQ(ListenerGetState(handle, &state), ERROR_INVALID_HANDLE);
        EXPECT_EQ(ListenerGetNameByHandle(handle, &name), ERROR_INVALID_HANDLE);
    }
    EXPECT_EQ(OpenMessageListener(L"l"), INVALID_HANDLE_VALUE);
}
