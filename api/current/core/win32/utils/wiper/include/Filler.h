#pragma once

#include <cstdint>
#include <list>
#include <string>

#include "core/win32/utils/paths/include/Win32Path.h"
#include "core/win32/utils/wiper/include/WipeTarget.h"
#include "core/win32/utils/wiper/include/Wiper.h"

/// The hidden file that takes up a volume's free space. The destructor always deletes it.
///
/// A file that an earlier run left is filled further and removed. It is recognised by being hidden; anything
/// else with the name is left alone.
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
    /// Whether an earlier run left it.
    [[nodiscard]] bool wasFound() const noexcept { return m_wasFound; }

    /// Closes, truncates and deletes the file; one that cannot be truncated is deleted all the same. What is
    /// still there then goes on the boot-time list. Returns 0 when this has deleted it, otherwise the first
    /// code, also for a file that somebody else has deleted (2) or that others still have open (303). A file
    /// that somebody has put in its place stays (1006, unless there was a code before).
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
    bool m_wasFound = false;
};

/// The fillers of one volume: a further one is created whenever the current one cannot grow (FAT32: 4 GiB).
class Wiper::Fillers
{
public:
    /// Opens the first, and those that a killed run left beside it. Raises Filler's codes.
    Fillers(Wiper& wiper, const std::wstring& path);

    /// The one being filled, with its file pointer at the end.
    [[nodiscard]] HANDLE get() const noexcept { return m_fillers.back().get(); }
    [[nodiscard]] std::uint64_t end() const noexcept { return m_end; }
    void advance(std::uint64_t bytes) noexcept { m_end += bytes; }
    /// Asks the system for the end of the file. Raises the bare code.
    std::uint64_t readEnd();
    /// Creates another one. Returns false when the volume has no room for its name. Raises Filler's codes
    /// except 183: names that belong to others are skipped.
    [[nodiscard]] bool beginNext();
    /// Deletes them all. Returns the first failure.
    long deleteFillerFiles() noexcept;

private:
    [[nodiscard]] std::wstring nextPath();
    void goToEnd();

    Wiper& m_wiper;
    std::wstring m_path;
    std::uint32_t m_number = 1;
    std::uint64_t m_end = 0;
    std::list<Filler> m_fillers;
};
