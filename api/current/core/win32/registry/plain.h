#pragma once

// The functions of this module that C takes as well: whose registry HKEY_CURRENT_USER is in a process of the
// system's account. kConsoleUser is 0xFFFFFFFF, kProcessUser 0xFFFFFFFE.

#include "core/win32/utils/objectmanager/include/Export.h"

SYSMAINT_C_BEGIN
/// Sets the current user for the whole process. The setting applies to HKEY_CURRENT_USER and
/// HKEY_CLASSES_ROOT in all items created or first used from now on, to ImpersonateCurrentUser, and to a
/// user's folder macros (%appdata%, %localappdata%, %temp%, %userprofile%, %desktop%, %documents%; on a
/// thread that impersonates a user they are that user's). `session` is one of
/// - kConsoleUser, the default: the user logged on at the console; if there is none, the user of the only
///   other active session, such as a Remote Desktop;
/// - kProcessUser: the process's own account;
/// - a session's number.
///
/// For a process that does not run as the system, such as a program started by a user, the current user is
/// always the process's own. Returns 0.
///
/// Queries of other sessions, and the folders that the macros then yield, were proven with the system's
/// answers simulated.
SYSMAINT_API long SetCurrentUserSession(unsigned long session);

/// Makes the calling thread impersonate the current user until it calls RevertToSelf. Only the system's own
/// account may ask for another session's user. A process of any other account is the current user itself and
/// impersonates itself. This works even if the thread already impersonates somebody.
///
/// Returns 0, or a code with the thread unchanged: 1312 when there is currently no console session; 1008 when
/// nobody is logged on, at the console or elsewhere; 7022 when nobody is logged on at the console and users
/// are active in several other sessions (choose one with SetCurrentUserSession); 1314 for a process of the
/// system account without the privilege to ask (SeTcbPrivilege); 126 or 127 without wtsapi32.dll or its
/// function; other codes of WTSQueryUserToken, WTSEnumerateSessionsW, ImpersonateSelf or
/// ImpersonateLoggedOnUser.
SYSMAINT_API long ImpersonateCurrentUser(void);
SYSMAINT_C_END
