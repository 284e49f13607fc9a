#pragma once

#include <windows.h>

#include "core/win32/utils/objectmanager/include/Win32Handle.h"

/// Who "the current user" is: to a process of the system's account the user of a session, to any other
/// itself.
namespace usersession {
/// The console's user, or while nobody is logged on there the one of the only active session.
inline constexpr DWORD kAutomatic = 0xFFFFFFFF;
/// The account that the process runs as.
inline constexpr DWORD kOwn = 0xFFFFFFFE;

/// See the exported SetCurrentUserSession.
void choose(DWORD session) noexcept;

/// Whether the current user is the process's own account.
[[nodiscard]] bool isOwn() noexcept;
/// The token of the current user; empty when that is the process's own account. Raises the bare codes of
/// ImpersonateCurrentUser.
[[nodiscard]] Win32Handle token();
} // namespace usersession

/// Makes the calling thread the current user. Returns 0 or a Win32 code; the thread is as it was then. See
/// the exported ImpersonateCurrentUser.
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

    /// Whether the thread was somebody else than its process.
    [[nodiscard]] bool wasImpersonating() const noexcept { return m_token.isValid(); }
    /// Makes the thread what it was, once. Returns 0 or the system's code.
    long restore() noexcept;
    /// Leaves it what it is by now.
    void forget() noexcept { m_restored = true; }

private:
    Win32Handle m_token; // empty when it was nobody but itself
    bool m_restored = false;
};
