#pragma once

#include <deque>

#include "core/win32/utils/objectmanager/include/WaitEvent.h"
#include "core/win32/utils/threadpool/include/THPThread.h"
#include "win32/threadpool/include/IThreadPool.h"

/// One category of a pool: its worker threads, those of them that wait for work, and its queue. One lock
/// guards all of it and the state of its items, so that an item is in exactly one place at any time. No
/// foreign code and no call to the loader runs under the lock, so threads are started without it; one that is
/// being started is among the category's threads already, with its item.
class THPCategory
{
public:
    using ItemPtr = THPThread::ItemPtr;

    /// Raises std::bad_alloc.
    THPCategory(const THPIdentifier& key, const THPCategoryOptions& options);
    THPCategory(const THPCategory&) = delete;
    THPCategory& operator=(const THPCategory&) = delete;

    [[nodiscard]] const THPIdentifier& getKey() const noexcept { return m_key; }
    [[nodiscard]] const SharedPtr<EventCache>& getEvents() const noexcept { return m_events; }

    /// Gives the item to a waiting thread, to a new thread, or to the queue. Returns 0, 87, 1003, 5023, 487
    /// (the category is closed) or the system's code.
    long queueWork(const SharedPtr<THPCategory>& self, const ItemPtr& item);
    long suspend(const THPWorkKey& key) noexcept;
    long resume(const THPWorkKey& key) noexcept;
    long cancel(const THPWorkKey& key, IThreadPool::OperationType operation);
    long wait(const THPWorkKey& key, std::uint32_t timeout, HANDLE extraHandle);
    [[nodiscard]] bool isRunning(const THPWorkKey& key) noexcept;
    /// Stores how the latest run of the work ended. Returns 0, or 170 while it is queued or running.
    long getResult(const THPWorkKey& key, long& result) noexcept;

    /// Closes the category if it holds no work and no threads. Returns whether it did.
    bool closeIfUnused() noexcept;
    [[nodiscard]] bool isClosed() noexcept
    {
        const ReadLocker locker(m_lock);
        return m_closed;
    }
    /// Cancels all work and tells the threads to end. Nothing is queued any more.
    void close() noexcept;
    /// Waits until no work of the closed category runs any more, but for the calling thread's own, work whose
    /// thread waits for the calling one, and work whose thread the system has ended.
    void waitForRunning(const Deadline& deadline) noexcept;

    /// For THPThread::start: the thread can be suspended and resumed from now on.
    void threadStarted(THPThread& thread, Win32Handle handle) noexcept;
    /// For the worker: its item ended with `status`. Returns whether it has another; if not it is counted
    /// among the waiting threads.
    bool workDone(THPThread& thread, const ItemPtr& item, long status) noexcept;
    /// For the worker: it ends although nobody told it to. Returns false if it was given an item meanwhile;
    /// then it stays.
    bool retire(THPThread& thread) noexcept;
    /// For the worker: `item` has ended it. What is queued gets a new thread.
    void threadLost(const SharedPtr<THPCategory>& self, THPThread& thread, const ItemPtr& item) noexcept;

private:
    using ThreadPtr = SharedPtr<THPThread>;

    // These are called with the lock held.
    ThreadPtr addThread(const ItemPtr& item);
    void removeThread(THPThread& thread) noexcept;
    void complete(const ItemPtr& item, THPWorkItem::State state, long status) noexcept;
    void giveNext(THPThread& thread) noexcept;
    long cancelRunning(THPThread& thread, const ItemPtr& item, bool& takenBack) noexcept;
    [[nodiscard]] bool hasWork(const THPWorkKey& key) noexcept;
    [[nodiscard]] const THPWorkItem* findOutcome(const THPWorkKey& key) const noexcept;
    // These are called without it.
    void startFailed(THPThread& thread, const ItemPtr& item, long code) noexcept;
    void startForQueue(const SharedPtr<THPCategory>& self) noexcept;
    ItemPtr dropOne() noexcept;
    bool waitForOne(const Deadline& deadline) noexcept;
    long waitForItem(THPWorkItem& item, std::uint32_t timeout, HANDLE extraHandle) noexcept;

    static constexpr std::size_t kOutcomesKept = 64;

    const THPIdentifier m_key;
    const THPCategoryOptions m_options;
    const SharedPtr<EventCache> m_events;
    ReadWriteLock m_lock;
    std::vector<ThreadPtr> m_threads;  // of a closed category all stay, but those whose start fails
    std::vector<THPThread*> m_waiting; // has room for every thread
    std::deque<ItemPtr> m_queue;
    std::vector<ItemPtr> m_outcomes; // the last work that did not end with 0, for those who ask late
    CONDITION_VARIABLE m_itemEnded = CONDITION_VARIABLE_INIT;
    bool m_suspended = false; // new threads stop before their first work
    bool m_closed = false;
};
