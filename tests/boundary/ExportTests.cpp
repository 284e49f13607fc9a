// One table over all exported functions: what they say to wrong handles and without memory, and that they
// give back what they take.

#include <cstring>

#include "core/win32/registry/api.h"
#include "core/win32/utils/communication/api.h"
#include "core/win32/utils/logger/api.h"
#include "core/win32/utils/strings/api.h"
#include "core/win32/utils/threadpool/api.h"
#include "support/Wipe.h"
#include "win32/communication/include/DataMessage.h"
#include "win32/paths/include/CachedPath.h"

namespace {
using Operation = IThreadPool::OperationType;
constexpr auto kAtEnd = ITHPWorkItem::ScheduleOption::AtEnd;
void* const kInvalid = INVALID_HANDLE_VALUE;

// Longer than what stands in a string itself.
constexpr wchar_t kName[] = L"a name too long to stand in a string without memory of its own";
constexpr wchar_t kOther[] = L"another name, which is as long as the first one or even longer";
constexpr wchar_t kKey[] = L"Software\\sysmaint-exports";
constexpr unsigned long kNumber = 4294967295;

/// Takes messages of every form.
struct Taker : IMessageHandler
{
    void onMessage(const MessageW&, MessageW&, void*) override {}
    void onMessage(const MessageW&, MessageW&, std::uint32_t, void*) override {}
    void onMessage(const DataMessage&, DataMessage&, void*) override {}
    void onMessage(const DataMessage&, DataMessage&, std::uint32_t, void*) override {}
    void onMessage(const ArrayMessage&, ArrayMessage&, void*) override {}
    void onMessage(const ArrayMessage&, ArrayMessage&, std::uint32_t, void*) override {}
    void onMessage(const HashMessageW&, HashMessageW&, void*) override {}
    void onMessage(const HashMessageW&, HashMessageW&, std::uint32_t, void*) override {}
} taker, stranger;
MessageFilter filter;
Collector collector;
NotifyProvider provider;

struct Work : ITHPWorkItem
{
    long operator()(IThreadContext&, void*) override { return ERROR_SUCCESS; }
} workObject;
long work(IThreadContext&, void*)
{
    return ERROR_SUCCESS;
}

std::wstring folder;
const wchar_t* file = nullptr;
const SharedPtr<IScanValidator> noValidator;
SharedPtr<ScanItem> item;
HashMessageW hash(kName, 1U);
DataMessage data(kName, 1U);
ArrayMessage array(kName, 1U);
MessageW plain(kName, 1U);
const wchar_t* text = nullptr;
wchar_t token[4];
int flag = 0;
long workCode = 0;

/// What the functions of the table are called with: one open object of each family.
struct Handles
{
    explicit Handles(void* all = nullptr)
        : item(all), engine(all), keys(all), pool(all), logger(all), topic(all)
    {
    }
    void* item;
    void* engine;
    void* keys;
    void* pool;
    void* logger;
    TopicHandle topic;
    TopicHandle numberedTopic;
    void* named = nullptr; // instances of work in the pool
    void* numbered = nullptr;
};

struct Objects : Handles
{
    explicit Objects(bool withLogger)
    {
        item = CreateFileW(kName, file, 0);
        engine = CreateFileScanEngine(kName);
        FSEngineAddPath(engine, folder.c_str(), 0);
        FSEngineRegisterHandlers(engine, provider, INotifyProvider::kKeepNumber,
                                 INotifyProvider::kKeepNumber);
        keys = CreateRegistryScanEngine(kName);
        RSEngineAddPath(keys, HKEY_CURRENT_USER, kKey, 0);
        RSEngineRegisterHandlers(keys, provider, INotifyProvider::kKeepNumber, INotifyProvider::kKeepNumber);
        pool = THPCreateThreadPool(kName);
        const THPCategoryOptions withoutThreads(0, 0, 0, 0); // so that what is queued stays
        THPCreateCategory(pool, kName, withoutThreads);
        THPCreateCategory(pool, 7UL, withoutThreads);
        THPQueueWork(pool, kName, kName, &work, hash, kAtEnd, &named);
        THPQueueWork(pool, 7UL, 7UL, &work, hash, kAtEnd, &numbered);
        topic = CreateMessageTopic(kName);
        TopicSubscribe(topic, taker);
        numberedTopic = CreateMessageTopic(7UL);
        if (withLogger)
            logger = CreateLogger(kName);
    }
    Objects(const Objects&) = delete;
    Objects& operator=(const Objects&) = delete;
    ~Objects()
    {
        CloseScanItem(item);
        CloseFileScanEngine(engine);
        CloseRegistryScanEngine(keys);
        THPCloseThreadpool(pool);
        if (logger != nullptr)
            CloseLogger(logger);
    }
};

/// The code of what a call returned, which is given back.
long codeOfResult(long code, const void*)
{
    HeapWatch::disarm();
    return code;
}
long codeOfResult(void* handle, int (*close)(void*))
{
    const DWORD code = GetLastError();
    HeapWatch::disarm();
    if (handle == kInvalid)
        return static_cast<long>(code);
    EXPECT_NE(close(handle), 0);
    return ERROR_SUCCESS;
}
long codeOfResult(const TopicHandle& handle, const void*)
{
    const DWORD code = GetLastError();
    HeapWatch::disarm();
    return handle.isValid() ? ERROR_SUCCESS : static_cast<long>(code);
}
template <class Object>
long codeOfResult(Object* object, const void*)
{
    const DWORD code = GetLastError();
    HeapWatch::disarm();
    delete object;
    return object != nullptr ? ERROR_SUCCESS : static_cast<long>(code);
}

template <class Item, class Load>
long reload(Item* stored, Load load)
{
    if (stored == nullptr)
        return codeOfResult(stored, nullptr);
    MemoryOutputByteStream output;
    stored->dump(0, output);
    delete stored;
    MemoryInputByteStream input(output.getData(), output.getSize());
    return codeOfResult(load(input), nullptr);
}

enum class Kind
{
    TakesHandle,
    Closes,
    Makes
};
struct Row
{
    const char* name;
    Kind kind;
    long code; ///< when nothing fails
    long (*run)(Handles&);
};
// clang-format off
#define ROW(text, kind, code, close, ...) \
    {text, Kind::kind, code, [](Handles& o) { static_cast<void>(o); return codeOfResult(__VA_ARGS__, close); }}
#define USES(...) ROW(#__VA_ARGS__, TakesHandle, 0, nullptr, __VA_ARGS__)
#define USES_GIVING(code, ...) ROW(#__VA_ARGS__, TakesHandle, code, nullptr, __VA_ARGS__)
#define CLOSES(...) ROW(#__VA_ARGS__, Closes, 0, nullptr, (__VA_ARGS__) != 0 ? 0L : long{ERROR_INVALID_HANDLE})
#define MAKES(...) ROW(#__VA_ARGS__, Makes, 0, nullptr, __VA_ARGS__)
#define OPENS(close, ...) ROW(#__VA_ARGS__, Makes, 0, close, __VA_ARGS__)

const Row kRows[] = {
    MAKES(DllGetFile()),
    MAKES(DllGetFile(file, 0)),
    MAKES(DllGetFile(L"%temp%\\x", 1)),
    MAKES(DllGetDirectory(file, 0)),
    MAKES(DllGetScanValidator()),
    MAKES(DllGetScanValidator(L"*.tmp,a pattern that does not stand in a string itself:110", L"x:011")),
    MAKES(DllGetRegistryScanEngine()),
    MAKES(DllGetRegistryKey()),
    MAKES(DllGetRegistryKey(HKEY_CURRENT_USER, kKey)),
    MAKES(DllGetRegistryValue()),
    MAKES(DllGetRegistryValue(HKEY_CURRENT_USER, kKey, kName)),
    MAKES(DllGetRegistryValue(HKEY_CURRENT_USER, kKey, L"v", kName)),
    MAKES(reload(DllGetFile(file, 0), [](auto& stream) { return DllGetFile(0UL, stream); })),
    MAKES(reload(DllGetDirectory(file, 0), [](auto& stream) { return DllGetDirectory(0UL, stream); })),
    MAKES(DllGetWiper()),
    MAKES(static_cast<long>(codeOf([] { CachedPath(L"%temp%\\%windir% and some more than stands in a string", 1); }))),
    MAKES(AddBootExecute(kName)),
    MAKES(RemoveBootExecute(kName)),
    MAKES(ImpersonateCurrentUser()),
    MAKES(ServeObjectRequests(L"ScanItem", 1)), OPENS(CloseScanItem, CreateFileW(kOther, file, 0)),
    OPENS(CloseScanItem, CreateFilePath(kOther, file, 0, 1)),
    OPENS(CloseScanItem, CreateScanItem(kOther, item)),
    OPENS(CloseScanItem, OpenScanItem(kName, file)),
    OPENS(CloseScanItem, CreateRegistryKey(kOther, HKEY_CURRENT_USER, kKey, 0)),
    OPENS(CloseScanItem, CreateRegistryValue(kOther, HKEY_CURRENT_USER, kKey, L"v", 0)),
    OPENS(CloseScanItem, CreateRegistryPath(kOther, HKEY_CURRENT_USER, kKey, 0)),
    USES(GetScanItemByHandle(o.item, item)),
    USES(ScanItemExists(o.item, &flag)),
    CLOSES(CloseScanItem(o.item)), OPENS(CloseFileScanEngine, CreateFileScanEngine(kOther)),
    OPENS(CloseFileScanEngine, OpenFileScanEngine(kName)),
    USES(FSEngineAddPath(o.engine, kOther, 0)),
    USES(FSEngineRegisterHandler(o.engine, collector, 5, 6, 7)),
    USES(FSEngineRegisterHandlers(o.engine, provider, 5, 6)),
    USES(FSEngineScan(o.engine, nullptr, noValidator, {})),
    USES(FSEngineClearHandlers(o.engine)),
    USES(FSEngineClear(o.engine)),
    CLOSES(CloseFileScanEngine(o.engine)),
    OPENS(CloseRegistryScanEngine, CreateRegistryScanEngine(kOther)),
    OPENS(CloseRegistryScanEngine, OpenRegistryScanEngine(kName)),
    USES(RSEngineAddPath(o.keys, HKEY_CURRENT_USER, kOther)),
    USES(RSEngineAddPath(o.keys, HKEY_CURRENT_USER, kOther, kRegistryView64)),
    USES(RSEngineRegisterHandler(o.keys, collector, 5, 6, 7)),
    USES(RSEngineRegisterHandlers(o.keys, provider, 5, 6)),
    USES(RSEngineScan(o.keys, nullptr, noValidator, {})),
    USES(RSEngineClearHandlers(o.keys)),
    USES(RSEngineClear(o.keys)),
    CLOSES(CloseRegistryScanEngine(o.keys)), OPENS(THPCloseThreadpool, THPCreateThreadPool(kOther)),
    OPENS(THPCloseThreadpool, THPOpenThreadPool(kName)),
    USES(THPCreateCategory(o.pool, kOther, {})),
    USES(THPCreateCategory(o.pool, 8, {})),
    USES(THPQueueWork(o.pool, kName, kOther, &work, hash, kAtEnd, nullptr)),
    USES(THPQueueWork(o.pool, kName, kOther, workObject, hash, kAtEnd, nullptr)),
    USES(THPQueueWork(o.pool, 7, 8, &work, hash, kAtEnd, nullptr)),
    USES(THPQueueWork(o.pool, 7, 8, workObject, hash, kAtEnd, nullptr)),
    USES(THPSuspendWork(o.pool, kName)),
    USES(THPSuspendWork(o.pool, 7)),
    USES_GIVING(ERROR_NOT_FOUND, THPSuspendWork(o.pool, kName, kName)),
    USES_GIVING(ERROR_NOT_FOUND, THPSuspendWork(o.pool, 7, 7)),
    USES(THPResumeWork(o.pool, kName)),
    USES(THPResumeWork(o.pool, 7)),
    USES_GIVING(ERROR_NOT_FOUND, THPResumeWork(o.pool, kName, kName)),
    USES_GIVING(ERROR_NOT_FOUND, THPResumeWork(o.pool, 7, 7)),
    USES(THPCancelWork(o.pool)),
    USES(THPCancelWork(o.pool, kName, Operation::CancelAndReturn)),
    USES(THPCancelWork(o.pool, 7, Operation::CancelAndReturn)),
    USES(THPCancelWork(o.pool, kName, kName, Operation::CancelAndReturn)),
    USES(THPCancelWork(o.pool, 7, 7, Operation::CancelAndReturn)),
    USES(THPCancelWork(o.pool, kName, kName, o.named, Operation::CancelAndReturn)),
    USES(THPCancelWork(o.pool, 7, 7, o.numbered, Operation::CancelAndReturn)),
    USES_GIVING(WAIT_TIMEOUT, THPWait(o.pool, kName, 0UL, nullptr)),
    USES_GIVING(WAIT_TIMEOUT, THPWait(o.pool, 7UL, 0UL, nullptr)),
    USES_GIVING(WAIT_TIMEOUT, THPWait(o.pool, kName, kName, 0UL, nullptr)),
    USES_GIVING(WAIT_TIMEOUT, THPWait(o.pool, 7UL, 7UL, 0UL, nullptr)),
    USES_GIVING(WAIT_TIMEOUT, THPWait(o.pool, o.named, kName, kName, 0UL, nullptr)),
    USES_GIVING(WAIT_TIMEOUT, THPWait(o.pool, o.numbered, 7UL, 7UL, 0UL, nullptr)),
    USES_GIVING(ERROR_BUSY, THPGetWorkResult(o.pool, kName, kName, workCode)),
    USES_GIVING(ERROR_BUSY, THPGetWorkResult(o.pool, 7, 7, workCode)),
    USES_GIVING(ERROR_BUSY, THPGetWorkResult(o.pool, kName, kName, o.named, workCode)),
    USES_GIVING(ERROR_BUSY, THPGetWorkResult(o.pool, 7, 7, o.numbered, workCode)),
    USES(THPIsRunning(o.pool, kName, flag)),
    USES(THPIsRunning(o.pool, 7, flag)),
    USES(THPIsRunning(o.pool, kName, kName, flag)),
    USES(THPIsRunning(o.pool, 7, 7, flag)),
    USES(THPIsRunning(o.pool, kName, kName, o.named, flag)),
    USES(THPIsRunning(o.pool, 7, 7, o.numbered, flag)),
    CLOSES(THPCloseThreadpool(o.pool)), MAKES(CreateMessageTopic(kOther)),
    MAKES(CreateMessageTopic(kNumber)),
    MAKES(OpenMessageTopic(kName)),
    MAKES(OpenMessageTopic(7)),
    USES(TopicGetNameByHandle(o.topic, &text)),
    USES(TopicSubscribe(o.topic, stranger)),
    USES(TopicSubscribe(o.topic, filter)),
    USES(TopicUnsubscribe(o.topic, taker, INFINITE)),
    USES_GIVING(ERROR_NOT_FOUND, TopicUnsubscribe(o.topic, filter, INFINITE)),
    USES(TopicSendMessage(o.topic, plain, plain, nullptr)),
    USES(TopicSendMessage(o.topic, plain, plain, 1, nullptr)),
    USES(TopicSendMessage(o.topic, data, data, nullptr)),
    USES(TopicSendMessage(o.topic, data, data, 1, nullptr)),
    USES(TopicSendMessage(o.topic, array, array, nullptr)),
    USES(TopicSendMessage(o.topic, array, array, 1, nullptr)),
    USES(TopicSendMessage(o.topic, hash, hash, nullptr)),
    USES(TopicSendMessage(o.topic, hash, hash, 1, nullptr)),
    USES(TopicPostMessage(o.topic, plain)),
    USES(TopicPostMessage(o.topic, plain, 1)),
    USES(TopicPostMessage(o.topic, data)),
    USES(TopicPostMessage(o.topic, data, 1)),
    USES(TopicPostMessage(o.topic, array)),
    USES(TopicPostMessage(o.topic, array, 1)),
    USES(TopicPostMessage(o.topic, hash)),
    USES(TopicPostMessage(o.topic, hash, 1)),
    USES(TopicConsumeAll(o.topic, INFINITE)),
    USES(TopicStopConsumer(o.topic)),
    CLOSES(CloseMessageTopic(o.topic.release())), OPENS(CloseLogger, CreateLogger(kOther)),
    OPENS(CloseLogger, OpenLogger(kName)),
    USES(WriteLogEntry(o.logger, kName, kName)),
    CLOSES(CloseLogger(o.logger)),
};

/// What is wrong whatever the handle.
const Row kNulls[] = {
    MAKES(DllGetFile(nullptr, 1)),
    MAKES(DllGetDirectory(nullptr, 0)),
    MAKES(DllGetRegistryKey(nullptr, kKey)),
    MAKES(DllGetRegistryKey(HKEY_CURRENT_USER, nullptr)),
    MAKES(DllGetRegistryValue(nullptr, kKey, kName)),
    MAKES(DllGetRegistryValue(HKEY_CURRENT_USER, nullptr, kName)),
    MAKES(DllGetRegistryValue(HKEY_CURRENT_USER, kKey, nullptr)),
    MAKES(DllGetRegistryValue(HKEY_CURRENT_USER, kKey, nullptr, kName)),
    MAKES(DllGetRegistryValue(HKEY_CURRENT_USER, kKey, kName, nullptr)),
    MAKES(AddBootExecute(nullptr)),
    MAKES(AddBootExecute(L"")),
    MAKES(RemoveBootExecute(nullptr)),
    MAKES(RemoveBootExecute(L"")),
    MAKES(ServeObjectRequests(nullptr, 1)),
    MAKES(GetTokenW(nullptr, L",", 0, token, 4, nullptr)),
    MAKES(GetTokenW(L"a", nullptr, 0, token, 4, nullptr)),
    OPENS(CloseScanItem, CreateFileW(nullptr, kName, 0)),
    OPENS(CloseScanItem, CreateFileW(kName, nullptr, 0)),
    OPENS(CloseScanItem, CreateFilePath(nullptr, kName, 0, 0)),
    OPENS(CloseScanItem, CreateFilePath(kName, nullptr, 1, 0)),
    OPENS(CloseScanItem, CreateScanItem(nullptr, item)),
    OPENS(CloseScanItem, OpenScanItem(nullptr, kName)),
    OPENS(CloseScanItem, OpenScanItem(kName, nullptr)),
    OPENS(CloseScanItem, CreateRegistryKey(nullptr, HKEY_CURRENT_USER, kKey, 0)),
    OPENS(CloseScanItem, CreateRegistryKey(kName, nullptr, kKey, 0)),
    OPENS(CloseScanItem, CreateRegistryKey(kName, HKEY_CURRENT_USER, nullptr, 0)),
    OPENS(CloseScanItem, CreateRegistryKey(kName, HKEY_CURRENT_USER, kKey, kRegistryView32 | kRegistryView64)),
    OPENS(CloseScanItem, CreateRegistryValue(kName, HKEY_CURRENT_USER, kKey, nullptr, 0)),
    OPENS(CloseScanItem, CreateRegistryPath(kName, nullptr, kKey, 0)),
    OPENS(CloseScanItem, CreateRegistryPath(nullptr, HKEY_CURRENT_USER, kKey, 0)),
    OPENS(CloseFileScanEngine, CreateFileScanEngine(nullptr)),
    OPENS(CloseFileScanEngine, OpenFileScanEngine(nullptr)),
    OPENS(CloseRegistryScanEngine, CreateRegistryScanEngine(nullptr)),
    OPENS(CloseRegistryScanEngine, OpenRegistryScanEngine(nullptr)),
    OPENS(THPCloseThreadpool, THPCreateThreadPool(nullptr)),
    OPENS(THPCloseThreadpool, THPOpenThreadPool(nullptr)),
    OPENS(CloseLogger, CreateLogger(nullptr)),
    OPENS(CloseLogger, OpenLogger(nullptr)),
    MAKES(CreateMessageTopic(nullptr)),
    MAKES(OpenMessageTopic(nullptr)),
    MAKES(ScanItemExists(o.item, nullptr)),
    MAKES(FSEngineAddPath(o.engine, nullptr, 0)),
    MAKES(FSEngineAddPath(o.engine, L"", 0)),
    MAKES(RSEngineAddPath(o.keys, nullptr, kKey)),
    MAKES(RSEngineAddPath(o.keys, HKEY_CURRENT_USER, nullptr)),
    MAKES(THPCreateCategory(o.pool, nullptr, {})),
    MAKES(THPQueueWork(o.pool, nullptr, kName, &work, hash, kAtEnd, nullptr)),
    MAKES(THPQueueWork(o.pool, kName, nullptr, workObject, hash, kAtEnd, nullptr)),
    MAKES(THPQueueWork(o.pool, 7, 7, THPWorkFunction(), hash, kAtEnd, nullptr)),
    MAKES(THPQueueWork(o.pool, 7, 7, &work, hash, static_cast<ITHPWorkItem::ScheduleOption>(99), nullptr)),
    MAKES(THPSuspendWork(o.pool, static_cast<const wchar_t*>(nullptr))),
    MAKES(THPSuspendWork(o.pool, kName, nullptr)),
    MAKES(THPResumeWork(o.pool, static_cast<const wchar_t*>(nullptr))),
    MAKES(THPCancelWork(o.pool, nullptr, Operation::CancelAndReturn)),
    MAKES(THPCancelWork(o.pool, 7, static_cast<Operation>(99))),
    MAKES(THPCancelWork(o.pool, kName, kName, nullptr, Operation::CancelAndReturn)),
    MAKES(THPCancelWork(o.pool, 7, 7, nullptr, Operation::CancelAndReturn)),
    MAKES(THPWait(o.pool, static_cast<const wchar_t*>(nullptr), 0UL, nullptr)),
    MAKES(THPWait(o.pool, nullptr, kName, kName, 0UL, nullptr)),
    MAKES(THPWait(o.pool, nullptr, 7UL, 7UL, 0UL, nullptr)),
    MAKES(THPIsRunning(o.pool, static_cast<const wchar_t*>(nullptr), flag)),
    MAKES(THPIsRunning(o.pool, kName, kName, nullptr, flag)),
    MAKES(THPIsRunning(o.pool, 7, 7, nullptr, flag)),
    MAKES(TopicGetNameByHandle(o.topic, nullptr)),
    MAKES(WriteLogEntry(o.logger, nullptr, kName)),
    MAKES(WriteLogEntry(o.logger, kName, nullptr)),
};

// clang-format on

/// What the table's calls find and leave on the machine.
class Exports : public testing::Test
{
protected:
    Exports()
    {
        folder = scratchFolder();
        path = folder + L"\\a file with a long name";
        file = path.c_str();
        writeBytes(path, {1, 2, 3});
        HKEY inner = nullptr;
        RegCreateKeyW(HKEY_CURRENT_USER, (std::wstring(kKey) + L"\\inner").c_str(), &inner);
        RegSetValueExW(inner, kName, 0, REG_BINARY, reinterpret_cast<const BYTE*>(kName), sizeof kName);
        RegCloseKey(inner);
        RegOpenKeyExW(HKEY_LOCAL_MACHINE, L"System\\CurrentControlSet\\Control\\Session Manager", 0,
                      KEY_ALL_ACCESS, &boot);
        RegSetValueExW(boot, L"BootExecute", 0, REG_MULTI_SZ, reinterpret_cast<const BYTE*>(L"a\0"), 6);
        collector.collects = false;
        provider.registerHandler(collector, kLeafFound, 0, 0);
        provider.registerHandler(collector, kContainerFound, 0, 0);
        hash.setParameter(kName, kName);
        data.setData(kName, sizeof kName);
        array.clearElements();
        array.addElement(makeShared<SerializableW, MessageW>(kName, 1U));
        void* const handle = CreateFileW(kName, file, 0);
        GetScanItemByHandle(handle, item);
        CloseScanItem(handle);
    }
    ~Exports() override
    {
        item = SharedPtr<ScanItem>();
        provider.clearNotifyHandlers();
        RegDeleteValueW(boot, L"BootExecute");
        RegCloseKey(boot);
        RegDeleteTreeW(HKEY_CURRENT_USER, kKey);
        DeleteFileW(file);
        RemoveDirectoryW(folder.c_str());
    }

    /// Runs a row; with `failing` its taking of that number finds no memory.
    static long run(const Row& row, long failing = 0)
    {
        Objects objects(std::strstr(row.name, "o.logger") != nullptr ||
                        std::strstr(row.name, "OpenLogger") != nullptr);
        SetLastError(4711);
        if (failing != 0)
            HeapWatch::arm(failing);
        const long code = row.run(objects);
        HeapWatch::disarm();
        ServeObjectRequests(L"ScanItem", 0);
        RemoveBootExecute(kName);
        RevertToSelf();
        return code;
    }

    std::wstring path;
    HKEY boot = nullptr;
};
} // namespace

// Handles that are null, invalid, never given out, given back, or another family's; and null arguments.
TEST_F(Exports, RefuseWhatIsWrongAndKeepNothing)
{
    const auto refuseAll = [](Handles&& handles, const char* kind, long poolCode = ERROR_INVALID_HANDLE) {
        for (const Row& row : kRows) {
            SetLastError(4711);
            if (row.kind == Kind::TakesHandle) {
                const bool isPool = std::strncmp(row.name, "THP", 3) == 0;
                EXPECT_EQ(row.run(handles), isPool ? poolCode : ERROR_INVALID_HANDLE)
                    << kind << ": " << row.name;
            } else if (row.kind == Kind::Closes) {
                EXPECT_EQ(row.run(handles), ERROR_INVALID_HANDLE) << kind << ": " << row.name;
                EXPECT_EQ(GetLastError(), 4711U) << row.name;
            }
        }
    };
    ProcessCounts before;
    for (int turn = 0; turn < 2; ++turn) {
        before = ProcessCounts::now();
        Handles closed;
        {
            const Objects objects(true);
            for (void* Handles::*one : {&Handles::item, &Handles::engine, &Handles::keys, &Handles::pool,
                                        &Handles::logger, &Handles::named, &Handles::numbered})
                closed.*one = objects.*one;
            closed.topic.reset(objects.topic.get());
        }
        refuseAll(Handles(nullptr), "null");
        refuseAll(Handles(kInvalid), "invalid");
        refuseAll(Handles(reinterpret_cast<void*>(0x100000)), "never given out");
        refuseAll(std::move(closed), "closed", ERROR_INVALID_ADDRESS);

        // A number that only the items have open, and for the items one of an engine.
        std::vector<void*> items;
        do
            items.push_back(CreateFileW(std::to_wstring(items.size()).c_str(), L"x", 0));
        while (items.back() < reinterpret_cast<void*>(1000));
        Handles others(items.back());
        others.item = nullptr;
        refuseAll(std::move(others), "an item's");
        for (void* open : items)
            CloseScanItem(open);
        void* const engine = CreateFileScanEngine(kName);
        Handles engines;
        engines.item = engine;
        refuseAll(std::move(engines), "an engine's");
        CloseFileScanEngine(engine);

        Objects objects(true);
        for (const Row& row : kNulls) {
            SetLastError(4711);
            EXPECT_EQ(row.run(objects), ERROR_INVALID_PARAMETER) << row.name;
        }
        EXPECT_EQ(codeOfResult(OpenFileScanEngine(kOther), CloseFileScanEngine), ERROR_NOT_FOUND);
        EXPECT_EQ(codeOfResult(OpenRegistryScanEngine(kOther), CloseRegistryScanEngine), ERROR_NOT_FOUND);
        EXPECT_EQ(codeOfResult(OpenScanItem(kOther, kOther), CloseScanItem), ERROR_NOT_FOUND);
        EXPECT_EQ(codeOfResult(THPOpenThreadPool(kOther), THPCloseThreadpool), ERROR_NOT_FOUND);
        EXPECT_EQ(codeOfResult(OpenLogger(kOther), CloseLogger), ERROR_NOT_FOUND);
        EXPECT_EQ(codeOfResult(OpenMessageTopic(kNumber), nullptr), ERROR_NOT_FOUND);
        EXPECT_EQ(ServeObjectRequests(kOther, 1), ERROR_NOT_FOUND);
    }
    EXPECT_TRUE(before.isReachedAgain(100))
        << before.describe() << ", then " << ProcessCounts::now().describe();
}

// Each taking of memory of each function in turn finds none: code 8, and nothing is kept. To give a handle
// back takes none.
TEST_F(Exports, GiveBackWhatTheyTakeAndSayWhenThereIsNoMemory)
{
    for (const Row& row : kRows)
        EXPECT_EQ(run(row), row.code) << row.name;
    for (const Row& row : kRows) {
        // What a row keeps each time is a leak; what is made once and kept, here or by the system, is not.
        bool balanced = false;
        std::string counts;
        for (int attempt = 0; attempt < 2 && !balanced; ++attempt) {
            const ProcessCounts before = ProcessCounts::now();
            for (long failing = 1;; ++failing) {
                const long code = run(row, failing);
                if (!HeapWatch::hasFailed())
                    break;
                EXPECT_EQ(code, row.kind == Kind::Closes ? ERROR_SUCCESS : ERROR_NOT_ENOUGH_MEMORY)
                    << row.name << ", taking " << failing;
            }
            balanced = before.isReachedAgain(100);
            counts = before.describe() + ", then " + ProcessCounts::now().describe() + ", ";
        }
        EXPECT_TRUE(balanced) << row.name << ": " << counts << HeapWatch::describe();
    }
}
