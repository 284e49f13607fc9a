#include "core/win32/registry/defragmenter/include/DriveLetters.h"

#include "core/win32/utils/objectmanager/include/Raise.h"

namespace {
constexpr std::wstring_view kDevice = LR"(\Device\)";

/// The current device of a drive, which is the first of a list. Empty for a drive that is gone; raises the
/// bare code.
std::wstring deviceOf(wchar_t drive)
{
    const wchar_t name[] = {drive, L':', L'\0'};
    std::wstring devices(MAX_PATH, L'\0');
    while (QueryDosDeviceW(name, devices.data(), static_cast<DWORD>(devices.size())) == 0) {
        const DWORD code = GetLastError();
        if (code == ERROR_FILE_NOT_FOUND)
            return {};
        if (code != ERROR_INSUFFICIENT_BUFFER)
            raiseCode(code);
        devices.resize(devices.size() * 2);
    }
    return devices.c_str();
}

bool isEqual(std::wstring_view left, std::wstring_view right) noexcept
{
    return CompareStringOrdinal(left.data(), static_cast<int>(left.size()), right.data(),
                                static_cast<int>(right.size()), TRUE) == CSTR_EQUAL;
}

bool beginsWithDrive(std::wstring_view path) noexcept
{
    const auto isLetter = [](wchar_t c) { return (c >= L'A' && c <= L'Z') || (c >= L'a' && c <= L'z'); };
    return path.size() > 3 && isLetter(path[0]) && path[1] == L':' && path[2] == L'\\';
}
} // namespace

DriveLetters::DriveLetters()
{
    constexpr unsigned kLetters = 26;
    const DWORD drives = GetLogicalDrives();
    if (drives == 0)
        raiseLastError();
    for (unsigned letter = 0; letter < kLetters; ++letter) {
        if ((drives >> letter & 1U) == 0)
            continue;
        const auto drive = static_cast<wchar_t>(L'A' + letter);
        try {
            m_devices.emplace_back(drive, deviceOf(drive));
        } catch (const long code) { // matters if it could have been the wanted one
            m_untold = code;
        }
    }
}

std::wstring DriveLetters::resolve(std::wstring_view native) const
{
    constexpr std::wstring_view kLiteral = LR"(\??\)";
    if (native.starts_with(kLiteral) && beginsWithDrive(native.substr(kLiteral.size())))
        return std::wstring(native.substr(kLiteral.size()));
    if (beginsWithDrive(native))
        return std::wstring(native);
    if (native.size() <= kDevice.size() || !isEqual(native.substr(0, kDevice.size()), kDevice))
        raiseCode(ERROR_BAD_PATHNAME);
    for (const auto& [drive, device] : m_devices) {
        const bool isOn = !device.empty() && native.size() > device.size() + 1 &&
                          native[device.size()] == L'\\' && isEqual(native.substr(0, device.size()), device);
        if (isOn)
            return std::wstring{drive, L':'}.append(native.substr(device.size()));
    }
    raiseCode(m_untold != ERROR_SUCCESS ? m_untold : static_cast<long>(ERROR_INVALID_DRIVE));
}
