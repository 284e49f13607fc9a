#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <list>
#include <string_view>

#include "core/win32/utils/objectmanager/include/ObjectTable.h"
#include "core/win32/utils/objectmanager/include/Win32Handle.h"

/// The time stamp of the entries, rebuilt when the second has changed.
class LogStamp
{
public:
    /// "[ day.month.year hour:minute:second ]  " for the current local time.
    [[nodiscard]] std::wstring_view now() noexcept;

private:
    static constexpr std::uint64_t kTicksPerSecond = 10000000;

    std::uint64_t m_second = 0; // counted like the system's file times
    std::size_t m_length = 0;
    wchar_t m_text[64] = {};
};

/// What follows the stamp in a line: module, message and line end, limited to the room left in the line.
class LogLine
{
public:
    /// Characters of a whole line, its stamp included.
    static constexpr std::size_t kCapacity = 1024;

    /// Always ends with the line end. Text that does not fit before it is cut, which never splits a surrogate
    /// pair.
    LogLine(const wchar_t* module, const wchar_t* message) noexcept;

    [[nodiscard]] std::wstring_view getText() const noexcept { return {m_text, m_length}; }

private:
    void append(const wchar_t* part) noexcept;

    static constexpr std::size_t kStamp = 25;
    static constexpr std::size_t kLongest = kCapacity - 1 - kStamp;

    std::size_t m_length = 0;
    wchar_t m_text[kLongest]; // only as much of it is touched as the line needs
};

/// Lines on their way to their files, one after the other in large blocks of memory. A queue that is
/// regularly emptied needs only one block.
class LogQueue
{
public:
    struct Entry
    {
        HANDLE file;
        std::size_t length; // in characters; they follow
        [[nodiscard]] const wchar_t* getText() const noexcept
        {
            return reinterpret_cast<const wchar_t*>(this + 1);
        }
    };

    /// Raises std::bad_alloc; nothing has been added then.
    void add(HANDLE file, std::wstring_view stamp, std::wstring_view line);
    /// The oldest entry, or null.
    [[nodiscard]] const Entry* getFront() const noexcept;
    /// Removes the oldest entry; there must be one.
    void removeFront() noexcept;
    void clear() noexcept { m_blocks.clear(); }

private:
    struct Block
    {
        static constexpr std::size_t kSize = 65536;
        Block() noexcept {} // NOLINT: leaves the memory untouched
        std::size_t begin = 0;
        std::size_t end = 0;
        alignas(Entry) std::byte bytes[kSize];
    };
    static std::size_t sizeOf(std::size_t length) noexcept
    {
        const std::size_t size = sizeof(Entry) + length * sizeof(wchar_t);
        return (size + alignof(Entry) - 1) / alignof(Entry) * alignof(Entry);
    }

    std::list<Block> m_blocks; // all but the last hold entries
};

/// The four log files, a queue of lines and the thread that writes them. See the exported functions.
class Logger
{
public:
    static constexpr const char* kClassName = "Logger";
    static constexpr std::size_t kFileCount = 4;
    /// A file of this size or more is started anew when a logger is created.
    static constexpr LONGLONG kLargestLog = 10485760;

    /// Raises an Exception with 1003 or the system's code.
    Logger();
    Logger(const Logger&) = delete;
    Logger& operator=(const Logger&) = delete;
    virtual ~Logger();

    /// Raises an Exception with 87, or 8.
    void writeLogEntry(const wchar_t* module, const wchar_t* message);

private:
    /// Enters a critical section for a scope.
    class Guard;

    void startThread();
    void openFiles();
    void stopThread() noexcept;
    [[nodiscard]] HANDLE fileFor(const wchar_t* module) const noexcept;

    static DWORD WINAPI threadMain(void* logger) noexcept;
    void writeEntries() noexcept;
    std::size_t copyFront(HANDLE& file, wchar_t* text) noexcept;

    Win32Handle m_thread;
    DWORD m_threadId = 0;
    CRITICAL_SECTION m_section;
    std::array<Win32Handle, kFileCount> m_files; // general, registry, privacy, disk
    LogStamp m_stamp;                            // guarded like the queue
    LogQueue m_queue;
    bool m_ended = false;                // the thread has stopped writing; guarded like the queue
    std::atomic<bool> m_stopping{false}; // only for this logger's thread
    Win32Handle m_stop;                  // set with it; ends the thread's sleep
    Win32Handle m_finished;              // set by the thread in its last use of this object
};

/// The table of all loggers.
extern ObjectTable<SharedPtr<Logger>> loggers;
