// One table over all exported functions: their codes for wrong handles and when memory runs out, and that
// they release what they take.

#include "core/win32/registry/api.h"
#include "core/win32/utils/ftp/api.h"
#include "core/win32/utils/logger/api.h"
#include "core/win32/utils/restoremanager/api.h"
#include "support/Pools.h"
#include "support/RestoreClient.h"
#include "support/Utilities.h"

namespace {
constexpr auto kDrop = Operation::CancelAndReturn;
constexpr auto kAtEnd = Option::AtEnd;
constexpr auto kKeep = INotifyProvider::kKeepNumber;
void* const kInvalid = INVALID_HANDLE_VALUE;

// Longer than what a string stores without allocating.
constexpr wchar_t kName[] = L"a name too long to stand in a string without memory of its own";
constexpr wchar_t kOther[] = L"another name, which is as long as the first one or even longer";
constexpr wchar_t kKey[] = L"Software\\sysmaint-exports";
constexpr wchar_t kSession[] = L"System\\CurrentControlSet\\Control\\Session Manager";
constexpr unsigned long kNumber = 4294967295;

MessageFilter takers[2]; // accept messages of every form
IMessageHandler& taker = takers[0];
IMessageHandler& stranger = takers[1];
MessageFilter filter;
Collector collector;
NotifyProvider provider;

Work workObject([] {});
long work(IThreadContext&, void*)
{
    return ERROR_SUCCESS;
}

std::wstring folder;
const wchar_t* file = nullptr;
SharedPtr<IScanValidator> validator;
SharedPtr<ScanItem> item;
HashMessageW hash(kName, 1U);
DataMessage data(kName, 1U);
ArrayMessage array(kName, 1U);
MemoryInputByteStream noBytes(nullptr, 0);
MessageW plain(kName, 1U);
const TestEvent signalled;
const wchar_t* text = nullptr;
wchar_t token[4];
int flag = 0;
std::int64_t pointNumber = 0;
std::uint64_t room = 0;
unsigned char untouched[64]; // no failing call may write here
template <class T>
T* out()
{
    return reinterpret_cast<T*>(untouched);
}
long workCode = 0;

/// What the functions of the table are called with: one open object of each family.
struct Handles
{
    explicit Handles(void* handle = nullptr) : topic(handle) { std::fill_n(all, 8, handle); }
    Handles(Handles&&) = delete;

    void* all[10]{}; // the last two are instances of work in the pool
    void *&item = all[0], *&engine = all[1], *&keys = all[2], *&pool = all[3], *&logger = all[4];
    void *&restore = all[5], *&ftp = all[6], *&account = all[7], *&named = all[8], *&numbered = all[9];
    TopicHandle topic;
};

struct Objects : Handles
{
    explicit Objects(bool withLogger)
    {
        item = CreateFileW(kName, file, 0);
        engine = CreateFileScanEngine(kName);
        FSEngineAddPath(engine, folder.c_str(), 0);
        FSEngineRegisterHandlers(engine, provider, kKeep, kKeep);
        keys = CreateRegistryScanEngine(kName);
        RSEngineAddPath(keys, HKEY_CURRENT_USER, kKey, 0);
        RSEngineRegisterHandlers(keys, provider, kKeep, kKeep);
        pool = THPCreateThreadPool(kName);
        const THPCategoryOptions withoutThreads(0, 0, 0, 0); // so that what is queued stays
        THPCreateCategory(pool, kName, withoutThreads);
        THPCreateCategory(pool, 7UL, withoutThreads);
        THPQueueWork(pool, kName, kName, &work, hash, kAtEnd, &named);
        THPQueueWork(pool, 7UL, 7UL, &work, hash, kAtEnd, &numbered);
        topic = CreateMessageTopic(kName);
        TopicSubscribe(topic, taker);
        numberedTopic = CreateMessageTopic(7UL);
        restore = CreateRestoreManager(kName);
        ftp = CreateFtpScanEngine(kName);
        FtpSEngineRegisterHandlers(ftp, provider, kKeep, kKeep);
        account = CreateFtpConnection(kName, kOther, 0, kName, kName);
        if (withLogger)
            logger = CreateLogger(kName);
    }
    ~Objects()
    {
        const std::function<void(void*)> closes[] = {
            CloseScanItem, CloseFileScanEngine, CloseRegistryScanEngine, THPCloseThreadpool,
            CloseLogger,   CloseRestoreManager, CloseFtpScanEngine,      CloseFtpConnection};
        for (std::size_t i = 0; i < std::size(closes); ++i)
            closes[i](all[i]);
    }

    TopicHandle numberedTopic;
};

/// The code of what a call returned, which is released.
template <class Result, class Close>
long codeOfResult(Result&& result, [[maybe_unused]] Close close)
{
    const auto code = static_cast<long>(GetLastError());
    HeapWatch::disarm();
    using Type = std::remove_cvref_t<Result>;
    if constexpr (std::is_same_v<Type, long>)
        return result;
    bool succeeded = false;
    if constexpr (std::is_same_v<Type, TopicHandle>) {
        succeeded = result.isValid();
    } else if constexpr (std::is_same_v<Type, void*>) {
        succeeded = result != kInvalid;
        EXPECT_EQ(succeeded, succeeded && close(result) != 0);
    } else if constexpr (std::is_pointer_v<Type>) {
        succeeded = result != nullptr;
        delete result;
    }
    return succeeded ? ERROR_SUCCESS : code;
}

constexpr int kTakesHandle = 0, kCloses = 1, kMakes = 2;
struct Row
{
    const char* name;
    int kind;
    long code; ///< when nothing fails
    long (*run)(Handles&);
};
// clang-format off
#define ROW(kind, code, close, ...) \
    {#__VA_ARGS__, kind, code, [](Handles& o) { static_cast<void>(o); return codeOfResult(__VA_ARGS__, close); }}
#define CLOSES(...) ROW(kCloses, 0, nullptr, (__VA_ARGS__) != 0 ? 0L : long{ERROR_INVALID_HANDLE})
#define MAKES(...) ROW(kMakes, 0, nullptr, __VA_ARGS__)
#define REFUSES(close, ...) ROW(kMakes, ERROR_INVALID_PARAMETER, close, __VA_ARGS__)

const Row kRows[] = {
#include <export_rows.inc>
    MAKES(DllGetFile(L"%temp%\\x", 1)),
    MAKES(DllGetScanValidator(L"*.tmp,a pattern that does not stand in a string itself:110", L"x:011")),
    MAKES(static_cast<long>(codeOf([] { CachedPath(L"%temp%\\%windir% and some more than stands in a string", 1); }))),
    MAKES((ForceDeleteIsScheduled(file), static_cast<long>(GetLastError()))),
    MAKES(BootExecuteIsScheduled(L"a") == 1 ? 0L : static_cast<long>(GetLastError())),
    MAKES(ImpersonateCurrentUser()),
    MAKES(SetCurrentUserSession(kConsoleUser)),
    ROW(kMakes, 0, CloseScanItem, CreateScanItem(kOther, item))};

/// What is wrong with any handle, or without one.
const Row kWrong[] = {
#include <export_nulls.inc>
    REFUSES(nullptr, AddBootExecute(L"")),
    REFUSES(nullptr, RemoveBootExecute(L"")),
    REFUSES(nullptr, (ForceDeleteIsScheduled(nullptr), static_cast<long>(GetLastError()))),
    REFUSES(CloseScanItem, CreateScanItem(nullptr, item)),
    REFUSES(CloseScanItem, CreateRegistryKey(kName, HKEY_CURRENT_USER, kKey, kRegistryView32 | kRegistryView64)),
    REFUSES(nullptr, FSEngineAddPath(o.engine, L"", 0)),
    REFUSES(nullptr, THPQueueWork(o.pool, 7, 7, &work, hash, static_cast<Option>(99), nullptr)),
    REFUSES(nullptr, THPCancelWork(o.pool, 7, static_cast<Operation>(99))),
    REFUSES(nullptr, DeleteRestorePoint(o.restore, -1)),
    ROW(kMakes, ERROR_NOT_FOUND, nullptr, ServeObjectRequests(kOther, 1)),
    MAKES(_stristr(nullptr, "a") == nullptr && _stristr("a", nullptr) == nullptr ? 0L : 1L),
    MAKES(_wcsistr(nullptr, L"a") == nullptr && _wcsistr(L"a", nullptr) == nullptr ? 0L : 1L),
    MAKES(SetFirstCharA(nullptr, 'a', 'b') == nullptr && SetFirstCharW(nullptr, L'a', L'b') == nullptr ? 0L : 1L),
    MAKES((utilsFreeMemory(nullptr), 0L))};

// clang-format on

/// What the table's calls find and leave on the machine.
struct Exports : testing::Test
{
    Exports()
    {
        folder = scratchFolder() + L"\\";
        path = folder + L"a file with a long name";
        file = path.c_str();
        client.emplace(scratchFolder());
        writeBytes(path, {1, 2, 3});
        const std::wstring inner = kKey + std::wstring(L"\\inner");
        RegSetKeyValueW(HKEY_CURRENT_USER, inner.c_str(), kName, REG_BINARY, kName, sizeof kName);
        RegSetKeyValueW(HKEY_LOCAL_MACHINE, kSession, L"BootExecute", REG_MULTI_SZ, L"a\0", 6);
        writeBytes(bootListPath(), Bytes(10000, 1));
        validator = everything();
        collector.collects = false;
        provider.registerHandler(collector, kLeafFound, 0, 0);
        provider.registerHandler(collector, kContainerFound, 0, 0);
        hash.setParameter(kName, kName);
        data.setData(kName, sizeof kName);
        array.clearElements();
        array.addElement(makeShared<SerializableW, MessageW>(kName, 1U));
        item = itemOf(CreateFileW(kName, file, 0));
        signalled.set();
    }
    ~Exports() override
    {
        item = SharedPtr<ScanItem>();
        validator = SharedPtr<IScanValidator>();
        DeleteFileW(bootListPath().c_str());
        provider.clearNotifyHandlers();
        RegDeleteKeyValueW(HKEY_LOCAL_MACHINE, kSession, L"BootExecute");
        RegDeleteTreeW(HKEY_CURRENT_USER, kKey);
        DeleteFileW(file);
        client->takeRecord();
        RemoveDirectoryW(folder.c_str());
    }

    /// Runs a row; with `failing` its allocation of that number fails, with -1 each.
    static long run(const Row& row, long failing = 0)
    {
        Objects objects(std::strstr(row.name, "o.logger") != nullptr ||
                        std::strstr(row.name, "OpenLogger") != nullptr);
        SetLastError(4711);
        if (failing > 0)
            HeapWatch::arm(failing);
        else if (failing < 0)
            HeapWatch::armAll();
        const long code = row.run(objects);
        HeapWatch::disarm();
        ServeObjectRequests(L"ScanItem", 0);
        RemoveBootExecute(kName);
        RevertToSelf();
        return code;
    }

    std::wstring path;
    std::optional<RestoreClient> client;
};

void expectRefused(Handles& handles, const char* kind, long poolCode = ERROR_INVALID_HANDLE)
{
    for (const Row& row : kRows) {
        if (row.kind == kMakes)
            continue;
        SetLastError(4711);
        const bool isPool = row.kind == kTakesHandle && std::strstr(row.name, "o.pool") != nullptr;
        EXPECT_EQ(row.run(handles), isPool ? poolCode : ERROR_INVALID_HANDLE) << kind << ": " << row.name;
        EXPECT_TRUE(row.kind != kCloses || GetLastError() == 4711) << row.name;
        EXPECT_TRUE(!isPool || GetLastError() == static_cast<DWORD>(poolCode)) << row.name;
    }
}
} // namespace

// Handles that are null, invalid, never issued, closed, or another family's; and null arguments.
TEST_F(Exports, RefuseWhatIsWrongAndKeepNothing)
{
    ProcessCounts before;
    for (int turn = 0; turn < 2; ++turn) {
        before = ProcessCounts::now();
        Handles closed;
        {
            const Objects objects(true);
            std::copy(std::begin(objects.all), std::end(objects.all), closed.all);
            closed.topic.reset(objects.topic.get());
        }
        expectRefused(closed, "closed", ERROR_INVALID_ADDRESS);
        for (void* wrong : {static_cast<void*>(nullptr), kInvalid, reinterpret_cast<void*>(0x100000)}) {
            Handles handles(wrong);
            expectRefused(handles, "null, invalid or never given out");
        }

        // A number that only the items have open, and for the items one that an engine has.
        std::vector<void*> items;
        do
            items.push_back(CreateFileW(std::to_wstring(items.size()).c_str(), L"x", 0));
        while (items.back() < reinterpret_cast<void*>(1000));
        Handles others(items.back());
        others.item = nullptr;
        expectRefused(others, "an item's");
        for (void* open : items)
            CloseScanItem(open);
        others.item = CreateFileScanEngine(kName);
        expectRefused(others, "an engine's");
        CloseFileScanEngine(others.item);

        Objects objects(true);
        for (const Row& row : kWrong) {
            SetLastError(4711);
            std::ranges::fill(untouched, 0x5a);
            EXPECT_EQ(row.run(objects), row.code) << row.name;
            EXPECT_EQ(std::ranges::count(untouched, 0x5a), std::ssize(untouched)) << row.name;
        }
    }
    EXPECT_TRUE(before.isReachedAgain(100));
}

// Each allocation of each function fails in turn: code 8, and nothing is kept. Closing a handle allocates
// nothing.
TEST_F(Exports, GiveBackWhatTheyTakeAndSayWhenThereIsNoMemory)
{
    for (const Row& row : kRows)
        EXPECT_EQ(run(row), row.code) << row.name;
    for (const Row& row : kRows) {
        // What a row keeps each time is a leak; what is made once and kept, here or by the system, is not.
        auto balanced = testing::AssertionFailure();
        for (int attempt = 0; attempt < 2 && !balanced; ++attempt) {
            const ProcessCounts before = ProcessCounts::now();
            for (long failing = 1;; ++failing) {
                const long code = run(row, failing);
                if (!HeapWatch::hasFailed())
                    break;
                EXPECT_EQ(code, row.kind == kCloses ? ERROR_SUCCESS : ERROR_NOT_ENOUGH_MEMORY)
                    << row.name << ", taking " << failing;
            }
            balanced = before.isReachedAgain(100);
        }
        EXPECT_TRUE(balanced) << row.name;
    }
}

// Neither does an exception find memory then, nor what the runtime keeps for a thread, and no result takes
// that.
TEST_F(Exports, SayThatThereIsNoMemoryInAThreadThatNeverHadAny)
{
    const auto onFreshThread = [](const auto& work) {
#ifdef __clang__ // only the library built with GCC has some for what the runtime keeps for a thread
        work(0);
#else
        onThreadsAtOnce(1, work);
#endif
    };
    for (int thread = 0; thread < 100; ++thread) // more than the library has blocks for the runtime
        onFreshThread([](int) {
            Given<wchar_t> text;
            HeapWatch::armAll();
            const long code = StringDuplicateW(L"short", &text); // which takes no memory but the result's
            HeapWatch::disarm();
            EXPECT_TRUE(code == ERROR_NOT_ENOUGH_MEMORY && text.get() == nullptr);
        });
    for (const Row& row : kRows)
        onFreshThread([&](int) {
            const long code = run(row, -1);
            EXPECT_TRUE(code == row.code || code == ERROR_NOT_ENOUGH_MEMORY) << row.name << ": " << code;
        });
}
