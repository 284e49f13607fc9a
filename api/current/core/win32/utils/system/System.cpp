#include "core/win32/utils/system/include/System.h"

#include <windows.h>

#include <userenv.h>

#include "core/win32/utils/objectmanager/include/SystemLibrary.h"
#include "core/win32/utils/paths/include/Variables.h"
#include "core/win32/utils/registry/include/Registry.h"
#include "core/win32/utils/security/include/Security.h"

namespace {
constexpr std::size_t kLongestValue = 32767; // of a variable
}

namespace environment {
std::wstring expand(const wchar_t* text, unsigned long session)
{
    if (session == kOwn)
        return variables::expand(text);
    const Win32Handle token = sessions::userToken(session);
    const SystemLibrary library(L"userenv.dll");
    const auto expandOne =
        library.function<decltype(&ExpandEnvironmentStringsForUserW)>("ExpandEnvironmentStringsForUserW");
    return variables::expand(text, [&](const std::wstring& name) -> std::optional<std::wstring> {
        const std::wstring variable = L"%" + name + L"%";
        std::wstring value(kLongestValue + 1, L'\0');
        if (!expandOne(token.get(), variable.c_str(), value.data(), static_cast<DWORD>(value.size())))
            raiseLastError();
        value.resize(value.find(L'\0'));
        return value == variable ? std::nullopt : std::optional(std::move(value));
    });
}

std::wstring get(const wchar_t* name)
{
    const std::optional<std::wstring> value = variables::ofProcess(name);
    if (!value)
        raiseCode(ERROR_ENVVAR_NOT_FOUND);
    return *value;
}

void setPersistent(const wchar_t* name, const wchar_t* text, bool forMachine)
{
    const std::wstring_view key(name);
    if (key.empty() || key.find(L'=') != std::wstring_view::npos)
        raiseCode(ERROR_INVALID_PARAMETER);
    const HKEY root = forMachine ? HKEY_LOCAL_MACHINE : HKEY_CURRENT_USER;
    const wchar_t* path =
        forMachine ? LR"(System\CurrentControlSet\Control\Session Manager\Environment)" : L"Environment";
    // A value that refers to other variables must stay expandable.
    registry::writeString(root, path, name, 0, text,
                          std::wstring_view(text).find(L'%') != std::wstring_view::npos ? REG_EXPAND_SZ
                                                                                        : REG_SZ);
    constexpr UINT kPatience = 1000; // milliseconds for each hanging window
    SystemLibrary library(L"user32.dll");
    const auto send = library.function<decltype(&SendMessageTimeoutW)>("SendMessageTimeoutW");
    library.keep();
    send(HWND_BROADCAST, WM_SETTINGCHANGE, 0, reinterpret_cast<LPARAM>(L"Environment"), SMTO_ABORTIFHUNG,
         kPatience, nullptr);
}
} // namespace environment

namespace systemstate {
bool isOnBattery()
{
    constexpr BYTE kOffline = 0;
    constexpr BYTE kUnknown = 255;
    SYSTEM_POWER_STATUS status;
    if (!GetSystemPowerStatus(&status))
        raiseLastError();
    if (status.ACLineStatus == kUnknown)
        raiseCode(ERROR_NOT_SUPPORTED);
    return status.ACLineStatus == kOffline;
}

bool isSafeMode()
{
    // The system creates this key when it starts in safe mode. It also works in services, which have no
    // window metrics.
    return registry::valueExists(HKEY_LOCAL_MACHINE, LR"(System\CurrentControlSet\Control\SafeBoot\Option)",
                                 L"OptionValue", 0);
}

unsigned long long idleTime()
{
    SystemLibrary library(L"user32.dll");
    const auto query = library.function<decltype(&GetLastInputInfo)>("GetLastInputInfo");
    library.keep();
    LASTINPUTINFO input{};
    input.cbSize = sizeof input;
    if (!query(&input))
        raiseLastError();
    return static_cast<DWORD>(GetTickCount64()) - input.dwTime; // both wrap around after 49 days
}

void restart(unsigned long kind, unsigned long seconds)
{
    constexpr unsigned long kRestart = 1;
    constexpr unsigned long kMostSeconds = 315360000; // ten years, the system's limit
    if (kind > kRestart || seconds > kMostSeconds)
        raiseCode(ERROR_INVALID_PARAMETER);
    const bool was = privileges::adjust(L"SeShutdownPrivilege", true);
    const BOOL done = InitiateSystemShutdownExW(
        nullptr, nullptr, seconds, FALSE, kind == kRestart,
        SHTDN_REASON_MAJOR_APPLICATION | SHTDN_REASON_MINOR_MAINTENANCE | SHTDN_REASON_FLAG_PLANNED);
    const long code = done ? ERROR_SUCCESS : lastError();
    if (!was)
        privileges::adjust(L"SeShutdownPrivilege", false);
    requireSuccess(code);
}
} // namespace systemstate
