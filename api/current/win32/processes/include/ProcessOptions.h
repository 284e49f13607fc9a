#pragma once

/// What ProcessEnd does besides; any of them together.
enum ProcessEndOption : unsigned long
{
    kEndTree = 1,    ///< also what the process has started, what that has started, and so on
    kEndServices = 2 ///< also services, which are refused otherwise
};

/// How SessionRunProgram starts a program; any of them together.
enum SessionRunOption : unsigned long
{
    kRunElevated = 1,    ///< with the user's full rights, where they are split by the system
    kRunWait = 2,        ///< until it ends
    kRunCapture = 4,     ///< waits as well, and takes what it writes to its standard output and error
    kRunEndOnTimeout = 8 ///< a program that is waited for in vain is ended, with all that it has started
};

/// All processes, in place of the id of one.
inline constexpr unsigned long kAllProcesses = 0xFFFFFFFF;

/// The message ids of the process monitor.
enum ProcessMessage : unsigned long
{
    kProcessStarted = 1,
    kProcessEnded = 2
};

/// What the process monitor lives on.
enum MonitorSource : unsigned long
{
    kMonitorStopped = 0,
    kMonitorEvents = 1,   ///< events of the system: nothing is missed
    kMonitorSnapshots = 2 ///< snapshots that are compared: what lives shorter than the interval may be missed
};
