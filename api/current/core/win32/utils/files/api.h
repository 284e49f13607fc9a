#pragma once

#include "core/win32/utils/memory/api.h"

// Files and folders, by paths of any length and form. core/win32/utils/memory/api.h describes what all
// utility functions have in common.
//
// Functions that read or set follow links, as Win32 does; functions that delete never do.

SYSMAINT_C_BEGIN
/// The size of a file, and the bytes it takes on the disk (less when compressed or sparse).
///
/// @return 0, 87, 8, or the system's code
SYSMAINT_API long FileGetSizes(const wchar_t* path, uint64_t* size, uint64_t* allocated);

/// @return 0, 87, 8, or the system's code
SYSMAINT_API long FileGetTimes(const wchar_t* path, uint64_t* created, uint64_t* accessed, uint64_t* written);

/// Sets the times of a file or folder; null leaves a time unchanged.
///
/// @return 0; 87 (also a time of 0 or above 2^63 - 1); 8; or the system's code
SYSMAINT_API long FileSetTimes(const wchar_t* path, const uint64_t* created, const uint64_t* accessed,
                               const uint64_t* written);

/// Identifies a file independently of its name: while both are open, equal serials and ids mean the same
/// file.
///
/// @param links  receives the number of names the file has
/// @return 0, 87, 8, or the system's code
SYSMAINT_API long FileGetIdentity(const wchar_t* path, unsigned long* volumeSerial, uint64_t* fileId,
                                  unsigned long* links);

/// The whole content.
///
/// @return 0, 87, 8, 223 (more than `limit` bytes), or the system's code
SYSMAINT_API long FileReadAll(const wchar_t* path, uint64_t limit, unsigned char** bytes, size_t* size);

/// Creates or replaces the file so that at any moment, and after a crash, its complete old or new content
/// exists: writes a new file beside it, flushes it and renames it over the old one in one step. The new file
/// gets the old one's access list, and its hidden, system, archive, not-indexed and encrypted attributes. It
/// does not get the old one's times, owner, alternate streams and other names. A failure leaves nothing
/// behind.
///
/// @return 0; 87; 8; 681 (it is a link); 336 (it is a folder); 6009 (it is read-only: FileClearReadOnly); 5
///         or 32 (others held it open for a second); or the system's code. On failure the file is unchanged
SYSMAINT_API long FileWriteAtomically(const wchar_t* path, const void* bytes, size_t size);

/// @param oldAttributes  receives the previous attributes
/// @return 0, 87, 8, or the system's code
SYSMAINT_API long FileClearReadOnly(const wchar_t* path, unsigned long* oldAttributes);

/// Deletes a file, also a read-only one. A file that others hold is retried for half a second, then put on
/// the boot-time list. If that fails, it keeps its attributes.
///
/// @param waits  receives whether the file waits for the restart
/// @return 0; 87; 8; 336 (a folder); or the system's code (2: it does not exist)
SYSMAINT_API long FileDeleteForced(const wchar_t* path, int* waits);

/// Whether anybody has the file open.
///
/// @return 0, 87, 8, or the system's code
SYSMAINT_API long FileIsInUse(const wchar_t* path, int* inUse);

/// The processes that have the file open, as far as the system's restart manager knows: none may mean
/// "unknown". Proven by simulation.
///
/// @return 0, 87, 8, or the system's code
SYSMAINT_API long FileGetLockers(const wchar_t* path, unsigned long** processIds, size_t* count);

/// Moves a file or folder to the recycle bin, without a window. Refused where it would be deleted
/// permanently, on drives without a bin or with the bin disabled, where something else would be moved, and
/// for protected folders (PathIsProtected).
///
/// @return 0; 87; 8; 50 (refused); 206 (260 characters or more); 5 (also when it is still there afterwards);
///         1223; or the system's code
SYSMAINT_API long FileMoveToRecycleBin(const wchar_t* path);

/// Creates a folder and its missing parents. Succeeds when it already exists.
///
/// @return 0, 87, 8, 3 (no such drive), 267 (a file is in the way), or the system's code
SYSMAINT_API long FolderCreateTree(const wchar_t* path);

/// Deletes a folder and everything in it. Links in it are deleted themselves, never followed. Every folder is
/// held while its content is deleted, so it cannot be replaced with a link. What cannot be deleted stays, and
/// the rest is still deleted. What others hold is retried, for a second in all. Two simultaneous calls for
/// one folder both return 0.
///
/// @return 0; 87; 8; 50 (protected, see PathIsProtected); 267 (not a folder); 681 (a link, or a folder that
///         became one); 1223; 6 (no event); otherwise the first failure
SYSMAINT_API long FolderDeleteTree(const wchar_t* path, void* cancelEvent);

/// The content of a folder: bytes and number of files, number of folders below it. Links are neither followed
/// nor counted; a file with several names counts once for each.
///
/// @return 0; 87; 8; 267; 681; 6 (no event); 1223; or the system's code when something cannot be listed,
///         because the sum would be wrong
SYSMAINT_API long FolderGetSize(const wchar_t* path, void* cancelEvent, uint64_t* bytes, uint64_t* files,
                                uint64_t* folders);

/// @return 0, 87, 8, or the system's code
SYSMAINT_API long FolderIsEmpty(const wchar_t* path, int* isEmpty);
SYSMAINT_C_END
