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

#include "core/win32/utils/objectmanager/include/Api.h"
#include "win32/registry/include/RDAnalyzerResults.h"

/// Creates or opens the one defragmenter of the process: while it is open, every name opens the same object
/// with the same handle. Load and dump requests use the name that it was created with.
///
/// Returns the handle, or the invalid handle with the last error 87 (null name) or 8.
SYSMAINT_API void* CreateRegistryDefragmenter(const wchar_t* name);
/// Analyzes all loaded hives, one after the other, on one thread of the pool "RegistryDefragmenter" (category
/// 0), at idle priority. Returns when all are done, or soon after `stopEvent` (may be null) is signalled:
/// copying stops between two clusters, but saving a compact hive is completed first.
///
/// @param results    receives the results, also when some of the hives have failed; unchanged after any other
///                   failure
/// @param stopEvent  a manual-reset event
/// @return 0; 6 (the handle, or an invalid stop event); 487 (the handle); 170 (another analysis is running);
/// 1223 (stopped, or its work in the pool
///         was cancelled: RegistryDefragmenterGetResults returns the hives done so far); 2 (the system has no
///         list of hives); 8; the code of another call that failed; or, after all hives were tried, that of
///         the first that failed: `results` has the code and report of each
SYSMAINT_API long RegistryDefragmenterAnalyze(void* defragmenter, RDAnalyzerResults& results,
                                              void* stopEvent);
/// The results of the last analysis, even if it failed; while one is running, its results so far. Empty
/// before the first. Returns 0, 6, 487 or 8.
SYSMAINT_API long RegistryDefragmenterGetResults(void* defragmenter, RDAnalyzerResults& results);
/// Writes the state of the defragmenter: the results of the last analysis, in the format of
/// RDAnalyzerResults. The code selects nothing. Returns 0, 6, 487, 8 or 29.
SYSMAINT_API long RegistryDefragmenterDump(void* defragmenter, unsigned long code, IOutputByteStream& stream);
/// Reads the state, replacing the current results. Returns 0; 6, 487; 170 while an analysis is running; 8 or
/// 30. On failure the results stay.
SYSMAINT_API long RegistryDefragmenterLoad(void* defragmenter, unsigned long code, IInputByteStream& stream);
/// Closes the handle. Returns nonzero, or 0 for a handle that is not open. A running analysis continues to
/// its end. Until the last handle is closed, the pool's thread exists and keeps the library loaded.
SYSMAINT_API int CloseRegistryDefragmenter(void* defragmenter);

/// Writes the list of the loaded hives that have a file, in the system's order: their count (u32), and for
/// each the mount name and the path of the file, as strings. Without a drive letter the path is in the
/// system's form. Returns 0; 2 (the system has no list); 29; 8; or the system's code.
SYSMAINT_API long DumpHiveList(IOutputByteStream& stream);
