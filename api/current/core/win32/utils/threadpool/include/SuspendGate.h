#pragma once

#include <windows.h>

#include <atomic>

/// Decides when a worker thread may be suspended: only while it is in the caller's work, never inside the
/// library, where it may hold a lock that the thread which is to resume it needs. A thread that is to be
/// suspended while it is inside stops when it goes out to the work.
///
/// enter and leave are called by the worker; suspend and resume by any thread, one at a time.
class SuspendGate
{
public:
    /// The worker comes back from the caller's work. A thread that is just being suspended here stays here
    /// until it is resumed.
    void enter() noexcept
    {
        for (Place place = Place::Outside; !m_place.compare_exchange_strong(place, Place::Inside);
             place = Place::Outside)
            SwitchToThread();
    }

    /// The worker goes on to the caller's work, after it has been resumed if it is to be suspended.
    void leave() noexcept
    {
        for (Place place = Place::Inside; !m_place.compare_exchange_strong(place, Place::Outside);
             place = Place::Inside) {
            AcquireSRWLockExclusive(&m_lock);
            while (m_place.load() == Place::Stopping)
                SleepConditionVariableSRW(&m_resumed, &m_lock, INFINITE, 0);
            ReleaseSRWLockExclusive(&m_lock);
        }
    }

    /// The thread is made suspended by the system, or stops before its first work.
    void startSuspended(bool bySystem) noexcept
    {
        m_resumeTo = Place::Inside;
        m_place = bySystem ? Place::Suspended : Place::Stopping;
    }

    [[nodiscard]] bool isSuspended() const noexcept
    {
        const Place place = m_place.load();
        return place == Place::Suspended || place == Place::Stopping;
    }

    /// Suspends the thread now or before its next work; one that is suspended stays so. Returns 0 or the
    /// system's code.
    long suspend(HANDLE thread) noexcept
    {
        for (;;) {
            Place place = m_place.load();
            if (place == Place::Suspended || place == Place::Stopping)
                return ERROR_SUCCESS;
            if (place == Place::Inside) {
                if (m_place.compare_exchange_strong(place, Place::Stopping))
                    return ERROR_SUCCESS;
            } else if (m_place.compare_exchange_strong(place, Place::Suspended)) {
                m_resumeTo = Place::Outside;
                const long code = suspendOutsideHeap(thread);
                if (code != ERROR_SUCCESS)
                    m_place = Place::Outside;
                return code;
            }
        }
    }

    /// Lets the thread go on; one that is not suspended is left alone. Returns 0 or the system's code.
    long resume(HANDLE thread) noexcept
    {
        if (m_place.load() == Place::Suspended) {
            if (ResumeThread(thread) == static_cast<DWORD>(-1))
                return static_cast<long>(GetLastError());
            m_place = m_resumeTo;
        } else if (m_place.load() == Place::Stopping) {
            AcquireSRWLockExclusive(&m_lock);
            m_place = Place::Inside;
            ReleaseSRWLockExclusive(&m_lock);
            WakeAllConditionVariable(&m_resumed);
        }
        return ERROR_SUCCESS;
    }

private:
    enum class Place
    {
        Inside,  // in the library
        Outside, // in the caller's work
        Suspended,
        Stopping, // inside, and to be stopped before it goes outside
    };

    // A thread that is suspended with the heap's lock would stop every other thread, also the one that is
    // to resume it; so it is suspended while we hold that lock. The system suspends a thread some time after
    // the call; to ask for its context waits for that moment.
    static long suspendOutsideHeap(HANDLE thread) noexcept
    {
        const bool locked = HeapLock(GetProcessHeap()) != 0;
        long code = ERROR_SUCCESS;
        if (SuspendThread(thread) == static_cast<DWORD>(-1)) {
            code = static_cast<long>(GetLastError());
        } else {
            CONTEXT context{};
            context.ContextFlags = CONTEXT_CONTROL;
            GetThreadContext(thread, &context);
        }
        if (locked)
            HeapUnlock(GetProcessHeap());
        return code;
    }

    std::atomic<Place> m_place{Place::Inside};
    Place m_resumeTo = Place::Inside; // where a thread is that the system has suspended
    SRWLOCK m_lock = SRWLOCK_INIT;
    CONDITION_VARIABLE m_resumed = CONDITION_VARIABLE_INIT;
};
