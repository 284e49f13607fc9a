#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <cstdlib>
#include <random>
#include <string>
#include <thread>

#include "core/win32/utils/communication/api.h"
#include "core/win32/utils/threadpool/api.h"

namespace {
using Operation = IThreadPool::OperationType;
using Option = ITHPWorkItem::ScheduleOption;

constexpr int kThreads = 8;
constexpr unsigned kNames = 3;        // few, so that the threads get into each other's way
constexpr ULONGLONG kHangs = 60000;   // milliseconds without a step
std::atomic<unsigned> liveObjects{0}; // what the running work uses

const wchar_t* nameOf(unsigned number)
{
    static constexpr const wchar_t* kPools[kNames] = {L"stress 0", L"stress 1", L"stress 2"};
    return kPools[number % kNames];
}

/// What a thread is doing, for the watchdog.
struct Step
{
    std::atomic<const char*> what{"nothing"};
    std::atomic<ULONGLONG> since{0};
    void begin(const char* text)
    {
        what = text;
        since = GetTickCount64();
    }
};

long busy(IThreadContext& context, void* cancelEvent)
{
    ++liveObjects;
    for (unsigned i = 0; i < 20 && WaitForSingleObject(cancelEvent, 0) != WAIT_OBJECT_0; ++i) {
        std::free(std::malloc(100 * (i + 1)));
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

struct Subscriber : IMessageHandler
{
    using IMessageHandler::onMessage;
    void onMessage(const MessageW& message, MessageW&, void*) override
    {
        if (message.getId() % 11 == 0)
            throw static_cast<long>(1117);
        if (message.getId() % 17 == 0)
            TopicPostMessage(CreateMessageTopic(nameOf(message.getId())), MessageW(L"stress", 1));
        std::free(std::malloc(message.getId()));
    }
};

/// One thread's random calls. What another thread closes, suspends or takes away meanwhile may refuse any of
/// them; none may hang, and nothing may be lost.
class Caller
{
public:
    Caller(unsigned seed, Step& step) : m_random(seed), m_step(step) {}

    void run(ULONGLONG until)
    {
        while (GetTickCount64() < until)
            (m_random() % 3 == 0 ? messages() : pools());
        m_step.begin("nothing");
    }

private:
    void pools()
    {
        const unsigned number = m_random() % kNames;
        m_step.begin("create pool");
        const SmartHandle<THPCloseThreadpool> pool(THPCreateThreadPool(nameOf(number)));
        const unsigned long category = m_random() % 2;
        const unsigned long work = m_random() % 30;
        if (m_random() % 4 == 0)
            THPCreateCategory(pool.get(), category,
                              THPCategoryOptions(m_random() % 3 + 1, m_random() % 8 == 0 ? 4 : 0, 0, 0));
        const unsigned calls = m_random() % 12;
        for (unsigned i = 0; i < calls; ++i)
            call(pool.get(), category, work);
        m_step.begin("close pool");
    }

    void call(void* pool, unsigned long category, unsigned long work)
    {
        void* instance = nullptr;
        switch (m_random() % 8) {
        case 0:
            m_step.begin("suspend");
            THPSuspendWork(pool, category);
            m_step.begin("allocate beside suspended work");
            std::free(std::malloc(1000));
            m_step.begin("resume");
            THPResumeWork(pool, category);
            break;
        case 1:
            m_step.begin("suspend work");
            THPSuspendWork(pool, category, work);
            m_step.begin("resume work");
            THPResumeWork(pool, category, work);
            break;
        case 2:
            m_step.begin("cancel");
            THPCancelWork(pool, category, Operation::CancelAndReturn);
            break;
        case 3:
            m_step.begin("cancel and wait");
            THPCancelWork(pool, category, work, Operation::CancelAndWait);
            break;
        case 4:
            m_step.begin("wait");
            THPWait(pool, category, 200UL, nullptr);
            break;
        default:
            m_step.begin("queue");
            THPQueueWork(pool, category, work, &busy, HashMessageW(),
                         m_random() % 2 == 0 ? Option::AtEnd : Option::AtFront, &instance);
        }
    }

    void messages()
    {
        m_step.begin("create topic");
        const TopicHandle topic = CreateMessageTopic(nameOf(m_random()));
        Subscriber subscriber;
        TopicSubscribe(topic, subscriber);
        const unsigned posts = m_random() % 20;
        m_step.begin("post");
        for (unsigned i = 0; i < posts; ++i)
            TopicPostMessage(topic, MessageW(L"stress", m_random() % 1000));
        MessageW reply;
        m_step.begin("send");
        TopicSendMessage(topic, MessageW(L"stress", m_random() % 1000), reply, nullptr);
        if (m_random() % 3 == 0)
            TopicStopConsumer(topic);
        m_step.begin("consume all");
        TopicConsumeAll(topic, 50);
        m_step.begin("unsubscribe");
        EXPECT_EQ(TopicUnsubscribe(topic, subscriber, INFINITE), ERROR_SUCCESS);
        m_step.begin("close topic");
    }

    std::mt19937 m_random;
    Step& m_step;
};
} // namespace

// 60 seconds, or as many as SYSMAINT_STRESS_SECONDS says.
TEST(Stress, OfPoolsAndTopicsHangsNowhere)
{
    const char* wanted = std::getenv("SYSMAINT_STRESS_SECONDS");
    const ULONGLONG until = GetTickCount64() + 1000ULL * (wanted != nullptr ? std::atoi(wanted) : 60);
    const auto seed = static_cast<unsigned>(GetTickCount64());
    RecordProperty("seed", std::to_string(seed));
    std::array<Step, kThreads> steps;
    std::atomic<int> left{kThreads};
    std::thread watchdog([&] {
        while (left != 0) {
            Sleep(200);
            for (const Step& step : steps) {
                const ULONGLONG since = step.since;
                if (since == 0 || GetTickCount64() < since + kHangs ||
                    step.what.load() == std::string("nothing"))
                    continue;
                for (const Step& each : steps)
                    std::fprintf(stderr, "seed %u: %s for %llu ms\n", seed, each.what.load(),
                                 GetTickCount64() - each.since);
                TerminateProcess(GetCurrentProcess(), 3);
            }
        }
    });
    std::array<std::thread, kThreads> threads;
    for (unsigned i = 0; i < kThreads; ++i)
        threads[i] = std::thread([&, i] {
            Caller(seed + i, steps[i]).run(until);
            --left;
        });
    for (std::thread& thread : threads)
        thread.join();
    watchdog.join();
    EXPECT_EQ(liveObjects, 0U) << "the last handles are closed, so no work runs any more";
    for (unsigned i = 0; i < kNames; ++i) {
        EXPECT_EQ(THPOpenThreadPool(nameOf(i)), INVALID_HANDLE_VALUE);
        EXPECT_FALSE(OpenMessageTopic(nameOf(i)).isValid());
    }
}
