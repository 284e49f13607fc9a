#include "core/win32/utils/threadpool/include/ThreadPool.h"

#include "core/win32/utils/objectmanager/include/ProcessEnd.h"

// Topics hold pools, and so may anything that a handler holds.
ObjectTable<ThreadPoolPtr> threadPools(90);

void DismissPool::operator()(ThreadPool* pool) const noexcept
{
    if (!isProcessEnding())
        delete pool;
}

ThreadPool::~ThreadPool()
{
    if (!isClosed()) // otherwise it has waited already
        close();
}

long ThreadPool::close() noexcept
{
    {
        const WriteLocker locker(m_lock);
        m_closed = true;
    }
    for (const auto& [key, category] : m_categories)
        category->close();
    const Deadline deadline(waitLimit(INFINITE));
    const Deadline telling(kTelling);
    long result = ERROR_SUCCESS;
    for (const auto& [key, category] : m_categories) {
        if (const long code = category->waitForRunning(deadline, telling); code != ERROR_SUCCESS)
            result = code;
    }
    return result;
}

ThreadPool::CategoryPtr ThreadPool::find(const THPWorkKey& key)
{
    const ReadLocker locker(m_lock);
    const auto found = m_categories.find(key.category);
    if (found == m_categories.end())
        throw Exception(PLACE(kThreadPoolHeader, "ThreadPool::find", __LINE__), ERROR_NOT_FOUND);
    return found->second;
}

ThreadPool::CategoryPtr ThreadPool::findOrCreate(const THPWorkKey& key, bool& created)
{
    {
        const ReadLocker locker(m_lock);
        if (const auto found = m_categories.find(key.category); found != m_categories.end())
            return found->second;
    }
    const auto category = makeShared<THPCategory>(key.category, THPCategoryOptions());
    const WriteLocker locker(m_lock);
    requireOpen();
    const auto [at, inserted] = m_categories.try_emplace(key.category, category);
    created = inserted;
    return at->second;
}

bool ThreadPool::isClosed() noexcept
{
    const ReadLocker locker(m_lock);
    return m_closed;
}

void ThreadPool::requireOpen() const
{
    if (m_closed)
        throw Exception(PLACE(kThreadPoolHeader, "ThreadPool::findOrCreate", __LINE__),
                        ERROR_INVALID_ADDRESS);
}

// Keeps the category if another thread has queued work into it meanwhile.
void ThreadPool::removeUnused(const CategoryPtr& category) noexcept
{
    const WriteLocker locker(m_lock);
    const auto found = m_categories.find(category->getKey());
    if (!m_closed && found != m_categories.end() && found->second.get() == category.get() &&
        category->closeIfUnused())
        m_categories.erase(found);
}

void ThreadPool::createCategory(const THPWorkKey& key, const THPCategoryOptions& options)
{
    const auto category = makeShared<THPCategory>(key.category, options);
    const WriteLocker locker(m_lock);
    requireOpen();
    if (!m_categories.try_emplace(key.category, category).second)
        throw Exception(PLACE(kThreadPoolHeader, "ThreadPool::createCategory", __LINE__),
                        ERROR_ALREADY_EXISTS);
}

long ThreadPool::queueWork(const THPWorkKey& key, const THPWorkCall& call, const HashMessageW& arguments,
                           ITHPWorkItem::ScheduleOption option, void** instance)
{
    void* const previous = instance != nullptr ? *instance : nullptr;
    for (;;) {
        bool created = false;
        const CategoryPtr category = findOrCreate(key, created);
        const long code = boundary::statusOf([&] {
            const auto item = makeShared<THPWorkItem>(key, call, arguments, option, category->getEvents());
            if (instance != nullptr)
                *instance = item->getInstance(); // before the work can begin
            return category->queueWork(category, item);
        });
        if (code == ERROR_SUCCESS)
            return code;
        if (instance != nullptr)
            *instance = previous;
        if (created)
            removeUnused(category);
        // A closed category in an open pool belonged to another caller whose first work was refused.
        if (created || !category->isClosed() || isClosed())
            return code;
    }
}

long ThreadPool::cancelWork()
{
    std::vector<CategoryPtr> categories;
    {
        const ReadLocker locker(m_lock);
        for (const auto& [key, category] : m_categories)
            categories.push_back(category);
    }
    long result = ERROR_SUCCESS;
    for (const CategoryPtr& category : categories) {
        const long code = category->cancel(category->getKey(), OperationType::CancelAndReturn);
        if (code != ERROR_SUCCESS)
            result = code;
    }
    return result;
}
