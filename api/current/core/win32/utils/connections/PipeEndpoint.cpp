#include "core/win32/utils/connections/include/PipeEndpoint.h"

#include <sddl.h>

#include <string_view>

#include "core/win32/utils/objectmanager/include/Boundary.h"
#include "core/win32/utils/security/include/Security.h"

namespace {
constexpr DWORD kBufferSize = 64U << 10U;
constexpr std::size_t kLongestName = 256 - 9; // with "\\.\pipe\" and the system's own limit
constexpr DWORD kRetryInterval = 10;          // milliseconds

/// What the system says when the other end is gone, in reading, writing and connecting.
long endedCode(long code) noexcept
{
    const bool gone = code == ERROR_NO_DATA || code == ERROR_PIPE_NOT_CONNECTED || code == ERROR_HANDLE_EOF;
    return gone ? static_cast<long>(ERROR_BROKEN_PIPE) : code;
}

long pipeResult(HANDLE pipe, OVERLAPPED& overlapped, DWORD& done) noexcept
{
    return GetOverlappedResult(pipe, &overlapped, &done, TRUE) ? ERROR_SUCCESS : endedCode(lastError());
}

class PipeWire final : public Wire
{
public:
    explicit PipeWire(Win32Handle pipe) : Wire(makeSharedEvent()), m_pipe(std::move(pipe)) {}

protected:
    long beginRead(void* target, DWORD size, OVERLAPPED& overlapped) noexcept override
    {
        return ReadFile(m_pipe.get(), target, size, nullptr, &overlapped) ? ERROR_SUCCESS
                                                                          : endedCode(lastError());
    }
    long beginWrite(const void* source, DWORD size, OVERLAPPED& overlapped) noexcept override
    {
        return WriteFile(m_pipe.get(), source, size, nullptr, &overlapped) ? ERROR_SUCCESS
                                                                           : endedCode(lastError());
    }
    long resultOf(OVERLAPPED& overlapped, DWORD& done) noexcept override
    {
        return pipeResult(m_pipe.get(), overlapped, done);
    }
    [[nodiscard]] HANDLE getHandle() const noexcept override { return m_pipe.get(); }

private:
    Win32Handle m_pipe;
};

/// Access for the process's own user and administrators, and nobody else.
class OwnersOnly
{
public:
    OwnersOnly()
    {
        std::wstring text = L"D:P(A;;GA;;;BA)(A;;GA;;;";
        text.append(sids::ofCurrentUser()).append(L")");
        if (!ConvertStringSecurityDescriptorToSecurityDescriptorW(
                text.c_str(), SDDL_REVISION_1, &m_attributes.lpSecurityDescriptor, nullptr))
            raiseLastError();
    }
    OwnersOnly(const OwnersOnly&) = delete;
    OwnersOnly& operator=(const OwnersOnly&) = delete;
    ~OwnersOnly() { LocalFree(m_attributes.lpSecurityDescriptor); }

    [[nodiscard]] SECURITY_ATTRIBUTES* get() noexcept { return &m_attributes; }

private:
    SECURITY_ATTRIBUTES m_attributes{sizeof(SECURITY_ATTRIBUTES), nullptr, FALSE};
};
} // namespace

// "..", a slash, and a dot or a blank at the end are what the system would make another path of.
std::wstring pipePath(const wchar_t* connectionName)
{
    constexpr std::wstring_view kRefused = L"/<>\"|?*";
    std::wstring_view name = connectionName;
    name = name.substr(0, name.find(L'\\'));
    const bool isPlain = !name.empty() && name.size() <= kLongestName && name.back() != L'.' &&
                         name.back() != L' ' && std::none_of(name.begin(), name.end(), [&](wchar_t c) {
                             return c < L' ' || kRefused.find(c) != std::wstring_view::npos;
                         });
    if (!isPlain)
        raiseCode(ERROR_INVALID_PARAMETER);
    return std::wstring(L"\\\\.\\pipe\\").append(name);
}

WirePtr PipeClient::connect(const WaitLimits& limits)
{
    for (;;) {
        Win32Handle pipe(CreateFileW(m_path.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING,
                                     FILE_FLAG_OVERLAPPED | SECURITY_SQOS_PRESENT | SECURITY_IDENTIFICATION,
                                     nullptr));
        if (pipe.isValid())
            return std::make_shared<PipeWire>(std::move(pipe));
        if (GetLastError() != ERROR_PIPE_BUSY)
            raiseLastError();
        // The system's own wait for a free instance cannot be cancelled.
        const long code = limits.wait(nullptr, kRetryInterval);
        if (code != WAIT_TIMEOUT || limits.deadline.getLeft() == 0)
            raiseCode(code);
    }
}

Win32Handle PipeServer::makeInstance(bool first) const
{
    OwnersOnly owners;
    Win32Handle pipe(CreateNamedPipeW(
        m_path.c_str(),
        PIPE_ACCESS_DUPLEX | FILE_FLAG_OVERLAPPED | (first ? FILE_FLAG_FIRST_PIPE_INSTANCE : 0),
        PIPE_TYPE_BYTE | PIPE_READMODE_BYTE | PIPE_WAIT | PIPE_REJECT_REMOTE_CLIENTS,
        PIPE_UNLIMITED_INSTANCES, kBufferSize, kBufferSize, 0, owners.get()));
    if (!pipe.isValid())
        raiseLastError();
    return pipe;
}

void PipeServer::listen(const WaitLimits&)
{
    const WriteLocker locker(m_lock);
    if (m_instance.isValid())
        return;
    m_event = makeEvent();
    m_instance = makeInstance(true);
}

// 0: a client is there; 997: none yet, and the event tells of the next.
long PipeServer::awaitClient() noexcept
{
    if (m_isAwaiting) {
        DWORD done = 0;
        const long code =
            GetOverlappedResult(m_instance.get(), &m_awaiting, &done, FALSE) ? ERROR_SUCCESS : lastError();
        if (code == ERROR_IO_INCOMPLETE)
            return ERROR_IO_PENDING;
        m_isAwaiting = false;
        if (code != ERROR_OPERATION_ABORTED) // it ends with the thread that began it
            return endedCode(code);
    }
    m_awaiting = {};
    m_awaiting.hEvent = m_event.get();
    const long code = ConnectNamedPipe(m_instance.get(), &m_awaiting) ? ERROR_SUCCESS : lastError();
    m_isAwaiting = code == ERROR_IO_PENDING;
    return code == ERROR_PIPE_CONNECTED ? ERROR_SUCCESS : endedCode(code);
}

// The instance stays, and awaits another.
void PipeServer::dismissClient() noexcept
{
    DisconnectNamedPipe(m_instance.get());
    SetEvent(m_event.get());
}

// An instance that is not the first may be made only while another one of ours exists: it would otherwise be
// one of whoever has taken the name.
Win32Handle PipeServer::takeClient()
{
    const WriteLocker locker(m_lock);
    for (;;) {
        const long code = awaitClient();
        if (code == ERROR_IO_PENDING)
            return {};
        if (code != ERROR_SUCCESS && code != ERROR_BROKEN_PIPE)
            raiseCode(code);
        if (code == ERROR_SUCCESS)
            break;
        dismissClient(); // it has gone already
    }
    Win32Handle client;
    const long code = boundary::statusOf([&]() -> long {
        client = makeInstance(false);
        return ERROR_SUCCESS;
    });
    if (code != ERROR_SUCCESS) {
        dismissClient(); // its instance is needed to keep the name
        raiseCode(code);
    }
    std::swap(client, m_instance);
    SetEvent(m_event.get()); // whoever waits watches the next instance
    return client;
}

WirePtr PipeServer::accept(const WaitLimits& limits)
{
    listen(limits);
    for (;;) {
        Win32Handle client = takeClient();
        if (client.isValid())
            return std::make_shared<PipeWire>(std::move(client));
        requireSuccess(limits.wait(m_event.get()));
    }
}

void PipeServer::stopListening() noexcept
{
    const WriteLocker locker(m_lock);
    if (m_isAwaiting) {
        DWORD done = 0;
        CancelIoEx(m_instance.get(), &m_awaiting);
        GetOverlappedResult(m_instance.get(), &m_awaiting, &done, TRUE);
        m_isAwaiting = false;
    }
    m_instance.reset();
}
