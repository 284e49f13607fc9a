#include "support/Pools.h"
#include "support/Threads.h"

namespace {
constexpr int kThreads = 8;
constexpr unsigned kNames = 3;        // few, so that the threads collide
constexpr ULONGLONG kHangs = 60000;   // milliseconds without a step
std::atomic<unsigned> liveObjects{0}; // what the running work uses

const wchar_t* nameOf(unsigned number)
{
    static constexpr const wchar_t* kPools[kNames] = {L"stress 0", L"stress 1", L"stress 2"};
    return kPools[number % kNames];
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
    if (context.getID() % 7 == 0)
        throw static_cast<long>(1117);
    return ERROR_SUCCESS;
}

void receive(const MessageW& message, std::uint32_t /*value*/)
{
    if (message.getId() % 11 == 0)
        throw static_cast<long>(1117);
    if (message.getId() % 17 == 0)
        post(CreateMessageTopic(nameOf(message.getId())), 1);
    std::free(std::malloc(message.getId()));
}

/// One thread's random calls. Any of them may be refused because another thread closes, suspends or removes
/// something; none may hang, and nothing may be lost.
class Caller
{
public:
    explicit Caller(unsigned seed) : m_random(seed) {}

    void run(ULONGLONG until)
    {
        while (GetTickCount64() < until)
            (m_random() % 3 == 0 ? messages() : pools());
        since = ~ULONGLONG{} - kHangs;
    }
    [[nodiscard]] bool hangs() const { return GetTickCount64() > since + kHangs; }
    std::atomic<const char*> what{"begin"};
    std::atomic<ULONGLONG> since{GetTickCount64()};

private:
    void begin(const char* text)
    {
        since = GetTickCount64();
        what = text;
    }

    void pools()
    {
        begin("create pool");
        const SmartHandle<THPCloseThreadpool> pool(THPCreateThreadPool(nameOf(m_random())));
        const unsigned long category = m_random() % 2;
        const unsigned long work = m_random() % 30;
        if (m_random() % 4 == 0)
            THPCreateCategory(pool.get(), category,
                              THPCategoryOptions(m_random() % 3 + 1, m_random() % 8 == 0 ? 4 : 0, 0, 0));
        for (unsigned left = m_random() % 12; left > 0; --left)
            call(pool.get(), category, work);
        begin("close pool");
    }

    void call(void* pool, unsigned long category, unsigned long work)
    {
        const Option option = m_random() % 2 == 0 ? Option::AtEnd : Option::AtFront;
        void* instance = nullptr;
        const auto queue = [&] {
            THPQueueWork(pool, category, work, &busy, HashMessageW(), option, &instance);
        };
        const std::pair<const char*, std::function<void()>> calls[] = {
            {"suspend", [&] { THPSuspendWork(pool, category); }},
            {"suspend work", [&] { THPSuspendWork(pool, category, work); }},
            {"cancel", [&] { THPCancelWork(pool, category, Operation::CancelAndReturn); }},
            {"cancel and wait", [&] { THPCancelWork(pool, category, work, Operation::CancelAndWait); }},
            {"wait", [&] { THPWait(pool, category, 200UL, nullptr); }},
            {"queue", queue},
            {"queue", queue},
            {"queue", queue},
        };
        const auto& [name, what] = calls[m_random() % std::size(calls)];
        begin(name);
        what();
        begin("allocate, perhaps beside suspended work");
        std::free(std::malloc(1000));
        begin("resume");
        THPResumeWork(pool, category);
        THPResumeWork(pool, category, work);
    }

    void messages()
    {
        begin("create topic");
        const TopicHandle topic = CreateMessageTopic(nameOf(m_random()));
        Handler subscriber(receive);
        TopicSubscribe(topic, subscriber);
        begin("post");
        for (unsigned left = m_random() % 20; left > 0; --left)
            post(topic, m_random() % 1000);
        begin("send");
        send(topic, m_random() % 1000);
        if (m_random() % 3 == 0)
            TopicStopConsumer(topic);
        begin("consume all");
        TopicConsumeAll(topic, 50);
        begin("unsubscribe");
        EXPECT_EQ(TopicUnsubscribe(topic, subscriber, INFINITE), ERROR_SUCCESS);
        begin("close topic");
    }

    std::mt19937 m_random;
};
} // namespace

// 60 seconds, or as many as SYSMAINT_STRESS_SECONDS says.
TEST(Stress, OfPoolsAndTopicsHangsNowhere)
{
    const char* wanted = std::getenv("SYSMAINT_STRESS_SECONDS");
    const ULONGLONG until = GetTickCount64() + 1000ULL * (wanted != nullptr ? std::atoi(wanted) : 60);
    const auto seed = static_cast<unsigned>(GetTickCount64());
    SCOPED_TRACE(seed);
    std::deque<Caller> callers;
    for (unsigned i = 0; i < kThreads; ++i)
        callers.emplace_back(seed + i);
    std::atomic<int> left{kThreads};
    onThreadsAtOnce(kThreads + 1, [&](int i) {
        if (i < kThreads) {
            callers[i].run(until);
            --left;
        }
        for (; i == kThreads && left != 0; Sleep(200)) // the watchdog
            if (std::any_of(callers.begin(), callers.end(), [](auto& caller) { return caller.hangs(); })) {
                for (const Caller& caller : callers)
                    std::fprintf(stderr, "seed %u: %s since %llu\n", seed, caller.what.load(),
                                 caller.since.load());
                TerminateProcess(GetCurrentProcess(), 3);
            }
    });
    EXPECT_EQ(liveObjects, 0U) << "the last handles are closed, so no work runs any more";
    for (unsigned i = 0; i < kNames; ++i) {
        EXPECT_EQ(THPOpenThreadPool(nameOf(i)), INVALID_HANDLE_VALUE);
        EXPECT_FALSE(OpenMessageTopic(nameOf(i)).isValid());
    }
}
