#pragma once

// How much each registry hive that the system has loaded would shrink if it were rewritten compactly. Nothing
// of the registry or of its files is changed.
//
// Hive files are locked while they are loaded, so an analysis reads their clusters from the volume itself,
// which takes an administrator's rights: each hive is copied into the user's temporary folder (%user_temp%),
// the copy is saved once more as a compact hive, the sizes of both are noted, and both are deleted, whatever
// happens. Only the system's account and administrators may open them meanwhile; of the compact form that is
// not so where the system's offline registry library writes it, which makes a file of its own. The largest
// hive and its compact form have to fit there.
//
// What the system has not written to the volume yet is not in the copy, and what it writes meanwhile may tear
// it: a copy that is no whole hive is a failure of that hive (1009, 1015) and loses no other. A hive on a
// volume without a drive letter fails with 15, one whose path has an unknown form with 161, a sparse one with
// 131. Hives without a file, which the system keeps in memory alone, are left out.
//
// Proven on raw images of NTFS volumes, with the system's list of hives and the answers about the files'
// extents given by the tests.

#include "core/win32/utils/objectmanager/include/Api.h"
#include "win32/registry/include/RDAnalyzerResults.h"

/// Creates the one defragmenter of the process, or opens it: by whatever name, as long as it is open it is
/// the same, with the same handle. Load and dump requests know it by the name that it was created with.
///
/// Returns the handle, or the invalid handle with the last error 87 (null name) or 8.
SYSMAINT_API void* CreateRegistryDefragmenter(const wchar_t* name);
/// Analyzes all loaded hives, one after the other, on one thread of the pool "RegistryDefragmenter"
/// (category 0), at idle priority. Returns when all are done, or soon after `stopEvent` (may be null) was
/// signalled: the copy is stopped between two clusters, while the saving of the compact hive ends first.
///
/// @param results    receives what was found, also when some of the hives have failed; with any other failure
///                   it is left as it was
/// @param stopEvent  a manual-reset event
/// @return 0; 6, 487 (the handle); 170 (another analysis of it is running); 1223 (stopped, or its work in the
///         pool was cancelled: the hives that were done are in RegistryDefragmenterGetResults); 2 (the system
///         has no list of hives); 8; the code of another call that failed; or, after all hives were tried,
///         that of the first that has failed: `results` has the codes and reports of each
SYSMAINT_API long RegistryDefragmenterAnalyze(void* defragmenter, RDAnalyzerResults& results,
                                              void* stopEvent);
/// What the last analysis has found, whatever it ended with; while one is running, what it has found so far.
/// Nothing before the first. Returns 0, 6, 487 or 8.
SYSMAINT_API long RegistryDefragmenterGetResults(void* defragmenter, RDAnalyzerResults& results);
/// Writes the state of the defragmenter: the results of the last analysis, in the form of RDAnalyzerResults.
/// The code selects nothing. Returns 0, 6, 487, 8 or 29.
SYSMAINT_API long RegistryDefragmenterDump(void* defragmenter, unsigned long code, IOutputByteStream& stream);
/// Reads it, in place of the results that it has. Returns 0; 6, 487; 170 while an analysis is running; 8 or
/// 30, and then the results stay.
SYSMAINT_API long RegistryDefragmenterLoad(void* defragmenter, unsigned long code, IInputByteStream& stream);
/// Gives the handle back; nonzero, or 0 for a handle that is not open. An analysis under way goes on to its
/// end. Until the last handle is given back the pool's thread is there, and keeps the library loaded.
SYSMAINT_API int CloseRegistryDefragmenter(void* defragmenter);

/// Writes the list of the loaded hives that have a file, in the system's order: their count (u32), and of
/// each the mount name and the path of the file, as strings. The path is as the system names it where it has
/// no drive letter. Returns 0; 2 (the system has no list); 29; 8; or the system's code.
SYSMAINT_API long DumpHiveList(IOutputByteStream& stream);
