#include <winsock2.h>

#include <windows.h>

#include <ws2tcpip.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Bench.h"
#include "FreeTableLock.h"
#include "core/win32/utils/connections/api.h"
#include "support/ImportReplacement.h"

namespace {
constexpr int kTurns = 15; // two threads each, so which of them the machine runs first shows

/// What a row compares with what.
enum class Kind
{
    SameCalls, ///< the peer makes the calls of ours, the two for a table's mutex included
    Barest,    ///< the peer makes only those that move the data
    LockFree   ///< the same, and the table's mutex costs nothing
};

/// What one row does.
struct Traffic
{
    bool isPipe; // or a socket
    std::size_t size;
    long rounds;
    bool answers; // each piece gets one of the same size
};

/// A socket and what it is connected to, both without delay.
std::array<SOCKET, 2> connectedSockets()
{
    const SOCKET listener = socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
    sockaddr_in address{};
    int length = sizeof address;
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    auto* any = reinterpret_cast<sockaddr*>(&address);
    require(bind(listener, any, length) == 0 && listen(listener, 1) == 0 &&
                getsockname(listener, any, &length) == 0,
            "no bare socket");
    const SOCKET client = socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
    require(connect(client, any, length) == 0, "no bare connection");
    const std::array<SOCKET, 2> ends{client, accept(listener, nullptr, nullptr)};
    closesocket(listener);
    const BOOL noDelay = TRUE;
    for (const SOCKET end : ends)
        require(setsockopt(end, IPPROTO_TCP, TCP_NODELAY, reinterpret_cast<const char*>(&noDelay),
                           sizeof noDelay) == 0,
                "no bare connection");
    return ends;
}

/// Both ends of a connection of ours, and of one that the system calls of the peer use: the same buffers, the
/// same overlapped calls, the same two threads.
class Connections
{
public:
    Connections(const Traffic& traffic, Kind kind)
        : m_rounds(traffic.rounds), m_answers(traffic.answers), m_isPipe(traffic.isPipe), m_kind(kind),
          m_data(traffic.size)
    {
        m_isPipe ? openPipes() : openSockets();
        require(ConnectionConnect(m_client, 5000, nullptr) == ERROR_SUCCESS &&
                    ConnectionAccept(m_server, 5000, nullptr, &m_accepted) == ERROR_SUCCESS,
                "no connection");
        if (m_kind == Kind::SameCalls)
            requireSameCalls();
    }
    Connections(const Connections&) = delete;
    Connections& operator=(const Connections&) = delete;
    ~Connections()
    {
        for (void* connection : {m_accepted, m_client, m_server})
            CloseConnection(connection);
        for (const HANDLE handle : {m_serverEvent, m_clientEvent, m_mutex})
            CloseHandle(handle);
        for (const HANDLE end : {m_bareServer, m_bareClient})
            m_isPipe ? CloseHandle(end) : closesocket(reinterpret_cast<SOCKET>(end));
    }
    void ours()
    {
        std::optional<FreeTableLock> free;
        if (m_kind == Kind::LockFree)
            free.emplace();
        run(free, [&](bool writes, bool first, void* data, std::size_t size) {
            void* end = first ? m_client : m_accepted;
            const long code = writes ? ConnectionWrite(end, data, size, INFINITE, nullptr)
                                     : ConnectionReadAll(end, data, size, INFINITE, nullptr);
            require(code == ERROR_SUCCESS, "a connection failed");
        });
    }
    void bare()
    {
        std::optional<FreeTableLock> none;
        run(none, [&](bool writes, bool first, void* data, std::size_t size) {
            const HANDLE end = first ? m_bareClient : m_bareServer;
            const HANDLE event = first ? m_clientEvent : m_serverEvent;
            if (m_kind == Kind::SameCalls) {
                WaitForSingleObject(m_mutex, INFINITE);
                ReleaseMutex(m_mutex);
            }
            for (std::size_t done = 0; done < size;) {
                auto* at = static_cast<char*>(data) + done;
                const auto left = static_cast<DWORD>(size - done);
                done += m_isPipe ? moveThroughPipe(end, event, writes, at, left)
                                 : moveThroughSocket(reinterpret_cast<SOCKET>(end), event, writes, at, left);
            }
        });
    }

private:
    [[nodiscard]] std::wstring getName() const // each row has its own
    {
        return L"sysmaint bench " + std::to_wstring(m_data.size()) + L" " +
               std::to_wstring(static_cast<int>(m_kind));
    }
    void openPipes()
    {
        const std::wstring name = getName();
        m_server = CreatePipeConnection((name + L"\\server").c_str(), ConnectionRole::Server);
        m_client = CreatePipeConnection((name + L"\\client").c_str(), ConnectionRole::Client);
        require(ConnectionListen(m_server, 0, nullptr) == ERROR_SUCCESS, "no pipe");
        constexpr DWORD kBuffer = 64U << 10U;
        const std::wstring bare = L"\\\\.\\pipe\\" + name + L" bare";
        m_bareServer = CreateNamedPipeW(bare.c_str(), PIPE_ACCESS_DUPLEX | FILE_FLAG_OVERLAPPED,
                                        PIPE_TYPE_BYTE, 1, kBuffer, kBuffer, 0, nullptr);
        m_bareClient = CreateFileW(bare.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING,
                                   FILE_FLAG_OVERLAPPED, nullptr);
        require(m_bareServer != INVALID_HANDLE_VALUE && m_bareClient != INVALID_HANDLE_VALUE, "no bare pipe");
    }
    void openSockets()
    {
        unsigned short port = 0;
        m_server = CreateSocketConnection(ConnectionRole::Server, (getName() + L" server").c_str(),
                                          L"127.0.0.1", 0, 0);
        require(ConnectionListen(m_server, 5000, nullptr) == ERROR_SUCCESS && // which starts the library, too
                    ConnectionGetPort(m_server, &port) == ERROR_SUCCESS,
                "no socket");
        m_client = CreateSocketConnection(ConnectionRole::Client, (getName() + L" client").c_str(),
                                          L"127.0.0.1", port, 0);
        const std::array<SOCKET, 2> ends = connectedSockets();
        m_bareClient = reinterpret_cast<HANDLE>(ends[0]);
        m_bareServer = reinterpret_cast<HANDLE>(ends[1]);
    }

    static DWORD moveThroughPipe(HANDLE end, HANDLE event, bool writes, char* at, DWORD left)
    {
        OVERLAPPED overlapped{};
        overlapped.hEvent = event;
        DWORD moved = 0;
        if (!(writes ? WriteFile(end, at, left, nullptr, &overlapped)
                     : ReadFile(end, at, left, nullptr, &overlapped)))
            WaitForMultipleObjects(1, &event, FALSE, INFINITE);
        require(GetOverlappedResult(end, &overlapped, &moved, TRUE), "a bare pipe failed");
        return moved;
    }
    static DWORD moveThroughSocket(SOCKET end, HANDLE event, bool writes, char* at, DWORD left)
    {
        OVERLAPPED overlapped{};
        overlapped.hEvent = event;
        WSABUF buffer{left, at};
        DWORD moved = 0;
        DWORD flags = 0;
        if ((writes ? WSASend(end, &buffer, 1, nullptr, 0, &overlapped, nullptr)
                    : WSARecv(end, &buffer, 1, nullptr, &flags, &overlapped, nullptr)) != 0)
            WaitForMultipleObjects(1, &event, FALSE, INFINITE);
        require(WSAGetOverlappedResult(end, &overlapped, &moved, TRUE, &flags), "a bare socket failed");
        return moved;
    }

    using Body = std::function<void()>;
    static DWORD WINAPI runBody(void* body)
    {
        (*static_cast<const Body*>(body))();
        return 0;
    }

    // The other thread is the system's own: joining one of the standard library waits once or twice or not at
    // all, for its end and for a lock of all threads.
    template <class Transfer>
    void run(std::optional<FreeTableLock>& free, Transfer&& transfer)
    {
        const Body other = [&] {
            std::vector<char> data(m_data.size());
            for (long i = 0; i < m_rounds; ++i) {
                transfer(false, false, data.data(), data.size());
                if (m_answers)
                    transfer(true, false, data.data(), data.size());
            }
        };
        const HANDLE thread = CreateThread(nullptr, 0, &runBody, const_cast<Body*>(&other), 0, nullptr);
        require(thread != nullptr, "no thread");
        for (long i = 0; i < m_rounds; ++i) {
            transfer(true, true, m_data.data(), m_data.size());
            if (m_answers)
                transfer(false, true, m_data.data(), m_data.size());
        }
        WaitForSingleObjectEx(thread, INFINITE, FALSE); // not the call that is counted, and free meanwhile
        free.reset();
        CloseHandle(thread);
    }

    /// What both sides call, counted in this program's imports: the mutex and the writes exactly as often,
    /// and what depends on who comes first about as often, in one of a few rounds. Of sockets only the mutex
    /// and the waits are seen: the library loads what it calls for them.
    void requireSameCalls()
    {
        constexpr int kRounds = 10;
        bool isSame = false;
        for (int i = 0; i < kRounds && !isSame; ++i)
            isSame = makeAboutSameCalls();
        require(isSame, "the peer does not make the same calls");
    }
    [[nodiscard]] bool makeAboutSameCalls()
    {
        const HMODULE program = GetModuleHandleW(nullptr);
        const CountedImport<"WaitForSingleObject", decltype(&WaitForSingleObject)> locks(program);
        const CountedImport<"ReleaseMutex", decltype(&ReleaseMutex)> releases(program);
        const CountedImport<"ReadFile", decltype(&ReadFile)> reads(program);
        const CountedImport<"WriteFile", decltype(&WriteFile)> writes(program);
        const CountedImport<"WaitForMultipleObjects", decltype(&WaitForMultipleObjects)> waits(program);
        const CountedImport<"GetOverlappedResult", decltype(&GetOverlappedResult)> results(program);
        const auto counts = [&] {
            return std::array<long, 6>{locks.calls(), releases.calls(), writes.calls(),
                                       reads.calls(), waits.calls(),    results.calls()};
        };
        const std::array<long, 6> before = counts();
        ours();
        const std::array<long, 6> between = counts();
        bare();
        const std::array<long, 6> after = counts();
        constexpr std::size_t kExact = 3; // the first of them
        for (std::size_t i = 0; i < before.size(); ++i) {
            const long our = between[i] - before[i];
            const long peer = after[i] - between[i];
            const long tolerance = i < kExact ? 0 : 10 + std::max(our, peer) / 2;
            if (std::abs(our - peer) <= tolerance)
                continue;
            std::fprintf(stderr, "bench: call %zu: ours %ld, the peer's %ld\n", i, our, peer);
            require(i >= kExact, "the peer does not make the same calls");
            return false;
        }
        return true;
    }

    long m_rounds;
    bool m_answers;
    bool m_isPipe;
    Kind m_kind;
    std::vector<char> m_data;
    void* m_server = nullptr;
    void* m_client = nullptr;
    void* m_accepted = nullptr;
    HANDLE m_bareServer = INVALID_HANDLE_VALUE;
    HANDLE m_bareClient = INVALID_HANDLE_VALUE;
    HANDLE m_serverEvent = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    HANDLE m_clientEvent = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    HANDLE m_mutex = CreateMutexW(nullptr, FALSE, nullptr);
};

BenchRow connectionRow(const std::string& name, const Traffic& traffic, Kind kind)
{
    const auto connections = std::make_shared<std::unique_ptr<Connections>>();
    BenchRow row{(traffic.isPipe ? "pipe, " : "socket, ") + name +
                     (kind == Kind::LockFree ? ", the table's lock free" : ""),
                 kind == Kind::SameCalls ? "a loop of the same system calls"
                                         : "barest overlapped calls, no lock",
                 0.9,
                 static_cast<double>(traffic.rounds),
                 [=] { (*connections)->ours(); },
                 [=] { (*connections)->bare(); },
                 [=] {
                     if (!*connections)
                         *connections = std::make_unique<Connections>(traffic, kind);
                 }};
    row.peerCounted = true;
    row.turns = kTurns;
    return row;
}
} // namespace

BenchRows connectionRows(BenchScale scale)
{
    BenchRows rows;
    for (const bool isPipe : {true, false}) {
        for (const Kind kind : {Kind::SameCalls, Kind::Barest, Kind::LockFree}) {
            const auto add = [&](const char* name, const Traffic& traffic) {
                rows.timed.push_back(connectionRow(name, traffic, kind));
            };
            add("64 bytes and back", {isPipe, 64, scale(5000), true});
            add("64 KiB", {isPipe, 64U << 10U, scale(5000), false});
            add("1 MiB", {isPipe, 1U << 20U, scale(500), false});
        }
    }
    return rows;
}
