#include <winsock2.h>

#include "support/Faults.h"
#include "support/FtpServers.h"

#include <sddl.h>

namespace {
DataMessage dataOf(std::size_t size, std::uint32_t id)
{
    std::string bytes(size, '\0');
    for (std::size_t i = 0; i < size; ++i)
        bytes[i] = static_cast<char>(i * 31 + id);
    DataMessage message(L"data", id);
    message.setData(bytes.data(), bytes.size());
    return message;
}
} // namespace

class Connections : public testing::TestWithParam<std::pair<bool, const wchar_t*>>
{
protected:
    Connected m_peers{GetParam().first, GetParam().second};
};
INSTANTIATE_TEST_SUITE_P(Kinds, Connections,
                         testing::Values(std::pair(true, L""), std::pair(false, L"127.0.0.1"),
                                         std::pair(false, L"*")));

TEST_P(Connections, CarryMessagesOfAllClasses)
{
    HashMessageW hash(L"topic", 3);
    EXPECT_EQ(hash.setParameter(L"number", 42U), ERROR_SUCCESS);
    ArrayMessage array(7U, 4);
    array.addElement(makeShared<SerializableW, ParameterW>(3, "abc"));
    const MessageW plain(L"topic", 1);
    const DataMessage data(dataOf(5, 2));
    const std::pair<MessageClass, const MessageW*> rows[] = {{MessageClass::MessageW, &plain},
                                                             {MessageClass::DataMessage, &data},
                                                             {MessageClass::HashMessageW, &hash},
                                                             {MessageClass::ArrayMessage, &array}};
    AnyMessage received;
    for (const auto& [messageClass, message] : rows) {
        ASSERT_EQ(ConnectionSendMessage(m_peers.client.get(), *message, 60000, nullptr), ERROR_SUCCESS);
        ASSERT_EQ(m_peers.receive(received), ERROR_SUCCESS);
        EXPECT_EQ(received.messageClass, messageClass);
        EXPECT_FALSE(received.narrow);
        EXPECT_EQ(dumped(*received.wide), dumped(*message));
    }
    HashMessageA narrow("topic", 5);
    EXPECT_EQ(narrow.setParameter("name", "value"), ERROR_SUCCESS);
    ASSERT_EQ(ConnectionSendMessage(m_peers.client.get(), narrow, 60000, nullptr), ERROR_SUCCESS);
    ASSERT_EQ(m_peers.receive(received), ERROR_SUCCESS);
    EXPECT_EQ(received.messageClass, MessageClass::HashMessageA);
    const char* value = nullptr;
    EXPECT_EQ(static_cast<HashMessageA&>(*received.narrow).getParameter("name", value), ERROR_SUCCESS);
    EXPECT_STREQ(value, "value");
}

// Both directions at once, in the order of sending, with a few that no buffer of the system holds.
TEST_P(Connections, CarryThousandsOfMessagesBothWays)
{
    const auto sizeOf = [](std::uint32_t i) {
        return i % 500 == 0 ? 1U << 24U : i % 100 == 0 ? 1U << 16U : i % 7;
    };
    onThreadsAtOnce(4, [&](int number) {
        void* end = number % 2 == 0 ? m_peers.client.get() : m_peers.accepted.get();
        for (std::uint32_t i = 1; i <= 1000; ++i) {
            const DataMessage expected = dataOf(sizeOf(i), i);
            if (number < 2) {
                ASSERT_EQ(ConnectionSendMessage(end, expected, 60000, nullptr), ERROR_SUCCESS) << i;
                continue;
            }
            AnyMessage message;
            ASSERT_EQ(ConnectionReceiveMessage(end, message, nullptr, 60000, nullptr), ERROR_SUCCESS) << i;
            const auto& data = dynamic_cast<const DataMessage&>(*message.wide);
            ASSERT_EQ(data.getId(), i);
            ASSERT_EQ(data.getSize(), expected.getSize());
            ASSERT_EQ(std::memcmp(data.getData(), expected.getData(), expected.getSize()), 0);
        }
    });
}

TEST_P(Connections, EndThoseOfAPeerThatBreaksTheForm)
{
    const std::string body = dumped(MessageW(L"topic", 1));
    const std::pair<std::string, long> rows[] = {
        {framed(0, body).substr(0, 3), ERROR_BROKEN_PIPE},
        {framed(0, body).substr(0, 8), ERROR_BROKEN_PIPE},
        {framed(0, body).substr(0, 8 + body.size() - 1), ERROR_BROKEN_PIPE},
        {bytesOf(0xFFFFFFFFU) + bytesOf(1U) + body, ERROR_MESSAGE_EXCEEDS_MAX_SIZE},
        {bytesOf((64U << 20U) + 1) + bytesOf(1U) + body, ERROR_MESSAGE_EXCEEDS_MAX_SIZE},
        {bytesOf(64U << 20U) + bytesOf(1U) + body, ERROR_BROKEN_PIPE}, // allowed, but it does not come
        {framed(6, body), ERROR_INVALID_DATA},
        {framed(0xFFFFFFFF, body), ERROR_INVALID_DATA},
        {framed(0, body + "x"), ERROR_INVALID_DATA},
        {framed(0, body.substr(1)), ERROR_INVALID_DATA},
        {framed(3, body + bytesOf(0xFFFFFFFFU)), ERROR_INVALID_DATA},
        {framed(2, body + bytesOf(0xFFFFFFFFU)), ERROR_INVALID_DATA},
        {framed(1, ""), ERROR_INVALID_DATA},
        {"", ERROR_BROKEN_PIPE}};
    for (const auto& [bytes, code] : rows) {
        SCOPED_TRACE(testing::PrintToString(bytes));
        m_peers.writeAndClose(bytes);
        AnyMessage message;
        EXPECT_EQ(m_peers.receive(message), code);
        EXPECT_FALSE(message.wide || message.narrow);
        EXPECT_EQ(m_peers.receive(message), bytes.empty() ? ERROR_BROKEN_PIPE : ERROR_NOT_CONNECTED);
        m_peers.connect();
    }
    EXPECT_EQ(ConnectionSetMessageLimit(m_peers.client.get(), 100), ERROR_SUCCESS);
    EXPECT_EQ(ConnectionSendMessage(m_peers.client.get(), dataOf(100, 1), 60000, nullptr),
              ERROR_MESSAGE_EXCEEDS_MAX_SIZE);
    EXPECT_EQ(ConnectionSendMessage(m_peers.client.get(), MessageW(L"", 1), 60000, nullptr), ERROR_SUCCESS);
    AnyMessage message;
    EXPECT_EQ(m_peers.receive(message), ERROR_SUCCESS) << "of the refused one nothing has been sent";
}

// Each wait ends with its time, the cancel event and the disconnection, and leaves what can go on usable.
TEST_P(Connections, EndEveryWaitAtOnce)
{
    char byte = 0;
    std::size_t done = 0;
    void* accepted = nullptr;
    AnyMessage got;
    const std::vector<char> big(std::size_t{32} << 20U);
    const auto client = [&] { return m_peers.client.get(); };
    const auto server = [&] { return m_peers.server.get(); };
    const std::pair<std::string, std::function<long(DWORD, void*)>> calls[] = {
        {"read", [&](DWORD time, void* end) { return ConnectionRead(client(), &byte, 1, time, end, &done); }},
        {"receive",
         [&](DWORD time, void* end) { return ConnectionReceiveMessage(client(), got, nullptr, time, end); }},
        {"write",
         [&](DWORD time, void* end) { return ConnectionWrite(client(), big.data(), big.size(), time, end); }},
        {"accept", [&](DWORD time, void* end) { return ConnectionAccept(server(), time, end, &accepted); }}};
    for (const auto& each : calls) {
        const auto& [name, call] = each;
        SCOPED_TRACE(name);
        long other = name == "accept" ? ERROR_BUSY : ERROR_SUCCESS; // many may accept at the same time
        {
            const Multiple waits(
                before([&](auto...) { other = other != ERROR_BUSY ? each.second(0, nullptr) : other; }));
            EXPECT_EQ(call(50, nullptr), WAIT_TIMEOUT);
        }
        EXPECT_EQ(other, ERROR_BUSY) << "for who does the same meanwhile";
        if (name == "write") {
            EXPECT_EQ(call(50, nullptr), ERROR_NOT_CONNECTED);
            m_peers.renew();
        }
        const TestEvent cancel;
        const std::jthread canceller([&] { Sleep(50), cancel.set(); });
        EXPECT_EQ(call(60000, cancel.get()), ERROR_CANCELLED);
        EXPECT_EQ(call(60000, cancel.get()), ERROR_CANCELLED) << "signalled before";
        if (name == "write")
            m_peers.renew();
        EXPECT_EQ(ConnectionWrite(m_peers.accepted.get(), "x", 1, 60000, nullptr), ERROR_SUCCESS);
        EXPECT_EQ(ConnectionReadAll(client(), &byte, 1, 60000, nullptr), ERROR_SUCCESS);
        void* const waiting = name == "accept" ? m_peers.server.get() : client();
        std::thread stopper([&] { Sleep(50), ConnectionDisconnect(waiting); });
        EXPECT_EQ(call(60000, nullptr), ERROR_NOT_CONNECTED);
        stopper.join();
        m_peers.renew();
    }
}

TEST_P(Connections, ServeManyClientsAtOnce)
{
    constexpr int kClients = 64;
    ProcessCounts before = ProcessCounts::now();
    before.blocks = LONG_MAX; // the table of connections keeps its room
    before.handles += 2;      // and the system what so many threads at once have needed
    onThreadsAtOnce(2 * kClients, [&](int number) {
        AnyMessage message;
        if (number < kClients) {
            void* handle = nullptr;
            ASSERT_EQ(ConnectionAccept(m_peers.server.get(), 60000, nullptr, &handle), ERROR_SUCCESS);
            const ConnectionHandle client(handle);
            ASSERT_EQ(ConnectionReceiveMessage(handle, message, nullptr, 60000, nullptr), ERROR_SUCCESS);
            ASSERT_EQ(ConnectionSendMessage(handle, *message.wide, 60000, nullptr), ERROR_SUCCESS);
            ASSERT_EQ(ConnectionReceiveMessage(handle, message, nullptr, 60000, nullptr), ERROR_BROKEN_PIPE);
        } else {
            const ConnectionHandle client = m_peers.makeClient(std::to_wstring(number).c_str());
            ASSERT_EQ(ConnectionConnect(client.get(), 60000, nullptr), ERROR_SUCCESS);
            const auto id = static_cast<std::uint32_t>(number);
            ASSERT_EQ(ConnectionSendMessage(client.get(), MessageW(L"", id), 60000, nullptr), ERROR_SUCCESS);
            ASSERT_EQ(ConnectionReceiveMessage(client.get(), message, nullptr, 60000, nullptr), 0);
            EXPECT_EQ(message.wide->getId(), id);
        }
    });
    EXPECT_TRUE(before.isReachedAgain());
}

TEST_P(Connections, LoseNothingWhenACallFails)
{
    failEachCall(
        [&] {
            m_peers.renew();
            m_peers.accepted.reset();
            ConnectionDisconnect(m_peers.client.get());
        },
        [&]() -> long {
            void* accepted = nullptr;
            AnyMessage message;
            long code = ConnectionConnect(m_peers.client.get(), 60000, nullptr);
            if (code == ERROR_SUCCESS)
                code = ConnectionAccept(m_peers.server.get(), 60000, nullptr, &accepted);
            if (code == ERROR_SUCCESS)
                code = ConnectionSendMessage(m_peers.client.get(), MessageW(L"t", 1), 60000, nullptr);
            if (code == ERROR_SUCCESS)
                code = ConnectionReceiveMessage(accepted, message, nullptr, 60000, nullptr);
            CloseConnection(accepted);
            ConnectionDisconnect(m_peers.client.get());
            return code;
        },
        [](const std::string& import, long code) {
            // The event tells a thread that waits at the same time; nobody does here.
            EXPECT_EQ(code, import == "SetEvent" ? ERROR_SUCCESS : static_cast<long>(kFailure)) << import;
        });
}

TEST(ConnectionArguments, AreRefusedWhenTheyAreWrong)
{
    const auto code = [](void* handle) {
        const long last = static_cast<long>(GetLastError());
        return CloseConnection(handle) != 0 ? ERROR_SUCCESS : last;
    };
    const auto pipe = [&](const wchar_t* name, ConnectionRole role = kServer) {
        return code(CreatePipeConnection(name, role));
    };
    for (const wchar_t* name : std::initializer_list<const wchar_t*>{L"", L".", L"..", L"..\\x", L"a/b",
                                                                     L"../x", L"a\n", L"a*", L"a ", L"\\a"})
        EXPECT_EQ(pipe(name), ERROR_INVALID_PARAMETER) << name;
    EXPECT_EQ(pipe(std::wstring(248, L'a').c_str()), ERROR_INVALID_PARAMETER);
    EXPECT_EQ(pipe(std::wstring(247, L'a').c_str()), ERROR_SUCCESS);
    EXPECT_EQ(pipe(L"a", static_cast<ConnectionRole>(2)), ERROR_INVALID_PARAMETER);
    EXPECT_EQ(pipe(nullptr), ERROR_INVALID_PARAMETER);
    const auto socket = [&](ConnectionRole role, const wchar_t* host, unsigned short port, DWORD protocol) {
        return code(CreateSocketConnection(role, L"s", host, port, protocol));
    };
    for (const long refusal :
         {socket(kClient, L"h", 0, 0), socket(kClient, L"", 1, 0), socket(kClient, nullptr, 1, 0),
          socket(kClient, L"h", 1, 1), socket(static_cast<ConnectionRole>(2), L"h", 1, 0)})
        EXPECT_EQ(refusal, ERROR_INVALID_PARAMETER);

    Connected peers(true);
    std::size_t read = 0;
    char byte = 0;
    void* handle = nullptr;
    unsigned short port = 0;
    void* const client = peers.client.get();
    EXPECT_EQ(ConnectionRead(client, nullptr, 1, 0, nullptr, &read), ERROR_INVALID_PARAMETER);
    EXPECT_EQ(ConnectionRead(client, &byte, 0, 0, nullptr, &read), ERROR_INVALID_PARAMETER);
    EXPECT_EQ(ConnectionWrite(client, nullptr, 1, 0, nullptr), ERROR_INVALID_PARAMETER);
    EXPECT_EQ(ConnectionSetMessageLimit(client, 0), ERROR_INVALID_PARAMETER);
    const Win32Handle mutex(CreateMutexW(nullptr, FALSE, nullptr)); // which a wait would take
    AnyMessage message;
    for (const long code : {ConnectionRead(client, &byte, 1, 0, mutex.get(), &read),
                            ConnectionReadAll(client, &byte, 1, 0, mutex.get()),
                            ConnectionWrite(client, &byte, 1, 0, mutex.get()),
                            ConnectionSendMessage(client, HashMessageW(), 0, mutex.get()),
                            ConnectionReceiveMessage(client, message, nullptr, 0, mutex.get())})
        EXPECT_EQ(code, ERROR_INVALID_HANDLE);
    EXPECT_EQ(ConnectionConnect(client, 0, nullptr), ERROR_CONNECTION_ACTIVE);
    EXPECT_EQ(ConnectionAccept(client, 0, nullptr, &handle), ERROR_INVALID_FUNCTION);
    EXPECT_EQ(ConnectionConnect(peers.server.get(), 0, nullptr), ERROR_INVALID_FUNCTION);
    EXPECT_EQ(ConnectionGetPort(peers.server.get(), &port), ERROR_INVALID_FUNCTION);
    EXPECT_EQ(ConnectionRead(peers.server.get(), &byte, 1, 0, nullptr, &read), ERROR_NOT_CONNECTED);
    EXPECT_EQ(ConnectionConnect(peers.accepted.get(), 0, nullptr), ERROR_INVALID_FUNCTION);
    EXPECT_EQ(ConnectionDisconnect(nullptr), ERROR_INVALID_HANDLE);
}

// What the platform here does not enforce is at least asked of it.
TEST(PipeConnections, AskForASafePipe)
{
    std::vector<DWORD> modes;
    std::wstring access;
    DWORD clientFlags = 0;
    const Replaced<"CreateFileW", decltype(&CreateFileW)> files(
        before([&](auto, auto, auto, auto, auto, DWORD flags, auto) { clientFlags = flags; }));
    Replaced<"CreateNamedPipeW", decltype(&CreateNamedPipeW)> pipes(
        before([&](auto, DWORD open, DWORD mode, auto, auto, auto, auto, SECURITY_ATTRIBUTES* security) {
            modes.push_back(open);
            EXPECT_EQ(mode, DWORD{PIPE_REJECT_REMOTE_CLIENTS});
            EXPECT_FALSE(security->bInheritHandle);
            wchar_t* text = nullptr;
            ConvertSecurityDescriptorToStringSecurityDescriptorW(
                security->lpSecurityDescriptor, SDDL_REVISION_1, DACL_SECURITY_INFORMATION, &text, nullptr);
            access = text;
            LocalFree(text);
        }));
    {
        const Connected peers(true);
        ASSERT_GE(modes.size(), 2U);
        EXPECT_EQ(modes.front() & FILE_FLAG_FIRST_PIPE_INSTANCE, DWORD{FILE_FLAG_FIRST_PIPE_INSTANCE});
        EXPECT_EQ(modes.back() & FILE_FLAG_FIRST_PIPE_INSTANCE, 0U);
        EXPECT_EQ(clientFlags & (SECURITY_SQOS_PRESENT | SECURITY_VALID_SQOS_FLAGS),
                  DWORD{SECURITY_SQOS_PRESENT | SECURITY_IDENTIFICATION});
        EXPECT_TRUE(access.starts_with(L"D:P(A;;GA;;;BA)(A;;GA;;;")) << testing::PrintToString(access);
        EXPECT_EQ(std::count(access.begin(), access.end(), L'('), 2);
    }
    {
        // Without a next instance the name stays ours: a client finds the pipe busy, not gone.
        const ConnectionHandle server = Connected::makeServer(true);
        const ConnectionHandle client(CreatePipeConnection(L"sysmaint test\\client", kClient));
        void* accepted = nullptr;
        pipes.failCall(2, INVALID_HANDLE_VALUE, ERROR_NO_SYSTEM_RESOURCES);
        EXPECT_EQ(ConnectionListen(server.get(), 0, nullptr), ERROR_SUCCESS);
        EXPECT_EQ(ConnectionConnect(client.get(), 60000, nullptr), ERROR_SUCCESS);
        EXPECT_EQ(ConnectionAccept(server.get(), 60000, nullptr, &accepted), ERROR_NO_SYSTEM_RESOURCES);
        EXPECT_EQ(ConnectionDisconnect(client.get()), ERROR_SUCCESS);
        EXPECT_EQ(ConnectionConnect(client.get(), 100, nullptr), WAIT_TIMEOUT);
    }
    pipes.failCall(1, INVALID_HANDLE_VALUE, ERROR_ACCESS_DENIED);
    const ConnectionHandle squatted = Connected::makeServer(true);
    EXPECT_EQ(ConnectionListen(squatted.get(), 0, nullptr), ERROR_ACCESS_DENIED);
}

// What another language makes of the description of a frame, and a peer that dies in the middle of one.
TEST(SocketConnections, SpeakWithAPeerOfAnotherLanguage)
{
    const ConnectionHandle server = Connected::makeServer(false);
    unsigned short port = 0;
    ASSERT_EQ(ConnectionListen(server.get(), 60000, nullptr), ERROR_SUCCESS);
    ASSERT_EQ(ConnectionGetPort(server.get(), &port), ERROR_SUCCESS);
    const auto script = std::filesystem::path(FTP_SERVERS).replace_filename(L"frame_peer").wstring();
    std::wstring command = LR"(Z:\usr\bin\python3 )" + script + L" " + std::to_wstring(port);
    STARTUPINFOW startup{};
    PROCESS_INFORMATION process{};
    ASSERT_TRUE(CreateProcessW(nullptr, command.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr,
                               &startup, &process));
    void* handle = nullptr;
    AnyMessage message;
    ASSERT_EQ(ConnectionAccept(server.get(), 60000, nullptr, &handle), ERROR_SUCCESS);
    const ConnectionHandle peer(handle);
    for (std::uint32_t i = 0; i < 1000; ++i) {
        const DataMessage sent = dataOf(i % 100 == 0 ? i * 1000 : i, i);
        ASSERT_EQ(ConnectionSendMessage(handle, sent, 60000, nullptr), ERROR_SUCCESS) << i;
        ASSERT_EQ(ConnectionReceiveMessage(handle, message, nullptr, 60000, nullptr), ERROR_SUCCESS) << i;
        ASSERT_EQ(dumped(*message.wide), dumped(sent)) << i;
    }
    EXPECT_EQ(ConnectionReceiveMessage(handle, message, nullptr, 60000, nullptr), ERROR_BROKEN_PIPE);
    EXPECT_EQ(ConnectionReceiveMessage(handle, message, nullptr, 60000, nullptr), ERROR_NOT_CONNECTED);
}

// A name that cannot be found, a port that nobody serves, one that is taken, and a connect that hangs.
TEST(SocketConnections, FailWithTheSocketLayersCode)
{
    const Connected peers(false);
    unsigned short port = 0;
    ASSERT_EQ(ConnectionGetPort(peers.server.get(), &port), ERROR_SUCCESS);
    const auto connect = [](const wchar_t* host, unsigned short to, DWORD timeout) {
        const ConnectionHandle client(CreateSocketConnection(kClient, L"sysmaint test\\other", host, to, 0));
        return ConnectionConnect(client.get(), timeout, nullptr);
    };
    EXPECT_EQ(connect(L"lookup.invalid", port, 60000), WSAHOST_NOT_FOUND);
    EXPECT_EQ(connect(L"127.0.0.1", 1, 60000), WSAECONNREFUSED);
    EXPECT_EQ(connect(L"localhost", port, 60000), ERROR_SUCCESS);
    const ConnectionHandle second(CreateSocketConnection(kServer, L"sysmaint 2", L"127.0.0.1", port, 0));
    EXPECT_EQ(ConnectionListen(second.get(), 60000, nullptr), WSAEADDRINUSE);
    unsigned short before = port;
    EXPECT_EQ(ConnectionDisconnect(peers.server.get()), ERROR_SUCCESS);
    EXPECT_EQ(ConnectionGetPort(peers.server.get(), &port), ERROR_NOT_CONNECTED);
    EXPECT_EQ(ConnectionListen(second.get(), 60000, nullptr), ERROR_SUCCESS);
    EXPECT_EQ(ConnectionGetPort(second.get(), &port), ERROR_SUCCESS);
    EXPECT_EQ(port, before);
}

// Who resets a connection before it is accepted costs the next client nothing.
TEST(SocketConnections, PassOverClientsThatHaveGone)
{
    Connected peers(false);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    unsigned short port = 0;
    ASSERT_EQ(ConnectionGetPort(peers.server.get(), &port), ERROR_SUCCESS);
    address.sin_port = htons(port);
    for (int client = 0; client < 3; ++client) {
        const SOCKET gone = socket(AF_INET, SOCK_STREAM, 0);
        const linger atOnce{1, 0};
        setsockopt(gone, SOL_SOCKET, SO_LINGER, reinterpret_cast<const char*>(&atOnce), sizeof atOnce);
        EXPECT_EQ(connect(gone, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
        closesocket(gone);
    }
    EXPECT_EQ(ConnectionDisconnect(peers.client.get()), ERROR_SUCCESS);
    peers.connect();
    char byte = 'x';
    EXPECT_EQ(ConnectionWrite(peers.client.get(), &byte, 1, 60000, nullptr), ERROR_SUCCESS);
    EXPECT_EQ(ConnectionReadAll(peers.accepted.get(), &byte, 1, 60000, nullptr), ERROR_SUCCESS);
}

// A connect that hangs ends with its time, the cancel event and the disconnection, and so does a pipe's
// client whose server is busy.
TEST(SocketConnections, EndAConnectThatHangs)
{
    const FtpServers full(L"full"); // its backlog, so that connecting hangs
    const Connected busy(true);
    const ConnectionHandle clients[] = {
        ConnectionHandle(CreateSocketConnection(kClient, L"sysmaint test\\hanging", L"127.0.0.1",
                                                full.ports.at("full"), 0)),
        ConnectionHandle(CreatePipeConnection(L"sysmaint test\\hanging too", kClient)),
        ConnectionHandle(CreatePipeConnection(L"sysmaint test\\one more", kClient))};
    EXPECT_EQ(ConnectionConnect(clients[2].get(), 60000, nullptr), ERROR_SUCCESS); // takes the free instance
    for (const int number : {0, 1}) {
        const ConnectionHandle& client = clients[number];
        EXPECT_EQ(ConnectionConnect(client.get(), 200, nullptr), WAIT_TIMEOUT);
        const TestEvent cancel;
        const std::jthread canceller([&] { Sleep(50), cancel.set(); });
        EXPECT_EQ(ConnectionConnect(client.get(), 60000, cancel.get()), ERROR_CANCELLED);
        std::thread stopper([&] { Sleep(50), ConnectionDisconnect(client.get()); });
        EXPECT_EQ(ConnectionConnect(client.get(), 60000, nullptr), ERROR_NOT_CONNECTED);
        stopper.join();
        EXPECT_EQ(ConnectionConnect(client.get(), 100, nullptr), WAIT_TIMEOUT) << "and can be used again";
    }
}
