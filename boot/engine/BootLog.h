#pragma once

#include "engine/NativeFile.h"
#include "engine/PageBlock.h"

/// The log of the runs, at most 1 MiB: a log of more than half of that is restarted by the next run, and a
/// run omits the last lines that do not fit. A run has a line at its beginning, one at its end, and one for
/// each file that is left, with the reason. Finished files are counted but not named: the log would keep
/// names that a wipe is meant to remove. A run continues even if the log cannot be written.
class BootLog
{
public:
    BootLog(const native::Api& api, const NativeFile& folder)
        : m_api(api), m_folder(folder), m_file(api), m_text(api)
    {
    }

    /// Opens the log and holds it for writing while this object lives; kSharingViolation when somebody else
    /// holds it.
    native::Status open();
    /// Adds a line after the time. `isLast`: space is reserved for it.
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
