// The process monitor, with snapshots of real children and with the test's own WMI.

#include "boundary/ProcessTest.h"
#include "core/win32/utils/communication/api.h"
#include "support/Wmi.h"

namespace {
constexpr wchar_t kTopic[] = L"process monitor";
constexpr wchar_t kChildren[] = L"no such thing.exe, process_child*";

/// Records every message as one line.
struct Recorder : MessageFilter
{
    using MessageFilter::onMessage;
    void onMessage(const HashMessageW& message, HashMessageW&, void*) override
    {
        std::wstring text = std::to_wstring(message.getId());
        for (const wchar_t* field : {L"ProcessId", L"ParentId", L"SessionId"}) {
            std::uint32_t value = 77;
            EXPECT_EQ(message.getParameter(field, value), 0);
            text += L" " + std::to_wstring(value);
        }
        const wchar_t* name = L"";
        const ParameterW* time = nullptr;
        EXPECT_EQ(message.getParameter(L"ImageName", name) + message.getParameter(L"Time", time), 0);
        const std::lock_guard guard(lock);
        lines.push_back(text + L" " + name);
        ASSERT_EQ(time->getSize(), sizeof times[0]);
        std::memcpy(&times.emplace_back(), time->getData(), sizeof times[0]);
    }
    std::vector<std::wstring> taken()
    {
        const std::lock_guard guard(lock);
        return lines;
    }
    bool hasTaken(std::size_t count)
    {
        return comesTrue([&] { return taken().size() >= count; });
    }

    std::mutex lock;
    std::vector<std::wstring> lines;
    std::vector<unsigned long long> times;
};

std::wstring line(unsigned long message, const ProcessEntry& entry)
{
    return std::to_wstring(message) + L" " + std::to_wstring(entry.id) + L" " +
           std::to_wstring(entry.parentId) + L" " + std::to_wstring(entry.session) + L" process_child.exe";
}

/// Its source, and the code.
using State = std::pair<unsigned long, long>;
State state()
{
    State state{77, -1};
    EXPECT_EQ(PMGetMonitorState(&state.first, &state.second), 0);
    return state;
}

struct Monitor : testing::Test
{
    Monitor()
    {
        EXPECT_EQ(CreateProcessMonitor() + CreateProcessManager() + TopicSubscribe(topic, recorder), 0);
    }
    ~Monitor() override
    {
        EXPECT_TRUE(CloseProcessMonitor() != 0 && CloseProcessManager() != 0);
        TopicUnsubscribe(topic, recorder, INFINITE);
    }
    /// The messages that are expected about this child.
    void add(unsigned long message, const ProcessEntry& entry)
    {
        expected.push_back(line(message, entry));
        EXPECT_TRUE(recorder.hasTaken(expected.size()));
    }
    ProcessEntry runOne(const wchar_t* arguments = L"sleep")
    {
        auto child = std::make_unique<Child>(arguments);
        const ProcessEntry entry = child->entry();
        add(kProcessStarted, entry);
        EXPECT_EQ(recorder.times.empty() ? 0 : recorder.times.back(), entry.startTime);
        child.reset();
        add(kProcessEnded, entry);
        return entry;
    }
    std::vector<std::wstring> expected;
    Recorder recorder;
    const TopicHandle topic = CreateMessageTopic(kTopic);
};

/// The system's event for a process that has that id.
FakeWmi::Event event(bool isStart, long id, const std::wstring& name, unsigned long long time)
{
    return [=] {
        FakeWmi::setText(L"__CLASS", isStart ? L"Win32_ProcessStartTrace" : L"Win32_ProcessStopTrace");
        FakeWmi::setText(L"ProcessName", name.c_str());
        FakeWmi::setText(L"TIME_CREATED", std::to_wstring(time).c_str());
        FakeWmi::properties[L"ProcessID"] = FakeWmi::number(id);
        FakeWmi::properties[L"ParentProcessID"] = FakeWmi::number(12);
        FakeWmi::properties[L"SessionID"] = FakeWmi::number(1, VT_UI4);
        return S_OK;
    };
}

unsigned long long now()
{
    FILETIME time;
    GetSystemTimeAsFileTime(&time);
    return (static_cast<unsigned long long>(time.dwHighDateTime) << 32U) | time.dwLowDateTime;
}

/// The fake objects are no proxies.
struct WmiMonitor : Monitor
{
    /// What the system tells, and what of that is told on.
    static void tell(bool isStart, DWORD id, unsigned long long time,
                     const std::wstring& name = L"process_child.exe")
    {
        FakeWmi::post(event(isStart, static_cast<long>(id), name, time));
    }
    void expect(bool isStart, DWORD id, const std::wstring& name = L"process_child.exe")
    {
        expected.push_back((isStart ? L"1 " : L"2 ") + std::to_wstring(id) + L" 12 1 " + name);
    }
    void expectAllTold()
    {
        EXPECT_TRUE(recorder.hasTaken(expected.size()));
        EXPECT_TRUE(PMStopMonitor() == 0 && recorder.taken() == expected && com.references == 0);
    }
    const LookedUp functions{{{"CoSetProxyBlanket", address(+[](void*, DWORD, DWORD, void*, DWORD, DWORD,
                                                                void*, DWORD) -> HRESULT { return S_OK; })}}};
    const FakeWmi wmi;

    /// Posts the first event, of a process that nobody asked for.
    static void awaitEvents()
    {
        tell(true, 3000000, now(), L"first.exe");
        ASSERT_TRUE(comesTrue([] { return state() == State(kMonitorEvents, 0); }));
    }
};
} // namespace

TEST_F(Monitor, TellsEachStartAndEndOnceFromSnapshots)
{
    const Child before;
    ASSERT_NE(before.entry().id, 0U);
    ASSERT_EQ(PMStartMonitor(kTopic, kChildren, 20, 0), 0);
    EXPECT_EQ(PMStartMonitor(kTopic, nullptr, 20, 0), 183);
    EXPECT_EQ(state(), State(kMonitorSnapshots, 0));
    for (int i = 0; i < 10; ++i)
        runOne(i % 2 != 0 ? L"sleep" : L"tree 0 1");
    const ULONGLONG begun = GetTickCount64();
    EXPECT_EQ(PMStopMonitor(), 0);
    EXPECT_LT(GetTickCount64() - begun, 1000U);
    static_cast<void>(Child());
    Sleep(100); // nothing should be posted, so there is nothing to wait for
    EXPECT_TRUE(recorder.taken() == expected && PMStopMonitor() == 0);
    for (const wchar_t* const filter : {L"", L"a,,b", L"a, "})
        EXPECT_EQ(PMStartMonitor(kTopic, filter, 20, 0), 87) << filter;
    for (const unsigned long interval : {9UL, 60001UL})
        EXPECT_EQ(PMStartMonitor(kTopic, nullptr, interval, 0), 87);
    EXPECT_EQ(PMStartMonitor(nullptr, nullptr, 20, 0), 87);
    EXPECT_EQ(state().first, static_cast<unsigned long>(kMonitorStopped));
}

TEST_F(Monitor, FallsBackToSnapshotsWhereTheSystemRefusesEvents)
{
    ASSERT_EQ(PMStartMonitor(kTopic, kChildren, 20, 1), 0);
    ASSERT_TRUE(comesTrue([] { return state().second != 0; }));
    EXPECT_EQ(state(), State(kMonitorSnapshots, 0x1001));
    const Child child;
    EXPECT_TRUE(recorder.hasTaken(1));
}

TEST_F(WmiMonitor, MissesNothingThatTheSystemTells)
{
    constexpr DWORD kFirst = 1000000, kCount = 200; // ids that nobody has
    ASSERT_EQ(PMStartMonitor(kTopic, L"process_child*", 60000, 1), 0);
    awaitEvents();
    EXPECT_EQ(FakeWmi::takeAsked(), L"ROOT\\CIMV2;WQL;SELECT * FROM Win32_ProcessTrace;");
    const auto tellAndExpect = [&](bool isStart, DWORD id) {
        tell(isStart, id, now(), isStart ? L"Process_Child.exe" : L"process_child.");
        expect(isStart, id, L"Process_Child.exe");
    };
    for (DWORD id = kFirst; id < kFirst + kCount; ++id) {
        tellAndExpect(true, id);
        tellAndExpect(false, id);
        tellAndExpect(true, kFirst); // the same id again
        tell(true, id + kCount, now(), L"other.exe");
        tellAndExpect(false, kFirst);
    }
    // A known process, an unknown one, and an end from before the start.
    tell(true, GetCurrentProcessId(), now());
    tell(false, kFirst, now());
    tell(false, GetCurrentProcessId(), 1);
    tellAndExpect(true, kFirst);
    expectAllTold();
}

// It does not answer to the connection or the query, has no event, or hangs after one.
TEST_F(WmiMonitor, TellsFromSnapshotsWhileTheSystemIsSilent)
{
    const std::wstring_view kNoEvent = L"no event", kOneEvent = L"one event";
    for (const std::wstring_view silent :
         {std::wstring_view(L"ROOT\\CIMV2"), std::wstring_view(L"SELECT * FROM Win32_ProcessTrace"), kNoEvent,
          kOneEvent}) {
        const TestEvent answer;
        FakeWmi::onAsked = [&](std::wstring_view text) { EXPECT_TRUE(text != silent || answer.wait()); };
        recorder.lines.clear(), expected.clear();
        FakeWmi::fetches = 0;
        ASSERT_EQ(PMStartMonitor(kTopic, kChildren, 20, 1), 0);
        ASSERT_TRUE(silent != kNoEvent || comesTrue([] { return FakeWmi::fetches > 1; }));
        if (silent == kOneEvent) {
            awaitEvents();
            FakeWmi::post([&] {
                EXPECT_TRUE(answer.wait());
                return static_cast<HRESULT>(WBEM_S_TIMEDOUT);
            });
        }
        const ProcessEntry ended = runOne();
        const Child child;
        const ProcessEntry entry = child.entry();
        add(kProcessStarted, entry);
        EXPECT_EQ(state(), State(kMonitorSnapshots, 0));
        answer.set();
        if (silent != kNoEvent)
            awaitEvents();
        for (const unsigned after : {1000U, 20000000U}) // late events, then those of the id's next user
            for (const bool isStart : {true, false})
                tell(isStart, ended.id, ended.startTime + after + (isStart ? 0 : 1000U));
        expect(true, ended.id);
        expect(false, ended.id);
        tell(true, entry.id, entry.startTime + 1000); // told already
        EXPECT_TRUE(recorder.hasTaken(expected.size()));
        child.end();
        tell(true, entry.id, entry.startTime + 20000000, L"process_child.b"); // the id again
        tell(false, entry.id, entry.startTime + 10000000);
        expected.push_back(line(kProcessEnded, entry));
        expect(true, entry.id, L"process_child.b");
        expectAllTold();
    }
}

TEST_F(WmiMonitor, TellsWhichProcessOfAnIdAnEventIsAbout)
{
    ASSERT_EQ(PMStartMonitor(kTopic, L"process_child*", 60000, 1), 0);
    awaitEvents();
    DWORD id = 1000000;
    // The events: + or -, the process, the second; and what is told.
    for (const auto& [events, told] : {std::pair("+a0 +b2 -a1 -b3 ", "+a-a+b-b"), // the end comes late
                                       {"+a0 +b2 -b3 ", "+a-a+b-b"},              // or never
                                       {"-a1 +a0 +b2 -b3 ", "+a-a+b-b"},          // or before its start
                                       {"-a1 +b2 -b3 ", "+b-b"},         // of a start that nobody told
                                       {"+a0 -b3 -a1 +b2 ", "+a-a+b-b"}, // or that of the next one first
                                       {"+a0 +a0 -a1 -a1 +b2 ", "+a-a+b"}}) {
        ++id;
        const unsigned long long base = now();
        const auto name = [](char process) { return L"process_child." + std::wstring(1, process); };
        for (const char* at = events; *at != 0; at += 4)
            tell(*at == '+', id, base + (at[2] - '0') * 10000000ULL, name(at[1]));
        for (const char* at = told; *at != 0; at += 2)
            expect(*at == '+', id, name(at[1]));
    }
    expectAllTold();
}

TEST_F(WmiMonitor, GoesOnWithSnapshotsWhenEventsStopComing)
{
    ASSERT_EQ(PMStartMonitor(kTopic, kChildren, 20, 1), 0);
    ASSERT_TRUE(comesTrue([] { return FakeWmi::fetches != 0; }));
    const Child told, missed;
    const ProcessEntry first = told.entry(), second = missed.entry();
    tell(true, told.id, now());
    FakeWmi::post([] { return static_cast<HRESULT>(WBEM_E_TRANSPORT_FAILURE); });
    ASSERT_TRUE(recorder.hasTaken(2)); // which come before the state: the last events need those told
    EXPECT_TRUE(comesTrue([] { return state() == State(kMonitorSnapshots, 0x1015); }));
    told.end();
    ASSERT_TRUE(recorder.hasTaken(3));
    const auto lines = recorder.taken();
    EXPECT_EQ(lines[1], line(kProcessStarted, second)) << "and the one that was told only once";
    EXPECT_EQ(lines[2].substr(0, lines[2].find(L' ', 2)), L"2 " + std::to_wstring(first.id));
}

TEST_F(WmiMonitor, StopsWithinASecondWhileTheSystemDoesNotAnswer)
{
    ASSERT_EQ(PMStartMonitor(kTopic, nullptr, 60000, 1), 0);
    ASSERT_TRUE(comesTrue([] { return FakeWmi::fetches != 0; }));
    const TestEvent hanging, answer, left;
    const auto late = event(true, 1000000, L"late.exe", now());
    FakeWmi::post([&] {
        hanging.set();
        EXPECT_TRUE(answer.wait());
        left.set();
        return late();
    });
    ASSERT_TRUE(hanging.wait());
    const ULONGLONG begun = GetTickCount64();
    EXPECT_EQ(PMStopMonitor(), 0);
    EXPECT_LT(GetTickCount64() - begun, 1000U);
    const ProcessCounts before = ProcessCounts::now();
    answer.set();
    EXPECT_TRUE(left.wait() && comesTrue([&] { return ProcessCounts::now().threads < before.threads; }));
    EXPECT_TRUE(recorder.taken().empty()) << "and posts nothing any more";
}

TEST(ProcessMonitor, IsOneForAllAndStopsWithItsLastOpening)
{
    EXPECT_TRUE(PMStartMonitor(kTopic, nullptr, 20, 0) == 6 && OpenProcessMonitor() == 1168);
    EXPECT_EQ(CloseProcessMonitor(), 0);
    ProcessCounts before = ProcessCounts::now();
    for (int i = 0; i < 3; ++i) { // what the first round leaves stays permanently
        if (i == 1)
            before = ProcessCounts::now();
        EXPECT_EQ(CreateProcessMonitor() + OpenProcessMonitor() + PMStartMonitor(kTopic, nullptr, 20, 0), 0);
        EXPECT_NE(CloseProcessMonitor(), 0);
        EXPECT_EQ(state().first, static_cast<unsigned long>(kMonitorSnapshots));
        EXPECT_NE(CloseProcessMonitor(), 0);
        EXPECT_EQ(PMStopMonitor(), 6);
        EXPECT_TRUE(i == 0 || before.isReachedAgain(100));
    }
    EXPECT_EQ(CreateProcessMonitor(), 0);
    Replaced<"CreateThread", HANDLE(WINAPI*)(void*, SIZE_T, void*, void*, DWORD, void*)> threads(1, nullptr,
                                                                                                 1450);
    EXPECT_EQ(PMStartMonitor(kTopic, nullptr, 20, 0), 1450);
    EXPECT_EQ(state().first, static_cast<unsigned long>(kMonitorStopped));
    EXPECT_NE(CloseProcessMonitor(), 0);
    EXPECT_TRUE(before.isReachedAgain(100));
}
