#pragma once

#include <windows.h>

#include "core/win32/utils/memory/api.h"
#include "win32/volumes/include/VolumeRecord.h"

// Volumes. What all utility functions have in common is said in core/win32/utils/memory/api.h.
//
// A root is "C:" or "C:\", or a volume's own name, "\\?\Volume{...}\". Space: GetDiskFreeSpaceExW.

extern "C" {
/// @return 0, 87, 8, or the system's code
SYSMAINT_API long VolumeEnumerate(struct VolumeRecord** records, size_t* count);

/// @return 0, 87, 8, 123 (a folder, the one that a volume is mounted to among them), or the system's code
SYSMAINT_API long VolumeGetClusterSize(const wchar_t* root, unsigned long* bytes);

/// Whether the device says that seeking costs nothing. Proven by simulation.
///
/// @return 0, 87, 8, 50 (it says nothing), 123, or the system's code
SYSMAINT_API long VolumeIsSolidState(const wchar_t* root, int* isSolidState);

/// The letters and folders under which a volume (by its own name) is found, as a list.
///
/// @return 0, 87, 8, 123, or the system's code
SYSMAINT_API long VolumeGetLetters(const wchar_t* volume, wchar_t** mountPoints, size_t* count);

/// Writes out what the system holds back for a volume. Needs an administrator.
///
/// @return 0, 87, 8, 123, or the system's code
SYSMAINT_API long VolumeFlush(const wchar_t* root);
}
