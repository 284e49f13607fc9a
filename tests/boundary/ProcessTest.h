#pragma once

// The process manager and its objects, compared with the system's own answers and real children.

#include "core/win32/utils/processmanager/api.h"
#include "support/Process.h"
#include "support/Utilities.h"

using Opening = Replaced<"OpenProcess", HANDLE(WINAPI*)(DWORD, BOOL, DWORD)>;
using Terminating = Replaced<"TerminateProcess", decltype(&TerminateProcess)>;
using Asking = Replaced<"NtQuerySystemInformation", decltype(&NtQuerySystemInformation)>;
using ProcessHandle = SmartHandle<CloseProcess>;
using ThreadHandle = SmartHandle<CloseThread>;

/// One run of the program that the tests start. Whatever is left of it, and of what it has started, ends with
/// this object.
class Child
{
public:
    explicit Child(const std::wstring& arguments = L"sleep",
                   const std::wstring& program = besideTests(L"process_child.exe"))
    {
        JOBOBJECT_EXTENDED_LIMIT_INFORMATION limits{};
        limits.BasicLimitInformation.LimitFlags = JOB_OBJECT_LIMIT_KILL_ON_JOB_CLOSE;
        SetInformationJobObject(m_job, JobObjectExtendedLimitInformation, &limits, sizeof limits);
        std::wstring command = L"process_child " + arguments;
        STARTUPINFOW startup{};
        startup.cb = sizeof startup;
        PROCESS_INFORMATION started{};
        if (!CreateProcessW(program.c_str(), command.data(), nullptr, nullptr, FALSE, CREATE_SUSPENDED,
                            nullptr, nullptr, &startup, &started))
            throw std::runtime_error("the child does not start");
        AssignProcessToJobObject(m_job, started.hProcess);
        ResumeThread(started.hThread);
        CloseHandle(started.hThread);
        handle = started.hProcess;
        id = started.dwProcessId;
    }
    Child(Child&&) = delete;
    ~Child()
    {
        CloseHandle(m_job);
        WaitForSingleObject(handle, 60000);
        CloseHandle(handle);
    }

    [[nodiscard]] bool isRunning() const { return WaitForSingleObject(handle, 0) == WAIT_TIMEOUT; }
    /// Ends it; this object keeps its exit code.
    void end() const
    {
        TerminateProcess(handle, 3);
        WaitForSingleObject(handle, 60000);
    }
    /// Its entry in a new snapshot, as soon as there is one.
    [[nodiscard]] ProcessEntry entry() const
    {
        Given<ProcessEntry> found;
        if (!comesTrue([&] { return PMRefresh() == 0 && PMFindById(id, &found) == 0; }))
            throw std::runtime_error("the child is not listed");
        ProcessEntry entry = *found.get();
        entry.name = L"";
        return entry;
    }
    /// An object of the manager for it.
    [[nodiscard]] ProcessHandle object() const { return ProcessHandle(CreateProcessW(entry())); }

    HANDLE handle;
    DWORD id;

private:
    HANDLE m_job = CreateJobObjectW(nullptr, nullptr);
};

/// The list that a call with these arguments returns; empty when it fails, which fails the test.
template <class Entry>
class Listed : public std::span<const Entry>
{
public:
    template <class Call, class... Arguments>
    explicit Listed(Call&& call, Arguments... arguments)
    {
        std::size_t count = 0;
        EXPECT_EQ(call(arguments..., &m_buffer, &count), 0);
        static_cast<std::span<const Entry>&>(*this) = {m_buffer.get(), count};
    }

private:
    Given<Entry> m_buffer;
};

/// The ids that a function of the manager finds.
template <class... Arguments>
std::vector<DWORD> found(Arguments... arguments)
{
    std::vector<DWORD> ids;
    for (const ProcessEntry& each : Listed<ProcessEntry>(arguments...))
        ids.push_back(each.id);
    return ids;
}

/// Whether so many of the tests' programs are running in the end.
inline bool areRunning(std::size_t count)
{
    return comesTrue(
        [&] { return PMRefresh() == 0 && found(PMFindByName, L"PROCESS_child.exe").size() == count; });
}

/// The code of all operations on a process, none of which does anything, and whether it is running.
using Codes = std::pair<std::set<long>, long>;
inline Codes codesOf(void* process)
{
    unsigned long number = 0;
    Given<ProcessDetails> details;
    int flag = 7;
    const long isRunning = ProcessIsRunning(process, &flag);
    return {{ProcessGetDetails(process, &details), ProcessCloseWindows(process, &number),
             ProcessWait(process, 0, nullptr, &number), ProcessEnd(process, 0, 0),
             ProcessEnd(process, kEndTree, 0), ProcessSuspend(process), ProcessResume(process),
             ProcessSetPriority(process, NORMAL_PRIORITY_CLASS)},
            isRunning == 0 ? flag : -isRunning};
}

/// Every test has a manager, and ends without one.
struct Processes : testing::Test
{
    void SetUp() override { ASSERT_EQ(CreateProcessManager(), 0); }
    void TearDown() override { EXPECT_NE(CloseProcessManager(), 0); }
};
