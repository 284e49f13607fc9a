#include "core/win32/registry/include/UserSession.h"

#include "core/win32/utils/objectmanager/include/Boundary.h"

namespace {
constexpr DWORD kNoSession = 0xFFFFFFFF;

long lastError() noexcept
{
    return static_cast<long>(GetLastError());
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
        // Only the system's own account may ask. A program of the user's is the user already.
        if (GetLastError() != ERROR_PRIVILEGE_NOT_HELD)
            return lastError();
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
        throw lastError();
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
