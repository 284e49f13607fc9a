#pragma once

#include "engine/Text.h"

/// What the system needs to start, or for a user to log on, by where it lies. Told by names in their place,
/// for any volume; the Windows folder itself is told by its number, by whoever walks down the path. What
/// cannot be told from these counts as one of them.
namespace systemfiles {
/// Whether a volume needs what has this name in its root: the boot loader and what belongs to it, files of
/// pages and of hibernation, the file system's own. Whatever lies in such a folder is needed, too.
[[nodiscard]] bool isOfRoot(Text name);
/// Whether a file of this name, wherever it lies, is one of a user's registry.
[[nodiscard]] bool isHive(Text name);
/// Whether a path below the Windows folder names something of use. Only what is known for temporary or for a
/// record is not: all below "Temp", "Prefetch", "Minidump", "LiveKernelReports", "Logs", "Debug" and
/// "SoftwareDistribution\Download", and in the folder itself files that end in ".log", ".tmp" and ".dmp".
[[nodiscard]] bool isOfWindows(Text path);
} // namespace systemfiles
