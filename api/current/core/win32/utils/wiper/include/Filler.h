#pragma once

#include <string>

#include "core/win32/utils/paths/include/Win32Path.h"
#include "core/win32/utils/wiper/include/WipeTarget.h"
#include "core/win32/utils/wiper/include/Wiper.h"

/// The hidden file that takes up a volume's free space. It goes when this goes, in every case.
///
/// One that an earlier run left behind is filled on and removed. It is known by being hidden; whatever else
/// has the name is left alone.
class Wiper::Filler
{
public:
    /// `path` is absolute. Raises the bare code: the system's; 183 when the name belongs to a file that is
    /// not hidden or has a second name; 681 when it is a link.
    Filler(Wiper& wiper, const std::wstring& path);
    Filler(const Filler&) = delete;
    Filler& operator=(const Filler&) = delete;
    ~Filler();

    [[nodiscard]] HANDLE get() const noexcept { return m_file.get(); }

    /// Closes and deletes the file. A failure puts it on the boot-time list; returns its code. When somebody
    /// has put another file in its place, that one stays (1006).
    long deleteFillerFile() noexcept;

private:
    void checkFound(bool isNew);
    void cutAndDelete() const;
    [[nodiscard]] Win32Handle patientlyOpened(DWORD disposition, DWORD attributes, HANDLE cancelEvent) const;

    Wiper& m_wiper;
    std::wstring m_path;
    Win32Path m_target;
    Win32Handle m_file;
    FileIdentity m_identity;
};
