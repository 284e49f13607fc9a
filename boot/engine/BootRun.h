#pragma once

#include "engine/BootList.h"
#include "engine/BootLog.h"
#include "engine/FileRemover.h"

/// The results of a run.
struct RunReport
{
    native::Status status = native::kSuccess; // why the list cannot be read or written
    bool isBusy = false;                      // somebody else is processing the list: nothing was done
    bool isOver = false;                      // it ended before all was done
    bool isListEmpty = false;                 // nothing is waiting
    std::uint32_t lines = 0;
    std::uint32_t wiped = 0;
    std::uint32_t gone = 0;
    std::uint32_t links = 0;
    std::uint32_t left = 0;
    std::uint64_t bytes = 0; // overwritten, counted once per repetition
};

/// One run over the waiting files: overwrites and deletes each as its line says, removes the line from the
/// list when the file is gone, and logs what was left and why. Makes only native calls, and only those of
/// `api`; throws nothing.
///
/// It may be ended at any moment: files that were overwritten in part or not at all still exist and are on
/// the list. A file that could not be finished is the last one in the next run, so it does not hold up the
/// others.
class BootRun
{
public:
    /// `windowsFolder`: as a native path.
    BootRun(const native::Api& api, Text windowsFolder, const RunEvents& events);

    RunReport run();

private:
    void handleLines(BootList& list, BootLog& log, FileRemover& remover, RunReport& report);
    [[nodiscard]] bool isWanted(const ListLine& line) const;
    void count(const Result& result, RunReport& report) const;
    void tellLeft(BootLog& log, const ListLine& line, const Result& result);
    void tellEnd(BootLog& log, const RunReport& report);

    const native::Api& m_api;
    Text m_windowsFolder;
    const RunEvents& m_events;
    PageBlock m_text;
};
