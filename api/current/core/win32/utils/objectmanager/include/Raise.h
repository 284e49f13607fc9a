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

/// Raises the system's code, 6 for what is no handle, when a cancel event cannot be asked: nobody could stop
/// what goes on with it. A null event is fine.
inline void requireEvent(HANDLE cancelEvent)
{
    if (cancelEvent != nullptr && WaitForSingleObject(cancelEvent, 0) == WAIT_FAILED)
        raiseLastError();
}

/// Raises `code` as a bare long unless it is 0.
inline void requireSuccess(long code)
{
    if (code != ERROR_SUCCESS)
        raiseCode(code);
}
