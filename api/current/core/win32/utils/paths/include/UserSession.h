#pragma once

#include <windows.h>

#include "core/win32/utils/objectmanager/include/Win32Handle.h"

/// Who "the current user" is: for a process of the system's account the user of a session, for any other the
/// process's own user.
namespace usersession {
/// The console's user; if nobody is logged on there, the user of the only active session.
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

/// Makes the calling thread impersonate the current user. Returns 0, or a Win32 code with the thread
/// unchanged. See the exported ImpersonateCurrentUser.
long impersonateLoggedOnUser() noexcept;

/// Remembers whom the calling thread impersonates, and restores that.
class ThreadIdentity
{
public:
    /// Raises the bare Win32 code when the thread's token cannot be opened.
    ThreadIdentity();
    ThreadIdentity(const ThreadIdentity&) = delete;
    ThreadIdentity& operator=(const ThreadIdentity&) = delete;
    ~ThreadIdentity() { static_cast<void>(restore()); }

    /// Whether the thread impersonated somebody.
    [[nodiscard]] bool wasImpersonating() const noexcept { return m_token.isValid(); }
    /// Restores the thread's identity, once. Returns 0 or the system's code.
    long restore() noexcept;
    /// Keeps the thread's present identity.
    void forget() noexcept { m_restored = true; }

private:
    Win32Handle m_token; // empty when it did not impersonate
    bool m_restored = false;
};
