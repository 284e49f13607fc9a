#pragma once

#include <windows.h>

#include <tlhelp32.h>

/// What the process holds now, to be compared later.
struct ProcessCounts
{
    DWORD threads = 0;
    DWORD handles = 0;

    static ProcessCounts now()
    {
        ProcessCounts counts;
        GetProcessHandleCount(GetCurrentProcess(), &counts.handles);
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

    /// Whether the process comes back to no more than this. What ends by itself is given time to.
    [[nodiscard]] bool isReachedAgain() const
    {
        for (int attempt = 0; attempt < 600; ++attempt) {
            const ProcessCounts counts = now();
            if (counts.threads <= threads && counts.handles <= handles)
                return true;
            Sleep(50);
        }
        return false;
    }
};

/// A manual-reset event of the test's own.
class TestEvent
{
public:
    TestEvent() = default;
    TestEvent(const TestEvent&) = delete;
    TestEvent& operator=(const TestEvent&) = delete;
    ~TestEvent() { CloseHandle(m_handle); }

    void set() const { SetEvent(m_handle); }
    /// Whether it was set within a limit that no healthy run reaches.
    [[nodiscard]] bool wait() const { return WaitForSingleObject(m_handle, 60000) == WAIT_OBJECT_0; }
    [[nodiscard]] HANDLE get() const { return m_handle; }

private:
    HANDLE m_handle = CreateEventW(nullptr, TRUE, FALSE, nullptr);
};
