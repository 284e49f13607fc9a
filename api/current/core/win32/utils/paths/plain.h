#pragma once

#include "core/win32/utils/memory/api.h"

// Paths. core/win32/utils/memory/api.h describes what all utility functions have in common.
//
// Paths may have any length and any form that Win32 accepts; relative ones are made absolute when the
// function is called. Results are plain ("C:\folder", "\\server\share\folder") unless only the \\?\ form
// names the same item. Names are compared without regard to case. Links and short names are followed only
// where stated.

SYSMAINT_C_BEGIN
/// Joins the folder and the name with one separator. Unlike other functions of this kind it never lets the
/// name replace the folder.
///
/// @param strict  not 0: every part of `name` must be a valid file name (PathIsValidFileName), so it stays
///                below the folder: no "..", no device, no stream
/// @return 0; 87; 8; 123 (an empty folder; a name with a drive, a root or a server, or refused by `strict`);
///         A: 1113
SYSMAINT_API long PathCombinePartsW(const wchar_t* folder, const wchar_t* name, int strict, wchar_t** path);
SYSMAINT_API long PathCombinePartsA(const char* folder, const char* name, int strict, char** path);

/// The absolute path with backslashes and without "." and "..". The disk is not accessed. Names stay as they
/// are: where Win32 would change a name ("report.", "nul"), and for \\?\ paths, which it takes literally, the
/// result keeps its \\?\.
///
/// @return 0; 87; 8; 123 (an empty path); A: 1113; or the system's code for the current folder
SYSMAINT_API long PathNormalizeW(const wchar_t* path, wchar_t** result);
SYSMAINT_API long PathNormalizeA(const char* path, char** result);

/// The path with the long form of every short name.
///
/// @return 0; 87; 8; A: 1113; or the system's code: 2 and 3 when nothing exists there
SYSMAINT_API long PathToLongFormW(const wchar_t* path, wchar_t** result);
SYSMAINT_API long PathToLongFormA(const char* path, char** result);

/// The path for a Win32 call: with \\?\ from 248 characters on, where Win32 would change a name, and where
/// the path depends on the current folder; otherwise unchanged.
///
/// @return 0, 87, 8; A: 1113
SYSMAINT_API long PathToExtendedFormW(const wchar_t* path, wchar_t** result);
SYSMAINT_API long PathToExtendedFormA(const char* path, char** result);

/// The last part of `path`, as a pointer into `path`: what follows the last separator or the colon of a
/// drive.
///
/// @return 0, 87
SYSMAINT_API long PathFileNameW(const wchar_t* path, const wchar_t** fileName);
SYSMAINT_API long PathFileNameA(const char* path, const char** fileName);

/// The extension of the last part with its dot, as a pointer into `path`; the end of `path` when there is
/// none. A name whose only dot is its first character has none.
///
/// @return 0, 87
SYSMAINT_API long PathExtensionW(const wchar_t* path, const wchar_t** extension);
SYSMAINT_API long PathExtensionA(const char* path, const char** extension);

/// The parent folder, computed from the text alone. A root keeps its separator.
///
/// @return 0, 87, 8, 18 (a root, or a name alone); A: 1113
SYSMAINT_API long PathParentW(const wchar_t* path, wchar_t** folder);
SYSMAINT_API long PathParentA(const char* path, char** folder);

/// Whether the normalised path is the folder or below it. Links are not followed; PathIsReparsePoint detects
/// them.
///
/// @return 0, 87, 8, 123; A: 1113
SYSMAINT_API long PathIsInsideW(const wchar_t* path, const wchar_t* folder, int* inside);
SYSMAINT_API long PathIsInsideA(const char* path, const char* folder, int* inside);

/// Converts a kernel path ("\Device\HarddiskVolume2\...", "\??\C:\...", "\SystemRoot\...") to a drive or
/// server path.
///
/// @return 0, 87, 8, 15 (a device without a drive), 161 (no such path), or the system's code
SYSMAINT_API long PathFromNative(const wchar_t* native, wchar_t** path);

/// The reverse, to "\Device\...". Drives that stand for a folder are resolved.
///
/// @return 0, 87, 8, 15, 123, or the system's code (2: no such drive)
SYSMAINT_API long PathToNative(const wchar_t* path, wchar_t** native);

/// The program that the command line of a "Run" key or of a service starts, and its arguments. Variables are
/// expanded; kernel paths and "system32\..." become plain. Without quotation marks the program is the
/// shortest prefix that is a file, as for CreateProcess, otherwise the first word. A name without a folder is
/// searched where the system searches. The program need not exist.
///
/// @return 0, 87 (also a command without a program), 8, or the system's code
SYSMAINT_API long PathExtractFromCommand(const wchar_t* command, wchar_t** program, wchar_t** arguments);

/// Shortens the path to at most `characters` characters, keeping the last part as long as possible:
/// "C:\Us...\report.txt".
///
/// @return 0, 87 (also fewer than 4 characters for a longer path), 8
SYSMAINT_API long PathCompactForDisplay(const wchar_t* path, size_t characters, wchar_t** text);

/// Whether the path is a reparse point (junction, link, mount point, cloud file ...), and its tag, otherwise
/// 0.
///
/// @return 0, 87, 8, or the system's code
SYSMAINT_API long PathIsReparsePoint(const wchar_t* path, int* is, unsigned long* tag);

/// The target of a junction or symbolic link, as stored: relative targets stay relative. Windows' own format;
/// proven by simulation.
///
/// @return 0, 87, 8, 4390 (no reparse point), 4392 (broken data), 4394 (another kind), or the system's code
SYSMAINT_API long PathReadLinkTarget(const wchar_t* path, wchar_t** target);

/// Whether deleting the item would destroy the system, its programs or a user: a root; the Windows folder and
/// its contents; the folders of programs, of their data and of the profiles, and any folder that contains one
/// of them; a user's profile, and AppData, Local, LocalLow and Roaming in it. Links above the item are
/// followed; a link itself may be deleted. Other spellings of the same folder count as well: streams
/// ("C:\Windows::$INDEX_ALLOCATION"), closing dots and blanks, volumes by their own names, the
/// administrators' shares ("\\server\C$", of any server). Names of devices, and volumes that are mounted
/// nowhere, are always protected: what they lead to cannot be told.
///
/// @return 0, 87, 8, 123, or the system's code
SYSMAINT_API long PathIsProtected(const wchar_t* path, int* isProtected);

/// A path that does not exist yet: "stem.ext", "stem (2).ext", ... Somebody may take it meanwhile, so create
/// with CREATE_NEW.
///
/// @param extension  with or without its dot, or empty
/// @return 0, 87, 8, 123 (no valid name), 183 (10,000 are taken), or the system's code
SYSMAINT_API long PathMakeUnique(const wchar_t* folder, const wchar_t* stem, const wchar_t* extension,
                                 wchar_t** path);

/// Whether Win32 keeps the name unchanged: 1 to 255 characters, none of \/:*?"<>| and none below 0x20, no dot
/// or blank at the end, no device name.
///
/// @return 0, 87
SYSMAINT_API long PathIsValidFileName(const wchar_t* name, int* valid);
SYSMAINT_C_END
