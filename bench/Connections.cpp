#include <windows.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "Bench.h"
#include "FreeTableLock.h"
#include "core/win32/utils/connections/api.h"
#include "support/ImportReplacement.h"

namespace {
/// What a row compares with what.
enum class Kind
{
    SameCalls, ///< the peer makes the calls of ours, the two for a table's mutex included
    Barest,    ///< the peer makes only those that move the data
    LockFree   ///< the same, and the table's mutex costs nothing
};

/// Both ends of a pipe of ours, and of one that the system calls of the peer use: the same buffers, the same
/// overlapped calls, the same two threads.
class Pipes
{
public:
    Pipes(std::size_t size, long rounds, bool answers, Kind kind)
        : m_rounds(rounds), m_answers(answers), m_kind(kind), m_data(size)
    {
        const std::wstring name = L"sysmaint bench " + std::to_wstring(size) + L" " +
                                  std::to_wstring(static_cast<int>(kind)); // each row has its own
        m_server = CreatePipeConnection((name + L"\\server").c_str(), ConnectionRole::Server);
        m_client = CreatePipeConnection((name + L"\\client").c_str(), ConnectionRole::Client);
        require(ConnectionListen(m_server, 0, nullptr) == ERROR_SUCCESS &&
                    ConnectionConnect(m_client, 5000, nullptr) == ERROR_SUCCESS &&
                    ConnectionAccept(m_server, 5000, nullptr, &m_accepted) == ERROR_SUCCESS,
                "no pipe");
        constexpr DWORD kBuffer = 64U << 10U;
        const std::wstring bare = L"\\\\.\\pipe\\" + name + L" bare";
        m_bareServer = CreateNamedPipeW(bare.c_str(), PIPE_ACCESS_DUPLEX | FILE_FLAG_OVERLAPPED,
                                        PIPE_TYPE_BYTE, 1, kBuffer, kBuffer, 0, nullptr);
        m_bareClient = CreateFileW(bare.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING,
                                   FILE_FLAG_OVERLAPPED, nullptr);
        require(m_bareServer != INVALID_HANDLE_VALUE && m_bareClient != INVALID_HANDLE_VALUE, "no bare pipe");
        if (m_kind == Kind::SameCalls)
            requireSameCalls();
    }
    Pipes(const Pipes&) = delete;
    Pipes& operator=(const Pipes&) = delete;
    ~Pipes()
    {
        for (void* connection : {m_accepted, m_client, m_server})
            CloseConnection(connection);
        for (const HANDLE handle :
             {m_bareServer, m_bareClient, m_serverEvent, m_clientEvent, m_done, m_mutex})
            CloseHandle(handle);
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
                OVERLAPPED overlapped{};
                overlapped.hEvent = event;
                auto* at = static_cast<char*>(data) + done;
                const auto left = static_cast<DWORD>(size - done);
                DWORD moved = 0;
                if (!(writes ? WriteFile(end, at, left, nullptr, &overlapped)
                             : ReadFile(end, at, left, nullptr, &overlapped)))
                    WaitForMultipleObjects(1, &event, FALSE, INFINITE);
                require(GetOverlappedResult(end, &overlapped, &moved, TRUE), "a bare pipe failed");
                done += moved;
            }
        });
    }

private:
    template <class Transfer>
    void run(std::optional<FreeTableLock>& free, Transfer&& transfer)
    {
        std::thread other([&] {
            std::vector<char> data(m_data.size());
            for (long i = 0; i < m_rounds; ++i) {
                transfer(false, false, data.data(), data.size());
                if (m_answers)
                    transfer(true, false, data.data(), data.size());
            }
            SetEvent(m_done);
        });
        for (long i = 0; i < m_rounds; ++i) {
            transfer(true, true, m_data.data(), m_data.size());
            if (m_answers)
                transfer(false, true, m_data.data(), m_data.size());
        }
        WaitForSingleObjectEx(m_done, INFINITE, FALSE); // not the call that is free meanwhile
        free.reset();
        other.join();
    }

    /// What both sides call, counted in this program's imports: the mutex and the writes exactly as often,
    /// and what depends on who comes first about as often.
    void requireSameCalls()
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
            if (std::abs(our - peer) > tolerance)
                std::fprintf(stderr, "bench: call %zu: ours %ld, the peer's %ld\n", i, our, peer);
            require(std::abs(our - peer) <= tolerance, "the peer does not make the same calls");
        }
    }

    long m_rounds;
    bool m_answers;
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
    HANDLE m_done = CreateEventW(nullptr, FALSE, FALSE, nullptr);
};

BenchRow pipeRow(const std::string& name, std::size_t size, long rounds, bool answers, Kind kind)
{
    const auto pipes = std::make_shared<std::unique_ptr<Pipes>>();
    BenchRow row{name + (kind == Kind::LockFree ? ", the table's lock free" : ""),
                 kind == Kind::SameCalls ? "a loop of the same system calls"
                                         : "barest overlapped calls, no lock",
                 0.9,
                 static_cast<double>(rounds),
                 [=] { (*pipes)->ours(); },
                 [=] { (*pipes)->bare(); },
                 [=] {
                     if (!*pipes)
                         *pipes = std::make_unique<Pipes>(size, rounds, answers, kind);
                 }};
    row.peerCounted = true;
    return row;
}
} // namespace

BenchRows connectionRows(BenchScale scale)
{
    BenchRows rows;
    for (const Kind kind : {Kind::SameCalls, Kind::Barest, Kind::LockFree}) {
        rows.timed.push_back(pipeRow("pipe, 64 bytes and back", 64, scale(5000), true, kind));
        rows.timed.push_back(pipeRow("pipe, 64 KiB", 64U << 10U, scale(5000), false, kind));
        rows.timed.push_back(pipeRow("pipe, 1 MiB", 1U << 20U, scale(500), false, kind));
    }
    return rows;
}
