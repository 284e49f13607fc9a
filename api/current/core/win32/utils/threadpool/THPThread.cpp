#include "core/win32/utils/threadpool/include/THPThread.h"

#include <memory>

#include "core/win32/utils/objectmanager/include/KeptLibrary.h"
#include "core/win32/utils/objectmanager/include/ThreadScope.h"
#include "core/win32/utils/threadpool/include/THPCategory.h"
#include "core/win32/utils/threadpool/include/ThreadContext.h"

/// What a thread holds while it runs; on the heap, because work may end its thread without returning.
struct THPThread::Worker
{
    SharedPtr<THPThread> thread;
    SharedPtr<THPCategory> owner;
    ItemPtr item{}; // the running one
};

/// The worker's loop. Work may end the thread in the middle of it.
class THPThread::Running final : public ThreadScope
{
public:
    explicit Running(Worker* worker) noexcept : m_worker(worker) {}

private:
    void abandon() noexcept override { THPThread::abandon(m_worker); }

    Worker* m_worker;
};

long THPThread::createEvents() noexcept
{
    for (Win32Handle* event : {&m_workAvailable, &m_terminate}) {
        event->reset(CreateEventW(nullptr, TRUE, FALSE, nullptr));
        if (!event->isValid())
            return lastError();
    }
    return createCancelEvent();
}

long THPThread::createCancelEvent() noexcept
{
    m_cancel.reset(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    m_cancelStatus = m_cancel.isValid() ? ERROR_SUCCESS : lastError();
    return m_cancelStatus;
}

long THPThread::start(const SharedPtr<THPThread>& self, const SharedPtr<THPCategory>& owner) noexcept
{
    THPThread& thread = *self;
    const DWORD flags = thread.m_options.creationFlags;
    if (thread.m_made || (flags != 0 && flags != CREATE_SUSPENDED))
        return ERROR_INVALID_STATE;
    if (const long code = thread.createEvents(); code != ERROR_SUCCESS)
        return code;
    std::unique_ptr<Worker> worker;
    if (const long code = boundary::statusOf([&]() -> long {
            // NOLINTNEXTLINE(bugprone-unhandled-exception-at-new): statusOf turns it into 8
            worker.reset(new Worker{self, owner});
            return KeptLibrary::hold();
        });
        code != ERROR_SUCCESS)
        return code;

    // The new thread first waits for this lock: it then either begins or finds that its start has failed.
    const WriteLocker locker(thread.m_startLock);
    Win32Handle handle;
    const long code = thread.create(*worker, handle);
    if (thread.m_made)
        static_cast<void>(worker.release()); // belongs to the thread, even if it only ends
    else
        KeptLibrary::release();
    if (code == ERROR_SUCCESS)
        owner->threadStarted(thread, std::move(handle));
    return code;
}

long THPThread::create(Worker& worker, Win32Handle& handle) noexcept
{
    DWORD id = 0;
    handle.reset(CreateThread(nullptr, static_cast<SIZE_T>(m_options.stackSize), &THPThread::entry, &worker,
                              m_options.creationFlags, &id));
    if (!handle.isValid())
        return lastError();
    m_id = id;
    m_made = true;
    if (SetThreadPriority(handle.get(), m_options.priority))
        return ERROR_SUCCESS;
    const auto code = lastError();
    m_abandoned = true;
    if (m_options.creationFlags == CREATE_SUSPENDED)
        ResumeThread(handle.get());
    return code;
}

void THPThread::setStarted(Win32Handle handle) noexcept
{
    m_thread = std::move(handle);
    m_heldBySystem = m_options.creationFlags == CREATE_SUSPENDED;
    if (m_heldBySystem && !isSuspended()) // somebody has resumed it meanwhile
        m_heldBySystem = ResumeThread(m_thread.get()) == static_cast<DWORD>(-1);
}

long THPThread::handOver(const ItemPtr& item) noexcept
{
    setItem(item);
    if (SetEvent(m_workAvailable.get()))
        return ERROR_SUCCESS;
    const auto code = lastError();
    clearItem();
    return code;
}

void THPThread::setItem(const ItemPtr& item) noexcept
{
    const WriteLocker locker(m_lock);
    m_item = item;
    m_begun = false;
}

bool THPThread::takeBack() noexcept
{
    const WriteLocker locker(m_lock);
    if (m_begun || !m_item)
        return false;
    m_item = m_none;
    return true;
}

// Under the lock the thread is either not to be suspended, or has not begun: then the item can be taken back.
bool THPThread::beginItem(ItemPtr& item) noexcept
{
    for (;;) {
        m_mark.gate.waitUntilResumed();
        const WriteLocker locker(m_lock);
        if (isSuspended())
            continue;
        item = m_item;
        m_begun = static_cast<bool>(item);
        if (m_begun)
            item->setThread(GetCurrentThreadId());
        return m_begun;
    }
}

THPThread::ItemPtr THPThread::getItem() noexcept
{
    const ReadLocker locker(m_lock);
    return m_item;
}

bool THPThread::isBusy() noexcept
{
    const ReadLocker locker(m_lock);
    return m_begun;
}

long THPThread::suspend() noexcept
{
    return isSuspended() ? static_cast<long>(ERROR_INVALID_STATE) : m_mark.gate.suspend(m_thread.get(), m_id);
}

long THPThread::resume() noexcept
{
    m_neverResumed = false;
    if (m_heldBySystem) {
        if (ResumeThread(m_thread.get()) == static_cast<DWORD>(-1))
            return lastError();
        m_heldBySystem = false;
    }
    return m_mark.gate.resume(m_thread.get());
}

long THPThread::cancel() noexcept
{
    return SetEvent(m_cancel.get()) ? ERROR_SUCCESS : lastError();
}

bool THPThread::end() noexcept
{
    const long resumed = resume();
    m_told = (!isBusy() || signalEvent(m_cancel.get())) && signalEvent(m_terminate.get());
    if (resumed != ERROR_SUCCESS) {
        m_told = false; // what is suspended sees no event
        SetLastError(static_cast<DWORD>(resumed));
    }
    return m_told;
}

bool THPThread::takeCancel() noexcept
{
    const bool cancelled = m_cancel.isValid() && WaitForSingleObject(m_cancel.get(), 0) == WAIT_OBJECT_0;
    if (!m_cancel.isValid() || (cancelled && !ResetEvent(m_cancel.get())))
        createCancelEvent(); // the old one would also cancel the next item
    return cancelled;
}

DWORD WINAPI THPThread::entry(void* parameter)
{
    if (parameter == nullptr)
        return ERROR_INVALID_PARAMETER;
    const HMODULE library = KeptLibrary::reference();
    auto* worker = static_cast<Worker*>(parameter);
    long code = ERROR_SUCCESS;
    {
        const Running running(worker);
        code = worker->thread->loop(*worker);
    }
    finish(worker);
    KeptLibrary::exitThread(library, static_cast<DWORD>(code));
}

void THPThread::finish(Worker* worker) noexcept
{
    workerSlot.set(nullptr);
    delete worker; // perhaps together with the thread object and the category
}

// The work has ended its thread. The thread's reference to the library cannot be released here, inside the
// library's code, so the library stays loaded.
void THPThread::abandon(Worker* worker) noexcept
{
    WorkerMark& mark = worker->thread->m_mark;
    if (mark.depth++ == 0)
        mark.gate.enter(); // and never leaves again
    if (worker->item)
        worker->item->releaseArguments();
    worker->owner->threadLost(worker->owner, *worker->thread, worker->item);
    finish(worker);
    KeptLibrary::release();
}

long THPThread::loop(Worker& worker) noexcept
{
    {
        const ReadLocker locker(m_startLock); // held by start until the outcome is known
        if (m_abandoned)
            return ERROR_CANCELLED;
    }
    workerSlot.set(&m_mark);
    THPCategory& owner = *worker.owner;
    bool hasWork = true;
    for (;;) {
        const bool ending = WaitForSingleObject(m_terminate.get(), 0) == WAIT_OBJECT_0 ||
                            (!hasWork && owner.isClosed()); // the event may have failed
        if (!hasWork && !ending) {
            const long code = waitForWork();
            if (code == ERROR_CANCELLED)
                continue; // the poll above detects it
            if (code != ERROR_SUCCESS && owner.retire(*this))
                return code;
        }
        if (beginItem(worker.item)) {
            const long status = ending ? ERROR_CANCELLED : run(*worker.item);
            worker.item->releaseArguments();
            hasWork = owner.workDone(*this, worker.item, status);
            worker.item = m_none;
        } else if (ending) {
            return ERROR_SUCCESS;
        } else {
            hasWork = false;
        }
    }
}

long THPThread::waitForWork() noexcept
{
    const HANDLE events[] = {m_workAvailable.get(), m_terminate.get()};
    switch (WaitForMultipleObjects(2, events, FALSE, INFINITE)) {
    case WAIT_OBJECT_0:
        // If this fails the next wait ends at once, finds nothing, and tries again.
        ResetEvent(m_workAvailable.get());
        return ERROR_SUCCESS;
    case WAIT_OBJECT_0 + 1:
        return ERROR_CANCELLED;
    default:
        return lastError();
    }
}

long THPThread::run(THPWorkItem& item) noexcept
{
    if (!m_cancel.isValid())
        return m_cancelStatus;
    ThreadContext context(item);
    const OutsideLibrary outside;
    return boundary::statusOf([&] { return item(context, m_cancel.get()); });
}
