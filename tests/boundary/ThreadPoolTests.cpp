#include "core/win32/utils/objectmanager/include/ReadWriteLock.h"
#include "support/KernelCalls.h"
#include "support/Pools.h"

namespace {
const THPCategoryOptions kUnlimited;

/// Records that a worker stops before its work, the only reason for workers to wait on a condition, or that
/// the work begins.
struct StoppedWork : Work
{
    StoppedWork() : Work([this] { begun.set(); }) {}
    [[nodiscard]] bool hasBegun() const { return WaitForSingleObject(begun.get(), 0) == WAIT_OBJECT_0; }
    [[nodiscard]] bool stops() const
    {
        const HANDLE either[] = {begun.get(), stopped.get()};
        return WaitForMultipleObjects(2, either, FALSE, 60000) == WAIT_OBJECT_0 + 1;
    }
    TestEvent begun, stopped;
    const DWORD own = GetCurrentThreadId();
    Replaced<"SleepConditionVariableSRW", decltype(&SleepConditionVariableSRW)> sleeps{
        before([this](auto...) {
            if (GetCurrentThreadId() != own)
                stopped.set();
        })};
};

/// Calls the overloads for names or for numbers so that each argument makes a difference.
template <class Key>
void expectEachArgumentToCount(Key category, Key work)
{
    const TestEvent begun, goOn, extra;
    std::atomic<bool> ended{false};
    Work stays([&] { begun.set(), static_cast<void>(goOn.wait()), ended = true; });
    const THPWorkFunction function = [](IThreadContext&, void*) { return 0L; };
    const TestPool pool;
    void* const all = pool.handle;
    void* first = nullptr;
    void* second = nullptr;
    ASSERT_EQ(THPCreateCategory(all, category, kOneThread), ERROR_SUCCESS);
    ASSERT_EQ(THPQueueWork(all, category, work, stays, {}, Option::AtEnd, &first), ERROR_SUCCESS);
    ASSERT_TRUE(begun.wait());
    ASSERT_EQ(THPQueueWork(all, category, work, function, {}, Option::AtEnd, &second), ERROR_SUCCESS);
    EXPECT_EQ(THPQueueWork(all, category, work, stays, {}, Option::OnlyIfFree, nullptr), 1003);
    EXPECT_EQ(THPQueueWork(all, category, work, function, {}, Option::OnlyIfFree, nullptr), 1003);
    extra.set();
    for (const auto& [timeout, event] : {std::pair<DWORD, HANDLE>(0, nullptr), {INFINITE, extra.get()}})
        for (const long code :
             {THPWait(all, category, timeout, event), THPWait(all, category, work, timeout, event),
              THPWait(all, first, category, work, timeout, event)})
            EXPECT_EQ(code, event == nullptr ? long{WAIT_TIMEOUT} : long{ERROR_CANCELLED});
    EXPECT_EQ(THPCancelWork(all, category, work, second, Operation::CancelAndReturn), ERROR_SUCCESS);
    int running[2] = {-1, -1};
    EXPECT_EQ(THPIsRunning(all, category, work, first, running[0]), ERROR_SUCCESS);
    EXPECT_EQ(THPIsRunning(all, category, work, second, running[1]), ERROR_SUCCESS);
    EXPECT_TRUE(running[0] == 1 && running[1] == 0);
    long result = -1;
    EXPECT_EQ(THPGetWorkResult(all, category, work, result), ERROR_BUSY);
    EXPECT_EQ(THPGetWorkResult(all, category, work, second, result), ERROR_SUCCESS);
    EXPECT_EQ(result, ERROR_CANCELLED);
    for (const long code : {THPCancelWork(all, category, work, first, Operation::CancelAndReturn),
                            THPCancelWork(all, category, work, Operation::CancelAndReturn),
                            THPCancelWork(all, category, Operation::CancelAndReturn)})
        EXPECT_TRUE(code == ERROR_SUCCESS && !ended) << "it does not wait";
    goOn.set();
    EXPECT_EQ(THPWait(all, category, work, 60000UL, nullptr), ERROR_CANCELLED);
}
} // namespace

TEST(ThreadPool, TakesNamesAndNumbersWithAllArguments)
{
    expectEachArgumentToCount(L"category", L"work");
    expectEachArgumentToCount(5UL, 6UL);
}

// Every maximum with every option: as many as allowed start at once, the next follows its option.
TEST(ThreadPool, GoesByTheOptionAtTheMaximum)
{
    for (const unsigned maximum : {0U, 1U, 4U}) {
        std::deque<Blocker> blockers(maximum);
        std::vector<unsigned long> order;
        Work work([&](IThreadContext& context, HANDLE) -> long {
            order.push_back(context.getID());
            return 0;
        });
        TestPool pool(THPCategoryOptions(maximum, 0, 0, 0));
        for (Blocker& blocker : blockers)
            ASSERT_TRUE(pool.begins(100, blocker, Option::OnlyIfFree));
        EXPECT_EQ(pool.queue(9, work, Option::OnlyIfFree), ERROR_CAN_NOT_COMPLETE);
        EXPECT_EQ(pool.queue(1, work, Option::AtEnd), ERROR_SUCCESS);
        EXPECT_EQ(pool.queue(2, work, Option::AtEnd), ERROR_SUCCESS);
        EXPECT_TRUE(pool.queue(3, work, Option::AtFront) == ERROR_SUCCESS && pool.isRunning(1) == 1);
        EXPECT_TRUE(pool.isRunning(9) == 0 && pool.wait(1, 0) == WAIT_TIMEOUT);
        if (maximum == 0) {
            EXPECT_TRUE(pool.cancel(1) == ERROR_SUCCESS && pool.wait(1) == ERROR_CANCELLED);
            pool.close();
            EXPECT_TRUE(order.empty());
            continue;
        }
        blockers.front().goOn.set(); // one thread does the rest
        EXPECT_EQ(pool.wait(2), ERROR_SUCCESS);
        EXPECT_EQ(order, (std::vector<unsigned long>{3, 1, 2}));
        EXPECT_EQ(pool.queue(4, work, Option::OnlyIfFree), ERROR_SUCCESS) << "a thread waits for work";
    }

    std::deque<Blocker> blockers(12);
    const TestPool pool; // unknown category: no limit
    const auto queue = [&](Blocker& blocker) {
        return THPQueueWork(pool.handle, L"made on the spot", L"w", blocker, {}, Option::OnlyIfFree, nullptr);
    };
    EXPECT_EQ(THPQueueWork(pool.handle, L"c", L"w", blockers[0], {}, Option(3), nullptr), 87);
    for (const wchar_t* none : {L"c", L"1"}) { // refused work makes no category, and a name is not a number
        int running = 0;
        EXPECT_EQ(THPIsRunning(pool.handle, none, running), ERROR_NOT_FOUND);
    }
    EXPECT_EQ(THPWait(pool.handle, 77UL, 0UL, nullptr), ERROR_NOT_FOUND);
    for (Blocker& blocker : blockers)
        EXPECT_TRUE(queue(blocker) == ERROR_SUCCESS && blocker.started.wait());
    EXPECT_EQ(THPCancelWork(pool.handle, L"MADE ON THE SPOT", L"W", Operation::CancelAndWait), ERROR_SUCCESS);
}

// 10,000 items through 4 threads: each once, in queue order within a thread, 4 kernel calls each.
TEST(ThreadPool, RunsEachItemOnceInOrderWithFewKernelCalls)
{
    constexpr unsigned long kItems = 10000;
    // Before the threads begin: their loop may keep the address of an imported function.
    KernelCalls calls(sysmaintModule());
    Blocker blockers[4];
    std::vector<int> runs(kItems);
    TestEvent done; // waiting through the pool would be counted, too, and takes longer on a busy machine
    unsigned long ended = 0;
    std::mutex lock;
    std::map<DWORD, unsigned long> last;
    Work work([&](IThreadContext& context, HANDLE) -> long {
        const std::lock_guard guard(lock);
        ++runs[context.getID()];
        EXPECT_LE(std::exchange(last[GetCurrentThreadId()], context.getID()), context.getID());
        if (++ended == kItems)
            done.set();
        return 0;
    });
    const TestPool pool(THPCategoryOptions(4, 0, 0, 0));
    calls.countThisThread();
    for (Blocker& blocker : blockers) {
        blocker.body = [&, body = blocker.body](IThreadContext& context, HANDLE cancel) {
            return calls.countThisThread(), body(context, cancel);
        };
        ASSERT_TRUE(pool.begins(kItems, blocker));
    }
    calls.reset();
    const Replaced<"CreateThread", decltype(&CreateThread)> threads;
    for (unsigned long i = 0; i < kItems; ++i)
        ASSERT_EQ(pool.queue(i, work), ERROR_SUCCESS);
    for (Blocker& blocker : blockers)
        blocker.goOn.set();
    ASSERT_TRUE(done.wait());
    EXPECT_LE(calls.total(), 4 * static_cast<long>(kItems) + 40);
    EXPECT_TRUE(THPWait(pool.handle, kCategory, INFINITE, nullptr) == ERROR_SUCCESS && threads.calls() == 0);
    EXPECT_EQ(runs, std::vector<int>(kItems, 1));
    EXPECT_EQ(last.size(), 4U);
}

TEST(ThreadPool, TellsHowWorkEnded)
{
    const std::pair<long, Work> rows[] = {
        {ERROR_SUCCESS, Work([] {})},
        {5, Work([](IThreadContext&, HANDLE) -> long { return 5; })},
        {1450, Work([] { throw Exception("place", 1450); })},
        {1117, Work([] { throw 1117L; })},
        {574, Work([] { throw 'x'; })},
        {ERROR_NOT_ENOUGH_MEMORY, Work([] { throw std::bad_alloc(); })},
        {ERROR_CANCELLED, Work([](IThreadContext&, HANDLE cancel) -> long { return !SetEvent(cancel); })},
        {775, Work([](IThreadContext& context, HANDLE) -> long { return context.getUserData() != nullptr; })},
        {ERROR_SUCCESS, Work([](IThreadContext& context, HANDLE cancel) -> long { // and the event is reset
             const bool ready = WaitForSingleObject(cancel, 0) == WAIT_TIMEOUT && context.getIDType() == 0 &&
                                context.getName() == nullptr && context.getID() == 8 &&
                                context.getWorkItem().getID() == 8;
             return ready ? 0 : 1;
         })}};
    const TestPool pool;
    long result = -1;
    for (unsigned long number = 0; number < std::size(rows); ++number) {
        SCOPED_TRACE(number);
        const auto& [code, item] = rows[number];
        Work work = item;
        void* instance = nullptr;
        ASSERT_EQ(pool.queue(number, work, Option::AtEnd, &instance), ERROR_SUCCESS);
        const long waited = code == ERROR_CANCELLED ? ERROR_CANCELLED : ERROR_SUCCESS;
        EXPECT_TRUE(pool.wait(number) == waited && pool.result(number) == code);
        EXPECT_EQ(THPWait(pool.handle, instance, kCategory, number, 0, nullptr), waited);
        EXPECT_EQ(THPGetWorkResult(pool.handle, kCategory, number, instance, result), ERROR_SUCCESS);
        EXPECT_EQ(result, code);
        Work fine([] {}); // a run that ends well replaces what was known of the work, not of the instance
        EXPECT_TRUE(pool.run(number, fine) == ERROR_SUCCESS && pool.result(number) == 0);
        EXPECT_EQ(THPGetWorkResult(pool.handle, kCategory, number, instance, result), ERROR_SUCCESS);
        EXPECT_EQ(result, code);
    }
}

TEST(ThreadPool, CancelsWhatTheKeyNamesAndNothingElse)
{
    Blocker running, queued, third;
    const TestPool pool;
    void* instances[2] = {};
    ASSERT_TRUE(pool.begins(1, running));
    for (void*& instance : instances)
        ASSERT_EQ(pool.queue(2, queued, Option::AtEnd, &instance), ERROR_SUCCESS);

    // A waiter of queued work gets 1223 as it is cancelled, though the thread is still busy.
    std::thread waiter([&] {
        EXPECT_EQ(THPWait(pool.handle, instances[0], kCategory, 2UL, 60000UL, nullptr), ERROR_CANCELLED);
    });
    EXPECT_EQ(THPCancelWork(pool.handle, kCategory, 2UL, instances[0], Operation::CancelAndReturn), 0);
    waiter.join();
    for (const int i : {0, 1}) {
        int flag = -1;
        EXPECT_EQ(THPIsRunning(pool.handle, kCategory, 2UL, instances[i], flag), ERROR_SUCCESS);
        EXPECT_EQ(flag, i);
    }
    const TestEvent extra;
    EXPECT_EQ(pool.wait(1, 10, extra.get()), WAIT_TIMEOUT);
    extra.set();
    EXPECT_EQ(pool.wait(1, INFINITE, extra.get()), ERROR_CANCELLED);
    EXPECT_EQ(running.ended, 0) << "the extra event ends the wait, not the work";

    EXPECT_EQ(THPCancelWork(pool.handle, kCategory, Operation::DropQueued), ERROR_SUCCESS);
    EXPECT_TRUE(pool.isRunning(2) == 0 && pool.isRunning(1) == 1 && pool.cancel(1) == ERROR_SUCCESS);
    EXPECT_TRUE(running.ended == 1 && queued.begun == 0);
    third.body = [body = third.body](IThreadContext& context, HANDLE cancel) {
        const long code = body(context, cancel);
        return ResetEvent(cancel) != FALSE ? code : 1; // it was cancelled all the same
    };
    ASSERT_TRUE(pool.begins(3, third));
    EXPECT_TRUE(THPCancelWork(pool.handle) == ERROR_SUCCESS && pool.wait(3) == ERROR_CANCELLED);

    // Work that cancels itself and its category and waits does not wait for itself.
    Work self([&](IThreadContext&, HANDLE) -> long {
        return THPCancelWork(pool.handle, kCategory, Operation::CancelAndWait) +
               THPWait(pool.handle, kCategory, INFINITE, nullptr);
    });
    EXPECT_EQ(pool.run(4, self), ERROR_CANCELLED);
}

TEST(ThreadPool, SuspendsAndResumes)
{
    Blocker blocker;
    blocker.goOn.set();
    TestPool pool(THPCategoryOptions(2, THPCategoryOptions::kSuspended, 0, 0));
    ASSERT_EQ(pool.queue(1, blocker), ERROR_SUCCESS);
    EXPECT_EQ(THPSuspendWork(pool.handle, kCategory, 1UL), ERROR_INVALID_STATE);
    EXPECT_EQ(pool.wait(1, 20), WAIT_TIMEOUT);
    EXPECT_TRUE(blocker.begun == 0 && THPResumeWork(pool.handle, kCategory, 1UL) == ERROR_SUCCESS);
    EXPECT_TRUE(pool.wait(1) == ERROR_SUCCESS && THPSuspendWork(pool.handle, kCategory) == ERROR_SUCCESS);
    EXPECT_EQ(THPSuspendWork(pool.handle, kCategory), ERROR_INVALID_STATE);
    ASSERT_EQ(pool.queue(2, blocker), ERROR_SUCCESS);
    ASSERT_EQ(pool.queue(3, blocker), ERROR_SUCCESS);
    EXPECT_EQ(pool.wait(2, 20), WAIT_TIMEOUT);
    const TestEvent extra; // waiting for suspended work lasts until it is resumed or this ends the wait
    std::thread waiter([&] { EXPECT_EQ(pool.wait(2, INFINITE), ERROR_SUCCESS); });
    extra.set();
    EXPECT_EQ(pool.wait(3, INFINITE, extra.get()), ERROR_CANCELLED);
    EXPECT_EQ(blocker.begun, 1) << "a suspended category begins nothing";
    EXPECT_EQ(THPResumeWork(pool.handle, kCategory), ERROR_SUCCESS);
    waiter.join();
    EXPECT_EQ(pool.wait(3, INFINITE), ERROR_SUCCESS);
    EXPECT_EQ(THPCreateCategory(pool.handle, 7UL, THPCategoryOptions(1, 7, 0, 0)), ERROR_SUCCESS);
    EXPECT_EQ(pool.queue(1, blocker, Option::AtEnd, nullptr, 7), ERROR_INVALID_STATE);

    // Cancelling or closing suspended work does not wait forever.
    Blocker stays;
    ASSERT_TRUE(pool.begins(4, stays));
    EXPECT_EQ(THPSuspendWork(pool.handle, kCategory, 4UL), ERROR_SUCCESS);
    EXPECT_EQ(pool.cancel(4), ERROR_SUCCESS);
    stays.started.reset();
    ASSERT_TRUE(pool.begins(4, stays));
    EXPECT_EQ(THPSuspendWork(pool.handle, kCategory, 4UL), ERROR_SUCCESS);
    int refusals = 1;
    const Replaced<"ResumeThread", decltype(&ResumeThread)> resumes(
        failing(static_cast<DWORD>(-1), 1450, [&](HANDLE) { return refusals-- > 0; }));
    EXPECT_EQ(THPSuspendWork(pool.handle, kCategory), ERROR_SUCCESS);
    EXPECT_EQ(THPResumeWork(pool.handle, kCategory), 1450);
    ASSERT_EQ(pool.queue(5, blocker), ERROR_SUCCESS);
    EXPECT_EQ(pool.wait(5, 50), WAIT_TIMEOUT) << "it is still suspended";
    refusals = 2; // a close tries again
    pool.close();
    EXPECT_EQ(stays.ended, 2);
}

// Work that was stopped before it began does not begin when it is cancelled, on an idle or a new thread.
TEST(ThreadPool, BeginsNothingThatIsCancelledWhileItIsSuspended)
{
    using End = long (*)(TestPool&, void*);
    constexpr End kEnds[] = {[](TestPool& pool, void*) { return pool.close(), 0L; },
                             [](TestPool& pool, void*) { return pool.cancel(1); },
                             [](TestPool& pool, void*) { return pool.cancel(1, Operation::CancelAndReturn); },
                             [](TestPool& pool, void*) { return pool.cancel(1, Operation::DropQueued); },
                             [](TestPool& pool, void* one) {
                                 return THPCancelWork(pool.handle, 1UL, 1UL, one, Operation::CancelAndWait);
                             },
                             [](TestPool& pool, void*) { return THPCancelWork(pool.handle); }};
    for (const End& end : kEnds)
        for (const bool idle : {false, true}) {
            StoppedWork work;
            Blocker done, running;
            done.goOn.set();
            TestPool pool{kUnlimited};
            ASSERT_TRUE(pool.begins(2, running));
            ASSERT_TRUE(!idle || pool.run(3, done) == ERROR_SUCCESS);
            ASSERT_EQ(THPSuspendWork(pool.handle, kCategory), ERROR_SUCCESS);
            void* instance = nullptr;
            ASSERT_EQ(pool.queue(1, work, Option::AtEnd, &instance), ERROR_SUCCESS);
            ASSERT_TRUE(work.stops());
            EXPECT_EQ(end(pool, instance), ERROR_SUCCESS);
            EXPECT_TRUE(&end == kEnds || pool.result(1) == ERROR_CANCELLED);
            pool.close();
            EXPECT_FALSE(work.hasBegun()) << &end - kEnds << idle;
        }
}

// Changing one item of a paused category resumes no other.
TEST(ThreadPool, StaysSuspendedWhenOneItemIsCancelledOrResumed)
{
    for (const bool cancels : {true, false}) {
        StoppedWork next;
        Blocker first;
        const TestPool pool(cancels ? kOneThread : kUnlimited);
        if (cancels) {
            ASSERT_TRUE(pool.begins(1, first));
            ASSERT_EQ(pool.queue(2, next), ERROR_SUCCESS);
            ASSERT_EQ(THPSuspendWork(pool.handle, kCategory), ERROR_SUCCESS);
            ASSERT_EQ(pool.cancel(1), ERROR_SUCCESS);
        } else {
            first.goOn.set();
            ASSERT_EQ(THPSuspendWork(pool.handle, kCategory), ERROR_SUCCESS);
            ASSERT_EQ(pool.queue(1, first), ERROR_SUCCESS);
            ASSERT_TRUE(next.stops());
            ASSERT_EQ(THPResumeWork(pool.handle, kCategory, 1UL), ERROR_SUCCESS);
            ASSERT_EQ(pool.wait(1), ERROR_SUCCESS);
            next.stopped.reset();
            ASSERT_EQ(pool.queue(2, next), ERROR_SUCCESS);
        }
        EXPECT_TRUE(next.stops()) << cancels;
        EXPECT_TRUE(THPResumeWork(pool.handle, kCategory) == ERROR_SUCCESS && pool.wait(2) == ERROR_SUCCESS);
    }
    StoppedWork created;
    const TestPool pool(THPCategoryOptions(1, THPCategoryOptions::kSuspended, 0, 0));
    ASSERT_EQ(pool.queue(1, created), ERROR_SUCCESS);
    ASSERT_EQ(pool.queue(2, created), ERROR_SUCCESS);
    EXPECT_EQ(pool.cancel(1), ERROR_SUCCESS);
    EXPECT_EQ(pool.wait(2, 50), WAIT_TIMEOUT) << "its thread was created suspended";
    EXPECT_TRUE(THPResumeWork(pool.handle, kCategory, 2UL) == ERROR_SUCCESS && pool.wait(2) == ERROR_SUCCESS);
}

TEST(ThreadPool, KeepsLittleOfWorkThatHasEnded)
{
    const HeapWatch watch(sysmaintModule());
    const TestPool pool;
    HashMessageW arguments;
    for (std::uint32_t i = 0; i < 20; ++i)
        arguments.setParameter((L"argument " + std::to_wstring(i)).c_str(), i);
    const THPWorkFunction failing = [](IThreadContext& context, void*) -> long {
        std::uint32_t number = 0;
        const auto* data = static_cast<HashMessageW*>(context.getUserData());
        const bool isThere =
            data == &context.getArguments() && data->getParameter(L"argument 7", number) == 0;
        return isThere ? 1110 + static_cast<long>(number) : 1;
    };
    long blocks[3] = {};
    for (long& count : blocks) {
        for (unsigned long i = 0; i < 100; ++i) {
            EXPECT_EQ(THPQueueWork(pool.handle, kCategory, i, failing, arguments, Option::AtEnd, nullptr), 0);
            EXPECT_EQ(pool.wait(i), ERROR_SUCCESS);
        }
        count = HeapWatch::liveBlocks();
    }
    EXPECT_LE(blocks[0], 400) << "no arguments";
    EXPECT_LE(blocks[2], blocks[1] + 4) << "the last 64";
    static bool isGone = false;
    struct Noted : ParameterW
    {
        Noted() : ParameterW(1, "x") {}
        ~Noted() override { isGone = true; }
    };
    EXPECT_TRUE(pool.result(35) == 0 && pool.result(36) == 1117 && pool.result(99) == 1117);
    HashMessageW last;
    last.setParameter(L"noted", HashMessageW::ParameterPtr(new Noted));
    const THPWorkFunction ending = [](IThreadContext&, void*) -> long { return ExitThread(0), 0; };
    EXPECT_EQ(THPQueueWork(pool.handle, kCategory, 1UL, ending, last, Option::AtEnd, nullptr), 0);
    last.clearParameters();
    EXPECT_TRUE(pool.wait(1) == ERROR_SUCCESS && isGone) << "nor if its thread has ended";
    struct Ending : ParameterW
    {
        Ending() : ParameterW(1, "x") {}
        ~Ending() override { ExitThread(0); }
    };
    last.setParameter(L"ending", HashMessageW::ParameterPtr(new Ending));
    EXPECT_EQ(THPQueueWork(pool.handle, kCategory, 1UL, failing, last, Option::AtEnd, nullptr), 0);
    last.clearParameters();
    EXPECT_TRUE(pool.wait(1) == ERROR_SUCCESS && pool.result(1) == 574) << "its arguments end the thread";
}

// Work is suspended where it waits for what is its own, whatever that is.
TEST(ThreadPool, SuspendsWorkInItsOwnWaits)
{
    CRITICAL_SECTION section;
    InitializeCriticalSection(&section);
    SRWLOCK lock = SRWLOCK_INIT;
    CONDITION_VARIABLE changed = CONDITION_VARIABLE_INIT;
    const TestEvent event;
    const std::pair<const char*, std::function<void()>> kWaits[]{
        {"event", [&] { EXPECT_TRUE(event.wait()); }},
        {"critical section", [&] { EnterCriticalSection(&section), LeaveCriticalSection(&section); }},
        {"exclusive", [&] { AcquireSRWLockExclusive(&lock), ReleaseSRWLockExclusive(&lock); }},
        {"shared", [&] { AcquireSRWLockShared(&lock), ReleaseSRWLockShared(&lock); }},
        {"condition",
         [&] {
             SRWLOCK own = SRWLOCK_INIT;
             AcquireSRWLockShared(&own);
             SleepConditionVariableSRW(&changed, &own, INFINITE, CONDITION_VARIABLE_LOCKMODE_SHARED);
         }},
    };
    for (const auto& [name, wait] : kWaits) {
        std::atomic<bool> waits{false};
        Work waiting([&, &wait = wait] {
            waits = true;
            wait();
        });
        const TestPool pool;
        EnterCriticalSection(&section);
        AcquireSRWLockExclusive(&lock);
        ASSERT_EQ(pool.queue(1, waiting), ERROR_SUCCESS);
        EXPECT_TRUE(comesTrue([&] { return waits.load(); }));
        Sleep(50);
        EXPECT_EQ(THPSuspendWork(pool.handle, kCategory), ERROR_SUCCESS) << name;
        LeaveCriticalSection(&section);
        ReleaseSRWLockExclusive(&lock);
        EXPECT_EQ(THPResumeWork(pool.handle, kCategory), ERROR_SUCCESS) << name;
        event.set();
        EXPECT_TRUE(comesTrue([&] { // what is not waited for yet cannot be woken
            WakeAllConditionVariable(&changed);
            return pool.wait(1, 1) == ERROR_SUCCESS;
        })) << name;
    }
    DeleteCriticalSection(&section);
}
