#pragma once

#include <windows.h>

/// Which Windows this is, as far as System Restore differs.
class WindowsVersion
{
public:
    constexpr WindowsVersion(unsigned long major, unsigned long minor) noexcept
        : m_major(major), m_minor(minor)
    {
    }
    /// The true version: GetVersionEx answers programs without a manifest with an old one.
    [[nodiscard]] static WindowsVersion current() noexcept;

    /// NT 5.1 and 5.2: the registry says whether System Restore is on.
    [[nodiscard]] constexpr bool isSwitchInRegistry() const noexcept
    {
        return m_major == 5 && (m_minor == 1 || m_minor == 2);
    }
    /// NT 6.0 and all that came after: WMI says it.
    [[nodiscard]] constexpr bool isSwitchInWmi() const noexcept { return m_major >= 6; }
    /// NT 6.2 and all that came after: the system keeps to one restore point in 24 hours, and gives the
    /// number of an older one out in place of a new one.
    [[nodiscard]] constexpr bool limitsRestorePoints() const noexcept
    {
        return m_major > 6 || (m_major == 6 && m_minor >= 2);
    }

private:
    unsigned long m_major;
    unsigned long m_minor;
};
