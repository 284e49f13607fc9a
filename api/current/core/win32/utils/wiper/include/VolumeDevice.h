#pragma once

#include <windows.h>

#include <cstdint>

#include "core/win32/utils/objectmanager/include/Win32Handle.h"

/// What Windows requires of a program that overwrites a whole volume. Failures raise the bare code.
namespace volumedevice {
/// Volumes are written in whole sectors; none is larger than this.
inline constexpr std::uint64_t kLargestSector = 4096;

/// Opens a device such as "\\.\D:". While others hold it, retries for about a second. Invalid on failure,
/// with the last error; raises 1223.
[[nodiscard]] Win32Handle open(const wchar_t* device, DWORD access, DWORD share, HANDLE cancelEvent);

/// The size in bytes of a device such as "\\.\D:". The file system counts less where it reserves sectors
/// (FAT, the last one of NTFS), and only what the user may fill where there are quotas. 0 when the system
/// does not tell. Opens a handle of its own, because the request fails on a write-only handle; no other
/// handle to the device may be open without sharing meanwhile.
[[nodiscard]] std::uint64_t lengthOf(const wchar_t* device, HANDLE cancelEvent);

/// Locks the volume for one handle (FSCTL_LOCK_VOLUME) and dismounts its file system (FSCTL_DISMOUNT_VOLUME)
/// for as long as the handle is open, and allows writing beyond the file system's end
/// (FSCTL_ALLOW_EXTENDED_DASD_IO). Otherwise Windows refuses all but the first sectors, and a mounted file
/// system writes its cached data back over what was wiped. Waits about a second for others. A device that
/// supports none of these requests has no such file system.
void takeOver(HANDLE volume, HANDLE cancelEvent);
} // namespace volumedevice
