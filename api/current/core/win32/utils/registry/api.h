#pragma once

#include "core/win32/utils/memory/api.h"

// Registry keys and values. core/win32/utils/memory/api.h describes what all utility functions have in
// common.
//
// A key is a root (HKEY_LOCAL_MACHINE and the like, or an open key) and a path below it, of any length. The
// view is 64, 32, or 0 for the caller's own. HKEY_CURRENT_USER is that of the process; in a service,
// RegistryOpenUserHive returns the user's. An empty value name means the key's unnamed value. Roots and keys
// that stand for performance data are refused with 50.
//
// Functions that read or write values follow links as the system does. Functions that delete, copy or import
// follow none, in the given path or below it: they return 681 (ERROR_STOPPED_ON_SYMLINK) instead of changing
// keys that nobody named. Links of the system itself (CurrentControlSet, Software\Classes in a user's hive,
// those between the two views) are followed on the way.

struct HKEY__; // what an HKEY points to

SYSMAINT_C_BEGIN
/// A text, up to its first zero if it has one.
///
/// @param expand  not 0: variables in a text of type REG_EXPAND_SZ are expanded
/// @return 0, 87, 8, 2 (it does not exist), 1630 (another type), or the system's code
SYSMAINT_API long RegistryReadString(struct HKEY__* root, const wchar_t* key, const wchar_t* name,
                                     unsigned int view, int expand, wchar_t** text);

/// A list of texts, up to its first empty one.
///
/// @return as RegistryReadString
SYSMAINT_API long RegistryReadMultiString(struct HKEY__* root, const wchar_t* key, const wchar_t* name,
                                          unsigned int view, wchar_t** list, size_t* count);

/// @return 0, 87, 8, 2, 1630, 13 (not 4 bytes), or the system's code
SYSMAINT_API long RegistryReadDword(struct HKEY__* root, const wchar_t* key, const wchar_t* name,
                                    unsigned int view, unsigned long* value);

/// @return 0, 87, 8, 2, 1630, 13 (not 8 bytes), or the system's code
SYSMAINT_API long RegistryReadQword(struct HKEY__* root, const wchar_t* key, const wchar_t* name,
                                    unsigned int view, uint64_t* value);

/// The raw data of any type, and the type.
///
/// @return 0, 87, 8, 2, or the system's code
SYSMAINT_API long RegistryReadBinary(struct HKEY__* root, const wchar_t* key, const wchar_t* name,
                                     unsigned int view, unsigned char** bytes, size_t* size,
                                     unsigned long* type);

/// @param type  REG_SZ or REG_EXPAND_SZ
/// @return 0, 87, 8, or the system's code; a missing key is created
SYSMAINT_API long RegistryWriteString(struct HKEY__* root, const wchar_t* key, const wchar_t* name,
                                      unsigned int view, const wchar_t* text, unsigned long type);

/// @return 0, 87, 8, or the system's code; a missing key is created
SYSMAINT_API long RegistryWriteDword(struct HKEY__* root, const wchar_t* key, const wchar_t* name,
                                     unsigned int view, unsigned long value);

/// Writes raw data of any type.
///
/// @return 0, 87, 8, or the system's code; a missing key is created
SYSMAINT_API long RegistryWriteBinary(struct HKEY__* root, const wchar_t* key, const wchar_t* name,
                                      unsigned int view, const void* bytes, size_t size, unsigned long type);

/// A key that cannot be read exists.
///
/// @return 0, 87, 8, or the system's code
SYSMAINT_API long RegistryKeyExists(struct HKEY__* root, const wchar_t* key, unsigned int view, int* exists);

/// @return 0, 87, 8, or the system's code
SYSMAINT_API long RegistryValueExists(struct HKEY__* root, const wchar_t* key, const wchar_t* name,
                                      unsigned int view, int* exists);

/// Deletes a key and everything below it. Links are deleted themselves, never followed.
///
/// @return 0; 87 (also a path that names no key below the root); 8; 2; 50 (HKEY_CLASSES_ROOT, which shows two
///         hives as one); 681 (a link is on the way: nothing is deleted); or the system's code for the first
///         key that cannot be deleted
SYSMAINT_API long RegistryDeleteTree(struct HKEY__* root, const wchar_t* key, unsigned int view);

/// @return 0 (also when the value or the key does not exist), 87, 8, 681 (a link is on the way), or the
///         system's code
SYSMAINT_API long RegistryDeleteValueIfPresent(struct HKEY__* root, const wchar_t* key, const wchar_t* name,
                                               unsigned int view);

/// Copies the values and keys of one key into another, which is created or added to. Everything is read
/// first. Links are copied as links; access lists are not copied.
///
/// @return 0; 87 (also a target that names no key below its root); 8; 2; 50 (as RegistryDeleteTree); 681 (the
///         target has a link where a key is to be written) or 183 (a key where the source has a link); what
///         precedes it is written then; or the system's code
SYSMAINT_API long RegistryCopyTree(struct HKEY__* sourceRoot, const wchar_t* source,
                                   struct HKEY__* targetRoot, const wchar_t* target, unsigned int view);

/// Splits "HKLM\Software" or "HKEY_CURRENT_USER", also after "Computer\", into the predefined root and the
/// rest.
///
/// @return 0, 87, 8, 161 (no such root)
SYSMAINT_API long RegistryParsePath(const wchar_t* text, struct HKEY__** root, wchar_t** key);

/// The reverse, with the root's long name.
///
/// @return 0, 87, 8, 6 (not a predefined root)
SYSMAINT_API long RegistryFormatPath(struct HKEY__* root, const wchar_t* key, wchar_t** text);

/// Writes a key below a predefined root, and everything below it, in the registry editor's text format,
/// version 5.00, UTF-16. Links are omitted. The file is written completely or not at all.
///
/// @return 0; 87; 6; 8; 2; 13 (a name that the format cannot hold); or the system's code
SYSMAINT_API long RegistryExportText(struct HKEY__* root, const wchar_t* key, unsigned int view,
                                     const wchar_t* file);

/// Imports such a file. The whole file, including the lengths of all names, is checked before anything is
/// written; entries that delete are refused.
///
/// @return 0; 87; 8; 13 (not such a file); 161 (no such root); 223 (over 256 MiB); 681 (a link where a key is
///         to be written: what precedes it is written); or the system's code
SYSMAINT_API long RegistryImportText(const wchar_t* file, unsigned int view);

/// The hive of the user logged on in a session. Close it with RegCloseKey.
///
/// @return 0, 87, 8, 1314 (only the system account may ask), 1008 (nobody is logged on), or the system's code
SYSMAINT_API long RegistryOpenUserHive(unsigned long session, struct HKEY__** hive);

/// @return 0, 87, 8, 2, or the system's code
SYSMAINT_API long RegistryGetLastWrite(struct HKEY__* root, const wchar_t* key, unsigned int view,
                                       uint64_t* time);

/// "REG_SZ"; digits for a number without a name.
///
/// @return 0, 87, 8
SYSMAINT_API long RegistryTypeName(unsigned long type, wchar_t** name);
SYSMAINT_C_END
