#include "core/win32/utils/threadpool/include/ThreadPool.h"

#include "core/win32/utils/objectmanager/include/ProcessEnd.h"

void DismissPool::operator()(ThreadPool* pool) const noexcept
{
    if (!isProcessEnding())
        delete pool;
}

ThreadPool::~ThreadPool()
{
    for (const auto& [key, category] : m_categories)
        category->close();
    for (const auto& [key, category] : m_categories)
        category->join();
}

ThreadPool::CategoryPtr ThreadPool::find(const THPWorkKey& key)
{
    const ReadLocker locker(m_lock);
    const auto found = m_categories.find(key.category);
    if (found == m_categories.end())
        throw Exception(PLACE(THREAD_POOL_HEADER, "ThreadPool::find", __LINE__), ERROR_NOT_FOUND);
    return found->second;
}

ThreadPool::CategoryPtr ThreadPool::findOrCreate(const THPWorkKey& key)
{
    {
        const ReadLocker locker(m_lock);
        if (const auto found = m_categories.find(key.category); found != m_categories.end())
            return found->second;
    }
    const auto category = makeShared<THPCategory>(key.category, THPCategoryOptions());
    const WriteLocker locker(m_lock);
    return m_categories.try_emplace(key.category, category).first->second;
}

void ThreadPool::createCategory(const THPWorkKey& key, const THPCategoryOptions& options)
{
    const auto category = makeShared<THPCategory>(key.category, options);
    const WriteLocker locker(m_lock);
    if (!m_categories.try_emplace(key.category, category).second)
        throw Exception(PLACE(THREAD_POOL_HEADER, "ThreadPool::createCategory", __LINE__),
                        ERROR_ALREADY_EXISTS);
}

long ThreadPool::queueWork(const THPWorkKey& key, const THPWorkCall& call, const HashMessageW& arguments,
                           ITHPWorkItem::ScheduleOption option, void** instance)
{
    const CategoryPtr category = findOrCreate(key);
    const auto item = makeShared<THPWorkItem>(key, call, arguments, option, category->getEvents());
    if (instance != nullptr)
        *instance = item->getInstance(); // before the work can begin
    long code;
    try {
        code = category->queueWork(category, item);
    } catch (...) {
        code = boundary::codeOfCurrentException();
    }
    if (code != ERROR_SUCCESS && instance != nullptr)
        *instance = nullptr;
    return code;
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
