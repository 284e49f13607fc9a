#pragma once

// Measures how much each loaded registry hive would shrink: plain.h has what C takes as well, and describes
// all of it.

#include "core/win32/registry/defragmenter/plain.h"
#include "core/win32/utils/objectmanager/include/Api.h"
#include "win32/registry/include/RDAnalyzerResults.h"

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

/// Writes the list of the loaded hives that have a file, in the system's order: their count (u32), and for
/// each the mount name and the path of the file, as strings. Without a drive letter the path is in the
/// system's form. Returns 0; 2 (the system has no list); 29; 8; or the system's code.
SYSMAINT_API long DumpHiveList(IOutputByteStream& stream);
