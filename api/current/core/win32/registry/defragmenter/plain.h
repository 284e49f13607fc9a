#pragma once

// Measures how much each loaded registry hive would shrink if it were rewritten compactly. Neither the
// registry nor its files are changed.
//
// Hive files are locked while they are loaded, so an analysis reads their clusters from the volume itself,
// which takes an administrator's rights: each hive is copied to the user's temporary folder (%user_temp%),
// the copy is saved as a compact hive, the sizes of both are recorded, and both are deleted on success,
// failure and stop. Their names are those that the system gives to temporary files, with the prefixes "old"
// and "new", and tell whose they are: old<number>.sysmaint.<process id>-<number>.tmp. A process that ends in
// the middle of an analysis leaves them; the next analysis deletes those whose process no longer exists, on
// drives of this machine and where that is possible. Only the system's account and administrators may open
// them meanwhile, except for a compact hive that the system's offline registry library writes, because it
// creates its own file. The largest hive and its compact form must fit there.
//
// The copy lacks what the system has not yet written to the volume, and may be inconsistent because of what
// it writes meanwhile. If the copy is not a complete hive, that hive fails (1009, 1015) and the others
// continue. A hive on a volume without a drive letter fails with 15, one whose path has an unknown form with
// 161, a sparse one with 131. Hives without a file, which the system only keeps in memory, are omitted.
//
// Proven on raw images of NTFS volumes; the tests supplied the system's list of hives and the files' extents.
//
// These are the functions that C takes as well.

#include "core/win32/utils/objectmanager/include/Export.h"

SYSMAINT_C_BEGIN
/// Creates or opens the one defragmenter of the process: while it is open, every name opens the same object
/// with the same handle. Load and dump requests use the name that it was created with.
///
/// Returns the handle, or the invalid handle with the last error 87 (null name) or 8.
SYSMAINT_API void* CreateRegistryDefragmenter(const wchar_t* name);
/// Closes the handle. Returns nonzero, or 0 for a handle that is not open. A running analysis continues to
/// its end. Until the last handle is closed, the pool's thread exists and keeps the library loaded.
SYSMAINT_API int CloseRegistryDefragmenter(void* defragmenter);
SYSMAINT_C_END
