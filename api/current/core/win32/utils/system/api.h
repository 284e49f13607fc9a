#pragma once

#include "core/win32/utils/memory/api.h"

// The environment and the state of the system. core/win32/utils/memory/api.h describes what all utility
// functions have in common.
//
// Up-time: GetTickCount64. Memory: GlobalMemoryStatusEx.

SYSMAINT_C_BEGIN
/// Waits until `event` is signalled. An `extra` handle, which may be null, ends the wait early when it is
/// signalled; if both are, `event` wins.
///
/// @param timeout  milliseconds; INFINITE waits indefinitely
/// @return 0; 258 (timed out); 1223 (`extra` ended the wait); 87; 6
SYSMAINT_API long WaitEvent(void* event, void* extra, unsigned long timeout);

/// A text with its variables ("%TEMP%") replaced.
///
/// @param session  whose user's variables; 0xFFFFFFFF: the calling program's own
/// @return 0, 87, 8, 1314 (only the system account may request a session's), 1008, or the system's code
SYSMAINT_API long EnvironmentExpand(const wchar_t* text, unsigned long session, wchar_t** expanded);

/// @return 0, 87, 8, 203 (no such variable; an empty one exists)
SYSMAINT_API long EnvironmentGet(const wchar_t* name, wchar_t** text);

/// Sets a variable of the user or of the machine for programs started from now on, and notifies the running
/// ones.
///
/// @return 0, 87 (also an empty name or one with "="), 8, 5, or the system's code
SYSMAINT_API long EnvironmentSetPersistent(const wchar_t* name, const wchar_t* text, int forMachine);

/// @return 0, 87, 50 (unknown), or the system's code
SYSMAINT_API long SystemIsOnBattery(int* isOnBattery);

/// @return 0, 87, or the system's code
SYSMAINT_API long SystemIsSafeMode(int* isSafeMode);

/// The time since the last keyboard or mouse input in the caller's session, up to 49 days.
///
/// @return 0, 87, or the system's code
SYSMAINT_API long SystemGetIdleTime(uint64_t* milliseconds);

/// Shuts the system down after a delay, during which AbortSystemShutdown can stop it. Programs may object.
/// Enables the privilege itself. Proven by simulation.
///
/// @param kind  0: power off; 1: restart
/// @return 0, 87, 1300 (privilege not held), or the system's code
SYSMAINT_API long SystemRestart(unsigned long kind, unsigned long seconds);
SYSMAINT_C_END
