#pragma once

// The process manager and its objects, compared with the system's own answers and real children.

#include "support/Test.h"

#include <tlhelp32.h>
#include <winternl.h>

#include "support/Child.h"
#include "support/ImportReplacement.h"
#include "support/Process.h"

using Times = Replaced<"GetProcessTimes", decltype(&GetProcessTimes)>;
using Opening = Replaced<"OpenProcess", HANDLE(WINAPI*)(DWORD, BOOL, DWORD)>;
using Terminating = Replaced<"TerminateProcess", decltype(&TerminateProcess)>;
using Asking = Replaced<"NtQuerySystemInformation", decltype(&NtQuerySystemInformation)>;

inline std::map<DWORD, std::wstring> toolhelp()
{
    std::map<DWORD, std::wstring> found;
    const HANDLE list = CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0);
    PROCESSENTRY32W entry{};
    entry.dwSize = sizeof entry;
    for (BOOL more = Process32FirstW(list, &entry); more; more = Process32NextW(list, &entry))
        found[entry.th32ProcessID] = std::to_wstring(entry.th32ParentProcessID) + L" " + entry.szExeFile;
    CloseHandle(list);
    return found;
}

inline ProcessHandle objectOf(const Child& child)
{
    return ProcessHandle(CreateProcessW(child.entry()));
}

inline std::vector<DWORD> idsOf(const std::vector<ProcessEntry>& entries)
{
    std::vector<DWORD> ids;
    for (const ProcessEntry& each : entries)
        ids.push_back(each.id);
    return ids;
}

/// The ids that a function of the manager finds.
template <class Function, class Argument>
std::vector<DWORD> found(Function function, Argument argument)
{
    Given<ProcessEntry> buffer;
    return idsOf(
        listOf(buffer, [&](ProcessEntry** list, size_t* count) { return function(argument, list, count); }));
}

inline DWORD idOf(const wchar_t* name)
{
    const auto ids = found(PMFindByName, name);
    return ids.empty() ? 0 : ids[0];
}

/// The codes of all operations on a process. None of them does anything.
inline std::vector<long> codesOf(void* process)
{
    unsigned long number = 0;
    Given<ProcessDetails> details;
    int flag = 7;
    const long isRunning = ProcessIsRunning(process, &flag);
    return {ProcessGetDetails(process, &details),
            ProcessCloseWindows(process, &number),
            ProcessWait(process, 0, nullptr, &number),
            ProcessEnd(process, 0, 0),
            ProcessEnd(process, kEndTree, 0),
            ProcessSuspend(process),
            ProcessResume(process),
            ProcessSetPriority(process, NORMAL_PRIORITY_CLASS),
            isRunning == 0 ? flag : -isRunning};
}
inline std::vector<long> allOf(long code, long isRunning)
{
    std::vector<long> codes(8, code);
    codes.push_back(isRunning);
    return codes;
}

/// Every test has a manager, and ends without one.
struct Processes : testing::Test
{
    void SetUp() override { ASSERT_EQ(CreateProcessManager(), 0); }
    void TearDown() override { EXPECT_NE(CloseProcessManager(), 0); }
};
