#pragma once

#include "engine/Text.h"

/// What the system needs to start, or for a user to log on, by its location. Recognised on any volume by
/// names in their place; the code that descends the path recognises the Windows folder itself by its number.
/// In doubt a file counts as needed.
namespace systemfiles {
/// Whether a volume needs what has this name in its root: the boot loader and its files, page and hibernation
/// files, the file system's own files. Everything in such a folder is needed, too.
[[nodiscard]] bool isOfRoot(Text name);
/// Whether a file of this name, in any folder, belongs to a user's registry.
[[nodiscard]] bool isHive(Text name);
/// Whether the system uses a path below the Windows folder. Only known temporary files and records are not
/// used: everything below "Temp", "Prefetch", "Minidump", "LiveKernelReports", "Logs", "Debug" and
/// "SoftwareDistribution\Download", and, in the folder itself, files that end in ".log", ".tmp" and ".dmp".
[[nodiscard]] bool isOfWindows(Text path);
} // namespace systemfiles
