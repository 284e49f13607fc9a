// Processes, restore points, snapshots and connections through the C interface.

#include <array>
#include <atomic>
#include <cstring>
#include <thread>

#include "c/Calls.h"
#include "support/Process.h"

namespace {
constexpr std::uint32_t kLong = 60000;

/// A process that sleeps until it is ended.
unsigned long startSleeper()
{
    const std::wstring program = besideTests(L"process_child.exe");
    const wchar_t* const sleep = L"sleep";
    DWORD session = 0;
    ProcessIdToSessionId(GetCurrentProcessId(), &session);
    const SessionProgram start{session, 0, program.c_str(), &sleep, 1, nullptr, 0, nullptr};
    unsigned long id = 0, code = 0;
    char* output = nullptr;
    std::size_t size = 0;
    EXPECT_EQ(SessionRunProgram(&start, &id, &code, &output, &size), 0);
    utilsFreeMemory(output);
    return id;
}

/// A topic with a callback that keeps the number of each message, a text and a number in it as a line.
class Topic
{
public:
    explicit Topic(const wchar_t* name, const wchar_t* text = nullptr, const wchar_t* number = nullptr)
        : m_text(text), m_number(number)
    {
        EXPECT_EQ(sysmaint_topic_create(name, &handle), 0);
        EXPECT_EQ(sysmaint_topic_subscribe(handle, SYSMAINT_ROLE_HANDLER, &take, this, &m_subscription), 0);
    }
    Topic(const Topic&) = delete;
    Topic& operator=(const Topic&) = delete;
    ~Topic()
    {
        EXPECT_EQ(sysmaint_topic_unsubscribe(m_subscription, kLong), 0);
        EXPECT_EQ(sysmaint_topic_close(handle), 0);
    }
    /// What has come once there are as many lines.
    const std::vector<std::wstring>& lines(std::size_t count)
    {
        for (std::uint32_t waited = 0; m_count < count && waited < kLong; waited += 10)
            Sleep(10);
        return m_lines;
    }

    sysmaint_topic* handle = nullptr;

private:
    static std::int32_t take(void* context, const sysmaint_delivery* delivery)
    {
        auto& self = *static_cast<Topic*>(context);
        sysmaint_message_info info{sizeof info, 0, 0, 0, nullptr};
        EXPECT_EQ(sysmaint_message_get_info(delivery->message, &info), 0);
        const wchar_t* text = L"";
        std::uint32_t number = 0;
        if (self.m_text != nullptr) {
            EXPECT_EQ(sysmaint_message_text(delivery->message, self.m_text, &text), 0);
            EXPECT_EQ(sysmaint_message_number(delivery->message, self.m_number, &number), 0);
        }
        self.m_lines.push_back(std::to_wstring(info.id) + L' ' + text + L' ' + std::to_wstring(number));
        ++self.m_count;
        return 0;
    }

    const wchar_t* m_text;
    const wchar_t* m_number;
    sysmaint_subscription* m_subscription = nullptr;
    std::vector<std::wstring> m_lines;
    std::atomic<std::size_t> m_count{0};
};
using Lines = std::vector<std::wstring>;
} // namespace

TEST(CProcess, AMonitorBringsStartsAndEndsToACallback)
{
    Topic topic(L"c monitor", L"ImageName", L"ProcessId");
    EXPECT_EQ(CreateProcessMonitor(), 0);
    EXPECT_EQ(PMStartMonitor(L"c monitor", L"process_child*", 10, 0), 0);
    const unsigned long id = startSleeper();
    const std::wstring process = L" process_child.exe " + std::to_wstring(id);
    EXPECT_EQ(topic.lines(1).size(), 1U);
    EXPECT_EQ(ProcessTerminateTree(id, kLong), 0);
    EXPECT_EQ(topic.lines(2), (Lines{L"1" + process, L"2" + process}));
    EXPECT_EQ(PMStopMonitor(), 0);
    EXPECT_NE(CloseProcessMonitor(), 0);
}

TEST(CProcess, IsFoundHeldAndEnded)
{
    const unsigned long id = startSleeper();
    std::size_t size = 0;
    ASSERT_EQ(CreateProcessManager(), 0);
    ProcessEntry* entry = nullptr;
    ProcessDetails* details = nullptr;
    ThreadEntry* threads = nullptr;
    ModuleEntry* modules = nullptr;
    ASSERT_EQ(PMFindById(id, &entry), 0);
    ASSERT_EQ(PMListThreads(id, &threads, &size), 0);
    ASSERT_EQ(PMListModules(GetCurrentProcessId(), &modules, &size), 0);
    void *process = nullptr, *same = nullptr, *thread = nullptr, *module = nullptr;
    int threadRuns = 0, isLoaded = 0, runs = 7;
    void* none = &none;
    expectCodes({
        {"create", [&] { return sysmaint_process_create(entry, L"c child", &process); }, 0},
        {"open", [&] { return sysmaint_process_open(L"c child", &same); }, 0},
        {"thread", [&] { return sysmaint_thread_create(&threads[0], &thread); }, 0},
        {"module", [&] { return sysmaint_module_create(&modules[0], &module); }, 0},
        {"another's name", [&] { return sysmaint_process_create(entry, L"1@2", &none); }, 87},
        {"unknown", [&] { return sysmaint_process_open(L"c stranger", &none); }, 1168},
        {"unknown thread", [&] { return sysmaint_thread_open(L"c stranger", &none); }, 1168},
        {"details", [&] { return ProcessGetDetails(process, &details); }, 0},
        {"thread runs", [&] { return ThreadIsRunning(thread, &threadRuns); }, 0},
        {"is loaded", [&] { return ModuleIsLoaded(module, &isLoaded); }, 0},
        {"end", [&] { return ProcessEnd(process, 0, kLong); }, 0},
        {"runs", [&] { return ProcessIsRunning(same, &runs); }, 0},
    });
    EXPECT_EQ(std::vector({same == process, threadRuns == 1, isLoaded == 1, runs == 0}),
              std::vector(4, true));
    // In C the details are an entry and what follows it.
    EXPECT_EQ(reinterpret_cast<char*>(&details->hasParent), reinterpret_cast<char*>(details) + sizeof *entry);
    EXPECT_EQ(none, static_cast<void*>(&none));
    EXPECT_EQ(std::vector({CloseProcess(process), CloseProcess(same), CloseProcess(same), CloseThread(thread),
                           CloseModule(module), CloseProcessManager()}),
              (std::vector{1, 1, 0, 1, 1, 1}));
    for (void* memory : std::initializer_list<void*>{entry, details, threads, modules})
        utilsFreeMemory(memory);
}

TEST(CRestore, TellsItsNumberAndRunsTheToolForSnapshots)
{
    const Folder folder;
    const std::wstring tool = besideTests(L"snapshot_tool.exe");
    const std::wstring record = folder.at(L"record");
    SetEnvironmentVariableW(L"SYSMAINT_TOOL_RECORD", record.c_str());
    void* const manager = CreateRestoreManager(L"c");
    std::int64_t number = 7;
    const auto snapshot = [&](const wchar_t* name) {
        return sysmaint_snapshot_create(tool.c_str(), name, nullptr, nullptr, nullptr);
    };
    const auto restore = [&](std::uint32_t mode) {
        return sysmaint_snapshot_restore(mode, tool.c_str(), nullptr, nullptr, nullptr, nullptr);
    };
    expectCodes({
        {"number", [&] { return sysmaint_restore_point_number(manager, &number); }, 0},
        {"time", [&] { return restore(SYSMAINT_SNAPSHOT_TIME); }, 87},
        {"named", [&] { return restore(SYSMAINT_SNAPSHOT_NAMED); }, 87},
        {"refused", [&] { return snapshot(L"a\" /r"); }, 31},
    });
    EXPECT_EQ(number, 0);
    EXPECT_FALSE(Folder::isThere(record)) << "the tool ran";
    EXPECT_EQ(snapshot(L"name"), 0);
    EXPECT_NE(DeleteFileW(record.c_str()), 0) << "it did not";
    EXPECT_EQ(restore(SYSMAINT_SNAPSHOT_BASELINE), 0);
    EXPECT_NE(DeleteFileW(record.c_str()), 0);
    EXPECT_NE(CloseRestoreManager(manager), 0);
    EXPECT_EQ(sysmaint_restore_point_number(manager, &number), 6);
}

namespace {
/// A server, its client, and the server's end of that.
class CConnection : public testing::Test
{
protected:
    CConnection()
    {
        EXPECT_EQ(sysmaint_connection_socket(L"c server", 1, L"127.0.0.1", 0, &server), 0);
        EXPECT_EQ(ConnectionListen(server, kLong, nullptr), 0);
        EXPECT_EQ(ConnectionGetPort(server, &port), 0);
        EXPECT_EQ(sysmaint_connection_socket(L"c client", 0, L"127.0.0.1", port, &client), 0);
    }
    ~CConnection() override
    {
        for (void* each : {server, client, accepted})
            CloseConnection(each);
    }

    void* server = nullptr;
    void* client = nullptr;
    void* accepted = nullptr;
    unsigned short port = 0;
};
} // namespace

TEST_F(CConnection, CarriesMessagesAsBytesAndRefusesWhatIsNone)
{
    std::thread accepting([&] { EXPECT_EQ(ConnectionAccept(server, kLong, nullptr, &accepted), 0); });
    EXPECT_EQ(ConnectionConnect(client, kLong, nullptr), 0);
    accepting.join();
    // Topic number 7, message 9.
    const std::array<std::uint32_t, 3> sent{1, 7, 9};
    std::uint32_t kind = 99;
    std::uint64_t size = 99;
    void* bytes = nullptr;
    const auto receive = [&](std::uint32_t timeout) {
        return sysmaint_connection_receive(accepted, timeout, nullptr, &kind, &bytes, &size);
    };
    const auto send = [&](std::uint32_t as, std::uint64_t length) {
        return sysmaint_connection_send(client, as, sent.data(), length, kLong, nullptr);
    };
    expectCodes({
        {"kind", [&] { return send(6, sizeof sent); }, 13},
        {"too few", [&] { return send(SYSMAINT_MESSAGE_PLAIN, sizeof sent - 1); }, 13},
        {"another kind", [&] { return send(SYSMAINT_MESSAGE_PARAMETERS, sizeof sent); }, 13},
        {"a server", [&] { return sysmaint_connection_send(server, 0, &sent, 12, kLong, nullptr); }, 2250},
        {"too early", [&] { return receive(0); }, 258},
        {"a message", [&] { return send(SYSMAINT_MESSAGE_PLAIN, sizeof sent); }, 0},
        {"arrives", [&] { return receive(kLong); }, 0},
        {"pipe's name", [&] { return sysmaint_connection_pipe(L"a/b", 0, &server); }, 87},
    });
    EXPECT_EQ(kind, SYSMAINT_MESSAGE_PLAIN);
    ASSERT_EQ(size, sizeof sent);
    EXPECT_EQ(std::memcmp(bytes, sent.data(), size), 0);
    utilsFreeMemory(bytes);
    EXPECT_EQ(ConnectionDisconnect(client), 0);
    EXPECT_EQ(receive(kLong), 109);
}

TEST_F(CConnection, LookupsAreAnsweredToACallback)
{
    const Folder folder;
    const std::wstring path = folder.file(L"file", 3);
    Topic topic(L"HVKResponses", L"Path", L"HVKStatus");
    void* const queue = CreateHVK(L"c lookup", 77);
    std::thread serving([&] {
        std::array<char, 29> request{}; // of one file
        EXPECT_EQ(ConnectionAccept(server, kLong, nullptr, &accepted), 0);
        EXPECT_EQ(ConnectionReadAll(accepted, request.data(), request.size(), kLong, nullptr), 0);
        std::array<char, 6> answer{};
        std::memcpy(answer.data(), request.data() + 1, 5);
        answer.back() = 42;
        EXPECT_EQ(ConnectionWrite(accepted, answer.data(), answer.size(), kLong, nullptr), 0);
    });
    EXPECT_EQ(HVKSetServer(queue, L"127.0.0.1", port, kLong), 0);
    expectCodes({
        {"no name", [&] { return sysmaint_lookup_add(queue, L"", 0); }, 87},
        {"priority", [&] { return sysmaint_lookup_add(queue, path.c_str(), INT32_MIN); }, 87},
        {"file", [&] { return sysmaint_lookup_add(queue, path.c_str(), 0); }, 0},
    });
    EXPECT_EQ(HVKWait(queue, kLong, nullptr), 0);
    serving.join();
    EXPECT_EQ(sysmaint_topic_consume_all(topic.handle, kLong), 0);
    EXPECT_EQ(topic.lines(1), Lines{L"77 " + path + L" 42"});
    EXPECT_NE(CloseHVK(queue), 0);
}

TEST_F(CConnection, AReporterForwardsToAListener)
{
    Topic here(L"c near"), there(L"c far");
    void *listener = nullptr, *none = nullptr;
    sysmaint_reporter* reporter = nullptr;
    sysmaint_message* message = nullptr;
    sysmaint_listener_state heard{sizeof heard, 7, 7, 7, 7, 7, 7};
    sysmaint_reporter_state told{sizeof told, 7, 7, 7, 7, 7, 7};
    expectCodes({
        {"a client", [&] { return sysmaint_listener_create(L"c", client, there.handle, nullptr, &none); }, 1},
        {"listen",
         [&] { return sysmaint_listener_create(L"c listener", server, there.handle, nullptr, &listener); },
         0},
        {"report", [&] { return sysmaint_reporter_create(client, here.handle, nullptr, &reporter); }, 0},
        {"message", [&] { return sysmaint_message_create(SYSMAINT_MESSAGE_PLAIN, L"", 9, &message); }, 0},
        {"post", [&] { return sysmaint_topic_post(here.handle, message, nullptr); }, 0},
        {"near", [&] { return sysmaint_topic_consume_all(here.handle, kLong); }, 0},
        {"flush", [&] { return sysmaint_reporter_flush(reporter, kLong, nullptr); }, 0},
        {"far", [&] { return sysmaint_topic_consume_all(there.handle, kLong); }, 0},
        {"heard", [&] { return sysmaint_listener_get_state(listener, &heard); }, 0},
        {"stop", [&] { return sysmaint_reporter_stop(reporter); }, 0},
        {"refused", [&] { return sysmaint_topic_send(here.handle, message, nullptr, nullptr, nullptr); }, 0},
        {"told", [&] { return sysmaint_reporter_get_state(reporter, &told); }, 0},
        {"close", [&] { return sysmaint_reporter_close(reporter, kLong); }, 0},
        {"stale", [&] { return sysmaint_reporter_stop(reporter); }, 6},
        {"its message", [&] { return sysmaint_message_close(message); }, 0},
    });
    EXPECT_EQ(there.lines(1), Lines{L"9  0"});
    EXPECT_EQ(std::vector({told.delivered, told.waiting, told.refused, heard.posted, heard.sent}),
              (std::vector<std::uint64_t>{1, 0, 1, 1, 0}));
    EXPECT_EQ(std::vector({told.refusal, told.connection, heard.code}),
              (std::vector<std::int32_t>{1223, 0, 0}));
    EXPECT_EQ(heard.clients, 1U);
    EXPECT_NE(CloseMessageListener(listener), 0);
}
