#include <atomic>
#include <thread>

#include "c/Calls.h"

namespace {
std::string textOf(const void* bytes, std::uint64_t size)
{
    return std::string(static_cast<const char*>(bytes), size);
}

sysmaint_message* makeMessage(std::uint32_t kind, std::uint32_t id = 1)
{
    sysmaint_message* message = nullptr;
    EXPECT_EQ(sysmaint_message_create(kind, L"c-topic", id, &message), 0);
    return message;
}

/// A callback for work, or for messages, that runs a function.
struct Act
{
    std::function<std::int32_t(const sysmaint_work&)> work = {};
    std::function<std::int32_t(const sysmaint_delivery&)> message = {};

    static std::int32_t onWork(void* context, const sysmaint_work* work)
    {
        EXPECT_EQ(work->size, sizeof *work);
        return static_cast<Act*>(context)->work(*work);
    }
    static std::int32_t onMessage(void* context, const sysmaint_delivery* delivery)
    {
        EXPECT_EQ(delivery->size, sizeof *delivery);
        return static_cast<Act*>(context)->message(*delivery);
    }
};

sysmaint_work_key keyOf(std::uint32_t scope, void* instance = nullptr)
{
    return {sizeof(sysmaint_work_key), scope, L"category", L"work", 0, 0, instance};
}

class CPool : public testing::Test
{
protected:
    CPool() { EXPECT_EQ(sysmaint_pool_create(L"c-pool", &pool), 0); }
    ~CPool() override { sysmaint_pool_close(pool); }

    std::int32_t queue(Act& act, sysmaint_message* arguments = nullptr, void** instance = nullptr)
    {
        return sysmaint_pool_queue(pool, &work, &Act::onWork, &act, arguments, SYSMAINT_QUEUE_AT_END,
                                   instance);
    }

    sysmaint_pool* pool = nullptr;
    const sysmaint_work_key category = keyOf(SYSMAINT_SCOPE_CATEGORY);
    const sysmaint_work_key work = keyOf(SYSMAINT_SCOPE_WORK);
};

class CTopic : public testing::Test
{
protected:
    CTopic() { EXPECT_EQ(sysmaint_topic_create(L"c-topic", &topic), 0); }
    ~CTopic() override { sysmaint_topic_close(topic); }

    sysmaint_subscription* subscribe(Act& act, std::uint32_t role = SYSMAINT_ROLE_HANDLER)
    {
        sysmaint_subscription* made = nullptr;
        EXPECT_EQ(sysmaint_topic_subscribe(topic, role, &Act::onMessage, &act, &made), 0);
        return made;
    }
    std::int32_t send(sysmaint_message* message, sysmaint_message* reply = nullptr)
    {
        return sysmaint_topic_send(topic, message, reply, nullptr, nullptr);
    }

    sysmaint_topic* topic = nullptr;
};
} // namespace

TEST(CMessages, HoldTheirContentAndTheirSerializedForm)
{
    sysmaint_message* const named = makeMessage(SYSMAINT_MESSAGE_PARAMETERS, 7);
    sysmaint_message* const data = makeMessage(SYSMAINT_MESSAGE_DATA);
    sysmaint_message* const array = makeMessage(SYSMAINT_MESSAGE_ARRAY);
    const void* bytes = nullptr;
    void* dumped = nullptr;
    std::uint64_t size = 0;
    std::uint32_t number = 0;
    const wchar_t* text = nullptr;
    sysmaint_message* other = nullptr;
    expectCodes({
        {"number", [&] { return sysmaint_message_set_number(named, L"n", 42); }, 0},
        {"text", [&] { return sysmaint_message_set_text(named, L"t", L"hello"); }, 0},
        {"bytes", [&] { return sysmaint_message_set_parameter(named, L"b", "xyz", 3); }, 0},
        {"no number", [&] { return sysmaint_message_number(named, L"t", &number); }, 87},
        {"no such", [&] { return sysmaint_message_number(named, L"N", &number); }, 1168},
        {"past the end", [&] { return sysmaint_message_parameter_at(named, 3, &text, &bytes, &size); }, 259},
        {"set data", [&] { return sysmaint_message_set_data(data, "abc", 3); }, 0},
        {"lying data", [&] { return sysmaint_message_set_data(data, nullptr, 3); }, 87},
        {"element", [&] { return sysmaint_message_add_element(array, "el", 2); }, 0},
        {"get", [&] { return sysmaint_message_element(array, 0, &bytes, &size); }, 0},
        {"past", [&] { return sysmaint_message_element(array, 1, &bytes, &size); }, 259},
        {"dump", [&] { return sysmaint_message_dump(named, &dumped, &size); }, 0},
        {"cut", [&] { return sysmaint_message_load(SYSMAINT_MESSAGE_PARAMETERS, dumped, 9, &other); }, 30},
        {"more", [&] { return sysmaint_message_load(SYSMAINT_MESSAGE_PLAIN, dumped, size, &other); }, 13},
        {"load", [&] { return sysmaint_message_load(SYSMAINT_MESSAGE_PARAMETERS, dumped, size, &other); }, 0},
    });
    utilsFreeMemory(dumped);
    EXPECT_EQ(sysmaint_message_clear(named), 0);
    EXPECT_EQ(sysmaint_message_number(named, L"n", &number), ERROR_NOT_FOUND);
    EXPECT_EQ(sysmaint_message_number(other, L"n", &number), 0);
    EXPECT_EQ(number, 42U);
    EXPECT_EQ(sysmaint_message_text(other, L"t", &text), 0);
    EXPECT_STREQ(text, L"hello");
    EXPECT_EQ(sysmaint_message_parameter_at(other, 0, &text, &bytes, &size), 0);
    EXPECT_STREQ(text, L"b");
    EXPECT_EQ(textOf(bytes, size), "xyz");
    sysmaint_message_info info{sizeof info, 9, 9, 9, nullptr};
    EXPECT_EQ(sysmaint_message_get_info(other, &info), 0);
    EXPECT_EQ(std::tuple(info.kind, info.id, info.topic_number, std::wstring(info.topic)),
              std::tuple(SYSMAINT_MESSAGE_PARAMETERS, 7U, 0U, L"c-topic"));
    EXPECT_EQ(sysmaint_message_set_id(other, 8), 0);
    EXPECT_EQ(sysmaint_message_get_info(other, &info), 0);
    EXPECT_EQ(info.id, 8U);
    for (sysmaint_message* each : {named, data, array, other})
        EXPECT_EQ(sysmaint_message_close(each), 0);
}

TEST(CMessages, OfANumberedTopic)
{
    sysmaint_message* message = nullptr;
    EXPECT_EQ(sysmaint_message_create_numbered(4, 5, 6, &message), ERROR_INVALID_PARAMETER);
    ASSERT_EQ(sysmaint_message_create_numbered(SYSMAINT_MESSAGE_PARAMETERS, 5, 6, &message), 0);
    sysmaint_message_info info{sizeof info, 9, 9, 9, L"x"};
    EXPECT_EQ(sysmaint_message_get_info(message, &info), 0);
    EXPECT_TRUE(info.kind == SYSMAINT_MESSAGE_PARAMETERS && info.topic_number == 5 && info.id == 6);
    EXPECT_EQ(info.topic, nullptr);
    const void* bytes = nullptr;
    std::uint64_t size = 0;
    EXPECT_EQ(sysmaint_message_parameter(message, L"b", &bytes, &size), ERROR_NOT_FOUND);
    EXPECT_EQ(sysmaint_message_set_parameter(message, L"b", "xyz", 3), 0);
    EXPECT_EQ(sysmaint_message_parameter(message, L"b", &bytes, &size), 0);
    EXPECT_EQ(textOf(bytes, size), "xyz");
    EXPECT_EQ(sysmaint_message_close(message), 0);
}

TEST_F(CPool, RunsWorkWithItsArgumentsAndKeepsItsResult)
{
    sysmaint_message* const arguments = makeMessage(SYSMAINT_MESSAGE_PARAMETERS);
    ASSERT_EQ(sysmaint_message_set_number(arguments, L"limit", 5), 0);
    std::uint32_t limit = 0;
    sysmaint_message* stale = nullptr;
    Act act;
    act.work = [&](const sysmaint_work& running) {
        const wchar_t* name = nullptr;
        const void* bytes = nullptr;
        std::uint64_t size = 0;
        EXPECT_STREQ(running.name, L"work");
        EXPECT_EQ(sysmaint_message_number(running.arguments, L"limit", &limit), 0);
        EXPECT_EQ(sysmaint_message_parameter_at(running.arguments, 1, &name, &bytes, &size), 259);
        stale = running.arguments;
        return 4711;
    };
    std::int32_t result = 0;
    std::int32_t running = 9;
    void* instance = nullptr;
    ASSERT_EQ(queue(act, arguments, &instance), 0);
    const sysmaint_work_key one = keyOf(SYSMAINT_SCOPE_INSTANCE, instance);
    expectCodes({
        {"wait", [&] { return sysmaint_pool_wait(pool, &one, SYSMAINT_INFINITE, nullptr); }, 0},
        {"result", [&] { return sysmaint_pool_result(pool, &one, &result); }, 0},
        {"running", [&] { return sysmaint_pool_is_running(pool, &category, &running); }, 0},
        {"stale", [&] { return sysmaint_message_clear(stale); }, 6},
        {"arguments", [&] { return sysmaint_message_close(arguments); }, 0},
    });
    EXPECT_EQ(limit, 5U);
    EXPECT_EQ(result, 4711);
    EXPECT_EQ(running, 0);
}

TEST_F(CPool, CancelsSuspendsAndIsClosedByItsOwnWork)
{
    std::atomic<int> runs{0};
    Act act;
    act.work = [&](const sysmaint_work& running) {
        ++runs;
        return WaitForSingleObject(running.cancel_event, 20000) == WAIT_OBJECT_0 ? ERROR_CANCELLED : 1;
    };
    const sysmaint_category_options suspended{sizeof suspended, 1, 1, 0, 0};
    std::int32_t result = 0;
    expectCodes({
        {"category", [&] { return sysmaint_pool_create_category(pool, &category, &suspended); }, 0},
        {"again", [&] { return sysmaint_pool_create_category(pool, &category, &suspended); }, 183},
        {"queue", [&] { return queue(act); }, 0},
        {"wait", [&] { return sysmaint_pool_wait(pool, &work, 20, nullptr); }, 258},
        {"not yet", [&] { return sysmaint_pool_result(pool, &work, &result); }, 170},
        {"resume", [&] { return sysmaint_pool_resume(pool, &category); }, 0},
        {"cancel", [&] { return sysmaint_pool_cancel(pool, &work, SYSMAINT_CANCEL_AND_WAIT); }, 0},
        {"result", [&] { return sysmaint_pool_result(pool, &work, &result); }, 0},
    });
    EXPECT_EQ(result, ERROR_CANCELLED);

    std::atomic<std::int32_t> closed{-1};
    act.work = [&](const sysmaint_work&) {
        closed = sysmaint_pool_close(pool);
        return 0;
    };
    ASSERT_EQ(queue(act), 0);
    while (closed == -1)
        Sleep(1);
    EXPECT_EQ(closed, 0);
    EXPECT_EQ(queue(act), ERROR_INVALID_HANDLE);
}

TEST_F(CPool, RefusesWhatTheKeyDoesNotFit)
{
    Act act;
    sysmaint_pool* other = nullptr;
    std::int32_t out = 0;
    sysmaint_message* const data = makeMessage(SYSMAINT_MESSAGE_DATA);
    const auto with = [&](auto member, auto value) {
        sysmaint_work_key wrong = work;
        wrong.*member = value;
        return sysmaint_pool_wait(pool, &wrong, 0, nullptr);
    };
    using Key = sysmaint_work_key;
    expectCodes({
        {"scope", [&] { return with(&Key::scope, 3U); }, 87},
        {"no work", [&] { return with(&Key::work, static_cast<const wchar_t*>(nullptr)); }, 87},
        {"no instance", [&] { return with(&Key::scope, SYSMAINT_SCOPE_INSTANCE); }, 87},
        {"category", [&] { return with(&Key::category, L"unknown"); }, 1168},
        {"queue a category",
         [&] { return sysmaint_pool_queue(pool, &category, &Act::onWork, &act, nullptr, 0, nullptr); }, 87},
        {"data", [&] { return queue(act, data); }, 120},
        {"of all", [&] { return sysmaint_pool_result(pool, &category, &out); }, 87},
        {"cancel all", [&] { return sysmaint_pool_cancel(pool, nullptr, SYSMAINT_CANCEL_AND_WAIT); }, 87},
        {"all", [&] { return sysmaint_pool_cancel(pool, nullptr, 0); }, 0},
        {"open", [&] { return sysmaint_pool_open(L"unknown", &other); }, 1168},
        {"message", [&] { return sysmaint_message_close(data); }, 0},
    });
}

TEST_F(CTopic, DeliversToCallbacksWithReplyAndValue)
{
    std::vector<std::uint32_t> values;
    Act twice;
    twice.message = [&](const sysmaint_delivery& delivery) {
        std::uint32_t number = 0;
        const std::int32_t code = sysmaint_message_number(delivery.message, L"n", &number);
        if (code == 0) {
            EXPECT_EQ(sysmaint_message_set_number(delivery.reply, L"n", 2 * number), 0);
        }
        if (delivery.has_value != 0)
            values.push_back(delivery.value);
        return code;
    };
    Act limit;
    limit.message = [](const sysmaint_delivery& delivery) {
        std::uint32_t number = 0;
        sysmaint_message_number(delivery.message, L"n", &number);
        return number > 100 ? 4711 : 0;
    };
    sysmaint_subscription* const handler = subscribe(twice);
    sysmaint_subscription* const filter = subscribe(limit, SYSMAINT_ROLE_FILTER);
    sysmaint_message* const message = makeMessage(SYSMAINT_MESSAGE_PARAMETERS);
    sysmaint_message* const reply = makeMessage(SYSMAINT_MESSAGE_PARAMETERS);
    sysmaint_message* const data = makeMessage(SYSMAINT_MESSAGE_DATA);
    std::uint32_t answer = 0;
    const wchar_t* name = nullptr;
    const std::uint32_t value = 3;
    expectCodes({
        {"nothing", [&] { return send(message, reply); }, 1168},
        {"set", [&] { return sysmaint_message_set_number(message, L"n", 21); }, 0},
        {"send", [&] { return send(message, reply); }, 0},
        {"answer", [&] { return sysmaint_message_number(reply, L"n", &answer); }, 0},
        {"another reply", [&] { return send(message, data); }, 120},
        {"data", [&] { return send(data, nullptr); }, 120},
        {"name", [&] { return sysmaint_topic_name(topic, &name); }, 0},
        {"post", [&] { return sysmaint_topic_post(topic, message, &value); }, 0},
        {"all", [&] { return sysmaint_topic_consume_all(topic, SYSMAINT_INFINITE); }, 0},
        {"more", [&] { return sysmaint_message_set_number(message, L"n", 1000); }, 0},
        {"refused", [&] { return send(message, reply); }, 4711},
        {"stop", [&] { return sysmaint_topic_stop_consumer(topic); }, 0},
        {"handler", [&] { return sysmaint_topic_unsubscribe(handler, SYSMAINT_INFINITE); }, 0},
        {"again", [&] { return sysmaint_topic_unsubscribe(handler, 0); }, 6},
        {"filter", [&] { return sysmaint_topic_unsubscribe(filter, SYSMAINT_INFINITE); }, 0},
        {"nobody", [&] { return send(message, reply); }, 0},
    });
    EXPECT_EQ(answer, 42U);
    EXPECT_STREQ(name, L"c-topic");
    EXPECT_EQ(values, (std::vector<std::uint32_t>{3}));
    for (sysmaint_message* each : {message, reply, data})
        sysmaint_message_close(each);
}

// From inside, a callback ends its subscription, its topic and the messages that it got, while other threads
// send to it. What they are just calling is not released under them.
TEST_F(CTopic, CallbacksEndTheirSubscriptionWhileOthersDeliver)
{
    sysmaint_message* const message = makeMessage(SYSMAINT_MESSAGE_PLAIN);
    for (int round = 0; round < 200; ++round) {
        std::atomic<int> calls{0};
        std::atomic<sysmaint_subscription*> subscription{nullptr};
        Act act;
        act.message = [&](const sysmaint_delivery& delivery) {
            ++calls;
            EXPECT_EQ(sysmaint_message_close(delivery.message), 0);
            EXPECT_EQ(sysmaint_message_close(delivery.reply), 0);
            while (subscription == nullptr)
                SwitchToThread();
            const std::int32_t code = sysmaint_topic_unsubscribe(subscription, SYSMAINT_INFINITE);
            EXPECT_TRUE(code == 0 || code == ERROR_INVALID_HANDLE) << code;
            return 0;
        };
        std::thread senders[2];
        for (std::thread& sender : senders)
            sender = std::thread([&] {
                for (int sent = 0; sent < 20; ++sent)
                    EXPECT_EQ(send(message), 0);
            });
        subscription = subscribe(act);
        for (std::thread& sender : senders)
            sender.join();
        EXPECT_EQ(send(message), 0);
        EXPECT_LE(calls, 3);
        EXPECT_EQ(sysmaint_topic_unsubscribe(subscription, 0), ERROR_INVALID_HANDLE);
    }
    Act closing;
    closing.message = [&](const sysmaint_delivery&) { return sysmaint_topic_close(topic); };
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
