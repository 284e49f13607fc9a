#pragma once

#include <windows.h>

#include <cstdint>

#include "core/win32/utils/objectmanager/include/Win32Handle.h"

/// What Windows requires of a program that overwrites a whole volume. Failures raise the bare code.
namespace volumedevice {
/// Volumes are written in whole sectors, of which none is larger.
inline constexpr std::uint64_t kLargestSector = 4096;

/// Opens a device such as "\\.\D:". While others hold it, retries for about a second. Invalid on failure,
/// with the last error; raises 1223.
[[nodiscard]] Win32Handle open(const wchar_t* device, DWORD access, DWORD share, HANDLE cancelEvent);

/// The bytes of a device such as "\\.\D:", behind which no volume goes on: the file system counts less where
/// it keeps sectors aside (FAT, the last one of NTFS), and what the user may fill where there are quotas. 0
/// when the system does not tell. Asked through a handle of its own: one that may only write is not told, and
/// none can be had beside one that is not shared.
[[nodiscard]] std::uint64_t lengthOf(const wchar_t* device, HANDLE cancelEvent);

/// Has the volume for one handle alone (FSCTL_LOCK_VOLUME) and its file system gone (FSCTL_DISMOUNT_VOLUME),
/// for as long as the handle is open, and allows writing behind the file system's end
/// (FSCTL_ALLOW_EXTENDED_DASD_IO). Without that Windows refuses all but the first sectors, and what a mounted
/// file system remembers is written back over what was wiped. Waits about a second for others. A device that
/// knows none of these requests has no such file system.
void takeOver(HANDLE volume, HANDLE cancelEvent);
} // namespace volumedevice
