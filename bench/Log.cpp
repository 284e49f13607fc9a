#include <windows.h>

#include <iterator>
#include <memory>
#include <optional>
#include <string>

#include <spdlog/async.h>
#include <spdlog/sinks/basic_file_sink.h>

#include "Bench.h"
#include "Callers.h"
#include "FreeTableLock.h"
#include "core/win32/utils/logger/api.h"

namespace {
constexpr wchar_t kModule[] = L"Disk Cleaner";
constexpr wchar_t kMessage[] = L"C:\\Users\\somebody\\Temp\\report.tmp removed";
constexpr char kPeerModule[] = "Disk Cleaner";
constexpr char kPeerMessage[] = "C:\\Users\\somebody\\Temp\\report.tmp removed";
constexpr std::size_t kStamp = 25;
constexpr std::size_t kLine = kStamp + std::size(kModule) - 1 + 3 + std::size(kMessage) - 1 + 2;

unsigned long long sizeOf(const std::wstring& path)
{
    WIN32_FILE_ATTRIBUTE_DATA data{};
    GetFileAttributesExW(path.c_str(), GetFileExInfoStandard, &data);
    return (static_cast<unsigned long long>(data.nFileSizeHigh) << 32U) | data.nFileSizeLow;
}

/// Both format a line of the same length and write it to a file on their own thread. A turn is over when all
/// its lines are in the file; only the callers' part is measured.
///
/// The peer's queue, whose length is fixed in advance, holds a whole turn; ours is unlimited. So neither
/// makes a caller wait for the disk. A queue that is too short would stop the peer's callers with one
/// overflow policy and lose lines with the other.
class Loggers
{
public:
    explicit Loggers(long entries) : m_ours(CreateLogger(L"bench"))
    {
        require(m_ours != INVALID_HANDLE_VALUE, "no logger: does another program use one?");
        wchar_t program[MAX_PATH];
        GetModuleFileNameW(nullptr, program, MAX_PATH);
        wchar_t user[256];
        DWORD length = 256;
        GetUserNameW(user, &length);
        const std::wstring path = program;
        m_file = path.substr(0, path.find_last_of(L'\\')) + L"\\logs\\" + user + L"\\ZDC.log";
        m_size = sizeOf(m_file);

        m_peerFile = temporaryFolder() + L"sysmaint-bench-spdlog.log";
        DeleteFileW(m_peerFile.c_str());
        m_pool = std::make_shared<spdlog::details::thread_pool>(static_cast<std::size_t>(entries) + 1, 1);
        m_peer = std::make_shared<spdlog::async_logger>(
            "bench", std::make_shared<spdlog::sinks::basic_file_sink_mt>(m_peerFile), m_pool,
            spdlog::async_overflow_policy::block);
        m_peer->set_pattern("[ %d.%m.%Y %H:%M:%S ]  %v");
    }
    Loggers(const Loggers&) = delete;
    Loggers& operator=(const Loggers&) = delete;
    ~Loggers()
    {
        CloseLogger(m_ours);
        DeleteFileW(m_file.c_str());
        m_peer.reset();
        m_pool.reset();
        DeleteFileW(m_peerFile.c_str());
    }

    void write(long count) const
    {
        for (long i = 0; i < count; ++i)
            require(WriteLogEntry(m_ours, kModule, kMessage) == ERROR_SUCCESS, "a line was refused");
    }
    void writePeer(long count) const
    {
        for (long i = 0; i < count; ++i)
            m_peer->info("{}:  {}", kPeerModule, kPeerMessage);
    }

    // What the turns must leave in the files.
    void expect(long count) { m_size += static_cast<unsigned long long>(count) * kLine * sizeof(wchar_t); }
    void expectPeer(long count) { m_peerSize += static_cast<unsigned long long>(count) * kLine; }
    void settle() const
    {
        m_peer->flush();
        const ULONGLONG begun = GetTickCount64();
        while (sizeOf(m_file) != m_size || sizeOf(m_peerFile) != m_peerSize) {
            require(GetTickCount64() - begun < 300000, "a log file does not hold what was written");
            const WriteLocker locker(m_pause);
            m_pause.waitWrite(m_never, 50); // and no Sleep, which would be counted with the row's calls
        }
    }

private:
    mutable ReadWriteLock m_pause;
    mutable CONDITION_VARIABLE m_never = CONDITION_VARIABLE_INIT;
    void* m_ours;
    std::wstring m_file;
    unsigned long long m_size = 0;
    std::shared_ptr<spdlog::details::thread_pool> m_pool;
    std::shared_ptr<spdlog::async_logger> m_peer;
    std::wstring m_peerFile;
    unsigned long long m_peerSize = 0;
};

} // namespace

BenchRows logRows(BenchScale scale)
{
    BenchRows rows;
    const auto loggers = std::make_shared<std::unique_ptr<Loggers>>();
    const long entries = scale(8000);
    for (const bool locked : {true, false})
        for (const int threads : {1, 8}) {
            const auto callers = std::make_shared<Callers>(threads);
            const long each = entries / threads;
            const long count = each * threads;
            const std::string without = locked ? "" : "the table's lock free, ";
            rows.timed.push_back({"WriteLogEntry, caller's side, " + without + counted(threads, "thread"),
                                  "spdlog, asynchronous, to a file", 1.0, static_cast<double>(count),
                                  [=] {
                                      std::optional<FreeTableLock> free;
                                      if (!locked)
                                          free.emplace();
                                      callers->run([&] { (*loggers)->write(each); });
                                      (*loggers)->expect(count);
                                  },
                                  [=] {
                                      callers->run([&] { (*loggers)->writePeer(each); });
                                      (*loggers)->expectPeer(count);
                                  },
                                  [=] {
                                      if (!*loggers)
                                          *loggers = std::make_unique<Loggers>(entries);
                                  },
                                  [=] { (*loggers)->settle(); }, true});
        }
    return rows;
}
