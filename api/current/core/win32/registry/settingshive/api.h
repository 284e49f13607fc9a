#pragma once

// Settings of a program in a registry hive file of its own: keys with typed values, held in memory, safe for
// several threads, and saved as a whole. The file is one that the system can load as a hive, too.
//
// A key is a path of names with backslashes between them; the empty one is the root. Keys and values are
// found without regard to case. A value's name may be empty: that is the key's unnamed value. Buffers that
// functions give are the caller's, who frees them with utilsFreeMemory.
//
// All functions that return a status return 0 or a code: 87 for a null pointer, 6 (no such handle), 487
// (object gone), 8, and those that they name. Nothing has changed then. 123 is an empty name within a path,
// 206 a name of more than 255 characters (of a value, 16,383) or a key of more than 512 levels, 2 a key or
// value that is not there, 1630 a value of another type, 13 one of the type whose data is not what the type
// says, 5 settings that were opened for reading only.

#include "core/win32/utils/memory/api.h"
#include "core/win32/utils/objectmanager/include/Api.h"
#include "win32/registry/include/SettingsHiveFlags.h"

/// Opens the settings in the hive file `name`, which may begin with a folder macro such as "%appdata%"; it is
/// also the name that the handle is found by. A missing file gives empty settings, and is made when they are
/// saved, in a folder that is there. A damaged one gives what can still be read of it (kSettingsDamaged),
/// however little, and stays as it is until they are saved. The file is read once and not kept open: two
/// processes that both save overwrite each other's settings.
///
/// Returns the handle, or the invalid handle with the last error 87 (null or empty name, unknown flags), 8,
/// 223 (a file too large for a hive), or the system's code for a file that is there and cannot be read.
SYSMAINT_API void* CreateSettingsHive(const wchar_t* name, unsigned long flags);
/// Opens settings that are open already. Last errors: 87, 1168 (there are none of that name), 8.
SYSMAINT_API void* OpenSettingsHive(const wchar_t* name);
/// Gives the handle back; nonzero, or 0 for a handle that is not open. The last one drops the settings: what
/// was not saved is lost.
SYSMAINT_API int CloseSettingsHive(void* hive);

/// Writes the settings to their file: a new one is written beside it, flushed, and put in its place in one
/// step. At any moment, and after a crash or a power cut, the old settings or the new ones are there, whole.
/// The new file has the rights that its folder gives. A damaged file is first written, as it was read, to a
/// new file beside it, NAME.damaged, or NAME.damaged-2 and so on. Only what was set before the call is sure
/// to be saved.
///
/// @return also 5, 681 (the file is a link by now), 223 (above 2 GiB), or the system's code; then the file is
/// as it was
SYSMAINT_API long SettingsHiveSave(void* hive);
/// A combination of SettingsHiveState bits.
SYSMAINT_API long SettingsHiveGetState(void* hive, unsigned long* state);

/// Makes a key with all that are missing above it. Setting a value does the same.
///
/// @return also 5, 123, 206
SYSMAINT_API long SettingsHiveCreateKey(void* hive, const wchar_t* key);
/// Deletes a key with all that is below it.
///
/// @return also 2, 5, 50 (the root)
SYSMAINT_API long SettingsHiveDeleteKey(void* hive, const wchar_t* key);
/// The names of a key's sub-keys in the system's order, each terminated, and an empty one behind the last.
/// Names with a zero in them, which other programs can make, are left out.
///
/// @return also 2
SYSMAINT_API long SettingsHiveEnumerateKeys(void* hive, const wchar_t* key, wchar_t** names, size_t* count);
/// The same of its values, in the order in which they were made. The unnamed one, whose name would end the
/// list, is left out: SettingsHiveGetValue tells whether it is there.
///
/// @return also 2
SYSMAINT_API long SettingsHiveEnumerateValues(void* hive, const wchar_t* key, wchar_t** names, size_t* count);

/// Data of any type as it stands.
///
/// @return also 2
SYSMAINT_API long SettingsHiveGetValue(void* hive, const wchar_t* key, const wchar_t* value,
                                       unsigned long* type, unsigned char** data, size_t* size);
/// @return also 5, 123, 206, 223 (more than about 1 GB)
SYSMAINT_API long SettingsHiveSetValue(void* hive, const wchar_t* key, const wchar_t* value,
                                       unsigned long type, const void* data, size_t size);
/// @return also 2, 5
SYSMAINT_API long SettingsHiveDeleteValue(void* hive, const wchar_t* key, const wchar_t* value);

// ---- The same for one type. Getting returns also 2, 1630, 13; setting what SettingsHiveSetValue returns.

/// REG_DWORD.
SYSMAINT_API long SettingsHiveGetNumber32(void* hive, const wchar_t* key, const wchar_t* value,
                                          unsigned long* number);
SYSMAINT_API long SettingsHiveSetNumber32(void* hive, const wchar_t* key, const wchar_t* value,
                                          unsigned long number);
/// REG_QWORD.
SYSMAINT_API long SettingsHiveGetNumber64(void* hive, const wchar_t* key, const wchar_t* value,
                                          unsigned long long* number);
SYSMAINT_API long SettingsHiveSetNumber64(void* hive, const wchar_t* key, const wchar_t* value,
                                          unsigned long long number);
/// REG_SZ; getting takes REG_EXPAND_SZ too. Up to its first zero, whether or not its writer ended it with
/// one.
SYSMAINT_API long SettingsHiveGetText(void* hive, const wchar_t* key, const wchar_t* value, wchar_t** text);
SYSMAINT_API long SettingsHiveSetText(void* hive, const wchar_t* key, const wchar_t* value,
                                      const wchar_t* text);
/// REG_MULTI_SZ: texts, each terminated, and an empty one behind the last.
SYSMAINT_API long SettingsHiveGetTexts(void* hive, const wchar_t* key, const wchar_t* value, wchar_t** texts,
                                       size_t* count);
SYSMAINT_API long SettingsHiveSetTexts(void* hive, const wchar_t* key, const wchar_t* value,
                                       const wchar_t* texts);
/// REG_BINARY.
SYSMAINT_API long SettingsHiveGetBytes(void* hive, const wchar_t* key, const wchar_t* value,
                                       unsigned char** bytes, size_t* size);
SYSMAINT_API long SettingsHiveSetBytes(void* hive, const wchar_t* key, const wchar_t* value,
                                       const void* bytes, size_t size);
