#pragma once

// Settings of a program in its own registry hive file: keys with typed values, held in memory, safe for
// several threads, and saved as a whole. The system can load the file as a hive, too.
//
// A key is a path of names separated by backslashes; the empty path is the root. Keys and values are found
// without regard to case. An empty value name means the key's unnamed value. The caller frees returned
// buffers with utilsFreeMemory.
//
// Status functions return 0 or a code: 87 for a null pointer, 6 (no such handle), 487 (object gone), 8, and
// those that they name. A failure changes nothing. 123 means a path with an empty name (one that begins or
// ends with a backslash, or has two in a row), 206 a name of more than 255 characters (for a value, 16,383)
// or a key more than 511 levels below the root, 2 a missing key or value, 1630 a value of another type, 13 a
// value whose data does not fit its type, 5 settings opened for reading only.

#include "core/win32/utils/memory/api.h"
#include "win32/registry/include/SettingsHiveFlags.h"

SYSMAINT_C_BEGIN
/// Opens the settings in the hive file `name`, which may begin with a folder macro such as "%appdata%"; that
/// is also the name of the handle: every spelling of the file opens the same settings, a link to it its own.
/// A missing file gives empty settings and is created when they are saved; its folder must exist. A damaged
/// file gives what can still be read of it (kSettingsDamaged), however little, and stays unchanged until they
/// are saved. So does one that was not closed (kSettingsUnclosed), without what is only in its logs. The file
/// is read once and not kept open; SettingsHiveSave refuses to replace it when another program has changed it
/// since.
///
/// Returns the handle, or the invalid handle with the last error 87 (null or empty name, unknown flags), 161
/// (no name of a file on a disk: a device such as NUL, a pipe, a stream, a path that ends with a backslash),
/// 5 (without kSettingsReadOnly while the settings are open with it), 8, 223 (a file too large for a hive),
/// or the system's code for an existing file that cannot be read.
SYSMAINT_API void* CreateSettingsHive(const wchar_t* name, unsigned long flags);
/// Opens settings that are already open. Last errors: 87, 161, 1168 (none have that name), 8.
SYSMAINT_API void* OpenSettingsHive(const wchar_t* name);
/// Closes the handle. Returns nonzero, or 0 for a handle that is not open. Closing the last one discards the
/// settings: what was not saved is lost.
SYSMAINT_API int CloseSettingsHive(void* hive);

/// Writes the settings to their file: a new file is written beside it, flushed, and renamed over it in one
/// step. At any moment, and after a crash or a power cut, the complete old or new settings exist. The new
/// file inherits its folder's access rights. A damaged file is first written, as it was read, to a new file
/// beside it, which is named NAME.damaged, or NAME.damaged-2 and so on, when it is whole; likewise one that
/// was not closed. A copy that a process left which ended in a save will do. A save that leaves the damaged
/// file where it is leaves no such copy. Only what was set before the call is sure to be saved.
///
/// Saves in one folder wait for each other, in all processes, and check just before the replacement that the
/// file is still the one that was read or last saved: the same one, of the same size and last-write time. If
/// not, nothing is replaced: close the settings and open them again for what is in the file now. A file that
/// has vanished is written anew.
///
/// The new file is NAME.<process id>-<number>.tmp (the first 200 characters of NAME) until it is complete. If
/// the process ends before that, it remains; the next save of NAME deletes those whose process no longer
/// exists, on drives of this machine and where that is possible.
///
/// @return also 5 (also for a read-only file), 161 (a device by now), 681 (the file is a link by now), 1006
/// (another program has
///         changed or replaced the file), 1460 (another save in the folder takes more than ten seconds), 223
///         (above 2 GiB), or the system's code; on failure the file is unchanged
SYSMAINT_API long SettingsHiveSave(void* hive);
/// A combination of SettingsHiveState bits.
SYSMAINT_API long SettingsHiveGetState(void* hive, unsigned long* state);

/// Creates a key and its missing parents. Setting a value does the same.
///
/// @return also 5, 123, 206
SYSMAINT_API long SettingsHiveCreateKey(void* hive, const wchar_t* key);
/// Deletes a key and everything below it.
///
/// @return also 2, 5, 50 (the root), 123
SYSMAINT_API long SettingsHiveDeleteKey(void* hive, const wchar_t* key);
/// The names of a key's sub-keys in the system's order, each terminated, with an empty one at the end. Names
/// that contain a zero or a backslash, which hostile files have, are omitted: no path leads to such a key.
///
/// @return also 2, 123
SYSMAINT_API long SettingsHiveEnumerateKeys(void* hive, const wchar_t* key, wchar_t** names, size_t* count);
/// The same for its values, in the order of their creation, only without names that contain a zero. The
/// unnamed one, whose name would end the list, is omitted: SettingsHiveGetValue tells whether it exists.
///
/// @return also 2
SYSMAINT_API long SettingsHiveEnumerateValues(void* hive, const wchar_t* key, wchar_t** names, size_t* count);

/// The raw data of any type.
///
/// @return also 2
SYSMAINT_API long SettingsHiveGetValue(void* hive, const wchar_t* key, const wchar_t* value,
                                       unsigned long* type, unsigned char** data, size_t* size);
/// @return also 5, 123, 206, 223 (more than about 1 GB)
SYSMAINT_API long SettingsHiveSetValue(void* hive, const wchar_t* key, const wchar_t* value,
                                       unsigned long type, const void* data, size_t size);
/// @return also 2, 5
SYSMAINT_API long SettingsHiveDeleteValue(void* hive, const wchar_t* key, const wchar_t* value);

// ---- The same for one type. Getting also returns 2, 1630, 13; setting returns what SettingsHiveSetValue
// returns.

/// REG_DWORD.
SYSMAINT_API long SettingsHiveGetNumber32(void* hive, const wchar_t* key, const wchar_t* value,
                                          unsigned long* number);
SYSMAINT_API long SettingsHiveSetNumber32(void* hive, const wchar_t* key, const wchar_t* value,
                                          unsigned long number);
/// REG_QWORD.
SYSMAINT_API long SettingsHiveGetNumber64(void* hive, const wchar_t* key, const wchar_t* value,
                                          uint64_t* number);
SYSMAINT_API long SettingsHiveSetNumber64(void* hive, const wchar_t* key, const wchar_t* value,
                                          uint64_t number);
/// REG_SZ; getting accepts REG_EXPAND_SZ too. The text ends at its first zero, if it has one.
SYSMAINT_API long SettingsHiveGetText(void* hive, const wchar_t* key, const wchar_t* value, wchar_t** text);
SYSMAINT_API long SettingsHiveSetText(void* hive, const wchar_t* key, const wchar_t* value,
                                      const wchar_t* text);
/// REG_MULTI_SZ: texts, each terminated, with an empty one at the end.
SYSMAINT_API long SettingsHiveGetTexts(void* hive, const wchar_t* key, const wchar_t* value, wchar_t** texts,
                                       size_t* count);
SYSMAINT_API long SettingsHiveSetTexts(void* hive, const wchar_t* key, const wchar_t* value,
                                       const wchar_t* texts);
/// REG_BINARY.
SYSMAINT_API long SettingsHiveGetBytes(void* hive, const wchar_t* key, const wchar_t* value,
                                       unsigned char** bytes, size_t* size);
SYSMAINT_API long SettingsHiveSetBytes(void* hive, const wchar_t* key, const wchar_t* value,
                                       const void* bytes, size_t size);
SYSMAINT_C_END
