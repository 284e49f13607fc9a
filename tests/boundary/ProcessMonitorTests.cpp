// The process monitor, with snapshots of real children and with the test's own WMI.

#include "core/win32/utils/communication/api.h"
#include "support/Child.h"
#include "support/ImportReplacement.h"
#include "support/Process.h"
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
        std::uint32_t id = 0, parent = 0, session = 77;
        const wchar_t* name = L"";
        const ParameterW* time = nullptr;
        EXPECT_EQ(message.getParameter(L"ProcessId", id) + message.getParameter(L"ParentId", parent) +
                      message.getParameter(L"SessionId", session) + message.getParameter(L"ImageName", name) +
                      message.getParameter(L"Time", time),
                  0);
        const std::lock_guard guard(lock);
        lines.push_back(std::to_wstring(message.getId()) + L" " + std::to_wstring(id) + L" " +
                        std::to_wstring(parent) + L" " + std::to_wstring(session) + L" " + name);
        unsigned long long value = 0;
        ASSERT_EQ(time->getSize(), sizeof value);
        std::memcpy(&value, time->getData(), sizeof value);
        times.push_back(value);
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
std::pair<unsigned long, long> state()
{
    unsigned long source = 77;
    long code = -1;
    EXPECT_EQ(PMGetMonitorState(&source, &code), 0);
    return {source, code};
}

struct Monitor : testing::Test
{
    Monitor()
    {
        EXPECT_EQ(CreateProcessMonitor() + CreateProcessManager() + TopicSubscribe(topic, recorder), 0);
    }
    ~Monitor() override
    {
        EXPECT_NE(CloseProcessMonitor(), 0);
        EXPECT_NE(CloseProcessManager(), 0);
        TopicUnsubscribe(topic, recorder, INFINITE);
    }
    Recorder recorder;
    const TopicHandle topic = CreateMessageTopic(kTopic);
};

/// The system's event for a process that has that id.
FakeWmi::Event event(bool isStart, long id, const std::wstring& name, unsigned long long time)
{
    return [=] {
        static std::wstring texts[3];
        texts[0] = isStart ? L"Win32_ProcessStartTrace" : L"Win32_ProcessStopTrace";
        texts[1] = name;
        texts[2] = std::to_wstring(time);
        const wchar_t* const names[] = {L"__CLASS", L"ProcessName", L"TIME_CREATED"};
        for (int i = 0; i < 3; ++i) {
            VARIANT& value = FakeWmi::properties[names[i]];
            ::VariantClear(&value);
            value.vt = VT_BSTR;
            value.bstrVal = ::SysAllocString(texts[i].c_str());
        }
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
    const LookedUp functions{{{"CoSetProxyBlanket", address(+[](void*, DWORD, DWORD, void*, DWORD, DWORD,
                                                                void*, DWORD) -> HRESULT { return S_OK; })}}};
    const FakeWmi wmi;

    /// Posts the first event, of a process that nobody asked for.
    static void awaitEvents()
    {
        FakeWmi::post(event(true, 3000000, L"first.exe", now()));
        ASSERT_TRUE(
            comesTrue([] { return state() == std::pair(static_cast<unsigned long>(kMonitorEvents), 0L); }));
    }
};
} // namespace

TEST_F(Monitor, TellsEachStartAndEndOnceFromSnapshots)
{
    const Child before(L"sleep");
    ASSERT_NE(before.entry().id, 0U);
    ASSERT_EQ(PMStartMonitor(kTopic, kChildren, 20, 0), 0);
    EXPECT_EQ(PMStartMonitor(kTopic, nullptr, 20, 0), 183);
    EXPECT_EQ(state(), std::pair(static_cast<unsigned long>(kMonitorSnapshots), 0L));
    std::vector<std::wstring> expected;
    std::vector<unsigned long long> starts;
    for (int i = 0; i < 10; ++i) {
        ProcessEntry entry;
        {
            const Child child(i % 2 != 0 ? L"sleep" : L"tree 0 1");
            entry = child.entry();
            expected.push_back(line(kProcessStarted, entry));
            starts.push_back(entry.startTime);
            ASSERT_TRUE(recorder.hasTaken(expected.size()));
        }
        expected.push_back(line(kProcessEnded, entry));
        ASSERT_TRUE(recorder.hasTaken(expected.size()));
    }
    const ULONGLONG begun = GetTickCount64();
    EXPECT_EQ(PMStopMonitor(), 0);
    EXPECT_LT(GetTickCount64() - begun, 1000U);
    {
        const Child after(L"sleep");
    }
    Sleep(100); // nothing should be posted, so there is nothing to wait for
    EXPECT_EQ(recorder.taken(), expected);
    for (std::size_t i = 0; i < starts.size(); ++i)
        EXPECT_EQ(recorder.times[2 * i], starts[i]);
    EXPECT_EQ(PMStopMonitor(), 0);
    EXPECT_EQ(state().first, static_cast<unsigned long>(kMonitorStopped));
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
    EXPECT_EQ(state(), std::pair(static_cast<unsigned long>(kMonitorSnapshots), 0x1001L));
    const Child child(L"sleep");
    EXPECT_TRUE(recorder.hasTaken(1));
}

TEST_F(WmiMonitor, MissesNothingThatTheSystemTells)
{
    constexpr long kFirst = 1000000, kCount = 200; // ids that nobody has
    ASSERT_EQ(PMStartMonitor(kTopic, L"process_child*", 60000, 1), 0);
    awaitEvents();
    EXPECT_EQ(FakeWmi::takeAsked(), L"ROOT\\CIMV2;WQL;SELECT * FROM Win32_ProcessTrace;");
    std::vector<std::wstring> expected;
    const auto tell = [&](bool isStart, long id) {
        FakeWmi::post(event(isStart, id, isStart ? L"Process_Child.exe" : L"process_child.", now()));
        expected.push_back((isStart ? L"1 " : L"2 ") + std::to_wstring(id) + L" 12 1 Process_Child.exe");
    };
    for (long id = kFirst; id < kFirst + kCount; ++id) {
        tell(true, id);
        tell(false, id);
        tell(true, kFirst); // the same id again
        FakeWmi::post(event(true, id + kCount, L"other.exe", now()));
        tell(false, kFirst);
    }
    // A known process, an unknown one, and an end from before the start.
    const auto own = static_cast<long>(GetCurrentProcessId());
    FakeWmi::post(event(true, own, L"process_child.exe", now()));
    FakeWmi::post(event(false, kFirst, L"process_child.exe", now()));
    FakeWmi::post(event(false, own, L"process_child.exe", 1));
    tell(true, kFirst);
    ASSERT_TRUE(recorder.hasTaken(expected.size()));
    EXPECT_EQ(recorder.taken(), expected);
    EXPECT_EQ(PMStopMonitor(), 0);
    EXPECT_TRUE(com.references == 0);
}

TEST_F(WmiMonitor, TellsFromSnapshotsUntilTheSystemAnswers)
{
    for (const wchar_t* const slow : {L"ROOT\\CIMV2", L"SELECT * FROM Win32_ProcessTrace"}) {
        const TestEvent answer;
        FakeWmi::onAsked = [&](std::wstring_view text) { EXPECT_TRUE(text != slow || answer.wait()); };
        recorder.lines.clear();
        ASSERT_EQ(PMStartMonitor(kTopic, kChildren, 20, 1), 0);
        std::vector<std::wstring> expected;
        {
            const Child child(L"sleep");
            expected = {line(kProcessStarted, child.entry()), line(kProcessEnded, child.entry())};
            ASSERT_TRUE(recorder.hasTaken(1));
        }
        ASSERT_TRUE(recorder.hasTaken(2));
        const Child child(L"sleep");
        const ProcessEntry entry = child.entry();
        expected.push_back(line(kProcessStarted, entry));
        ASSERT_TRUE(recorder.hasTaken(3));
        EXPECT_EQ(state(), std::pair(static_cast<unsigned long>(kMonitorSnapshots), 0L));
        answer.set();
        awaitEvents();
        const auto id = static_cast<long>(entry.id);
        FakeWmi::post(event(true, id, L"process_child.exe", entry.startTime + 1000)); // told already
        TerminateProcess(child.handle, 0);
        WaitForSingleObject(child.handle, 60000);
        FakeWmi::post(event(true, id, L"process_child.b", entry.startTime + 20000000)); // the id again
        FakeWmi::post(event(false, id, L"process_child.exe", entry.startTime + 10000000));
        expected.push_back(line(kProcessEnded, entry));
        expected.push_back(L"1 " + std::to_wstring(id) + L" 12 1 process_child.b");
        ASSERT_TRUE(recorder.hasTaken(5));
        EXPECT_EQ(PMStopMonitor(), 0);
        EXPECT_EQ(recorder.taken(), expected);
        EXPECT_TRUE(com.references == 0);
    }
}

TEST_F(WmiMonitor, TellsWhichProcessOfAnIdAnEventIsAbout)
{
    ASSERT_EQ(PMStartMonitor(kTopic, L"process_child*", 60000, 1), 0);
    awaitEvents();
    struct Row
    {
        const char* events; // + or -, the process, the second
        const char* told;
    };
    long id = 1000000;
    std::vector<std::wstring> expected;
    for (const auto& [events, told] : {Row{"+a0 +b2 -a1 -b3", "+a-a+b-b"}, // the end comes late
                                       Row{"+a0 +b2 -b3", "+a-a+b-b"},     // or never
                                       Row{"-a1 +a0 +b2 -b3", "+a-a+b-b"}, // or before its start
                                       Row{"-a1 +b2 -b3", "+b-b"},         // of a start that nobody told
                                       Row{"+a0 -b3 -a1 +b2", "+a-a+b-b"}, // or that of the next one first
                                       Row{"+a0 +a0 -a1 -a1 +b2", "+a-a+b"}}) {
        ++id;
        const unsigned long long base = now();
        for (std::string_view left = events;; left.remove_prefix(4)) {
            const std::wstring name = L"process_child." + std::wstring(1, left[1]);
            FakeWmi::post(event(left[0] == '+', id, name, base + (left[2] - '0') * 10000000ULL));
            if (left.size() < 4)
                break;
        }
        for (const char* at = told; *at != 0; at += 2)
            expected.push_back((*at == '+' ? L"1 " : L"2 ") + std::to_wstring(id) + L" 12 1 process_child." +
                               std::wstring(1, at[1]));
    }
    ASSERT_TRUE(recorder.hasTaken(expected.size()));
    EXPECT_EQ(PMStopMonitor(), 0);
    EXPECT_EQ(recorder.taken(), expected);
}

TEST_F(WmiMonitor, TellsFromSnapshotsWhileTheSystemAcceptsAndSendsNothing)
{
    const TestEvent answer;
    ASSERT_EQ(PMStartMonitor(kTopic, kChildren, 20, 1), 0);
    ASSERT_TRUE(comesTrue([] { return FakeWmi::fetches > 1; }));
    std::vector<std::wstring> expected;
    const auto runOne = [&] {
        const Child child(L"sleep");
        const ProcessEntry entry = child.entry();
        expected.push_back(line(kProcessStarted, entry));
        EXPECT_TRUE(recorder.hasTaken(expected.size()));
        expected.push_back(line(kProcessEnded, entry));
        return entry;
    };
    for (const bool hangs : {false, true}) { // it says that there is nothing yet; after an event it hangs
        if (hangs) {
            awaitEvents();
            FakeWmi::post([&] {
                EXPECT_TRUE(answer.wait());
                return static_cast<HRESULT>(WBEM_S_TIMEDOUT);
            });
        }
        const ProcessEntry child = runOne();
        ASSERT_TRUE(recorder.hasTaken(expected.size()));
        EXPECT_EQ(state(), std::pair(static_cast<unsigned long>(kMonitorSnapshots), 0L));
        if (hangs)
            answer.set();
        const auto id = static_cast<long>(child.id); // its events come late, then those of the id's next user
        for (const bool isNext : {false, true})
            for (const bool isStart : {true, false})
                FakeWmi::post(event(isStart, id, L"process_child.exe",
                                    child.startTime + (isNext ? 20000000U : 1000U) + (isStart ? 0 : 1000U)));
        for (const wchar_t* const message : {L"1 ", L"2 "})
            expected.push_back(message + std::to_wstring(id) + L" 12 1 process_child.exe");
        ASSERT_TRUE(recorder.hasTaken(expected.size()));
        EXPECT_EQ(PMStopMonitor() + (hangs ? 0 : PMStartMonitor(kTopic, kChildren, 20, 1)), 0);
    }
    EXPECT_EQ(recorder.taken(), expected);
}

TEST_F(WmiMonitor, GoesOnWithSnapshotsWhenEventsStopComing)
{
    ASSERT_EQ(PMStartMonitor(kTopic, kChildren, 20, 1), 0);
    ASSERT_TRUE(comesTrue([] { return FakeWmi::fetches != 0; }));
    const Child told(L"sleep");
    const Child missed(L"sleep");
    const ProcessEntry first = told.entry(), second = missed.entry();
    FakeWmi::post(event(true, static_cast<long>(told.id), L"process_child.exe", now()));
    FakeWmi::post([] { return static_cast<HRESULT>(WBEM_E_TRANSPORT_FAILURE); });
    ASSERT_TRUE(recorder.hasTaken(2)); // which come before the state: the last events need those told
    EXPECT_TRUE(comesTrue(
        [] { return state() == std::pair(static_cast<unsigned long>(kMonitorSnapshots), 0x1015L); }));
    TerminateProcess(told.handle, 0);
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
    EXPECT_TRUE(left.wait());
    EXPECT_TRUE(comesTrue([&] { return ProcessCounts::now().threads < before.threads; }));
    EXPECT_TRUE(recorder.taken().empty()) << "and posts nothing any more";
}

TEST(ProcessMonitor, IsOneForAllAndStopsWithItsLastOpening)
{
    EXPECT_EQ(PMStartMonitor(kTopic, nullptr, 20, 0), 6);
    EXPECT_EQ(OpenProcessMonitor(), 1168);
    EXPECT_EQ(CloseProcessMonitor(), 0);
    ProcessCounts before = ProcessCounts::now();
    for (int i = 0; i < 3; ++i) { // what the first round leaves stays permanently
        if (i == 1)
            before = ProcessCounts::now();
        EXPECT_EQ(CreateProcessMonitor() + OpenProcessMonitor(), 0);
        EXPECT_EQ(PMStartMonitor(kTopic, nullptr, 20, 0), 0);
        EXPECT_NE(CloseProcessMonitor(), 0);
        EXPECT_EQ(state().first, static_cast<unsigned long>(kMonitorSnapshots));
        EXPECT_NE(CloseProcessMonitor(), 0);
        EXPECT_EQ(PMStopMonitor(), 6);
        EXPECT_TRUE(i == 0 || before.isReachedAgain(100));
    }
    EXPECT_EQ(CreateProcessMonitor(), 0);
    Replaced<"CreateThread",
             HANDLE(WINAPI*)(SECURITY_ATTRIBUTES*, SIZE_T, LPTHREAD_START_ROUTINE, void*, DWORD, DWORD*)>
        threads;
    threads.failCall(1, nullptr, ERROR_NO_SYSTEM_RESOURCES);
    EXPECT_EQ(PMStartMonitor(kTopic, nullptr, 20, 0), 1450);
    EXPECT_EQ(state().first, static_cast<unsigned long>(kMonitorStopped));
    EXPECT_NE(CloseProcessMonitor(), 0);
    EXPECT_TRUE(before.isReachedAgain(100));
}
