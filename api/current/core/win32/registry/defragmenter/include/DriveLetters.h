#pragma once

#include <windows.h>

#include <string>
#include <string_view>
#include <utility>
#include <vector>

/// The drives of the system with the devices that they stand for, as they are when this is made.
class DriveLetters
{
public:
    /// Raises std::bad_alloc, and the bare code when the system does not tell its drives.
    DriveLetters();

    /// The path from a drive's root that a native path of a file stands for: "\Device\HarddiskVolume2\x",
    /// "\??\C:\x". One that begins with a drive is given back as it stands. Raises a bare 15 for a volume
    /// without a letter, or why the system did not tell the device of a drive; 161 for any other form.
    [[nodiscard]] std::wstring resolve(std::wstring_view native) const;

private:
    std::vector<std::pair<wchar_t, std::wstring>> m_devices; // of each drive
    long m_untold = ERROR_SUCCESS;                           // why a drive is missing there
};
