#pragma once

#include "core/win32/utils/objectmanager/include/LibraryCall.h"
#include "core/win32/utils/threadpool/include/THPWorkItem.h"
#include "win32/threadpool/include/THPCategoryOptions.h"

class THPCategory;

/// One worker thread of a category. It runs the item that its category gave it, asks the category for the
/// next, and waits when there is none. While it runs it keeps this library loaded, and holds shared
/// references to itself and to its category.
///
/// All operations except `start` and the thread's own loop are called under the category's lock.
class THPThread
{
public:
    using ItemPtr = SharedPtr<THPWorkItem>;

    /// `stopped`: the thread stops before its first work until it is resumed. A creation flag of 4 means the
    /// same.
    THPThread(const THPCategoryOptions& options, bool stopped) noexcept
        : m_options(options), m_neverResumed(options.creationFlags == CREATE_SUSPENDED)
    {
        if (stopped || m_neverResumed)
            m_mark.gate.stopInside();
    }
    THPThread(const THPThread&) = delete;
    THPThread& operator=(const THPThread&) = delete;

    /// Creates the thread's events and the thread, which takes the item it was given. Call this without the
    /// category's lock, since a start needs the loader. Returns 0; 5023 when it was already started or for
    /// creation flags other than 0 and 4; 8; or the system's code. On failure the item is not run.
    static long start(const SharedPtr<THPThread>& self, const SharedPtr<THPCategory>& owner) noexcept;
    /// The thread has been started: from now on the system can suspend it. `start` calls this, through its
    /// category.
    void setStarted(Win32Handle handle) noexcept;

    /// Gives an item to the idle thread. Returns 0 or the system's code; then the item is not run.
    long handOver(const ItemPtr& item) noexcept;
    /// Replaces the current item by the next.
    void setItem(const ItemPtr& item) noexcept;
    void clearItem() noexcept { setItem(m_none); }
    /// Takes back the item given to the thread, if it has not begun it; a thread that is suspended before an
    /// item has not. Returns whether it did.
    bool takeBack() noexcept;
    /// The current item, empty when idle.
    [[nodiscard]] ItemPtr getItem() noexcept;
    /// Whether the thread has begun an item that has not ended yet.
    [[nodiscard]] bool isBusy() noexcept;
    /// Whether the system has ended the thread.
    [[nodiscard]] bool isGone() const noexcept
    {
        return m_thread.isValid() && WaitForSingleObject(m_thread.get(), 0) == WAIT_OBJECT_0;
    }

    /// Returns 0; 5023 when the thread is already suspended; 170 while it may hold a lock that the end of the
    /// process needs; 8, or the system's code.
    long suspend() noexcept;
    /// Whether the call in progress has suspended it.
    [[nodiscard]] bool isJustSuspended() const noexcept { return m_justSuspended && isSuspended(); }
    void setJustSuspended(bool just) noexcept { m_justSuspended = just; }
    /// Returns 0 or the system's code. A thread that is not suspended is left alone.
    long resume() noexcept;
    [[nodiscard]] bool isSuspended() const noexcept { return m_mark.gate.isSuspended(); }
    /// For a thread that has not begun its next item: with `stops` it stops before that, otherwise it does
    /// not, even if it was suspended for an earlier item. A thread that was created suspended stops until
    /// somebody resumes it.
    void stopBeforeItem(bool stops) noexcept
    {
        if (stops)
            m_mark.gate.stopInside();
        else if (!m_neverResumed)
            m_mark.gate.resume(m_thread.get());
    }

    /// Signals the cancel event of the current item. Returns 0 or the system's code.
    long cancel() noexcept;
    /// Whether the cancel event is set. Prepares the event for the next item: resets it, or replaces it if
    /// that fails.
    bool takeCancel() noexcept;
    /// Resumes the thread if it is suspended, cancels its current item, and makes it end after that. Returns
    /// whether both events could be signalled; if not, the last error says why.
    bool end() noexcept;
    [[nodiscard]] bool isStarted() const noexcept { return m_thread.isValid(); }
    /// Whether `end` has succeeded.
    [[nodiscard]] bool isTold() const noexcept { return m_told; }

    [[nodiscard]] DWORD getId() const noexcept { return m_id; }
    [[nodiscard]] bool isCurrent() const noexcept { return m_id == GetCurrentThreadId(); }

private:
    struct Worker;
    class Running;

    static DWORD WINAPI entry(void* parameter);
    static void finish(Worker* worker) noexcept;
    static void abandon(Worker* worker) noexcept;
    long loop(Worker& worker) noexcept;
    bool beginItem(ItemPtr& item) noexcept;
    long waitForWork() noexcept;
    long run(THPWorkItem& item) noexcept;
    long createEvents() noexcept;
    long createCancelEvent() noexcept;
    long create(Worker& worker, Win32Handle& handle) noexcept;

    const THPCategoryOptions m_options;
    Win32Handle m_workAvailable;
    Win32Handle m_terminate;
    Win32Handle m_cancel;                // lent to the running item; changed under the category's lock
    long m_cancelStatus = ERROR_SUCCESS; // why there is no cancel event
    Win32Handle m_thread;
    std::atomic<DWORD> m_id{0};
    WorkerMark m_mark;
    bool m_made = false;
    bool m_neverResumed;         // created suspended, and nobody has resumed it yet
    bool m_heldBySystem = false; // the same, by the system
    bool m_abandoned = false;    // its start failed halfway: it ends at once
    bool m_justSuspended = false;
    bool m_told = false;
    ReadWriteLock m_startLock; // held during the start; only the new thread waits for it
    ReadWriteLock m_lock;      // guards the current item
    const ItemPtr m_none;
    ItemPtr m_item{m_none};
    bool m_begun = false; // the thread runs the item
};
