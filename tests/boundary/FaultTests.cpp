// Every system call of an operation fails in turn: its code is returned, nothing is kept, and the operation
// can be repeated.

#include "boundary/RegistryTest.h"
#include "core/win32/utils/logger/api.h"
#include "support/Pools.h"
#include "support/Wipe.h"

namespace {
struct Row
{
    const char* name;
    std::function<long()> operation;
    std::function<void()> prepare = [] {};
    std::function<bool()> isIntact = [] { return true; }; ///< what must be unchanged after a failure
    std::function<bool()> isDone = [] { return false; };  ///< although the check afterwards failed
    long usual = kFailure;
    std::map<std::string, long> others{///< the codes when these fail
                                       {"WTSGetActiveConsoleSessionId", ERROR_NO_SUCH_LOGON_SESSION}};
};

/// A post that fails is not delivered, a stop that fails stops nothing, and the topic goes on.
long makeAndPost(bool stops)
{
    Handler handler([] {});
    const TopicHandle topic = topicOf(handler);
    long code = post(topic);
    const int delivered = code == ERROR_SUCCESS ? 1 : 0;
    const auto expectDelivered = [&](int calls) {
        EXPECT_TRUE(TopicConsumeAll(topic, INFINITE) == ERROR_SUCCESS && handler.calls == calls);
    };
    expectDelivered(delivered);
    if (stops && delivered == 1)
        code = TopicStopConsumer(topic);
    FailingCall::end();
    EXPECT_TRUE((!stops || TopicStopConsumer(topic) == ERROR_SUCCESS) && post(topic) == ERROR_SUCCESS);
    expectDelivered(delivered + 1);
    return code;
}

/// Work that is refused does not run, and queued again it runs once.
long makeAndQueue(std::uint32_t flags)
{
    std::atomic<int> runs{0};
    Work work([&] { ++runs; });
    const TestPool pool(THPCategoryOptions(1, flags, 0, 0));
    void* instance = &instance;
    const long code = pool.queue(1, work, Option::AtEnd, &instance);
    FailingCall::end();
    EXPECT_EQ(instance == &instance, code != ERROR_SUCCESS);
    EXPECT_EQ(THPCreateCategory(pool.handle, kCategory, kOneThread), ERROR_ALREADY_EXISTS);
    EXPECT_TRUE(code == ERROR_SUCCESS || pool.isRunning(1) == 0);
    EXPECT_TRUE(code == ERROR_SUCCESS || pool.queue(1, work) == ERROR_SUCCESS);
    EXPECT_EQ(THPResumeWork(pool.handle, kCategory), ERROR_SUCCESS);
    EXPECT_TRUE(pool.wait(1, INFINITE) == ERROR_SUCCESS && runs == 1);
    return code;
}

long createLogger()
{
    void* const logger = CreateLogger(L"faults");
    const DWORD code = refusalOf(logger);
    FailingCall::end();
    CloseLogger(logger);
    return static_cast<long>(code);
}

using Faults = Registry;

auto of(const std::function<void()>& operation)
{
    return [=] { return static_cast<long>(codeOf(operation)); };
}

void expectEachFaultToArrive(std::initializer_list<Row> rows)
{
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        row.prepare();
        ASSERT_EQ(row.operation(), ERROR_SUCCESS);
        failEachCall(row.prepare, row.operation, [&](const std::string& import, long result) {
            if (result == ERROR_SUCCESS && import == "GetFileAttributesW" && row.isDone())
                return;
            EXPECT_EQ(result, row.others.contains(import) ? row.others.at(import) : row.usual);
            EXPECT_TRUE(result == ERROR_SUCCESS || row.isIntact());
            EXPECT_EQ(row.operation(), ERROR_SUCCESS) << "once more";
        });
    }
}
} // namespace

TEST_F(Faults, OfFilesAndFoldersArriveAndLeaveNothing)
{
    const std::wstring path = scratchFolder() + L"\\file", inner = scratchFolder() + L"\\inner";
    const FilePtr file = fileAt(path);
    file->setData("abc", 3);
    FilePtr reader;
    const auto withFile = [&] {
        writeBytes(path, {'a', 'b', 'c'});
        reader = fileAt(path);
    };
    const auto hasFile = [&] { return stands(path); };
    const DirectoryPtr directory = folderAt(inner);
    const auto withFolder = [&] { CreateDirectoryW(inner.c_str(), nullptr); };
    unsigned long long size = 0;
    expectEachFaultToArrive(
        {{"create file", of([&] { file->create(); }), [&] { DeleteFileW(path.c_str()); }},
         {"read file", of([&] { reader->getData(size); }), withFile},
         {"size of file", of([&] { return reader->getSize(); }), withFile},
         {"is file there", of([&] { return file->exists(); }), withFile},
         {"delete file", of([&] { file->deleteItem(); }), withFile, hasFile, [&] { return !stands(path); }},
         {"create folder", of([&] { directory->create(); }), [&] { RemoveDirectoryW(inner.c_str()); }},
         {"delete folder", of([&] { directory->deleteItem(); }), withFolder, [] { return true; },
          [&] { return !stands(inner); }}});
}

TEST_F(Faults, OfKeysAndValuesArriveAndLeaveNothing)
{
    ValuePtr value;
    const KeyPtr key = keyOf(kRoot + L"\\key");
    const auto clear = [&] { RegDeleteTreeW(root, nullptr); };
    const auto withValue = [&] {
        clear();
        addValue(L"v", "data");
        addKey(L"key\\below");
        value.reset(DllGetRegistryValue(HKEY_CURRENT_USER, kRoot.c_str(), L"v", L"new"));
        static_cast<void>(value->exists()); // which opens the user's hive and keeps it
    };
    const auto hasKeys = [&] { return hasKey(root, L"key"); };
    const auto hasData = [&] { // and the item its own
        return dataOf(*valueOf(kRoot, L"v")) == "data" && dataOf(*value).size() == 8 &&
               value->getValueType() == 1;
    };
    const auto scanAsSomebodyElse = [&] {
        ImpersonateSelf(SecurityImpersonation);
        const long code = scan();
        EXPECT_TRUE(code != ERROR_SUCCESS || isImpersonating());
        RevertToSelf();
        return code;
    };
    expectEachFaultToArrive(
        {{"create key", of([&] { key->create(); }), clear},
         {"is key there", of([&] { return key->exists(); }), withValue},
         {"delete key", of([&] { key->deleteItem(); }), withValue, hasKeys},
         {"create value", of([&] { value->create(); }), withValue, hasData},
         {"set value", of([&] { value->setValue(REG_BINARY, "x", 1); }), withValue, hasData},
         {"read value", of([] { return dataOf(*valueOf(kRoot, L"v")); }), withValue},
         {"type of value", of([] { return valueOf(kRoot, L"v")->getValueType(); }), withValue},
         {"is value there", of([] { return valueOf(kRoot, L"v")->exists(); }), withValue},
         {"delete value", of([&] { value->deleteItem(); }), withValue, hasData},
         {"walk keys", [&] { return scan(); }, withValue},
         {"walk keys as somebody else", scanAsSomebodyElse, withValue}});
}

TEST_F(Faults, OfTheRestArriveAndLeaveNothing)
{
    const TestEngine engine(collector, L"faults");
    const auto walk = [&] { return engine.scan(testFolder() + L"\\tree\\dots"); };
    const auto walkByName = [&] {
        const AskedHandle refused([](auto&&...) { return SetLastError(ERROR_NOT_SUPPORTED), FALSE; });
        return walk();
    };
    std::map<std::string, long> loggers = {{"SetEvent", 0}};
    for (const char* import : {"GetModuleFileNameW", "GetProcAddress", "LoadLibraryExW"})
        loggers[import] = kFailure;
    const auto impersonate = [] {
        const long code = ImpersonateCurrentUser();
        return code == ERROR_SUCCESS && !RevertToSelf() ? 1 : code;
    };
    const wchar_t* const session = L"System\\CurrentControlSet\\Control\\Session Manager";
    const auto withList = [&] {
        RegSetKeyValueW(HKEY_LOCAL_MACHINE, session, L"BootExecute", REG_MULTI_SZ, L"x\0", 6);
    };
    const auto isScheduled = [] {
        return BootExecuteIsScheduled(L"x") == 1 ? ERROR_SUCCESS : static_cast<long>(GetLastError());
    };
    const auto hasList = [&] { return isScheduled() == 0 && BootExecuteIsScheduled(L"y") == 0; };
    expectEachFaultToArrive(
        {{"walk files", walk},
         {"walk files by name", walkByName},
         {"impersonate", impersonate},
         {"add to list", [] { return AddBootExecute(L"y"); }, withList, hasList},
         {"remove from list", [] { return RemoveBootExecute(L"x"); }, withList, hasList},
         {"is on list", isScheduled, withList, hasList},
         {.name = "create logger", .operation = createLogger, .usual = 1003, .others = loggers},
         {"post", [] { return makeAndPost(false); }},
         {"stop", [] { return makeAndPost(true); }},
         {"queue", [] { return makeAndQueue(THPCategoryOptions::kRunning); }},
         {"queue suspended", [] { return makeAndQueue(THPCategoryOptions::kSuspended); }}});
    RegDeleteKeyValueW(HKEY_LOCAL_MACHINE, session, L"BootExecute");
}
