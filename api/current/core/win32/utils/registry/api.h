#pragma once

#include <windows.h>

#include "core/win32/utils/memory/api.h"

// Registry keys and values. What all utility functions have in common is said in
// core/win32/utils/memory/api.h.
//
// A key is a root (HKEY_LOCAL_MACHINE and the like, or an open key) and a path below it, of any length. The
// view is 64, 32, or 0 for the caller's own. HKEY_CURRENT_USER is the one of the process: in a service
// RegistryOpenUserHive gives the user's. A value's name may be empty: that is the key's unnamed value. Keys
// that stand for performance data, and such roots, are refused with 50.
//
// Reading and writing of values goes through links as the system does. What deletes, copies or imports goes
// through none, neither in the path that it is given nor below: it ends with 681 (ERROR_STOPPED_ON_SYMLINK)
// instead of changing keys that nobody named. Links that the system itself keeps (CurrentControlSet,
// Software\Classes in a user's hive, those between the two views) are followed on the way.

extern "C" {
/// A text, up to its first zero, whether or not its writer ended it with one.
///
/// @param expand  not 0: variables in a text of type REG_EXPAND_SZ are expanded
/// @return 0, 87, 8, 2 (not there), 1630 (another type), or the system's code
SYSMAINT_API long RegistryReadString(HKEY root, const wchar_t* key, const wchar_t* name, unsigned int view,
                                     int expand, wchar_t** text);

/// A list of texts, up to its first empty one.
///
/// @return as RegistryReadString
SYSMAINT_API long RegistryReadMultiString(HKEY root, const wchar_t* key, const wchar_t* name,
                                          unsigned int view, wchar_t** list, size_t* count);

/// @return 0, 87, 8, 2, 1630, 13 (not 4 bytes), or the system's code
SYSMAINT_API long RegistryReadDword(HKEY root, const wchar_t* key, const wchar_t* name, unsigned int view,
                                    unsigned long* value);

/// @return 0, 87, 8, 2, 1630, 13 (not 8 bytes), or the system's code
SYSMAINT_API long RegistryReadQword(HKEY root, const wchar_t* key, const wchar_t* name, unsigned int view,
                                    unsigned long long* value);

/// The data of any type as it stands, and its type.
///
/// @return 0, 87, 8, 2, or the system's code
SYSMAINT_API long RegistryReadBinary(HKEY root, const wchar_t* key, const wchar_t* name, unsigned int view,
                                     unsigned char** bytes, size_t* size, unsigned long* type);

/// @param type  REG_SZ or REG_EXPAND_SZ
/// @return 0, 87, 8, or the system's code; a missing key is made
SYSMAINT_API long RegistryWriteString(HKEY root, const wchar_t* key, const wchar_t* name, unsigned int view,
                                      const wchar_t* text, unsigned long type);

/// @return 0, 87, 8, or the system's code; a missing key is made
SYSMAINT_API long RegistryWriteDword(HKEY root, const wchar_t* key, const wchar_t* name, unsigned int view,
                                     unsigned long value);

/// Data of any type as it stands.
///
/// @return 0, 87, 8, or the system's code; a missing key is made
SYSMAINT_API long RegistryWriteBinary(HKEY root, const wchar_t* key, const wchar_t* name, unsigned int view,
                                      const void* bytes, size_t size, unsigned long type);

/// One that refuses to be read is there.
///
/// @return 0, 87, 8, or the system's code
SYSMAINT_API long RegistryKeyExists(HKEY root, const wchar_t* key, unsigned int view, int* exists);

/// @return 0, 87, 8, or the system's code
SYSMAINT_API long RegistryValueExists(HKEY root, const wchar_t* key, const wchar_t* name, unsigned int view,
                                      int* exists);

/// Deletes a key with all that is below it. Links are deleted as themselves, never followed.
///
/// @return 0; 87 (also a path that names no key below the root); 8; 2; 50 (HKEY_CLASSES_ROOT, which shows two
/// hives as one); 681 (a link is on the way: nothing is deleted); or the system's code of the first key that
/// cannot go
SYSMAINT_API long RegistryDeleteTree(HKEY root, const wchar_t* key, unsigned int view);

/// @return 0 (also when value or key is not there), 87, 8, 681 (a link is on the way), or the system's code
SYSMAINT_API long RegistryDeleteValueIfPresent(HKEY root, const wchar_t* key, const wchar_t* name,
                                               unsigned int view);

/// Copies the values and keys of one key into another, which is made or added to. All is read first. Links
/// are copied as links; access lists are not copied.
///
/// @return 0; 87 (also a target that names no key below its root); 8; 2; 50 (as RegistryDeleteTree); 681 (the
/// target has a link where a key is to be written) or 183 (a key where the source has a link): what comes
/// before it is written; or the system's code
SYSMAINT_API long RegistryCopyTree(HKEY sourceRoot, const wchar_t* source, HKEY targetRoot,
                                   const wchar_t* target, unsigned int view);

/// "HKLM\Software", "HKEY_CURRENT_USER", also behind "Computer\": the predefined root and the rest.
///
/// @return 0, 87, 8, 161 (no such root)
SYSMAINT_API long RegistryParsePath(const wchar_t* text, HKEY* root, wchar_t** key);

/// The way back, with the root's long name.
///
/// @return 0, 87, 8, 6 (not a predefined root)
SYSMAINT_API long RegistryFormatPath(HKEY root, const wchar_t* key, wchar_t** text);

/// Writes a key below a predefined root and all that is below it as the registry editor's text, version 5.00,
/// UTF-16. Links are left out. The file is written whole or not at all.
///
/// @return 0; 87; 6; 8; 2; 13 (a name that the form cannot hold); or the system's code
SYSMAINT_API long RegistryExportText(HKEY root, const wchar_t* key, unsigned int view, const wchar_t* file);

/// Writes what such a file says. It is checked as a whole before anything is written, the lengths of all
/// names too; forms that delete are refused.
///
/// @return 0; 87; 8; 13 (not such a file); 161 (a root that there is not); 223 (over 256 MiB); 681 (a link
/// stands where a key is to be written: what comes before it is written); or the system's code
SYSMAINT_API long RegistryImportText(const wchar_t* file, unsigned int view);

/// The hive of the user who is logged on in a session. Close it with RegCloseKey.
///
/// @return 0, 87, 8, 1314 (only the system account may ask), 1008 (nobody is logged on), or the system's code
SYSMAINT_API long RegistryOpenUserHive(unsigned long session, HKEY* hive);

/// @return 0, 87, 8, 2, or the system's code
SYSMAINT_API long RegistryGetLastWrite(HKEY root, const wchar_t* key, unsigned int view,
                                       unsigned long long* time);

/// "REG_SZ"; a number that has no name as digits.
///
/// @return 0, 87, 8
SYSMAINT_API long RegistryTypeName(unsigned long type, wchar_t** name);
}
