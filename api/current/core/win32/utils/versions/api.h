#pragma once

#include "core/win32/utils/memory/api.h"

// Versions of files and of the system. core/win32/utils/memory/api.h describes what all utility functions
// have in common.

SYSMAINT_C_BEGIN
/// The version in the fixed part of a program's or library's version resource.
///
/// @param version  receives the four numbers, 16 bits each, the first at the top
/// @param text     receives "1.2.3.4"
/// @return 0, 87, 8, 1812 or 1813 (the file has none), or the system's code
SYSMAINT_API long VersionGetFileVersion(const wchar_t* path, uint64_t* version, wchar_t** text);

/// A text of a file's version resource ("CompanyName", "ProductVersion", ...), in the first language that the
/// file lists, otherwise in English.
///
/// @return 0, 87, 8, 1812 (no such resource), 1814 (no such text), or the system's code
SYSMAINT_API long VersionGetString(const wchar_t* path, const wchar_t* name, wchar_t** text);

/// Compares versions number by number, of any length; missing ones are 0, so "1.2" and "1.2.0" are equal.
///
/// @param order  receives -1, 0 or 1
/// @return 0, 87 (also a text that is not numbers with dots between them)
SYSMAINT_API long VersionCompare(const wchar_t* first, const wchar_t* second, int* order);

/// The system's true version, regardless of the program's manifest.
///
/// @return 0, 87, 31
SYSMAINT_API long SystemGetVersion(unsigned long* major, unsigned long* minor, unsigned long* build,
                                   int* isServer);
SYSMAINT_C_END
