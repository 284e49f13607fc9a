#include "core/win32/utils/objectmanager/include/ObjectTable.h"
#include "core/win32/utils/objectmanager/include/SmartHandle.h"
#include "support/ImportReplacement.h"
#include "support/Test.h"

namespace {
std::atomic<long> g_living{0};

/// An object whose state is one number.
struct Counter : SerializableW
{
    static constexpr const char* kClassName = "Counter";
    explicit Counter(std::uint32_t start = 0) : value(start) { ++g_living; }
    Counter(Counter&&) = delete;
    ~Counter() override { --g_living; }

    long load(unsigned long code, IInputByteStream& stream) override
    {
        value = primitives::readU32(stream);
        return static_cast<long>(code); // the tests pass 0, or the code to fail with
    }
    long dump(unsigned long code, IOutputByteStream& stream) const override
    {
        primitives::writeU32(stream, value);
        return static_cast<long>(code);
    }
    std::uint32_t value;
};

using CounterPtr = SharedPtr<Counter>;
using Table = ObjectManager<CounterPtr>;
void* const kInvalid = INVALID_HANDLE_VALUE;

const auto number = [](std::uintptr_t value) { return reinterpret_cast<void*>(value); };
const auto refusal = [](void* handle) { return handle == kInvalid ? GetLastError() : 0; };

std::vector<void*> g_closed;
int closeHandle(void* handle)
{
    g_closed.push_back(handle);
    return 1;
}

/// What a request raises: the code and the text around the place, empty for a bare long.
std::pair<long, std::wstring> answer(Table& table, const HashMessageW& request, HashMessageW& reply)
{
    try {
        table.onMessage(request, reply, nullptr);
        return {0, L""};
    } catch (const Exception& raised) {
        const std::wstring text = raised.getText();
        const std::size_t begin = text.find(L"Function: ");
        return {raised.getCode(), text.substr(begin, text.find(L"\nSystem") - begin)};
    } catch (long code) {
        return {code, L""};
    }
}

HashMessageW request(std::uint32_t id, const wchar_t* name, std::uint32_t code, std::uint32_t data)
{
    HashMessageW message(L"tables", id);
    message.setParameter(L"ObjectName", name);
    message.setParameter(id == Table::kLoadRequest ? L"LoadCode" : L"DumpCode", code);
    message.setParameter(L"ObjectData", data);
    return message;
}
} // namespace

TEST(ObjectManager, NumbersNamesAndCodes)
{
    Table table;
    const auto add = [&](const wchar_t* name) { return table.registerObject(name, makeShared<Counter>()); };
    EXPECT_EQ(add(L"a"), number(1));
    EXPECT_EQ(GetLastError(), 0U);
    for (const wchar_t* name : {L"b", L"c", L"d"})
        add(name);
    for (const std::uintptr_t freed : {2, 1, 4})
        EXPECT_NE(table.close(number(freed)), 0);
    EXPECT_EQ(add(L"e"), number(2)) << "the number freed longest ago comes first";
    table.close(number(2)); // now the last
    for (const std::uintptr_t reused : {1, 4, 2, 5})
        EXPECT_EQ(add(std::to_wstring(reused).c_str()), number(reused));
    const wchar_t* name = nullptr;
    EXPECT_EQ(table.getName(number(4), &name), ERROR_SUCCESS);
    EXPECT_STREQ(name, L"4");

    // The refusal of an existing name opens that object once more.
    EXPECT_EQ(refusal(add(L"c")), ERROR_ALREADY_EXISTS);
    EXPECT_NE(table.close(number(3)), 0);
    EXPECT_EQ(table.lookup(L"c"), number(3));
    EXPECT_NE(table.close(number(3)), 0);
    EXPECT_NE(table.close(number(3)), 0);
    for (const wchar_t* missing : {L"c", L"C", L"x"}) { // which is not filed without an object
        EXPECT_EQ(refusal(table.lookup(missing)), ERROR_NOT_FOUND);
        EXPECT_EQ(refusal(table.registerObject(missing, CounterPtr())), ERROR_INVALID_ADDRESS);
    }
    EXPECT_EQ(add(L"C"), number(3));
    table.close(number(3));

    std::vector<long> codes;
    table.takeObjects(std::vector<void*>{number(1), number(3), number(2)},
                      [&](long code, const CounterPtr& taken) {
                          codes.push_back(code);
                          EXPECT_EQ(static_cast<bool>(taken), code == ERROR_SUCCESS);
                      });
    EXPECT_EQ(codes, (std::vector<long>{0, ERROR_INVALID_HANDLE, 0}));
    EXPECT_EQ(table.getCount(), 2U);
}

// What is refused changes nothing.
TEST(ObjectManager, LoadAndDumpRequests)
{
    Table table;
    void* handle = table.registerObject(L"counter", makeShared<Counter>(7U));
    HashMessageW reply;
    const auto expectReply = [&](const wchar_t* name, std::uint32_t expected) {
        std::uint32_t value = ~expected;
        EXPECT_EQ(reply.getParameter(name, value), ERROR_SUCCESS);
        EXPECT_EQ(value, expected);
    };
    const ParameterW* data = nullptr;
    ASSERT_EQ(answer(table, request(Table::kDumpRequest, L"counter", 0, 7), reply).first, 0);
    expectReply(L"Dirty", 0);
    expectReply(L"Status", 0);
    EXPECT_EQ(reply.getParameter(L"ObjectData", data), ERROR_NOT_FOUND);
    ASSERT_EQ(answer(table, request(Table::kDumpRequest, L"counter", 0, 6), reply).first, 0);
    expectReply(L"Dirty", 1);
    expectReply(L"ObjectData", 7);
    reply = HashMessageW();
    ASSERT_EQ(answer(table, request(Table::kLoadRequest, L"counter", 0, 42), reply).first, 0);
    expectReply(L"Status", 0);
    CounterPtr object;
    table.get(handle, object);
    EXPECT_EQ(object->value, 42U);
    reply = HashMessageW();
    for (const std::uint32_t id : {Table::kDumpRequest, Table::kLoadRequest}) {
        const bool isLoad = id == Table::kLoadRequest;
        EXPECT_EQ(
            answer(table, request(id, L"counter", 13, 1), reply),
            std::make_pair(13L, std::wstring(L"Function: ObjectManager<SharedPtr<Counter,Delete<Counter> > "
                                             L">::onMessage\nLine: ") +
                                    (isLoad ? L"460" : L"391")));
        EXPECT_EQ(answer(table, request(id, L"other", 0, 1), reply).first, ERROR_NOT_FOUND);
        for (const wchar_t* parameter : {L"ObjectName", isLoad ? L"LoadCode" : L"DumpCode", L"ObjectData"}) {
            HashMessageW missing = request(id, L"counter", 0, 1);
            missing.setParameter(parameter, HashMessageW::ParameterPtr());
            EXPECT_EQ(answer(table, missing, reply).first, ERROR_NOT_FOUND);
        }
        HashMessageW mistyped = request(id, L"counter", 0, 1);
        mistyped.setParameter(L"ObjectName", "odd", 3);
        EXPECT_EQ(answer(table, mistyped, reply).first, ERROR_INVALID_PARAMETER);
    }
    EXPECT_EQ(answer(table, request(2, L"counter", 0, 1), reply).first, ERROR_INVALID_PARAMETER);
    HashMessageW cut = request(Table::kLoadRequest, L"counter", 0, 1);
    cut.setParameter(L"ObjectData", "x", 1);
    EXPECT_EQ(answer(table, cut, reply).first, ERROR_READ_FAULT);
    EXPECT_TRUE(reply.getParameters().empty());

    EXPECT_NE(table.close(handle), 0);
    EXPECT_EQ(table.getCount(), 0U) << "a request kept its opening";
}

TEST(ObjectTable, TablesAreDestroyedBeforeThoseThatTheirObjectsHold)
{
    std::map<std::string_view, int> order;
    int number = 0;
    for (const auto* table = AnyObjectTable::getFirst(); table != nullptr; table = table->getNext())
        EXPECT_TRUE(order.emplace(table->getClassName(), ++number).second) << table->getClassName();
    EXPECT_EQ(order["ProcessMonitor"] + order["MessageListener"], 1 + 2) << "they hold topics";
    EXPECT_EQ(order["MessageTopic"], 3) << "its handlers may hold anything else";
    EXPECT_EQ(order["ThreadPool"], number);
    for (const char* engine : {"FileScanEngine", "RegistryScanEngine"})
        EXPECT_LT(order.at(engine), order.at("ScanItem"));
}

// Failing kernel calls of the table's lock: the code is returned, nothing has changed.
TEST(ObjectManager, FailingLock)
{
    Table table;
    CounterPtr object;
    {
        const Replaced<"CreateMutexW", decltype(&CreateMutexW)> creates(1, nullptr, 1450);
        EXPECT_EQ(refusal(table.registerObject(L"a", makeShared<Counter>())), 1450U);
    }
    void* handle = table.registerObject(L"a", makeShared<Counter>());
    Replaced<"WaitForSingleObject", decltype(&WaitForSingleObject)> waits;
    const auto failNext = [&] { waits.failCall(1, WAIT_FAILED, ERROR_NOT_ENOUGH_QUOTA); };
    failNext();
    EXPECT_EQ(table.get(handle, object), ERROR_NOT_ENOUGH_QUOTA);
    failNext();
    EXPECT_EQ(table.lookup(L"a"), kInvalid);
    failNext();
    EXPECT_EQ(table.close(handle), 0);
    EXPECT_NE(table.close(handle), 0);
    EXPECT_EQ(table.getCount(), 0U) << "the failed lookup has opened it";
}

TEST(Ownership, PointersHandlesAndLocks)
{
    {
        CounterPtr empty;
        CounterPtr first = makeShared<Counter>(1U);
        CounterPtr second(new Counter(2));
        const CounterPtr& same = first;
        first = same;
        second = first;
        EXPECT_EQ(g_living, 1);
        first = empty;
        EXPECT_EQ(second->value, 1U);
        EXPECT_FALSE(first);
        EXPECT_EQ(*empty.getAddress(), nullptr);
        EXPECT_EQ(sizeof(CounterPtr), 2 * sizeof(void*));
    }
    EXPECT_EQ(g_living, 0);

    struct Node
    {
        SharedPtr<Node> next;
    };
    SharedPtr<Node> list = makeShared<Node>();
    list->next = makeShared<Node>();
    list = list->next; // the old object owns what is assigned
    EXPECT_FALSE(list->next);

    {
        using Handle = SmartHandle<closeHandle>;
        Handle one(number(1));
        Handle two(number(2));
        const Handle none;
        const Handle invalid(kInvalid);
        two = std::move(one);
        Handle three(two.release());
    }
    EXPECT_EQ(g_closed, (std::vector<void*>{number(2), number(1)}));
}

TEST(Ownership, OfALockThatTwoThreadsMakeAtOnce)
{
    MutexLock lock;
    HANDLE late = nullptr;
    bool isClosed = false;
    Replaced<"CreateMutexW", decltype(&CreateMutexW)> creates([&](auto original, auto... arguments) {
        if (creates.calls() == 1)
            std::thread([&] { lock.lock(); }).join(); // the first one dies with the lock
        return late = original(arguments...);
    });
    const Replaced<"CloseHandle", decltype(&CloseHandle)> closes(
        before([&](HANDLE handle) { isClosed = isClosed || (handle != nullptr && handle == late); }));
    EXPECT_EQ(creates.calls(), 0);
    lock.lock(), lock.lock();
    EXPECT_NO_THROW((lock.unlock(), lock.unlock()));
    EXPECT_THROW(lock.unlock(), long) << "not the owner";
    EXPECT_TRUE(creates.calls() == 2 && isClosed);
}
