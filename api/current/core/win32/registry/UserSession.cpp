#include "core/win32/registry/include/UserSession.h"

#include "core/win32/utils/objectmanager/include/Boundary.h"
#include "core/win32/utils/objectmanager/include/Raise.h"

namespace {
constexpr DWORD kNoSession = 0xFFFFFFFF;

/// Whether this process is the system's own account. A token that cannot be read counts as that: nobody
/// must be taken for a user by mistake.
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
} // namespace

long impersonateLoggedOnUser() noexcept
{
    const DWORD session = WTSGetActiveConsoleSessionId();
    if (session == kNoSession)
        return ERROR_NO_SUCH_LOGON_SESSION;
    // Loaded when it is needed: few processes that load this library ever ask.
    const ModuleHandle library = loadSystemModule(L"wtsapi32.dll");
    if (!library.isValid())
        return lastError();
    using QueryUserToken = BOOL(WINAPI*)(ULONG, PHANDLE);
    const auto query = reinterpret_cast<QueryUserToken>(
        reinterpret_cast<void*>(GetProcAddress(library.get(), "WTSQueryUserToken")));
    if (query == nullptr)
        return lastError();

    HANDLE queried = nullptr;
    if (!query(session, &queried)) {
        // Only the system's own account may ask, unless its privilege was taken away. A program of the
        // user's is the user already.
        const long code = lastError();
        if (code != ERROR_PRIVILEGE_NOT_HELD || isLocalSystem())
            return code;
        return ImpersonateSelf(SecurityImpersonation) ? ERROR_SUCCESS : lastError();
    }
    const Win32Handle token(queried);
    return ImpersonateLoggedOnUser(token.get()) ? ERROR_SUCCESS : lastError();
}

ThreadIdentity::ThreadIdentity()
{
    HANDLE token = nullptr;
    if (OpenThreadToken(GetCurrentThread(), TOKEN_IMPERSONATE | TOKEN_QUERY, TRUE, &token))
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
    // Also after a failed revert: to be somebody it was before is better than to stay somebody else.
    if ((m_token.isValid() || reverted != ERROR_SUCCESS) && !SetThreadToken(nullptr, m_token.get()))
        return lastError();
    return reverted;
}
