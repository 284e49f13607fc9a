#include "core/win32/utils/threadpool/include/THPCategory.h"

#include <algorithm>

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

    const WriteLocker locker(m_lock);
    if (m_closed)
        return ERROR_INVALID_ADDRESS;
    if (!m_waiting.empty()) {
        const long code = m_waiting.back()->handOver(item);
        if (code == ERROR_SUCCESS) {
            item->setRunning();
            m_waiting.pop_back();
        }
        return code;
    }
    if (m_threadCount.load() != m_options.maximumThreads)
        return startThread(self, item);
    switch (option) {
    case ITHPWorkItem::ScheduleOption::AtEnd:
        m_queue.push_back(item);
        return ERROR_SUCCESS;
    case ITHPWorkItem::ScheduleOption::AtFront:
        m_queue.push_front(item);
        return ERROR_SUCCESS;
    default:
        return ERROR_CAN_NOT_COMPLETE;
    }
}

// The lock is held while the thread is made: if that fails, nobody has queued work meanwhile in the belief
// that there will be a thread for it.
long THPCategory::startThread(const SharedPtr<THPCategory>& self, const ItemPtr& item)
{
    if (m_threads.size() == m_threads.capacity())
        m_threads.reserve(std::max<std::size_t>(4, m_threads.size() * 2));
    m_waiting.reserve(m_threads.capacity());
    const ThreadPtr thread(new THPThread(m_options));
    const long code = THPThread::start(thread, self, item, m_suspended);
    if (code == ERROR_SUCCESS) {
        item->setRunning();
        m_threads.push_back(thread);
        ++m_threadCount;
    }
    return code;
}

void THPCategory::complete(const ItemPtr& item, THPWorkItem::State state, long status) noexcept
{
    item->complete(state, status);
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
    if (!m_suspended)
        thread.resume(); // it was to be suspended for this item, which has ended first
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
    if (!m_closed) { // a closed category waits for the threads that it has
        std::erase(m_waiting, &thread);
        std::erase_if(m_threads, [&](const ThreadPtr& known) { return known.get() == &thread; });
        --m_threadCount;
    }
    return true;
}

long THPCategory::suspend(const THPWorkKey& key) noexcept
{
    const WriteLocker locker(m_lock);
    if (m_endlessWaits != 0)
        return ERROR_INVALID_STATE;
    long result = ERROR_SUCCESS;
    bool found = !key.work;
    bool suspended = false;
    bool alreadySuspended = !key.work && m_suspended;
    for (const ThreadPtr& thread : m_threads) {
        const ItemPtr item = thread->getItem();
        if (key.work && !(item && item->matches(key)))
            continue;
        found = true;
        const long code = thread->suspend();
        if (code == ERROR_INVALID_STATE)
            alreadySuspended = true;
        else if (code != ERROR_SUCCESS)
            result = code;
        else
            suspended = true;
    }
    if (!found)
        return ERROR_NOT_FOUND;
    if (result != ERROR_SUCCESS)
        return result;
    if (!suspended && alreadySuspended && (key.work || m_suspended))
        return ERROR_INVALID_STATE;
    if (!key.work)
        m_suspended = true;
    return ERROR_SUCCESS;
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

long THPCategory::cancel(const THPWorkKey& key, IThreadPool::OperationType operation)
{
    using Operation = IThreadPool::OperationType;
    if (operation > Operation::DropQueued)
        return ERROR_INVALID_PARAMETER;

    long result = ERROR_SUCCESS;
    std::vector<ItemPtr> affected; // let go of after the lock
    std::size_t dropped = 0;
    {
        const WriteLocker locker(m_lock);
        affected.reserve(m_queue.size() + m_threads.size());
        std::erase_if(m_queue, [&](const ItemPtr& item) {
            if (!item->matches(key))
                return false;
            complete(item, THPWorkItem::State::Cancelled, ERROR_CANCELLED);
            affected.push_back(item);
            return true;
        });
        dropped = affected.size();
        if (operation == Operation::DropQueued)
            return ERROR_SUCCESS;
        if (operation == Operation::CancelAndWait)
            ++m_endlessWaits;
        for (const ThreadPtr& thread : m_threads) {
            const ItemPtr item = thread->getItem();
            if (!item || !item->matches(key))
                continue;
            long code = item->isCancelRequested() ? ERROR_SUCCESS : thread->cancel();
            if (code == ERROR_SUCCESS) {
                item->requestCancel();
                code = thread->resume(); // so that it can see it
            }
            if (code != ERROR_SUCCESS)
                result = code;
            else if (!thread->isCurrent())
                affected.push_back(item);
        }
    }
    if (operation == Operation::CancelAndWait) {
        const EndlessWait endless{*this, true};
        for (std::size_t i = dropped; i < affected.size(); ++i) {
            if (const long code = waitForItem(*affected[i], INFINITE, nullptr); code != ERROR_SUCCESS)
                result = code;
        }
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
            return static_cast<long>(GetLastError());
    }
    return WaitEvent(done, timeout, extraHandle);
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
            if (timeout == INFINITE)
                thread->resume();
        }
        for (const ItemPtr& item : m_queue) {
            if (item->matches(key))
                items.push_back(item);
        }
        if (timeout == INFINITE)
            m_suspended = false;
        if (items.empty() && key.work) {
            for (auto earlier = m_outcomes.rbegin(); earlier != m_outcomes.rend(); ++earlier) {
                if ((*earlier)->matches(key) && (key.instance != nullptr || !(*earlier)->isSuperseded()))
                    return (*earlier)->getOutcome();
            }
        }
        if (timeout == INFINITE)
            ++m_endlessWaits;
    }

    const EndlessWait endless{*this, timeout == INFINITE};
    const Deadline deadline(timeout);
    long result = ERROR_SUCCESS;
    for (const ItemPtr& item : items) {
        if (const long code = waitForItem(*item, deadline.getLeft(), extraHandle); code != ERROR_SUCCESS)
            return code;
        const ReadLocker locker(m_lock);
        if (result == ERROR_SUCCESS)
            result = item->getOutcome();
    }
    return result;
}

THPCategory::EndlessWait::~EndlessWait()
{
    if (!m_counted)
        return;
    const WriteLocker locker(m_category.m_lock);
    --m_category.m_endlessWaits;
}

bool THPCategory::isRunning(const THPWorkKey& key) noexcept
{
    const auto isMatch = [&](const ItemPtr& item) { return item && item->matches(key); };
    const ReadLocker locker(m_lock);
    return std::any_of(m_queue.begin(), m_queue.end(), isMatch) ||
           std::any_of(m_threads.begin(), m_threads.end(),
                       [&](const ThreadPtr& thread) { return isMatch(thread->getItem()); });
}

void THPCategory::close() noexcept
{
    const WriteLocker locker(m_lock);
    m_closed = true;
    m_suspended = false;
    for (const ItemPtr& item : m_queue)
        complete(item, THPWorkItem::State::Cancelled, ERROR_CANCELLED);
    clearWaitingThreads();
    for (const ThreadPtr& thread : m_threads) {
        if (const ItemPtr item = thread->getItem(); item) {
            item->requestCancel();
            thread->cancel();
        }
        thread->end();
    }
}

void THPCategory::join() noexcept
{
    for (const ThreadPtr& thread : m_threads)
        thread->join();
    m_threads.clear();
}
