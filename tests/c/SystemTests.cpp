// Lookups, reporters and listeners through the C interface.

#include "c/Calls.h"
#include "support/Process.h"

namespace {
constexpr std::uint32_t kLong = 60000;

/// A topic with a callback that keeps the number of each message, a text and a number in it as a line.
struct Topic
{
    explicit Topic(const wchar_t* name, const wchar_t* textName = nullptr,
                   const wchar_t* numberName = nullptr)
        : take{[=, this](const sysmaint_delivery& delivery) {
              sysmaint_message_info info{sizeof info, 0, 0, 0, nullptr};
              const wchar_t* text = L"";
              std::uint32_t number = 0;
              EXPECT_EQ(sysmaint_message_get_info(delivery.message, &info), 0);
              if (textName != nullptr) {
                  EXPECT_EQ(sysmaint_message_text(delivery.message, textName, &text), 0);
                  EXPECT_EQ(sysmaint_message_number(delivery.message, numberName, &number), 0);
              }
              lines.push_back(std::to_wstring(info.id) + L' ' + text + L' ' + std::to_wstring(number));
              return 0;
          }}
    {
        EXPECT_EQ(sysmaint_topic_create(name, &handle), 0);
        EXPECT_EQ(sysmaint_topic_subscribe(handle, SYSMAINT_ROLE_HANDLER, &take.call, &take, &subscription),
                  0);
    }
    Topic(Topic&&) = delete;
    ~Topic()
    {
        EXPECT_EQ(sysmaint_topic_unsubscribe(subscription, kLong), 0);
        EXPECT_EQ(sysmaint_topic_close(handle), 0);
    }

    Callback<sysmaint_delivery> take;
    sysmaint_topic* handle = nullptr;
    sysmaint_subscription* subscription = nullptr;
    std::vector<std::wstring> lines;
};
using Lines = std::vector<std::wstring>;

/// A server, its client, and the server's end of that.
class CConnection : public testing::Test
{
protected:
    CConnection()
    {
        EXPECT_EQ(sysmaint_connection_socket(L"c server", 1, L"127.0.0.1", 0, &server), 0);
        EXPECT_EQ(ConnectionListen(server, kLong, nullptr), 0);
        EXPECT_EQ(ConnectionGetPort(server, &port), 0);
        EXPECT_EQ(sysmaint_connection_socket(L"c client", 0, L"127.0.0.1", port, &client), 0);
    }
    ~CConnection() override
    {
        for (void* each : {server, client, accepted})
            CloseConnection(each);
    }

    void* server = nullptr;
    void* client = nullptr;
    void* accepted = nullptr;
    unsigned short port = 0;
};
} // namespace

TEST_F(CConnection, LookupsAreAnsweredToACallback)
{
    const Folder folder;
    const std::wstring path = folder.file(L"file", 3);
    Topic topic(L"HVKResponses", L"Path", L"HVKStatus");
    void* const queue = CreateHVK(L"c lookup", 77);
    std::thread serving([&] {
        std::array<char, 29> request{}; // of one file
        EXPECT_EQ(ConnectionAccept(server, kLong, nullptr, &accepted), 0);
        EXPECT_EQ(ConnectionReadAll(accepted, request.data(), request.size(), kLong, nullptr), 0);
        std::array<char, 6> answer{};
        std::memcpy(answer.data(), request.data() + 1, 5);
        answer.back() = 42;
        EXPECT_EQ(ConnectionWrite(accepted, answer.data(), answer.size(), kLong, nullptr), 0);
    });
    EXPECT_EQ(HVKSetServer(queue, L"127.0.0.1", port, kLong), 0);
    expectCodes({
        {"no name", [&] { return sysmaint_lookup_add(queue, L"", 0); }, 87},
        {"priority", [&] { return sysmaint_lookup_add(queue, path.c_str(), INT32_MIN); }, 87},
        {"file", [&] { return sysmaint_lookup_add(queue, path.c_str(), 0); }, 0},
    });
    EXPECT_EQ(HVKWait(queue, kLong, nullptr), 0);
    serving.join();
    EXPECT_EQ(sysmaint_topic_consume_all(topic.handle, kLong), 0);
    EXPECT_EQ(topic.lines, Lines{L"77 " + path + L" 42"});
    EXPECT_NE(CloseHVK(queue), 0);
}

TEST_F(CConnection, AReporterForwardsToAListener)
{
    Topic here(L"c near"), there(L"c far");
    void* listener = nullptr;
    sysmaint_reporter* reporter = nullptr;
    sysmaint_message* message = nullptr;
    sysmaint_listener_state heard{sizeof heard, 7, 7, 7, 7, 7, 7};
    sysmaint_reporter_state told{sizeof told, 7, 7, 7, 7, 7, 7};
    expectCodes({
        {"listen",
         [&] { return sysmaint_listener_create(L"c listener", server, there.handle, nullptr, &listener); },
         0},
        {"report", [&] { return sysmaint_reporter_create(client, here.handle, nullptr, &reporter); }, 0},
        {"message", [&] { return sysmaint_message_create(SYSMAINT_MESSAGE_PLAIN, L"", 9, &message); }, 0},
        {"post", [&] { return sysmaint_topic_post(here.handle, message, nullptr); }, 0},
        {"near", [&] { return sysmaint_topic_consume_all(here.handle, kLong); }, 0},
        {"flush", [&] { return sysmaint_reporter_flush(reporter, kLong, nullptr); }, 0},
        {"far", [&] { return sysmaint_topic_consume_all(there.handle, kLong); }, 0},
        {"heard", [&] { return sysmaint_listener_get_state(listener, &heard); }, 0},
        {"stop", [&] { return sysmaint_reporter_stop(reporter); }, 0},
        {"refused", [&] { return sysmaint_topic_send(here.handle, message, nullptr, nullptr, nullptr); }, 0},
        {"told", [&] { return sysmaint_reporter_get_state(reporter, &told); }, 0},
        {"close", [&] { return sysmaint_reporter_close(reporter, kLong); }, 0},
        {"stale", [&] { return sysmaint_reporter_stop(reporter); }, 6},
        {"its message", [&] { return sysmaint_message_close(message); }, 0},
    });
    EXPECT_EQ(there.lines, Lines{L"9  0"});
    EXPECT_EQ(std::vector({told.delivered, told.waiting, told.refused, heard.posted, heard.sent}),
              (std::vector<std::uint64_t>{1, 0, 1, 1, 0}));
    EXPECT_EQ(std::vector({told.refusal, told.connection, heard.code}),
              (std::vector<std::int32_t>{1223, 0, 0}));
    EXPECT_EQ(heard.clients, 1U);
    EXPECT_NE(CloseMessageListener(listener), 0);
}
