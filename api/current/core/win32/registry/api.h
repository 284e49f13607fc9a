#pragma once

// Registry keys and values as scan items. Failures as in core/win32/utils/scanengine/api.h.

#include <windows.h>

#include "core/win32/utils/objectmanager/include/Api.h"
#include "win32/registry/include/IRegistryKey.h"

// ---- Items without a handle. The caller deletes the returned object through the interface.

/// An empty key item, to be loaded from a stream.
SYSMAINT_API IRegistryKey* DllGetRegistryKey();
/// The key `subKey` (may be empty) below `root`: a predefined handle, or one that the caller opened and keeps
/// open. Codes: 87 for a null root or path.
SYSMAINT_API IRegistryKey* DllGetRegistryKey(HKEY root, const wchar_t* subKey);
/// The key that `stream` holds, written with the same code (StateCodes.h). Codes: 30, and 13 for an item of
/// another type, an unknown root or both views at once.
SYSMAINT_API IRegistryKey* DllGetRegistryKey(unsigned long loadCode, IInputByteStream& stream);
/// An empty value item, to be loaded from a stream.
SYSMAINT_API IRegistryValue* DllGetRegistryValue();
/// The value `name` (empty: the default value) of a key as above. Codes: 87 for a null root, path or name.
SYSMAINT_API IRegistryValue* DllGetRegistryValue(HKEY root, const wchar_t* subKey, const wchar_t* name);
/// The same, with `text` as its initial data of type REG_SZ, which create writes. Codes: 87 also for a null
/// text.
SYSMAINT_API IRegistryValue* DllGetRegistryValue(HKEY root, const wchar_t* subKey, const wchar_t* name,
                                                 const wchar_t* text);
/// The value that `stream` holds, as above.
SYSMAINT_API IRegistryValue* DllGetRegistryValue(unsigned long loadCode, IInputByteStream& stream);

// ---- Items with a handle, filed under `name`, a backslash and their full path; CloseScanItem gives the
// handle back. `options` is a combination of RegistryOption bits. Codes: 87 for a null name, root, path or
// value name, or both views at once; 183 when another item is filed there: a value under a key's path,
// another root, view or kind.

SYSMAINT_API void* CreateRegistryKey(const wchar_t* name, HKEY root, const wchar_t* subKey,
                                     unsigned long options);
SYSMAINT_API void* CreateRegistryValue(const wchar_t* name, HKEY root, const wchar_t* subKey,
                                       const wchar_t* valueName, unsigned long options);
/// A key that can be walked (IScanPath).
SYSMAINT_API void* CreateRegistryPath(const wchar_t* name, HKEY root, const wchar_t* subKey,
                                      unsigned long options);

/// The user that a process of the system's account means by "the current user": see SetCurrentUserSession.
inline constexpr unsigned long kConsoleUser = 0xFFFFFFFF;
inline constexpr unsigned long kProcessUser = 0xFFFFFFFE;

/// Says for the whole process who the current user is: in HKEY_CURRENT_USER and HKEY_CLASSES_ROOT of all
/// items made or first used from now on, for ImpersonateCurrentUser, and in the folder macros of a user
/// (%appdata%, %localappdata%, %temp%, %userprofile%, %desktop%, %documents%; but a thread that impersonates
/// somebody means him in those). `session` is kConsoleUser (as it is at first: the one who is logged on at
/// the console, or while nobody is, the one of the only other active session, such as a Remote Desktop),
/// kProcessUser (the process's own account) or a session's number. To a process that is not the system's own,
/// such as a program that a user has started, the current user is itself, whatever is set. Returns 0.
///
/// That other sessions are asked, and whose folders the macros mean then, was proven with the system's
/// answers simulated.
SYSMAINT_API long SetCurrentUserSession(unsigned long session);

/// Makes the calling thread the current user, until it calls RevertToSelf. Only the system's own account may
/// ask for another session's user; to a process of any other account the user is itself, and it impersonates
/// itself. A thread that impersonates somebody else already is no hindrance.
///
/// Returns 0, or a code, and then the thread is as it was: 1312 when there is no console session at the
/// moment; 1008 when nobody is logged on at it, and neither anywhere else; 7022 when it is so and several
/// others are active (SetCurrentUserSession tells which is meant); 1314 to a process of the system account
/// without the privilege to ask (SeTcbPrivilege); 126 or 127 without wtsapi32.dll or its function; another of
/// WTSQueryUserToken, ImpersonateSelf or ImpersonateLoggedOnUser.
SYSMAINT_API long ImpersonateCurrentUser();
