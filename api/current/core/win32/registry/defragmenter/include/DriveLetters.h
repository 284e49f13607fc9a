#pragma once

#include <windows.h>

#include <string>
#include <string_view>
#include <utility>
#include <vector>

/// The drives of the system and their devices at the time of construction.
class DriveLetters
{
public:
    /// Raises std::bad_alloc, and the bare code when the system does not tell its drives.
    DriveLetters();

    /// The drive path of a file's native path: "\Device\HarddiskVolume2\x", "\??\C:\x". A path that begins
    /// with a drive is returned unchanged. Raises a bare 15 for a volume without a letter, or why the system
    /// did not tell a drive's device; 161 for any other form.
    [[nodiscard]] std::wstring resolve(std::wstring_view native) const;

private:
    std::vector<std::pair<wchar_t, std::wstring>> m_devices; // by drive
    long m_untold = ERROR_SUCCESS;                           // why a drive is missing above
};
