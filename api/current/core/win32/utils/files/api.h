#pragma once

#include "core/win32/utils/memory/api.h"

// Files and folders, by paths of any length and form. What all utility functions have in common is said in
// core/win32/utils/memory/api.h.
//
// Links are followed by what reads and sets, as Win32 does; what deletes never follows one.

extern "C" {
/// The bytes of a file, and those that it takes on the disk (less when compressed or sparse).
///
/// @return 0, 87, 8, or the system's code
SYSMAINT_API long FileGetSizes(const wchar_t* path, unsigned long long* size, unsigned long long* allocated);

/// @return 0, 87, 8, or the system's code
SYSMAINT_API long FileGetTimes(const wchar_t* path, unsigned long long* created, unsigned long long* accessed,
                               unsigned long long* written);

/// Sets the times of a file or folder; a null one stays.
///
/// @return 0; 87 (also a time of 0 or above 2^63 - 1); 8; or the system's code
SYSMAINT_API long FileSetTimes(const wchar_t* path, const unsigned long long* created,
                               const unsigned long long* accessed, const unsigned long long* written);

/// What tells one file from another whatever its name: equal serials and ids are one file while both are
/// open.
///
/// @param links  receives how many names the file has
/// @return 0, 87, 8, or the system's code
SYSMAINT_API long FileGetIdentity(const wchar_t* path, unsigned long* volumeSerial,
                                  unsigned long long* fileId, unsigned long* links);

/// The whole content.
///
/// @return 0, 87, 8, 223 (more than `limit` bytes), or the system's code
SYSMAINT_API long FileReadAll(const wchar_t* path, unsigned long long limit, unsigned char** bytes,
                              size_t* size);

/// Makes or replaces the file so that at any moment, and after a crash, its old or its new content is there,
/// whole: writes a new file beside it, flushes it and puts it in its place by one renaming. The new file has
/// the access list of the old one, and its hidden, system, archive, not-indexed and encrypted attributes. It
/// is a new file all the same: times, owner, other streams and further names of the old one do not go with
/// it. A failure leaves nothing behind.
///
/// @return 0; 87; 8; 681 (it is a link); 336 (it is a folder); 6009 (it is read-only: FileClearReadOnly); 5
/// or 32 (somebody has had it open for a second); or the system's code: then the file is as it was
SYSMAINT_API long FileWriteAtomically(const wchar_t* path, const void* bytes, size_t size);

/// @param oldAttributes  receives all attributes as they were
/// @return 0, 87, 8, or the system's code
SYSMAINT_API long FileClearReadOnly(const wchar_t* path, unsigned long* oldAttributes);

/// Deletes a file, read-only ones too; one that is held is tried again for half a second, then put on the
/// boot-time list. What cannot be put there keeps its attributes.
///
/// @param waits  receives whether it waits for the restart
/// @return 0; 87; 8; 336 (a folder); or the system's code (2: nothing is there)
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

/// Moves a file or folder to the recycle bin, without a window. Refused where it would be deleted for good or
/// something else would go: on drives without a bin or with the bin switched off, and for protected folders
/// (PathIsProtected).
///
/// @return 0; 87; 8; 50 (refused); 206 (260 characters or more); 1223; or the system's code
SYSMAINT_API long FileMoveToRecycleBin(const wchar_t* path);

/// Makes a folder and all that is missing above it; one that is there is fine.
///
/// @return 0, 87, 8, 3 (no such drive), 267 (a file is in the way), or the system's code
SYSMAINT_API long FolderCreateTree(const wchar_t* path);

/// Deletes a folder and all that is in it. Links in it are deleted as themselves and never followed; every
/// folder is held while what is in it goes, so that none can be swapped for a link meanwhile. What cannot go
/// stays, and the rest goes on. What somebody holds is tried again, for a second in all; two calls for one
/// folder at the same time both end with 0.
///
/// @return 0; 87; 8; 50 (protected, see PathIsProtected); 267 (no folder); 681 (a link, or a folder that
/// became one); 1223; 6 (no event);
///         otherwise the first failure
SYSMAINT_API long FolderDeleteTree(const wchar_t* path, void* cancelEvent);

/// What a folder holds: bytes and number of files, number of folders below it. Links are neither followed nor
/// counted; a file with several names counts under each.
///
/// @return 0; 87; 8; 267; 681; 6 (no event); 1223; or the system's code when something cannot be listed: a
/// sum that lacks it would be wrong
SYSMAINT_API long FolderGetSize(const wchar_t* path, void* cancelEvent, unsigned long long* bytes,
                                unsigned long long* files, unsigned long long* folders);

/// @return 0, 87, 8, or the system's code
SYSMAINT_API long FolderIsEmpty(const wchar_t* path, int* isEmpty);
}
