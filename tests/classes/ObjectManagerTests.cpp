#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "core/win32/utils/objectmanager/include/ObjectManager.h"
#include "core/win32/utils/objectmanager/include/SmartHandle.h"
#include "support/ImportReplacement.h"
#include "support/Process.h"
#include "support/Threads.h"

namespace {
std::atomic<long> g_living{0};

/// An object whose state is one number.
struct Counter : SerializableW
{
    static constexpr const char* kClassName = "Counter";
    explicit Counter(std::uint32_t start = 0) : value(start) { ++g_living; }
    Counter(const Counter&) = delete;
    Counter& operator=(const Counter&) = delete;
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

void* number(std::uintptr_t value)
{
    return reinterpret_cast<void*>(value);
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
    void* a = table.registerObject(L"a", makeShared<Counter>());
    EXPECT_EQ(a, number(1));
    EXPECT_EQ(GetLastError(), 0U);
    void* b = table.registerObject(L"b", makeShared<Counter>());
    EXPECT_EQ(b, number(2));
    void* c = table.registerObject(L"c", makeShared<Counter>());
    table.close(b);
    table.close(a);
    EXPECT_EQ(table.registerObject(L"d", makeShared<Counter>()), b)
        << "the number freed longest ago comes first";
    EXPECT_EQ(table.registerObject(L"e", makeShared<Counter>()), a);
    EXPECT_EQ(table.registerObject(L"f", makeShared<Counter>()), number(4));

    // A name that is taken is opened once more by the refusal, and stays so.
    EXPECT_EQ(table.registerObject(L"c", makeShared<Counter>()), kInvalid);
    EXPECT_EQ(GetLastError(), ERROR_ALREADY_EXISTS);
    EXPECT_NE(table.close(c), 0);
    EXPECT_EQ(table.lookup(L"c"), c);
    EXPECT_NE(table.close(c), 0);
    EXPECT_NE(table.close(c), 0);
    EXPECT_EQ(table.lookup(L"c"), kInvalid);
    EXPECT_EQ(GetLastError(), ERROR_NOT_FOUND);

    EXPECT_EQ(table.registerObject(nullptr, makeShared<Counter>()), kInvalid);
    EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
    EXPECT_EQ(table.registerObject(L"x", CounterPtr()), kInvalid);
    EXPECT_EQ(GetLastError(), ERROR_INVALID_ADDRESS);
    EXPECT_EQ(table.lookup(L"x"), kInvalid);
    EXPECT_EQ(table.lookup(nullptr), kInvalid);
    EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
    EXPECT_EQ(table.lookup(L"D"), kInvalid) << "case counts";

    CounterPtr object;
    const wchar_t* name = nullptr;
    for (void* wrong : {number(0), c, number(5), kInvalid}) {
        EXPECT_EQ(table.get(wrong, object), ERROR_INVALID_HANDLE);
        EXPECT_EQ(table.getName(wrong, &name), ERROR_INVALID_HANDLE);
        SetLastError(4711);
        EXPECT_EQ(table.close(wrong), 0);
        EXPECT_EQ(GetLastError(), 4711U);
    }
    EXPECT_EQ(table.getName(a, &name), ERROR_SUCCESS);
    EXPECT_STREQ(name, L"e");
    EXPECT_EQ(table.getName(a, nullptr), ERROR_INVALID_PARAMETER);
    EXPECT_EQ(table.getCount(), 3U);

    std::vector<long> codes;
    table.takeObjects(std::vector<void*>{a, c, b}, [&](long code, const CounterPtr& taken) {
        codes.push_back(code);
        EXPECT_EQ(static_cast<bool>(taken), code == ERROR_SUCCESS);
    });
    EXPECT_EQ(codes, (std::vector<long>{0, ERROR_INVALID_HANDLE, 0}));
    EXPECT_EQ(table.getCount(), 1U);
}

TEST(ObjectManager, ObjectsLiveAsLongAsTheyAreHeld)
{
    {
        Table table;
        void* handle = table.openOrCreate(L"a", [] { return makeShared<Counter>(5U); });
        EXPECT_EQ(table.openOrCreate(L"a", []() -> CounterPtr { throw 1L; }), handle);
        CounterPtr object;
        ASSERT_EQ(table.get(handle, object), ERROR_SUCCESS);
        table.close(handle);
        EXPECT_NE(table.close(handle), 0);
        EXPECT_EQ(object->value, 5U);
        EXPECT_EQ(g_living, 1);
        object = CounterPtr();
        EXPECT_EQ(g_living, 0);
        EXPECT_THROW(table.openOrCreate(L"a", []() -> CounterPtr { throw 1L; }), long);
        EXPECT_EQ(table.getCount(), 0U);
        table.registerObject(L"left open", makeShared<Counter>());
    }
    EXPECT_EQ(g_living, 0);
}

TEST(ObjectManager, LoadAndDumpRequests)
{
    Table table;
    void* handle = table.registerObject(L"counter", makeShared<Counter>(7U));
    std::uint32_t value = 9;
    const ParameterW* data = nullptr;

    HashMessageW same;
    ASSERT_EQ(answer(table, request(Table::kDumpRequest, L"counter", 0, 7), same).first, 0);
    EXPECT_EQ(same.getParameter(L"Dirty", value), 0);
    EXPECT_EQ(value, 0U);
    EXPECT_EQ(same.getParameter(L"ObjectData", data), ERROR_NOT_FOUND);
    EXPECT_EQ(same.getParameter(L"Status", value), 0);

    HashMessageW changed;
    ASSERT_EQ(answer(table, request(Table::kDumpRequest, L"counter", 0, 6), changed).first, 0);
    EXPECT_EQ(changed.getParameter(L"Dirty", value), 0);
    EXPECT_EQ(value, 1U);
    EXPECT_EQ(changed.getParameter(L"ObjectData", value), 0);
    EXPECT_EQ(value, 7U);

    HashMessageW loaded;
    ASSERT_EQ(answer(table, request(Table::kLoadRequest, L"counter", 0, 42), loaded).first, 0);
    EXPECT_EQ(loaded.getParameter(L"Status", value), 0);
    EXPECT_EQ(value, 0U);
    CounterPtr object;
    table.get(handle, object);
    EXPECT_EQ(object->value, 42U);

    const std::wstring function =
        L"Function: ObjectManager<SharedPtr<Counter,Delete<Counter> > >::onMessage\nLine: ";
    HashMessageW reply;
    EXPECT_EQ(answer(table, request(Table::kLoadRequest, L"counter", 13, 1), reply),
              std::make_pair(13L, function + L"460"));
    EXPECT_EQ(answer(table, request(Table::kDumpRequest, L"counter", 13, 1), reply),
              std::make_pair(13L, function + L"391"));
    EXPECT_EQ(answer(table, request(2, L"counter", 0, 1), reply).first, ERROR_INVALID_PARAMETER);
    EXPECT_EQ(answer(table, request(Table::kLoadRequest, L"other", 0, 1), reply).first, ERROR_NOT_FOUND);
    for (const std::uint32_t id : {Table::kDumpRequest, Table::kLoadRequest}) {
        for (const wchar_t* parameter :
             {L"ObjectName", id == Table::kLoadRequest ? L"LoadCode" : L"DumpCode", L"ObjectData"}) {
            HashMessageW missing = request(id, L"counter", 0, 1);
            missing.setParameter(parameter, HashMessageW::ParameterPtr());
            EXPECT_EQ(answer(table, missing, reply).first, ERROR_NOT_FOUND);
        }
        HashMessageW mistyped = request(id, L"counter", 0, 1);
        mistyped.setParameter(L"ObjectName", "odd", 3);
        EXPECT_EQ(answer(table, mistyped, reply).first, ERROR_INVALID_PARAMETER);
    }
    HashMessageW cut = request(Table::kLoadRequest, L"counter", 0, 1);
    cut.setParameter(L"ObjectData", "x", 1);
    EXPECT_EQ(answer(table, cut, reply).first, ERROR_READ_FAULT);
    EXPECT_TRUE(reply.getParameters().empty());

    // Every request gave its opening back.
    EXPECT_NE(table.close(handle), 0);
    EXPECT_EQ(table.getCount(), 0U);
}

// Failing kernel calls of the table's lock: the code arrives, nothing has changed.
TEST(ObjectManager, FailingLock)
{
    Table table;
    CounterPtr object;
    {
        CountedImport<"CreateMutexW", decltype(&CreateMutexW)> creates(GetModuleHandleW(nullptr));
        creates.failCall(1, nullptr, ERROR_NO_SYSTEM_RESOURCES);
        EXPECT_EQ(table.registerObject(L"a", makeShared<Counter>()), kInvalid);
        EXPECT_EQ(GetLastError(), ERROR_NO_SYSTEM_RESOURCES);
    }
    void* handle = table.registerObject(L"a", makeShared<Counter>());
    CountedImport<"WaitForSingleObject", decltype(&WaitForSingleObject)> waits(GetModuleHandleW(nullptr));
    waits.failCall(1, WAIT_FAILED, ERROR_NOT_ENOUGH_QUOTA);
    EXPECT_EQ(table.get(handle, object), ERROR_NOT_ENOUGH_QUOTA);
    waits.failCall(1, WAIT_FAILED, ERROR_NOT_ENOUGH_QUOTA);
    EXPECT_EQ(table.lookup(L"a"), kInvalid);
    waits.failCall(1, WAIT_FAILED, ERROR_NOT_ENOUGH_QUOTA);
    EXPECT_EQ(table.close(handle), 0);
    EXPECT_NE(table.close(handle), 0);
    EXPECT_EQ(table.getCount(), 0U) << "the failed lookup has opened it";
}

TEST(ObjectManager, ManyThreadsOnTheSameNames)
{
    Table table;
    table.close(table.openOrCreate(L"a", [] { return makeShared<Counter>(); })); // makes the table's locks
    const ProcessCounts before = ProcessCounts::now();
    std::atomic<long> failures{0};
    onThreadsAtOnce(8, [&](int thread) {
        for (int turn = 0; turn < 3000; ++turn) {
            const std::wstring name(1, static_cast<wchar_t>(L'a' + (turn + thread) % 3));
            void* handle = table.openOrCreate(name.c_str(), [] { return makeShared<Counter>(1U); });
            CounterPtr object;
            if (table.get(handle, object) != ERROR_SUCCESS || object->value != 1)
                ++failures;
            if (void* again = table.lookup(name.c_str()); again != handle || table.close(again) == 0)
                ++failures;
            if (table.close(handle) == 0)
                ++failures;
        }
    });
    EXPECT_EQ(failures, 0);
    EXPECT_EQ(table.getCount(), 0U);
    EXPECT_EQ(g_living, 0);
    EXPECT_TRUE(before.isReachedAgain(100)) << before.describe();
}

namespace {
std::vector<void*> g_closed;
int closeHandle(void* handle)
{
    g_closed.push_back(handle);
    return 1;
}
} // namespace

TEST(Ownership, PointersHandlesAndLocks)
{
    {
        CounterPtr empty;
        CounterPtr first = makeShared<Counter>(1U);
        CounterPtr second(new Counter(2));
        first = first; // NOLINT: on purpose
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

    CountedImport<"CreateMutexW", decltype(&CreateMutexW)> creates(GetModuleHandleW(nullptr));
    MutexLock lock;
    EXPECT_EQ(creates.calls(), 0);
    EXPECT_THROW(lock.unlock(), long) << "not the owner";
    std::thread([&] { lock.lock(); }).join(); // dies with the lock
    const Locker outer(lock);
    const Locker inner(lock);
    EXPECT_EQ(creates.calls(), 1);
}
