#include "core/win32/utils/scanengine/api.h"
#include "support/Pools.h"

namespace {
/// Sends and posts a message of that class with and without a value.
template <class Type>
void sendAndPost(const TopicHandle& topic, Handler& handler)
{
    const std::string operation = typeid(Type).name();
    const Type message(L"topic", 5);
    Type reply;
    int context = 0;
    const auto expect = [&](const std::string& called, bool isSent, long code) {
        EXPECT_TRUE(code == ERROR_SUCCESS && TopicConsumeAll(topic, 60000) == ERROR_SUCCESS);
        EXPECT_EQ(std::exchange(handler.called, ""), operation + called);
        EXPECT_EQ(reply.getId(), isSent ? 6U : 0U);
        EXPECT_EQ(handler.lastContext, isSent ? &context : nullptr);
        reply.setId(0);
    };
    expect("", true, TopicSendMessage(topic, message, reply, &context));
    expect("", true, TopicSendMessage(topic, message, reply, 0xFFFFFFFFUL, &context));
    expect(" value", true, TopicSendMessage(topic, message, reply, 9UL, &context));
    expect("", false, TopicPostMessage(topic, message));
    expect(" value", false, TopicPostMessage(topic, message, 9UL));
}
} // namespace

TEST(Topics, AreNamedOrNumberedAndCallTheOperationOfTheMessagesClass)
{
    const wchar_t* name = nullptr;
    const TopicHandle topic = CreateMessageTopic(7UL);
    EXPECT_EQ(topic.get(), CreateMessageTopic(L"#7").get());
    EXPECT_EQ(topic.get(), OpenMessageTopic(7UL).get());
    EXPECT_EQ(TopicGetNameByHandle(topic, &name), ERROR_SUCCESS);
    EXPECT_STREQ(name, L"#7");
    Handler handler;
    MessageFilter passing; // passes everything that it has no operation for
    ASSERT_EQ(TopicSubscribe(topic, handler) + TopicSubscribe(topic, passing), ERROR_SUCCESS);
    sendAndPost<MessageW>(topic, handler);
    sendAndPost<DataMessage>(topic, handler);
    sendAndPost<ArrayMessage>(topic, handler);
    sendAndPost<HashMessageW>(topic, handler);
}

TEST(Topics, CallFiltersBeforeHandlersInTheOrderOfAddresses)
{
    const TopicHandle topic = CreateMessageTopic(L"order");
    std::vector<const void*> order;
    Handler handlers[3];
    Filter filters[3];
    for (int i : {2, 0, 1}) {
        handlers[i].body = [&, i](const MessageW&, std::uint32_t) { order.push_back(&handlers[i]); };
        filters[i].body = [&, i](const MessageW& received, std::uint32_t) {
            order.push_back(&filters[i]);
            if (received.getId() == 13 && i == 1)
                throw Exception("place", 1450);
        };
        ASSERT_EQ(TopicSubscribe(topic, handlers[i]), ERROR_SUCCESS);
        ASSERT_EQ(TopicSubscribe(topic, filters[i]), ERROR_SUCCESS);
        ASSERT_EQ(TopicSubscribe(topic, filters[i]), ERROR_SUCCESS) << "again changes nothing";
    }
    EXPECT_TRUE(send(topic, 1) == ERROR_SUCCESS && send(topic, 13) == 1450);
    EXPECT_EQ(order, (std::vector<const void*>{&filters[0], &filters[1], &filters[2], &handlers[0],
                                               &handlers[1], &handlers[2], &filters[0], &filters[1]}));
    EXPECT_EQ(TopicUnsubscribe(topic, filters[1], 0), ERROR_SUCCESS);
    EXPECT_EQ(TopicUnsubscribe(topic, filters[1], 0), ERROR_NOT_FOUND);
    EXPECT_EQ(send(topic, 13), ERROR_SUCCESS);
    handlers[0].body = [](const MessageW&, std::uint32_t) { throw 1117L; };
    EXPECT_EQ(send(topic, 1), 1117);
}

// 64 posters, a handler that often raises and a consumer that is stopped all the time: none lost, none
// doubled, in each poster's order, one at a time.
TEST(Topics, DeliverPostsOnceInEachPostersOrder)
{
    constexpr int kPosters = 64;
    constexpr std::uint32_t kPosts = 200;
    std::vector<std::uint32_t> next(kPosters);
    std::atomic<bool> busy{false};
    std::atomic<std::uint32_t> posted{0};
    Handler handler([&](const MessageW& received, std::uint32_t poster) {
        EXPECT_FALSE(busy.exchange(true)) << "two deliveries at once";
        EXPECT_EQ(next[poster]++, received.getId());
        busy = false;
        if (received.getId() % 50 < 2)
            throw static_cast<long>(received.getId() % 50 == 0 ? ERROR_CANCELLED : 1117);
    });
    const TopicHandle topic = topicOf(handler);
    std::thread posters([&] {
        onThreadsAtOnce(kPosters, [&](int poster) {
            for (std::uint32_t i = 0; i < kPosts; ++i, ++posted)
                EXPECT_EQ(TopicPostMessage(topic, MessageW(L"", i), static_cast<unsigned long>(poster)), 0);
        });
    });
    for (std::uint32_t before = 0; before < kPosters * kPosts; before = posted) {
        while (posted == before) // at least one post restarts it
            SwitchToThread();
        EXPECT_EQ(TopicStopConsumer(topic), ERROR_SUCCESS);
    }
    posters.join();
    for (const std::uint32_t number : {kPosts, kPosts + 1}) { // raises, does not raise
        EXPECT_EQ(TopicPostMessage(topic, MessageW(L"", number), 0UL), ERROR_SUCCESS);
        EXPECT_EQ(TopicConsumeAll(topic, INFINITE), ERROR_SUCCESS);
    }
    next[0] -= 2;
    EXPECT_EQ(next, std::vector<std::uint32_t>(kPosters, kPosts));
}

TEST(Topics, TakeBackWhatIsPostedWithoutMemory)
{
    const HeapWatch watch(sysmaintModule());
    int refused = 0;
    for (long from = 1; from <= 30; ++from) {
        SCOPED_TRACE(from);
        std::vector<std::uint32_t> delivered;
        Handler handler(
            [&](const MessageW& received, std::uint32_t) { delivered.push_back(received.getId()); });
        const TopicHandle topic = topicOf(handler);
        HeapWatch::armFrom(from);
        const long code = TopicPostMessage(topic, MessageW(7UL, 1));
        HeapWatch::disarm();
        refused += code == ERROR_NOT_ENOUGH_MEMORY ? 1 : 0;
        EXPECT_TRUE(code == ERROR_SUCCESS || code == ERROR_NOT_ENOUGH_MEMORY) << code;
        EXPECT_EQ(TopicPostMessage(topic, MessageW(7UL, 2)), ERROR_SUCCESS);
        EXPECT_EQ(TopicConsumeAll(topic, 60000), ERROR_SUCCESS);
        EXPECT_EQ(delivered.size(), code == ERROR_SUCCESS ? 2U : 1U);
        EXPECT_EQ(delivered.back(), 2U);
    }
    EXPECT_TRUE(refused > 5 && refused < 30) << refused;
}

// One has posted, and one waits, while the consumer that both rely on cannot begin.
TEST(Topics, LookAfterThoseWhoReliedOnAConsumerThatCannotBegin)
{
    Replaced<"CreateThread", decltype(&CreateThread)> threads;
    for (const long failures : {1L, 2L}) {
        const TestEvent waiting;
        const Replaced<"SleepConditionVariableSRW", decltype(&SleepConditionVariableSRW)> sleeps(
            before([&](auto...) { waiting.set(); }));
        Handler handler;
        const TopicHandle topic = topicOf(handler);
        std::thread waiter;
        threads.reset();
        threads.setHook([&](auto original, auto... arguments) {
            if (threads.calls() == 1) {
                EXPECT_EQ(post(topic), ERROR_SUCCESS);
                waiter = std::thread([&] {
                    EXPECT_EQ(TopicConsumeAll(topic, INFINITE), failures == 1 ? 0 : ERROR_CANCELLED);
                });
                EXPECT_TRUE(waiting.wait());
            }
            SetLastError(1450);
            return threads.calls() <= failures ? nullptr : original(arguments...);
        });
        EXPECT_EQ(post(topic), 1450);
        waiter.join();
        EXPECT_EQ(handler.calls, failures == 1 ? 1 : 0);
    }
}

TEST(Topics, StopKeepsWhatIsQueuedAndTheNextPostDeliversItFirst)
{
    std::vector<std::uint32_t> order;
    const TestEvent inside, goOn;
    const TopicHandle topic = CreateMessageTopic(L"stop");
    Handler handler([&](const MessageW& received, std::uint32_t) {
        order.push_back(received.getId());
        if (received.getId() != 1)
            return;
        inside.set();
        EXPECT_TRUE(goOn.wait() && TopicConsumeAll(topic, INFINITE) == ERROR_POSSIBLE_DEADLOCK);
    });
    ASSERT_EQ(TopicSubscribe(topic, handler), ERROR_SUCCESS);
    EXPECT_EQ(TopicConsumeAll(topic, 0), ERROR_SUCCESS) << "nothing was posted yet";
    ASSERT_EQ(post(topic, 1), ERROR_SUCCESS);
    ASSERT_TRUE(inside.wait());
    const TestEvent waiting;
    const Replaced<"SleepConditionVariableSRW", decltype(&SleepConditionVariableSRW)> sleeps(
        before([&](auto...) { waiting.set(); }));
    std::thread released([&] { EXPECT_EQ(TopicConsumeAll(topic, INFINITE), ERROR_CANCELLED); });
    ASSERT_TRUE(waiting.wait()); // for the queue that is empty already
    EXPECT_EQ(TopicStopConsumer(topic), ERROR_SUCCESS);
    released.join();
    for (std::uint32_t id : {2U, 3U})
        ASSERT_EQ(post(topic, id), ERROR_SUCCESS);
    EXPECT_EQ(TopicConsumeAll(topic, 10), WAIT_TIMEOUT);
    EXPECT_EQ(TopicUnsubscribe(topic, handler, 10), WAIT_TIMEOUT) << "the delivery is under way";
    EXPECT_EQ(TopicConsumeAll(topic, 10), ERROR_CANCELLED) << "it stopped the consumer, two are left";
    EXPECT_EQ(TopicStopConsumer(topic), ERROR_SUCCESS);
    ASSERT_EQ(post(topic, 4), ERROR_SUCCESS);
    std::thread waiter([&] { EXPECT_EQ(TopicConsumeAll(topic, INFINITE), ERROR_SUCCESS); });
    goOn.set();
    waiter.join();

    Handler stranger;
    EXPECT_EQ(TopicUnsubscribe(topic, stranger, 1000), ERROR_NOT_FOUND);
    EXPECT_EQ(TopicUnsubscribe(topic, handler, 60000), ERROR_SUCCESS);
    ASSERT_EQ(post(topic, 5), ERROR_SUCCESS) << "restarts, and without subscribers it is dropped";
    EXPECT_EQ(TopicConsumeAll(topic, 60000), ERROR_SUCCESS);
    EXPECT_EQ(order, (std::vector<std::uint32_t>{1, 2, 3, 4}));
}

// What a handler does to its own topic from inside a delivery, sent and posted alike.
TEST(Topics, AllowEverythingFromInsideADelivery)
{
    for (const auto deliver : {send, post}) {
        const TestEvent done, closed;
        const ProcessCounts before = ProcessCounts::now();
        auto topic = std::make_unique<TopicHandle>(CreateMessageTopic(L"inside"));
        Handler late, other, handler;
        handler.body = [&](const MessageW& received, std::uint32_t) {
            if (received.getId() == 1) {
                EXPECT_EQ(TopicSubscribe(*topic, late), ERROR_SUCCESS);
                EXPECT_EQ(TopicUnsubscribe(*topic, other, INFINITE), ERROR_SUCCESS);
                EXPECT_EQ(TopicUnsubscribe(*topic, other, INFINITE), ERROR_NOT_FOUND);
                EXPECT_TRUE(send(*topic, 2) == ERROR_SUCCESS && post(*topic, 3) == ERROR_SUCCESS);
                done.set(); // from now on nobody stops the consumer
            } else if (received.getId() == 4) {
                EXPECT_EQ(TopicUnsubscribe(*topic, handler, INFINITE), ERROR_SUCCESS);
                EXPECT_EQ(send(*topic, 5), ERROR_SUCCESS);
                topic.reset(); // the last handle
                closed.set();
            }
        };
        ASSERT_EQ(TopicSubscribe(*topic, handler) + TopicSubscribe(*topic, other), ERROR_SUCCESS);
        ASSERT_EQ(deliver(*topic, 1), ERROR_SUCCESS);
        ASSERT_TRUE(done.wait());
        ASSERT_EQ(post(*topic, 6), ERROR_SUCCESS);
        ASSERT_EQ(TopicConsumeAll(*topic, 60000), ERROR_SUCCESS);
        EXPECT_EQ(handler.calls, 4) << "1, 2, 3 and 6";
        EXPECT_GE(late.calls, 3) << "2, 3 and 6, and 1 if its turn came after";
        ASSERT_EQ(deliver(*topic, 4), ERROR_SUCCESS);
        EXPECT_TRUE(closed.wait());
        EXPECT_EQ(handler.calls, 5) << "5 did not reach it any more";
        EXPECT_TRUE(before.isReachedAgain());
        EXPECT_FALSE(OpenMessageTopic(L"inside").isValid());
    }
}

// Somebody closes the pool of the consumer, with the topic's own opening: a handler in the middle of a
// delivery, or another thread.
TEST(Topics, EndAfterAHandlerWhosePoolWasClosed)
{
    for (const bool fromInside : {true, false}) {
        const TestEvent inside, closing, goOn;
        const ProcessCounts before = ProcessCounts::now();
        std::atomic<bool> ended{false};
        const auto closePool = [] {
            void* const pool = THPOpenThreadPool(L"test topicTopic");
            EXPECT_TRUE(THPCloseThreadpool(pool) != 0 && THPCloseThreadpool(pool) != 0);
        };
        Handler handler([&] {
            if (fromInside)
                closePool();
            inside.set();
            EXPECT_TRUE(goOn.wait());
            ended = true;
        });
        TopicHandle topic = topicOf(handler);
        const Replaced<"WaitForMultipleObjects", decltype(&WaitForMultipleObjects)> waits(
            ::before([&](DWORD count, auto...) { count == 1 ? goOn.set() : void(); }));
        const Replaced<"SleepConditionVariableSRW", decltype(&SleepConditionVariableSRW)> sleeps(
            ::before([&](auto...) { closing.set(); }));
        ASSERT_EQ(post(topic), ERROR_SUCCESS);
        ASSERT_TRUE(inside.wait());
        std::thread closer([&] { fromInside ? closing.set() : closePool(); });
        EXPECT_TRUE(closing.wait());
        void* const other = THPCreateThreadPool(L"other"); // which gets the number
        topic.reset();                                     // waits, and lets the handler go on
        EXPECT_NE(THPCloseThreadpool(other), 0) << "it is nobody else's";
        EXPECT_TRUE(ended) << fromInside;
        goOn.set();
        closer.join();
        EXPECT_TRUE(before.isReachedAgain());
    }
}

TEST(Topics, DeliverNothingOnceTheyAreClosedWhileTheConsumerBegins)
{
    const ProcessCounts before = ProcessCounts::now();
    Handler handler;
    TopicHandle topic = topicOf(handler);
    const Replaced<"CreateThread", decltype(&CreateThread)> threads(
        after([&](auto...) { EXPECT_NE(CloseMessageTopic(topic.release()), 0); }));
    EXPECT_EQ(post(topic), ERROR_SUCCESS);
    EXPECT_TRUE(before.isReachedAgain());
    EXPECT_EQ(handler.calls, 0);
}

TEST(Topics, CarryTheRequestsOfObjectTables)
{
    const wchar_t* const topicName = L"ObjectManager<ScanItem>";
    const SmartHandle<CloseScanItem> item(CreateFileW(L"served", L"C:\\file", 0));
    HashMessageW request(topicName, 0);
    request.setParameter(L"ObjectName", L"served\\C:\\file");
    request.setParameter(L"DumpCode", std::uint32_t{9});
    request.setParameter(L"ObjectData", L"", 0);
    const HeapWatch watch(sysmaintModule());
    for (long failing = 1;; ++failing) {
        HeapWatch::arm(failing);
        const long code = ServeObjectRequests(L"ScanItem", 1);
        HeapWatch::disarm();
        if (code == ERROR_SUCCESS) {
            EXPECT_GT(failing, 3);
            break;
        }
        EXPECT_EQ(code, ERROR_NOT_ENOUGH_MEMORY) << failing;
        ASSERT_FALSE(OpenMessageTopic(topicName).isValid()) << failing;
    }
    for (const int served : {0, 1, 1, 0, 0, 1, 0}) {
        EXPECT_EQ(ServeObjectRequests(L"ScanItem", served), ERROR_SUCCESS);
        const TopicHandle topic = OpenMessageTopic(topicName);
        ASSERT_EQ(topic.isValid(), served != 0);
        if (served == 0)
            continue;
        HashMessageW reply;
        EXPECT_EQ(TopicSendMessage(topic, request, reply, nullptr), ERROR_SUCCESS);
        std::uint32_t dirty = 0;
        EXPECT_TRUE(reply.getParameter(L"Dirty", dirty) == ERROR_SUCCESS && dirty == 1);
        DataMessage data;
        EXPECT_EQ(send(topic), ERROR_INVALID_PARAMETER);
        EXPECT_EQ(TopicSendMessage(topic, data, data, 1UL, nullptr), ERROR_INVALID_PARAMETER);
        EXPECT_EQ(TopicSendMessage(topic, request, reply, 1UL, nullptr), ERROR_INVALID_PARAMETER);
    }
}
