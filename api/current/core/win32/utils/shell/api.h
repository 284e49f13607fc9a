#pragma once

#include "core/win32/utils/memory/api.h"

// Folders, shortcuts, icons and signatures. What all utility functions have in common is said in
// core/win32/utils/memory/api.h.
//
// What the shell does is done without a window, but for ShellOpenFolder. An icon is a HICON; give it back
// with IconDestroy.

extern "C" {
/// @param folder   a CSIDL
/// @param session  whose user's folder; 0xFFFFFFFF: of the calling thread's user
/// @return 0, 87, 8, 3 (no such folder), 1314 (only the system account may ask for a session's), or the
/// system's code
SYSMAINT_API long ShellGetFolder(int folder, unsigned long session, wchar_t** path);

/// Makes a shortcut, or replaces one (see FileWriteAtomically). `arguments` and `icon` may be null.
///
/// @return 0; 87 (also an empty target); 8; 80 (there is a file that is no shortcut); 206 (target or icon
/// with 260 characters or more, arguments with 32,767 or more: the shell would cut them); or the codes of
/// FileWriteAtomically
SYSMAINT_API long ShellCreateShortcut(const wchar_t* link, const wchar_t* target, const wchar_t* arguments,
                                      const wchar_t* icon, int iconIndex);

/// What a shortcut says, variables unexpanded. The target is empty when it leads to something that is no
/// file.
///
/// @return 0, 87, 8, 13 (no shortcut), or the system's code
SYSMAINT_API long ShellReadShortcut(const wchar_t* link, wchar_t** target, wchar_t** arguments,
                                    wchar_t** folder);

/// Whether the target is a file or folder on a fixed drive and is not there. What may come back (shares,
/// media, drives that are not there now) is not broken. Nothing is searched, shown or changed.
///
/// @return 0, 87, 8, 13 (no shortcut), or the system's code
SYSMAINT_API long ShellShortcutIsBroken(const wchar_t* link, int* isBroken);

/// @param drive  "C:\", or null for all
/// @return 0, 87, 8, or the system's code
SYSMAINT_API long RecycleBinQuery(const wchar_t* drive, unsigned long long* bytes, unsigned long long* items);

/// Empties the calling user's bin of a drive, or of all; an empty one is fine. The event is polled before it
/// begins.
///
/// @return 0, 87, 8, 6 (no event), 1223, or the system's code
SYSMAINT_API long RecycleBinEmpty(const wchar_t* drive, void* cancelEvent);

/// What the shell calls files like this one.
///
/// @return 0, 87, 8, 2 (nothing is there)
SYSMAINT_API long ShellGetTypeName(const wchar_t* path, wchar_t** name);

/// Shows a folder, with one item in it selected unless that is null.
///
/// @return 0, 87, 8, or the system's code
SYSMAINT_API long ShellOpenFolder(const wchar_t* folder, const wchar_t* item);

/// @param index  from 0, or minus the number of a resource
/// @param size   1 to 256 pixels; the nearest there is, scaled
/// @return 0, 87, 8, 1814 (no such icon), or the system's code
SYSMAINT_API long IconExtract(const wchar_t* file, int index, int size, void** icon);

/// @return 0, 87, 8, or the system's code
SYSMAINT_API long IconCount(const wchar_t* file, unsigned long* count);

/// The icon that the shell shows for an item.
///
/// @return 0, 87, 8, 2 (nothing is there)
SYSMAINT_API long IconForPath(const wchar_t* path, int large, void** icon);

/// Writes a BMP of 32 bits with transparency; an existing file is replaced.
///
/// @return 0, 87, 8, 50 (black and white alone), 1402 (no icon), or the codes of FileWriteAtomically
SYSMAINT_API long IconToBitmapFile(void* icon, const wchar_t* file);

/// Gives an icon back, once: from then on its handle may be another icon's.
///
/// @return 0, 87, 1402 (no icon, as far as the system can tell)
SYSMAINT_API long IconDestroy(void* icon);

/// What the system says of a file's signature, its own or that of a catalogue which lists the file. Nothing
/// is fetched from the network, so revocation is as the machine knows it. Valid signatures are proven by
/// simulation.
///
/// @param verdict  receives 0 (valid), 0x800B0100 (none) or the system's other HRESULTs
/// @param signer   receives the signer's name, or an empty text
/// @return 0, 87, 8, or the system's code
SYSMAINT_API long SignatureVerifyFile(const wchar_t* path, long* verdict, wchar_t** signer);
}
