// A library that uses the one under test as callers do, so that the two can be unloaded together.

#include <utility>

#include "core/win32/utils/communication/api.h"
#include "core/win32/utils/threadpool/api.h"

#define POOL_USER_EXPORT extern "C" __declspec(dllexport)

namespace {
TopicHandle openTopic;
SmartHandle<THPCloseThreadpool> openPool;
IMessageHandler* subscribed = nullptr;

/// What the destructors of a library's static objects may do, in the loader lock: called at the end of the
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
        const SmartHandle<THPCloseThreadpool> late(THPCreateThreadPool(L"late"));
        const THPWorkFunction work = [](IThreadContext&, void*) -> long { return 0; };
        THPQueueWork(late.get(), 1UL, 1UL, work, HashMessageW(), ITHPWorkItem::ScheduleOption::AtEnd,
                     nullptr);
    }
} ending;
} // namespace

POOL_USER_EXPORT void* createPool()
{
    return THPCreateThreadPool(L"unload");
}

/// Leaves the pool to the static objects.
POOL_USER_EXPORT void keepPool(void* pool)
{
    openPool.reset(pool);
}

POOL_USER_EXPORT long queue(void* pool, THPWorkFunction function)
{
    return THPQueueWork(pool, 1UL, 1UL, function, HashMessageW(), ITHPWorkItem::ScheduleOption::AtEnd,
                        nullptr);
}

POOL_USER_EXPORT long wait(void* pool)
{
    return THPWait(pool, 1UL, INFINITE, nullptr);
}

POOL_USER_EXPORT int closePool(void* pool)
{
    return THPCloseThreadpool(pool);
}

POOL_USER_EXPORT long openAndPost(IMessageHandler* handler)
{
    openTopic = CreateMessageTopic(L"unload");
    subscribed = handler;
    if (const long code = TopicSubscribe(openTopic, *handler); code != ERROR_SUCCESS)
        return code;
    return TopicPostMessage(openTopic, MessageW(L"unload", 1));
}

/// Keeps the topic and the pool open for ever: nobody has their handles any more.
POOL_USER_EXPORT void forget()
{
    static_cast<void>(openTopic.release());
    static_cast<void>(openPool.release());
}
