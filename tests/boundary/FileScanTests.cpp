#include "support/KernelCalls.h"
#include "support/Scan.h"

const std::wstring kTree = testFolder() + L"\\tree";
const std::wstring kDots = kTree + L"\\dots"; // three files
constexpr const wchar_t* kIgnores = L"many:010,denied:010";

// Loops, a folder without access, long names and paths, 50,000 files in one folder: everything that can be
// reached is reported once, and the folder that refuses is not skipped silently.
TEST(FileScan, ReportsWhatCanBeReachedExactlyOnce)
{
    Collector collector;
    const TestEngine engine(collector);
    EXPECT_EQ(engine.scan(kTree), ERROR_ACCESS_DENIED);
    std::size_t expected = 0;
    std::ifstream list((testFolder() + L"\\expected").c_str());
    for (std::string line; std::getline(list, line); ++expected) {
        const std::u8string name(line.begin(), line.end() - (line.back() == '/' ? 1 : 0));
        const auto path = kTree + L"\\" + std::filesystem::path(name).make_preferred().wstring();
        ASSERT_EQ(collector.paths[path], 1) << line;
    }
    ASSERT_GT(expected, 50000U);
    EXPECT_EQ(collector.paths.size(), expected);
    collector.calls = 0;
    EXPECT_EQ(engine.scan(kTree + L"\\link-to-many"), ERROR_SUCCESS) << "a root may be a link";
    EXPECT_EQ(collector.calls, 50000);
}

TEST(FileScan, DepthAndResultLists)
{
    Collector collector;
    const TestEngine engine(collector);
    const std::wstring root = kTree + L"\\ünïcödé\\..";
    FSEngineAddPath(engine.handle, root.c_str(), 0);
    ScanOptions options{.depth = 9, .reportFiles = 1, .reportFolders = 1}; // without depthGiven it is 1
    ASSERT_EQ(FSEngineScan(engine.handle, nullptr, everything(), options), ERROR_SUCCESS);

    const SharedPtr<ScanItem> item = itemOf(OpenScanItem(L"test engine", root.c_str()));
    auto& path = dynamic_cast<IScanPath&>(*item);
    std::map<std::wstring, int> results;
    SharedPtr<ScanItem> result;
    for (const unsigned long key : {kContainerFound, kLeafFound})
        for (std::size_t i = 0; path.getResult(key, i, result) == ERROR_SUCCESS; ++i)
            ++results[result->getPath()];
    EXPECT_EQ(results, collector.paths);
    for (const auto& [found, count] : results)
        EXPECT_EQ(found.find(L'\\', root.size() + 1), std::wstring::npos);
    EXPECT_EQ(path.getResult(2, 0, result), ERROR_INVALID_PARAMETER);

    // Another scan leaves nothing of the last one, and depth 0 lists nothing at all.
    options.depthGiven = 1;
    options.depth = 0;
    ASSERT_EQ(FSEngineScan(engine.handle, nullptr, everything(), options), ERROR_SUCCESS);
    EXPECT_TRUE(path.getResult(kLeafFound, 0, result) == ERROR_NO_MORE_ITEMS && results == collector.paths);
}

TEST(FileScan, CancelStopsBeforeTheNextHandlerCall)
{
    const TestEvent event;
    Collector first, second;
    const TestEngine engine(first);
    FSEngineRegisterHandler(engine.handle, second, kLeafFound, 0, 0);
    first.action = [&](auto&...) {
        if (first.calls == 1000)
            event.set();
    };
    EXPECT_TRUE(engine.scan(kTree + L"\\many", 1, event.get()) == ERROR_CANCELLED && first.calls == 1000);
    EXPECT_EQ(second.calls, 999) << "nor is another handler of the same item called";
    const AskedHandle listings;
    EXPECT_TRUE(engine.rescan(1, event.get()) == ERROR_CANCELLED && listings.calls() == 0);
}

TEST(FileScan, TakesFewKernelCallsPerFileAndManyThreadsAtATime)
{
    Collector collector;
    collector.collects = false;
    const TestEngine engine(collector);
    const TestEvent event;
    ASSERT_EQ(engine.scan(kTree + L"\\many", 1), ERROR_SUCCESS); // mutexes are made, tables have room
    onThreadsAtOnce(3, [&](int) { EXPECT_EQ(engine.rescan(1), ERROR_SUCCESS); });
    EXPECT_EQ(collector.calls, 200000);
    KernelCalls calls(sysmaintModule());
    ASSERT_EQ(engine.rescan(1), ERROR_SUCCESS);
    EXPECT_LE(calls.total(), 8) << "50,000 files with a null event cost what none cost";
    calls.reset();
    ASSERT_EQ(engine.rescan(1, event.get()), ERROR_SUCCESS);
    EXPECT_GE(calls.total(), 2 * 50000);
    EXPECT_LE(calls.total(), 2 * 50000 + 8) << "one poll per entry, one per handler call";
}

TEST(FileScan, NotificationsCarryTheRegistration)
{
    Collector collector;
    collector.action = [](const Notification& notification, const SharedPtr<ScanItem>& item) {
        EXPECT_EQ(std::tuple(notification.getFirst(), notification.getSecond(),
                             notification.getRegistrationValue()),
                  std::tuple(item->getType() == kDirectoryItem ? 1 : 0, 77, 0x123456789ABC));
    };
    NotifyProvider provider;
    provider.registerHandler(collector, 1, 5, 0x123456789ABC);
    provider.registerHandler(collector, 0, 6, 0x123456789ABC);
    void* engine = CreateFileScanEngine(L"notifications");
    const auto scan = [&] { return FSEngineScan(engine, nullptr, everything(), {}); };
    ASSERT_EQ(FSEngineAddPath(engine, kDots.c_str(), 0), 0);
    ASSERT_EQ(FSEngineAddPath(engine, kTree.c_str(), 0), 0);

    // Nothing registered for a key: the scan says so rather than losing the items.
    EXPECT_EQ(scan(), ERROR_NOT_FOUND);
    ASSERT_EQ(FSEngineRegisterHandlers(engine, provider, INotifyProvider::kKeepNumber, 77), 0);
    EXPECT_TRUE(scan() == ERROR_SUCCESS && collector.codes.empty());
    ASSERT_EQ(FSEngineClearHandlers(engine), 0);
    EXPECT_EQ(scan(), ERROR_NOT_FOUND);
    ASSERT_EQ(FSEngineRegisterHandlers(engine, provider, 0, 77), 0); // both under the key of files
    EXPECT_EQ(scan(), ERROR_NOT_FOUND) << "no handler for folders";
    CloseFileScanEngine(engine);
}

// A root path keeps its own handlers beside those that it receives, each called once per scan; and a
// validator is required.
TEST(FileScan, RootsReceiveTheEnginesHandlers)
{
    Collector engines, own;
    const TestEngine engine(engines, L"receiving");
    ASSERT_EQ(FSEngineAddPath(engine.handle, kDots.c_str(), 0), 0);
    const SharedPtr<ScanItem> item = itemOf(OpenScanItem(L"receiving", kDots.c_str()));
    auto& path = dynamic_cast<IScanPath&>(*item);
    path.getNotifyProvider().registerHandler(own, kLeafFound, 0, 0);
    for (long scan = 1; scan <= 3; ++scan) {
        EXPECT_EQ(engine.rescan(), ERROR_SUCCESS);
        EXPECT_TRUE(engines.calls == 3 * scan && own.calls == 3 * scan);
    }
    const SharedPtr<IScanValidator> none(DllGetScanValidator(L"C:\\keep\\*.tmp:001", L""));
    EXPECT_FALSE(none) << "a drive path is no entry";
    EXPECT_EQ(FSEngineScan(engine.handle, nullptr, none, {}), ERROR_INVALID_ADDRESS);
    EXPECT_EQ(codeOf([&] { path.scan(nullptr, none, {}); }), ERROR_INVALID_ADDRESS);
    EXPECT_EQ(engines.calls + own.calls, 18) << "nothing was listed";
}

// What a handler raises ends the scan with its code, and it may change the engine in any way meanwhile.
TEST(FileScan, HandlersMayRaiseAndChangeTheEngine)
{
    Collector collector;
    const TestEngine engine(collector, L"changing");
    const auto add = [&] { FSEngineAddPath(engine.handle, kDots.c_str(), 0); };
    const DWORD handles = processHandleCount();
    const std::tuple<std::function<void()>, long, long> rows[] = {
        {[] { throw Exception(PLACE("tests", "raise", 1), ERROR_DISK_FULL); }, ERROR_DISK_FULL, 1},
        {[] { throw 4711L; }, 4711, 1},
        {[] { throw 0L; }, 574, 1},
        {[] { throw Exception(PLACE("tests", "raise", 1), 0UL); }, 574, 1},
        {[] { throw std::bad_alloc(); }, ERROR_NOT_ENOUGH_MEMORY, 1},
        {[] { throw std::runtime_error("any"); }, 574, 1},
        {[&] { FSEngineClear(engine.handle); }, ERROR_INVALID_HANDLE, 3}, // the second root is dropped
        {[&] { FSEngineClearHandlers(engine.handle); }, ERROR_NOT_FOUND, 1},
        {[&] { add(), CloseFileScanEngine(CreateFileScanEngine(L"changing")); }, 0, 6}}; // for the next scan
    for (const auto& [change, code, calls] : rows) {
        FSEngineClear(engine.handle);
        add();
        add();
        FSEngineClearHandlers(engine.handle);
        FSEngineRegisterHandler(engine.handle, collector, kLeafFound, 0, 0);
        collector.calls = 0;
        collector.action = [&collector, change = change](auto&...) {
            if (collector.calls == 1)
                change();
        };
        EXPECT_TRUE(engine.rescan() == code && collector.calls == calls);
    }
    EXPECT_EQ(processHandleCount(), handles);
}

// In both ways: the rest of the walk is not lost when one folder cannot be listed.
TEST(FileScan, ListsThroughHandlesOrByName)
{
    Collector collector;
    const TestEngine engine(collector);
    AskedHandle asked;
    Replaced<"FindFirstFileExW", decltype(&FindFirstFileExW)> first;
    const Replaced<"FindClose", decltype(&FindClose)> end;
    const auto walk = [&] {
        collector.calls = 0;
        return engine.scan(kTree, 65535, nullptr, L"", kIgnores);
    };
    ASSERT_EQ(walk(), ERROR_SUCCESS);
    const long all = collector.calls, answers = asked.calls();
    ASSERT_GT(answers, 24);
    EXPECT_EQ(first.calls(), 0);
    const auto failEach = [&](auto& import, long count, auto result, long code) {
        import.failCall(1, result, ERROR_FILE_NOT_FOUND);
        EXPECT_EQ(walk(), ERROR_SUCCESS) << "so the root of an empty volume answers";
        for (long n = 2; n <= count; ++n) {
            import.failCall(n, result, static_cast<DWORD>(code));
            EXPECT_EQ(walk(), code);
            EXPECT_GE(collector.calls, all - 11) << "the failing folder's own tree is missing";
        }
        import.failCall(0, result, 0);
    };
    failEach(asked, answers, FALSE, ERROR_READ_FAULT);

    // A file system that cannot be listed through a handle is searched by name.
    for (const DWORD code :
         {ERROR_NOT_SUPPORTED, ERROR_INVALID_PARAMETER, ERROR_INVALID_LEVEL, ERROR_INVALID_FUNCTION}) {
        asked.failCall(kEachCall, FALSE, code);
        EXPECT_TRUE(walk() == ERROR_SUCCESS && collector.calls == all);
    }
    EXPECT_EQ(end.calls(), first.calls());
    failEach(first, first.calls() / 4, INVALID_HANDLE_VALUE, ERROR_NOT_READY);
    // The better search is not known, but the plain one is.
    first.failCall(kEachCall, INVALID_HANDLE_VALUE, ERROR_INVALID_PARAMETER);
    EXPECT_TRUE(walk() == ERROR_SUCCESS && collector.calls == all);
}

// A file system's answers are interpreted correctly or refused: reparse points that are not links are walked,
// names that would be paths are skipped and reported, and impossible answers are refused.
TEST(FileScan, OddEntries)
{
    using Entry = FILE_ID_BOTH_DIR_INFO;
    const auto tagged = [](DWORD tag) {
        return [tag](Entry& entry) {
            entry.FileAttributes |= FILE_ATTRIBUTE_REPARSE_POINT;
            entry.EaSize = tag;
        };
    };
    const auto named = [](wchar_t c) { return [c](Entry& entry) { entry.FileName[2] = c; }; };
    const std::wstring name = L"ünïcödé";
    const std::wstring folder = kTree + L"\\" + name;
    // The change of the folder's entry, the code, and whether the folder is reported and walked.
    const std::tuple<std::vector<std::function<void(Entry&)>>, long, bool, bool> rows[] = {
        {{tagged(IO_REPARSE_TAG_MOUNT_POINT), tagged(IO_REPARSE_TAG_SYMLINK), tagged(0)}, 0, true, false},
        {{tagged(0x9000001A), tagged(0x80000013)}, 0, true, true},
        {{[](Entry& entry) { entry.EaSize = IO_REPARSE_TAG_SYMLINK; }}, 0, true, true},
        {{named(L'\\'), named(L'/'), named(L'\0')}, ERROR_INVALID_NAME, false, false},
        {{[](Entry& entry) { entry.FileNameLength = 0xFFFFFFF0; }}, ERROR_INVALID_DATA, false, false},
        {{[](Entry& entry) { entry.NextEntryOffset = 0xFFFFFFF8; }}, ERROR_INVALID_DATA, false, false},
        {{[](Entry& entry) { entry.NextEntryOffset += 2; }}, ERROR_INVALID_DATA, false, false}};
    AskedHandle asked;
    for (const auto& row : rows)
        for (const auto& change : std::get<0>(row)) {
            Collector collector;
            asked.setHook(changingEntries([&](Entry& entry) {
                if (std::wstring_view(entry.FileName, entry.FileNameLength / sizeof(wchar_t)) == name)
                    change(entry);
            }));
            const auto& [changes, code, isReported, isWalked] = row;
            SCOPED_TRACE(testing::Message() << &row - rows << ", change " << &change - changes.data());
            EXPECT_EQ(TestEngine(collector).scan(kTree, 65535, nullptr, L"", kIgnores), code);
            EXPECT_EQ(collector.paths.count(folder), isReported);
            EXPECT_EQ(collector.paths.count(folder + L"\\日本語.txt"), isWalked);
        }
}
