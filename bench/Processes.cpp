#include <windows.h>

#include <psapi.h>
#include <tlhelp32.h>

#include "Bench.h"

#include "core/win32/utils/processmanager/api.h"

namespace {
/// The sum of what both sides read of every process, so the compiler removes nothing.
unsigned long long sumOf(const ProcessEntry& entry)
{
    return entry.id + entry.parentId + entry.session + entry.threadCount + entry.handleCount +
           static_cast<unsigned long long>(entry.basePriority) + entry.startTime + entry.kernelTime +
           entry.userTime + entry.workingSet + entry.peakWorkingSet + entry.privateBytes + entry.name[0];
}

unsigned long long number(FILETIME time)
{
    return (static_cast<unsigned long long>(time.dwHighDateTime) << 32U) | time.dwLowDateTime;
}

unsigned long long ourList()
{
    ProcessEntry* entries = nullptr;
    std::size_t count = 0;
    require(PMRefresh() == ERROR_SUCCESS && PMListProcesses(&entries, &count) == ERROR_SUCCESS && count != 0,
            "the processes are not listed");
    unsigned long long sum = 0;
    for (std::size_t i = 0; i < count; ++i)
        sum += sumOf(entries[i]);
    utilsFreeMemory(entries);
    return sum;
}

/// Toolhelp has ids, names, threads and priorities; the rest is queried from each process.
unsigned long long bareList()
{
    const HANDLE list = CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0);
    require(list != INVALID_HANDLE_VALUE, "there is no snapshot");
    PROCESSENTRY32W found{};
    found.dwSize = sizeof found;
    unsigned long long sum = 0;
    for (BOOL more = Process32FirstW(list, &found); more; more = Process32NextW(list, &found)) {
        ProcessEntry entry{};
        entry.id = found.th32ProcessID;
        entry.parentId = found.th32ParentProcessID;
        entry.threadCount = found.cntThreads;
        entry.basePriority = found.pcPriClassBase;
        entry.name = found.szExeFile;
        ProcessIdToSessionId(entry.id, &entry.session);
        const HANDLE process = OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, entry.id);
        if (process != nullptr) {
            FILETIME times[4]{};
            GetProcessTimes(process, &times[0], &times[1], &times[2], &times[3]);
            entry.startTime = number(times[0]);
            entry.kernelTime = number(times[2]);
            entry.userTime = number(times[3]);
            PROCESS_MEMORY_COUNTERS_EX memory{};
            K32GetProcessMemoryInfo(process, reinterpret_cast<PROCESS_MEMORY_COUNTERS*>(&memory),
                                    sizeof memory);
            entry.workingSet = memory.WorkingSetSize;
            entry.peakWorkingSet = memory.PeakWorkingSetSize;
            entry.privateBytes = memory.PrivateUsage;
            GetProcessHandleCount(process, &entry.handleCount);
            CloseHandle(process);
        }
        sum += sumOf(entry);
    }
    CloseHandle(list);
    return sum;
}
} // namespace

BenchRows processRows(BenchScale scale)
{
    const long lists = scale(200);
    const auto repeat = [=](unsigned long long (*list)()) {
        return [=] {
            for (long i = 0; i < lists; ++i)
                consume(list());
        };
    };
    require(CreateProcessManager() == ERROR_SUCCESS, "there is no process manager");
    BenchRows rows;
    rows.timed = {{"list of all processes", "Toolhelp walk, the same fields", 1 / 1.2,
                   static_cast<double>(lists), repeat(&ourList), repeat(&bareList)}};
    return rows;
}
