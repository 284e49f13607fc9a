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

/// Before anything begins that a cancel event may end: raises 1223 when it is signalled already, 6 for
/// anything but an event (a wait would take a mutex, and never end with a timer's), and the system's code
/// when it cannot be polled. A null event is fine.
void requireEvent(HANDLE cancelEvent);

/// Whether a caller's cancel event is signalled: one poll, as isSignalled, which gives back what it takes. So
/// every poll finds the same.
[[nodiscard]] bool isCancelled(HANDLE cancelEvent) noexcept;

/// Gives back what a wait has taken of a handle that a caller gave as a cancel event: a mutex, a count of a
/// semaphore, or the signal of an event that resets itself.
void giveBackTaken(HANDLE cancelEvent) noexcept;

/// Why a poll of that event has ended a call: 1223; 6 when it is closed or anything but an event; or the
/// system's code when it must not be waited for.
[[nodiscard]] long codeOfCancelled(HANDLE cancelEvent) noexcept;

/// Raises `code` as a bare long unless it is 0.
inline void requireSuccess(long code)
{
    if (code != ERROR_SUCCESS)
        raiseCode(code);
}
