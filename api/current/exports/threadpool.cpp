// The exported functions of thread pools.

#include "core/win32/utils/threadpool/include/ThreadPool.h"
#include "core/win32/utils/threadpool/api.h"
#include "exports/Frames.h"

namespace {
constexpr char kThreadPoolApi[] = "core\\win32\\utils\\threadpool\\api.h";

template <class Key, class Call>
long queueWork(void* pool, Key category, Key work, Call&& call, const HashMessageW& arguments,
               ITHPWorkItem::ScheduleOption option, void** instance) noexcept
{
    return withPool(PLACE(kThreadPoolApi, "THPQueueWork", __LINE__), pool, [&](ThreadPool& object) {
        return object.queueWork({category, work}, std::forward<Call>(call), arguments, option, instance);
    });
}

template <class... Keys>
long suspendWork(void* pool, Keys... keys) noexcept
{
    return withPool(PLACE(kThreadPoolApi, "THPSuspendWork", __LINE__), pool,
                    [&](ThreadPool& object) { return object.suspendWork(THPWorkKey(keys...)); });
}

template <class... Keys>
long resumeWork(void* pool, Keys... keys) noexcept
{
    return withPool(PLACE(kThreadPoolApi, "THPResumeWork", __LINE__), pool,
                    [&](ThreadPool& object) { return object.resumeWork(THPWorkKey(keys...)); });
}

template <class... Keys>
long cancelWork(void* pool, IThreadPool::OperationType operation, Keys... keys) noexcept
{
    return withPool(PLACE(kThreadPoolApi, "THPCancelWork", __LINE__), pool,
                    [&](ThreadPool& object) { return object.cancelWork(THPWorkKey(keys...), operation); });
}

template <class... Keys>
long waitForWork(void* pool, unsigned long timeout, void* extraHandle, Keys... keys) noexcept
{
    return withPool(PLACE(kThreadPoolApi, "THPWait", __LINE__), pool, [&](ThreadPool& object) {
        return object.wait(THPWorkKey(keys...), timeout, extraHandle);
    });
}

template <class... Keys>
long getWorkResult(void* pool, long& result, Keys... keys) noexcept
{
    return withPool(PLACE(kThreadPoolApi, "THPGetWorkResult", __LINE__), pool,
                    [&](ThreadPool& object) { return object.getResult(THPWorkKey(keys...), result); });
}

template <class... Keys>
long isWorkRunning(void* pool, int& running, Keys... keys) noexcept
{
    return withPool(PLACE(kThreadPoolApi, "THPIsRunning", __LINE__), pool,
                    [&](ThreadPool& object) { running = object.isRunning(THPWorkKey(keys...)) ? 1 : 0; });
}
} // namespace

void* THPCreateThreadPool(const wchar_t* name)
{
    return createPool(PLACE(kThreadPoolApi, "THPCreateThreadPool", __LINE__), name);
}

void* THPOpenThreadPool(const wchar_t* name)
{
    return threadPools().lookup(name);
}

int THPCloseThreadpool(void* pool)
{
    return closePool(pool);
}

long THPCreateCategory(void* pool, const wchar_t* category, const THPCategoryOptions& options)
{
    return withPool(PLACE(kThreadPoolApi, "THPCreateCategory", __LINE__), pool,
                    [&](ThreadPool& object) { object.createCategory(THPIdentifier(category), options); });
}

long THPCreateCategory(void* pool, unsigned long category, const THPCategoryOptions& options)
{
    return withPool(PLACE(kThreadPoolApi, "THPCreateCategory", __LINE__), pool,
                    [&](ThreadPool& object) { object.createCategory(THPIdentifier(category), options); });
}

long THPQueueWork(void* pool, const wchar_t* category, const wchar_t* work, THPWorkFunction function,
                  const HashMessageW& arguments, ITHPWorkItem::ScheduleOption option, void** instance)
{
    return queueWork(pool, category, work, function, arguments, option, instance);
}

long THPQueueWork(void* pool, const wchar_t* category, const wchar_t* work, ITHPWorkItem& object,
                  const HashMessageW& arguments, ITHPWorkItem::ScheduleOption option, void** instance)
{
    return queueWork(pool, category, work, object, arguments, option, instance);
}

long THPQueueWork(void* pool, unsigned long category, unsigned long work, THPWorkFunction function,
                  const HashMessageW& arguments, ITHPWorkItem::ScheduleOption option, void** instance)
{
    return queueWork(pool, category, work, function, arguments, option, instance);
}

long THPQueueWork(void* pool, unsigned long category, unsigned long work, ITHPWorkItem& object,
                  const HashMessageW& arguments, ITHPWorkItem::ScheduleOption option, void** instance)
{
    return queueWork(pool, category, work, object, arguments, option, instance);
}

long THPSuspendWork(void* pool, const wchar_t* category)
{
    return suspendWork(pool, category);
}

long THPSuspendWork(void* pool, unsigned long category)
{
    return suspendWork(pool, category);
}

long THPSuspendWork(void* pool, const wchar_t* category, const wchar_t* work)
{
    return suspendWork(pool, category, work);
}

long THPSuspendWork(void* pool, unsigned long category, unsigned long work)
{
    return suspendWork(pool, category, work);
}

long THPResumeWork(void* pool, const wchar_t* category)
{
    return resumeWork(pool, category);
}

long THPResumeWork(void* pool, unsigned long category)
{
    return resumeWork(pool, category);
}

long THPResumeWork(void* pool, const wchar_t* category, const wchar_t* work)
{
    return resumeWork(pool, category, work);
}

long THPResumeWork(void* pool, unsigned long category, unsigned long work)
{
    return resumeWork(pool, category, work);
}

long THPCancelWork(void* pool)
{
    return withPool(PLACE(kThreadPoolApi, "THPCancelWork", __LINE__), pool,
                    [](ThreadPool& object) { return object.cancelWork(); });
}

long THPCancelWork(void* pool, const wchar_t* category, IThreadPool::OperationType operation)
{
    return cancelWork(pool, operation, category);
}

long THPCancelWork(void* pool, unsigned long category, IThreadPool::OperationType operation)
{
    return cancelWork(pool, operation, category);
}

long THPCancelWork(void* pool, const wchar_t* category, const wchar_t* work,
                   IThreadPool::OperationType operation)
{
    return cancelWork(pool, operation, category, work);
}

long THPCancelWork(void* pool, unsigned long category, unsigned long work,
                   IThreadPool::OperationType operation)
{
    return cancelWork(pool, operation, category, work);
}

long THPCancelWork(void* pool, const wchar_t* category, const wchar_t* work, void* instance,
                   IThreadPool::OperationType operation)
{
    return cancelWork(pool, operation, category, work, instance);
}

long THPCancelWork(void* pool, unsigned long category, unsigned long work, void* instance,
                   IThreadPool::OperationType operation)
{
    return cancelWork(pool, operation, category, work, instance);
}

long THPWait(void* pool, const wchar_t* category, unsigned long timeout, void* extraHandle)
{
    return waitForWork(pool, timeout, extraHandle, category);
}

long THPWait(void* pool, unsigned long category, unsigned long timeout, void* extraHandle)
{
    return waitForWork(pool, timeout, extraHandle, category);
}

long THPWait(void* pool, const wchar_t* category, const wchar_t* work, unsigned long timeout,
             void* extraHandle)
{
    return waitForWork(pool, timeout, extraHandle, category, work);
}

long THPWait(void* pool, unsigned long category, unsigned long work, unsigned long timeout, void* extraHandle)
{
    return waitForWork(pool, timeout, extraHandle, category, work);
}

long THPWait(void* pool, void* instance, const wchar_t* category, const wchar_t* work, unsigned long timeout,
             void* extraHandle)
{
    return waitForWork(pool, timeout, extraHandle, category, work, instance);
}

long THPWait(void* pool, void* instance, unsigned long category, unsigned long work, unsigned long timeout,
             void* extraHandle)
{
    return waitForWork(pool, timeout, extraHandle, category, work, instance);
}

long THPGetWorkResult(void* pool, const wchar_t* category, const wchar_t* work, long& result)
{
    return getWorkResult(pool, result, category, work);
}

long THPGetWorkResult(void* pool, unsigned long category, unsigned long work, long& result)
{
    return getWorkResult(pool, result, category, work);
}

long THPGetWorkResult(void* pool, const wchar_t* category, const wchar_t* work, void* instance, long& result)
{
    return getWorkResult(pool, result, category, work, instance);
}

long THPGetWorkResult(void* pool, unsigned long category, unsigned long work, void* instance, long& result)
{
    return getWorkResult(pool, result, category, work, instance);
}

long THPIsRunning(void* pool, const wchar_t* category, int& running)
{
    return isWorkRunning(pool, running, category);
}

long THPIsRunning(void* pool, unsigned long category, int& running)
{
    return isWorkRunning(pool, running, category);
}

long THPIsRunning(void* pool, const wchar_t* category, const wchar_t* work, int& running)
{
    return isWorkRunning(pool, running, category, work);
}

long THPIsRunning(void* pool, unsigned long category, unsigned long work, int& running)
{
    return isWorkRunning(pool, running, category, work);
}

long THPIsRunning(void* pool, const wchar_t* category, const wchar_t* work, void* instance, int& running)
{
    return isWorkRunning(pool, running, category, work, instance);
}

long THPIsRunning(void* pool, unsigned long category, unsigned long work, void* instance, int& running)
{
    return isWorkRunning(pool, running, category, work, instance);
}
