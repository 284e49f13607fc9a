#pragma once

// A text log written in the background, one file for each cleaning module.
//
// The files are in the folder "%current%\logs\%username%\": "ZRC.log" for the module "Registry Cleaner",
// "ZPC.log" for "Privacy Cleaner", "ZDC.log" for "Disk Cleaner", "ZFM.log" for all others. They are UTF-16
// text without a byte-order mark, one line per entry: "[ day.month.year hour:minute:second ]  module:
// message" in local time.

#include "core/win32/utils/objectmanager/include/Export.h"

SYSMAINT_C_BEGIN
/// Creates the logger with that name, or opens it. The name does not select files: every logger writes the
/// same four and holds them open with read sharing only, so only one can exist on a machine at a time. A file
/// of 10 MiB or more is overwritten, deleted and started anew; if it is just being read it stays as it is and
/// goes on the boot-time list; if it has a second name it only loses this one. Missing folders are created.
///
/// Returns the handle, or the invalid handle with the last error 87 (null name), 8, 1003 (another logger
/// exists, or a file cannot be opened or sized, the path is too long, or no thread can be created), or the
/// system's code for a folder that cannot be created or expanded.
SYSMAINT_API void* CreateLogger(const wchar_t* name);
/// Opens the logger with that name. Last errors: 87, 1168 (no such logger), 8.
SYSMAINT_API void* OpenLogger(const wchar_t* name);
/// Queues one line. Never waits for the disk: the line is written within about half a second. If the logger
/// is closed before that, queued lines are dropped.
///
/// @param logger   handle from CreateLogger or OpenLogger
/// @param module   module name, compared whole and without regard to the case of ASCII letters
/// @param message  text of any length, cut to fit the line of 1,023 characters. A line feed becomes a blank;
///                 a carriage return with its line feed stays, and so does what follows. After the event
///                 "LogTerminate" entries are accepted and dropped
/// @return 0, or 87 (null module or message), 6 (no such handle), 487 (object gone), 8
SYSMAINT_API long WriteLogEntry(void* logger, const wchar_t* module, const wchar_t* message);
/// Closes the handle; nonzero, or 0 for a handle that is not open. Closing the last one destroys the logger
/// and waits for its thread, at most for the line being written. From then on every other logger of the
/// session stops writing too, until a new one is created: they all listen to the event "LogTerminate".
SYSMAINT_API int CloseLogger(void* logger);
SYSMAINT_C_END
