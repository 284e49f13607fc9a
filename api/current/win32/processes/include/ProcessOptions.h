#pragma once

#include "core/win32/utils/objectmanager/include/Export.h"

/// Options of ProcessEnd, which can be combined.
enum ProcessEndOption SYSMAINT_UNSIGNED_LONG
{
    kEndTree = 1,     ///< also all its descendants
    kEndServices = 2, ///< also services, which are refused otherwise
    kEndNothing = 4   ///< only tell whether this would be refused: for a question before the call
};

/// Options of SessionRunProgram, which can be combined.
enum SessionRunOption SYSMAINT_UNSIGNED_LONG
{
    kRunElevated = 1,    ///< with the user's full rights, where the system has split them
    kRunWait = 2,        ///< wait until it ends
    kRunCapture = 4,     ///< also waits, and captures its standard output and error
    kRunEndOnTimeout = 8 ///< after a time-out the program is ended with all its descendants
};

/// All processes, instead of the id of one.
static const unsigned long kAllProcesses = 0xFFFFFFFF;

/// The message ids of the process monitor.
enum ProcessMessage SYSMAINT_UNSIGNED_LONG
{
    kProcessStarted = 1,
    kProcessEnded = 2
};

/// The source of the process monitor.
enum MonitorSource SYSMAINT_UNSIGNED_LONG
{
    kMonitorStopped = 0,
    kMonitorEvents = 1,   ///< events of the system: nothing is missed
    kMonitorSnapshots = 2 ///< compared snapshots: processes that live shorter than the interval may be missed
};
