#pragma once

#include <deque>

#include "core/win32/utils/objectmanager/include/WaitEvent.h"
#include "core/win32/utils/threadpool/include/THPThread.h"
#include "win32/threadpool/include/IThreadPool.h"

/// One category of a pool: its worker threads, the idle ones among them, and its queue. One lock guards all
/// of it and the state of its items, so an item is in exactly one place at any time. No foreign code and no
/// call to the loader runs under the lock, so threads are started without it; a thread that is being started
/// is already in the category, with its item.
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

    /// Gives the item to an idle thread, to a new thread, or to the queue. Returns 0, 87, 1003, 5023, 487
    /// (the category is closed) or the system's code.
    long queueWork(const SharedPtr<THPCategory>& self, const ItemPtr& item);
    long suspend(const THPWorkKey& key) noexcept;
    long resume(const THPWorkKey& key) noexcept;
    long cancel(const THPWorkKey& key, IThreadPool::OperationType operation);
    long wait(const THPWorkKey& key, std::uint32_t timeout, HANDLE extraHandle);
    [[nodiscard]] bool isRunning(const THPWorkKey& key) noexcept;
    /// Stores how the latest run of the work ended. Returns 0, or 170 while it is queued or running.
    long getResult(const THPWorkKey& key, long& result) noexcept;

    /// Closes the category if it has no work and no threads. Returns whether it did.
    bool closeIfUnused() noexcept;
    [[nodiscard]] bool isClosed() noexcept
    {
        const ReadLocker locker(m_lock);
        return m_closed;
    }
    /// Cancels all work and tells the threads to end. Nothing can be queued any more.
    void close() noexcept;
    /// Waits until the closed category runs no more work. Excepted are the calling thread's own work, work
    /// whose thread waits for the calling one, and work whose thread the system has ended. Threads that could
    /// not be told to end are told again until `telling` is over. Returns 0, or why some still do not know.
    long waitForRunning(const Deadline& deadline, const Deadline& telling) noexcept;

    /// For THPThread::start: from now on the thread can be suspended and resumed.
    void threadStarted(THPThread& thread, Win32Handle handle) noexcept;
    /// For the worker: its item ended with `status`. Returns whether there is another; if not, the thread
    /// counts as idle.
    bool workDone(THPThread& thread, const ItemPtr& item, long status) noexcept;
    /// For the worker: it ends without having been told to. Returns false if it was given an item meanwhile;
    /// then it stays.
    bool retire(THPThread& thread) noexcept;
    /// For the worker: `item` has ended it. Queued work gets a new thread.
    void threadLost(const SharedPtr<THPCategory>& self, THPThread& thread, const ItemPtr& item) noexcept;

private:
    using ThreadPtr = SharedPtr<THPThread>;

    // These are called with the lock held.
    ThreadPtr addThread(const ItemPtr& item);
    void removeThread(THPThread& thread) noexcept;
    void complete(const ItemPtr& item, THPWorkItem::State state, long status) noexcept;
    void giveNext(THPThread& thread) noexcept;
    bool takeBack(THPThread& thread, const ItemPtr& item) noexcept;
    static long cancelRunning(THPThread& thread, const ItemPtr& item) noexcept;
    long suspendThreads(const THPWorkKey& key, bool already) noexcept;
    void endSuspending(bool failed, bool opens) noexcept;
    [[nodiscard]] bool hasWork(const THPWorkKey& key) noexcept;
    [[nodiscard]] const THPWorkItem* findOutcome(const THPWorkKey& key) const noexcept;
    // These are called without it.
    void startFailed(THPThread& thread, const ItemPtr& item, long code) noexcept;
    void startForQueue(const SharedPtr<THPCategory>& self) noexcept;
    ItemPtr dropOne() noexcept;
    bool waitForOne(const Deadline& deadline, const Deadline& telling) noexcept;
    long tellToEnd() noexcept;
    long waitForItem(THPWorkItem& item, std::uint32_t timeout, HANDLE extraHandle) noexcept;

    static constexpr std::size_t kOutcomesKept = 64;

    const THPIdentifier m_key;
    const THPCategoryOptions m_options;
    const SharedPtr<EventCache> m_events;
    ReadWriteLock m_suspendLock; // one suspends at a time; acquired before the other lock
    ReadWriteLock m_lock;
    std::vector<ThreadPtr> m_threads;  // in a closed category all stay, except those that fail to start
    std::vector<THPThread*> m_waiting; // has room for every thread
    std::deque<ItemPtr> m_queue;
    std::vector<ItemPtr> m_outcomes; // the last work that did not end with 0, for late queries
    CONDITION_VARIABLE m_itemEnded = CONDITION_VARIABLE_INIT;
    bool m_suspended = false; // no thread begins an item unless it is resumed for it
    bool m_closed = false;
};
