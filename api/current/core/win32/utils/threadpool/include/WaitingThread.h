#pragma once

#include <windows.h>

#include <atomic>

#include "core/win32/utils/objectmanager/include/ReadWriteLock.h"
#include "core/win32/utils/objectmanager/include/ThreadScope.h"

/// Records, while it exists, that the calling thread waits for what another one runs, and will not give up by
/// itself. When threads wait for each other, the one that would close the circle finds out and does not wait.
class WaitingThread
{
public:
    explicit WaitingThread(DWORD thread) noexcept : m_thread(thread), m_awaited(&m_thread) { enter(); }
    /// `thread` changes with what is awaited: 0 while no thread runs it. It must outlive the wait.
    explicit WaitingThread(const std::atomic<DWORD>& thread) noexcept : m_awaited(&thread) { enter(); }
    WaitingThread(const WaitingThread&) = delete;
    WaitingThread& operator=(const WaitingThread&) = delete;
    ~WaitingThread()
    {
        const WriteLocker locker(s_lock);
        for (WaitingThread** at = &s_waits; *at != nullptr; at = &(*at)->m_next) {
            if (*at == this) {
                *at = m_next;
                return;
            }
        }
    }

    /// Whether a wait of the calling thread must be recorded: nobody waits for a thread that runs neither
    /// work nor a handler, and a wait with a limit ends by itself.
    [[nodiscard]] static bool isNeeded(DWORD timeout) noexcept
    {
        return timeout == INFINITE && ThreadScope::isInOne();
    }

    /// Whether the awaited thread is the calling one, or waits for it directly or through others.
    [[nodiscard]] bool closesCircle() const noexcept { return m_closesCircle; }

private:
    void enter() noexcept
    {
        const WriteLocker locker(s_lock);
        m_closesCircle = reaches(*m_awaited, m_waiting);
        if (m_closesCircle)
            return; // it does not wait, so nobody else has to give way
        m_next = s_waits;
        s_waits = this;
    }

    // A thread waits for only one other at a time, so the chain has no branches and no circle.
    static bool reaches(DWORD thread, DWORD goal) noexcept
    {
        while (thread != 0 && thread != goal) {
            DWORD awaited = 0;
            for (const WaitingThread* wait = s_waits; wait != nullptr; wait = wait->m_next) {
                if (wait->m_waiting == thread)
                    awaited = *wait->m_awaited;
            }
            thread = awaited;
        }
        return thread == goal;
    }

    static inline ReadWriteLock s_lock;
    static inline WaitingThread* s_waits = nullptr;

    const DWORD m_waiting = GetCurrentThreadId();
    const std::atomic<DWORD> m_thread{0};
    const std::atomic<DWORD>* m_awaited;
    bool m_closesCircle = false;
    WaitingThread* m_next = nullptr;
};
