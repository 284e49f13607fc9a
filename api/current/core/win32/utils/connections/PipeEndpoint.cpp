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
    explicit PipeWire(Win32Handle pipe) : m_pipe(std::move(pipe)) {}

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
    if (m_listening)
        return;
    m_waiting.push_back(makeInstance(true));
    m_listening = true;
}

// An instance that is not the first may be made only while another one of ours exists: it would otherwise be
// one of whoever has taken the name.
Win32Handle PipeServer::takeInstance()
{
    const WriteLocker locker(m_lock);
    if (!m_listening)
        raiseCode(ERROR_NOT_CONNECTED);
    if (m_waiting.empty())
        return makeInstance(false); // other threads wait at all the others
    Win32Handle instance = std::move(m_waiting.back());
    m_waiting.pop_back();
    return instance;
}

void PipeServer::giveBack(Win32Handle instance)
{
    const WriteLocker locker(m_lock);
    if (m_listening && m_waiting.empty())
        m_waiting.push_back(std::move(instance)); // has room: one was taken out
}

// Without a next instance the client is sent away, and its instance stays for others.
long PipeServer::prepareNext(Win32Handle& connected)
{
    const long code = boundary::statusOf([&]() -> long {
        giveBack(makeInstance(false));
        return ERROR_SUCCESS;
    });
    if (code != ERROR_SUCCESS) {
        DisconnectNamedPipe(connected.get());
        giveBack(std::move(connected));
    }
    return code;
}

WirePtr PipeServer::accept(const WaitLimits& limits)
{
    listen(limits);
    const Win32Handle event = makeEvent();
    for (;;) {
        Win32Handle pipe = takeInstance();
        OverlappedCall call(event.get());
        const long begun = ConnectNamedPipe(pipe.get(), &call.get()) ? ERROR_SUCCESS : lastError();
        DWORD done = 0;
        long code = begun == ERROR_PIPE_CONNECTED ? ERROR_SUCCESS : begun;
        if (begun == ERROR_IO_PENDING)
            code = call.finish(pipe.get(), begun, limits, done, [&](OVERLAPPED& overlapped, DWORD& count) {
                return pipeResult(pipe.get(), overlapped, count);
            });
        if (code == ERROR_SUCCESS) {
            requireSuccess(prepareNext(pipe)); // before the client's may go
            return std::make_shared<PipeWire>(std::move(pipe));
        }
        if (endedCode(code) == ERROR_BROKEN_PIPE) { // a client that has gone already
            DisconnectNamedPipe(pipe.get());
            giveBack(std::move(pipe));
            continue;
        }
        giveBack(std::move(pipe));
        raiseCode(code);
    }
}

void PipeServer::stopListening() noexcept
{
    const WriteLocker locker(m_lock);
    m_waiting.clear();
    m_listening = false;
}
