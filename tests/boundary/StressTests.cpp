#include "support/Pools.h"

namespace {
constexpr int kThreads = 8;
constexpr const wchar_t* kNames[] = {L"stress 0", L"stress 1",
                                     L"stress 2"}; // few, so that the threads collide
std::atomic<unsigned> liveObjects{0};              // what the running work uses

const wchar_t* nameOf(unsigned number)
{
    return kNames[number % std::size(kNames)];
}

long busy(IThreadContext& context, void* cancelEvent)
{
    ++liveObjects;
    for (unsigned i = 0; i < 20 && WaitForSingleObject(cancelEvent, 0) != WAIT_OBJECT_0; ++i) {
        std::free(std::malloc(std::size_t{100} * (i + 1)));
        if (i == 5)
            FreeLibrary(LoadLibraryW(L"version.dll"));
        int running = 0;
        const SmartHandle<THPCloseThreadpool> pool(THPOpenThreadPool(nameOf(context.getID())));
        THPIsRunning(pool.get(), 1UL, running);
    }
    --liveObjects;
    return context.getID() % 7 == 0 ? throw 1117L : ERROR_SUCCESS;
}

void receive(const MessageW& message, std::uint32_t /*value*/)
{
    if (message.getId() % 11 == 0)
        throw 1117L;
    if (message.getId() % 17 == 0)
        post(CreateMessageTopic(nameOf(message.getId())), 1);
    std::free(std::malloc(message.getId()));
}

/// One thread's random calls. Any of them may be refused because another thread closes, suspends or removes
/// something; none may hang, and nothing may be lost.
struct Caller
{
    explicit Caller(unsigned seed) : random(seed) {}
    void run(ULONGLONG until)
    {
        while (GetTickCount64() < until)
            (random() % 3 == 0 ? messages() : pools());
    }
    void pools()
    {
        const SmartHandle<THPCloseThreadpool> pool(THPCreateThreadPool(nameOf(random())));
        const unsigned long category = random() % 2, work = random() % 30;
        if (random() % 4 == 0)
            THPCreateCategory(pool.get(), category,
                              THPCategoryOptions(random() % 3 + 1, random() % 8 == 0 ? 4 : 0, 0, 0));
        for (unsigned left = random() % 12; left > 0; --left)
            call(pool.get(), category, work);
    }

    void call(void* pool, unsigned long category, unsigned long work)
    {
        const Option option = random() % 2 == 0 ? Option::AtEnd : Option::AtFront;
        void* instance = nullptr;
        const auto queue = [&] {
            THPQueueWork(pool, category, work, &busy, HashMessageW(), option, &instance);
        };
        const std::function<void()> calls[] = {
            queue,
            queue,
            queue,
            [&] { THPSuspendWork(pool, category); },
            [&] { THPSuspendWork(pool, category, work); },
            [&] { THPCancelWork(pool, category, Operation::CancelAndReturn); },
            [&] { THPCancelWork(pool, category, work, Operation::CancelAndWait); },
            [&] { THPWait(pool, category, 200UL, nullptr); }};
        calls[random() % std::size(calls)]();
        std::free(std::malloc(1000)); // perhaps beside suspended work
        THPResumeWork(pool, category);
        THPResumeWork(pool, category, work);
    }

    void messages()
    {
        const TopicHandle topic = CreateMessageTopic(nameOf(random()));
        Handler subscriber(receive);
        TopicSubscribe(topic, subscriber);
        for (unsigned left = random() % 20; left > 0; --left)
            post(topic, random() % 1000);
        send(topic, random() % 1000);
        if (random() % 3 == 0)
            TopicStopConsumer(topic);
        TopicConsumeAll(topic, 50);
        EXPECT_EQ(TopicUnsubscribe(topic, subscriber, INFINITE), ERROR_SUCCESS);
    }

    std::mt19937 random;
};
} // namespace

// 60 seconds, or as many as SYSMAINT_STRESS_SECONDS says.
TEST(Stress, OfPoolsAndTopicsHangsNowhere)
{
    const char* wanted = std::getenv("SYSMAINT_STRESS_SECONDS");
    const ULONGLONG until = GetTickCount64() + 1000ULL * (wanted != nullptr ? std::atoi(wanted) : 60);
    const auto seed = static_cast<unsigned>(GetTickCount64());
    SCOPED_TRACE(seed);
    onThreadsAtOnce(kThreads, [&](int i) { Caller(seed + static_cast<unsigned>(i)).run(until); });
    // The last handle may have been closed by work, which does not wait for itself.
    EXPECT_TRUE(comesTrue([] { return liveObjects == 0; })) << "all handles are closed";
    for (const wchar_t* name : kNames) {
        EXPECT_TRUE(THPOpenThreadPool(name) == INVALID_HANDLE_VALUE && !OpenMessageTopic(name).isValid());
    }
}
