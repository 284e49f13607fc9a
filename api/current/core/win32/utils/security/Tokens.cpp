// Privileges, tokens and sessions.

#include <windows.h>

#include <userenv.h>
#include <wtsapi32.h>

#include <algorithm>
#include <memory>
#include <vector>

#include "core/win32/utils/objectmanager/include/SystemLibrary.h"
#include "core/win32/utils/security/include/Security.h"

namespace {
constexpr DWORD kNoSession = 0xFFFFFFFF;

/// The token of the thread, or else of the process.
Win32Handle ownToken(DWORD access)
{
    HANDLE token = nullptr;
    if (!OpenThreadToken(GetCurrentThread(), access, TRUE, &token) &&
        (GetLastError() != ERROR_NO_TOKEN || !OpenProcessToken(GetCurrentProcess(), access, &token)))
        raiseLastError();
    return Win32Handle(token);
}

/// One kind of information about a token.
std::vector<unsigned char> information(HANDLE token, TOKEN_INFORMATION_CLASS kind)
{
    const Win32Handle own = token == nullptr ? ownToken(TOKEN_QUERY) : Win32Handle();
    std::vector<unsigned char> buffer(256);
    for (;;) {
        DWORD needed = 0;
        if (GetTokenInformation(token != nullptr ? token : own.get(), kind, buffer.data(),
                                static_cast<DWORD>(buffer.size()), &needed))
            return buffer;
        if (GetLastError() != ERROR_INSUFFICIENT_BUFFER)
            raiseLastError();
        buffer.resize(std::max<std::size_t>(needed, buffer.size() * 2));
    }
}

LUID privilegeOf(const wchar_t* name)
{
    LUID luid;
    if (!LookupPrivilegeValueW(nullptr, name, &luid))
        raiseLastError();
    return luid;
}

bool isMember(HANDLE token, PSID group)
{
    BOOL member = FALSE;
    if (!CheckTokenMembership(token, group, &member))
        raiseLastError();
    return member != FALSE;
}

std::wstring sessionText(const SystemLibrary& library, DWORD session, WTS_INFO_CLASS kind)
{
    wchar_t* text = nullptr;
    DWORD size = 0;
    if (!library.function<decltype(&WTSQuerySessionInformationW)>("WTSQuerySessionInformationW")(
            WTS_CURRENT_SERVER_HANDLE, session, kind, &text, &size))
        raiseLastError();
    const auto release = library.function<decltype(&WTSFreeMemory)>("WTSFreeMemory");
    const std::unique_ptr<wchar_t, decltype(release)> owner(text, release);
    return text;
}
} // namespace

namespace privileges {
bool adjust(const wchar_t* name, bool enable)
{
    const Win32Handle token = ownToken(TOKEN_ADJUST_PRIVILEGES | TOKEN_QUERY);
    TOKEN_PRIVILEGES wanted{1, {{privilegeOf(name), enable ? static_cast<DWORD>(SE_PRIVILEGE_ENABLED) : 0}}};
    TOKEN_PRIVILEGES before{};
    DWORD size = 0;
    if (!AdjustTokenPrivileges(token.get(), FALSE, &wanted, sizeof before, &before, &size) ||
        GetLastError() == ERROR_NOT_ALL_ASSIGNED) // reported as success
        raiseLastError();
    // The system does not report an unchanged state.
    return before.PrivilegeCount == 0 ? enable
                                      : (before.Privileges[0].Attributes & SE_PRIVILEGE_ENABLED) != 0;
}

bool isHeld(const wchar_t* name)
{
    const LUID wanted = privilegeOf(name);
    const auto buffer = information(nullptr, TokenPrivileges);
    const auto* held = reinterpret_cast<const TOKEN_PRIVILEGES*>(buffer.data());
    const LUID_AND_ATTRIBUTES* const first = held->Privileges;
    return std::any_of(first, first + held->PrivilegeCount, [&](const LUID_AND_ATTRIBUTES& each) {
        return each.Luid.LowPart == wanted.LowPart && each.Luid.HighPart == wanted.HighPart;
    });
}
} // namespace privileges

namespace tokens {
bool hasElevation(HANDLE token)
{
    return reinterpret_cast<const TOKEN_ELEVATION*>(information(token, TokenElevation).data())
               ->TokenIsElevated != 0;
}

unsigned long integrity(HANDLE token)
{
    const auto buffer = information(token, TokenIntegrityLevel);
    PSID sid = reinterpret_cast<const TOKEN_MANDATORY_LABEL*>(buffer.data())->Label.Sid;
    const BYTE count = *GetSidSubAuthorityCount(sid);
    return count == 0 ? 0 : *GetSidSubAuthority(sid, count - 1U);
}

bool isAdministrator()
{
    BYTE group[SECURITY_MAX_SID_SIZE];
    DWORD size = sizeof group;
    if (!CreateWellKnownSid(WinBuiltinAdministratorsSid, nullptr, group, &size))
        raiseLastError();
    if (isMember(nullptr, group))
        return true;
    // A filtered token is linked to the full one.
    const auto kind = information(nullptr, TokenElevationType);
    if (*reinterpret_cast<const TOKEN_ELEVATION_TYPE*>(kind.data()) != TokenElevationTypeLimited)
        return false;
    const auto linked = information(nullptr, TokenLinkedToken);
    const Win32Handle whole(reinterpret_cast<const TOKEN_LINKED_TOKEN*>(linked.data())->LinkedToken);
    return isMember(whole.get(), group);
}
} // namespace tokens

namespace sessions {
unsigned long active()
{
    const DWORD session = WTSGetActiveConsoleSessionId();
    if (session == kNoSession)
        raiseCode(ERROR_NO_TOKEN);
    return session;
}

std::tuple<std::wstring, std::wstring> userName(unsigned long session)
{
    const SystemLibrary library(L"wtsapi32.dll");
    std::wstring user = sessionText(library, session, WTSUserName);
    if (user.empty()) // nobody is logged on there
        raiseCode(ERROR_NO_TOKEN);
    return {sessionText(library, session, WTSDomainName), std::move(user)};
}

Win32Handle userToken(unsigned long session)
{
    const SystemLibrary library(L"wtsapi32.dll");
    HANDLE token = nullptr;
    if (!library.function<decltype(&WTSQueryUserToken)>("WTSQueryUserToken")(session, &token))
        raiseLastError();
    return Win32Handle(token);
}

unsigned long runAsUser(unsigned long session, const wchar_t* commandLine, bool wait)
{
    const Win32Handle token = userToken(session);
    const SystemLibrary library(L"userenv.dll");
    void* environment = nullptr;
    if (!library.function<decltype(&CreateEnvironmentBlock)>("CreateEnvironmentBlock")(&environment,
                                                                                       token.get(), FALSE))
        raiseLastError();
    const auto destroy = library.function<decltype(&DestroyEnvironmentBlock)>("DestroyEnvironmentBlock");
    const std::unique_ptr<void, decltype(destroy)> owner(environment, destroy);
    std::wstring command(commandLine); // the system writes into it
    std::wstring desktop = L"winsta0\\default";
    STARTUPINFOW startup{};
    startup.cb = sizeof startup;
    startup.lpDesktop = desktop.data();
    PROCESS_INFORMATION started{};
    if (!CreateProcessAsUserW(token.get(), nullptr, command.data(), nullptr, nullptr, FALSE,
                              CREATE_UNICODE_ENVIRONMENT, environment, nullptr, &startup, &started))
        raiseLastError();
    const Win32Handle process(started.hProcess);
    const Win32Handle thread(started.hThread);
    DWORD exitCode = STILL_ACTIVE;
    if (wait && (WaitForSingleObject(process.get(), INFINITE) != WAIT_OBJECT_0 ||
                 !GetExitCodeProcess(process.get(), &exitCode)))
        raiseLastError();
    return exitCode;
}

void* impersonate(unsigned long session)
{
    const Win32Handle token = userToken(session);
    HANDLE before = nullptr;
    if (!OpenThreadToken(GetCurrentThread(), TOKEN_IMPERSONATE | TOKEN_QUERY, TRUE, &before) &&
        GetLastError() != ERROR_NO_TOKEN)
        raiseLastError();
    Win32Handle undo(before);
    if (!ImpersonateLoggedOnUser(token.get()))
        raiseLastError();
    return undo.isValid() ? undo.release() : INVALID_HANDLE_VALUE; // the thread did not impersonate
}

void revert(void* undo)
{
    if (undo == INVALID_HANDLE_VALUE) {
        if (!RevertToSelf())
            raiseLastError();
        return;
    }
    if (!SetThreadToken(nullptr, undo))
        raiseLastError();
    CloseHandle(undo);
}

HKEY userHive(unsigned long session)
{
    const Win32Handle token = userToken(session);
    const auto buffer = information(token.get(), TokenUser);
    HKEY hive = nullptr;
    requireSuccess(RegOpenKeyExW(
        HKEY_USERS, sids::text(reinterpret_cast<const TOKEN_USER*>(buffer.data())->User.Sid).c_str(), 0,
        MAXIMUM_ALLOWED, &hive));
    return hive;
}
} // namespace sessions

std::wstring sids::ofCurrentUser()
{
    const auto buffer = information(nullptr, TokenUser);
    return text(reinterpret_cast<const TOKEN_USER*>(buffer.data())->User.Sid);
}
