// What only goes wrong when two threads meet at one moment, which a replaced import holds open.

#include "boundary/RegistryTest.h"
#include "support/Pools.h"
#include "support/Wipe.h"

extern "C" LONG NTAPI LdrLockLoaderLock(ULONG, ULONG*, ULONG_PTR*);
extern "C" LONG NTAPI LdrUnlockLoaderLock(ULONG, ULONG_PTR);

namespace {
using Sleeping = Replaced<"SleepConditionVariableSRW", decltype(&SleepConditionVariableSRW)>;
using Clock = Replaced<"GetTickCount64", decltype(&GetTickCount64)>;

/// A place where the first thread other than the test's stops until it may continue.
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
    TestEvent reached, goOn;
};

/// Records the time-out of each wait on the test's own thread, and lets that wait take 40 ms of it.
struct TimeOfWaits : testing::Test
{
    void look(DWORD timeout)
    {
        if (GetCurrentThreadId() != own)
            return;
        given.push_back(timeout);
        Sleep(40);
        first.goOn.set(), goOn.set();
    }

    std::vector<DWORD> given;
    const DWORD own = GetCurrentThreadId();
    TestEvent goOn;
    Blocker first, second;
    Multiple waits{before([this](DWORD, auto*, BOOL, DWORD timeout) { look(timeout); })};
    Sleeping sleeps{before([this](auto*, auto*, DWORD timeout, ULONG) { look(timeout); })};
};

/// Suspends a call where it first makes one of the system's, or in the collector's handler, and resumes it.
void suspendIn(const std::function<void()>& call, Collector& collector, bool isInHandler)
{
    Window window;
    const TestEvent passed;
    const auto stop = [&](bool fromHandler) {
        if (fromHandler != isInHandler || GetCurrentThreadId() == window.owner)
            return;
        window.hold();
        passed.set();
    };
    const auto called = before([&](auto...) { stop(false); });
    const Attributes attributes(called);
    const Opens files(called);
    const Replaced<"FindFirstFileW", decltype(&FindFirstFileW)> searches(called);
    const Replaced<"GetFileAttributesExW", decltype(&GetFileAttributesExW)> sizes(called);
    const Replaced<"RegOpenKeyExW", decltype(&RegOpenKeyExW)> keys(called);
    const Replaced<"ReleaseMutex", decltype(&ReleaseMutex)> releases(called);
    collector.action = [&](const auto&, const auto&) { stop(true); };
    Work work(call);
    const TestPool pool;
    ASSERT_EQ(pool.queue(1, work), ERROR_SUCCESS);
    ASSERT_TRUE(window.reached.wait());
    EXPECT_EQ(THPSuspendWork(pool.handle, kCategory), ERROR_SUCCESS);
    window.goOn.set();
    EXPECT_EQ(WaitForSingleObject(passed.get(), isInHandler ? 50 : 10000) == WAIT_OBJECT_0, !isInHandler);
    EXPECT_EQ(pool.wait(1, 50), WAIT_TIMEOUT) << "it stops at its end";
    EXPECT_FALSE(OpenMessageTopic(L"none").isValid()) << "no lock is held";
    EXPECT_TRUE(THPResumeWork(pool.handle, kCategory) == ERROR_SUCCESS && pool.wait(1) == ERROR_SUCCESS);
    EXPECT_EQ(pool.result(1), ERROR_SUCCESS);
}

/// Holds the loader lock of the process, unless another thread has it.
struct LoaderLock
{
    /// Only if it is free, unless `waits`.
    explicit LoaderLock(bool waits = false) { LdrLockLoaderLock(waits ? 0 : 2, &got, &cookie); }
    LoaderLock(LoaderLock&&) = delete;
    ~LoaderLock()
    {
        if (got == 1)
            LdrUnlockLoaderLock(0, cookie);
    }
    ULONG got = 0; // 1: yes
    ULONG_PTR cookie = 0;
};

using Call = long (*)(void*);
const Call kWait = [](void* pool) { return THPWait(pool, 1UL, INFINITE, nullptr); };
const Call kWaitForOne = [](void* pool) { return THPWait(pool, 1UL, 1UL, INFINITE, nullptr); };
const Call kCancel = [](void* pool) { return THPCancelWork(pool, 1UL, Operation::CancelAndWait); };
const Call kClose = [](void* pool) { return THPCloseThreadpool(pool) != 0 ? 0L : 1L; };
const Call kCloseTopic = [](void* topic) { return CloseMessageTopic(topic) != 0 ? 0L : 1L; };
const Call kConsume = [](void* handle) {
    TopicHandle topic(handle);
    const long code = TopicConsumeAll(topic, INFINITE);
    return static_cast<void>(topic.release()), code;
};
/// What each does with the other's handle.
const Call kMeetings[][2] = {{kCancel, kCancel}, {kWait, kWaitForOne}, {kWaitForOne, kClose},
                             {kClose, kClose},   {kConsume, kConsume}, {kCloseTopic, kCloseTopic}};
} // namespace

// Work or a message arrives after its thread has found nothing and before it waits.
TEST(Windows, LoseNoWakeUp)
{
    for (const bool topics : {false, true}) {
        Window window;
        const Multiple waits(before([&](auto...) { window.hold(); }));
        std::atomic<int> runs{0};
        Work work([&] { ++runs; });
        Handler handler([&] { ++runs; });
        const TestPool pool;
        const TopicHandle topic = topicOf(handler);
        ASSERT_EQ(topics ? post(topic) : pool.queue(1, work), ERROR_SUCCESS);
        ASSERT_TRUE(window.reached.wait());
        ASSERT_EQ(topics ? post(topic) : pool.queue(1, work), ERROR_SUCCESS);
        window.goOn.set();
        EXPECT_EQ(topics ? TopicConsumeAll(topic, 60000) : pool.wait(1), ERROR_SUCCESS);
        EXPECT_EQ(runs, 2);
    }
}

TEST_F(TimeOfWaits, IsForAllItemsTogether)
{
    const TestPool pool{THPCategoryOptions()};
    ASSERT_TRUE(pool.begins(1, first));
    ASSERT_TRUE(pool.begins(1, second));
    EXPECT_EQ(pool.wait(1, 300), WAIT_TIMEOUT);
    ASSERT_EQ(given.size(), 2U);
    EXPECT_LE(given[1] + 25, given[0]);
}

TEST_F(TimeOfWaits, IsForAllDeliveriesTogetherAndTheSubscriberIsNotForgotten)
{
    const TestEvent inside[2];
    const TestEvent sentMayEnd;
    Handler handler([&](const MessageW& message, std::uint32_t) {
        inside[message.getId()].set();
        EXPECT_TRUE((message.getId() == 1 ? sentMayEnd : goOn).wait());
    });
    const TopicHandle topic = topicOf(handler);
    ASSERT_EQ(post(topic, 0), ERROR_SUCCESS);
    ASSERT_TRUE(inside[0].wait());
    std::thread sender([&] { EXPECT_EQ(send(topic, 1), ERROR_SUCCESS); });
    ASSERT_TRUE(inside[1].wait());
    EXPECT_EQ(TopicUnsubscribe(topic, handler, 300), WAIT_TIMEOUT);
    ASSERT_GE(given.size(), 2U);
    EXPECT_LE(given[1] + 25, given[0]);
    // The end of a delivery wakes an unsubscriber that is already waiting.
    sleeps.setHook(before([&](auto...) {
        if (GetCurrentThreadId() == own)
            sentMayEnd.set();
    }));
    EXPECT_EQ(TopicUnsubscribe(topic, handler, INFINITE), ERROR_SUCCESS);
    sender.join();
}

// By what ends the call of the subscriber, not by a later delivery nor by a time that is over.
TEST(Windows, AnUnsubscriberIsWokenHoweverTheSubscriberIsLeft)
{
    for (const auto& leave : {+[] {}, +[] { throw 5L; }, +[] { ExitThread(5); }}) {
        const TestEvent inside, mayLeave, mayEnd;
        Handler handlers[2]; // the second one holds the delivery
        handlers[0].body = [&](auto&&...) {
            inside.set();
            EXPECT_TRUE(mayLeave.wait());
            leave();
        };
        handlers[1].body = [&](auto&&...) { EXPECT_TRUE(mayEnd.wait()); };
        TopicHandle topic = topicOf(handlers[0]);
        ASSERT_EQ(TopicSubscribe(topic, handlers[1]), ERROR_SUCCESS);
        const LPTHREAD_START_ROUTINE sending = [](void* to) -> DWORD {
            return static_cast<DWORD>(send(*static_cast<const TopicHandle*>(to)));
        };
        const Win32Handle sender(CreateThread(nullptr, 0, sending, &topic, 0, nullptr));
        ASSERT_TRUE(inside.wait());
        BOOL isWoken = FALSE;
        const Sleeping sleeps([&](auto original, auto* condition, auto* lock, DWORD, ULONG flags) {
            mayLeave.set(); // it is left under the lock
            return isWoken = original(condition, lock, 10000, flags);
        });
        EXPECT_TRUE(TopicUnsubscribe(topic, handlers[0], INFINITE) == ERROR_SUCCESS && isWoken);
        mayEnd.set();
        EXPECT_EQ(WaitForSingleObject(sender.get(), 60000), WAIT_OBJECT_0);
    }
}

// Work that waits outside the library is suspended while the locks of all heaps are held, and they are
// released.
TEST(Windows, NoWorkerIsSuspendedInAHeap)
{
    Blocker running;
    const TestPool pool;
    ASSERT_TRUE(pool.begins(1, running));
    const HANDLE own = HeapCreate(0, 0, 0);
    std::multiset<HANDLE> held;
    bool all = false;
    Replaced<"HeapLock", decltype(&HeapLock)> locks(before([&](HANDLE heap) { held.insert(heap); }));
    Replaced<"HeapUnlock", decltype(&HeapUnlock)> unlocks(
        after([&](BOOL, HANDLE heap) { held.erase(held.find(heap)); }));
    const Replaced<"SuspendThread", decltype(&SuspendThread)> suspends(before([&](auto) {
        HANDLE heaps[256];
        const DWORD count = GetProcessHeaps(256, heaps);
        all = std::all_of(heaps, heaps + count, [&](HANDLE heap) { return held.contains(heap); });
    }));
    held.insert(nullptr); // no allocation for the first node
    EXPECT_TRUE(THPSuspendWork(pool.handle, kCategory) == ERROR_SUCCESS && all && held.size() == 1U);
    EXPECT_EQ(THPResumeWork(pool.handle, kCategory), ERROR_SUCCESS);
    HeapDestroy(own);
}

// A worker inside the library, here with the lock of the table of topics or in the methods of its objects,
// stops when it leaves it. The caller's handlers are outside, even when such a method calls them.
TEST(Windows, NoWorkerIsSuspendedInsideTheLibrary)
{
    const std::wstring place = testFolder() + L"\\suspended.bin";
    const FilePtr file = fileAt(place);
    const DirectoryPtr directory = folderAt(place);
    const KeyPtr key = keyOf(L"Environment");
    const ValuePtr value = valueOf(L"Environment", L"TEMP");
    const std::unique_ptr<IRegistryScanEngine> engine(DllGetRegistryScanEngine());
    engine->addPath(HKEY_CURRENT_USER, L"Environment", 0);
    Collector collector;
    engine->registerHandler(collector, kContainerFound, 0, 0);
    engine->registerHandler(collector, kLeafFound, 0, 0);
    const std::function<void()> scan = [&] { engine->scan(nullptr, everything(), ScanOptions()); };
    for (const auto& [name, call] :
         {std::pair("onNotify", scan),
          {"IRegistryScanEngine::scan", scan},
          {"OpenMessageTopic", [] { static_cast<void>(OpenMessageTopic(L"none")); }},
          {"IDirectory::exists", [&] { static_cast<void>(directory->exists()); }},
          {"IFile::create", [&] { file->create(); }},
          {"IFile::exists", [&] { static_cast<void>(file->exists()); }},
          {"IFile::getSize", [&] { static_cast<void>(file->getSize()); }},
          {"IFile::deleteItem", [&] { file->deleteItem(); }},
          {"IRegistryKey::exists", [&] { static_cast<void>(key->exists()); }},
          {"IRegistryValue::exists", [&] { static_cast<void>(value->exists()); }}}) {
        SCOPED_TRACE(name);
        suspendIn(call, collector, std::string_view(name) == "onNotify");
    }
}

// Who waits for a heap may hold a lock of the loader's meanwhile. Work that cannot be resumed is suspended.
TEST(Windows, WorkThatWaitsForAHeapIsNotSuspended)
{
    Replaced<"ResumeThread", decltype(&ResumeThread)> resumes;
    std::atomic<ULONGLONG> passed{0};
    const Clock clock([&](auto original) { return original() + passed; });
    const Replaced<"Sleep", decltype(&Sleep)> pauses([&](auto, DWORD) { passed += 1000; });
    for (const bool canResume : {true, false}) {
        const TestEvent begun, mayAllocate;
        std::atomic<bool> allocates{false};
        Work allocating([&] {
            begun.set();
            EXPECT_TRUE(mayAllocate.wait());
            allocates = true;
            HeapFree(GetProcessHeap(), 0, HeapAlloc(GetProcessHeap(), 0, 8));
        });
        const TestPool pool;
        ASSERT_EQ(pool.queue(1, allocating), ERROR_SUCCESS);
        ASSERT_TRUE(begun.wait());
        HeapLock(GetProcessHeap());
        mayAllocate.set();
        EXPECT_TRUE(comesTrue([&] { return allocates.load(); }));
        Sleep(50);
        resumes.failCall(canResume ? 0 : 1, static_cast<DWORD>(-1), 1450);
        const long code = THPSuspendWork(pool.handle, kCategory);
        HeapUnlock(GetProcessHeap());
        EXPECT_EQ(code, canResume ? ERROR_BUSY : ERROR_SUCCESS);
        EXPECT_EQ(THPResumeWork(pool.handle, kCategory), ERROR_SUCCESS);
        EXPECT_EQ(pool.wait(1, 5000), ERROR_SUCCESS);
    }
}

// While a worker holds the loader lock, no other one begins or ends, but work can be queued. The worker is
// suspended only after it has released the lock, because the end of the process would wait for it.
TEST(Windows, QueuesButSuspendsNothingThatHoldsTheLoaderLock)
{
    const TestEvent locked, mayUnlock, unlocked, mayEnd;
    std::atomic<int> runs{0};
    Work other([&] { ++runs; });
    Work loading([&] {
        {
            const LoaderLock lock(true);
            locked.set();
            EXPECT_TRUE(mayUnlock.wait());
        }
        unlocked.set();
        EXPECT_TRUE(mayEnd.wait());
    });
    std::atomic<ULONGLONG> passed{0};
    const Clock clock([&](auto original) { return original() + passed; });
    Replaced<"Sleep", decltype(&Sleep)> pauses([&](auto, DWORD) { passed += 1000; });
    const TestPool pool;
    ASSERT_EQ(pool.queue(1, loading), ERROR_SUCCESS);
    ASSERT_TRUE(locked.wait());
    EXPECT_EQ(THPSuspendWork(pool.handle, kCategory, 1UL), ERROR_BUSY) << "for 5 seconds";
    EXPECT_EQ(pool.queue(1, other, Option::AtEnd, nullptr, 2), ERROR_SUCCESS);
    EXPECT_EQ(THPWait(pool.handle, 2UL, 20UL, nullptr), WAIT_TIMEOUT);
    EXPECT_EQ(THPCancelWork(pool.handle, 2UL, Operation::CancelAndWait), ERROR_SUCCESS) << "it has not begun";
    EXPECT_EQ(pool.queue(1, other, Option::AtEnd, nullptr, 2), ERROR_SUCCESS);
    pauses.setHook([&](auto, DWORD) {
        mayUnlock.set();
        EXPECT_TRUE(unlocked.wait());
    });
    EXPECT_EQ(THPSuspendWork(pool.handle, kCategory), ERROR_SUCCESS);
    EXPECT_TRUE(comesTrue([] { return LoaderLock().got == 1; })) << "it was suspended without the lock";
    EXPECT_EQ(THPResumeWork(pool.handle, kCategory), ERROR_SUCCESS);
    mayEnd.set();
    EXPECT_TRUE(THPWait(pool.handle, 2UL, INFINITE, nullptr) == ERROR_SUCCESS && runs == 1);
}

// Other work relies on a thread that is being started, and its start fails.
TEST(Windows, WorkIsLookedAfterWhenTheThreadItReliesOnCannotStart)
{
    Replaced<"CreateThread", decltype(&CreateThread)> threads;
    for (const long failures : {1L, 2L}) {
        std::atomic<int> runs{0};
        Work work([&] { ++runs; });
        const TestPool pool;
        threads.reset();
        threads.setHook([&](auto original, auto... arguments) {
            EXPECT_TRUE(threads.calls() != 1 || pool.queue(2, work) == ERROR_SUCCESS);
            return SetLastError(1450), threads.calls() <= failures ? nullptr : original(arguments...);
        });
        EXPECT_TRUE(pool.queue(1, work) == 1450 && pool.wait(2) == ERROR_SUCCESS);
        EXPECT_EQ(pool.result(2), failures == 1 ? 0 : 1450);
        EXPECT_EQ(runs, failures == 1 ? 1 : 0);
    }
}

// Arguments may be of a class whose destructor calls the pool: here the freeing of their memory does.
TEST(Windows, ArgumentsDieOutsideEveryLock)
{
    Blocker blocker;
    const TestPool pool;
    HashMessageW arguments;
    arguments.setParameter(L"text", L"a text that stands on the heap");
    for (int i = 0; i < 3; ++i)
        ASSERT_EQ(THPQueueWork(pool.handle, kCategory, 1UL, blocker, arguments, Option::AtEnd, nullptr), 0);
    std::atomic<int> freed{0};
    thread_local bool busy = false;
    const Replaced<"HeapFree", decltype(&HeapFree)> frees(before([&](auto...) {
        if (std::exchange(busy, true))
            return;
        int running = 0;
        freed += THPIsRunning(pool.handle, kCategory, running) == ERROR_SUCCESS ? 1 : 0;
        busy = false;
    }));
    EXPECT_EQ(THPCancelWork(pool.handle, kCategory, Operation::CancelAndWait), ERROR_SUCCESS);
    EXPECT_GE(freed, 3);
}

TEST(Endings, WorkMayEndItsThread)
{
    std::atomic<int> runs{0};
    const TestEvent mayEnd;
    Work last([&] {
        EXPECT_TRUE(mayEnd.wait());
        ExitThread(0);
    });
    Work next([&] { ++runs; });
    const TestPool pool;
    ASSERT_EQ(pool.queue(1, last), ERROR_SUCCESS);
    ASSERT_EQ(pool.queue(2, next), ERROR_SUCCESS);
    mayEnd.set();
    EXPECT_EQ(THPWait(pool.handle, kCategory, 60000UL, nullptr), ERROR_SUCCESS);
    EXPECT_EQ(runs, 1) << "on a new thread";
    EXPECT_EQ(pool.result(1), 574);
}

// A handler may end its thread, too: that ends the delivery, and later messages get a new consumer.
TEST(Endings, AHandlerMayEndItsThread)
{
    for (const bool sends : {false, true}) {
        Handler handler, second;
        handler.body = [&](const MessageW&, std::uint32_t) {
            if (handler.calls == 1)
                ExitThread(0);
        };
        TopicHandle topic = topicOf(handler);
        const LPTHREAD_START_ROUTINE sending = [](void* to) -> DWORD {
            return send(*static_cast<TopicHandle*>(to)) != 0 ? 1 : 2;
        };
        if (sends) {
            const HANDLE thread = CreateThread(nullptr, 0, sending, &topic, 0, nullptr);
            EXPECT_EQ(WaitForSingleObject(thread, 60000), WAIT_OBJECT_0);
            CloseHandle(thread);
        }
        for (int i = 0; i < 3; ++i)
            ASSERT_EQ(post(topic), ERROR_SUCCESS);
        EXPECT_EQ(TopicConsumeAll(topic, 10000), ERROR_SUCCESS);
        EXPECT_EQ(handler.calls, sends ? 4 : 3);
        EXPECT_TRUE(send(topic) == ERROR_SUCCESS && TopicSubscribe(topic, second) == ERROR_SUCCESS);
        EXPECT_EQ(TopicUnsubscribe(topic, second, 10000), ERROR_SUCCESS);
        EXPECT_EQ(TopicUnsubscribe(topic, handler, 10000), ERROR_SUCCESS);
        topic.reset();
        EXPECT_FALSE(OpenMessageTopic(L"test topic").isValid());
        EXPECT_EQ(THPOpenThreadPool(L"test topicTopic"), INVALID_HANDLE_VALUE) << "nothing holds the topic";
    }
}

// In the loader lock all waits of a close or a cancel together take at most 5 seconds. The test provides the
// time.
TEST(Endings, AWholeCloseInTheLoaderLockTakesFiveSeconds)
{
    for (const unsigned long way : {0, 1, 2}) { // a topic; one category; a pool of two
        const bool topics = way == 0;
        const DWORD own = GetCurrentThreadId();
        std::atomic<ULONGLONG> passed{0};
        const TestEvent mayEnd;
        std::atomic<int> inside{0};
        const ProcessCounts before = ProcessCounts::now();
        const auto stay = [&] {
            ++inside;
            EXPECT_TRUE(mayEnd.wait());
        };
        Work work(stay);
        Handler handler(stay);
        TestPool pool{THPCategoryOptions()};
        TopicHandle topic = topicOf(handler);
        ASSERT_EQ(topics ? post(topic) : pool.queue(1, work), ERROR_SUCCESS);
        ASSERT_TRUE(topics || pool.queue(1, work, Option::AtEnd, nullptr, way) == ERROR_SUCCESS);
        ASSERT_TRUE(comesTrue([&] { return inside == (topics ? 1 : 2); }));
        const Clock clock([&](auto real) { return GetCurrentThreadId() == own ? passed.load() : real(); });
        const auto pass = [&](DWORD timeout) {
            passed += GetCurrentThreadId() == own ? timeout : 0;
            return GetCurrentThreadId() == own;
        };
        const Sleeping sleeps(
            failing(FALSE, ERROR_TIMEOUT, [&](auto, auto, DWORD timeout, ULONG) { return pass(timeout); }));
        const Multiple waits(
            failing(DWORD{WAIT_TIMEOUT}, 0, [&](DWORD, auto, BOOL, DWORD timeout) { return pass(timeout); }));
        {
            const LoaderLock lock(true);
            ASSERT_EQ(lock.got, 1U);
            EXPECT_TRUE(way != 1 || pool.cancel(1) == WAIT_TIMEOUT);
            if (way != 1)
                topics ? topic.reset() : pool.close();
        }
        EXPECT_EQ(passed, 5000U) << way;
        mayEnd.set();
        topic.reset();
        pool.close();
        EXPECT_TRUE(before.isReachedAgain());
    }
}

// Two that wait for each other, or close each other: one is told or gives way, and the other goes on when
// that one has ended.
TEST(Endings, TwoThatWaitForEachOtherEnd)
{
    for (const auto& calls : kMeetings) {
        SCOPED_TRACE(&calls - kMeetings);
        const bool topics = calls[0] == kConsume || calls[0] == kCloseTopic;
        void* handles[2] = {};
        const TestEvent arrived[2], ended[2];
        std::atomic<int> told{0};
        const auto body = [&](int self) {
            arrived[self].set();
            EXPECT_TRUE(arrived[1 - self].wait());
            const long code = calls[self](handles[1 - self]);
            EXPECT_TRUE(code == ERROR_SUCCESS || code == ERROR_CANCELLED || code == ERROR_POSSIBLE_DEADLOCK);
            told += code == ERROR_POSSIBLE_DEADLOCK ? 1 : 0;
            ended[self].set();
        };
        Work works[] = {Work([&] { body(0); }), Work([&] { body(1); })};
        Handler handlers[] = {Handler([&] { body(0); }), Handler([&] { body(1); })};
        const wchar_t* names[] = {L"ending 0", L"ending 1"};
        const ProcessCounts before = ProcessCounts::now();
        for (int i : {0, 1})
            handles[i] = topics ? CreateMessageTopic(names[i]).release() : THPCreateThreadPool(names[i]);
        for (int i : {0, 1}) {
            TopicHandle topic(topics ? handles[i] : nullptr);
            EXPECT_EQ(topics ? TopicSubscribe(topic, handlers[i]) + post(topic)
                             : THPQueueWork(handles[i], 1UL, 1UL, works[i], {}, Option::AtEnd, nullptr),
                      ERROR_SUCCESS);
            static_cast<void>(topic.release());
        }
        for (const TestEvent& event : ended)
            if (!event.wait())
                TerminateProcess(GetCurrentProcess(), 3);                    // they would never come back
        const bool givesWay = calls[1] == kClose || calls[1] == kCloseTopic; // a close does not wait
        EXPECT_TRUE(told == 1 || (told == 0 && givesWay));
        for (void* handle : handles) // if it is still open
            topics ? CloseMessageTopic(handle) : THPCloseThreadpool(handle);
        EXPECT_TRUE(before.isReachedAgain());
    }
}

// The last handle is closed while a worker is in a call on the pool, and a handler in one on its topic.
TEST(Endings, AClosedPoolOrTopicRunsNothingAnyMore)
{
    for (const bool topics : {false, true}) {
        const TestEvent inside;
        std::atomic<bool> ended{false};
        Multiple waits(before([&](DWORD count, auto...) {
            if (count == 1) // for one item
                inside.set();
        }));
        const auto stay = [&] {
            inside.set();
            Sleep(100);
            ended = true;
        };
        TestPool pool;
        TopicHandle topic = CreateMessageTopic(L"ending");
        void* const handles[] = {pool.handle, topic.get()};
        Blocker until;
        Work work([&] { // waits for other work, which only the close ends
            THPQueueWork(handles[0], 2UL, 1UL, until, HashMessageW(), Option::AtEnd, nullptr);
            EXPECT_EQ(THPWait(handles[0], 2UL, INFINITE, nullptr), ERROR_CANCELLED);
            stay();
        });
        Handler handler([&](const MessageW& message, std::uint32_t) { // sends to itself
            if (message.getId() == 1)
                return stay();
            TopicHandle own(handles[1]);
            EXPECT_EQ(send(own, 1), ERROR_SUCCESS);
            static_cast<void>(own.release());
        });
        ASSERT_EQ(TopicSubscribe(topic, handler), ERROR_SUCCESS);
        ASSERT_EQ(topics ? post(topic) : pool.queue(1, work), ERROR_SUCCESS);
        ASSERT_TRUE(inside.wait());
        topics ? topic.reset() : pool.close();
        EXPECT_TRUE(ended) << topics;
    }
}
