#pragma once

#include <windows.h>

#include "core/win32/utils/objectmanager/include/LibraryCall.h"

/// Many readers or one writer. Makes no kernel call unless it has to wait. Not recursive: a thread that holds
/// it in either way must not acquire it again.
class ReadWriteLock
{
public:
    ReadWriteLock() noexcept = default;
    ReadWriteLock(const ReadWriteLock&) = delete;
    ReadWriteLock& operator=(const ReadWriteLock&) = delete;

    void lockRead() noexcept { AcquireSRWLockShared(&m_lock); }
    void unlockRead() noexcept { ReleaseSRWLockShared(&m_lock); }
    void lockWrite() noexcept { AcquireSRWLockExclusive(&m_lock); }
    void unlockWrite() noexcept { ReleaseSRWLockExclusive(&m_lock); }

    /// Releases the write lock until `condition` is woken or `timeout` milliseconds have passed, then
    /// acquires it again. Returns false when the time is over. The caller must then check its condition
    /// again.
    bool waitWrite(CONDITION_VARIABLE& condition, DWORD timeout) noexcept
    {
        return SleepConditionVariableSRW(&condition, &m_lock, timeout, 0) != 0;
    }

private:
    SRWLOCK m_lock = SRWLOCK_INIT;
};

/// How much of a timeout in milliseconds is left.
class Deadline
{
public:
    explicit Deadline(DWORD timeout) noexcept : m_timeout(timeout), m_begun(GetTickCount64()) {}

    [[nodiscard]] DWORD getLeft() const noexcept
    {
        if (m_timeout == INFINITE)
            return INFINITE;
        const ULONGLONG passed = GetTickCount64() - m_begun;
        return passed < m_timeout ? m_timeout - static_cast<DWORD>(passed) : 0;
    }

    [[nodiscard]] bool isEndless() const noexcept { return m_timeout == INFINITE; }

private:
    DWORD m_timeout;
    ULONGLONG m_begun;
};

/// Holds a ReadWriteLock, or anything with its read operations, for reading during a scope. The thread is not
/// suspended meanwhile.
template <class Lock>
class ReadLocker
{
public:
    explicit ReadLocker(Lock& lock) : m_lock(lock) { m_lock.lockRead(); }
    ReadLocker(const ReadLocker&) = delete;
    ReadLocker& operator=(const ReadLocker&) = delete;
    ~ReadLocker() { m_lock.unlockRead(); }

private:
    const InsideLibrary m_inside;
    Lock& m_lock;
};

/// Holds a ReadWriteLock, or anything with its write operations, for writing during a scope. The thread is
/// not suspended meanwhile.
template <class Lock>
class WriteLocker
{
public:
    explicit WriteLocker(Lock& lock) : m_lock(lock) { m_lock.lockWrite(); }
    WriteLocker(const WriteLocker&) = delete;
    WriteLocker& operator=(const WriteLocker&) = delete;
    ~WriteLocker() { m_lock.unlockWrite(); }

private:
    const InsideLibrary m_inside;
    Lock& m_lock;
};
