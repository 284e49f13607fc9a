#pragma once

#include <windows.h>

#include <string>
#include <tuple>

#include "core/win32/utils/objectmanager/include/Win32Handle.h"

/// What the exported functions of privileges, tokens, sessions and SIDs do; see api.h. They raise bare codes.
namespace privileges {
/// Enables or disables it in the thread's token, or else the process's. Returns whether it was enabled.
bool adjust(const wchar_t* name, bool enable);
[[nodiscard]] bool isHeld(const wchar_t* name);
} // namespace privileges

namespace tokens {
[[nodiscard]] bool hasElevation(HANDLE token);
[[nodiscard]] unsigned long integrity(HANDLE token);
[[nodiscard]] bool isAdministrator();
} // namespace tokens

namespace sessions {
[[nodiscard]] unsigned long active();
/// Domain and user.
[[nodiscard]] std::tuple<std::wstring, std::wstring> userName(unsigned long session);
[[nodiscard]] Win32Handle userToken(unsigned long session);
[[nodiscard]] unsigned long runAsUser(unsigned long session, const wchar_t* commandLine, bool wait);
/// What revert needs.
[[nodiscard]] void* impersonate(unsigned long session);
void revert(void* undo);
/// The hive of a session's user.
[[nodiscard]] HKEY userHive(unsigned long session);
} // namespace sessions

namespace sids {
/// The text of a SID.
[[nodiscard]] std::wstring text(PSID sid);
[[nodiscard]] std::wstring fromAccount(const wchar_t* account);
/// Domain, name, kind (SID_NAME_USE).
[[nodiscard]] std::tuple<std::wstring, std::wstring, unsigned long> toAccount(const wchar_t* sid);
[[nodiscard]] std::wstring ofCurrentUser();
[[nodiscard]] bool isWellKnown(const wchar_t* sid, unsigned long kind);
} // namespace sids

namespace ownership {
void take(const wchar_t* path, unsigned long kind);
void grant(const wchar_t* path, unsigned long kind, const wchar_t* sid, unsigned long rights);
[[nodiscard]] std::wstring owner(const wchar_t* path, unsigned long kind);
} // namespace ownership
