#include "core/win32/utils/threadpool/include/THPCategory.h"

#include <algorithm>
#include <optional>

#include "core/win32/utils/objectmanager/include/ProcessEnd.h"
#include "core/win32/utils/threadpool/include/WaitingThread.h"

namespace {
constexpr DWORD kLook = 1000; // milliseconds between checks of what no event reports
}

THPCategory::THPCategory(const THPIdentifier& key, const THPCategoryOptions& options)
    : m_key(key), m_options(options), m_events(makeShared<EventCache>())
{
    m_outcomes.reserve(kOutcomesKept);
}

long THPCategory::queueWork(const SharedPtr<THPCategory>& self, const ItemPtr& item)
{
    const ITHPWorkItem::ScheduleOption option = item->getScheduleOption();
    if (option > ITHPWorkItem::ScheduleOption::OnlyIfFree)
        return ERROR_INVALID_PARAMETER;

    ThreadPtr thread;
    {
        const WriteLocker locker(m_lock);
        if (m_closed)
            return ERROR_INVALID_ADDRESS;
        if (!m_waiting.empty()) {
            m_waiting.back()->stopBeforeItem(m_suspended);
            const long code = m_waiting.back()->handOver(item);
            if (code == ERROR_SUCCESS) {
                item->setRunning();
                m_waiting.pop_back();
            }
            return code;
        }
        if (m_threads.size() == m_options.maximumThreads) {
            if (option == ITHPWorkItem::ScheduleOption::OnlyIfFree)
                return ERROR_CAN_NOT_COMPLETE;
            m_queue.insert(option == ITHPWorkItem::ScheduleOption::AtEnd ? m_queue.end() : m_queue.begin(),
                           item);
            return ERROR_SUCCESS;
        }
        thread = addThread(item);
    }
    const long code = THPThread::start(thread, self);
    if (code != ERROR_SUCCESS) {
        startFailed(*thread, item, code);
        startForQueue(self);
    }
    return code;
}

THPCategory::ThreadPtr THPCategory::addThread(const ItemPtr& item)
{
    if (m_threads.size() == m_threads.capacity())
        m_threads.reserve(std::max<std::size_t>(4, m_threads.size() * 2));
    m_waiting.reserve(m_threads.capacity());
    const ThreadPtr thread(new THPThread(m_options, m_suspended));
    thread->setItem(item);
    item->setRunning();
    m_threads.push_back(thread);
    return thread;
}

void THPCategory::removeThread(THPThread& thread) noexcept
{
    std::erase(m_waiting, &thread);
    std::erase_if(m_threads, [&](const ThreadPtr& known) { return known.get() == &thread; });
}

// Removes a thread that could not be started. `item` was queued with it: threads that found it meanwhile are
// released. If it was cancelled and the thread was given another item, that one goes back to the queue.
void THPCategory::startFailed(THPThread& thread, const ItemPtr& item, long code) noexcept
{
    const WriteLocker locker(m_lock);
    const ItemPtr other = thread.getItem();
    removeThread(thread);
    if (!item->isComplete())
        item->complete(THPWorkItem::State::Cancelled, code);
    WakeAllConditionVariable(&m_itemEnded);
    if (!other || other.get() == item.get())
        return;
    const long requeued = boundary::statusOf([&]() -> long {
        m_queue.push_front(other);
        return ERROR_SUCCESS;
    });
    if (requeued != ERROR_SUCCESS)
        complete(other, THPWorkItem::State::Finished, requeued);
}

// While a thread was being started, work may have been queued in the expectation that it would run it. If no
// thread will, another one is started; work that gets no thread even then ends with the start's code.
void THPCategory::startForQueue(const SharedPtr<THPCategory>& self) noexcept
{
    for (;;) {
        ItemPtr item;
        ThreadPtr thread;
        long code = ERROR_SUCCESS;
        {
            const WriteLocker locker(m_lock);
            if (m_closed || m_queue.empty() || !m_threads.empty() || m_options.maximumThreads == 0)
                return;
            item = m_queue.front();
            m_queue.pop_front();
            code = boundary::statusOf([&]() -> long {
                thread = addThread(item);
                return ERROR_SUCCESS;
            });
        }
        if (code == ERROR_SUCCESS)
            code = THPThread::start(thread, self);
        if (code == ERROR_SUCCESS)
            return;
        {
            const WriteLocker locker(m_lock);
            if (!item->isComplete())
                complete(item, THPWorkItem::State::Finished, code);
        }
        if (thread)
            startFailed(*thread, item, code);
        item->releaseArguments();
    }
}

void THPCategory::threadStarted(THPThread& thread, Win32Handle handle) noexcept
{
    const WriteLocker locker(m_lock);
    thread.setStarted(std::move(handle));
    if (m_closed)
        thread.end(); // it could not be told before
}

void THPCategory::complete(const ItemPtr& item, THPWorkItem::State state, long status) noexcept
{
    item->complete(state, status);
    WakeAllConditionVariable(&m_itemEnded);
    if (item->getOutcome() == ERROR_SUCCESS) {
        for (const ItemPtr& earlier : m_outcomes) {
            if (earlier->isSameWork(*item))
                earlier->supersede();
        }
        return;
    }
    if (m_outcomes.size() == kOutcomesKept)
        m_outcomes.erase(m_outcomes.begin());
    m_outcomes.push_back(item);
}

bool THPCategory::workDone(THPThread& thread, const ItemPtr& item, long status) noexcept
{
    const WriteLocker locker(m_lock);
    const bool cancelled = thread.takeCancel() || item->isCancelRequested();
    complete(item, cancelled ? THPWorkItem::State::Cancelled : THPWorkItem::State::Finished, status);
    thread.stopBeforeItem(m_suspended); // it may have been suspended, or resumed, for this item alone
    if (!m_closed && !m_queue.empty()) {
        m_queue.front()->setRunning();
        thread.setItem(m_queue.front());
        m_queue.pop_front();
        return true;
    }
    thread.clearItem();
    if (!m_closed)
        m_waiting.push_back(&thread);
    return false;
}

bool THPCategory::retire(THPThread& thread) noexcept
{
    const WriteLocker locker(m_lock);
    if (thread.getItem())
        return false;
    if (!m_closed) // a closed category waits for its existing threads
        removeThread(thread);
    return true;
}

void THPCategory::threadLost(const SharedPtr<THPCategory>& self, THPThread& thread,
                             const ItemPtr& item) noexcept
{
    {
        const WriteLocker locker(m_lock);
        if (item) {
            const bool cancelled = thread.takeCancel() || item->isCancelRequested();
            complete(item, cancelled ? THPWorkItem::State::Cancelled : THPWorkItem::State::Finished,
                     boundary::kUnhandledException);
        }
        thread.clearItem();
        if (!m_closed)
            removeThread(thread);
    }
    startForQueue(self);
}

// A thread that may be inside the loader is suspended as soon as it is out of it. Meanwhile nothing is locked
// that it may need there.
long THPCategory::suspend(const THPWorkKey& key) noexcept
{
    const WriteLocker one(m_suspendLock);
    const Deadline deadline(processend::kLoaderLockWait);
    bool already = false;
    for (bool first = true;; first = false) {
        {
            const WriteLocker locker(m_lock);
            if (first)
                already = std::exchange(m_suspended, m_suspended || !key.work);
            const bool resumed = !key.work && !m_suspended; // by another thread, after this call
            const long code = m_closed  ? ERROR_INVALID_ADDRESS
                              : resumed ? ERROR_SUCCESS
                                        : suspendThreads(key, key.work.has_value() || already);
            if (code != ERROR_BUSY || deadline.getLeft() == 0) {
                const bool failed =
                    code != ERROR_SUCCESS && code != ERROR_NOT_FOUND && code != ERROR_INVALID_STATE;
                endSuspending(failed, failed && !key.work && !already);
                return code;
            }
        }
        Sleep(1);
    }
}

// `already`: what is suspended was so before the call.
long THPCategory::suspendThreads(const THPWorkKey& key, bool already) noexcept
{
    long result = ERROR_SUCCESS;
    bool found = !key.work;
    bool suspended = !already;
    for (const ThreadPtr& thread : m_threads) {
        const ItemPtr item = thread->getItem();
        if (key.work && !(item && item->matches(key)))
            continue;
        found = true;
        const long code = thread->isJustSuspended() ? ERROR_SUCCESS : thread->suspend();
        if (code == ERROR_SUCCESS) {
            thread->setJustSuspended(true);
            suspended = true;
        } else if (code != ERROR_INVALID_STATE) {
            result = code;
        }
    }
    if (!found)
        return ERROR_NOT_FOUND;
    return result == ERROR_SUCCESS && !suspended ? static_cast<long>(ERROR_INVALID_STATE) : result;
}

// If the call has failed, what it has suspended goes on, and in a category that was not suspended before also
// what has been queued meanwhile.
void THPCategory::endSuspending(bool failed, bool opens) noexcept
{
    m_suspended = m_suspended && !opens;
    for (const ThreadPtr& thread : m_threads) {
        if (failed && thread->isJustSuspended())
            thread->resume();
        else if (opens && !thread->isBusy())
            thread->stopBeforeItem(false);
        thread->setJustSuspended(false);
    }
}

long THPCategory::resume(const THPWorkKey& key) noexcept
{
    const WriteLocker locker(m_lock);
    long result = ERROR_SUCCESS;
    bool found = !key.work;
    for (const ThreadPtr& thread : m_threads) {
        const ItemPtr item = thread->getItem();
        if (key.work && !(item && item->matches(key)))
            continue;
        found = true;
        if (const long code = thread->resume(); code != ERROR_SUCCESS)
            result = code;
    }
    if (!found)
        return ERROR_NOT_FOUND;
    if (!key.work && result == ERROR_SUCCESS)
        m_suspended = false;
    return result;
}

// The thread's item has been taken back: the thread gets the next one or waits.
void THPCategory::giveNext(THPThread& thread) noexcept
{
    thread.stopBeforeItem(m_suspended);
    if (m_closed)
        return;
    if (!m_queue.empty() && thread.handOver(m_queue.front()) == ERROR_SUCCESS) {
        m_queue.front()->setRunning();
        m_queue.pop_front();
    } else {
        m_waiting.push_back(&thread);
    }
}

// Takes back what the thread was given, if it has not begun: it may be suspended, or not get to it while the
// calling thread waits.
bool THPCategory::takeBack(THPThread& thread, const ItemPtr& item) noexcept
{
    if (!thread.takeBack())
        return false;
    complete(item, THPWorkItem::State::Cancelled, ERROR_CANCELLED);
    giveNext(thread);
    return true;
}

long THPCategory::cancelRunning(THPThread& thread, const ItemPtr& item) noexcept
{
    const long code = item->isCancelRequested() ? ERROR_SUCCESS : thread.cancel();
    if (code != ERROR_SUCCESS)
        return code;
    item->requestCancel();
    return thread.resume(); // so that it can see the event
}

long THPCategory::cancel(const THPWorkKey& key, IThreadPool::OperationType operation)
{
    using Operation = IThreadPool::OperationType;
    if (operation > Operation::DropQueued)
        return ERROR_INVALID_PARAMETER;

    long result = ERROR_SUCCESS;
    std::vector<ItemPtr> ended;
    std::vector<ItemPtr> running;
    {
        const WriteLocker locker(m_lock);
        ended.reserve(m_queue.size() + m_threads.size());
        running.reserve(m_threads.size());
        std::erase_if(m_queue, [&](const ItemPtr& item) {
            if (!item->matches(key))
                return false;
            complete(item, THPWorkItem::State::Cancelled, ERROR_CANCELLED);
            ended.push_back(item);
            return true;
        });
        for (const ThreadPtr& thread : m_threads) {
            const ItemPtr item = thread->getItem();
            if (!item || !item->matches(key))
                continue;
            if (takeBack(*thread, item))
                ended.push_back(item);
            else if (operation == Operation::DropQueued)
                continue;
            else if (const long code = cancelRunning(*thread, item); code != ERROR_SUCCESS)
                result = code;
            else if (!thread->isCurrent())
                running.push_back(item);
        }
    }
    for (const ItemPtr& item : ended)
        item->releaseArguments();
    if (operation != Operation::CancelAndWait)
        return result;
    const Deadline deadline(waitLimit(INFINITE));
    for (const ItemPtr& item : running) {
        if (const long code = waitForItem(*item, deadline.getLeft(), nullptr); code != ERROR_SUCCESS)
            result = code;
    }
    return result;
}

long THPCategory::waitForItem(THPWorkItem& item, std::uint32_t timeout, HANDLE extraHandle) noexcept
{
    HANDLE done = nullptr;
    {
        const WriteLocker locker(m_lock);
        if (item.isComplete())
            return ERROR_SUCCESS;
        done = item.getDoneEvent();
        if (done == nullptr)
            return lastError();
    }
    std::optional<WaitingThread> waiting;
    if (extraHandle == nullptr && WaitingThread::isNeeded(timeout) &&
        waiting.emplace(item.getThread()).closesCircle())
        return ERROR_POSSIBLE_DEADLOCK;
    const Deadline deadline(timeout);
    for (;;) {
        const long code = waitForEvent(done, std::min(deadline.getLeft(), kLook), extraHandle);
        if (code != WAIT_TIMEOUT)
            return code;
        const ReadLocker locker(m_lock);
        if (item.isComplete()) // its event could not be signalled
            return ERROR_SUCCESS;
        if (deadline.getLeft() == 0)
            return WAIT_TIMEOUT;
    }
}

long THPCategory::wait(const THPWorkKey& key, std::uint32_t timeout, HANDLE extraHandle)
{
    std::vector<ItemPtr> items;
    {
        const WriteLocker locker(m_lock);
        items.reserve(m_threads.size() + m_queue.size());
        for (const ThreadPtr& thread : m_threads) {
            const ItemPtr item = thread->getItem();
            if (item && item->matches(key) && !thread->isCurrent())
                items.push_back(item);
        }
        for (const ItemPtr& item : m_queue) {
            if (item->matches(key))
                items.push_back(item);
        }
        if (items.empty() && key.work) {
            const THPWorkItem* earlier = findOutcome(key);
            return earlier != nullptr && earlier->isCancelled() ? ERROR_CANCELLED : ERROR_SUCCESS;
        }
    }

    const Deadline deadline(waitLimit(timeout));
    long result = ERROR_SUCCESS;
    for (const ItemPtr& item : items) {
        if (const long code = waitForItem(*item, deadline.getLeft(), extraHandle); code != ERROR_SUCCESS)
            return code;
        const ReadLocker locker(m_lock);
        if (item->isCancelled())
            result = ERROR_CANCELLED;
    }
    return result;
}

const THPWorkItem* THPCategory::findOutcome(const THPWorkKey& key) const noexcept
{
    for (auto earlier = m_outcomes.rbegin(); earlier != m_outcomes.rend(); ++earlier) {
        if ((*earlier)->matches(key) && (key.instance != nullptr || !(*earlier)->isSuperseded()))
            return earlier->get();
    }
    return nullptr;
}

bool THPCategory::hasWork(const THPWorkKey& key) noexcept
{
    const auto isMatch = [&](const ItemPtr& item) { return item && item->matches(key); };
    return std::any_of(m_queue.begin(), m_queue.end(), isMatch) ||
           std::any_of(m_threads.begin(), m_threads.end(),
                       [&](const ThreadPtr& thread) { return isMatch(thread->getItem()); });
}

bool THPCategory::isRunning(const THPWorkKey& key) noexcept
{
    const ReadLocker locker(m_lock);
    return hasWork(key);
}

long THPCategory::getResult(const THPWorkKey& key, long& result) noexcept
{
    const ReadLocker locker(m_lock);
    if (hasWork(key))
        return ERROR_BUSY;
    const THPWorkItem* earlier = findOutcome(key);
    result = earlier != nullptr ? earlier->getOutcome() : static_cast<long>(ERROR_SUCCESS);
    return ERROR_SUCCESS;
}

bool THPCategory::closeIfUnused() noexcept
{
    const WriteLocker locker(m_lock);
    m_closed = m_closed || (m_threads.empty() && m_queue.empty());
    return m_closed;
}

void THPCategory::close() noexcept
{
    {
        const WriteLocker locker(m_lock);
        m_closed = true;
        m_waiting.clear();
        for (const ThreadPtr& thread : m_threads) {
            if (const ItemPtr item = thread->getItem(); item) {
                item->requestCancel();
                thread->cancel();
            }
        }
    }
    // What is suspended before it begins must not begin, so this comes before the threads are resumed.
    for (ItemPtr item = dropOne(); item; item = dropOne())
        item->releaseArguments();
    const WriteLocker locker(m_lock);
    m_suspended = false;
    tellToEnd();
}

// Ends and returns one item of the closed category that has not begun; empty when there is none.
THPCategory::ItemPtr THPCategory::dropOne() noexcept
{
    const WriteLocker locker(m_lock);
    ItemPtr item;
    if (!m_queue.empty()) {
        item = m_queue.front();
        m_queue.pop_front();
    }
    for (std::size_t i = 0; i < m_threads.size() && !item; ++i) {
        const ItemPtr given = m_threads[i]->getItem();
        if (m_threads[i]->takeBack())
            item = given;
    }
    if (item)
        complete(item, THPWorkItem::State::Cancelled, ERROR_CANCELLED);
    return item;
}

long THPCategory::waitForRunning(const Deadline& deadline, const Deadline& telling) noexcept
{
    while (waitForOne(deadline, telling)) {
    }
    const WriteLocker locker(m_lock);
    return tellToEnd();
}

// Tells the threads that do not know it yet. Returns 0, or the code for one that could not be told.
long THPCategory::tellToEnd() noexcept
{
    long result = ERROR_SUCCESS;
    for (const ThreadPtr& thread : m_threads) {
        if (thread->isStarted() && !thread->isTold() && !thread->end())
            result = lastError();
    }
    return result;
}

// Returns whether there was something to wait for.
bool THPCategory::waitForOne(const Deadline& deadline, const Deadline& telling) noexcept
{
    const WriteLocker locker(m_lock);
    tellToEnd();
    for (const ThreadPtr& thread : m_threads) {
        if (!thread->isBusy() || thread->isGone() || deadline.getLeft() == 0)
            continue;
        if (!thread->isTold() && telling.getLeft() == 0)
            continue;
        const WaitingThread waiting(thread->getId());
        if (waiting.closesCircle())
            continue;
        m_lock.waitWrite(m_itemEnded, std::min(deadline.getLeft(), kLook));
        return true;
    }
    return false;
}
