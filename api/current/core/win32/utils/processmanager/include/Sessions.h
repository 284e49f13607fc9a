#pragma once

#include <windows.h>

#include <string>
#include <tuple>

#include "core/win32/utils/memory/include/UtilityMemory.h"
#include "core/win32/utils/objectmanager/include/Win32Handle.h"
#include "win32/processes/include/ProcessRecords.h"

/// What the exported session functions of the process manager do; see api.h. They raise bare codes.
namespace sessions {
[[nodiscard]] RecordList<SessionRecord> enumerate();
/// A primary token of the session's user.
[[nodiscard]] Win32Handle primaryToken(unsigned long session, bool elevated);
[[nodiscard]] std::wstring knownFolder(unsigned long session, const GUID& folder);
} // namespace sessions

/// A program started in a session as its user.
class SessionRun
{
public:
    /// Starts it. Raises 87, 193 (a batch file), 1314, and the system's code.
    explicit SessionRun(const SessionProgram& program);
    SessionRun(const SessionRun&) = delete;
    SessionRun& operator=(const SessionRun&) = delete;

    /// Waits as the program's options say. Raises 1460 and 1223; `getOutput` then returns the output so far.
    void wait();
    [[nodiscard]] unsigned long getProcessId() const noexcept { return m_processId; }
    /// 259 while it is running.
    [[nodiscard]] unsigned long getExitCode() const;
    [[nodiscard]] const std::string& getOutput() const noexcept { return m_output; }

private:
    void openPipe();
    void start(HANDLE input);
    void collect(class SessionWait& waiting);
    void endAll() const noexcept;

    const SessionProgram& m_program;
    Win32Handle m_reading; // our end of the pipe
    Win32Handle m_writing; // the program's end, until it has started
    Win32Handle m_process;
    unsigned long m_processId = 0;
    std::string m_output;
};
