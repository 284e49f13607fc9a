// A reporter and a listener through the C interface.

#include "c/Calls.h"

TEST(CReporter, ForwardsToAListener)
{
    constexpr std::uint32_t kLong = 60000;
    std::vector<std::uint32_t> heard;
    Callback<sysmaint_delivery> take{[&](const sysmaint_delivery& delivery) {
        sysmaint_message_info info{sizeof info, 0, 0, 0, nullptr};
        EXPECT_EQ(sysmaint_message_get_info(delivery.message, &info), 0);
        heard.push_back(info.id);
        return 0;
    }};
    void *server = nullptr, *client = nullptr, *listener = nullptr;
    unsigned short port = 0;
    EXPECT_EQ(sysmaint_connection_socket(L"c server", 1, L"127.0.0.1", 0, &server), 0);
    EXPECT_EQ(ConnectionListen(server, kLong, nullptr) + ConnectionGetPort(server, &port), 0);
    EXPECT_EQ(sysmaint_connection_socket(L"c client", 0, L"127.0.0.1", port, &client), 0);
    sysmaint_topic *here = nullptr, *there = nullptr;
    sysmaint_subscription* subscription = nullptr;
    sysmaint_reporter* reporter = nullptr;
    sysmaint_message* message = nullptr;
    sysmaint_listener_state state{sizeof state, 7, 7, 7, 7, 7, 7};
    sysmaint_reporter_state told{sizeof told, 7, 7, 7, 7, 7, 7};
    expectCodes({
        {"near", [&] { return sysmaint_topic_create(L"c near", &here); }, 0},
        {"far", [&] { return sysmaint_topic_create(L"c far", &there); }, 0},
        {"hear", [&] { return sysmaint_topic_subscribe(there, 0, &take.call, &take, &subscription); }, 0},
        {"listen", [&] { return sysmaint_listener_create(L"c", server, there, nullptr, &listener); }, 0},
        {"report", [&] { return sysmaint_reporter_create(client, here, nullptr, &reporter); }, 0},
        {"message", [&] { return sysmaint_message_create(SYSMAINT_MESSAGE_PLAIN, L"", 9, &message); }, 0},
        {"send", [&] { return sysmaint_topic_send(here, message, nullptr, nullptr, nullptr); }, 0},
        {"flush", [&] { return sysmaint_reporter_flush(reporter, kLong, nullptr); }, 0},
        {"consume", [&] { return sysmaint_topic_consume_all(there, kLong); }, 0},
        {"heard", [&] { return sysmaint_listener_get_state(listener, &state); }, 0},
        {"stop", [&] { return sysmaint_reporter_stop(reporter); }, 0},
        {"refused", [&] { return sysmaint_topic_send(here, message, nullptr, nullptr, nullptr); }, 0},
        {"told", [&] { return sysmaint_reporter_get_state(reporter, &told); }, 0},
        {"close", [&] { return sysmaint_reporter_close(reporter, kLong); }, 0},
        {"stale", [&] { return sysmaint_reporter_stop(reporter); }, 6},
        {"its message", [&] { return sysmaint_message_close(message); }, 0},
        {"deaf", [&] { return sysmaint_topic_unsubscribe(subscription, kLong); }, 0},
    });
    EXPECT_EQ(heard, std::vector<std::uint32_t>{9});
    EXPECT_EQ(std::vector({told.delivered, told.waiting, told.refused, state.posted, state.sent}),
              (std::vector<std::uint64_t>{1, 0, 1, 1, 0}));
    EXPECT_EQ(std::vector({told.refusal, told.connection, state.code}),
              (std::vector<std::int32_t>{1223, 0, 0}));
    EXPECT_EQ(state.clients, 1U);
    EXPECT_NE(CloseMessageListener(listener), 0);
    EXPECT_EQ(sysmaint_topic_close(here) + sysmaint_topic_close(there), 0);
    EXPECT_EQ(CloseConnection(client) * CloseConnection(server) != 0, true);
}
