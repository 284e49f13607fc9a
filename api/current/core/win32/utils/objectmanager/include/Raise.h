#pragma once

#include <windows.h>

#include <concepts>

/// Raises a Win32 code as a bare long. For raise sites without a place text.
template <std::integral Code>
[[noreturn]] void raiseCode(Code code)
{
    throw static_cast<long>(code);
}

/// The thread's last error as a status.
[[nodiscard]] inline long lastError() noexcept
{
    return static_cast<long>(GetLastError());
}

/// Raises the thread's last error as a bare long.
[[noreturn]] inline void raiseLastError()
{
    raiseCode(lastError());
}

/// Before anything begins that a cancel event may end: raises 1223 when it is signalled already, and the
/// system's code, 6 for an invalid handle, when it cannot be polled. A null event is fine.
inline void requireEvent(HANDLE cancelEvent)
{
    const DWORD answer = cancelEvent != nullptr ? WaitForSingleObject(cancelEvent, 0) : WAIT_TIMEOUT;
    if (answer == WAIT_FAILED)
        raiseLastError();
    if (answer == WAIT_OBJECT_0)
        raiseCode(ERROR_CANCELLED);
}

/// Raises `code` as a bare long unless it is 0.
inline void requireSuccess(long code)
{
    if (code != ERROR_SUCCESS)
        raiseCode(code);
}
