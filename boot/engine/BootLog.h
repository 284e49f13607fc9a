#pragma once

#include "engine/NativeFile.h"
#include "engine/PageBlock.h"

/// The log of the runs, which at most grows to 1 MiB: one of more than half of that is begun anew with the
/// next run, and the last lines of a run that has more to say are left out. A run has a line at its
/// beginning, one at its end, and one for each file that is left, with the reason. Files that are done are
/// counted and not named: a log would keep the names that a wipe is to remove. A log that cannot be written
/// is no reason not to work.
class BootLog
{
public:
    BootLog(const native::Api& api, const NativeFile& folder)
        : m_api(api), m_folder(folder), m_file(api), m_text(api)
    {
    }

    /// Opens the log, which is held for writing as long as this object lives: kSharingViolation when somebody
    /// else does that.
    native::Status open();
    /// Adds a line with the time before it. `isLast`: room is kept for it.
    void add(Text line, bool isLast = false);
    native::Status number(FileNumber& number) const { return m_file.number(number); }

private:
    const native::Api& m_api;
    const NativeFile& m_folder;
    NativeFile m_file;
    PageBlock m_text;
    std::uint64_t m_end = 0;
    bool m_isUsable = false;
};
