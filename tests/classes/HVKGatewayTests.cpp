#include <winsock2.h>

#include "core/win32/utils/lookup/include/HVKGateway.h"

#include "core/win32/utils/communication/api.h"
#include "support/FtpServers.h"
#include "support/LookupServer.h"
#include "support/Process.h"
#include "support/Raised.h"

namespace {
/// A file of that content in the folder for temporary ones.
HVKItem itemOf(const std::string& content)
{
    const auto path = std::filesystem::temp_directory_path() / ("lookup" + content);
    std::ofstream(path, std::ios::binary) << content;
    HVKItem item(path.c_str(), 0);
    item.computeHash(nullptr);
    std::filesystem::remove(path);
    return item;
}

struct Posted : IMessageHandler
{
    using IMessageHandler::onMessage;
    void onMessage(const HashMessageW& message, HashMessageW&, void*) override
    {
        const wchar_t* path = nullptr;
        std::uint32_t status = 0;
        EXPECT_EQ(message.getId(), 77U);
        EXPECT_EQ(message.getParameter(L"Path", path), ERROR_SUCCESS);
        EXPECT_EQ(message.getParameter(L"HVKStatus", status), ERROR_SUCCESS);
        posted.emplace_back(std::filesystem::path(path).filename().wstring(), status);
    }
    std::vector<std::pair<std::wstring, std::uint32_t>> posted;
};

/// Asks for the files "abc", "" and "a".
struct Query
{
    explicit Query(unsigned short port, DWORD timeout = 60000, HANDLE cancelEvent = nullptr)
        : topic(CreateMessageTopic(L"HVKResponses")), gateway(HVKServer{L"127.0.0.1", port, timeout}, 77)
    {
        TopicSubscribe(topic, handler);
        for (const char* content : {"abc", "", "a"})
            gateway.addItem(itemOf(content));
        failure = raised([&] { gateway.queryServer(cancelEvent); });
        if (failure.second == 329) // the step that says what is wrong
            failure = raised([&] { gateway.parseResponse(cancelEvent); });
        EXPECT_EQ(TopicConsumeAll(topic, 60000), ERROR_SUCCESS);
        TopicUnsubscribe(topic, handler, 60000);
        EXPECT_EQ(handler.posted.size() + gateway.getPaths().size(), 3U);
    }
    Posted handler;
    TopicHandle topic;
    HVKGateway gateway;
    Raised failure;
};
} // namespace

// The hashes are the standard's own.
TEST(HVKGateway, SendsTheRequestAndPostsTheAnswers)
{
    LookupServer server(&LookupServer::statuses);
    const Query query(server.getPort());
    EXPECT_EQ(query.failure, Raised{});
    ASSERT_EQ(server.getRequests().size(), 1U);
    std::string request = server.getRequests().front();
    ASSERT_EQ(request.size(), 69U);
    request[4] = 'r'; // the random one
    const std::string expected(
        "\1\0\0\0r\3\1\1\0"
        "\xA9\x99\x3E\x36\x47\x06\x81\x6A\xBA\x3E\x25\x71\x78\x50\xC2\x6C\x9C\xD0\xD8\x9D"
        "\xDA\x39\xA3\xEE\x5E\x6B\x4B\x0D\x32\x55\xBF\xEF\x95\x60\x18\x90\xAF\xD8\x07\x09"
        "\x86\xF7\xE4\x37\xFA\xA5\xA7\xFC\xE1\x5D\x1D\xDC\xB9\xEA\xEA\xEA\x37\x76\x67\xB8",
        69);
    EXPECT_EQ(request, expected);
    const decltype(Posted::posted) posted{{L"lookupabc", 0xA9U}, {L"lookup", 0xDAU}, {L"lookupa", 0x86U}};
    EXPECT_EQ(query.handler.posted, posted);
}

TEST(HVKGateway, AccountsForEveryFileWhateverTheServerAnswers)
{
    const auto changed = [](std::size_t at, int by) {
        return [=](const std::string& request, void*) {
            std::string answer = LookupServer::statuses(request);
            answer[at] = static_cast<char>(answer[at] + by);
            return answer;
        };
    };
    const auto trickle = [](const std::string& request, void* connection) {
        for (const char byte : LookupServer::statuses(request))
            ConnectionWrite(connection, &byte, 1, 60000, nullptr);
        return std::string();
    };
    // What is wrong, how the query ends, and how many files have their answer.
    std::vector<std::tuple<const char*, LookupServer::Answer, Raised, std::size_t>> rows{
        {"none", changed(4, -3), {ERROR_NO_MORE_ITEMS, 406}, 0},
        {"fewer", changed(4, -1), {}, 2},
        {"more", changed(4, 1), {ERROR_INVALID_DATA, 406}, 0},
        {"trickles", trickle, {}, 3}};
    for (const std::size_t at : {0, 1, 2, 3})
        rows.emplace_back("id", changed(at, 1), Raised{ERROR_NO_MATCH, 400}, 0);
    for (std::size_t length = 0; length < 8; ++length)
        rows.emplace_back(
            "cut",
            [=](const std::string& asked, void*) { return LookupServer::statuses(asked).substr(0, length); },
            Raised{ERROR_BROKEN_PIPE, 325}, 0);
    for (const auto& [name, answer, failure, posted] : rows) {
        SCOPED_TRACE(name);
        LookupServer server(answer);
        const Query query(server.getPort());
        EXPECT_EQ(query.failure, failure);
        EXPECT_EQ(query.handler.posted.size(), posted);
    }
}

TEST(HVKGateway, EndsWithItsTimeTheCancelEventAndWithoutAServer)
{
    const TestEvent cancel, done;
    unsigned short port = 0;
    for (const auto& [timeout, code] : {std::pair(200UL, WAIT_TIMEOUT), {60000UL, ERROR_CANCELLED}}) {
        done.reset();
        LookupServer mute([&, code = code](const std::string&, void*) {
            if (code == ERROR_CANCELLED)
                cancel.set();
            return done.wait() ? "" : "late";
        });
        port = mute.getPort();
        EXPECT_EQ(Query(port, timeout, cancel.get()).failure, Raised(code, 325));
        done.set();
    }
    EXPECT_EQ(Query(port, 60000, cancel.get()).failure, Raised(ERROR_CANCELLED, 307));
    EXPECT_EQ(Query(port).failure, Raised(10061, 307));
}

// Nobody takes the connections of this server, and its backlog is full: a further one hangs for 15 seconds.
TEST(HVKGateway, GivesConnectingFifteenSeconds)
{
    const FtpServers servers(L"full");
    const ULONGLONG begun = GetTickCount64();
    EXPECT_EQ(Query(servers.ports.at("full")).failure, Raised(WAIT_TIMEOUT, 307));
    const ULONGLONG taken = GetTickCount64() - begun;
    EXPECT_GE(taken, 14900U);
    EXPECT_LT(taken, 20000U);
}

// The answer is there, and its topic is not; then the cancel event stands before the first post.
TEST(HVKGateway, StopsBeforeTheNextPost)
{
    LookupServer server(&LookupServer::statuses);
    HVKGateway gateway(HVKServer{L"127.0.0.1", server.getPort(), 60000}, 77);
    gateway.addItem(itemOf("abc"));
    EXPECT_EQ(raised([&] { gateway.queryServer(nullptr); }), Raised(ERROR_NOT_FOUND, 329));
    EXPECT_EQ(raised([&] { gateway.parseResponse(nullptr); }), Raised(ERROR_NOT_FOUND, 410));
    const TopicHandle topic = CreateMessageTopic(L"HVKResponses");
    const Win32Handle cancel(CreateEventW(nullptr, TRUE, TRUE, nullptr));
    EXPECT_EQ(raised([&] { gateway.parseResponse(cancel.get()); }), Raised(ERROR_CANCELLED, 415));
    EXPECT_EQ(gateway.getPaths().size(), 1U);
    EXPECT_EQ(raised([&] { gateway.parseResponse(nullptr); }), Raised(0, 0));
    EXPECT_TRUE(gateway.getPaths().empty());
}

TEST(HVKRequest, HoldsUpTo255Hashes)
{
    HVKRequest request;
    const HVKItem item = itemOf("abc");
    for (int i = 0; i < 255; ++i)
        request.addItem(item);
    request.build();
    EXPECT_EQ(request.getBuffer().size(), 9U + 255 * 20);
    for (int i = 0; i < 256; ++i)
        request.addItem(item);
    request.build();
    EXPECT_TRUE(request.getBuffer().empty());
    EXPECT_EQ(request.getCount(), 0U);
}
