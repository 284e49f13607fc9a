#pragma once

#include <windows.h>

#include <atomic>

#include "core/win32/utils/objectmanager/include/LibraryCall.h"
#include "core/win32/utils/objectmanager/include/Raise.h"

/// A recursive lock on an unnamed Win32 mutex, which the first lock or unlock call creates. A thread that
/// ends while holding the lock does not block the others. Failing calls raise the bare Win32 code.
class MutexLock
{
public:
    MutexLock() noexcept = default;
    MutexLock(const MutexLock&) = delete;
    MutexLock& operator=(const MutexLock&) = delete;
    ~MutexLock()
    {
        if (const HANDLE mutex = m_mutex.load())
            CloseHandle(mutex);
    }

    void lock()
    {
        if (WaitForSingleObject(mutex(), INFINITE) == WAIT_FAILED)
            raiseLastError();
        m_locked = true;
    }

    void unlock()
    {
        m_locked = false;
        if (!ReleaseMutex(mutex())) {
            m_locked = true;
            raiseLastError();
        }
    }

private:
    HANDLE mutex()
    {
        HANDLE current = m_mutex.load(std::memory_order_acquire);
        if (current != nullptr)
            return current;
        const HANDLE created = CreateMutexW(nullptr, FALSE, nullptr);
        if (created == nullptr)
            raiseLastError();
        if (m_mutex.compare_exchange_strong(current, created))
            return created;
        CloseHandle(created); // another thread was first
        return current;
    }

    std::atomic<HANDLE> m_mutex{nullptr};
    bool m_locked = false; // changed by the owner only; visible in a debugger, decides nothing
};

/// Holds a MutexLock for a scope. Leaving the scope keeps the thread's last error. The thread is not
/// suspended meanwhile.
class Locker
{
public:
    explicit Locker(MutexLock& lock) : m_lock(lock) { m_lock.lock(); }
    Locker(const Locker&) = delete;
    Locker& operator=(const Locker&) = delete;
    ~Locker()
    {
        const DWORD lastError = GetLastError();
        try {
            m_lock.unlock();
        } catch (long) { // NOLINT(bugprone-empty-catch): the owner's release cannot fail
        }
        SetLastError(lastError);
    }

private:
    const InsideLibrary m_inside;
    MutexLock& m_lock;
};
