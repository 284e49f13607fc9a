// What goes wrong only when two threads meet in one moment: the moment is held open by a replaced import.

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <functional>
#include <set>
#include <thread>
#include <utility>
#include <vector>

#include "core/win32/utils/communication/api.h"
#include "core/win32/utils/threadpool/api.h"
#include "support/ImportReplacement.h"
#include "support/Process.h"

namespace {
using Option = ITHPWorkItem::ScheduleOption;
using Operation = IThreadPool::OperationType;
using Multiple = CountedImport<"WaitForMultipleObjects", decltype(&WaitForMultipleObjects)>;
using Sleeping = CountedImport<"SleepConditionVariableSRW", decltype(&SleepConditionVariableSRW)>;

struct Work : ITHPWorkItem
{
    explicit Work(std::function<void(HANDLE)> work) : body(std::move(work)) {}
    long operator()(IThreadContext&, void* cancelEvent) override
    {
        body(cancelEvent);
        return ERROR_SUCCESS;
    }
    std::function<void(HANDLE)> body;
};

struct Handler : IMessageHandler
{
    using IMessageHandler::onMessage;
    explicit Handler(std::function<void()> work) : body(std::move(work)) {}
    void onMessage(const MessageW&, MessageW&, void*) override { body(); }
    std::function<void()> body;
};

using Pool = SmartHandle<THPCloseThreadpool>;

long queue(const Pool& pool, unsigned long category, ITHPWorkItem& work)
{
    return THPQueueWork(pool.get(), category, 1UL, work, HashMessageW(), Option::AtEnd, nullptr);
}

/// A place where the first thread that is not the test's stops until it may go on.
struct Window
{
    void hold()
    {
        if (GetCurrentThreadId() == owner || used.exchange(true))
            return;
        reached.set();
        EXPECT_TRUE(goOn.wait());
    }
    const DWORD owner = GetCurrentThreadId();
    std::atomic<bool> used{false};
    TestEvent reached;
    TestEvent goOn;
};
} // namespace

// Work or a message arrives after its thread has found nothing and before it waits.
TEST(Windows, LoseNoWakeUp)
{
    for (const bool topics : {false, true}) {
        Window window;
        Multiple waits(sysmaintModule());
        waits.setHook([&](auto original, auto... arguments) {
            window.hold();
            return original(arguments...);
        });
        std::atomic<int> runs{0};
        const Pool pool(THPCreateThreadPool(L"window"));
        const TopicHandle topic = CreateMessageTopic(L"window");
        Work work([&](HANDLE) { ++runs; });
        Handler handler([&] { ++runs; });
        ASSERT_EQ(THPCreateCategory(pool.get(), 1UL, THPCategoryOptions(1, 0, 0, 0)), ERROR_SUCCESS);
        ASSERT_EQ(TopicSubscribe(topic, handler), ERROR_SUCCESS);
        const auto add = [&] { return topics ? TopicPostMessage(topic, MessageW()) : queue(pool, 1, work); };
        ASSERT_EQ(add(), ERROR_SUCCESS);
        ASSERT_TRUE(window.reached.wait());
        ASSERT_EQ(add(), ERROR_SUCCESS);
        window.goOn.set();
        EXPECT_EQ(topics ? TopicConsumeAll(topic, 60000) : THPWait(pool.get(), 1UL, 60000UL, nullptr),
                  ERROR_SUCCESS);
        EXPECT_EQ(runs, 2);
    }
}

TEST(Windows, TimeIsForAllWaitingTogether)
{
    std::vector<DWORD> given; // to the waits of this thread
    const DWORD own = GetCurrentThreadId();
    TestEvent goOn;
    const auto look = [&](DWORD timeout) {
        if (GetCurrentThreadId() != own)
            return;
        given.push_back(timeout);
        Sleep(40);
        goOn.set();
    };
    Multiple waits(sysmaintModule());
    waits.setHook([&](auto original, DWORD count, const HANDLE* handles, BOOL all, DWORD timeout) {
        look(timeout);
        return original(count, handles, all, timeout);
    });
    Sleeping sleeps(sysmaintModule());
    sleeps.setHook([&](auto original, auto* variable, auto* lock, DWORD timeout, ULONG flags) {
        look(timeout);
        return original(variable, lock, timeout, flags);
    });
    const Pool pool(THPCreateThreadPool(L"window"));
    TestEvent mayEnd;
    Work first([&](HANDLE) { EXPECT_TRUE(goOn.wait()); });
    Work second([&](HANDLE) { EXPECT_TRUE(mayEnd.wait()); });
    ASSERT_EQ(queue(pool, 1, first), ERROR_SUCCESS);
    ASSERT_EQ(queue(pool, 1, second), ERROR_SUCCESS);
    EXPECT_EQ(THPWait(pool.get(), 1UL, 300UL, nullptr), WAIT_TIMEOUT);
    ASSERT_EQ(given.size(), 2U);
    EXPECT_LE(given[1] + 25, given[0]);
    mayEnd.set();

    // A posted delivery and then a sent one are waited for, and the subscriber is not forgotten.
    given.clear();
    const TopicHandle topic = CreateMessageTopic(L"window");
    TestEvent posted;
    TestEvent sent;
    TestEvent sentMayEnd;
    Handler handler([&] {
        const bool isSent = WaitForSingleObject(posted.get(), 0) == WAIT_OBJECT_0;
        (isSent ? sent : posted).set();
        EXPECT_TRUE(isSent ? sentMayEnd.wait() : goOn.wait());
    });
    ResetEvent(goOn.get());
    ASSERT_EQ(TopicSubscribe(topic, handler), ERROR_SUCCESS);
    ASSERT_EQ(TopicPostMessage(topic, MessageW()), ERROR_SUCCESS);
    ASSERT_TRUE(posted.wait());
    std::thread sender([&] {
        MessageW reply;
        EXPECT_EQ(TopicSendMessage(topic, MessageW(), reply, nullptr), ERROR_SUCCESS);
    });
    ASSERT_TRUE(sent.wait());
    EXPECT_EQ(TopicUnsubscribe(topic, handler, 300), WAIT_TIMEOUT);
    ASSERT_GE(given.size(), 2U);
    EXPECT_LE(given[1] + 25, given[0]);
    // The delivery that ends wakes who unsubscribes and is already waiting.
    sleeps.setHook([&](auto original, auto... arguments) {
        if (GetCurrentThreadId() == own)
            sentMayEnd.set();
        return original(arguments...);
    });
    EXPECT_EQ(TopicUnsubscribe(topic, handler, INFINITE), ERROR_SUCCESS);
    sender.join();
}

TEST(Windows, AStopReleasesWhoWaitsForTheEmptiedQueue)
{
    const TopicHandle topic = CreateMessageTopic(L"window");
    TestEvent inside;
    TestEvent mayEnd;
    Handler handler([&] {
        inside.set();
        EXPECT_TRUE(mayEnd.wait());
    });
    ASSERT_EQ(TopicSubscribe(topic, handler), ERROR_SUCCESS);
    ASSERT_EQ(TopicPostMessage(topic, MessageW()), ERROR_SUCCESS);
    ASSERT_TRUE(inside.wait());
    Window window;
    Sleeping sleeps(sysmaintModule());
    sleeps.setHook([&](auto original, auto... arguments) {
        window.reached.set();
        return original(arguments...);
    });
    std::thread waiter([&] { EXPECT_EQ(TopicConsumeAll(topic, INFINITE), ERROR_CANCELLED); });
    ASSERT_TRUE(window.reached.wait());
    EXPECT_EQ(TopicStopConsumer(topic), ERROR_SUCCESS);
    waiter.join();
    mayEnd.set();
}

// A worker inside the library, here with the lock of the table of topics, stops when it comes out.
TEST(Windows, NoWorkerIsSuspendedInsideTheLibraryOrAHeap)
{
    const Pool pool(THPCreateThreadPool(L"window"));
    TestEvent out;
    Window window;
    Work work([&](HANDLE) {
        EXPECT_FALSE(OpenMessageTopic(L"none").isValid());
        out.set();
        while (window.goOn.wait() && WaitForSingleObject(window.reached.get(), 0) == WAIT_OBJECT_0)
            Sleep(1);
    });
    {
        CountedImport<"ReleaseMutex", decltype(&ReleaseMutex)> releases(sysmaintModule());
        releases.setHook([&](auto original, auto... arguments) {
            window.hold();
            return original(arguments...);
        });
        ASSERT_EQ(queue(pool, 1, work), ERROR_SUCCESS);
        ASSERT_TRUE(window.reached.wait());
        EXPECT_EQ(THPSuspendWork(pool.get(), 1UL), ERROR_SUCCESS);
        window.goOn.set();
        EXPECT_FALSE(OpenMessageTopic(L"none").isValid()) << "the lock is free";
        EXPECT_EQ(WaitForSingleObject(out.get(), 50), static_cast<DWORD>(WAIT_TIMEOUT));
        EXPECT_EQ(THPResumeWork(pool.get(), 1UL), ERROR_SUCCESS);
        ASSERT_TRUE(out.wait());
    }
    // Outside, it is suspended while the locks of all heaps are held, and they are given back.
    const HANDLE own = HeapCreate(0, 0, 0);
    std::multiset<HANDLE> held;
    bool all = false;
    CountedImport<"HeapLock", decltype(&HeapLock)> locks(sysmaintModule());
    locks.setHook([&](auto original, HANDLE heap) {
        held.insert(heap);
        return original(heap);
    });
    CountedImport<"HeapUnlock", decltype(&HeapUnlock)> unlocks(sysmaintModule());
    unlocks.setHook([&](auto original, HANDLE heap) {
        const BOOL done = original(heap);
        held.erase(held.find(heap));
        return done;
    });
    CountedImport<"SuspendThread", decltype(&SuspendThread)> suspends(sysmaintModule());
    suspends.setHook([&](auto original, HANDLE thread) {
        HANDLE heaps[256];
        const DWORD count = GetProcessHeaps(256, heaps);
        all = std::all_of(heaps, heaps + count, [&](HANDLE heap) { return held.contains(heap); });
        return original(thread);
    });
    held.insert(nullptr); // no allocation for the first node
    EXPECT_EQ(THPSuspendWork(pool.get(), 1UL), ERROR_SUCCESS);
    EXPECT_TRUE(all);
    EXPECT_EQ(held.size(), 1U);
    EXPECT_EQ(THPResumeWork(pool.get(), 1UL), ERROR_SUCCESS);
    ResetEvent(window.reached.get());
    EXPECT_EQ(THPWait(pool.get(), 1UL, INFINITE, nullptr), ERROR_SUCCESS);
    HeapDestroy(own);
}

// With the loader lock in a suspended thread no other one begins or ends, but work can be queued and resumed.
TEST(Windows, QueuesAndResumesBesideAThreadThatHoldsTheLoaderLock)
{
    const HMODULE system = GetModuleHandleW(L"ntdll.dll");
    const auto lock = reinterpret_cast<LONG(NTAPI*)(ULONG, ULONG*, ULONG_PTR*)>(
        reinterpret_cast<void*>(GetProcAddress(system, "LdrLockLoaderLock")));
    const auto unlock = reinterpret_cast<LONG(NTAPI*)(ULONG, ULONG_PTR)>(
        reinterpret_cast<void*>(GetProcAddress(system, "LdrUnlockLoaderLock")));
    const Pool pool(THPCreateThreadPool(L"window"));
    TestEvent locked;
    TestEvent mayEnd;
    std::atomic<int> runs{0};
    Work loading([&](HANDLE) {
        ULONG_PTR cookie = 0;
        lock(0, nullptr, &cookie);
        locked.set();
        EXPECT_TRUE(mayEnd.wait());
        unlock(0, cookie);
    });
    Work other([&](HANDLE) { ++runs; });
    ASSERT_EQ(queue(pool, 1, loading), ERROR_SUCCESS);
    ASSERT_TRUE(locked.wait());
    ASSERT_EQ(THPSuspendWork(pool.get(), 1UL, 1UL), ERROR_SUCCESS);
    EXPECT_EQ(queue(pool, 2, other), ERROR_SUCCESS);
    EXPECT_EQ(THPWait(pool.get(), 2UL, 20UL, nullptr), WAIT_TIMEOUT);
    EXPECT_EQ(THPCancelWork(pool.get(), 2UL, Operation::CancelAndWait), ERROR_SUCCESS) << "it has not begun";
    EXPECT_EQ(queue(pool, 2, other), ERROR_SUCCESS);
    EXPECT_EQ(THPResumeWork(pool.get(), 1UL, 1UL), ERROR_SUCCESS);
    mayEnd.set();
    EXPECT_EQ(THPWait(pool.get(), 2UL, INFINITE, nullptr), ERROR_SUCCESS);
    EXPECT_EQ(runs, 1);
}

// While a thread is being started, other work relies on it. Its start fails.
TEST(Windows, WorkIsLookedAfterWhenTheThreadItReliesOnCannotStart)
{
    CountedImport<"CreateThread", decltype(&CreateThread)> threads(sysmaintModule());
    for (const long failures : {1L, 2L}) {
        const Pool pool(THPCreateThreadPool(L"window"));
        ASSERT_EQ(THPCreateCategory(pool.get(), 1UL, THPCategoryOptions(1, 0, 0, 0)), ERROR_SUCCESS);
        std::atomic<int> runs{0};
        Work work([&](HANDLE) { ++runs; });
        long call = 0;
        threads.setHook([&](auto original, auto... arguments) {
            if (++call == 1) {
                EXPECT_EQ(THPQueueWork(pool.get(), 1UL, 2UL, work, HashMessageW(), Option::AtEnd, nullptr),
                          ERROR_SUCCESS);
            }
            SetLastError(1450);
            return call <= failures ? nullptr : original(arguments...);
        });
        EXPECT_EQ(queue(pool, 1, work), 1450);
        EXPECT_EQ(THPWait(pool.get(), 1UL, 2UL, 60000UL, nullptr), ERROR_SUCCESS);
        long result = -1;
        EXPECT_EQ(THPGetWorkResult(pool.get(), 1UL, 2UL, result), ERROR_SUCCESS);
        EXPECT_EQ(result, failures == 1 ? 0 : 1450);
        EXPECT_EQ(runs, failures == 1 ? 1 : 0);
    }
    threads.setHook(nullptr);
}

// Arguments may be of a class whose destructor calls the pool: here the freeing of their memory does.
TEST(Windows, ArgumentsDieOutsideEveryLock)
{
    const Pool pool(THPCreateThreadPool(L"window"));
    ASSERT_EQ(THPCreateCategory(pool.get(), 1UL, THPCategoryOptions(1, 0, 0, 0)), ERROR_SUCCESS);
    HashMessageW arguments;
    arguments.setParameter(L"text", L"a text that stands on the heap");
    std::atomic<int> freed{0};
    thread_local bool busy = false;
    TestEvent mayEnd;
    Work work([&](HANDLE cancelEvent) {
        const HANDLE either[] = {mayEnd.get(), cancelEvent};
        WaitForMultipleObjects(2, either, FALSE, INFINITE);
    });
    const auto add = [&] {
        return THPQueueWork(pool.get(), 1UL, 1UL, work, arguments, Option::AtEnd, nullptr);
    };
    ASSERT_EQ(add(), ERROR_SUCCESS);
    ASSERT_EQ(add(), ERROR_SUCCESS);
    ASSERT_EQ(add(), ERROR_SUCCESS);
    CountedImport<"HeapFree", decltype(&HeapFree)> frees(sysmaintModule());
    frees.setHook([&](auto original, auto... arguments) {
        if (!busy) {
            busy = true;
            int running = 0;
            freed += THPIsRunning(pool.get(), 1UL, running) == ERROR_SUCCESS ? 1 : 0;
            busy = false;
        }
        return original(arguments...);
    });
    mayEnd.set(); // one ends, the others are cancelled
    EXPECT_EQ(THPCancelWork(pool.get(), 1UL, Operation::CancelAndWait), ERROR_SUCCESS);
    EXPECT_GE(freed, 3);
    frees.setHook(nullptr);
}

TEST(Endings, WorkMayEndItsThread)
{
    const Pool pool(THPCreateThreadPool(L"ending"));
    ASSERT_EQ(THPCreateCategory(pool.get(), 1UL, THPCategoryOptions(1, 0, 0, 0)), ERROR_SUCCESS);
    std::atomic<int> runs{0};
    TestEvent mayEnd;
    Work last([&](HANDLE) {
        EXPECT_TRUE(mayEnd.wait());
        ExitThread(0);
    });
    Work next([&](HANDLE) { ++runs; });
    ASSERT_EQ(queue(pool, 1, last), ERROR_SUCCESS);
    ASSERT_EQ(THPQueueWork(pool.get(), 1UL, 2UL, next, HashMessageW(), Option::AtEnd, nullptr),
              ERROR_SUCCESS);
    mayEnd.set();
    EXPECT_EQ(THPWait(pool.get(), 1UL, 60000UL, nullptr), ERROR_SUCCESS);
    EXPECT_EQ(runs, 1) << "on a new thread";
    long result = 0;
    EXPECT_EQ(THPGetWorkResult(pool.get(), 1UL, 1UL, result), ERROR_SUCCESS);
    EXPECT_EQ(result, 574);
}

// The last handle goes while a worker is in a call on the pool, a handler in one on its topic.
TEST(Endings, AClosedPoolOrTopicRunsNothingAnyMore)
{
    for (const bool topics : {false, true}) {
        Pool pool(THPCreateThreadPool(L"ending"));
        TopicHandle topic = CreateMessageTopic(L"ending");
        TestEvent inside;
        std::atomic<bool> ended{false};
        Multiple waits(sysmaintModule());
        waits.setHook([&](auto original, DWORD count, auto... arguments) {
            if (count == 1) // for one item
                inside.set();
            return original(count, arguments...);
        });
        void* const handles[] = {pool.get(), topic.get()};
        const auto stay = [&] {
            inside.set();
            Sleep(100);
            ended = true;
        };
        Work until([&](HANDLE cancelEvent) { WaitForSingleObject(cancelEvent, INFINITE); });
        Work work([&](HANDLE) { // waits for other work, which the close alone ends
            THPQueueWork(handles[0], 2UL, 1UL, until, HashMessageW(), Option::AtEnd, nullptr);
            EXPECT_EQ(THPWait(handles[0], 2UL, INFINITE, nullptr), ERROR_CANCELLED);
            stay();
        });
        bool nested = false;
        Handler handler([&] { // sends to itself
            if (std::exchange(nested, true))
                return stay();
            TopicHandle own(handles[1]);
            MessageW reply;
            EXPECT_EQ(TopicSendMessage(own, MessageW(), reply, nullptr), ERROR_SUCCESS);
            static_cast<void>(own.release());
        });
        ASSERT_EQ(TopicSubscribe(topic, handler), ERROR_SUCCESS);
        ASSERT_EQ(topics ? TopicPostMessage(topic, MessageW()) : queue(pool, 1, work), ERROR_SUCCESS);
        ASSERT_TRUE(inside.wait());
        EXPECT_NE(topics ? CloseMessageTopic(topic.release()) : THPCloseThreadpool(pool.release()), 0);
        EXPECT_TRUE(ended) << topics;
        waits.setHook(nullptr);
    }
}

TEST(Endings, TwoThatCloseEachOtherEnd)
{
    for (const bool topics : {false, true}) {
        void* handles[2] = {};
        TestEvent arrived[2];
        TestEvent ended[2];
        const auto body = [&](int self) {
            arrived[self].set();
            EXPECT_TRUE(arrived[1 - self].wait());
            topics ? CloseMessageTopic(handles[1 - self]) : THPCloseThreadpool(handles[1 - self]);
            ended[self].set();
        };
        Work works[] = {Work([&](HANDLE) { body(0); }), Work([&](HANDLE) { body(1); })};
        Handler handlers[] = {Handler([&] { body(0); }), Handler([&] { body(1); })};
        for (int i : {0, 1}) {
            const wchar_t* name = i == 0 ? L"ending 0" : L"ending 1";
            if (topics) {
                TopicHandle topic = CreateMessageTopic(name);
                ASSERT_EQ(TopicSubscribe(topic, handlers[i]), ERROR_SUCCESS);
                handles[i] = topic.release();
            } else {
                handles[i] = THPCreateThreadPool(name);
            }
        }
        for (int i : {0, 1}) {
            TopicHandle topic(topics ? handles[i] : nullptr);
            EXPECT_EQ(
                topics ? TopicPostMessage(topic, MessageW())
                       : THPQueueWork(handles[i], 1UL, 1UL, works[i], HashMessageW(), Option::AtEnd, nullptr),
                ERROR_SUCCESS);
            static_cast<void>(topic.release());
        }
        for (const TestEvent& event : ended) {
            if (!event.wait())
                TerminateProcess(GetCurrentProcess(), 3); // they would never come back
        }
        for (int attempt = 0; attempt < 600 && OpenMessageTopic(L"ending 0").isValid(); ++attempt)
            Sleep(10);
    }
}
