#include "boundary/ListenerTest.h"

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
            std::thread sender([&] { EXPECT_EQ(sendOne(1), stopsReporter ? 1223 : 109); });
            EXPECT_EQ(WaitForSingleObject(called.get(), 60000), WAIT_OBJECT_0);
            if (stopsReporter)
                m_reporter->stop();
            goOn.set();
            sender.join();
            EXPECT_EQ(m_reporter->getState().refused, 1U);
        }
        // One that still waits for a server, and one with messages that nobody takes.
        report({});
        queue(1), queue(2), queue(3);
        EXPECT_EQ(m_reporter->flush(50, nullptr), WAIT_TIMEOUT);
        std::thread stopper([&] { Sleep(50), m_reporter->stop(); });
        EXPECT_EQ(m_reporter->flush(60000, nullptr), ERROR_CANCELLED);
        stopper.join();
        queue(4);
        const ReporterState state = m_reporter->getState();
        EXPECT_EQ(std::tuple(state.waiting, state.refusal), std::tuple(3, ERROR_CANCELLED));
        dropReporter();
        m_server.reset();
        m_receiver.act = nullptr;
        const auto isReached = before.isReachedAgain(round == kWarmUps ? 60 : 10);
        EXPECT_TRUE(round != kWarmUps || isReached) << isReached.message();
    }
}

// Of who accepts clients, and of who serves one.
TEST_P(Listeners, LoseNothingWithoutMemory)
{
    const HeapWatch watch(sysmaintModule());
    listen();
    report({});
    const Polls waits([](auto wait, HANDLE on, DWORD limit) { return wait(on, limit == 1000 ? 0 : limit); });
    Replaced<"CreateThread", decltype(&CreateThread)> threads;
    unsigned long long posted = 0;
    bool wasAnswered = false;
    for (const bool accepts : {true, false})
        for (long failing = 1;; ++failing) {
            SCOPED_TRACE(std::to_string(accepts) + " " + std::to_string(failing));
            std::atomic<bool> isArmed = false;
            const auto armIf = [&](bool isHere) {
                if (isHere && !isArmed.exchange(true))
                    HeapWatch::arm(failing);
            };
            threads.setHook(before([&](auto...) { armIf(accepts); }));
            m_receiver.act = [&] { armIf(!accepts); };
            const auto number = static_cast<std::uint64_t>(failing);
            const auto codes = answersTo(greeting(accepts) + request(1, 0) + request(0, number), 2);
            posted += codes.size() == 2 && codes.back() == 0 ? 1 : 0; // whatever became of the first
            if (accepts) { // the next one may not be let in at first
                queue(1);
                EXPECT_EQ(m_reporter->flush(60000, nullptr), ERROR_SUCCESS);
                report({});
                ++posted;
            }
            HeapWatch::disarm();
            threads.setHook(nullptr);
            EXPECT_EQ(getState().posted, posted);
            if (!HeapWatch::hasFailed())
                break;
            const bool told = accepts || std::set{1U, 8U, 1816U}.contains(codes.back()) || codes.front() == 8;
            wasAnswered = wasAnswered || !told;
            EXPECT_EQ(told, !wasAnswered) << "only what comes after both answers may fail untold";
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
    report({ReportMode::Send, 100});
    EXPECT_EQ(sendOne(4), WAIT_TIMEOUT);
    EXPECT_EQ(m_reporter->getState().connection, WAIT_TIMEOUT);
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

TEST_P(Listeners, FailWithTheCodeOfTheCallThatFails)
{
    failEachCall(
        [&] {
            m_listener.reset();
            m_server.reset();
            m_server = Connected::makeServer(m_isPipe);
            ASSERT_EQ(ConnectionListen(m_server.get(), 60000, nullptr), ERROR_SUCCESS);
            askPort();
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
