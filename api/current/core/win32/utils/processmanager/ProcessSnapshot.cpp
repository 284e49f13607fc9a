#include "core/win32/utils/processmanager/include/ProcessSnapshot.h"

#include <windows.h>

#include <winternl.h>

#include <algorithm>
#include <cstring>

#include "core/win32/utils/objectmanager/include/Raise.h"

namespace {
/// SYSTEM_PROCESS_INFORMATION and SYSTEM_THREAD_INFORMATION with all members: platform headers declare few of
/// them.
struct SystemThread
{
    LARGE_INTEGER kernelTime;
    LARGE_INTEGER userTime;
    LARGE_INTEGER startTime;
    ULONG waitTime;
    void* startAddress;
    HANDLE processId;
    HANDLE id;
    LONG priority;
    LONG basePriority;
    ULONG contextSwitches;
    ULONG state;
    ULONG waitReason;
};

struct SystemProcess
{
    ULONG nextOffset; // 0: the last
    ULONG threadCount;
    LARGE_INTEGER privateWorkingSet;
    ULONG faults[2];
    ULONGLONG cycles;
    LARGE_INTEGER startTime;
    LARGE_INTEGER userTime;
    LARGE_INTEGER kernelTime;
    UNICODE_STRING name;
    LONG basePriority;
    HANDLE id;
    HANDLE parentId;
    ULONG handleCount;
    ULONG session;
    ULONG_PTR uniqueKey;
    SIZE_T virtualSizes[2];
    ULONG pageFaults;
    SIZE_T peakWorkingSet;
    SIZE_T workingSet;
    SIZE_T poolQuotas[4];
    SIZE_T pagefileUsages[2];
    SIZE_T privateBytes;
    LARGE_INTEGER transfers[6];
    // its threads follow
};
static_assert(sizeof(SystemThread) == 80 && sizeof(SystemProcess) == 256);

constexpr unsigned long kIdle = 0;
constexpr unsigned long kSystem = 4;                            // older systems do not tell its start time
constexpr LONGLONG kNoTime = 2650467744000000000;               // the end of the year 9999
constexpr std::wstring_view kIdleName = L"System Idle Process"; // the system has no name for it

unsigned long numberOf(HANDLE id) noexcept
{
    return static_cast<unsigned long>(reinterpret_cast<ULONG_PTR>(id));
}

unsigned long long numberOf(LARGE_INTEGER time) noexcept
{
    return static_cast<unsigned long long>(time.QuadPart);
}

struct Answer
{
    std::unique_ptr<unsigned char[]> bytes; // NOLINT(modernize-avoid-c-arrays)
    std::size_t size;
};

Answer askSystem()
{
    constexpr auto kMismatch = static_cast<NTSTATUS>(0xC0000004);
    constexpr ULONG kFirstSize = 256 * 1024;
    constexpr ULONG kMargin = 64 * 1024; // for processes started meanwhile
    ULONG size = kFirstSize;
    for (;;) {
        Answer answer{std::make_unique_for_overwrite<unsigned char[]>(size), size}; // NOLINT
        ULONG needed = 0;
        const NTSTATUS status =
            NtQuerySystemInformation(SystemProcessInformation, answer.bytes.get(), size, &needed);
        if (status >= 0)
            return answer;
        if (status != kMismatch)
            raiseCode(static_cast<long>(RtlNtStatusToDosError(status)));
        size = std::max(size * 2, needed + kMargin);
    }
}

/// Not every system aligns its records.
template <class T>
T copyAt(const unsigned char* bytes) noexcept
{
    T value;
    std::memcpy(&value, bytes, sizeof value);
    return value;
}

/// A process that is being created has no time yet, or an impossible one.
bool isWhole(const SystemProcess& process) noexcept
{
    const LONGLONG time = process.startTime.QuadPart;
    return numberOf(process.id) <= kSystem || (process.threadCount != 0 && time > 0 && time < kNoTime);
}

ProcessEntry entryOf(const SystemProcess& process, const wchar_t* name) noexcept
{
    return {numberOf(process.id),
            numberOf(process.parentId),
            process.session,
            process.threadCount,
            process.handleCount,
            process.basePriority,
            numberOf(process.startTime),
            numberOf(process.kernelTime),
            numberOf(process.userTime),
            process.workingSet,
            process.peakWorkingSet,
            process.privateBytes,
            name};
}
} // namespace

ProcessSnapshot::ProcessSnapshot()
{
    const Answer answer = askSystem();
    m_names.reserve(answer.size / sizeof(wchar_t)); // the names are part of the answer
    const unsigned char* at = answer.bytes.get();
    for (;;) {
        const auto process = copyAt<SystemProcess>(at);
        if (isWhole(process)) {
            const std::wstring_view told(process.name.Buffer, process.name.Length / sizeof(wchar_t));
            const std::wstring_view name = told.empty() && numberOf(process.id) == kIdle ? kIdleName : told;
            const wchar_t* const copy = m_names.data() + m_names.size();
            m_names.insert(m_names.end(), name.begin(), name.end());
            m_names.push_back(L'\0');
            m_processes.push_back(entryOf(process, copy));
            for (ULONG i = 0; i < process.threadCount; ++i) {
                const auto thread = copyAt<SystemThread>(at + sizeof process + i * sizeof(SystemThread));
                m_threads.push_back({numberOf(thread.id), numberOf(process.id), thread.basePriority,
                                     numberOf(thread.startTime), numberOf(thread.kernelTime),
                                     numberOf(thread.userTime)});
            }
        } else if (process.threadCount != 0) {
            m_births.push_back(numberOf(process.parentId));
        }
        if (process.nextOffset == 0)
            break;
        at += process.nextOffset;
    }
    std::sort(m_processes.begin(), m_processes.end(),
              [](const ProcessEntry& left, const ProcessEntry& right) { return left.id < right.id; });
}

const ProcessEntry* ProcessSnapshot::find(unsigned long id) const noexcept
{
    const auto found =
        std::lower_bound(m_processes.begin(), m_processes.end(), id,
                         [](const ProcessEntry& entry, unsigned long wanted) { return entry.id < wanted; });
    return found != m_processes.end() && found->id == id ? &*found : nullptr;
}

const ProcessEntry* ProcessSnapshot::parentOf(const ProcessEntry& process) const noexcept
{
    const ProcessEntry* const parent = process.id != kIdle ? find(process.parentId) : nullptr;
    return parent != nullptr && parent != &process && parent->startTime <= process.startTime ? parent
                                                                                             : nullptr;
}

bool ProcessSnapshot::isBirthBelow(unsigned long id) const noexcept
{
    return std::find(m_births.begin(), m_births.end(), id) != m_births.end();
}

std::vector<const ProcessEntry*> ProcessSnapshot::treeOf(const ProcessEntry& top) const
{
    std::vector<const ProcessEntry*> tree{&top};
    for (std::size_t i = 0; i < tree.size(); ++i)
        for (const ProcessEntry& each : m_processes)
            if (parentOf(each) == tree[i] && std::find(tree.begin(), tree.end(), &each) == tree.end())
                tree.push_back(&each);
    return tree;
}
