#pragma once

#include "core/win32/utils/memory/api.h"

// Processes by their ids. An id may be given to another process as soon as its process has ended and nobody
// holds it; id and start time together name one process. What all utility functions have in common is said in
// core/win32/utils/memory/api.h.

extern "C" {
/// @return 0, 87 (also no such process), 8, 5, or the system's code
SYSMAINT_API long ProcessGetPath(unsigned long id, wchar_t** path);

/// @return 0, 87 (also no such process), 8, 5, or the system's code
SYSMAINT_API long ProcessGetCommandLine(unsigned long id, wchar_t** commandLine);

/// @return 0, 87 (also no such process), 5, or the system's code
SYSMAINT_API long ProcessGetStartTime(unsigned long id, unsigned long long* time);

/// The process that started this one.
///
/// @return 0, 87 (also no such process), 5, 1168 (it has ended: its id may be another's by now), or the
/// system's code
SYSMAINT_API long ProcessGetParent(unsigned long id, unsigned long* parent);

/// Ends a process, those that it has started, and so on, children before their parents. A process counts as
/// started by another when it names that one's id and is no older: an id that was given anew makes no family.
/// What they start meanwhile ends as well. Waits until all are gone.
///
/// @param timeout  milliseconds; INFINITE waits without end
/// @return 0; 87 (also no such process), 8; 50 (the system's own, or the calling process is among them); 5
/// (one refuses: nothing was ended); 1460 (time
///         over: all were told to end); or the system's code
SYSMAINT_API long ProcessTerminateTree(unsigned long id, unsigned long timeout);

/// Runs a program without a window and waits for its end. When the time is over, or the event ends the wait,
/// it runs on.
///
/// @param program    its path; no other file is taken for it
/// @param arguments  the rest of its command line, or null
/// @return 0; 87; 8; 206 (a command line of 32,767 characters or more); 6 (no event); then nothing was
/// started; 1223; 1460; or the system's code
SYSMAINT_API long ProcessRunAndWait(const wchar_t* program, const wchar_t* arguments, unsigned long timeout,
                                    void* cancelEvent, unsigned long* exitCode);

/// @return 0, 87 (also no such process), 5, or the system's code
SYSMAINT_API long ProcessIs32Bit(unsigned long id, int* is32Bit);
}
