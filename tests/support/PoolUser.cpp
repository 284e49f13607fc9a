// A library that uses the one under test like a caller, so the two can be unloaded together.

#include "core/win32/utils/communication/api.h"
#include "core/win32/utils/threadpool/api.h"

#define POOL_USER_EXPORT extern "C" __declspec(dllexport)

namespace {
using Pool = SmartHandle<THPCloseThreadpool>;
TopicHandle openTopic;
Pool openPool;
IMessageHandler* subscribed = nullptr;

long queue(const Pool& pool, THPWorkFunction function)
{
    return THPQueueWork(pool.get(), 1UL, 1UL, function, HashMessageW(), ITHPWorkItem::ScheduleOption::AtEnd,
                        nullptr);
}

/// What the destructors of a library's static objects may do in the loader lock. Called at the end of the
/// library or of the process, before the handles above are closed.
struct Ending
{
    ~Ending()
    {
        if (openPool.get() == nullptr)
            return;
        TopicUnsubscribe(openTopic, *subscribed, INFINITE);
        TopicConsumeAll(openTopic, INFINITE);
        THPWait(openPool.get(), 1UL, INFINITE, nullptr);
        THPCancelWork(openPool.get(), 1UL, IThreadPool::OperationType::CancelAndWait);
        queue(Pool(THPCreateThreadPool(L"late")), [](IThreadContext&, void*) -> long { return 0; });
    }
} ending;
} // namespace

/// Runs work on a pool of its own, which is closed; without work the pool stays open and has no thread.
POOL_USER_EXPORT long runOnce(THPWorkFunction function)
{
    Pool pool(THPCreateThreadPool(L"unload"));
    if (function == nullptr)
        return pool.release() == nullptr;
    const long code = queue(pool, function) + THPWait(pool.get(), 1UL, INFINITE, nullptr);
    return THPCloseThreadpool(pool.release()) != 0 ? code : -1;
}

/// Starts work and a delivery, and leaves the pool and the topic to the static objects.
POOL_USER_EXPORT long begin(THPWorkFunction function, IMessageHandler* handler)
{
    subscribed = handler;
    openPool.reset(THPCreateThreadPool(L"unload"));
    openTopic = CreateMessageTopic(L"unload");
    return queue(openPool, function) + TopicSubscribe(openTopic, *handler) +
           TopicPostMessage(openTopic, MessageW(L"unload", 1));
}

/// Suspends the work.
POOL_USER_EXPORT long suspend()
{
    return THPSuspendWork(openPool.get(), 1UL);
}

/// Keeps the topic and the pool open forever: nobody has their handles now.
POOL_USER_EXPORT void forget()
{
    static_cast<void>(openTopic.release());
    static_cast<void>(openPool.release());
}
