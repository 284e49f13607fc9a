#pragma once

#include "engine/BootList.h"
#include "engine/BootLog.h"
#include "engine/FileRemover.h"

/// What a run has done.
struct RunReport
{
    native::Status status = native::kSuccess; // of the list, when it cannot be read or written
    bool isBusy = false;                      // somebody else works on the list: nothing was done
    bool isOver = false;                      // it ended before its work
    bool isListEmpty = false;                 // nothing waits any more
    std::uint32_t lines = 0;
    std::uint32_t wiped = 0;
    std::uint32_t gone = 0;
    std::uint32_t links = 0;
    std::uint32_t left = 0;
    std::uint64_t bytes = 0; // overwritten, counted once in each repetition
};

/// One run over the files that wait: overwrites and deletes each as its line says, takes the line off the
/// list when the file is gone, and says in the log what was left and why. Makes native calls alone, and no
/// others than those of `api`; throws nothing.
///
/// It is safe to end it at any moment: what is overwritten in part or not at all is still there and on the
/// list. A file that could not be finished is the last one of the next run, so that it does not keep others
/// from theirs.
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
