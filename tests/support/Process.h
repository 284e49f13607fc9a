#pragma once

#include "support/Test.h"

#include <process.h>
#include <tlhelp32.h>
#include <winternl.h>

#include "core/win32/utils/objectmanager/include/Win32Handle.h"
#include "support/Heap.h"
#include "support/Threads.h"

/// The number of this process's open handles, as the system itself counts them: GetProcessHandleCount always
/// returns 0 under Wine. Throws when the system does not tell.
inline DWORD processHandleCount()
{
    using Entry = SYSTEM_HANDLE_ENTRY;
    static const auto query = reinterpret_cast<decltype(&NtQuerySystemInformation)>(
        reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "NtQuerySystemInformation")));
    constexpr auto kHandles = static_cast<SYSTEM_INFORMATION_CLASS>(16);
    std::vector<Entry> table(1 << 16);
    auto* const answer = reinterpret_cast<SYSTEM_HANDLE_INFORMATION*>(table.data());
    if (query(kHandles, answer, static_cast<ULONG>(table.size() * sizeof(Entry)), nullptr) < 0)
        throw std::runtime_error("the handles cannot be counted");
    const auto isOwn = [](const Entry& entry) { return entry.OwnerPid == GetCurrentProcessId(); };
    return static_cast<DWORD>(std::count_if(answer->Handle, answer->Handle + answer->Count, isOwn));
}

/// What the process holds now, for a later comparison.
struct ProcessCounts
{
    DWORD threads = 0, handles = 0;
    long blocks = 0; // of the module whose heap is watched, if one is

    static ProcessCounts now()
    {
        ProcessCounts counts;
        counts.blocks = HeapWatch::liveBlocks();
        counts.handles = processHandleCount();
        const HANDLE snapshot = CreateToolhelp32Snapshot(TH32CS_SNAPTHREAD, 0);
        THREADENTRY32 entry{};
        entry.dwSize = sizeof entry;
        for (BOOL more = Thread32First(snapshot, &entry); more; more = Thread32Next(snapshot, &entry)) {
            if (entry.th32OwnerProcessID == GetCurrentProcessId())
                ++counts.threads;
        }
        CloseHandle(snapshot);
        return counts;
    }

    [[nodiscard]] std::string describe() const
    {
        return std::to_string(threads) + " threads, " + std::to_string(handles) + " handles, " +
               std::to_string(blocks) + " blocks";
    }

    /// Whether the process comes back to no more than this. What ends by itself is given time to.
    [[nodiscard]] testing::AssertionResult isReachedAgain(int attempts = 600) const
    {
        ProcessCounts counts = now();
        const auto isReached = [&] {
            return counts.threads <= threads && counts.handles <= handles && counts.blocks <= blocks;
        };
        for (; !isReached() && attempts > 1; --attempts, counts = now())
            Sleep(50);
        return (isReached() ? testing::AssertionSuccess() : testing::AssertionFailure())
               << describe() << ", then " << counts.describe();
    }
};

/// The code of a call that returned no handle; 0 if it returned one.
inline DWORD refusalOf(const void* handle)
{
    return handle == INVALID_HANDLE_VALUE || handle == nullptr ? GetLastError() : 0;
}

/// The path of this program.
inline std::wstring ownPath()
{
    wchar_t path[1024];
    return {path, GetModuleFileNameW(nullptr, path, 1024)};
}

/// The path of a program or library that stands beside the tests.
inline std::wstring besideTests(const wchar_t* name)
{
    return std::filesystem::path(ownPath()).replace_filename(name).wstring();
}

/// An existing file, open so long as this lives. Others may do with it what `share` says.
inline Win32Handle openedFile(const std::wstring& path, DWORD access = GENERIC_READ, DWORD share = 0)
{
    return Win32Handle(::CreateFileW(path.c_str(), access, share, nullptr, OPEN_EXISTING, 0, nullptr));
}

/// Starts this program once more, with these arguments.
inline HANDLE startSelf(std::initializer_list<const wchar_t*> arguments)
{
    std::vector<const wchar_t*> all{L"self"};
    all.insert(all.end(), arguments);
    all.push_back(nullptr);
    return reinterpret_cast<HANDLE>(_wspawnv(_P_NOWAIT, ownPath().c_str(), all.data()));
}

/// The tests that the filter names, which are disabled because only other tests run them.
inline HANDLE startDisabled(const wchar_t* filter)
{
    return startSelf({L"--gtest_also_run_disabled_tests", L"--gtest_brief=1", filter});
}

/// The exit code of a process, whose handle is closed; one that does not end is ended.
inline DWORD exitCodeOf(HANDLE process)
{
    DWORD code = WAIT_TIMEOUT;
    if (WaitForSingleObject(process, 120000) == WAIT_OBJECT_0)
        GetExitCodeProcess(process, &code);
    else
        TerminateProcess(process, code);
    CloseHandle(process);
    return code;
}

/// A manual-reset event for tests.
class TestEvent
{
public:
    explicit TestEvent(bool isSet = false) : m_handle(CreateEventW(nullptr, TRUE, isSet, nullptr)) {}
    TestEvent(TestEvent&&) = delete;
    ~TestEvent() { CloseHandle(m_handle); }

    void set() const { SetEvent(m_handle); }
    void reset() const { ResetEvent(m_handle); }
    /// Whether it was set within a limit that no healthy run reaches.
    [[nodiscard]] bool wait() const { return WaitForSingleObject(m_handle, 60000) == WAIT_OBJECT_0; }
    [[nodiscard]] HANDLE get() const { return m_handle; }

private:
    HANDLE m_handle;
};
