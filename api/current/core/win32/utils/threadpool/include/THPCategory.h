#pragma once

#include <deque>

#include "core/win32/utils/objectmanager/include/WaitEvent.h"
#include "core/win32/utils/threadpool/include/THPThread.h"
#include "win32/threadpool/include/IThreadPool.h"

#define THP_CATEGORY_HEADER "core\\win32\\utils\\threadpool\\include\\THPCategory.h"

/// One category of a pool: its worker threads, those of them that wait for work, and its queue. One lock
/// guards all of it and the state of its items, so that an item is in exactly one place at any time. No
/// foreign code runs under the lock.
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
    /// (the pool is being closed) or the system's code.
    long queueWork(const SharedPtr<THPCategory>& self, const ItemPtr& item);
    long suspend(const THPWorkKey& key) noexcept;
    long resume(const THPWorkKey& key) noexcept;
    long cancel(const THPWorkKey& key, IThreadPool::OperationType operation);
    long wait(const THPWorkKey& key, std::uint32_t timeout, HANDLE extraHandle);
    [[nodiscard]] bool isRunning(const THPWorkKey& key) noexcept;

    /// Cancels all work and tells the threads to end. `join` then waits for them, but not for the calling
    /// one.
    void close() noexcept;
    void join() noexcept;

    /// For the worker: its item ended with `status`. Returns whether it has another; if not it is counted
    /// among the waiting threads.
    bool workDone(THPThread& thread, const ItemPtr& item, long status) noexcept;
    /// For the worker: it ends although nobody told it to. Returns false if it was given an item meanwhile;
    /// then it stays.
    bool retire(THPThread& thread) noexcept;

private:
    /// Takes back, when it ends, that somebody waits without end.
    class EndlessWait
    {
    public:
        EndlessWait(THPCategory& category, bool counted) noexcept : m_category(category), m_counted(counted)
        {
        }
        EndlessWait(const EndlessWait&) = delete;
        EndlessWait& operator=(const EndlessWait&) = delete;
        ~EndlessWait();

    private:
        THPCategory& m_category;
        bool m_counted;
    };

    using ThreadPtr = SharedPtr<THPThread>;

    long startThread(const SharedPtr<THPCategory>& self, const ItemPtr& item);
    void complete(const ItemPtr& item, THPWorkItem::State state, long status) noexcept;
    long waitForItem(THPWorkItem& item, std::uint32_t timeout, HANDLE extraHandle) noexcept;
    void clearWaitingThreads() noexcept { m_waiting.clear(); }

    static constexpr std::size_t kOutcomesKept = 64;

    const THPIdentifier m_key;
    const THPCategoryOptions m_options;
    const SharedPtr<EventCache> m_events;
    ReadWriteLock m_lock;
    std::atomic<std::uint32_t> m_threadCount{0};
    std::vector<ThreadPtr> m_threads;
    std::vector<THPThread*> m_waiting; // has room for every thread
    std::deque<ItemPtr> m_queue;
    std::vector<ItemPtr> m_outcomes; // the last work that did not end with 0, for those who ask late
    unsigned m_endlessWaits = 0;     // while somebody waits without end nothing is suspended
    bool m_suspended = false;        // new threads stop before their first work
    bool m_closed = false;
};
