#pragma once

#include "core/win32/utils/memory/api.h"

// Folders, shortcuts, icons and signatures. core/win32/utils/memory/api.h describes what all utility
// functions have in common.
//
// Only ShellOpenFolder shows a window. An icon is a HICON; release it with IconDestroy.

SYSMAINT_C_BEGIN
/// @param folder   a CSIDL
/// @param session  whose user's folder; 0xFFFFFFFF: that of the calling thread's user
/// @return 0, 87, 8, 3 (no such folder), 1314 (only the system account may ask for a session's), or the
/// system's code
SYSMAINT_API long ShellGetFolder(int folder, unsigned long session, wchar_t** path);

/// Creates or replaces a shortcut (see FileWriteAtomically). `arguments` and `icon` may be null.
///
/// @return 0; 87 (also an empty target); 8; 80 (the file exists and is not a shortcut); 206 (target or icon
/// of 260 characters or more, arguments of 32,767 or more: the shell would cut them); or the codes of
/// FileWriteAtomically
SYSMAINT_API long ShellCreateShortcut(const wchar_t* link, const wchar_t* target, const wchar_t* arguments,
                                      const wchar_t* icon, int iconIndex);

/// The content of a shortcut, variables unexpanded. The target is empty when it is not a file.
///
/// @return 0, 87, 8, 13 (not a shortcut), or the system's code
SYSMAINT_API long ShellReadShortcut(const wchar_t* link, wchar_t** target, wchar_t** arguments,
                                    wchar_t** folder);

/// Whether the target is a file or folder on a fixed drive and does not exist. Targets that may come back (on
/// shares, media, drives that are missing now) are not broken. Nothing is searched, shown or changed.
///
/// @return 0, 87, 8, 13 (not a shortcut), or the system's code
SYSMAINT_API long ShellShortcutIsBroken(const wchar_t* link, int* isBroken);

/// @param drive  "C:\", or null for all
/// @return 0, 87, 8, or the system's code
SYSMAINT_API long RecycleBinQuery(const wchar_t* drive, uint64_t* bytes, uint64_t* items);

/// Empties the calling user's bin on a drive, or on all; succeeds when it is already empty. The event is
/// polled only before it begins.
///
/// @return 0, 87, 8, 6 (no event), 1223, or the system's code
SYSMAINT_API long RecycleBinEmpty(const wchar_t* drive, void* cancelEvent);

/// The shell's name for files of this type.
///
/// @return 0, 87, 8, 2 (it does not exist)
SYSMAINT_API long ShellGetTypeName(const wchar_t* path, wchar_t** name);

/// Shows a folder and selects `item` in it unless that is null.
///
/// @return 0, 87, 8, or the system's code
SYSMAINT_API long ShellOpenFolder(const wchar_t* folder, const wchar_t* item);

/// @param index  from 0, or a resource's number negated
/// @param size   1 to 256 pixels; the nearest size is scaled
/// @return 0, 87, 8, 1814 (no such icon), or the system's code
SYSMAINT_API long IconExtract(const wchar_t* file, int index, int size, void** icon);

/// @return 0, 87, 8, or the system's code
SYSMAINT_API long IconCount(const wchar_t* file, unsigned long* count);

/// The icon that the shell shows for an item.
///
/// @return 0, 87, 8, 2 (it does not exist)
SYSMAINT_API long IconForPath(const wchar_t* path, int large, void** icon);

/// Writes a 32-bit BMP with transparency; replaces an existing file.
///
/// @return 0, 87, 8, 50 (a black-and-white icon), 1402 (not an icon), or the codes of FileWriteAtomically
SYSMAINT_API long IconToBitmapFile(void* icon, const wchar_t* file);

/// Destroys an icon. Call it once: its handle may belong to another icon afterwards.
///
/// @return 0, 87, 1402 (not an icon, as far as the system can tell)
SYSMAINT_API long IconDestroy(void* icon);

/// Verifies a file's signature, its own or that of a catalogue that lists the file. Nothing is fetched from
/// the network, so revocation is as the machine knows it. Valid signatures were proven by simulation.
///
/// @param verdict  receives 0 (valid), 0x800B0100 (none) or the system's other HRESULTs
/// @param signer   receives the signer's name, or an empty text
/// @return 0, 87, 8, or the system's code
SYSMAINT_API long SignatureVerifyFile(const wchar_t* path, long* verdict, wchar_t** signer);
SYSMAINT_C_END
