#pragma once

#include "core/win32/utils/processmanager/api.h"
#include "support/Process.h"
#include "support/Threads.h"
#include "support/Utilities.h"

/// One run of the program that the tests start. Whatever is left of it, and of what it has started, ends with
/// this object.
class Child
{
public:
    explicit Child(const std::wstring& arguments,
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

    HANDLE handle;
    DWORD id;

private:
    HANDLE m_job = CreateJobObjectW(nullptr, nullptr);
};

using ProcessHandle = SmartHandle<CloseProcess>;

/// The list that a call returned; empty when it failed, which fails the test.
template <class Entry, class Call>
std::vector<Entry> listOf(Given<Entry>& buffer, Call&& call)
{
    size_t count = 0;
    EXPECT_EQ(call(&buffer, &count), 0);
    return {buffer.get(), buffer.get() + count};
}
