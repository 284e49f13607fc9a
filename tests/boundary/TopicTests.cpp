#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "core/win32/utils/communication/api.h"
#include "core/win32/utils/scanengine/api.h"
#include "core/win32/utils/threadpool/api.h"
#include "support/ImportReplacement.h"
#include "support/KernelCalls.h"
#include "support/Process.h"
#include "support/Threads.h"

namespace {
/// Does what the test says with plain messages, and writes down which operation was called.
template <class Base>
class Recorder : public Base
{
public:
    using Body = std::function<void(const MessageW&, std::uint32_t)>;

    explicit Recorder(Body messageBody = nullptr) : body(std::move(messageBody)) {}

    void onMessage(const MessageW& message, MessageW& reply, void* context) override
    {
        record("message", message, reply, 0xFFFFFFFF, context);
    }
    void onMessage(const MessageW& message, MessageW& reply, std::uint32_t value, void* context) override
    {
        record("message value", message, reply, value, context);
    }
    void onMessage(const DataMessage& message, DataMessage& reply, void* context) override
    {
        record("data", message, reply, 0xFFFFFFFF, context);
    }
    void onMessage(const DataMessage& message, DataMessage& reply, std::uint32_t value,
                   void* context) override
    {
        record("data value", message, reply, value, context);
    }
    void onMessage(const ArrayMessage& message, ArrayMessage& reply, void* context) override
    {
        record("array", message, reply, 0xFFFFFFFF, context);
    }
    void onMessage(const ArrayMessage& message, ArrayMessage& reply, std::uint32_t value,
                   void* context) override
    {
        record("array value", message, reply, value, context);
    }
    void onMessage(const HashMessageW& message, HashMessageW& reply, void* context) override
    {
        record("hash", message, reply, 0xFFFFFFFF, context);
    }
    void onMessage(const HashMessageW& message, HashMessageW& reply, std::uint32_t value,
                   void* context) override
    {
        record("hash value", message, reply, value, context);
    }

    Body body;
    std::string called;
    void* lastContext = nullptr;
    std::atomic<int> calls{0};

private:
    void record(const char* operation, const MessageW& message, MessageW& reply, std::uint32_t value,
                void* context)
    {
        ++calls;
        if (body)
            return body(message, value);
        called = operation;
        lastContext = context;
        reply.setId(message.getId() + 1);
    }
};
using Handler = Recorder<IMessageHandler>;
using Filter = Recorder<MessageFilter>;

MessageW message(std::uint32_t id)
{
    return MessageW(L"topic", id);
}

long post(const TopicHandle& topic, std::uint32_t id)
{
    return TopicPostMessage(topic, message(id));
}

long send(const TopicHandle& topic, std::uint32_t id = 0)
{
    MessageW reply;
    return TopicSendMessage(topic, message(id), reply, nullptr);
}

/// Checks that each of several posters' messages came once and in its order.
class OrderCheck
{
public:
    explicit OrderCheck(std::size_t posters) : m_next(posters) {}
    void take(std::uint32_t poster, std::uint32_t number)
    {
        if (m_busy.exchange(true))
            ++faults; // two deliveries at once
        if (m_next[poster]++ != number)
            ++faults;
        ++taken;
        m_busy = false;
    }
    std::atomic<long> faults{0};
    std::atomic<std::size_t> taken{0};

private:
    std::vector<std::uint32_t> m_next;
    std::atomic<bool> m_busy{false};
};
} // namespace

TEST(Topics, AreNamedOrNumberedAndShared)
{
    const wchar_t* name = nullptr;
    {
        const TopicHandle topic = CreateMessageTopic(L"named");
        const TopicHandle again = CreateMessageTopic(L"named");
        const TopicHandle opened = OpenMessageTopic(L"named");
        EXPECT_EQ(topic.get(), again.get());
        EXPECT_EQ(topic.get(), opened.get());
        const TopicHandle numbered = CreateMessageTopic(7UL);
        EXPECT_EQ(OpenMessageTopic(7UL).get(), numbered.get());
        EXPECT_EQ(TopicGetNameByHandle(numbered, &name), ERROR_SUCCESS);
        EXPECT_STREQ(name, L"#7");
        EXPECT_EQ(TopicGetNameByHandle(numbered, nullptr), ERROR_INVALID_PARAMETER);
    }
    EXPECT_FALSE(OpenMessageTopic(L"named").isValid());
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_NOT_FOUND));
}

template <class Type>
void sendAndPost(const TopicHandle& topic, Handler& handler, const std::string& operation)
{
    const Type sent(L"topic", 5);
    Type reply;
    int context = 0;
    EXPECT_EQ(TopicSendMessage(topic, sent, reply, &context), ERROR_SUCCESS);
    EXPECT_EQ(handler.called, operation);
    EXPECT_EQ(handler.lastContext, &context);
    EXPECT_EQ(reply.getId(), 6U);
    EXPECT_EQ(TopicSendMessage(topic, sent, reply, 0xFFFFFFFFUL, nullptr), ERROR_SUCCESS);
    EXPECT_EQ(handler.called, operation);
    EXPECT_EQ(TopicSendMessage(topic, sent, reply, 9UL, nullptr), ERROR_SUCCESS);
    EXPECT_EQ(handler.called, operation + " value");
    EXPECT_EQ(TopicPostMessage(topic, sent), ERROR_SUCCESS);
    EXPECT_EQ(TopicConsumeAll(topic, 60000), ERROR_SUCCESS);
    EXPECT_EQ(handler.called, operation);
    EXPECT_EQ(TopicPostMessage(topic, sent, 9UL), ERROR_SUCCESS);
    EXPECT_EQ(TopicConsumeAll(topic, 60000), ERROR_SUCCESS);
    EXPECT_EQ(handler.called, operation + " value");
}

TEST(Topics, CallTheOperationOfTheMessagesClass)
{
    const TopicHandle topic = CreateMessageTopic(L"classes");
    EXPECT_EQ(post(topic, 1), ERROR_SUCCESS) << "no subscriber: consumed and dropped";
    EXPECT_EQ(TopicConsumeAll(topic, 60000), ERROR_SUCCESS);
    Handler handler;
    MessageFilter passing; // lets everything pass that it has no operation for
    ASSERT_EQ(TopicSubscribe(topic, handler), ERROR_SUCCESS);
    ASSERT_EQ(TopicSubscribe(topic, passing), ERROR_SUCCESS);
    sendAndPost<MessageW>(topic, handler, "message");
    sendAndPost<DataMessage>(topic, handler, "data");
    sendAndPost<ArrayMessage>(topic, handler, "array");
    sendAndPost<HashMessageW>(topic, handler, "hash");
}

TEST(Topics, CallFiltersBeforeHandlersInTheOrderOfAddresses)
{
    const TopicHandle topic = CreateMessageTopic(L"order");
    std::vector<const void*> order;
    Handler handlers[3];
    Filter filters[3];
    for (int i : {2, 0, 1}) {
        handlers[i].body = [&order, &handlers, i](const MessageW&, std::uint32_t) {
            order.push_back(&handlers[i]);
        };
        filters[i].body = [&order, &filters, i](const MessageW& received, std::uint32_t) {
            order.push_back(&filters[i]);
            if (received.getId() == 13 && i == 1)
                throw Exception("place", 1450);
        };
        ASSERT_EQ(TopicSubscribe(topic, handlers[i]), ERROR_SUCCESS);
        ASSERT_EQ(TopicSubscribe(topic, filters[i]), ERROR_SUCCESS);
        ASSERT_EQ(TopicSubscribe(topic, filters[i]), ERROR_SUCCESS) << "again changes nothing";
    }
    EXPECT_EQ(send(topic, 1), ERROR_SUCCESS);
    EXPECT_EQ(order, (std::vector<const void*>{&filters[0], &filters[1], &filters[2], &handlers[0],
                                               &handlers[1], &handlers[2]}));
    order.clear();
    EXPECT_EQ(send(topic, 13), 1450);
    EXPECT_EQ(order, (std::vector<const void*>{&filters[0], &filters[1]}));
    EXPECT_EQ(TopicUnsubscribe(topic, filters[1], 0), ERROR_SUCCESS);
    EXPECT_EQ(TopicUnsubscribe(topic, filters[1], 0), ERROR_NOT_FOUND);
    EXPECT_EQ(send(topic, 13), ERROR_SUCCESS);
    handlers[0].body = [](const MessageW&, std::uint32_t) { throw 1117L; };
    EXPECT_EQ(send(topic, 1), 1117);
}

// 64 posters: none lost, none doubled, in each one's order, one at a time, three kernel calls each.
TEST(Topics, DeliverPostsOnceInEachPostersOrder)
{
    constexpr std::uint32_t kPosters = 64;
    constexpr std::uint32_t kPosts = 100;
    OrderCheck check(kPosters);
    const TopicHandle topic = CreateMessageTopic(L"posts");
    Handler handler(
        [&](const MessageW& received, std::uint32_t poster) { check.take(poster, received.getId()); });
    ASSERT_EQ(TopicSubscribe(topic, handler), ERROR_SUCCESS);
    const KernelCalls calls(sysmaintModule());
    onThreadsAtOnce(kPosters, [&](int poster) {
        for (std::uint32_t i = 0; i < kPosts; ++i)
            EXPECT_EQ(TopicPostMessage(topic, message(i), static_cast<unsigned long>(poster)), ERROR_SUCCESS);
    });
    EXPECT_EQ(TopicConsumeAll(topic, INFINITE), ERROR_SUCCESS);
    EXPECT_EQ(check.taken, kPosters * kPosts);
    EXPECT_EQ(check.faults, 0);
    RecordProperty("kernel_calls_per_100_posts", static_cast<int>(calls.total() * 100 / (kPosters * kPosts)));
}

TEST(Topics, LoseNothingWhenStoppedAndRestartedUnderLoad)
{
    constexpr std::uint32_t kPosters = 4;
    OrderCheck check(kPosters);
    const TopicHandle topic = CreateMessageTopic(L"restarts");
    Handler handler(
        [&](const MessageW& received, std::uint32_t poster) { check.take(poster, received.getId()); });
    ASSERT_EQ(TopicSubscribe(topic, handler), ERROR_SUCCESS);
    std::atomic<bool> ending{false};
    std::atomic<std::uint32_t> posted[kPosters]{};
    std::vector<std::thread> posters;
    for (std::uint32_t poster = 0; poster < kPosters; ++poster) {
        posters.emplace_back([&, poster] {
            while (!ending) {
                EXPECT_EQ(
                    TopicPostMessage(topic, message(posted[poster]), static_cast<unsigned long>(poster)), 0);
                ++posted[poster];
            }
        });
    }
    for (int round = 0; round < 1000; ++round) {
        const std::uint32_t before = posted[0];
        EXPECT_EQ(TopicStopConsumer(topic), ERROR_SUCCESS);
        while (posted[0] == before) // at least one post restarts it
            SwitchToThread();
    }
    ending = true;
    for (std::thread& poster : posters)
        poster.join();
    EXPECT_EQ(TopicPostMessage(topic, message(posted[0]), 0UL), ERROR_SUCCESS);
    EXPECT_EQ(TopicConsumeAll(topic, INFINITE), ERROR_SUCCESS);
    EXPECT_EQ(check.taken, posted[0] + posted[1] + posted[2] + posted[3] + 1);
    EXPECT_EQ(check.faults, 0);
}

TEST(Topics, StopKeepsWhatIsQueuedAndTheNextPostDeliversItFirst)
{
    const TopicHandle topic = CreateMessageTopic(L"stop");
    std::vector<std::uint32_t> order;
    TestEvent inside;
    TestEvent goOn;
    Handler handler([&](const MessageW& received, std::uint32_t) {
        order.push_back(received.getId());
        if (received.getId() != 1)
            return;
        inside.set();
        EXPECT_TRUE(goOn.wait());
        EXPECT_EQ(TopicConsumeAll(topic, INFINITE), ERROR_POSSIBLE_DEADLOCK);
    });
    ASSERT_EQ(TopicSubscribe(topic, handler), ERROR_SUCCESS);
    EXPECT_EQ(TopicConsumeAll(topic, 0), ERROR_SUCCESS) << "nothing was posted yet";
    for (std::uint32_t id : {1U, 2U, 3U})
        ASSERT_EQ(post(topic, id), ERROR_SUCCESS);
    ASSERT_TRUE(inside.wait());
    EXPECT_EQ(TopicConsumeAll(topic, 10), WAIT_TIMEOUT);
    EXPECT_EQ(TopicUnsubscribe(topic, handler, 10), WAIT_TIMEOUT) << "the delivery is under way";
    EXPECT_EQ(TopicStopConsumer(topic), ERROR_SUCCESS);
    EXPECT_EQ(TopicConsumeAll(topic, INFINITE), ERROR_SUCCESS) << "not working";
    ASSERT_EQ(post(topic, 4), ERROR_SUCCESS);
    long waited = -1;
    std::thread waiter([&] { waited = TopicConsumeAll(topic, INFINITE); });
    goOn.set();
    waiter.join();
    EXPECT_EQ(waited, ERROR_SUCCESS);
    EXPECT_EQ(order, (std::vector<std::uint32_t>{1, 2, 3, 4}));

    Handler stranger;
    EXPECT_EQ(TopicUnsubscribe(topic, stranger, 1000), ERROR_NOT_FOUND);
    EXPECT_EQ(TopicUnsubscribe(topic, handler, 60000), ERROR_SUCCESS);
    ASSERT_EQ(post(topic, 5), ERROR_SUCCESS) << "restarts after unsubscribing";
    EXPECT_EQ(TopicConsumeAll(topic, 60000), ERROR_SUCCESS);
    EXPECT_EQ(order.size(), 4U);
}

// What a handler does to its own topic from inside a delivery, sent and posted alike.
TEST(Topics, AllowEverythingFromInsideADelivery)
{
    const ProcessCounts before = ProcessCounts::now();
    for (const bool posted : {false, true}) {
        auto topic = std::make_unique<TopicHandle>(CreateMessageTopic(L"inside"));
        Handler late;
        Handler other;
        TestEvent done;
        TestEvent closed;
        Handler handler;
        handler.body = [&](const MessageW& received, std::uint32_t) {
            switch (received.getId()) {
            case 1:
                EXPECT_EQ(TopicSubscribe(*topic, late), ERROR_SUCCESS);
                EXPECT_EQ(TopicUnsubscribe(*topic, other, INFINITE), ERROR_SUCCESS);
                EXPECT_EQ(TopicUnsubscribe(*topic, other, INFINITE), ERROR_NOT_FOUND);
                EXPECT_EQ(send(*topic, 2), ERROR_SUCCESS);
                EXPECT_EQ(post(*topic, 3), ERROR_SUCCESS);
                done.set(); // from now on nobody stops the consumer
                break;
            case 4:
                EXPECT_EQ(TopicUnsubscribe(*topic, handler, INFINITE), ERROR_SUCCESS);
                EXPECT_EQ(send(*topic, 5), ERROR_SUCCESS);
                topic.reset(); // the last handle
                closed.set();
                break;
            default:
                break;
            }
        };
        ASSERT_EQ(TopicSubscribe(*topic, handler), ERROR_SUCCESS);
        ASSERT_EQ(TopicSubscribe(*topic, other), ERROR_SUCCESS);
        ASSERT_EQ(posted ? post(*topic, 1) : send(*topic, 1), ERROR_SUCCESS);
        ASSERT_TRUE(done.wait());
        ASSERT_EQ(post(*topic, 6), ERROR_SUCCESS);
        ASSERT_EQ(TopicConsumeAll(*topic, 60000), ERROR_SUCCESS);
        EXPECT_EQ(handler.calls, 4) << "1, 2, 3 and 6";
        EXPECT_GE(late.calls, 3) << "2, 3 and 6, and 1 if its turn came after";
        ASSERT_EQ(posted ? post(*topic, 4) : send(*topic, 4), ERROR_SUCCESS);
        EXPECT_TRUE(closed.wait());
        EXPECT_EQ(handler.calls, 5) << "5 did not reach it any more";
        ProcessCounts limit = before;
        limit.handles += 2; // the events above
        EXPECT_TRUE(limit.isReachedAgain()) << posted;
        EXPECT_FALSE(OpenMessageTopic(L"inside").isValid());
    }
}

// A handler is destroyed as soon as it is unsubscribed, while others send and post all the time.
TEST(Topics, ReachNoHandlerAfterItIsUnsubscribed)
{
    const TopicHandle topic = CreateMessageTopic(L"unsubscribe");
    std::atomic<bool> ending{false};
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&, i] {
            while (!ending)
                EXPECT_EQ(i % 2 == 0 ? send(topic) : post(topic, 0), ERROR_SUCCESS);
        });
    }
    std::atomic<long> afterwards{0};
    std::atomic<long> delivered{0};
    for (int round = 0; round < 300; ++round) {
        std::atomic<bool> alive{true};
        Handler handler([&](const MessageW&, std::uint32_t) {
            ++delivered;
            SwitchToThread();
            if (!alive)
                ++afterwards;
        });
        ASSERT_EQ(TopicSubscribe(topic, handler), ERROR_SUCCESS);
        while (handler.calls == 0)
            SwitchToThread();
        ASSERT_EQ(TopicUnsubscribe(topic, handler, INFINITE), ERROR_SUCCESS);
        alive = false;
    }
    ending = true;
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(afterwards, 0);
    EXPECT_GE(delivered, 300);
}

TEST(Topics, GoOnAfterAHandlerThatRaises)
{
    const TopicHandle topic = CreateMessageTopic(L"raising");
    std::vector<std::uint32_t> order;
    Handler handler([&](const MessageW& received, std::uint32_t) {
        order.push_back(received.getId());
        if (received.getId() % 2 == 0)
            throw static_cast<long>(received.getId() == 2 ? ERROR_CANCELLED : 1117);
    });
    ASSERT_EQ(TopicSubscribe(topic, handler), ERROR_SUCCESS);
    for (std::uint32_t id = 1; id <= 5; ++id)
        ASSERT_EQ(post(topic, id), ERROR_SUCCESS);
    EXPECT_EQ(TopicConsumeAll(topic, 60000), ERROR_SUCCESS);
    EXPECT_EQ(order, (std::vector<std::uint32_t>{1, 2, 3, 4, 5}));
}

// Each system call of the first post fails in turn: the poster gets the code, the message is not delivered,
// and posted again it is delivered once.
TEST(TopicFaults, FailingPostsAreReportedAndQueueNothing)
{
    const HMODULE dll = sysmaintModule();
    CountedImport<"CreateEventW", decltype(&CreateEventW)> events(dll);
    CountedImport<"CreateThread", decltype(&CreateThread)> threads(dll);
    CountedImport<"SetEvent", decltype(&SetEvent)> sets(dll);
    const std::pair<const char*, std::function<void()>> rows[] = {
        {"event of the queue", [&] { events.failCall(1, nullptr, 1450); }},
        {"first event of the thread", [&] { events.failCall(2, nullptr, 1450); }},
        {"last event of the thread", [&] { events.failCall(4, nullptr, 1450); }},
        {"thread", [&] { threads.failCall(1, nullptr, 1450); }},
    };
    for (const auto& [name, fail] : rows) {
        const TopicHandle topic = CreateMessageTopic(L"faults");
        Handler handler([](const MessageW&, std::uint32_t) {});
        ASSERT_EQ(TopicSubscribe(topic, handler), ERROR_SUCCESS);
        fail();
        EXPECT_EQ(post(topic, 1), 1450) << name;
        EXPECT_EQ(TopicConsumeAll(topic, INFINITE), ERROR_SUCCESS) << name;
        EXPECT_EQ(handler.calls, 0) << name;
        EXPECT_EQ(post(topic, 1), ERROR_SUCCESS) << name;
        EXPECT_EQ(TopicConsumeAll(topic, INFINITE), ERROR_SUCCESS) << name;
        EXPECT_EQ(handler.calls, 1) << name;
        // Stopping cannot signal the consumer: it goes on, and so does the topic.
        sets.failCall(1, FALSE, 1450);
        EXPECT_EQ(TopicStopConsumer(topic), 1450);
        EXPECT_EQ(TopicStopConsumer(topic), ERROR_SUCCESS);
        EXPECT_EQ(post(topic, 2), ERROR_SUCCESS);
        EXPECT_EQ(TopicConsumeAll(topic, INFINITE), ERROR_SUCCESS);
        EXPECT_EQ(handler.calls, 2);
    }
}

TEST(Topics, CarryTheRequestsOfObjectTables)
{
    EXPECT_EQ(ServeObjectRequests(nullptr, 1), ERROR_INVALID_PARAMETER);
    EXPECT_EQ(ServeObjectRequests(L"Nothing", 1), ERROR_NOT_FOUND);
    const wchar_t* topicName = L"ObjectManager<ScanItem>";
    EXPECT_FALSE(OpenMessageTopic(topicName).isValid());
    for (int round = 0; round < 2; ++round) {
        ASSERT_EQ(ServeObjectRequests(L"ScanItem", 1), ERROR_SUCCESS);
        ASSERT_EQ(ServeObjectRequests(L"ScanItem", 1), ERROR_SUCCESS);
        void* item = CreateFileW(L"served", L"C:\\file", 0);
        ASSERT_NE(item, INVALID_HANDLE_VALUE);
        {
            const TopicHandle topic = OpenMessageTopic(topicName);
            HashMessageW request(topicName, 0);
            request.setParameter(L"ObjectName", L"served\\C:\\file");
            request.setParameter(L"DumpCode", std::uint32_t{9});
            request.setParameter(L"ObjectData", L"", 0);
            HashMessageW reply;
            EXPECT_EQ(TopicSendMessage(topic, request, reply, nullptr), ERROR_SUCCESS);
            std::uint32_t dirty = 0;
            EXPECT_EQ(reply.getParameter(L"Dirty", dirty), ERROR_SUCCESS);
            EXPECT_EQ(dirty, 1U);
            DataMessage data;
            MessageW plain;
            EXPECT_EQ(TopicSendMessage(topic, plain, plain, nullptr), ERROR_INVALID_PARAMETER);
            EXPECT_EQ(TopicSendMessage(topic, data, data, 1UL, nullptr), ERROR_INVALID_PARAMETER);
            EXPECT_EQ(TopicSendMessage(topic, request, reply, 1UL, nullptr), ERROR_INVALID_PARAMETER);
        }
        EXPECT_NE(CloseScanItem(item), 0);
        EXPECT_EQ(ServeObjectRequests(L"ScanItem", 0), ERROR_SUCCESS);
        EXPECT_EQ(ServeObjectRequests(L"ScanItem", 0), ERROR_SUCCESS);
        EXPECT_FALSE(OpenMessageTopic(topicName).isValid());
    }
}

TEST(Topics, GiveEverythingBackWhenClosed)
{
    const HeapWatch watch(sysmaintModule());
    for (int i = 0; i < 40; ++i) { // what the process makes once and keeps, also for each freed handle
        const TopicHandle topic = CreateMessageTopic(L"counted");
        post(topic, 1);
    }
    const ProcessCounts before = ProcessCounts::now();
    for (int round = 0; round < 20; ++round) {
        const TopicHandle topic = CreateMessageTopic(L"counted");
        Handler handler([](const MessageW&, std::uint32_t) {});
        ASSERT_EQ(TopicSubscribe(topic, handler), ERROR_SUCCESS);
        for (std::uint32_t id = 0; id < 50; ++id)
            ASSERT_EQ(post(topic, id), ERROR_SUCCESS);
    }
    EXPECT_TRUE(before.isReachedAgain()) << before.describe() << " " << HeapWatch::describe();
}
