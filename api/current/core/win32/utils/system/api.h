#pragma once

#include "core/win32/utils/memory/api.h"

// The environment and the state of the system. What all utility functions have in common is said in
// core/win32/utils/memory/api.h.
//
// Up-time: GetTickCount64. Memory: GlobalMemoryStatusEx.

extern "C" {
/// Waits until `event` is signalled. An `extra` handle, which may be null, ends the wait early when it is
/// signalled; `event` comes first if both are.
///
/// @param timeout  milliseconds; INFINITE waits without end
/// @return 0; 258 (time over); 1223 (`extra` ended the wait); 87; 6
SYSMAINT_API long WaitEvent(void* event, void* extra, unsigned long timeout);

/// A text with its variables ("%TEMP%") replaced.
///
/// @param session  whose user's variables; 0xFFFFFFFF: the calling program's own
/// @return 0, 87, 8, 1314 (only the system account may ask for a session's), 1008, or the system's code
SYSMAINT_API long EnvironmentExpand(const wchar_t* text, unsigned long session, wchar_t** expanded);

/// @return 0, 87, 8, 203 (no such variable; an empty one is one)
SYSMAINT_API long EnvironmentGet(const wchar_t* name, wchar_t** text);

/// Sets a variable of the user, or of the machine, for programs that start from now on, and tells the running
/// ones.
///
/// @return 0, 87 (also an empty name or one with "="), 8, 5, or the system's code
SYSMAINT_API long EnvironmentSetPersistent(const wchar_t* name, const wchar_t* text, int forMachine);

/// @return 0, 87, 50 (unknown), or the system's code
SYSMAINT_API long SystemIsOnBattery(int* isOnBattery);

/// @return 0, 87, or the system's code
SYSMAINT_API long SystemIsSafeMode(int* isSafeMode);

/// The time since the last key or movement in the caller's session; it counts up to 49 days.
///
/// @return 0, 87, or the system's code
SYSMAINT_API long SystemGetIdleTime(unsigned long long* milliseconds);

/// Shuts the system down after a delay, in which AbortSystemShutdown stops it. Programs may object. Enables
/// the privilege itself. Proven by simulation.
///
/// @param kind  0: off; 1: starts again
/// @return 0, 87, 1300 (no such right), or the system's code
SYSMAINT_API long SystemRestart(unsigned long kind, unsigned long seconds);
}
