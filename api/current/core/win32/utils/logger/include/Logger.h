#pragma once

#include <array>
#include <atomic>
#include <deque>

#include "core/win32/utils/objectmanager/include/ObjectManager.h"
#include "core/win32/utils/objectmanager/include/Win32Handle.h"

/// One line on its way to its file.
struct LogEntry
{
    static constexpr std::size_t kCapacity = 1024;

    /// Puts the line together: the time stamp, the module, the message and the line end, which is always
    /// there; what does not fit before it is cut, and no pair of surrogates in half.
    void format(const SYSTEMTIME& time, const wchar_t* module, const wchar_t* message) noexcept;

    HANDLE file = nullptr;
    wchar_t text[kCapacity] = {};
};

/// The four log files, a queue of lines and the thread that writes them. See the exported functions.
class Logger
{
public:
    static constexpr const char* kClassName = "Logger";
    static constexpr std::size_t kFileCount = 4;
    /// A file of this size or more is begun anew when a logger is made.
    static constexpr LONGLONG kLargestLog = 10485760;

    /// Raises an Exception with 1003 or the system's code.
    Logger();
    Logger(const Logger&) = delete;
    Logger& operator=(const Logger&) = delete;
    virtual ~Logger();

    /// Raises an Exception with 87, or 8.
    void writeLogEntry(const wchar_t* module, const wchar_t* message);

private:
    /// A critical section that is entered by a scope.
    class Guard;

    void startThread();
    void openFiles();
    void stopThread() noexcept;
    [[nodiscard]] HANDLE fileFor(const wchar_t* module) const noexcept;

    static DWORD WINAPI threadMain(void* logger) noexcept;
    void writeEntries() noexcept;
    bool copyFront(LogEntry& entry) noexcept;

    Win32Handle m_thread;
    DWORD m_threadId = 0;
    CRITICAL_SECTION m_section;
    std::array<Win32Handle, kFileCount> m_files; // general, registry, privacy, disk
    std::deque<LogEntry> m_queue;
    bool m_ended = false;                // the thread writes no more; guarded like the queue
    std::atomic<bool> m_stopping{false}; // for this logger's thread alone
    Win32Handle m_stop;                  // set with it; ends the thread's sleep
    Win32Handle m_finished;              // set by the thread as the last thing that it does with this object
};

/// The table of all loggers.
[[nodiscard]] ObjectManager<SharedPtr<Logger>>& loggers() noexcept;
