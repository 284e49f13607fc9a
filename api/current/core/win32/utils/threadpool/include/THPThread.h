#pragma once

#include "core/win32/utils/threadpool/include/SuspendGate.h"
#include "core/win32/utils/threadpool/include/THPWorkItem.h"
#include "win32/threadpool/include/THPCategoryOptions.h"

#define THP_THREAD_HEADER "core\\win32\\utils\\threadpool\\include\\THPThread.h"

class THPCategory;

/// One worker thread of a category. It runs the item that its category gave it, asks the category for the
/// next, and waits when there is none. While it runs it holds a reference to this module, so that the code
/// stays where it is, and shared references to itself and to its category.
///
/// All operations but the thread's own loop are called under the category's lock.
class THPThread
{
public:
    using ItemPtr = SharedPtr<THPWorkItem>;

    explicit THPThread(const THPCategoryOptions& options) : m_options(options) {}
    THPThread(const THPThread&) = delete;
    THPThread& operator=(const THPThread&) = delete;

    /// Makes the thread's events and the thread, and gives it `item`. With `stopped` it stops before its
    /// first work until it is resumed. Returns 0; 5023 when it was started already or for creation flags
    /// other than 0 and 4; or the system's code. On failure the item is not run.
    static long start(const SharedPtr<THPThread>& self, const SharedPtr<THPCategory>& owner,
                      const ItemPtr& item, bool stopped);

    /// Gives the waiting thread an item. Returns 0 or the system's code; the item is not run then.
    long handOver(const ItemPtr& item) noexcept;
    /// Puts the next item in place of the current one.
    void setItem(const ItemPtr& item) noexcept;
    void clearItem() noexcept { setItem(m_none); }
    /// The current item, empty when idle.
    [[nodiscard]] ItemPtr getItem() noexcept;

    /// Returns 0, or 5023 when it is suspended already, or the system's code.
    long suspend() noexcept;
    /// Returns 0 or the system's code. A thread that is not suspended is left alone.
    long resume() noexcept { return m_gate.resume(m_thread.get()); }
    [[nodiscard]] bool isSuspended() const noexcept { return m_gate.isSuspended(); }

    /// Signals the cancel event of the current item. Returns 0 or the system's code.
    long cancel() noexcept;
    /// Whether the cancel event is set. It is made ready for the next item: reset, or replaced if that
    /// fails.
    bool takeCancel() noexcept;
    /// Lets the thread go on if it is suspended, and end after its current item.
    void end() noexcept
    {
        const bool goesOn = resume() == ERROR_SUCCESS;
        m_ending = signalEvent(m_terminate.get()) && goesOn;
    }
    /// Waits until the thread has ended, unless it is the calling one or could not be told to end.
    void join() noexcept
    {
        if (m_ending && !isCurrent())
            WaitForSingleObject(m_thread.get(), INFINITE);
    }

    [[nodiscard]] bool isCurrent() const noexcept { return m_id == GetCurrentThreadId(); }

    /// The worker that the calling thread is, or null. Keeps the last error.
    [[nodiscard]] static THPThread* current() noexcept;
    /// While one of these lives the calling thread, if it is a worker in the caller's work, counts as being
    /// inside the library and is not suspended.
    class InsideLibrary
    {
    public:
        InsideLibrary() noexcept : m_thread(current())
        {
            if (m_thread != nullptr && m_thread->m_depth++ == 0)
                m_thread->m_gate.enter();
        }
        InsideLibrary(const InsideLibrary&) = delete;
        InsideLibrary& operator=(const InsideLibrary&) = delete;
        ~InsideLibrary()
        {
            if (m_thread != nullptr && --m_thread->m_depth == 0)
                m_thread->m_gate.leave();
        }

    private:
        THPThread* m_thread;
    };
    /// While one of these lives the calling thread, if it is a worker, counts as being in the caller's work,
    /// however often it had entered the library.
    class OutsideLibrary
    {
    public:
        OutsideLibrary() noexcept : m_thread(current())
        {
            if (m_thread == nullptr || (m_depth = std::exchange(m_thread->m_depth, 0U)) == 0)
                return;
            m_thread->m_gate.leave();
        }
        OutsideLibrary(const OutsideLibrary&) = delete;
        OutsideLibrary& operator=(const OutsideLibrary&) = delete;
        ~OutsideLibrary()
        {
            if (m_depth == 0)
                return;
            m_thread->m_gate.enter();
            m_thread->m_depth = m_depth;
        }

    private:
        THPThread* m_thread;
        unsigned m_depth = 0;
    };

private:
    enum class State : std::uint32_t
    {
        Running = 0,
        Suspended = 1,
        NotStarted = 2
    };
    struct Start;

    static DWORD WINAPI entry(void* parameter);
    long loop(THPCategory& owner);
    long waitForWork() noexcept;
    long run(THPWorkItem& item) noexcept;
    long createEvents() noexcept;
    long createCancelEvent() noexcept;

    const THPCategoryOptions m_options;
    Win32Handle m_workAvailable;
    Win32Handle m_terminate;
    Win32Handle m_cancel;                // lent to the item that runs; changed under the category's lock
    long m_cancelStatus = ERROR_SUCCESS; // why there is no cancel event
    Win32Handle m_thread;
    DWORD m_id = 0;
    State m_state = State::NotStarted;
    bool m_ending = false;
    bool m_abandoned = false; // its start failed half-way: it ends at once
    SuspendGate m_gate;
    unsigned m_depth = 1; // how often the thread has entered the library; its own
    ReadWriteLock m_lock; // guards the current item and m_abandoned
    const ItemPtr m_none;
    ItemPtr m_item{m_none};
};
