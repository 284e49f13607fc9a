#pragma once

#include <windows.h>

/// Raises a Win32 code as a bare long. For raise sites without a place text.
[[noreturn]] inline void raiseCode(long code)
{
    throw code;
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

/// Raises `code` as a bare long unless it is 0.
inline void requireSuccess(long code)
{
    if (code != ERROR_SUCCESS)
        raiseCode(code);
}
