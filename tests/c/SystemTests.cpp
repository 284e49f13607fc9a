// Processes, restore points, snapshots and connections through the C interface.

#include <array>
#include <cstring>
#include <thread>

#include "c/Calls.h"

namespace {
constexpr std::uint32_t kLong = 60000;

std::wstring besideTests(const wchar_t* name)
{
    wchar_t path[MAX_PATH];
    GetModuleFileNameW(nullptr, path, MAX_PATH);
    return std::wstring(path).substr(0, std::wstring_view(path).rfind(L'\\') + 1) + name;
}
} // namespace

TEST(CProcess, IsFoundHeldAndEnded)
{
    const std::wstring program = besideTests(L"process_child.exe");
    const wchar_t* const sleep = L"sleep";
    SessionProgram start{};
    DWORD session = 0;
    ProcessIdToSessionId(GetCurrentProcessId(), &session);
    start.session = session;
    start.program = program.c_str();
    start.arguments = &sleep;
    start.argumentCount = 1;
    unsigned long id = 0, code = 0;
    char* output = nullptr;
    std::size_t size = 0;
    ASSERT_EQ(SessionRunProgram(&start, &id, &code, &output, &size), 0);
    utilsFreeMemory(output);

    ASSERT_EQ(CreateProcessManager(), 0);
    ProcessEntry* entry = nullptr;
    ThreadEntry* threads = nullptr;
    ModuleEntry* modules = nullptr;
    ASSERT_EQ(PMFindById(id, &entry), 0);
    ASSERT_EQ(PMListThreads(id, &threads, &size), 0);
    void* process = nullptr;
    void* same = nullptr;
    void* thread = nullptr;
    void* module = nullptr;
    int is = 7;
    ASSERT_EQ(sysmaint_process_create(entry, L"c child", &process), 0);
    ASSERT_EQ(sysmaint_process_open(L"c child", &same), 0);
    EXPECT_EQ(same, process);
    ProcessDetails* details = nullptr; // in C an entry and what follows it
    EXPECT_EQ(ProcessGetDetails(process, &details), 0);
    EXPECT_EQ(reinterpret_cast<char*>(&details->hasParent), reinterpret_cast<char*>(details) + sizeof *entry);
    ASSERT_EQ(sysmaint_thread_create(&threads[0], &thread), 0);
    EXPECT_EQ(ThreadIsRunning(thread, &is), 0);
    EXPECT_EQ(is, 1);
    ASSERT_EQ(PMListModules(GetCurrentProcessId(), &modules, &size), 0);
    ASSERT_EQ(sysmaint_module_create(&modules[0], &module), 0);
    EXPECT_EQ(ModuleIsLoaded(module, &is), 0);
    EXPECT_EQ(is, 1);
    void* none = &none;
    expectCodes({
        {"another's name", [&] { return sysmaint_process_create(entry, L"1@2", &none); }, 87},
        {"unknown", [&] { return sysmaint_process_open(L"c stranger", &none); }, 1168},
        {"unknown thread", [&] { return sysmaint_thread_open(L"c stranger", &none); }, 1168},
    });
    expectNulls("create", sysmaint_process_create, entry, nullptr, &none);
    expectNulls("open", sysmaint_process_open, L"c child", &none);
    expectNulls("thread", sysmaint_thread_create, &threads[0], &none);
    expectNulls("open thread", sysmaint_thread_open, L"c child", &none);
    expectNulls("module", sysmaint_module_create, &modules[0], &none);
    EXPECT_EQ(none, static_cast<void*>(&none));
    EXPECT_EQ(ProcessEnd(process, 0, kLong), 0);
    EXPECT_EQ(ProcessIsRunning(same, &is), 0);
    EXPECT_EQ(is, 0);
    EXPECT_NE(CloseProcess(process), 0);
    EXPECT_NE(CloseProcess(same), 0);
    EXPECT_NE(CloseThread(thread), 0);
    EXPECT_NE(CloseModule(module), 0);
    EXPECT_NE(CloseProcessManager(), 0);
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
    const auto restore = [&](std::uint32_t mode, const wchar_t* program) {
        return sysmaint_snapshot_restore(mode, program, nullptr, nullptr, nullptr, nullptr);
    };
    expectCodes({
        {"number", [&] { return sysmaint_restore_point_number(manager, &number); }, 0},
        {"mode", [&] { return restore(4, tool.c_str()); }, 87},
        {"time", [&] { return restore(SYSMAINT_SNAPSHOT_TIME, tool.c_str()); }, 87},
        {"named", [&] { return restore(SYSMAINT_SNAPSHOT_NAMED, tool.c_str()); }, 87},
        {"refused", [&] { return snapshot(L"a\" /r"); }, 31},
    });
    expectNulls("number", sysmaint_restore_point_number, manager, &number);
    expectNulls("create", sysmaint_snapshot_create, L"x", L"x", nullptr, nullptr, nullptr);
    expectNulls("restore", sysmaint_snapshot_restore, 0, L"x", nullptr, nullptr, nullptr, nullptr);
    EXPECT_EQ(number, 0);
    EXPECT_FALSE(Folder::isThere(record)) << "the tool ran";
    const auto ran = [&] {
        const bool was = Folder::isThere(record);
        DeleteFileW(record.c_str());
        return was;
    };
    EXPECT_EQ(snapshot(L"name"), 0);
    EXPECT_TRUE(ran());
    EXPECT_EQ(restore(SYSMAINT_SNAPSHOT_BASELINE, tool.c_str()), 0);
    EXPECT_TRUE(ran());
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
        EXPECT_EQ(
            sysmaint_connection_socket(L"c server", SYSMAINT_CONNECTION_SERVER, L"127.0.0.1", 0, &server), 0);
        EXPECT_EQ(ConnectionListen(server, kLong, nullptr), 0);
        EXPECT_EQ(ConnectionGetPort(server, &port), 0);
    }
    ~CConnection() override { CloseConnection(server); }
    void connect()
    {
        EXPECT_EQ(
            sysmaint_connection_socket(L"c client", SYSMAINT_CONNECTION_CLIENT, L"127.0.0.1", port, &client),
            0);
        std::thread accepting([&] { EXPECT_EQ(ConnectionAccept(server, kLong, nullptr, &accepted), 0); });
        EXPECT_EQ(ConnectionConnect(client, kLong, nullptr), 0);
        accepting.join();
    }

    void* server = nullptr;
    void* client = nullptr;
    void* accepted = nullptr;
    unsigned short port = 0;
};
} // namespace

TEST_F(CConnection, CarriesMessagesAsBytesAndRefusesWhatIsNone)
{
    connect();
    // Topic number 7, message 9.
    const std::array<std::uint32_t, 3> sent{1, 7, 9};
    std::uint32_t kind = 99;
    std::uint64_t size = 99;
    void* bytes = nullptr;
    const auto send = [&](std::uint32_t as, std::uint64_t length) {
        return sysmaint_connection_send(client, as, sent.data(), length, kLong, nullptr);
    };
    expectCodes({
        {"kind", [&] { return send(6, sizeof sent); }, 13},
        {"too few", [&] { return send(SYSMAINT_MESSAGE_PLAIN, sizeof sent - 1); }, 13},
        {"another kind", [&] { return send(SYSMAINT_MESSAGE_PARAMETERS, sizeof sent); }, 13},
        {"a server", [&] { return sysmaint_connection_send(server, 0, &sent, 12, kLong, nullptr); }, 2250},
        {"too early", [&] { return sysmaint_connection_receive(accepted, 0, nullptr, &kind, &bytes, &size); },
         258},
        {"a message", [&] { return send(SYSMAINT_MESSAGE_PLAIN, sizeof sent); }, 0},
        {"arrives",
         [&] { return sysmaint_connection_receive(accepted, kLong, nullptr, &kind, &bytes, &size); }, 0},
        {"role", [&] { return sysmaint_connection_pipe(L"c", 2, &server); }, 87},
        {"pipe's name", [&] { return sysmaint_connection_pipe(L"a/b", 0, &server); }, 87},
        {"port", [&] { return sysmaint_connection_socket(L"c", 0, L"localhost", 65536, &server); }, 87},
    });
    void* none = nullptr;
    expectNulls("send", sysmaint_connection_send, client, 0, sent.data(), sizeof sent, 0, nullptr);
    expectNulls("receive", sysmaint_connection_receive, accepted, 0, nullptr, &kind, &bytes, &size);
    expectNulls("pipe", sysmaint_connection_pipe, L"c", 0, &none);
    expectNulls("socket", sysmaint_connection_socket, L"c", 0, L"localhost", 1, &none);
    EXPECT_EQ(kind, SYSMAINT_MESSAGE_PLAIN);
    ASSERT_EQ(size, sizeof sent);
    EXPECT_EQ(std::memcmp(bytes, sent.data(), size), 0);
    utilsFreeMemory(bytes);
    CloseConnection(client);
    EXPECT_EQ(sysmaint_connection_receive(accepted, kLong, nullptr, &kind, &bytes, &size), 109);
    CloseConnection(accepted);
}
