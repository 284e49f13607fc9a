#include <windows.h>

#include <userenv.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <memory>
#include <vector>

#include "core/win32/utils/objectmanager/include/ReadWriteLock.h"
#include "core/win32/utils/objectmanager/include/SystemLibrary.h"
#include "core/win32/utils/paths/include/Paths.h"
#include "core/win32/utils/processmanager/include/Process.h"
#include "core/win32/utils/processmanager/include/Sessions.h"
#include "core/win32/utils/strings/include/Strings.h"
#include "core/win32/utils/time/include/Time.h"
#include "win32/processes/include/ProcessOptions.h"

namespace {
constexpr DWORD kBuffer = 65536; // bytes, for the pipe and for each read

/// The command line, quoted so that every argument can be read in only one way.
std::wstring commandLineOf(const SessionProgram& program)
{
    std::wstring line = strings::quoteArgument(program.program);
    for (std::size_t i = 0; i < program.argumentCount; ++i)
        line.append(L" ").append(strings::quoteArgument(program.arguments[i]));
    return line;
}

void requireUsable(const SessionProgram& program)
{
    constexpr unsigned long kKnown = kRunElevated | kRunWait | kRunCapture | kRunEndOnTimeout;
    const bool hasArguments = program.argumentCount == 0 ||
                              (program.arguments != nullptr &&
                               std::all_of(program.arguments, program.arguments + program.argumentCount,
                                           [](const wchar_t* each) { return each != nullptr; }));
    if (program.program == nullptr || *program.program == L'\0' || !hasArguments ||
        (program.options & ~kKnown) != 0)
        raiseCode(ERROR_INVALID_PARAMETER);
    if (paths::normalize(program.program) != program.program) // not absolute: it might mean another file
        raiseCode(ERROR_INVALID_PARAMETER);
    for (const wchar_t* ending : {L".bat", L".cmd"}) // their arguments follow other rules
        if (strings::endsWith(program.program, ending, true))
            raiseCode(ERROR_BAD_EXE_FORMAT);
    if ((program.options & (kRunWait | kRunCapture)) != 0)
        requireEvent(program.cancelEvent);
}

SECURITY_ATTRIBUTES inheritable() noexcept
{
    return {sizeof(SECURITY_ATTRIBUTES), nullptr, TRUE};
}

/// The user's environment.
class Environment
{
public:
    explicit Environment(HANDLE token) : m_library(L"userenv.dll")
    {
        m_destroy = m_library.function<decltype(&DestroyEnvironmentBlock)>("DestroyEnvironmentBlock");
        if (!m_library.function<decltype(&CreateEnvironmentBlock)>("CreateEnvironmentBlock")(&m_block, token,
                                                                                             FALSE))
            raiseLastError();
    }
    Environment(const Environment&) = delete;
    Environment& operator=(const Environment&) = delete;
    ~Environment() { m_destroy(m_block); }
    [[nodiscard]] void* get() const noexcept { return m_block; }

    [[nodiscard]] std::wstring profileOf(HANDLE token) const
    {
        std::wstring path(MAX_PATH, L'\0');
        auto size = static_cast<DWORD>(path.size());
        const auto ask = m_library.function<decltype(&GetUserProfileDirectoryW)>("GetUserProfileDirectoryW");
        if (!ask(token, path.data(), &size))
            raiseLastError();
        return path.c_str();
    }

private:
    SystemLibrary m_library;
    decltype(&DestroyEnvironmentBlock) m_destroy = nullptr;
    void* m_block = nullptr;
};

/// The list of handles that a program inherits: these and no other inheritable ones.
class InheritedHandles
{
public:
    explicit InheritedHandles(std::vector<HANDLE> handles) : m_handles(std::move(handles))
    {
        SIZE_T size = 0;
        InitializeProcThreadAttributeList(nullptr, 1, 0, &size);
        m_memory.resize(size);
        if (!InitializeProcThreadAttributeList(get(), 1, 0, &size))
            raiseLastError();
        if (!UpdateProcThreadAttribute(get(), 0, PROC_THREAD_ATTRIBUTE_HANDLE_LIST, m_handles.data(),
                                       m_handles.size() * sizeof(HANDLE), nullptr, nullptr)) {
            const long code = lastError();
            DeleteProcThreadAttributeList(get());
            raiseCode(code);
        }
    }
    InheritedHandles(const InheritedHandles&) = delete;
    InheritedHandles& operator=(const InheritedHandles&) = delete;
    ~InheritedHandles() { DeleteProcThreadAttributeList(get()); }

    [[nodiscard]] LPPROC_THREAD_ATTRIBUTE_LIST get() noexcept
    {
        return reinterpret_cast<LPPROC_THREAD_ATTRIBUTE_LIST>(m_memory.data());
    }

private:
    std::vector<HANDLE> m_handles;
    std::vector<unsigned char> m_memory;
};

bool hasBeenSet(HANDLE event) noexcept
{
    return WaitForSingleObject(event, 0) == WAIT_OBJECT_0;
}

Win32Handle openNothing()
{
    SECURITY_ATTRIBUTES security = inheritable();
    Win32Handle nothing(CreateFileW(L"NUL", GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, &security,
                                    OPEN_EXISTING, 0, nullptr));
    if (!nothing.isValid())
        raiseLastError();
    return nothing;
}
} // namespace

/// The time and the cancel event of one wait.
class SessionWait
{
public:
    explicit SessionWait(const SessionProgram& program) noexcept
        : m_deadline(program.timeout), m_cancelEvent(program.cancelEvent)
    {
    }

    /// Waits for one of two handles; the second may be null. Returns whether it was the first. Raises 1460
    /// and 1223.
    [[nodiscard]] bool forEither(HANDLE first, HANDLE second) const
    {
        std::array<HANDLE, 3> handles{first, nullptr, nullptr};
        DWORD count = 1;
        for (const HANDLE each : {second, m_cancelEvent})
            if (each != nullptr)
                handles[count++] = each;
        const DWORD signalled =
            WaitForMultipleObjects(count, handles.data(), FALSE, m_deadline.getLeft()) - WAIT_OBJECT_0;
        if (signalled == WAIT_TIMEOUT)
            raiseCode(ERROR_TIMEOUT);
        if (signalled >= count)
            raiseLastError();
        if (handles[signalled] == m_cancelEvent)
            raiseCode(ERROR_CANCELLED);
        return signalled == 0;
    }

private:
    Deadline m_deadline;
    HANDLE m_cancelEvent;
};

SessionRun::SessionRun(const SessionProgram& program) : m_program(program)
{
    requireUsable(program);
    if ((program.options & kRunCapture) == 0) {
        start(nullptr);
        return;
    }
    const Win32Handle input = openNothing();
    openPipe();
    start(input.get());
    m_writing.reset();
}

/// A named pipe, because an anonymous one cannot be waited for together with other handles.
void SessionRun::openPipe()
{
    static std::atomic<unsigned> number{0};
    const std::wstring name = L"\\\\.\\pipe\\sysmaint-" + std::to_wstring(GetCurrentProcessId()) + L"-" +
                              std::to_wstring(GetTickCount64()) + L"-" + std::to_wstring(++number);
    m_reading.reset(CreateNamedPipeW(
        name.c_str(), PIPE_ACCESS_INBOUND | FILE_FLAG_OVERLAPPED | FILE_FLAG_FIRST_PIPE_INSTANCE,
        PIPE_TYPE_BYTE | PIPE_READMODE_BYTE | PIPE_WAIT | PIPE_REJECT_REMOTE_CLIENTS, 1, kBuffer, kBuffer, 0,
        nullptr));
    if (!m_reading.isValid())
        raiseLastError();
    SECURITY_ATTRIBUTES security = inheritable();
    m_writing.reset(CreateFileW(name.c_str(), GENERIC_WRITE | FILE_READ_ATTRIBUTES, 0, &security,
                                OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!m_writing.isValid()) // somebody else connected first, and gets nothing
        raiseLastError();
}

void SessionRun::start(HANDLE input)
{
    const Win32Handle token =
        sessions::primaryToken(m_program.session, (m_program.options & kRunElevated) != 0);
    const Environment environment(token.get());
    const std::wstring folder =
        m_program.folder != nullptr ? m_program.folder : environment.profileOf(token.get());
    std::wstring command = commandLineOf(m_program); // the system writes into it
    std::wstring desktop = L"winsta0\\default";
    STARTUPINFOEXW startup{};
    startup.StartupInfo.cb = sizeof startup.StartupInfo;
    startup.StartupInfo.lpDesktop = desktop.data();
    DWORD flags = CREATE_UNICODE_ENVIRONMENT;
    std::unique_ptr<InheritedHandles> inherited;
    if (m_writing.isValid()) {
        inherited = std::make_unique<InheritedHandles>(std::vector<HANDLE>{input, m_writing.get()});
        startup.StartupInfo.cb = sizeof startup;
        startup.StartupInfo.dwFlags = STARTF_USESTDHANDLES;
        startup.StartupInfo.hStdInput = input;
        startup.StartupInfo.hStdOutput = startup.StartupInfo.hStdError = m_writing.get();
        startup.lpAttributeList = inherited->get();
        flags |= EXTENDED_STARTUPINFO_PRESENT | CREATE_NO_WINDOW;
    }
    PROCESS_INFORMATION started{};
    if (!CreateProcessAsUserW(token.get(), m_program.program, command.data(), nullptr, nullptr,
                              m_writing.isValid() ? TRUE : FALSE, flags, environment.get(), folder.c_str(),
                              &startup.StartupInfo, &started))
        raiseLastError();
    m_process.reset(started.hProcess);
    const Win32Handle thread(started.hThread);
    m_processId = started.dwProcessId;
}

void SessionRun::wait()
{
    if ((m_program.options & (kRunWait | kRunCapture)) == 0)
        return;
    SessionWait waiting(m_program);
    try {
        if (m_reading.isValid())
            collect(waiting);
        else
            static_cast<void>(waiting.forEither(m_process.get(), nullptr));
    } catch (long) {
        if ((m_program.options & kRunEndOnTimeout) != 0)
            endAll();
        throw;
    }
}

/// Reads until the last writer is gone, or until the program has ended and its output has been read: its
/// children may live on and hold the pipe.
void SessionRun::collect(SessionWait& waiting)
{
    const Win32Handle ready(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    if (!ready.isValid())
        raiseLastError();
    const auto buffer = std::make_unique_for_overwrite<char[]>(kBuffer); // NOLINT(modernize-avoid-c-arrays)
    HANDLE process = m_process.get();
    for (;;) {
        OVERLAPPED overlapped{};
        overlapped.hEvent = ready.get();
        DWORD size = 0;
        const bool isRead = ReadFile(m_reading.get(), buffer.get(), kBuffer, nullptr, &overlapped) != 0;
        if (!isRead && GetLastError() == ERROR_BROKEN_PIPE)
            break;
        if (!isRead && GetLastError() != ERROR_IO_PENDING)
            raiseLastError();
        const auto finish = [&](bool cancel) {
            if (cancel)
                CancelIoEx(m_reading.get(), &overlapped);
            const long code =
                GetOverlappedResult(m_reading.get(), &overlapped, &size, TRUE) ? ERROR_SUCCESS : lastError();
            m_output.append(buffer.get(), code == ERROR_SUCCESS ? size : 0);
            return code;
        };
        bool hasEnded = false;
        try {
            hasEnded =
                process == nullptr ? !hasBeenSet(ready.get()) : !waiting.forEither(ready.get(), process);
        } catch (...) {
            static_cast<void>(finish(true)); // the system must not write into freed memory
            throw;
        }
        if (hasEnded)
            process = nullptr; // from now on read only what is there already
        const long code = finish(hasEnded);
        if (code == ERROR_BROKEN_PIPE || code == ERROR_OPERATION_ABORTED)
            break;
        requireSuccess(code);
    }
    if (m_process.isValid())
        static_cast<void>(waiting.forEither(m_process.get(), nullptr));
}

void SessionRun::endAll() const noexcept
{
    try {
        ProcessEntry entry{};
        entry.id = m_processId;
        FILETIME started, exited, kernel, user;
        if (GetProcessTimes(m_process.get(), &started, &exited, &kernel, &user)) {
            entry.startTime = timetext::number(started);
            constexpr unsigned long kEndWait = 5000; // milliseconds
            Process(entry).end(kEndTree, kEndWait);
        }
    } catch (...) { // NOLINT(bugprone-empty-catch): the time-out is raised anyway
    }
}

unsigned long SessionRun::getExitCode() const
{
    DWORD code = STILL_ACTIVE;
    if (m_process.isValid() && !GetExitCodeProcess(m_process.get(), &code))
        raiseLastError();
    return code;
}
