// A library that uses the one under test as callers do, so that the two can be unloaded together.

#include <utility>

#include "core/win32/utils/communication/api.h"
#include "core/win32/utils/threadpool/api.h"

#define POOL_USER_EXPORT extern "C" __declspec(dllexport)

namespace {
TopicHandle openTopic;
} // namespace

POOL_USER_EXPORT void* createPool()
{
    return THPCreateThreadPool(L"unload");
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
    if (const long code = TopicSubscribe(openTopic, *handler); code != ERROR_SUCCESS)
        return code;
    return TopicPostMessage(openTopic, MessageW(L"unload", 1));
}

/// Keeps the topic open for ever: nobody has its handle any more.
POOL_USER_EXPORT void forgetTopic()
{
    static_cast<void>(openTopic.release());
}

POOL_USER_EXPORT void closeTopic()
{
    openTopic.reset();
}
