#pragma once

#include "core/win32/utils/memory/api.h"

// Privileges, tokens, sessions, SIDs and access. core/win32/utils/memory/api.h describes what all utility
// functions have in common.
//
// Privileges are those of the thread when it impersonates, otherwise of the process. A null token means the
// same token. Only the system account may request the token of a session's user (1314); 1008 means that
// nobody is logged on there.

SYSMAINT_C_BEGIN
/// @param name  "SeBackupPrivilege" and the like
/// @return 0, 87, 1300 (not held), 1313 (no such privilege), or the system's code
SYSMAINT_API long PrivilegeEnable(const wchar_t* name, int* wasEnabled);

/// @return as PrivilegeEnable
SYSMAINT_API long PrivilegeDisable(const wchar_t* name);

/// Whether the token has the privilege, enabled or not.
///
/// @return 0, 87, 8, 1313, or the system's code
SYSMAINT_API long PrivilegeIsHeld(const wchar_t* name, int* isHeld);

/// @return 0, 87, 8, 6, or the system's code
SYSMAINT_API long TokenHasElevation(void* token, int* isElevated);

/// @param level  receives SECURITY_MANDATORY_MEDIUM_RID (0x2000) and the like
/// @return 0, 87, 8, 6, or the system's code
SYSMAINT_API long TokenGetIntegrity(void* token, unsigned long* level);

/// Whether the user is an administrator, even if this program runs without those rights.
///
/// @return 0, 87, 8, or the system's code
SYSMAINT_API long UserIsAdministrator(int* isAdministrator);

/// The session at the console.
///
/// @return 0, 87, 1008 (none)
SYSMAINT_API long SessionGetActive(unsigned long* session);

/// @return 0, 87, 8, 1008, or the system's code
SYSMAINT_API long SessionGetUserName(unsigned long session, wchar_t** domain, wchar_t** user);

/// Close the token with CloseHandle.
///
/// @return 0, 87, 1314, 1008, or the system's code
SYSMAINT_API long SessionGetUserToken(unsigned long session, void** token);

/// Starts a program as the session's user, on that desktop and with that user's environment.
///
/// @param wait      not 0: until it ends
/// @param exitCode  receives its exit code, or 259 without waiting
/// @return 0, 87, 8, 1314, 1008, or the system's code
SYSMAINT_API long SessionRunAsUser(unsigned long session, const wchar_t* commandLine, int wait,
                                   unsigned long* exitCode);

/// Lets the calling thread impersonate the session's user.
///
/// @param undo  receives what SessionRevert needs, on the same thread
/// @return 0, 87, 1314, 1008, or the system's code
SYSMAINT_API long SessionImpersonate(unsigned long session, void** undo);

/// Restores what the thread was before, and closes `undo`.
///
/// @return 0, 87, 6, or the system's code
SYSMAINT_API long SessionRevert(void* undo);

/// @param account  "user" or "domain\user"
/// @return 0, 87 (also an empty text), 8, 1332 (unknown), or the system's code
SYSMAINT_API long SidFromAccount(const wchar_t* account, wchar_t** sid);

/// @param kind  receives a SID_NAME_USE
/// @return 0, 87, 8, 1332 (unknown), 1337 (not a SID), or the system's code
SYSMAINT_API long SidToAccount(const wchar_t* sid, wchar_t** domain, wchar_t** name, unsigned long* kind);

/// @return 0, 87, 8, or the system's code
SYSMAINT_API long SidOfCurrentUser(wchar_t** sid);

/// @param kind  a WELL_KNOWN_SID_TYPE, 0 to 119
/// @return 0, 87 (also another kind), 1337 (not a SID)
SYSMAINT_API long SidIsWellKnown(const wchar_t* sid, unsigned long kind, int* is);

/// Makes the current user the owner of an object; for a link, of the link. Proven by simulation.
///
/// @param kind  0: a file or folder; 1: a registry key ("HKLM\..."); 2: a service
/// @return 0, 87, 8, 5, 681 (a link is on the way to a key; the next two functions also return it), or the
/// system's code
SYSMAINT_API long SecurityTakeOwnership(const wchar_t* path, unsigned long kind);

/// Grants a SID additional rights on an object and everything below it. An object without an access list
/// stays unchanged: it grants everybody full access.
///
/// @return 0, 87, 8, 5, 1337, or the system's code
SYSMAINT_API long SecurityGrantAccess(const wchar_t* path, unsigned long kind, const wchar_t* sid,
                                      unsigned long rights);

/// @return 0, 87, 8, 1307 (none), or the system's code
SYSMAINT_API long SecurityGetOwner(const wchar_t* path, unsigned long kind, wchar_t** sid);
SYSMAINT_C_END
