#pragma once

#include <memory>

#include "core/win32/utils/connections/include/WaitLimits.h"

/// A new event for overlapped operations. Raises the system's code.
[[nodiscard]] inline Win32Handle makeEvent()
{
    Win32Handle event(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    if (!event.isValid())
        raiseLastError();
    return event;
}

/// An event that several owners use one after another.
using EventPtr = std::shared_ptr<const Win32Handle>;
[[nodiscard]] inline EventPtr makeSharedEvent()
{
    return std::make_shared<const Win32Handle>(makeEvent());
}

/// One overlapped operation. When `finish` returns, the system is done with it: its memory and the caller's
/// may go.
class OverlappedCall
{
public:
    explicit OverlappedCall(HANDLE event) noexcept { m_overlapped.hEvent = event; }
    OverlappedCall(const OverlappedCall&) = delete;
    OverlappedCall& operator=(const OverlappedCall&) = delete;
    ~OverlappedCall() = default;

    [[nodiscard]] OVERLAPPED& get() noexcept { return m_overlapped; }

    /// Waits for an operation on `file` that was begun with the code `begun` (0 or 997: it is on its way), as
    /// long as the limits allow, and takes it back after that. `resultOf(overlapped, done)` waits for the
    /// operation's end and returns its code. Returns 0 for an operation that was done in the last moment, or
    /// the code of the wait or of the operation.
    template <class ResultOf>
    long finish(HANDLE file, long begun, const WaitLimits& limits, DWORD& done, ResultOf&& resultOf) noexcept
    {
        if (begun != ERROR_SUCCESS && begun != ERROR_IO_PENDING)
            return begun;
        const long waited = begun == ERROR_SUCCESS ? ERROR_SUCCESS : limits.wait(m_overlapped.hEvent);
        if (waited != ERROR_SUCCESS)
            CancelIoEx(file, &m_overlapped);
        const long code = resultOf(m_overlapped, done);
        return code == ERROR_SUCCESS || waited == ERROR_SUCCESS ? code : waited;
    }

private:
    OVERLAPPED m_overlapped{};
};
