#pragma once

#include <windows.h>

#include <utility>

#include "core/win32/utils/objectmanager/include/SuspendGate.h"

// Whether a thread is inside the library. This matters for the worker threads of our pools. They may be
// suspended at any instruction of the caller's work, but never inside, where they may hold what everybody
// needs. Every exported function is inside; a call to the caller's own code, from anywhere, is outside again.
// For other threads either check only reads a thread-local slot.

/// What a worker thread knows about itself.
struct WorkerMark
{
    SuspendGate gate;
    unsigned depth = 1; // how often the thread has entered the library; it starts inside
};

/// The slot where each thread keeps its mark; null for all but workers.
class WorkerSlot
{
public:
    WorkerSlot() noexcept : m_index(TlsAlloc()) {}
    WorkerSlot(const WorkerSlot&) = delete;
    WorkerSlot& operator=(const WorkerSlot&) = delete;
    ~WorkerSlot() { TlsFree(m_index); }

    void set(WorkerMark* mark) const noexcept { TlsSetValue(m_index, mark); }
    [[nodiscard]] WorkerMark* get() const noexcept
    {
        const DWORD lastError = GetLastError();
        auto* mark = static_cast<WorkerMark*>(TlsGetValue(m_index));
        SetLastError(lastError); // the call clears it
        return mark;
    }

private:
    DWORD m_index;
};
inline const WorkerSlot workerSlot;

/// While such an object exists, the calling thread counts as being inside the library.
class InsideLibrary
{
public:
    InsideLibrary() noexcept : m_mark(workerSlot.get())
    {
        if (m_mark != nullptr && m_mark->depth++ == 0)
            m_mark->gate.enter();
    }
    InsideLibrary(const InsideLibrary&) = delete;
    InsideLibrary& operator=(const InsideLibrary&) = delete;
    ~InsideLibrary()
    {
        if (m_mark != nullptr && --m_mark->depth == 0)
            m_mark->gate.leave();
    }

private:
    WorkerMark* m_mark;
};

/// While such an object exists, the calling thread counts as being in the caller's code, however often it had
/// entered the library. No lock of ours may be held then.
class OutsideLibrary
{
public:
    OutsideLibrary() noexcept : m_mark(workerSlot.get())
    {
        if (m_mark != nullptr && (m_depth = std::exchange(m_mark->depth, 0U)) != 0)
            m_mark->gate.leave();
    }
    OutsideLibrary(const OutsideLibrary&) = delete;
    OutsideLibrary& operator=(const OutsideLibrary&) = delete;
    ~OutsideLibrary()
    {
        if (m_depth == 0)
            return;
        m_mark->gate.enter();
        m_mark->depth = m_depth;
    }

private:
    WorkerMark* m_mark;
    unsigned m_depth = 0;
};
