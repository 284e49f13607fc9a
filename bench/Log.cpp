#include <windows.h>

#include <atomic>
#include <iterator>
#include <memory>
#include <string>

#include <spdlog/async.h>
#include <spdlog/sinks/basic_file_sink.h>

#include "Bench.h"
#include "core/win32/utils/logger/api.h"

namespace {
constexpr wchar_t kModule[] = L"Disk Cleaner";
constexpr wchar_t kMessage[] = L"C:\\Users\\somebody\\Temp\\report.tmp removed";
constexpr char kPeerModule[] = "Disk Cleaner";
constexpr char kPeerMessage[] = "C:\\Users\\somebody\\Temp\\report.tmp removed";

unsigned long long sizeOf(const std::wstring& path)
{
    WIN32_FILE_ATTRIBUTE_DATA data{};
    GetFileAttributesExW(path.c_str(), GetFileExInfoStandard, &data);
    return (static_cast<unsigned long long>(data.nFileSizeHigh) << 32U) | data.nFileSizeLow;
}

/// Both write to a file in the end: their turns end when everything is written, of which only the callers'
/// part is measured. The peer's queue holds a whole turn, as ours does, so that neither makes a caller wait.
class Loggers
{
public:
    explicit Loggers(long entries)
    {
        m_ours = CreateLogger(L"bench");
        require(m_ours != INVALID_HANDLE_VALUE, "no logger: does another program use one?");
        wchar_t program[MAX_PATH];
        GetModuleFileNameW(nullptr, program, MAX_PATH);
        wchar_t user[256];
        DWORD length = 256;
        GetUserNameW(user, &length);
        const std::wstring path = program;
        m_file = path.substr(0, path.find_last_of(L'\\')) + L"\\logs\\" + user + L"\\ZDC.log";
        m_size = sizeOf(m_file);

        const std::wstring peerFile = temporaryFolder() + L"sysmaint-bench-spdlog.log";
        DeleteFileW(peerFile.c_str());
        m_pool = std::make_shared<spdlog::details::thread_pool>(static_cast<std::size_t>(entries), 1);
        m_peer = std::make_shared<spdlog::async_logger>("bench",
                                                        std::make_shared<spdlog::sinks::basic_file_sink_mt>(
                                                            std::string(peerFile.begin(), peerFile.end())),
                                                        m_pool, spdlog::async_overflow_policy::block);
        m_peer->set_pattern("[ %d.%m.%Y %H:%M:%S ]  %v");
    }
    Loggers(const Loggers&) = delete;
    Loggers& operator=(const Loggers&) = delete;
    ~Loggers() { CloseLogger(m_ours); }

    void write(long count)
    {
        for (long i = 0; i < count; ++i)
            require(WriteLogEntry(m_ours, kModule, kMessage) == ERROR_SUCCESS, "an entry was refused");
        m_written += static_cast<unsigned long long>(count);
    }
    void writePeer(long count)
    {
        for (long i = 0; i < count; ++i)
            m_peer->info("{}:  {}", kPeerModule, kPeerMessage);
    }
    void settle()
    {
        constexpr std::size_t kStamp = 25;
        constexpr std::size_t kLine = kStamp + std::size(kModule) - 1 + 3 + std::size(kMessage) - 1 + 2;
        while (sizeOf(m_file) < m_size + m_written * kLine * sizeof(wchar_t))
            Sleep(10);
        while (m_pool->queue_size() != 0)
            Sleep(10);
    }

private:
    void* m_ours;
    std::wstring m_file;
    unsigned long long m_size = 0;
    std::atomic<unsigned long long> m_written{0};
    std::shared_ptr<spdlog::details::thread_pool> m_pool;
    std::shared_ptr<spdlog::async_logger> m_peer;
};
} // namespace

std::vector<BenchRow> logRows(BenchScale scale)
{
    const long entries = scale(8000);
    const auto loggers = std::make_shared<Loggers>(entries);
    std::vector<BenchRow> rows;
    for (const int threads : {1, 8})
        rows.push_back({"WriteLogEntry on the caller's side, " + std::to_string(threads) +
                            (threads == 1 ? " thread" : " threads"),
                        "spdlog, asynchronous, to a file", 1.0,
                        static_cast<double>(entries / threads * threads),
                        [=] { onThreads(threads, [=] { loggers->write(entries / threads); }); },
                        [=] { onThreads(threads, [=] { loggers->writePeer(entries / threads); }); }, nullptr,
                        [=] { loggers->settle(); }});
    return rows;
}
