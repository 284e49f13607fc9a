#include "support/Pools.h"

// A failing event or wait is reported to the caller, and nothing is lost, run twice or cancelled by it.
TEST(ThreadPoolFaults, FailingSignalsAndWaitsAreReported)
{
    Replaced<"CreateEventW", decltype(&CreateEventW)> events;
    Replaced<"SetEvent", decltype(&SetEvent)> sets;
    Replaced<"ResetEvent", decltype(&ResetEvent)> resets;
    Replaced<"WaitForMultipleObjects", decltype(&WaitForMultipleObjects)> waits;
    Replaced<"SuspendThread", decltype(&SuspendThread)> suspends;
    Replaced<"ResumeThread", decltype(&ResumeThread)> resumes;
    Blocker done;
    done.goOn.set();
    Blocker blocker;
    TestPool pool;
    ASSERT_EQ(pool.run(1, done), ERROR_SUCCESS); // now the thread waits for work
    sets.failCall(1, FALSE, 1450);
    EXPECT_EQ(pool.queue(1, done), 1450) << "handing over";
    EXPECT_TRUE(pool.isRunning(1) == 0 && done.begun == 1);
    for (int i = 2; i < 6; ++i) {
        EXPECT_TRUE(pool.run(1, done) == ERROR_SUCCESS && done.begun == i);
        resets.failCall(i == 2 ? 1 : 0, FALSE, 1450); // after waking
    }
    waits.reset();
    Sleep(50);
    EXPECT_LE(waits.calls(), 5) << "a thread without work sleeps";
    ASSERT_TRUE(pool.begins(2, blocker));
    waits.failCall(1, WAIT_FAILED, 1450);
    EXPECT_EQ(pool.wait(2), 1450) << "waiting";
    EXPECT_EQ(pool.wait(2, 0), WAIT_TIMEOUT);
    suspends.failCall(1, static_cast<DWORD>(-1), 1450);
    EXPECT_EQ(THPSuspendWork(pool.handle, kCategory, 2UL), 1450);
    EXPECT_EQ(THPSuspendWork(pool.handle, kCategory, 2UL), ERROR_SUCCESS);
    resumes.failCall(1, static_cast<DWORD>(-1), 1450);
    EXPECT_EQ(THPResumeWork(pool.handle, kCategory, 2UL), 1450);
    EXPECT_EQ(THPResumeWork(pool.handle, kCategory, 2UL), ERROR_SUCCESS);
    sets.failCall(1, FALSE, 1450);
    EXPECT_TRUE(pool.cancel(2, Operation::CancelAndReturn) == 1450 && blocker.ended == 0);
    resets.failCall(1, FALSE, 1450); // the event of the cancelled: it must not cancel the next
    EXPECT_EQ(pool.cancel(2), ERROR_SUCCESS);
    Work clean([](IThreadContext&, HANDLE cancel) -> long {
        return static_cast<long>(WaitForSingleObject(cancel, 0));
    });
    EXPECT_TRUE(pool.run(3, clean) == ERROR_SUCCESS && pool.result(3) == WAIT_TIMEOUT);
}

// A close does not hang when work cannot be told to end: it retries, and finally reports it.
TEST(ThreadPoolFaults, ACloseThatCannotSignalEnds)
{
    for (const bool topics : {false, true})
        for (const bool once : {true, false}) {
            const DWORD own = GetCurrentThreadId();
            std::atomic<ULONGLONG> passed{0};
            Replaced<"SetEvent", decltype(&SetEvent)> sets;
            const Replaced<"GetTickCount64", decltype(&GetTickCount64)> clock(
                [&](auto original) { return original() + (once ? 0 : passed += 3000); });
            Blocker blocker;
            const TestEvent inside, mayEnd;
            Handler handler([&] {
                inside.set();
                EXPECT_TRUE(mayEnd.wait());
            });
            const ProcessCounts before = ProcessCounts::now();
            TestPool pool;
            TopicHandle topic = topicOf(handler);
            ASSERT_TRUE(topics ? post(topic) == ERROR_SUCCESS && inside.wait() : pool.begins(1, blocker));
            sets.setHook(failing(FALSE, 1450, [&, left = once ? 1 : 1000](HANDLE) mutable {
                return GetCurrentThreadId() == own && left-- > 0;
            }));
            if (topics && once)
                mayEnd.set();
            SetLastError(0);
            const int closed = topics ? CloseMessageTopic(topic.release())
                                      : THPCloseThreadpool(std::exchange(pool.handle, nullptr));
            EXPECT_EQ(closed != 0, once);
            EXPECT_EQ(once ? 1450U : GetLastError(), 1450U);
            EXPECT_EQ(blocker.ended, topics || !once ? 0 : 1);
            sets.setHook(nullptr);
            pool.close();
            topic.reset();
            blocker.goOn.set();
            mayEnd.set();
            EXPECT_TRUE(before.isReachedAgain()) << "the thread finds out by itself";
        }
}

// What a thread that cannot start was given instead of cancelled work stays the next, and a category stays
// that other work has found.
TEST(ThreadPoolFaults, NothingIsLostOrExchangedWhenAThreadCannotStart)
{
    std::vector<unsigned long> order;
    Work work([&](IThreadContext& context, HANDLE) -> long { return order.push_back(context.getID()), 0; });
    const TestPool pool;
    std::function<long()> meanwhile = [&] {
        return pool.queue(2, work) + pool.queue(3, work) + pool.cancel(1);
    };
    Replaced<"CreateThread", decltype(&CreateThread)> threads;
    threads.setHook([&](auto original, auto... arguments) {
        if (threads.calls() != 1)
            return original(arguments...);
        EXPECT_EQ(meanwhile(), ERROR_SUCCESS);
        SetLastError(1450);
        return HANDLE{};
    });
    EXPECT_TRUE(pool.queue(1, work) == 1450 && pool.wait(3) == ERROR_SUCCESS);
    EXPECT_EQ(order, (std::vector<unsigned long>{2, 3}));
    Blocker other;
    threads.reset();
    meanwhile = [&] { return pool.queue(1, other, Option::AtEnd, nullptr, 5); };
    EXPECT_EQ(pool.queue(1, work, Option::AtEnd, nullptr, 5), 1450);
    EXPECT_EQ(THPCancelWork(pool.handle, 5UL, Operation::CancelAndWait), ERROR_SUCCESS);
}

// Its thread is to stop before its first work, and ends instead.
TEST(ThreadPoolFaults, APoolClosedWhileAThreadStartsLeavesNone)
{
    Work work([] {});
    const ProcessCounts before = ProcessCounts::now();
    for (int i = 0; i < 10; ++i) { // threads of earlier tests may just be ending
        TestPool pool(THPCategoryOptions(1, THPCategoryOptions::kSuspended, 0, 0));
        const Replaced<"CreateThread", decltype(&CreateThread)> threads(
            after([&](auto...) { pool.close(); }));
        EXPECT_EQ(pool.queue(1, work), ERROR_SUCCESS);
    }
    EXPECT_TRUE(before.isReachedAgain());
}

// The first of several categories cannot be told.
TEST(ThreadPoolFaults, NoCategoryHidesTheFailureOfAnother)
{
    Blocker untold, told;
    std::atomic<HANDLE> refused{nullptr};
    untold.body = [&, body = untold.body](IThreadContext& context, HANDLE cancel) {
        refused = cancel;
        return body(context, cancel);
    };
    TestPool pool;
    ASSERT_TRUE(pool.begins(1, untold));
    ASSERT_EQ(pool.queue(1, told, Option::AtEnd, nullptr, 2), ERROR_SUCCESS);
    ASSERT_TRUE(told.started.wait());
    const Replaced<"SetEvent", decltype(&SetEvent)> sets(
        failing(FALSE, 1450, [&](HANDLE event) { return event == refused; }));
    EXPECT_EQ(THPCancelWork(pool.handle), 1450);
    std::atomic<ULONGLONG> passed{0};
    const Replaced<"GetTickCount64", decltype(&GetTickCount64)> clock(
        [&](auto original) { return original() + (passed += 1000); });
    SetLastError(0);
    EXPECT_TRUE(THPCloseThreadpool(std::exchange(pool.handle, nullptr)) == 0 && GetLastError() == 1450);
    untold.goOn.set();
    EXPECT_TRUE(comesTrue([&] { return untold.ended == 1 && told.ended == 1; }));
}

// Where each thread may hold a lock of the system's, all of the time.
TEST(ThreadPoolFaults, WorkQueuedDuringASuspendingThatFailsBegins)
{
    std::atomic<ULONGLONG> passed{0};
    const Replaced<"GetThreadContext", decltype(&GetThreadContext)> contexts(kEachCall, FALSE, 5);
    const Replaced<"GetTickCount64", decltype(&GetTickCount64)> clock(
        [&](auto original) { return original() + passed; });
    Blocker running;
    Work next([] {});
    const TestPool pool{THPCategoryOptions()};
    const Replaced<"Sleep", decltype(&Sleep)> pauses([&](auto, DWORD) {
        passed += 3000;
        EXPECT_EQ(pool.queue(2, next), ERROR_SUCCESS);
    });
    ASSERT_TRUE(pool.begins(1, running));
    EXPECT_EQ(THPSuspendWork(pool.handle, kCategory), ERROR_BUSY);
    EXPECT_EQ(pool.wait(2), ERROR_SUCCESS);
}

TEST(ThreadPoolFaults, WaitersAreReleasedAndWorkersReplaced)
{
    Replaced<"CreateEventW", decltype(&CreateEventW)> events;
    Replaced<"SetEvent", decltype(&SetEvent)> sets;
    const Replaced<"CreateThread", decltype(&CreateThread)> threads;
    std::atomic<bool> idleFails{false};
    const DWORD testThread = GetCurrentThreadId();
    const Replaced<"WaitForMultipleObjects", decltype(&WaitForMultipleObjects)> waits(
        failing(WAIT_FAILED, 1450, [&](auto...) { return GetCurrentThreadId() != testThread && idleFails; }));
    Blocker last;
    const ProcessCounts before = ProcessCounts::now();
    TestPool pool;
    ASSERT_TRUE(pool.begins(1, last));
    events.failCall(1, nullptr, 1450);
    EXPECT_EQ(pool.wait(1), 1450) << "no event for the waiter: it is told, and the work goes on";
    EXPECT_EQ(pool.wait(1, 0), WAIT_TIMEOUT); // someone waits from now on
    std::thread waiter([&] { EXPECT_EQ(pool.wait(1, INFINITE), ERROR_SUCCESS); });
    sets.failCall(1, FALSE, 1450); // releasing waiters: they are released anyway
    last.goOn.set();
    waiter.join();

    // A worker that can no longer wait for work ends, and a new thread does the rest.
    ProcessCounts withoutWorker = ProcessCounts::now();
    --withoutWorker.threads;
    idleFails = true;
    ASSERT_EQ(pool.run(1, last), ERROR_SUCCESS);
    EXPECT_TRUE(withoutWorker.isReachedAgain());
    idleFails = false;
    EXPECT_TRUE(threads.calls() == 1 && pool.run(1, last) == ERROR_SUCCESS);
    EXPECT_TRUE(threads.calls() == 2 && last.begun == 3);
    pool.close();
    EXPECT_TRUE(before.isReachedAgain());
}
