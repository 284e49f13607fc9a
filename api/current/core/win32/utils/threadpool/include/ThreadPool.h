#pragma once

#include <map>

#include "core/win32/utils/objectmanager/include/ObjectManager.h"
#include "core/win32/utils/threadpool/include/THPCategory.h"

#define THREAD_POOL_HEADER "core\\win32\\utils\\threadpool\\include\\ThreadPool.h"

/// A named pool: its categories by key. Its last reference cancels all work, ends the threads and waits for
/// them; a thread of the pool itself that drops this reference ends after its work.
class ThreadPool final : public IThreadPool
{
public:
    static constexpr const char* kClassName = "ThreadPool";

    ThreadPool() = default;
    ThreadPool(const ThreadPool&) = delete;
    ThreadPool& operator=(const ThreadPool&) = delete;
    ~ThreadPool() override;

    void createCategory(const THPWorkKey& key, const THPCategoryOptions& options) override;
    long queueWork(const THPWorkKey& key, const THPWorkCall& call, const HashMessageW& arguments,
                   ITHPWorkItem::ScheduleOption option, void** instance) override;
    long suspendWork(const THPWorkKey& key) override { return find(key)->suspend(key); }
    long resumeWork(const THPWorkKey& key) override { return find(key)->resume(key); }
    long cancelWork() override;
    long cancelWork(const THPWorkKey& key, OperationType operation) override
    {
        return find(key)->cancel(key, operation);
    }
    long wait(const THPWorkKey& key, std::uint32_t timeout, void* extraHandle) override
    {
        return find(key)->wait(key, timeout, extraHandle);
    }
    bool isRunning(const THPWorkKey& key) override { return find(key)->isRunning(key); }

private:
    using CategoryPtr = SharedPtr<THPCategory>;

    /// Raises 1168 when there is no such category.
    CategoryPtr find(const THPWorkKey& key);
    CategoryPtr findOrCreate(const THPWorkKey& key);

    ReadWriteLock m_lock;
    std::map<THPIdentifier, CategoryPtr> m_categories;
};

/// Destroys a pool, unless the process is ending and its threads are gone already.
struct DismissPool
{
    void operator()(ThreadPool* pool) const noexcept;
};
using ThreadPoolPtr = SharedPtr<ThreadPool, DismissPool>;

/// The table of all thread pools.
[[nodiscard]] ObjectManager<ThreadPoolPtr>& threadPools() noexcept;
