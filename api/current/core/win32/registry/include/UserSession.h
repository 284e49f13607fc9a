#pragma once

#include <windows.h>

#include "core/win32/utils/objectmanager/include/SharedPtr.h"
#include "core/win32/utils/objectmanager/include/Win32Handle.h"

/// Makes the calling thread the user who is logged on at the console. Returns 0 or a Win32 code; the thread
/// is as it was then. See the exported ImpersonateCurrentUser.
long impersonateLoggedOnUser() noexcept;

/// Takes note of who the calling thread impersonates, and makes it so again.
class ThreadIdentity
{
public:
    /// Raises the bare Win32 code when the thread's token cannot be had.
    ThreadIdentity();
    ThreadIdentity(const ThreadIdentity&) = delete;
    ThreadIdentity& operator=(const ThreadIdentity&) = delete;
    ~ThreadIdentity() { static_cast<void>(restore()); }

    /// Makes the thread what it was, once. Returns 0 or the system's code.
    long restore() noexcept;

private:
    Win32Handle m_token; // empty when it was nobody but itself
    bool m_restored = false;
};
