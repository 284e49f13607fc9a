#pragma once

#include <windows.h>

#include "core/win32/utils/objectmanager/include/ReadWriteLock.h"

/// Records, while it exists, that the calling thread waits for another one because it closes what that one
/// runs. When threads close each other's objects, the one that would close the circle finds out and does not
/// wait.
class ThreadWait
{
public:
    explicit ThreadWait(DWORD thread) noexcept : m_awaited(thread)
    {
        const WriteLocker locker(s_lock);
        m_next = s_waits;
        s_waits = this;
        m_closesCircle = reaches(thread, m_waiting);
        if (m_closesCircle)
            m_awaited = 0; // it does not wait, so nobody else has to give way
    }
    ThreadWait(const ThreadWait&) = delete;
    ThreadWait& operator=(const ThreadWait&) = delete;
    ~ThreadWait()
    {
        const WriteLocker locker(s_lock);
        for (ThreadWait** at = &s_waits; *at != nullptr; at = &(*at)->m_next) {
            if (*at == this) {
                *at = m_next;
                return;
            }
        }
    }

    /// Whether the awaited thread is the calling one, or waits for it directly or through others.
    [[nodiscard]] bool closesCircle() const noexcept { return m_closesCircle; }

private:
    // A thread waits for only one other at a time, so the chain has no branches and no circle.
    static bool reaches(DWORD thread, DWORD goal) noexcept
    {
        while (thread != 0 && thread != goal) {
            DWORD awaited = 0;
            for (const ThreadWait* wait = s_waits->m_next; wait != nullptr; wait = wait->m_next) {
                if (wait->m_waiting == thread && wait->m_awaited != 0)
                    awaited = wait->m_awaited;
            }
            thread = awaited;
        }
        return thread == goal;
    }

    static inline ReadWriteLock s_lock;
    static inline ThreadWait* s_waits = nullptr;

    const DWORD m_waiting = GetCurrentThreadId();
    DWORD m_awaited;
    bool m_closesCircle = false;
    ThreadWait* m_next = nullptr;
};
