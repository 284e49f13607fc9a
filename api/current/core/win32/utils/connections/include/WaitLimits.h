#pragma once

#include <windows.h>

#include <algorithm>
#include <array>

#include "core/win32/utils/objectmanager/include/ProcessEnd.h"
#include "core/win32/utils/objectmanager/include/Raise.h"
#include "core/win32/utils/objectmanager/include/ReadWriteLock.h"
#include "core/win32/utils/objectmanager/include/Win32Handle.h"

/// How long an operation on a connection may wait, and what ends it early.
struct WaitLimits
{
    /// `timeout` in milliseconds; in the loader lock 5 seconds at most. `event` is the caller's and may be
    /// null. Raises 1223 when it is signalled already.
    WaitLimits(DWORD timeout, HANDLE event) : deadline(waitLimit(timeout)), cancelEvent(event)
    {
        if (isCancelled(event))
            raiseCode(ERROR_CANCELLED);
    }
    /// The same for who knows that `event` is not signalled, without asking the system.
    WaitLimits(const Deadline& limit, HANDLE event) noexcept : deadline(limit), cancelEvent(event) {}
    /// The same as the first for a caller's own handle: raises 6 for anything but an event, too.
    [[nodiscard]] static WaitLimits ofEvent(DWORD timeout, HANDLE event)
    {
        requireEvent(event);
        return {Deadline(waitLimit(timeout)), event};
    }

    Deadline deadline;
    HANDLE cancelEvent;
    HANDLE stopEvent = nullptr; ///< the connection is being disconnected

    /// Waits for `event`, which comes first when several are signalled, for at most `most` milliseconds of
    /// what is left. Returns 0, 258 (the time is over), 1223 (cancelled), 2250 (disconnected), or the
    /// system's code.
    [[nodiscard]] long wait(HANDLE event, DWORD most = INFINITE) const noexcept
    {
        std::array<HANDLE, 3> handles{};
        std::array<long, 3> codes{};
        DWORD count = 0;
        const auto add = [&](HANDLE handle, long code) {
            if (handle == nullptr)
                return;
            handles[count] = handle;
            codes[count++] = code;
        };
        add(event, ERROR_SUCCESS);
        add(cancelEvent, ERROR_CANCELLED);
        add(stopEvent, ERROR_NOT_CONNECTED);
        const DWORD timeout = std::min(most, deadline.getLeft());
        if (count == 0) {
            Sleep(timeout);
            return WAIT_TIMEOUT;
        }
        const DWORD result = WaitForMultipleObjects(count, handles.data(), FALSE, timeout);
        if (result == WAIT_FAILED)
            return lastError();
        if (result == WAIT_TIMEOUT)
            return WAIT_TIMEOUT;
        const DWORD signalled = result % WAIT_ABANDONED_0; // a caller's mutex may be abandoned
        if (handles[signalled] == cancelEvent)
            giveBackTaken(cancelEvent);
        return codes[signalled];
    }
};
