#pragma once

#include "core/win32/utils/memory/api.h"
#include "win32/services/include/ServiceRecord.h"

// Services. core/win32/utils/memory/api.h describes what all utility functions have in common.
//
// Time-outs are in milliseconds; INFINITE waits indefinitely. Names are the services' short names.

SYSMAINT_C_BEGIN
/// @param kinds   SERVICE_WIN32, SERVICE_DRIVER; 0: SERVICE_WIN32
/// @param states  SERVICE_ACTIVE, SERVICE_INACTIVE; 0: both
/// @return 0, 87, 8, or the system's code
SYSMAINT_API long ServiceEnumerate(unsigned long kinds, unsigned long states, struct ServiceRecord** records,
                                   size_t* count);

/// @param program       receives the command line as stored; see PathExtractFromCommand
/// @param dependencies  receives a list; names of groups begin with "+"
/// @return 0, 87, 8, 1060 (no such service), or the system's code
SYSMAINT_API long ServiceGetConfig(const wchar_t* name, unsigned long* startType, wchar_t** program,
                                   wchar_t** account, wchar_t** dependencies);

/// @return 0, 87, 1060 (no such service), or the system's code
SYSMAINT_API long ServiceGetState(const wchar_t* name, unsigned long* state);

/// Starts a service and waits until it runs. Succeeds when it already runs. The system's own call may take
/// half a minute, until the service's program answers, so it is made on another thread: time-out and event
/// end the wait at once. The request itself cannot be cancelled.
///
/// @return 0; 87; 8; 6 (no event); 1067 or the service's own code (it started and failed); 1223; 1460 (timed
///         out; it may still start); 1060 (no such service), or the system's code
SYSMAINT_API long ServiceStart(const wchar_t* name, unsigned long timeout, void* cancelEvent);

/// Stops a service and waits until it has stopped. Succeeds when it is already stopped. Waits as ServiceStart
/// does.
///
/// @param withDependents  not 0: stops its dependents first; 0: fails with 1051 if there are any
/// @return 0, 87, 8, 6 (no event), 1051, 1223, 1460, 1060 (no such service), or the system's code
SYSMAINT_API long ServiceStop(const wchar_t* name, int withDependents, unsigned long timeout,
                              void* cancelEvent);

/// @param type  SERVICE_BOOT_START (0) to SERVICE_DISABLED (4)
/// @return 0, 87, 1060 (no such service), or the system's code
SYSMAINT_API long ServiceSetStartType(const wchar_t* name, unsigned long type);

/// Marks a service for deletion: it is deleted once it is stopped and nobody holds it.
///
/// @return 0, 87, 1072 (marked already), 1060 (no such service), or the system's code
SYSMAINT_API long ServiceDelete(const wchar_t* name);

/// @return 0, 87, or the system's code
SYSMAINT_API long ServiceExists(const wchar_t* name, int* exists);

/// @return 0, 87, 8, 1060 (no such service), or the system's code
SYSMAINT_API long ServiceGetDescription(const wchar_t* name, wchar_t** text);
SYSMAINT_C_END
