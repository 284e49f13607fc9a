#include "core/win32/utils/paths/include/UserSession.h"

#include <wtsapi32.h>

#include <atomic>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include "core/win32/utils/objectmanager/include/Boundary.h"
#include "core/win32/utils/objectmanager/include/Raise.h"

namespace {
constexpr DWORD kNoSession = 0xFFFFFFFF;

std::atomic<DWORD> g_chosen{usersession::kAutomatic};

/// Whether this process runs as the system's own account. If its token cannot be read the answer is yes:
/// nobody must be taken for a user by mistake.
bool isLocalSystem() noexcept
{
    HANDLE opened = nullptr;
    if (!OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, &opened))
        return true;
    const Win32Handle token(opened);
    alignas(TOKEN_USER) BYTE user[sizeof(TOKEN_USER) + SECURITY_MAX_SID_SIZE];
    DWORD length = 0;
    return !GetTokenInformation(token.get(), TokenUser, user, sizeof user, &length) ||
           IsWellKnownSid(reinterpret_cast<const TOKEN_USER*>(user)->User.Sid, WinLocalSystemSid);
}

template <class Function>
Function terminalServices(const ModuleHandle& library, const char* name)
{
    const auto found =
        reinterpret_cast<Function>(reinterpret_cast<void*>(GetProcAddress(library.get(), name)));
    if (found == nullptr)
        raiseLastError();
    return found;
}

using QueryUserToken = BOOL(WINAPI*)(ULONG, PHANDLE);

/// The sessions, besides the console's, in which somebody is working.
std::vector<DWORD> activeSessions(const ModuleHandle& library, DWORD console)
{
    const auto enumerate =
        terminalServices<decltype(&WTSEnumerateSessionsW)>(library, "WTSEnumerateSessionsW");
    const auto release = terminalServices<decltype(&WTSFreeMemory)>(library, "WTSFreeMemory");
    WTS_SESSION_INFOW* sessions = nullptr;
    DWORD count = 0;
    if (!enumerate(WTS_CURRENT_SERVER_HANDLE, 0, 1, &sessions, &count))
        raiseLastError();
    const std::unique_ptr<WTS_SESSION_INFOW, decltype(release)> owner(sessions, release);
    std::vector<DWORD> active;
    for (DWORD i = 0; i < count; ++i)
        if (sessions[i].State == WTSActive && sessions[i].SessionId != console)
            active.push_back(sessions[i].SessionId);
    return active;
}

/// The user of the only one of these sessions that has a user; `code` if none has. Raises 7022 when several
/// have, since it is unknown which is meant.
Win32Handle onlyUser(const std::vector<DWORD>& sessions, QueryUserToken query, long code)
{
    Win32Handle user;
    for (const DWORD session : sessions) {
        HANDLE queried = nullptr;
        if (!query(session, &queried)) {
            if (GetLastError() != ERROR_NO_TOKEN)
                raiseLastError();
            continue;
        }
        Win32Handle token(queried);
        if (user.isValid())
            raiseCode(ERROR_CTX_WINSTATION_NOT_FOUND);
        user = std::move(token);
    }
    if (!user.isValid())
        raiseCode(code);
    return user;
}

/// The token of the session's user. Raises the bare code.
Win32Handle queryToken()
{
    // Loaded on demand: few processes that load this library ever need it.
    const ModuleHandle library = loadSystemModule(L"wtsapi32.dll");
    if (!library.isValid())
        raiseLastError();
    const auto query = terminalServices<QueryUserToken>(library, "WTSQueryUserToken");
    const DWORD chosen = g_chosen;
    const DWORD console = chosen == usersession::kAutomatic ? WTSGetActiveConsoleSessionId() : chosen;
    HANDLE queried = nullptr;
    long code = ERROR_NO_SUCH_LOGON_SESSION;
    if (console != kNoSession)
        code = query(console, &queried) ? ERROR_SUCCESS : lastError();
    if (chosen == usersession::kAutomatic &&
        (code == ERROR_NO_TOKEN || code == ERROR_NO_SUCH_LOGON_SESSION)) // the user may be working remotely
        return onlyUser(activeSessions(library, console), query, code);
    requireSuccess(code);
    return Win32Handle(queried);
}
} // namespace

void usersession::choose(DWORD session) noexcept
{
    g_chosen = session;
}

bool usersession::isOwn() noexcept
{
    // Only the system's own account may ask, unless it has lost the privilege. A program started by the user
    // already is that user.
    return g_chosen == kOwn || !isLocalSystem();
}

Win32Handle usersession::token()
{
    return isOwn() ? Win32Handle() : queryToken();
}

long impersonateLoggedOnUser() noexcept
{
    return boundary::statusFrame([]() -> long {
        const auto ask = [](Win32Handle& token) {
            return boundary::statusFrame([&]() -> long {
                token = queryToken();
                return ERROR_SUCCESS;
            });
        };
        Win32Handle token;
        long code = g_chosen == usersession::kOwn ? ERROR_PRIVILEGE_NOT_HELD : ask(token);
        if (code != ERROR_SUCCESS && code != ERROR_PRIVILEGE_NOT_HELD)
            return code;
        std::optional<ThreadIdentity> before;
        if (code == ERROR_PRIVILEGE_NOT_HELD && before.emplace().wasImpersonating()) { // a client may not ask
            requireSuccess(RevertToSelf() ? ERROR_SUCCESS : lastError());
            code = g_chosen == usersession::kOwn ? code : ask(token);
        }
        if (code == ERROR_PRIVILEGE_NOT_HELD && (g_chosen == usersession::kOwn || !isLocalSystem()))
            code = ImpersonateSelf(SecurityImpersonation) ? ERROR_SUCCESS : lastError();
        else if (code == ERROR_SUCCESS)
            code = ImpersonateLoggedOnUser(token.get()) ? ERROR_SUCCESS : lastError();
        if (before && (code == ERROR_SUCCESS || !before->wasImpersonating()))
            before->forget();
        return code;
    });
}

ThreadIdentity::ThreadIdentity()
{
    HANDLE token = nullptr;
    if (OpenThreadToken(GetCurrentThread(), TOKEN_IMPERSONATE, TRUE, &token))
        m_token.reset(token);
    else if (GetLastError() != ERROR_NO_TOKEN)
        raiseLastError();
}

long ThreadIdentity::restore() noexcept
{
    if (m_restored)
        return ERROR_SUCCESS;
    m_restored = true;
    const long reverted = RevertToSelf() ? ERROR_SUCCESS : lastError();
    // Also after a failed revert: restoring an earlier identity is better than keeping the current one.
    if ((m_token.isValid() || reverted != ERROR_SUCCESS) && !SetThreadToken(nullptr, m_token.get()))
        return lastError();
    return reverted;
}
