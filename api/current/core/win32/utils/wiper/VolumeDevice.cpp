#include "core/win32/utils/wiper/include/VolumeDevice.h"

#include <winioctl.h>

#include "core/win32/utils/objectmanager/include/Raise.h"
#include "core/win32/utils/objectmanager/include/Win32Handle.h"
#include "core/win32/utils/paths/include/Patience.h"

namespace {
bool control(HANDLE device, DWORD code, void* result = nullptr, DWORD size = 0) noexcept
{
    DWORD returned = 0;
    return DeviceIoControl(device, code, nullptr, 0, result, size, &returned, nullptr) != FALSE;
}
/// Raises the last error, unless it means that the device does not support the request.
void requireKnown()
{
    const DWORD code = GetLastError();
    if (code != ERROR_INVALID_FUNCTION && code != ERROR_NOT_SUPPORTED && code != ERROR_INVALID_PARAMETER)
        raiseLastError();
}
} // namespace

Win32Handle volumedevice::open(const wchar_t* device, DWORD access, DWORD share, HANDLE cancelEvent)
{
    for (Patience patience(cancelEvent);;) {
        Win32Handle opened(
            CreateFileW(device, access, share, nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
        if (opened.isValid() || !patience.isWorthAnotherTry(GetLastError()))
            return opened;
    }
}

std::uint64_t volumedevice::lengthOf(const wchar_t* device, HANDLE cancelEvent)
{
    const Win32Handle opened = open(device, GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, cancelEvent);
    if (!opened.isValid())
        raiseLastError();
    GET_LENGTH_INFORMATION length{};
    if (control(opened.get(), IOCTL_DISK_GET_LENGTH_INFO, &length, sizeof length))
        return static_cast<std::uint64_t>(length.Length.QuadPart);
    requireKnown();
    return 0;
}

void volumedevice::takeOver(HANDLE volume, HANDLE cancelEvent)
{
    for (Patience patience(cancelEvent); !control(volume, FSCTL_LOCK_VOLUME);)
        if (!patience.isWorthAnotherTry(GetLastError())) {
            requireKnown();
            break;
        }
    if (!control(volume, FSCTL_DISMOUNT_VOLUME))
        requireKnown();
    // If it is refused, a write beyond the file system's end will fail.
    control(volume, FSCTL_ALLOW_EXTENDED_DASD_IO);
}
