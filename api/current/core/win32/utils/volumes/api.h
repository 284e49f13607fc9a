#pragma once

#include "core/win32/utils/memory/api.h"
#include "win32/volumes/include/VolumeRecord.h"

// Volumes. core/win32/utils/memory/api.h describes what all utility functions have in common.
//
// A root is "C:" or "C:\", or a volume's own name, "\\?\Volume{...}\". Space: GetDiskFreeSpaceExW.

SYSMAINT_C_BEGIN
/// @return 0, 87, 8, or the system's code
SYSMAINT_API long VolumeEnumerate(struct VolumeRecord** records, size_t* count);

/// @return 0, 87, 8, 123 (a folder, also one that a volume is mounted to), or the system's code
SYSMAINT_API long VolumeGetClusterSize(const wchar_t* root, unsigned long* bytes);

/// Whether the device reports that it has no seek penalty. Proven by simulation.
///
/// @return 0, 87, 8, 50 (it does not tell), 123, or the system's code
SYSMAINT_API long VolumeIsSolidState(const wchar_t* root, int* isSolidState);

/// The list of drive letters and folders at which a volume, given by its own name, is mounted.
///
/// @return 0, 87, 8, 123, or the system's code
SYSMAINT_API long VolumeGetLetters(const wchar_t* volume, wchar_t** mountPoints, size_t* count);

/// Writes the system's cached data for a volume to the device. Needs an administrator.
///
/// @return 0, 87, 8, 123, or the system's code
SYSMAINT_API long VolumeFlush(const wchar_t* root);
SYSMAINT_C_END
