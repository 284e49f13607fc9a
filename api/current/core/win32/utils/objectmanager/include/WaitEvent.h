#pragma once

#include <windows.h>

#include "core/win32/utils/objectmanager/include/Raise.h"

/// Waits until `event` is signalled, for at most `timeout` milliseconds (INFINITE: indefinitely). An `extra`
/// handle, which may be null, ends the wait early when it is signalled; `event` takes precedence if both are.
///
/// Returns 0; 258 when the time is over; 1223 when `extra` ended the wait; or the system's code.
inline long waitForEvent(HANDLE event, DWORD timeout, HANDLE extra) noexcept
{
    const HANDLE handles[] = {event, extra};
    switch (WaitForMultipleObjects(extra != nullptr ? 2 : 1, handles, FALSE, timeout)) {
    case WAIT_OBJECT_0:
        return ERROR_SUCCESS;
    case WAIT_OBJECT_0 + 1:
    case WAIT_ABANDONED_0 + 1:
        return ERROR_CANCELLED;
    case WAIT_TIMEOUT:
        return WAIT_TIMEOUT;
    default:
        return lastError();
    }
}
