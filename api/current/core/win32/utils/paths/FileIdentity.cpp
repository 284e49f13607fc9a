#include "core/win32/utils/paths/include/FileIdentity.h"

#include "core/win32/utils/objectmanager/include/Raise.h"

FileIdentity FileIdentity::of(HANDLE opened)
{
    BY_HANDLE_FILE_INFORMATION information;
    if (!GetFileInformationByHandle(opened, &information))
        raiseLastError();
    return of(information);
}

FileIdentity FileIdentity::of(const BY_HANDLE_FILE_INFORMATION& information) noexcept
{
    return {information.dwVolumeSerialNumber,
            (static_cast<std::uint64_t>(information.nFileIndexHigh) << 32U) | information.nFileIndexLow};
}
