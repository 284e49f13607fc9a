#include "ShadowCopies.h"

#include <windows.h>

#include "OwnedHandle.h"

bool hasShadowCopies(const std::wstring& drive)
{
    constexpr DWORD kQueryNamesOfSnapshots = 0x00534018; // IOCTL_VOLSNAP_QUERY_NAMES_OF_SNAPSHOTS
    const OwnedHandle volume(::CreateFileW((LR"(\\.\)" + drive.substr(0, 2)).c_str(), GENERIC_READ,
                                           FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING, 0,
                                           nullptr));
    struct
    {
        ULONG bytes; // size of a list of names, each terminated, with a closing zero
        wchar_t names[2];
    } found{};
    DWORD returned = 0;
    const BOOL told = DeviceIoControl(volume.get(), kQueryNamesOfSnapshots, nullptr, 0, &found, sizeof found,
                                      &returned, nullptr);
    return (told || GetLastError() == ERROR_MORE_DATA) && returned >= sizeof found.bytes &&
           found.bytes > sizeof(wchar_t) * 2;
}
