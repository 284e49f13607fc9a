#pragma once

#include <map>

#include "core/win32/utils/objectmanager/include/ObjectTable.h"
#include "core/win32/utils/objectmanager/include/ProcessEnd.h"
#include "core/win32/utils/objectmanager/include/SmartHandle.h"
#include "core/win32/utils/threadpool/include/THPCategory.h"

inline constexpr char kThreadPoolHeader[] = "core\\win32\\utils\\threadpool\\include\\ThreadPool.h";

/// A named pool: its categories by key. Closing the last handle closes it, while calls in progress may still
/// hold a reference to it.
class ThreadPool final : public IThreadPool
{
public:
    static constexpr const char* kClassName = "ThreadPool";

    ThreadPool() = default;
    ThreadPool(const ThreadPool&) = delete;
    ThreadPool& operator=(const ThreadPool&) = delete;
    ~ThreadPool() override;

    /// Cancels all work, ends the threads, and waits until no work is running. It does not wait for work
    /// whose thread is the calling one or waits for it, and waits at most 5 seconds in the loader lock. From
    /// now on nothing can be queued. Returns 0, or the system's code if a thread could not be told to end for
    /// 5 seconds: then its work may still be running.
    long close() noexcept;
    static constexpr DWORD kTelling = 5000; // milliseconds

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
    long getResult(const THPWorkKey& key, long& result) override { return find(key)->getResult(key, result); }

private:
    using CategoryPtr = SharedPtr<THPCategory>;

    /// Raises 1168 when there is no such category.
    CategoryPtr find(const THPWorkKey& key);
    /// Sets `created` when there was none.
    CategoryPtr findOrCreate(const THPWorkKey& key, bool& created);
    void requireOpen() const;
    [[nodiscard]] bool isClosed() noexcept;
    void removeUnused(const CategoryPtr& category) noexcept;

    ReadWriteLock m_lock;
    bool m_closed = false; // the categories no longer change
    std::map<THPIdentifier, CategoryPtr> m_categories;
};

/// Destroys a pool, unless the process is ending and its threads are already gone.
struct DismissPool
{
    void operator()(ThreadPool* pool) const noexcept;
};
using ThreadPoolPtr = SharedPtr<ThreadPool, DismissPool>;

/// The table of all thread pools.
extern ObjectTable<ThreadPoolPtr> threadPools;

/// Closes one opening of an object. `closeObject` is called for the last one and returns a code: if it is not
/// 0, this returns 0 with the code as the last error.
template <class Table, class Close>
int closeTelling(Table& table, void* handle, Close&& closeObject) noexcept
{
    long code = ERROR_SUCCESS;
    const int closed = table.close(handle, [&](auto& object) { code = closeObject(object); });
    if (code == ERROR_SUCCESS)
        return closed;
    SetLastError(static_cast<DWORD>(code));
    return 0;
}

/// Opens the pool with that name, or creates it. Returns its handle, or the invalid handle with the last
/// error 87 (null name) or 8; `place` is the place text for both.
[[nodiscard]] inline void* createPool(const char* place, const wchar_t* name) noexcept
{
    // The frame turns it into 8. NOLINTNEXTLINE(bugprone-unhandled-exception-at-new)
    return boundary::createFrame(place, threadPools(), name, [] { return new ThreadPool; });
}

/// Closes one opening of a pool; the last one closes the pool. Does nothing at the end of the process.
/// Returns 0 for a handle that is not open, and with the last error set if work could not be told to end.
inline int closePool(void* pool) noexcept
{
    if (isProcessEnding())
        return 1;
    return closeTelling(threadPools(), pool, [](ThreadPool& object) { return object.close(); });
}

/// One opening of a pool, with the pool itself, for work of the library's own. Anybody who knows the name can
/// close the pool, and its handle says nothing about it from then on: what still runs there can be waited for
/// all the same.
class PoolOpening
{
public:
    PoolOpening() = default;
    /// Opens the pool with that name, or creates it. Raises an Exception with 87 (null name), 8, or 6 if
    /// somebody has closed it at once; `place` is the place text for each.
    PoolOpening(const char* place, const wchar_t* name) : m_handle(createPool(place, name))
    {
        if (!m_handle.isValid())
            throw Exception(place);
        requireSuccess(place, threadPools().get(m_handle.get(), m_pool));
    }

    PoolOpening(PoolOpening&&) = default;
    PoolOpening& operator=(PoolOpening&&) = default;
    /// A handle that somebody has closed once too often may be another pool's by now: that one is left alone.
    ~PoolOpening()
    {
        const bool isOurs = boundary::statusOf([&]() -> long {
                                ThreadPoolPtr pool;
                                requireSuccess(threadPools().get(m_handle.get(), pool));
                                return pool.get() == m_pool.get() ? ERROR_SUCCESS : ERROR_INVALID_HANDLE;
                            }) == ERROR_SUCCESS;
        if (!isOurs)
            static_cast<void>(m_handle.release());
    }

    [[nodiscard]] bool isValid() const noexcept { return m_handle.isValid(); }

    /// Runs a status operation on the pool, which may have been closed. `operation` takes it by reference and
    /// returns a status. Returns 1115 at the end of the process, when its threads are gone, without calling
    /// `operation`, or the code that it returns or raises.
    template <class Operation>
    long with(Operation&& operation) const noexcept
    {
        if (isProcessEnding())
            return ERROR_SHUTDOWN_IN_PROGRESS;
        return boundary::statusOf([&]() -> long { return operation(*m_pool); });
    }
    /// Creates a category there, unless there is one. Returns what `with` does.
    long requireCategory(const THPIdentifier& name, const THPCategoryOptions& options) const noexcept
    {
        const long code = with([&](ThreadPool& pool) {
            pool.createCategory(name, options);
            return ERROR_SUCCESS;
        });
        return code == ERROR_ALREADY_EXISTS ? ERROR_SUCCESS : code;
    }

private:
    ThreadPoolPtr m_pool;
    SmartHandle<closePool> m_handle; // closed before the pool is let go of
};

/// Runs a status operation on the pool behind `handle`, which is held meanwhile. `operation` takes the pool
/// by reference and returns nothing or a status. Returns 0; 6 (null or never given out), 487 (closed); 1115
/// at the end of the process, when its threads are gone, without calling `operation`; or the code that it
/// returns or raises.
template <class Operation>
long withPool(const char* place, void* handle, Operation&& operation) noexcept
{
    if (isProcessEnding())
        return ERROR_SHUTDOWN_IN_PROGRESS;
    const long code = boundary::statusFrame(place, threadPools(), handle, std::forward<Operation>(operation));
    if (code != ERROR_INVALID_HANDLE)
        return code;
    return boundary::statusFrame([&]() -> long {
        if (threadPools().isClosed(handle))
            throw Exception(place, ERROR_INVALID_ADDRESS); // which makes it the last error, too
        return code;
    });
}
