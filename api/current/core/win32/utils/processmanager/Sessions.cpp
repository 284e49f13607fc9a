#include "core/win32/utils/processmanager/include/Sessions.h"

#include <shlobj.h>
#include <wtsapi32.h>

#include <memory>

#include "core/win32/utils/objectmanager/include/SystemLibrary.h"
#include "core/win32/utils/security/include/Security.h"

namespace {
constexpr long kElevationRequired = 740; // not every platform header names it

std::wstring textOf(const SystemLibrary& library, DWORD session, WTS_INFO_CLASS kind)
{
    wchar_t* text = nullptr;
    DWORD size = 0;
    if (!library.function<decltype(&WTSQuerySessionInformationW)>("WTSQuerySessionInformationW")(
            WTS_CURRENT_SERVER_HANDLE, session, kind, &text, &size) ||
        text == nullptr)
        return L""; // a session may have no text, or end meanwhile
    const auto release = library.function<decltype(&WTSFreeMemory)>("WTSFreeMemory");
    const std::unique_ptr<wchar_t, decltype(release)> owner(text, release);
    return text;
}

void addSession(RecordList<SessionRecord>& list, const SystemLibrary& library, DWORD id, unsigned long state)
{
    SessionRecord record{};
    record.id = id;
    record.state = state;
    record.isConsole = id == WTSGetActiveConsoleSessionId() ? 1 : 0;
    list.add(record, {{&SessionRecord::domain, textOf(library, id, WTSDomainName)},
                      {&SessionRecord::user, textOf(library, id, WTSUserName)},
                      {&SessionRecord::clientName, textOf(library, id, WTSClientName)}});
}

/// The token of the session's user. A program of that user may not request it, but has it itself.
Win32Handle tokenOf(unsigned long session)
{
    try {
        return sessions::userToken(session);
    } catch (long code) {
        DWORD own = 0;
        if (code != ERROR_PRIVILEGE_NOT_HELD || !ProcessIdToSessionId(GetCurrentProcessId(), &own) ||
            own != session || sids::isWellKnown(sids::ofCurrentUser().c_str(), WinLocalSystemSid))
            throw;
    }
    HANDLE token = nullptr;
    if (!OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY | TOKEN_DUPLICATE | TOKEN_IMPERSONATE, &token))
        raiseLastError();
    return Win32Handle(token);
}

template <class T>
T tokenValue(HANDLE token, TOKEN_INFORMATION_CLASS kind)
{
    T value{};
    DWORD size = 0;
    if (!GetTokenInformation(token, kind, &value, sizeof value, &size))
        raiseLastError();
    return value;
}

/// The wanted half of a split token.
Win32Handle withRights(Win32Handle token, bool elevated)
{
    const auto kind = tokenValue<TOKEN_ELEVATION_TYPE>(token.get(), TokenElevationType);
    if (kind == TokenElevationTypeDefault) { // it is not split
        if (elevated && !tokens::hasElevation(token.get()))
            raiseCode(kElevationRequired);
        return token;
    }
    if ((kind == TokenElevationTypeFull) == elevated)
        return token;
    return Win32Handle(tokenValue<TOKEN_LINKED_TOKEN>(token.get(), TokenLinkedToken).LinkedToken);
}
} // namespace

RecordList<SessionRecord> sessions::enumerate()
{
    const SystemLibrary library(L"wtsapi32.dll");
    WTS_SESSION_INFOW* found = nullptr;
    DWORD count = 0;
    if (!library.function<decltype(&WTSEnumerateSessionsW)>("WTSEnumerateSessionsW")(
            WTS_CURRENT_SERVER_HANDLE, 0, 1, &found, &count))
        raiseLastError();
    const auto release = library.function<decltype(&WTSFreeMemory)>("WTSFreeMemory");
    const std::unique_ptr<WTS_SESSION_INFOW, decltype(release)> owner(found, release);
    RecordList<SessionRecord> list;
    for (DWORD i = 0; i < count; ++i)
        addSession(list, library, found[i].SessionId, static_cast<unsigned long>(found[i].State));
    constexpr DWORD kNoSession = 0xFFFFFFFF;
    const DWORD console = WTSGetActiveConsoleSessionId();
    if (count == 0 && console != kNoSession) // without these services there is only the console's
        addSession(list, library, console, WTSActive);
    return list;
}

Win32Handle sessions::primaryToken(unsigned long session, bool elevated)
{
    const Win32Handle token = withRights(tokenOf(session), elevated);
    HANDLE primary = nullptr;
    if (!DuplicateTokenEx(token.get(), MAXIMUM_ALLOWED, nullptr, SecurityImpersonation, TokenPrimary,
                          &primary)) {
        const long code = lastError();
        // Without the system's right, a program may only query the other half.
        raiseCode(code == ERROR_BAD_IMPERSONATION_LEVEL ? static_cast<long>(ERROR_PRIVILEGE_NOT_HELD) : code);
    }
    return Win32Handle(primary);
}

std::wstring sessions::knownFolder(unsigned long session, const GUID& folder)
{
    const Win32Handle token = tokenOf(session);
    const SystemLibrary shell(L"shell32.dll");
    const SystemLibrary com(L"ole32.dll");
    const auto release = com.function<decltype(&CoTaskMemFree)>("CoTaskMemFree");
    wchar_t* path = nullptr;
    const HRESULT result = shell.function<decltype(&SHGetKnownFolderPath)>("SHGetKnownFolderPath")(
        folder, KF_FLAG_DONT_VERIFY, token.get(), &path);
    const std::unique_ptr<wchar_t, decltype(release)> owner(path, release);
    if (FAILED(result) || path == nullptr)
        raiseCode(FAILED(result) && HRESULT_CODE(result) != 0 ? static_cast<long>(HRESULT_CODE(result))
                                                              : static_cast<long>(ERROR_PATH_NOT_FOUND));
    return path;
}
