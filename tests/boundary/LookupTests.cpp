#include <winsock2.h>

#include "core/win32/utils/checksums/api.h"
#include "core/win32/utils/communication/api.h"
#include "core/win32/utils/lookup/api.h"
#include "core/win32/utils/threadpool/api.h"
#include "support/Faults.h"
#include "support/LookupServer.h"
#include "support/Wipe.h"

namespace {
/// A server that answers once it may.
struct HeldServer
{
    TestEvent asked;
    TestEvent go;
    LookupServer server{[this](const std::string& request, void*) {
        asked.set();
        EXPECT_TRUE(go.wait());
        return LookupServer::statuses(request);
    }};
};

/// Files in a folder of their own, with a queue and what it posts.
class Lookup : public testing::Test, protected IMessageHandler
{
protected:
    Lookup() { EXPECT_EQ(TopicSubscribe(m_topic, *this), ERROR_SUCCESS); }
    ~Lookup() override
    {
        CloseHVK(m_queue);
        EXPECT_EQ(TopicUnsubscribe(m_topic, *this, 60000), ERROR_SUCCESS);
        std::filesystem::remove_all(m_folder);
    }
    /// The files and their answers.
    void forget()
    {
        m_expected.clear();
        m_answers.clear();
    }
    /// Makes so many files and adds them. The answer is the first byte of a file's SHA-1, by the function
    /// that agrees with sha1sum.
    void add(int count, const std::wstring& prefix = L"f")
    {
        for (int i = 0; i < count; ++i) {
            const std::wstring path = m_folder + prefix + std::to_wstring(i);
            const std::string content(path.begin(), path.end());
            std::ofstream(std::filesystem::path(path), std::ios::binary) << content;
            unsigned char digest[20]{};
            EXPECT_EQ(ChecksumSha1(content.data(), content.size(), digest), 0);
            m_expected[path] = digest[0];
            ASSERT_EQ(HVKAddPath(m_queue, path.c_str()), ERROR_SUCCESS);
        }
    }
    void use(const LookupServer& server, DWORD answerTimeout = 60000)
    {
        EXPECT_EQ(HVKSetServer(m_queue, L"127.0.0.1", server.getPort(), answerTimeout), ERROR_SUCCESS);
    }
    long wait() { return HVKWait(m_queue, 120000, nullptr); }
    /// What got an answer, each at most once.
    std::map<std::wstring, std::uint32_t> answers()
    {
        EXPECT_EQ(TopicConsumeAll(m_topic, 60000), ERROR_SUCCESS);
        return m_answers;
    }
    std::map<std::wstring, long> unanswered()
    {
        using Files = std::map<std::wstring, long>;
        Files files;
        const HVKUnanswered add = [](const wchar_t* path, long code, void* context) {
            EXPECT_TRUE(static_cast<Files*>(context)->emplace(path, code).second) << "told twice";
        };
        EXPECT_EQ(HVKTakeUnanswered(m_queue, add, &files), ERROR_SUCCESS);
        return files;
    }

    using IMessageHandler::onMessage;
    void onMessage(const HashMessageW& message, HashMessageW&, void*) override
    {
        const wchar_t* path = nullptr;
        std::uint32_t status = 0;
        EXPECT_EQ(message.getParameter(L"Path", path) + message.getParameter(L"HVKStatus", status), 0);
        EXPECT_EQ(message.getId(), 31U);
        EXPECT_TRUE(m_answers.emplace(path, status).second) << "posted twice";
    }

    const std::wstring m_folder = scratchFolder() + L"\\";
    TopicHandle m_topic = CreateMessageTopic(L"HVKResponses");
    void* m_queue = CreateHVK(L"lookup test", 31);
    std::map<std::wstring, std::uint32_t> m_expected;
    std::map<std::wstring, std::uint32_t> m_answers;
};
} // namespace

// While a request is under way the next gather: unique, those of higher priority first.
TEST_F(Lookup, GathersWhileARequestIsUnderWay)
{
    HeldServer held;
    use(held.server);
    add(1, L"first");
    ASSERT_TRUE(held.asked.wait());
    add(300);
    for (int i = 0; i < 300; ++i) // they wait already
        EXPECT_EQ(HVKAddPath(m_queue, (m_folder + L".\\f" + std::to_wstring(i)).c_str()), ERROR_SUCCESS);
    EXPECT_EQ(HVKAddPath(m_queue, (m_folder + L"F0").c_str()), ERROR_SUCCESS); // may be another file
    EXPECT_EQ(HVKWait(m_queue, 200, nullptr), WAIT_TIMEOUT);
    const TestEvent cancel(true);
    EXPECT_EQ(HVKWait(m_queue, 60000, cancel.get()), ERROR_CANCELLED);
    EXPECT_EQ(HVKCancel(m_queue), ERROR_SUCCESS);
    held.go.set();
    EXPECT_EQ(wait(), ERROR_CANCELLED);
    EXPECT_TRUE(answers().empty());
    const std::map<std::wstring, long> files = unanswered();
    EXPECT_EQ(files.size(), 302U);
    for (const auto& [path, code] : files)
        EXPECT_EQ(code, ERROR_CANCELLED);
    EXPECT_EQ(wait(), ERROR_SUCCESS) << "what has been told is forgotten";
    m_answers.clear();
    add(5, L"after");
    EXPECT_EQ(wait(), ERROR_SUCCESS);
    EXPECT_EQ(answers().size(), 5U);
}

// The last digit of a name is its priority; of each request the hashes come in that order.
TEST_F(Lookup, GivesEveryFileItsOwnAnswerThoseOfHigherPriorityFirst)
{
    HeldServer held;
    use(held.server);
    add(1, L"first");
    ASSERT_TRUE(held.asked.wait());
    // Once the batch that gathers meanwhile is full, what comes waits, in the order of the priorities.
    {
        const Opens opens;
        add(255, L"batch");
        ASSERT_TRUE(comesTrue([&] { return opens.calls() == 255; }));
    }
    add(4, L"prio");
    const auto raise = [&](int number, long priority) {
        const std::wstring path = m_folder + L"prio" + std::to_wstring(number);
        EXPECT_EQ(HVKAddPath(m_queue, path.c_str(), priority), ERROR_SUCCESS);
        return static_cast<char>(m_expected[path]);
    };
    raise(0, 1);
    const std::string expected{raise(2, 5), raise(3, 2), raise(0, -7), raise(1, 0)};
    held.go.set();
    EXPECT_EQ(wait(), ERROR_SUCCESS);
    EXPECT_EQ(answers(), m_expected);
    std::string asked; // the last ones in one request or in several, as fast as they were hashed
    for (const std::string& request : held.server.getRequests())
        for (std::size_t at = 9; at < request.size(); at += 20)
            asked.push_back(request[at]);
    ASSERT_EQ(asked.size(), m_expected.size());
    EXPECT_EQ(asked.substr(asked.size() - expected.size()), expected);
    for (const int count : {256, 1000}) {
        add(count, std::to_wstring(count) + L"-");
        EXPECT_EQ(wait(), ERROR_SUCCESS);
        EXPECT_EQ(answers(), m_expected);
    }
    EXPECT_TRUE(unanswered().empty());
}

// Whichever taking of memory fails: each file has its answer or a reason, and adding it again gets one.
TEST_F(Lookup, AccountsForFilesWithoutMemory)
{
    LookupServer server(&LookupServer::statuses);
    use(server);
    const HeapWatch watch(sysmaintModule());
    long failing = 0;
    for (bool failed = true; failed && failing < 100;) {
        forget();
        add(1, L"m" + std::to_wstring(++failing));
        EXPECT_EQ(wait(), ERROR_SUCCESS);
        EXPECT_EQ(answers().size(), 1U);
        m_answers.clear();
        const std::wstring path = m_expected.begin()->first;
        HeapWatch::arm(failing);
        const long added = HVKAddPath(m_queue, path.c_str());
        failed = HeapWatch::hasFailed();
        HeapWatch::disarm();
        for (const long code : {added, wait()})
            EXPECT_TRUE(code == ERROR_SUCCESS || (failed && code == ERROR_NOT_ENOUGH_MEMORY)) << failing;
        EXPECT_EQ(answers().size() + unanswered().size() + (added == ERROR_SUCCESS ? 0 : 1), 1U) << failing;
    }
    EXPECT_GT(failing, 3);
}

TEST_F(Lookup, AccountsForFilesWithoutAnAnswer)
{
    std::map<std::wstring, long> expected{{m_folder + L"missing", ERROR_FILE_NOT_FOUND}};
    EXPECT_EQ(HVKAddPath(m_queue, expected.begin()->first.c_str()), ERROR_SUCCESS);
    EXPECT_EQ(wait(), ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(unanswered(), expected);
    add(3);
    EXPECT_EQ(wait(), 11001) << "no server by default";
    expected.clear();
    for (const auto& [path, status] : m_expected)
        expected[path] = 11001;
    EXPECT_EQ(unanswered(), expected);
    EXPECT_TRUE(answers().empty());
    for (const long code :
         {HVKAddPath(m_queue, nullptr), HVKAddPath(m_queue, L""), HVKSetServer(m_queue, L"", 1, 1),
          HVKSetServer(m_queue, L"h", 0, 1), HVKTakeUnanswered(m_queue, nullptr, nullptr)})
        EXPECT_EQ(code, ERROR_INVALID_PARAMETER);
}

// At each wait and each object of the whole round, by whichever thread: while it hashes, connects, writes,
// reads and posts. Each file is answered or told, and never both.
TEST_F(Lookup, AccountsForFilesWhereverItIsCancelled)
{
    LookupServer server(&LookupServer::statuses);
    use(server);
    int calls = 0;
    std::map<long, int> codes;
    for (bool cancelled = true; cancelled && calls < 500;) {
        forget();
        std::atomic<int> left{++calls};
        const auto count = before([&](auto...) { EXPECT_TRUE(--left != 0 || HVKCancel(m_queue) == 0); });
        {
            const Replaced<"CreateEventW", decltype(&CreateEventW)> events(count);
            const Multiple waits(count);
            add(2, std::to_wstring(calls) + L"-");
            ++codes[wait()];
        }
        cancelled = left <= 0;
        std::map<std::wstring, long> accounted = unanswered();
        for (const auto& [path, code] : accounted)
            EXPECT_EQ(code, ERROR_CANCELLED);
        for (const auto& [path, status] : answers())
            EXPECT_TRUE(accounted.emplace(path, 0).second) << "answered, and told to have no answer";
        EXPECT_EQ(accounted.size(), 2U) << calls;
    }
    EXPECT_LT(calls, 500);
    EXPECT_GT(codes[ERROR_CANCELLED], 3);
    EXPECT_EQ(codes.size(), 2U) << "0 and 1223, and nothing else";
}

// Closing ends a request that is under way; nothing of it stays.
TEST_F(Lookup, ClosesInTheMiddleOfARequest)
{
    ProcessCounts before = ProcessCounts::now();
    before.handles += 2;      // what the first lookup of the process makes for good
    before.blocks = LONG_MAX; // tables keep their room
    {
        HeldServer held;
        use(held.server);
        add(20);
        ASSERT_TRUE(held.asked.wait());
        std::thread waiting([&] { EXPECT_NE(HVKWait(m_queue, 60000, nullptr), ERROR_SUCCESS); });
        EXPECT_NE(CloseHVK(m_queue), 0);
        waiting.join();
        held.go.set();
        EXPECT_TRUE(answers().empty());
        EXPECT_EQ(CloseHVK(m_queue), 0);
    }
    EXPECT_TRUE(before.isReachedAgain());
}

// Somebody closes the pool of the work, with the queue's own opening, while a file is being hashed.
TEST_F(Lookup, EndsAfterItsWorkEvenIfItsPoolWasClosed)
{
    const TestEvent hashing, closing, goOn;
    std::atomic<bool> ended{false};
    const Opens opens(before([&](auto...) { hashing.set(), ended = goOn.wait(); }));
    const Replaced<"WaitForMultipleObjects", decltype(&WaitForMultipleObjects)> waits(
        before([&](DWORD count, auto...) { count == 1 ? goOn.set() : void(); }));
    const Replaced<"SleepConditionVariableSRW", decltype(&SleepConditionVariableSRW)> sleeps(
        before([&](auto...) { closing.set(); }));
    add(1);
    ASSERT_TRUE(hashing.wait());
    std::thread closer([] {
        void* const pool = THPOpenThreadPool(L"HVKQueueThreadPool");
        EXPECT_TRUE(THPCloseThreadpool(pool) != 0 && THPCloseThreadpool(pool) != 0);
    });
    EXPECT_TRUE(closing.wait());
    EXPECT_NE(CloseHVK(m_queue), 0);
    EXPECT_TRUE(ended);
    goOn.set();
    closer.join();
}
