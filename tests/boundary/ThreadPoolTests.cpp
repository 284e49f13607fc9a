#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <map>
#include <mutex>
#include <thread>
#include <vector>

#include "core/win32/utils/communication/api.h"
#include "core/win32/utils/threadpool/api.h"
#include "support/ImportReplacement.h"
#include "support/KernelCalls.h"
#include "support/Process.h"

namespace {
using Option = ITHPWorkItem::ScheduleOption;
using Operation = IThreadPool::OperationType;

constexpr unsigned long kCategory = 1;
const THPCategoryOptions kOneThread(1, 0, 0, 0);

/// Work that does what the test says.
class Work : public ITHPWorkItem
{
public:
    explicit Work(std::function<long(IThreadContext&, HANDLE)> body) : m_body(std::move(body)) {}
    long operator()(IThreadContext& context, void* cancelEvent) override
    {
        return m_body(context, cancelEvent);
    }

private:
    std::function<long(IThreadContext&, HANDLE)> m_body;
};

/// Work that stays until it is let go or cancelled, and counts how often it began.
class Blocker : public Work
{
public:
    Blocker()
        : Work([this](IThreadContext&, HANDLE cancelEvent) -> long {
              ++begun;
              started.set();
              const HANDLE events[] = {cancelEvent, goOn.get()};
              WaitForMultipleObjects(2, events, FALSE, INFINITE);
              ++ended;
              return ERROR_SUCCESS;
          })
    {
    }
    std::atomic<int> begun{0};
    std::atomic<int> ended{0};
    TestEvent started;
    TestEvent goOn;
};

/// A pool with one category, closed at the end of the scope.
class TestPool
{
public:
    explicit TestPool(const THPCategoryOptions& options = THPCategoryOptions())
        : handle(THPCreateThreadPool(L"test pool"))
    {
        EXPECT_EQ(THPCreateCategory(handle, kCategory, options), ERROR_SUCCESS);
    }
    TestPool(const TestPool&) = delete;
    TestPool& operator=(const TestPool&) = delete;
    ~TestPool() { close(); }

    void close()
    {
        if (handle != nullptr) {
            EXPECT_NE(THPCloseThreadpool(std::exchange(handle, nullptr)), 0);
        }
    }
    long queue(unsigned long work, ITHPWorkItem& item, Option option = Option::AtEnd,
               void** instance = nullptr) const
    {
        return THPQueueWork(handle, kCategory, work, item, HashMessageW(), option, instance);
    }
    long wait(unsigned long work, unsigned long timeout = 60000) const
    {
        return THPWait(handle, kCategory, work, timeout, nullptr);
    }
    [[nodiscard]] long result(unsigned long work) const
    {
        long result = -1;
        EXPECT_EQ(THPGetWorkResult(handle, kCategory, work, result), ERROR_SUCCESS);
        return result;
    }
    [[nodiscard]] int isRunning(unsigned long work) const
    {
        int running = -1;
        EXPECT_EQ(THPIsRunning(handle, kCategory, work, running), ERROR_SUCCESS);
        return running;
    }
    void* handle;
};

long doNothing(IThreadContext&, void*)
{
    return ERROR_SUCCESS;
}
} // namespace

TEST(ThreadPool, IsSharedByName)
{
    void* pool = THPCreateThreadPool(L"shared");
    EXPECT_EQ(THPCreateThreadPool(L"shared"), pool);
    EXPECT_EQ(THPOpenThreadPool(L"shared"), pool);
    for (int i = 0; i < 3; ++i)
        EXPECT_NE(THPCloseThreadpool(pool), 0);
    EXPECT_EQ(THPCloseThreadpool(pool), 0);
    EXPECT_EQ(THPOpenThreadPool(L"shared"), INVALID_HANDLE_VALUE);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_NOT_FOUND));
}

TEST(ThreadPool, RefusesWrongArguments)
{
    const TestPool pool(kOneThread);
    const HashMessageW none{};
    const wchar_t* noName = nullptr;
    THPWorkFunction noFunction = nullptr;
    void* instance = &instance;
    int running = 0;
    EXPECT_EQ(THPCreateCategory(pool.handle, kCategory, kOneThread), ERROR_ALREADY_EXISTS);
    EXPECT_EQ(THPCreateCategory(pool.handle, noName, kOneThread), ERROR_INVALID_PARAMETER);
    EXPECT_EQ(THPQueueWork(pool.handle, L"c", noName, &doNothing, none, Option::AtEnd, nullptr),
              ERROR_INVALID_PARAMETER);
    EXPECT_EQ(THPQueueWork(pool.handle, L"c", L"w", noFunction, none, Option::AtEnd, &instance),
              ERROR_INVALID_PARAMETER);
    EXPECT_EQ(THPQueueWork(pool.handle, L"c", L"w", &doNothing, none, static_cast<Option>(3), &instance),
              ERROR_INVALID_PARAMETER);
    EXPECT_EQ(instance, &instance) << "as it was";
    EXPECT_EQ(THPIsRunning(pool.handle, L"c", running), ERROR_NOT_FOUND) << "refused work makes no category";
    EXPECT_EQ(THPCancelWork(pool.handle, kCategory, static_cast<Operation>(3)), ERROR_INVALID_PARAMETER);
    EXPECT_EQ(THPCancelWork(pool.handle, kCategory, 1UL, nullptr, Operation::DropQueued),
              ERROR_INVALID_PARAMETER);
    EXPECT_EQ(THPIsRunning(pool.handle, kCategory, 1UL, nullptr, running), ERROR_INVALID_PARAMETER);
    EXPECT_EQ(THPWait(pool.handle, 77UL, 0UL, nullptr), ERROR_NOT_FOUND);
    EXPECT_EQ(THPSuspendWork(pool.handle, kCategory, 1UL), ERROR_NOT_FOUND);
    EXPECT_EQ(THPIsRunning(pool.handle, L"1", running), ERROR_NOT_FOUND) << "a name is not a number";
}

// Every maximum with every option: as many as allowed begin at once, the next goes by its option.
TEST(ThreadPool, GoesByTheOptionAtTheMaximum)
{
    for (const unsigned maximum : {0U, 1U, 4U}) {
        TestPool pool(THPCategoryOptions(maximum, 0, 0, 0));
        std::vector<std::unique_ptr<Blocker>> blockers;
        for (unsigned i = 0; i < maximum; ++i) {
            blockers.push_back(std::make_unique<Blocker>());
            ASSERT_EQ(pool.queue(100 + i, *blockers.back(), Option::OnlyIfFree), ERROR_SUCCESS);
            ASSERT_TRUE(blockers.back()->started.wait());
        }
        std::mutex lock;
        std::vector<unsigned long> order;
        Work work([&](IThreadContext& context, HANDLE) -> long {
            const std::lock_guard guard(lock);
            order.push_back(context.getID());
            return 0;
        });
        EXPECT_EQ(pool.queue(9, work, Option::OnlyIfFree), ERROR_CAN_NOT_COMPLETE);
        EXPECT_EQ(pool.queue(1, work, Option::AtEnd), ERROR_SUCCESS);
        EXPECT_EQ(pool.queue(2, work, Option::AtEnd), ERROR_SUCCESS);
        EXPECT_EQ(pool.queue(3, work, Option::AtFront), ERROR_SUCCESS);
        EXPECT_EQ(pool.isRunning(1), 1);
        EXPECT_EQ(pool.isRunning(9), 0);
        EXPECT_EQ(pool.wait(1, 0), WAIT_TIMEOUT);
        if (maximum == 0) {
            EXPECT_EQ(THPCancelWork(pool.handle, kCategory, 1UL, Operation::CancelAndWait), ERROR_SUCCESS);
            EXPECT_EQ(pool.wait(1), ERROR_CANCELLED);
            pool.close();
            EXPECT_TRUE(order.empty());
            continue;
        }
        blockers.front()->goOn.set(); // one thread does the rest
        EXPECT_EQ(pool.wait(2), ERROR_SUCCESS);
        EXPECT_EQ(order, (std::vector<unsigned long>{3, 1, 2}));
        EXPECT_EQ(pool.queue(4, work, Option::OnlyIfFree), ERROR_SUCCESS) << "a thread waits for work";
        pool.close(); // before the work dies
    }

    const TestPool pool; // unknown category: no limit
    std::vector<std::unique_ptr<Blocker>> blockers;
    for (unsigned long i = 0; i < 12; ++i) {
        blockers.push_back(std::make_unique<Blocker>());
        EXPECT_EQ(THPQueueWork(pool.handle, L"made on the spot", L"w", *blockers.back(), HashMessageW(),
                               Option::OnlyIfFree, nullptr),
                  ERROR_SUCCESS);
        EXPECT_TRUE(blockers.back()->started.wait());
    }
    EXPECT_EQ(THPCancelWork(pool.handle, L"MADE ON THE SPOT", L"W", Operation::CancelAndWait), ERROR_SUCCESS)
        << "names are compared without regard to case";
}

// 50,000 items through 4 threads: each once, in queue order within a thread, 4 kernel calls each.
TEST(ThreadPool, RunsEachItemOnceInOrderWithFewKernelCalls)
{
    constexpr unsigned long kItems = 50000;
    // Before the threads begin: their loop may keep the address of an imported function.
    KernelCalls calls(sysmaintModule());
    TestPool pool(THPCategoryOptions(4, 0, 0, 0));
    Blocker blockers[4];
    for (Blocker& blocker : blockers) {
        ASSERT_EQ(pool.queue(kItems, blocker), ERROR_SUCCESS);
        ASSERT_TRUE(blocker.started.wait());
    }
    std::vector<std::atomic<int>> runs(kItems);
    std::atomic<int> outOfOrder{0};
    std::mutex lock;
    std::map<DWORD, unsigned long> last;
    Work work([&](IThreadContext& context, HANDLE) -> long {
        const std::lock_guard guard(lock);
        ++runs[context.getID()];
        unsigned long& previous = last.try_emplace(GetCurrentThreadId(), 0).first->second;
        if (context.getID() < previous)
            ++outOfOrder;
        previous = context.getID();
        return 0;
    });
    {
        calls.reset();
        const CountedImport<"CreateThread", decltype(&CreateThread)> threads(sysmaintModule());
        for (unsigned long i = 0; i < kItems; ++i)
            ASSERT_EQ(pool.queue(i, work), ERROR_SUCCESS);
        for (Blocker& blocker : blockers)
            blocker.goOn.set();
        EXPECT_EQ(pool.wait(kItems - 1, INFINITE), ERROR_SUCCESS);
        EXPECT_LE(calls.total(), 4 * static_cast<long>(kItems) + 40);
        EXPECT_EQ(threads.calls(), 0);
        RecordProperty("kernel_calls", calls.total());
    }
    EXPECT_EQ(THPWait(pool.handle, kCategory, 60000, nullptr), ERROR_SUCCESS);
    for (unsigned long i = 0; i < kItems; ++i)
        ASSERT_EQ(runs[i], 1) << i;
    EXPECT_EQ(outOfOrder, 0);
    EXPECT_EQ(last.size(), 4U);
}

TEST(ThreadPool, TellsHowWorkEnded)
{
    struct Row
    {
        std::function<long(IThreadContext&, HANDLE)> body;
        long code;
    };
    const Row rows[] = {
        {[](IThreadContext&, HANDLE) -> long { return 0; }, ERROR_SUCCESS},
        {[](IThreadContext&, HANDLE) -> long { return 5; }, 5},
        {[](IThreadContext&, HANDLE) -> long { throw Exception("place", 1450); }, 1450},
        {[](IThreadContext&, HANDLE) -> long { throw 1117L; }, 1117},
        {[](IThreadContext&, HANDLE) -> long { throw 'x'; }, 574},
        {[](IThreadContext&, HANDLE) -> long { throw std::bad_alloc(); }, ERROR_NOT_ENOUGH_MEMORY},
        {[](IThreadContext&, HANDLE cancel) -> long {
             SetEvent(cancel);
             return 0;
         },
         ERROR_CANCELLED},
        {[](IThreadContext& context, HANDLE) -> long {
             context.getUserData();
             return 0;
         },
         775},
        {[](IThreadContext& context, HANDLE cancel) -> long { // the event of the one before was reset
             const bool ready = WaitForSingleObject(cancel, 0) == WAIT_TIMEOUT && context.getIDType() == 0 &&
                                context.getName() == nullptr && context.getID() == 8 &&
                                context.getWorkItem().getID() == 8;
             return ready ? 0 : 1;
         },
         ERROR_SUCCESS},
    };
    const TestPool pool(kOneThread);
    for (const Row& row : rows) {
        const auto number = static_cast<unsigned long>(&row - rows);
        Work work(row.body);
        void* instance = nullptr;
        ASSERT_EQ(pool.queue(number, work, Option::AtEnd, &instance), ERROR_SUCCESS);
        const long waited = row.code == ERROR_CANCELLED ? ERROR_CANCELLED : ERROR_SUCCESS;
        EXPECT_EQ(pool.wait(number), waited) << number;
        EXPECT_EQ(pool.result(number), row.code) << number;
        EXPECT_EQ(THPWait(pool.handle, instance, kCategory, number, 0, nullptr), waited)
            << number << ": late";
        long result = -1;
        EXPECT_EQ(THPGetWorkResult(pool.handle, kCategory, number, instance, result), ERROR_SUCCESS);
        EXPECT_EQ(result, row.code) << number;
    }

    HashMessageW arguments;
    arguments.setParameter(L"number", std::uint32_t{1168});
    const THPWorkFunction function = [](IThreadContext& context, void*) -> long {
        std::uint32_t number = 0;
        const auto* data = static_cast<HashMessageW*>(context.getUserData());
        if (data != &context.getArguments() || std::wstring(context.getName()) != L"Named")
            return 1;
        data->getParameter(L"number", number);
        return static_cast<long>(number);
    };
    ASSERT_EQ(THPQueueWork(pool.handle, L"c", L"Named", function, arguments, Option::AtEnd, nullptr),
              ERROR_SUCCESS);
    EXPECT_EQ(THPWait(pool.handle, L"C", L"nAMED", 60000, nullptr), ERROR_SUCCESS);
    long result = -1;
    EXPECT_EQ(THPGetWorkResult(pool.handle, L"C", L"nAMED", result), ERROR_SUCCESS);
    EXPECT_EQ(result, ERROR_NOT_FOUND);
}

TEST(ThreadPool, CancelsWhatTheKeyNamesAndNothingElse)
{
    TestPool pool(kOneThread);
    Blocker running;
    Blocker queued;
    void* first = nullptr;
    void* second = nullptr;
    ASSERT_EQ(pool.queue(1, running), ERROR_SUCCESS);
    ASSERT_TRUE(running.started.wait());
    ASSERT_EQ(pool.queue(2, queued, Option::AtEnd, &first), ERROR_SUCCESS);
    ASSERT_EQ(pool.queue(2, queued, Option::AtEnd, &second), ERROR_SUCCESS);
    ASSERT_NE(first, second);

    // A waiter of queued work gets 1223 as it is cancelled, though the thread is still busy.
    long waited = -1;
    std::thread waiter([&] { waited = THPWait(pool.handle, first, kCategory, 2UL, 60000UL, nullptr); });
    EXPECT_EQ(THPCancelWork(pool.handle, kCategory, 2UL, first, Operation::CancelAndReturn), ERROR_SUCCESS);
    waiter.join();
    EXPECT_EQ(waited, ERROR_CANCELLED);
    int flag = -1;
    EXPECT_EQ(THPIsRunning(pool.handle, kCategory, 2UL, first, flag), ERROR_SUCCESS);
    EXPECT_EQ(flag, 0);
    EXPECT_EQ(THPIsRunning(pool.handle, kCategory, 2UL, second, flag), ERROR_SUCCESS);
    EXPECT_EQ(flag, 1);

    TestEvent extra;
    EXPECT_EQ(THPWait(pool.handle, kCategory, 1UL, 10UL, extra.get()), WAIT_TIMEOUT);
    extra.set();
    EXPECT_EQ(THPWait(pool.handle, kCategory, 1UL, INFINITE, extra.get()), ERROR_CANCELLED);
    EXPECT_EQ(running.ended, 0) << "the extra event ends the wait, not the work";

    EXPECT_EQ(THPCancelWork(pool.handle, kCategory, Operation::DropQueued), ERROR_SUCCESS);
    EXPECT_EQ(pool.isRunning(2), 0);
    EXPECT_EQ(pool.isRunning(1), 1);
    EXPECT_EQ(THPCancelWork(pool.handle, kCategory, 1UL, Operation::CancelAndWait), ERROR_SUCCESS);
    EXPECT_EQ(running.ended, 1);
    EXPECT_EQ(queued.begun, 0);

    Blocker stubborn;
    ASSERT_EQ(pool.queue(3, stubborn), ERROR_SUCCESS);
    ASSERT_TRUE(stubborn.started.wait());
    EXPECT_EQ(THPCancelWork(pool.handle), ERROR_SUCCESS);
    EXPECT_EQ(pool.wait(3), ERROR_CANCELLED);

    // Work that cancels itself and its category and waits does not wait for itself.
    Work self([&](IThreadContext&, HANDLE) -> long {
        return THPCancelWork(pool.handle, kCategory, Operation::CancelAndWait) +
               THPWait(pool.handle, kCategory, INFINITE, nullptr);
    });
    ASSERT_EQ(pool.queue(4, self), ERROR_SUCCESS);
    EXPECT_EQ(pool.wait(4), ERROR_CANCELLED);
}

TEST(ThreadPool, SuspendsAndResumes)
{
    {
        TestPool pool(THPCategoryOptions(2, THPCategoryOptions::kSuspended, 0, 0));
        Blocker blocker;
        blocker.goOn.set();
        ASSERT_EQ(pool.queue(1, blocker), ERROR_SUCCESS);
        EXPECT_EQ(THPSuspendWork(pool.handle, kCategory, 1UL), ERROR_INVALID_STATE);
        EXPECT_EQ(pool.wait(1, 20), WAIT_TIMEOUT);
        EXPECT_EQ(blocker.begun, 0);
        EXPECT_EQ(THPResumeWork(pool.handle, kCategory, 1UL), ERROR_SUCCESS);
        EXPECT_EQ(pool.wait(1), ERROR_SUCCESS);
        EXPECT_EQ(THPSuspendWork(pool.handle, kCategory), ERROR_SUCCESS);
        EXPECT_EQ(THPSuspendWork(pool.handle, kCategory), ERROR_INVALID_STATE);
        ASSERT_EQ(pool.queue(2, blocker), ERROR_SUCCESS);
        ASSERT_EQ(pool.queue(3, blocker), ERROR_SUCCESS);
        EXPECT_EQ(pool.wait(2, 20), WAIT_TIMEOUT);
        EXPECT_EQ(blocker.begun, 1) << "a suspended category begins nothing";
        const TestEvent extra; // who waits for suspended work waits until it is resumed or this ends the wait
        std::thread waiter([&] { EXPECT_EQ(pool.wait(2, INFINITE), ERROR_SUCCESS); });
        extra.set();
        EXPECT_EQ(THPWait(pool.handle, kCategory, 3UL, INFINITE, extra.get()), ERROR_CANCELLED);
        EXPECT_EQ(blocker.begun, 1);
        EXPECT_EQ(THPResumeWork(pool.handle, kCategory), ERROR_SUCCESS);
        waiter.join();
        EXPECT_EQ(pool.wait(3, INFINITE), ERROR_SUCCESS);
    }
    {
        TestPool pool(THPCategoryOptions(1, 7, 0, 0));
        EXPECT_EQ(
            THPQueueWork(pool.handle, kCategory, 1UL, &doNothing, HashMessageW(), Option::AtEnd, nullptr),
            ERROR_INVALID_STATE);
    }

    // The worker is stopped wherever it happens to be, also in the heap and on its way through the library,
    // and never with a lock that we need.
    std::atomic<std::uint64_t> steps{0};
    const HANDLE own = HeapCreate(0, 0, 0);
    const TopicHandle topic = CreateMessageTopic(L"suspended");
    IMessageHandler handler;
    TestPool pool(kOneThread);
    TestEvent started;
    Work busy([&](IThreadContext&, HANDLE cancel) -> long {
        for (started.set(); WaitForSingleObject(cancel, 0) != WAIT_OBJECT_0; ++steps) {
            int running = 0;
            THPIsRunning(pool.handle, L"other", running);
            for (const HANDLE heap : {GetProcessHeap(), own})
                for (std::size_t size = 1; size < 100000; size *= 3)
                    HeapFree(heap, 0, HeapAlloc(heap, 0, size));
            for (std::size_t size = 1; size < 100000; size *= 3)
                std::free(std::malloc(size));
            TopicSubscribe(topic, handler); // holds a table's lock, and one of the topic's
            TopicUnsubscribe(topic, handler, 0);
        }
        return 0;
    });
    ASSERT_EQ(pool.queue(1, busy), ERROR_SUCCESS);
    ASSERT_TRUE(started.wait());
    for (int round = 0; round < 200; ++round) {
        ASSERT_EQ(THPSuspendWork(pool.handle, kCategory, 1UL), ERROR_SUCCESS);
        int running = 0;
        EXPECT_EQ(THPIsRunning(pool.handle, L"other", running), ERROR_NOT_FOUND);
        for (const HANDLE heap : {GetProcessHeap(), own})
            HeapFree(heap, 0, HeapAlloc(heap, 0, 5000));
        std::free(std::malloc(5000));
        IMessageHandler other;
        EXPECT_EQ(TopicSubscribe(topic, other), ERROR_SUCCESS);
        EXPECT_EQ(TopicUnsubscribe(topic, other, 0), ERROR_SUCCESS);
        if (round % 50 == 0) { // at most the step that it was in ends
            const std::uint64_t before = steps;
            Sleep(5);
            EXPECT_LE(steps, before + 1);
        }
        ASSERT_EQ(THPResumeWork(pool.handle, kCategory, 1UL), ERROR_SUCCESS);
    }
    EXPECT_EQ(THPSuspendWork(pool.handle, kCategory, 1UL), ERROR_SUCCESS);
    EXPECT_EQ(THPCancelWork(pool.handle, kCategory, Operation::CancelAndWait), ERROR_SUCCESS);
    ASSERT_EQ(pool.queue(1, busy), ERROR_SUCCESS);
    EXPECT_EQ(THPSuspendWork(pool.handle, kCategory, 1UL), ERROR_SUCCESS);
    pool.close(); // and neither does a close hang
    HeapDestroy(own);
}

TEST(ThreadPool, GivesEverythingBackWhenClosed)
{
    const HeapWatch watch(sysmaintModule());
    for (int i = 0; i < 40; ++i) { // what the process makes once and keeps, also for each freed handle
        TestPool pool;
        EXPECT_EQ(
            THPQueueWork(pool.handle, kCategory, 1UL, &doNothing, HashMessageW(), Option::AtEnd, nullptr), 0);
    }
    const ProcessCounts before = ProcessCounts::now();
    for (int round = 0; round < 20; ++round) {
        Blocker blocker;
        TestPool pool(THPCategoryOptions(2, 0, 0, 0));
        ASSERT_EQ(pool.queue(1, blocker), ERROR_SUCCESS);
        ASSERT_TRUE(blocker.started.wait());
        ASSERT_EQ(pool.queue(2, blocker), ERROR_SUCCESS);
        ASSERT_EQ(pool.queue(3, blocker), ERROR_SUCCESS);
        EXPECT_EQ(pool.wait(1, 0), WAIT_TIMEOUT);
        pool.close();
        EXPECT_EQ(blocker.begun, blocker.ended) << "nothing runs any more";
    }
    const TestEvent closed;
    TestPool* own = new TestPool(kOneThread);
    Work closer([&](IThreadContext&, HANDLE cancel) -> long {
        delete own;
        closed.set();
        return WaitForSingleObject(cancel, 0) == WAIT_OBJECT_0 ? 0 : 1;
    });
    ASSERT_EQ(own->queue(1, closer), ERROR_SUCCESS);
    EXPECT_TRUE(closed.wait());
    {
        ProcessCounts limit = before;
        ++limit.handles; // the event above
        EXPECT_TRUE(limit.isReachedAgain()) << limit.describe() << " " << HeapWatch::describe();
    }
}

TEST(ThreadPool, KeepsLittleOfWorkThatHasEnded)
{
    const HeapWatch watch(sysmaintModule());
    const TestPool pool(kOneThread);
    HashMessageW arguments;
    for (int i = 0; i < 20; ++i)
        arguments.setParameter((L"argument " + std::to_wstring(i)).c_str(), std::uint32_t{0});
    const THPWorkFunction failing = [](IThreadContext&, void*) -> long { return 1117; };
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
    EXPECT_EQ(pool.result(99), 1117);
}

// Each system call of making a thread fails in turn: the caller gets the code, the work does not run, and
// queued again it runs once.
TEST(ThreadPoolFaults, FailingThreadsAndEventsAreReported)
{
    const HMODULE dll = sysmaintModule();
    CountedImport<"CreateEventW", decltype(&CreateEventW)> events(dll);
    CountedImport<"CreateThread", decltype(&CreateThread)> threads(dll);
    CountedImport<"SetThreadPriority", decltype(&SetThreadPriority)> priorities(dll);
    CountedImport<"GetModuleHandleExW", decltype(&GetModuleHandleExW)> modules(dll);
    const std::pair<const char*, std::function<void()>> rows[] = {
        {"first event", [&] { events.failCall(1, nullptr, 1450); }},
        {"second event", [&] { events.failCall(2, nullptr, 1450); }},
        {"third event", [&] { events.failCall(3, nullptr, 1450); }},
        {"module", [&] { modules.failCall(1, FALSE, 1450); }},
        {"thread", [&] { threads.failCall(1, nullptr, 1450); }},
        {"priority", [&] { priorities.failCall(1, FALSE, 1450); }},
    };
    { // what the process makes once and keeps
        TestPool pool;
        EXPECT_EQ(
            THPQueueWork(pool.handle, kCategory, 1UL, &doNothing, HashMessageW(), Option::AtEnd, nullptr), 0);
    }
    for (const std::uint32_t flags : {THPCategoryOptions::kRunning, THPCategoryOptions::kSuspended}) {
        for (const auto& [name, fail] : rows) {
            Blocker blocker;
            const ProcessCounts before = ProcessCounts::now();
            TestPool pool(THPCategoryOptions(1, flags, 0, 0));
            fail();
            void* instance = &instance;
            EXPECT_EQ(pool.queue(1, blocker, Option::AtEnd, &instance), 1450) << name;
            EXPECT_EQ(instance, &instance);
            EXPECT_EQ(pool.isRunning(1), 0);
            blocker.goOn.set();
            EXPECT_EQ(pool.queue(1, blocker), ERROR_SUCCESS) << name;
            EXPECT_EQ(THPResumeWork(pool.handle, kCategory), ERROR_SUCCESS);
            EXPECT_EQ(pool.wait(1, INFINITE), ERROR_SUCCESS) << name;
            EXPECT_EQ(blocker.begun, 1) << name;
            pool.close();
            EXPECT_TRUE(before.isReachedAgain()) << name;
        }
    }
}

TEST(ThreadPoolFaults, FailingSignalsAndWaitsAreReported)
{
    const HMODULE dll = sysmaintModule();
    CountedImport<"CreateEventW", decltype(&CreateEventW)> events(dll);
    CountedImport<"SetEvent", decltype(&SetEvent)> sets(dll);
    CountedImport<"ResetEvent", decltype(&ResetEvent)> resets(dll);
    CountedImport<"WaitForMultipleObjects", decltype(&WaitForMultipleObjects)> waits(dll);
    CountedImport<"SuspendThread", decltype(&SuspendThread)> suspends(dll);
    CountedImport<"ResumeThread", decltype(&ResumeThread)> resumes(dll);
    const DWORD testThread = GetCurrentThreadId();
    std::atomic<bool> idleFails{false};
    waits.setHook([&](auto original, DWORD count, const HANDLE* handles, BOOL all, DWORD timeout) {
        if (GetCurrentThreadId() == testThread || !idleFails)
            return original(count, handles, all, timeout);
        SetLastError(1450);
        return WAIT_FAILED;
    });
    const ProcessCounts before = ProcessCounts::now();
    {
        TestPool pool(kOneThread);
        Blocker done;
        done.goOn.set();
        ASSERT_EQ(pool.queue(1, done), ERROR_SUCCESS);
        ASSERT_EQ(pool.wait(1), ERROR_SUCCESS); // now the thread waits for work

        sets.failCall(1, FALSE, 1450);
        EXPECT_EQ(pool.queue(1, done), 1450) << "handing over";
        EXPECT_EQ(pool.isRunning(1), 0);
        EXPECT_EQ(done.begun, 1);
        EXPECT_EQ(pool.queue(1, done), ERROR_SUCCESS);
        EXPECT_EQ(pool.wait(1), ERROR_SUCCESS);
        EXPECT_EQ(done.begun, 2);

        // The reset after waking fails: the thread goes on and nothing runs twice.
        resets.failCall(1, FALSE, 1450);
        for (int i = 0; i < 3; ++i) {
            EXPECT_EQ(pool.queue(1, done), ERROR_SUCCESS);
            EXPECT_EQ(pool.wait(1), ERROR_SUCCESS);
        }
        EXPECT_EQ(done.begun, 5);

        Blocker blocker;
        ASSERT_EQ(pool.queue(2, blocker), ERROR_SUCCESS);
        ASSERT_TRUE(blocker.started.wait());
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
        EXPECT_EQ(THPCancelWork(pool.handle, kCategory, 2UL, Operation::CancelAndReturn), 1450);
        EXPECT_EQ(blocker.ended, 0);

        // The cancelled item's event cannot be reset: the next item must not be cancelled by it.
        resets.failCall(1, FALSE, 1450);
        EXPECT_EQ(THPCancelWork(pool.handle, kCategory, 2UL, Operation::CancelAndWait), ERROR_SUCCESS);
        Work clean([](IThreadContext&, HANDLE cancel) -> long {
            return static_cast<long>(WaitForSingleObject(cancel, 0));
        });
        ASSERT_EQ(pool.queue(3, clean), ERROR_SUCCESS);
        EXPECT_EQ(pool.wait(3), ERROR_SUCCESS);
        EXPECT_EQ(pool.result(3), WAIT_TIMEOUT);

        // No event for the waiter: it is told, and the work goes on.
        pool.close();
        TestPool fresh(kOneThread);
        Blocker last;
        ASSERT_EQ(fresh.queue(1, last), ERROR_SUCCESS);
        ASSERT_TRUE(last.started.wait());
        events.failCall(1, nullptr, 1450);
        EXPECT_EQ(fresh.wait(1), 1450);
        // The releasing of waiters fails once: they are released all the same.
        EXPECT_EQ(fresh.wait(1, 0), WAIT_TIMEOUT); // someone waits from now on
        std::thread waiter([&] { EXPECT_EQ(fresh.wait(1, INFINITE), ERROR_SUCCESS); });
        sets.failCall(1, FALSE, 1450);
        last.goOn.set();
        waiter.join();

        // A worker cannot wait for work any more: it ends, and a new thread does what follows.
        CountedImport<"CreateThread", decltype(&CreateThread)> threads(dll);
        ProcessCounts withoutWorker = ProcessCounts::now();
        --withoutWorker.threads;
        idleFails = true;
        ASSERT_EQ(fresh.queue(1, last), ERROR_SUCCESS);
        ASSERT_EQ(fresh.wait(1, INFINITE), ERROR_SUCCESS);
        EXPECT_TRUE(withoutWorker.isReachedAgain());
        idleFails = false;
        EXPECT_EQ(threads.calls(), 0);
        ASSERT_EQ(fresh.queue(1, last), ERROR_SUCCESS);
        EXPECT_EQ(fresh.wait(1, INFINITE), ERROR_SUCCESS);
        EXPECT_EQ(threads.calls(), 1);
        EXPECT_EQ(last.begun, 3);
        fresh.close();
    }
    EXPECT_TRUE(before.isReachedAgain());
}
