#include "core/win32/utils/logger/include/Logger.h"

#include <shlobj.h>

#include <algorithm>
#include <cwchar>
#include <iterator>
#include <new>
#include <string>

#include "core/win32/utils/objectmanager/include/KeptLibrary.h"
#include "core/win32/utils/paths/include/Patience.h"
#include "core/win32/utils/paths/include/Win32Path.h"
#include "core/win32/utils/wiper/include/Wiper.h"
#include "win32/paths/include/CachedPath.h"

constexpr char kLoggerHeader[] = "core\\win32\\utils\\logger\\include\\Logger.h";

namespace {
constexpr wchar_t kStopEvent[] = L"LogTerminate";
constexpr DWORD kPollInterval = 500; // milliseconds
constexpr unsigned long kCannotComplete = ERROR_CAN_NOT_COMPLETE;

struct LogFile
{
    const wchar_t* name;
    const wchar_t* module; // null: all others
};
constexpr LogFile kFiles[Logger::kFileCount] = {{L"ZFM.log", nullptr},
                                                {L"ZRC.log", L"Registry Cleaner"},
                                                {L"ZPC.log", L"Privacy Cleaner"},
                                                {L"ZDC.log", L"Disk Cleaner"}};

/// The runtime's comparison depends on the locale, which is the caller's.
bool equalsAscii(const wchar_t* first, const wchar_t* second) noexcept
{
    const auto fold = [](wchar_t c) {
        return c >= L'A' && c <= L'Z' ? static_cast<wchar_t>(c + (L'a' - L'A')) : c;
    };
    while (*first != L'\0' && fold(*first) == fold(*second)) {
        ++first;
        ++second;
    }
    return fold(*first) == fold(*second);
}

/// Creates a folder and all its parents. The shell's library is large and needed only here.
void createFolders(const wchar_t* folder)
{
    const ModuleHandle shell = loadSystemModule(L"shell32.dll");
    const auto create =
        shell.isValid() ? reinterpret_cast<decltype(&SHCreateDirectoryExW)>(
                              reinterpret_cast<void*>(GetProcAddress(shell.get(), "SHCreateDirectoryExW")))
                        : nullptr;
    if (create == nullptr)
        throw Exception(PLACE(kLoggerHeader, "Logger::openFiles", __LINE__));
    SetLastError(ERROR_SUCCESS);
    const int result = create(nullptr, folder, nullptr);
    if (result == ERROR_SUCCESS || result == ERROR_FILE_EXISTS || result == ERROR_ALREADY_EXISTS)
        return;
    const DWORD lastError = GetLastError(); // which the function does not always set
    throw Exception(PLACE(kLoggerHeader, "Logger::openFiles", __LINE__),
                    lastError != ERROR_SUCCESS ? lastError : static_cast<DWORD>(result));
}

Win32Handle openLog(const std::wstring& path)
{
    const Win32Path target(path.c_str());
    for (Patience patience;;) {
        Win32Handle file(CreateFileW(target, GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ, nullptr,
                                     OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
        if (file.isValid())
            return file;
        if (!patience.isWorthAnotherTry(GetLastError()))
            throw Exception(PLACE(kLoggerHeader, "Logger::openFiles", __LINE__), kCannotComplete);
    }
}

/// Destroys a log that has grown too large.
void discard(Win32Handle& file, const std::wstring& path)
{
    BY_HANDLE_FILE_INFORMATION information{};
    const bool isKnown = GetFileInformationByHandle(file.get(), &information) != FALSE;
    file.reset();
    if (!isKnown)
        throw Exception(PLACE(kLoggerHeader, "Logger::openFiles", __LINE__), kCannotComplete);
    // With a second name it is somebody else's file too: only this name is removed.
    if (information.nNumberOfLinks > 1) {
        DeleteFileW(Win32Path(path.c_str()));
        return;
    }
    // On failure, for instance because somebody reads the file, it is on the boot-time list.
    Wiper wiper;
    wiper.Wipe(nullptr, nullptr, kWipeFile, path.c_str(), nullptr, nullptr, kWipeZeros, 1, nullptr);
}
} // namespace

std::wstring_view LogStamp::now() noexcept
{
    FILETIME time;
    GetSystemTimeAsFileTime(&time);
    const std::uint64_t ticks = (static_cast<std::uint64_t>(time.dwHighDateTime) << 32U) | time.dwLowDateTime;
    if (ticks / kTicksPerSecond != m_second) {
        SYSTEMTIME local;
        GetLocalTime(&local);
        m_second = ticks / kTicksPerSecond;
        m_length = static_cast<std::size_t>(
            std::swprintf(m_text, std::size(m_text), L"[ %02d.%02d.%04d %02d:%02d:%02d ]  ", local.wDay,
                          local.wMonth, local.wYear, local.wHour, local.wMinute, local.wSecond));
    }
    return {m_text, m_length};
}

LogLine::LogLine(const wchar_t* module, const wchar_t* message) noexcept // NOLINT: leaves the rest untouched
{
    append(module);
    append(L":  ");
    append(message);
    m_text[m_length++] = L'\r';
    m_text[m_length++] = L'\n';

    for (std::size_t i = 1; i < m_length; ++i) {
        if (m_text[i] != L'\n')
            continue;
        if (m_text[i - 1] == L'\r')
            break;
        m_text[i] = L' ';
    }
}

void LogLine::append(const wchar_t* part) noexcept
{
    while (*part != L'\0' && m_length < kLongest - 2)
        m_text[m_length++] = *part++;
    // The rest was cut, but not between the halves of a pair.
    if (*part >= 0xDC00 && *part < 0xE000 && m_length != 0 && m_text[m_length - 1] >= 0xD800 &&
        m_text[m_length - 1] < 0xDC00)
        --m_length;
}

void LogQueue::add(HANDLE file, std::wstring_view stamp, std::wstring_view line)
{
    const std::size_t length = stamp.size() + line.size();
    if (m_blocks.empty() || Block::kSize - m_blocks.back().end < sizeOf(length))
        m_blocks.emplace_back();
    Block& block = m_blocks.back();
    auto* entry = new (block.bytes + block.end) Entry{file, length};
    auto* text = reinterpret_cast<wchar_t*>(entry + 1);
    line.copy(text + stamp.copy(text, stamp.size()), line.size());
    block.end += sizeOf(length);
}

const LogQueue::Entry* LogQueue::getFront() const noexcept
{
    if (m_blocks.empty() || m_blocks.front().begin == m_blocks.front().end)
        return nullptr;
    return reinterpret_cast<const Entry*>(m_blocks.front().bytes + m_blocks.front().begin);
}

void LogQueue::removeFront() noexcept
{
    Block& block = m_blocks.front();
    block.begin += sizeOf(getFront()->length);
    if (block.begin != block.end)
        return;
    if (m_blocks.size() != 1)
        m_blocks.pop_front();
    else
        block.begin = block.end = 0;
}

ObjectTable<SharedPtr<Logger>> loggers(20);

class Logger::Guard
{
public:
    explicit Guard(CRITICAL_SECTION& section) noexcept : m_section(section)
    {
        EnterCriticalSection(&m_section);
    }
    Guard(const Guard&) = delete;
    Guard& operator=(const Guard&) = delete;
    ~Guard() { LeaveCriticalSection(&m_section); }

private:
    CRITICAL_SECTION& m_section;
};

Logger::Logger()
{
    InitializeCriticalSection(&m_section);
    try {
        startThread();
        openFiles();
    } catch (...) {
        stopThread();
        DeleteCriticalSection(&m_section);
        throw;
    }
}

Logger::~Logger()
{
    // All loggers' threads in the session listen to it.
    const Win32Handle stopAll(OpenEventW(EVENT_MODIFY_STATE, FALSE, kStopEvent));
    if (stopAll.isValid())
        SetEvent(stopAll.get());
    stopThread();
    DeleteCriticalSection(&m_section);
}

void Logger::startThread()
{
    m_stop.reset(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    m_finished.reset(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    if (!m_stop.isValid() || !m_finished.isValid())
        throw Exception(PLACE(kLoggerHeader, "Logger::Logger", __LINE__), kCannotComplete);
    // The thread's code stays loaded as long as the thread runs.
    if (KeptLibrary::hold() != ERROR_SUCCESS)
        throw Exception(PLACE(kLoggerHeader, "Logger::Logger", __LINE__), kCannotComplete);
    m_thread.reset(CreateThread(nullptr, 0, &Logger::threadMain, this, 0, &m_threadId));
    if (!m_thread.isValid()) {
        KeptLibrary::release();
        throw Exception(PLACE(kLoggerHeader, "Logger::Logger", __LINE__), kCannotComplete);
    }
}

void Logger::openFiles()
{
    // A path with macros, which the expander resolves.
    const CachedPath folder(L"%current%\\logs\\%username%\\", 1);
    createFolders(folder.getPath());

    std::array<std::wstring, kFileCount> paths;
    for (std::size_t i = 0; i < kFileCount; ++i) {
        paths[i] = std::wstring(folder.getPath()) + kFiles[i].name;
        if (paths[i].size() >= LogLine::kCapacity)
            throw Exception(PLACE(kLoggerHeader, "Logger::openFiles", __LINE__), kCannotComplete);
    }
    for (std::size_t i = 0; i < kFileCount; ++i)
        m_files[i] = openLog(paths[i]);
    for (std::size_t i = 0; i < kFileCount; ++i) {
        LARGE_INTEGER size{};
        if (!GetFileSizeEx(m_files[i].get(), &size))
            throw Exception(PLACE(kLoggerHeader, "Logger::openFiles", __LINE__), kCannotComplete);
        if (size.QuadPart < kLargestLog)
            continue;
        discard(m_files[i], paths[i]);
        m_files[i] = openLog(paths[i]);
    }
    for (const Win32Handle& file : m_files)
        if (!SetFilePointerEx(file.get(), LARGE_INTEGER{}, nullptr, FILE_END))
            throw Exception(PLACE(kLoggerHeader, "Logger::openFiles", __LINE__),
                            kCannotComplete); // it would write over old lines
}

/// Returns when the thread no longer uses this object. It waits for that, not for the thread's end, because
/// this may run in the loader lock, which a thread needs to end. It also waits for the thread itself, because
/// at the end of a process the system ends threads abruptly.
void Logger::stopThread() noexcept
{
    if (!m_thread.isValid())
        return;
    m_stopping = true;
    SetEvent(m_stop.get());
    if (GetCurrentThreadId() == m_threadId)
        return; // it has just released the last reference to this library
    const HANDLE either[] = {m_finished.get(), m_thread.get()};
    WaitForMultipleObjects(2, either, FALSE, INFINITE);
}

HANDLE Logger::fileFor(const wchar_t* module) const noexcept
{
    for (std::size_t i = 1; i < kFileCount; ++i)
        if (equalsAscii(module, kFiles[i].module))
            return m_files[i].get();
    return m_files[0].get();
}

void Logger::writeLogEntry(const wchar_t* module, const wchar_t* message)
{
    if (module == nullptr || message == nullptr)
        throw Exception(PLACE(kLoggerHeader, "Logger::WriteLogEntry", __LINE__), ERROR_INVALID_PARAMETER);
    const LogLine line(module, message);
    const HANDLE file = fileFor(module);
    const Guard guard(m_section);
    if (!m_ended)
        m_queue.add(file, m_stamp.now(), line.getText());
}

DWORD WINAPI Logger::threadMain(void* logger) noexcept
{
    const HMODULE library = KeptLibrary::reference();
    auto* self = static_cast<Logger*>(logger);
    const HANDLE finished = self->m_finished.get();
    self->writeEntries();
    SetEvent(finished);
    KeptLibrary::exitThread(library, 0);
}

void Logger::writeEntries() noexcept
{
    const Win32Handle stopAll(CreateEventW(nullptr, TRUE, FALSE, kStopEvent));
    HANDLE file = nullptr;
    wchar_t text[LogLine::kCapacity];
    for (;;) {
        const std::size_t length = copyFront(file, text);
        const bool found = length != 0;
        if (found) {
            DWORD written = 0; // a line that cannot be written is lost
            WriteFile(file, text, static_cast<DWORD>(length * sizeof(wchar_t)), &written, nullptr);
            const Guard guard(m_section);
            m_queue.removeFront();
        }
        if (isSignalled(stopAll.get()) || m_stopping) {
            // Nobody writes what is queued now or later.
            const Guard guard(m_section);
            m_ended = true;
            m_queue.clear();
            return;
        }
        if (!found)
            WaitForSingleObject(m_stop.get(), kPollInterval);
    }
}

// The length of the oldest line, 0 when there is none.
std::size_t Logger::copyFront(HANDLE& file, wchar_t* text) noexcept
{
    const Guard guard(m_section);
    const LogQueue::Entry* entry = m_queue.getFront();
    if (entry == nullptr)
        return 0;
    file = entry->file;
    std::copy_n(entry->getText(), entry->length, text);
    return entry->length;
}
