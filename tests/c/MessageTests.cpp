#include "c/Calls.h"
#include "core/win32/utils/communication/api.h"

namespace {
sysmaint_message* makeMessage(std::uint32_t kind)
{
    sysmaint_message* message = nullptr;
    EXPECT_EQ(sysmaint_message_create(kind, L"c-topic", 1, &message), 0);
    return message;
}

using Act = Callback<sysmaint_work>;
using Receive = Callback<sysmaint_delivery>;

class CPool : public testing::Test
{
protected:
    CPool() { EXPECT_EQ(sysmaint_pool_create(L"c-pool", &pool), 0); }
    ~CPool() override { sysmaint_pool_close(pool); }

    std::int32_t queue(Act& act, sysmaint_message* arguments = nullptr, void** instance = nullptr)
    {
        return sysmaint_pool_queue(pool, &work, &Act::call, &act, arguments, SYSMAINT_QUEUE_AT_END, instance);
    }

    sysmaint_pool* pool = nullptr;
    const sysmaint_work_key category{sizeof category, SYSMAINT_SCOPE_CATEGORY, L"category", nullptr, 0, 0,
                                     nullptr};
    const sysmaint_work_key work{sizeof work, SYSMAINT_SCOPE_WORK, L"category", L"work", 0, 0, nullptr};
};

class CTopic : public testing::Test
{
protected:
    CTopic() { EXPECT_EQ(sysmaint_topic_create(L"c-topic", &topic), 0); }
    ~CTopic() override { sysmaint_topic_close(topic); }

    sysmaint_subscription* subscribe(Receive& receive, std::uint32_t role = SYSMAINT_ROLE_HANDLER)
    {
        sysmaint_subscription* made = nullptr;
        EXPECT_EQ(sysmaint_topic_subscribe(topic, role, &Receive::call, &receive, &made), 0);
        return made;
    }
    std::int32_t send(sysmaint_message* message, sysmaint_message* reply = nullptr)
    {
        return sysmaint_topic_send(topic, message, reply, nullptr, nullptr);
    }

    sysmaint_topic* topic = nullptr;
};
} // namespace

TEST_F(CPool, RunsSuspendsAndCancelsWorkThatMayCloseIt)
{
    sysmaint_message* const arguments = makeMessage(SYSMAINT_MESSAGE_PARAMETERS);
    ASSERT_EQ(sysmaint_message_set_number(arguments, L"limit", 5), 0);
    sysmaint_message* stale = nullptr;
    Act act{[&](const sysmaint_work& running) {
        const wchar_t* name = nullptr;
        const void* bytes = nullptr;
        std::uint64_t size = 0;
        std::uint32_t limit = 0;
        EXPECT_STREQ(running.name, L"work");
        EXPECT_EQ(sysmaint_message_number(running.arguments, L"limit", &limit), 0);
        EXPECT_EQ(sysmaint_message_parameter_at(running.arguments, 1, &name, &bytes, &size), 259);
        stale = running.arguments;
        return WaitForSingleObject(running.cancel_event, 0) == WAIT_TIMEOUT ? 4711 + limit : 0;
    }};
    const sysmaint_category_options suspended{sizeof suspended, 1, 1, 0, 0};
    std::int32_t result = 0, running = 9;
    void* instance = nullptr;
    sysmaint_work_key one = work;
    one.scope = SYSMAINT_SCOPE_INSTANCE;
    const HANDLE signalled = CreateEventW(nullptr, TRUE, TRUE, nullptr);
    expectCodes({
        {"category", [&] { return sysmaint_pool_create_category(pool, &category, &suspended); }, 0},
        {"queue", [&] { return queue(act, arguments, &instance); }, 0},
        {"not yet", [&] { return sysmaint_pool_wait(pool, &work, 20, nullptr); }, 258},
        {"stopped", [&] { return sysmaint_pool_wait(pool, &work, 60000, signalled); }, 1223},
        {"resume", [&] { return sysmaint_pool_resume(pool, &category); }, 0},
        {"wait", [&] { return one.instance = instance, sysmaint_pool_wait(pool, &one, ~0U, nullptr); }, 0},
        {"result", [&] { return sysmaint_pool_result(pool, &one, &result); }, 0},
        {"running", [&] { return sysmaint_pool_is_running(pool, &category, &running); }, 0},
        {"stale", [&] { return sysmaint_message_clear(stale); }, 6},
        {"arguments", [&] { return sysmaint_message_close(arguments); }, 0},
    });
    CloseHandle(signalled);
    EXPECT_EQ(std::pair(result, running), std::pair(4716, 0));

    act.act = [&](const sysmaint_work& cancelled) {
        return WaitForSingleObject(cancelled.cancel_event, 20000) == WAIT_OBJECT_0 ? ERROR_CANCELLED : 1;
    };
    EXPECT_EQ(queue(act), 0);
    EXPECT_EQ(sysmaint_pool_cancel(pool, &work, SYSMAINT_CANCEL_AND_WAIT), 0);
    std::atomic<std::int32_t> closed{-1};
    act.act = [&](const sysmaint_work&) { return closed = sysmaint_pool_close(pool); };
    ASSERT_EQ(queue(act), 0);
    while (closed == -1)
        Sleep(1);
    EXPECT_EQ(closed, 0);
    EXPECT_EQ(queue(act), ERROR_INVALID_HANDLE);
}

TEST_F(CTopic, DeliversToCallbacksWithReplyAndValue)
{
    std::vector<std::uint32_t> values;
    Receive twice{[&](const sysmaint_delivery& delivery) {
        std::uint32_t number = 0;
        const std::int32_t code = sysmaint_message_number(delivery.message, L"n", &number);
        EXPECT_TRUE(code != 0 || sysmaint_message_set_number(delivery.reply, L"n", 2 * number) == 0);
        if (delivery.has_value != 0)
            values.push_back(delivery.value);
        return code;
    }};
    Receive limit{[](const sysmaint_delivery& delivery) {
        std::uint32_t number = 0;
        sysmaint_message_number(delivery.message, L"n", &number);
        return number > 100 ? 4711 : 0;
    }};
    sysmaint_subscription* const handler = subscribe(twice);
    sysmaint_subscription* const filter = subscribe(limit, SYSMAINT_ROLE_FILTER);
    sysmaint_message* const message = makeMessage(SYSMAINT_MESSAGE_PARAMETERS);
    sysmaint_message* const reply = makeMessage(SYSMAINT_MESSAGE_PARAMETERS);
    sysmaint_message* const data = makeMessage(SYSMAINT_MESSAGE_DATA);
    sysmaint_message* const bare = makeMessage(SYSMAINT_MESSAGE_PLAIN);
    sysmaint_message* const array = makeMessage(SYSMAINT_MESSAGE_ARRAY);
    std::uint32_t answer = 0;
    const std::uint32_t value = 3;
    expectCodes({
        {"nothing", [&] { return send(message, reply); }, 1168},
        {"set", [&] { return sysmaint_message_set_number(message, L"n", 21); }, 0},
        {"send", [&] { return send(message, reply); }, 0},
        {"answer", [&] { return sysmaint_message_number(reply, L"n", &answer); }, 0},
        {"another reply", [&] { return send(message, data); }, 120},
        {"data", [&] { return sysmaint_topic_send(topic, data, nullptr, &value, nullptr); }, 120},
        {"bare", [&] { return sysmaint_topic_send(topic, bare, nullptr, &value, nullptr); }, 120},
        {"array", [&] { return sysmaint_topic_send(topic, array, nullptr, &value, nullptr); }, 120},
        {"post", [&] { return sysmaint_topic_post(topic, message, &value); }, 0},
        {"all", [&] { return sysmaint_topic_consume_all(topic, SYSMAINT_INFINITE); }, 0},
        {"more", [&] { return sysmaint_message_set_number(message, L"n", 1000); }, 0},
        {"refused", [&] { return send(message, reply); }, 4711},
        {"handler", [&] { return sysmaint_topic_unsubscribe(handler, SYSMAINT_INFINITE); }, 0},
        {"again", [&] { return sysmaint_topic_unsubscribe(handler, 0); }, 6},
        {"filter", [&] { return sysmaint_topic_unsubscribe(filter, SYSMAINT_INFINITE); }, 0},
        {"nobody", [&] { return send(message, reply); }, 0},
    });
    EXPECT_EQ(answer, 42U);
    EXPECT_EQ(values, (std::vector<std::uint32_t>{3, 3, 3, 3})) << "of each class";
    for (sysmaint_message* each : {message, reply, data, bare, array})
        sysmaint_message_close(each);
}

// An element of a class of C++ code's own is told apart, and nothing of it is lost.
TEST_F(CTopic, DeliversElementsOfCppCode)
{
    struct Own : SerializableW
    {
        long dump(unsigned long, IOutputByteStream& stream) const override { return stream.write("own", 3); }
        long load(unsigned long, IInputByteStream&) override { return ERROR_INVALID_DATA; }
    };
    ArrayMessage sent(L"c-topic", 1), reply;
    sent.addElement(makeShared<SerializableW, Own>());
    Receive receive{[](const sysmaint_delivery& delivery) {
        const void* element = nullptr;
        void* bytes = nullptr;
        std::uint64_t size = 0;
        EXPECT_EQ(sysmaint_message_element(delivery.message, 0, &element, &size), 120);
        EXPECT_EQ(sysmaint_message_dump(delivery.message, &bytes, &size), 0);
        EXPECT_EQ(std::string(static_cast<char*>(bytes) + size - 3, 3), "own");
        utilsFreeMemory(bytes);
        return 4711;
    }};
    sysmaint_subscription* const subscription = subscribe(receive);
    EXPECT_EQ(TopicSendMessage(OpenMessageTopic(L"c-topic"), sent, reply, nullptr), 4711);
    EXPECT_EQ(sysmaint_topic_unsubscribe(subscription, SYSMAINT_INFINITE), 0);
}

// From inside, a callback ends its subscription, its topic and the messages that it got, while other threads
// send to it. What they are just calling is not released under them.
TEST_F(CTopic, CallbacksEndTheirSubscriptionWhileOthersDeliver)
{
    sysmaint_message* const message = makeMessage(SYSMAINT_MESSAGE_PLAIN);
    for (int round = 0; round < 200; ++round) {
        std::atomic<int> calls{0};
        std::atomic<sysmaint_subscription*> subscription{nullptr};
        Receive receive{[&](const sysmaint_delivery& delivery) {
            ++calls;
            EXPECT_EQ(sysmaint_message_close(delivery.message), 0);
            EXPECT_EQ(sysmaint_message_close(delivery.reply), 0);
            while (subscription == nullptr)
                SwitchToThread();
            const std::int32_t code = sysmaint_topic_unsubscribe(subscription, SYSMAINT_INFINITE);
            EXPECT_TRUE(code == 0 || code == ERROR_INVALID_HANDLE) << code;
            return 0;
        }};
        std::thread senders[2];
        for (std::thread& sender : senders)
            sender = std::thread([&] {
                for (int sent = 0; sent < 20; ++sent)
                    EXPECT_EQ(send(message), 0);
            });
        subscription = subscribe(receive);
        for (std::thread& sender : senders)
            sender.join();
        EXPECT_EQ(send(message), 0);
        EXPECT_LE(calls, 3);
        EXPECT_EQ(sysmaint_topic_unsubscribe(subscription, 0), ERROR_INVALID_HANDLE);
    }
    Receive closing{[&](const sysmaint_delivery&) { return sysmaint_topic_close(topic); }};
    sysmaint_subscription* const last = subscribe(closing);
    EXPECT_EQ(send(message), 0);
    EXPECT_EQ(send(message), ERROR_INVALID_HANDLE); // though the subscription holds the topic itself
    sysmaint_topic* again = nullptr;
    EXPECT_EQ(sysmaint_topic_open(L"c-topic", &again), 0);
    EXPECT_EQ(sysmaint_topic_unsubscribe(last, SYSMAINT_INFINITE), 0);
    EXPECT_EQ(sysmaint_topic_close(again), 0);
    EXPECT_EQ(sysmaint_topic_open(L"c-topic", &again), ERROR_NOT_FOUND);
    sysmaint_message_close(message);
}
