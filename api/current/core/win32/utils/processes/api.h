#pragma once

#include "core/win32/utils/memory/api.h"

// Processes by their ids. An id may be reused as soon as its process has ended and nobody holds it; id and
// start time together identify a process. core/win32/utils/memory/api.h describes what all utility functions
// have in common.

SYSMAINT_C_BEGIN
/// @return 0, 87 (also no such process), 8, 5, or the system's code
SYSMAINT_API long ProcessGetPath(unsigned long id, wchar_t** path);

/// @return 0, 87 (also no such process), 8, 5, or the system's code
SYSMAINT_API long ProcessGetCommandLine(unsigned long id, wchar_t** commandLine);

/// @return 0, 87 (also no such process), 5, or the system's code
SYSMAINT_API long ProcessGetStartTime(unsigned long id, uint64_t* time);

/// The process that started this one.
///
/// @return 0, 87 (also no such process), 5, 1168 (it has ended, and its id may have been reused), or the
/// system's code
SYSMAINT_API long ProcessGetParent(unsigned long id, unsigned long* parent);

/// Ends a process and all its descendants, children before their parents. A process is another's child if its
/// parent id is the other's id and it is not older, so a reused id does not count. Processes they start
/// meanwhile are ended too. Waits until all are gone.
///
/// @param timeout  milliseconds; INFINITE waits indefinitely
/// @return 0; 87 (also no such process), 8; 50 (a process of the system or the calling process is among
///         them); 5 (one refuses access: nothing was ended); 1460 (timed out; all were told to end); or the
///         system's code
SYSMAINT_API long ProcessTerminateTree(unsigned long id, unsigned long timeout);

/// Runs a program without a window and waits until it ends. After a time-out or a cancel it continues to run.
///
/// @param program    its path; no other file is ever started
/// @param arguments  the rest of its command line, or null
/// @return 0; 87; 8; 206 (a command line of 32,767 characters or more); 123 (without \\?\, a name in the path
///         ends in a dot or a blank, or is a device's: the system would take another file); 6 (not an event),
///         and in these cases nothing was started; 1223; 1460; or the system's code
SYSMAINT_API long ProcessRunAndWait(const wchar_t* program, const wchar_t* arguments, unsigned long timeout,
                                    void* cancelEvent, unsigned long* exitCode);

/// @return 0, 87 (also no such process), 5, or the system's code
SYSMAINT_API long ProcessIs32Bit(unsigned long id, int* is32Bit);
SYSMAINT_C_END
