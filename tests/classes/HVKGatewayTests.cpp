#include <winsock2.h>

#include "core/win32/utils/lookup/include/HVKGateway.h"

#include "core/win32/utils/communication/api.h"
#include "support/FullServer.h"
#include "support/LookupServer.h"

namespace {
/// A file of that content in the folder for temporary ones.
HVKItem itemOf(const std::string& content)
{
    wchar_t folder[MAX_PATH];
    GetTempPathW(MAX_PATH, folder);
    const std::wstring path = std::wstring(folder).append(L"lookup").append(content.begin(), content.end());
    HANDLE file = CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr);
    DWORD written = 0;
    EXPECT_TRUE(WriteFile(file, content.data(), static_cast<DWORD>(content.size()), &written, nullptr));
    CloseHandle(file);
    HVKItem item(path.c_str(), 0);
    item.computeHash(nullptr);
    DeleteFileW(path.c_str());
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
        posted.emplace_back(path, status);
    }
    std::vector<std::pair<std::wstring, std::uint32_t>> posted;
};

/// How a step ended: the last line of the place text and the code; zeros when it did not fail.
template <class Step>
std::pair<int, long> failureOf(Step&& step)
{
    try {
        step();
        return {0, 0};
    } catch (const Exception& raised) {
        const std::wstring text = raised.getText();
        return {std::stoi(text.substr(text.find(L"Line: ") + 6)), static_cast<long>(raised.getCode())};
    }
}

/// Asks for the files "abc", "" and "a"; how it ended: the last line of the place text and the code.
struct Query
{
    explicit Query(unsigned short port, DWORD timeout = 60000, HANDLE cancelEvent = nullptr)
        : topic(CreateMessageTopic(L"HVKResponses")), gateway(HVKServer{L"127.0.0.1", port, timeout}, 77)
    {
        TopicSubscribe(topic, handler);
        for (const char* content : {"abc", "", "a"})
            gateway.addItem(itemOf(content));
        std::tie(line, code) = failureOf([&] { gateway.queryServer(cancelEvent); });
        if (line == 329) // the step that says what is wrong
            std::tie(line, code) = failureOf([&] { gateway.parseResponse(cancelEvent); });
        EXPECT_EQ(TopicConsumeAll(topic, 60000), ERROR_SUCCESS);
        TopicUnsubscribe(topic, handler, 60000);
        EXPECT_EQ(handler.posted.size() + gateway.getPaths().size(), 3U);
    }
    Posted handler;
    TopicHandle topic;
    HVKGateway gateway;
    int line = 0;
    long code = 0;
};

struct Row
{
    const char* name;
    LookupServer::Answer answer;
    int line;
    long code;
    std::size_t posted;
};
} // namespace

// The hashes are the standard's own.
TEST(HVKGateway, SendsTheRequestAndPostsTheAnswers)
{
    LookupServer server(&LookupServer::statuses);
    const Query query(server.getPort());
    EXPECT_EQ(query.code, 0);
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
    ASSERT_EQ(query.handler.posted.size(), 3U);
    for (const auto& [index, name, status] :
         {std::tuple(0, L"lookupabc", 0xA9U), std::tuple(1, L"lookup", 0xDAU),
          std::tuple(2, L"lookupa", 0x86U)}) {
        EXPECT_TRUE(query.handler.posted[static_cast<std::size_t>(index)].first.ends_with(name));
        EXPECT_EQ(query.handler.posted[static_cast<std::size_t>(index)].second, status);
    }
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
    std::vector<Row> rows{
        {"id 0", changed(0, 1), 400, ERROR_NO_MATCH, 0},
        {"id 1", changed(1, 1), 400, ERROR_NO_MATCH, 0},
        {"id 2", changed(2, 1), 400, ERROR_NO_MATCH, 0},
        {"id 3", changed(3, 1), 400, ERROR_NO_MATCH, 0},
        {"none", changed(4, -3), 406, ERROR_NO_MORE_ITEMS, 0},
        {"fewer", changed(4, -1), 0, 0, 2},
        {"more", changed(4, 1), 406, ERROR_INVALID_DATA, 0},
        {"trickles",
         [](const std::string& request, void* connection) {
             for (const char byte : LookupServer::statuses(request))
                 ConnectionWrite(connection, &byte, 1, 60000, nullptr);
             return std::string();
         },
         0, 0, 3},
    };
    for (std::size_t length = 0; length < 8; ++length)
        rows.push_back({"cut",
                        [=](const std::string& request, void*) {
                            return LookupServer::statuses(request).substr(0, length);
                        },
                        325, ERROR_BROKEN_PIPE, 0});
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        LookupServer server(row.answer);
        const Query query(server.getPort());
        EXPECT_EQ(std::pair(query.line, query.code), std::pair(row.line, row.code));
        EXPECT_EQ(query.handler.posted.size(), row.posted);
    }
}

TEST(HVKGateway, EndsWithItsTimeTheCancelEventAndWithoutAServer)
{
    const Win32Handle cancel(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    const Win32Handle done(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    unsigned short port = 0;
    {
        LookupServer mute([&](const std::string&, void*) {
            WaitForSingleObject(done.get(), 60000);
            return std::string();
        });
        port = mute.getPort();
        const Query late(port, 200);
        EXPECT_EQ(std::pair(late.line, late.code), std::pair(325, long{WAIT_TIMEOUT}));
        SetEvent(done.get());
    }
    ResetEvent(done.get());
    {
        LookupServer cancels([&](const std::string&, void*) {
            SetEvent(cancel.get());
            WaitForSingleObject(done.get(), 60000);
            return std::string();
        });
        const Query query(cancels.getPort(), 60000, cancel.get());
        EXPECT_EQ(std::pair(query.line, query.code), std::pair(325, long{ERROR_CANCELLED}));
        SetEvent(done.get());
    }
    const Query cancelled(port, 60000, cancel.get());
    EXPECT_EQ(std::pair(cancelled.line, cancelled.code), std::pair(307, long{ERROR_CANCELLED}));
    const Query gone(port);
    EXPECT_EQ(std::pair(gone.line, gone.code), std::pair(307, 10061L));
}

// Nobody takes the connections of this server, and its backlog is full: a further one hangs for 15 seconds.
TEST(HVKGateway, GivesConnectingFifteenSeconds)
{
    const FullServer server;
    const ULONGLONG begun = GetTickCount64();
    const Query query(server.getPort());
    EXPECT_EQ(std::pair(query.line, query.code), std::pair(307, long{WAIT_TIMEOUT}));
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
    EXPECT_EQ(failureOf([&] { gateway.queryServer(nullptr); }), std::pair(329, long{ERROR_NOT_FOUND}));
    EXPECT_EQ(failureOf([&] { gateway.parseResponse(nullptr); }), std::pair(410, long{ERROR_NOT_FOUND}));
    const TopicHandle topic = CreateMessageTopic(L"HVKResponses");
    const Win32Handle cancel(CreateEventW(nullptr, TRUE, TRUE, nullptr));
    EXPECT_EQ(failureOf([&] { gateway.parseResponse(cancel.get()); }), std::pair(415, long{ERROR_CANCELLED}));
    EXPECT_EQ(gateway.getPaths().size(), 1U);
    EXPECT_EQ(failureOf([&] { gateway.parseResponse(nullptr); }), std::pair(0, 0L));
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
