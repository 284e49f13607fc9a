#pragma once

#include <windows.h>

/// The version of Windows, as far as System Restore depends on it.
class WindowsVersion
{
public:
    constexpr WindowsVersion(unsigned long major, unsigned long minor) noexcept
        : m_major(major), m_minor(minor)
    {
    }
    /// The true version: GetVersionEx reports an older one to programs without a manifest.
    [[nodiscard]] static WindowsVersion current() noexcept;

    /// NT 5.1 and 5.2: the registry tells whether System Restore is enabled.
    [[nodiscard]] constexpr bool isSwitchInRegistry() const noexcept
    {
        return m_major == 5 && (m_minor == 1 || m_minor == 2);
    }
    /// NT 6.0 and later: WMI tells it.
    [[nodiscard]] constexpr bool isSwitchInWmi() const noexcept { return m_major >= 6; }
    /// NT 6.2 and later: the system creates only one restore point in 24 hours, and otherwise returns the
    /// number of an older one.
    [[nodiscard]] constexpr bool limitsRestorePoints() const noexcept
    {
        return m_major > 6 || (m_major == 6 && m_minor >= 2);
    }

private:
    unsigned long m_major;
    unsigned long m_minor;
};
