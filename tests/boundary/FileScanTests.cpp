#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <stdexcept>
#include <thread>

#include "support/ImportReplacement.h"
#include "support/KernelCalls.h"
#include "support/Scan.h"

namespace {
std::wstring wide(const std::string& utf8)
{
    std::wstring text(utf8.size(), L'\0');
    text.resize(static_cast<std::size_t>(MultiByteToWideChar(
        CP_UTF8, 0, utf8.data(), static_cast<int>(utf8.size()), text.data(), static_cast<int>(text.size()))));
    return text;
}

/// What make_tree says a walk must report, as full paths.
std::map<std::wstring, int> expectedPaths(const std::wstring& prefix = L"")
{
    std::map<std::wstring, int> paths;
    std::ifstream list((testFolder() + L"\\expected").c_str());
    for (std::string line; std::getline(list, line);) {
        std::wstring path = wide(line);
        if (path.back() == L'/')
            path.pop_back();
        std::replace(path.begin(), path.end(), L'/', L'\\');
        if (path.compare(0, prefix.size(), prefix) == 0)
            paths[testFolder() + L"\\tree\\" + path] = 1;
    }
    return paths;
}

struct EventHandle
{
    HANDLE handle = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    ~EventHandle() { CloseHandle(handle); }
};

using FindFirst = CountedImport<"FindFirstFileExW", decltype(&FindFirstFileExW)>;
using FindNext = CountedImport<"FindNextFileW", decltype(&FindNextFileW)>;
using FindEnd = CountedImport<"FindClose", decltype(&FindClose)>;
} // namespace

// Loops, a folder without access, long names and paths, 50,000 files in one folder: everything that can be
// reached is there once, and the folder that refuses is not passed over in silence.
TEST(FileScan, ReportsWhatCanBeReachedExactlyOnce)
{
    Collector collector;
    const TestEngine engine(collector);
    EXPECT_EQ(engine.scan(testFolder() + L"\\tree"), ERROR_ACCESS_DENIED);
    const auto expected = expectedPaths();
    ASSERT_GT(expected.size(), 50000U);
    EXPECT_EQ(collector.paths.size(), expected.size());
    for (const auto& [path, count] : expected)
        ASSERT_EQ(collector.paths[path], count) << std::string(path.begin(), path.end());
}

TEST(FileScan, RefusedOrMissingRootFailsAtOnce)
{
    Collector collector;
    const TestEngine engine(collector);
    EXPECT_EQ(engine.scan(testFolder() + L"\\tree\\denied"), ERROR_ACCESS_DENIED);
    EXPECT_EQ(engine.scan(testFolder() + L"\\tree\\missing"), ERROR_PATH_NOT_FOUND);
    EXPECT_EQ(engine.scan(L""), ERROR_INVALID_PARAMETER) << "not the current folder";
    EXPECT_EQ(engine.scan(testFolder() + L"\\tree\\empty"), ERROR_SUCCESS);
    EXPECT_EQ(collector.calls, 0);
    EXPECT_EQ(engine.scan(testFolder() + L"\\tree\\link-to-many"), ERROR_SUCCESS); // a root may be a link
    EXPECT_EQ(collector.calls, 50000);
}

TEST(FileScan, DepthAndResultLists)
{
    Collector collector;
    const TestEngine engine(collector);
    const std::wstring root = testFolder() + L"\\tree\\ünïcödé\\..";
    FSEngineAddPath(engine.handle, root.c_str(), 0);
    ScanOptions options;
    options.depth = 9; // without depthGiven it does not count
    options.reportFiles = 1;
    options.reportFolders = 1;
    ASSERT_EQ(FSEngineScan(engine.handle, nullptr, everything(), options), ERROR_SUCCESS);
    for (const auto& entry : collector.paths)
        EXPECT_EQ(entry.first.find(L'\\', root.size() + 1), std::wstring::npos);

    void* handle = OpenScanItem(L"test engine", root.c_str());
    SharedPtr<ScanItem> item;
    ASSERT_EQ(GetScanItemByHandle(handle, item), ERROR_SUCCESS);
    auto* path = dynamic_cast<IScanPath*>(item.get());
    ASSERT_NE(path, nullptr);
    long results = 0;
    SharedPtr<ScanItem> result;
    for (const unsigned long key : {kContainerFound, kLeafFound})
        for (std::size_t i = 0; path->getResult(key, i, result) == ERROR_SUCCESS; ++i, ++results)
            EXPECT_EQ(collector.paths.count(result->getPath()), 1U);
    EXPECT_EQ(results, collector.calls);
    EXPECT_EQ(path->getResult(2, 0, result), ERROR_INVALID_PARAMETER);

    // Another scan leaves nothing of the last one, and depth 0 lists nothing at all.
    options.depthGiven = 1;
    options.depth = 0;
    ASSERT_EQ(FSEngineScan(engine.handle, nullptr, everything(), options), ERROR_SUCCESS);
    EXPECT_EQ(path->getResult(kLeafFound, 0, result), ERROR_NO_MORE_ITEMS);
    EXPECT_EQ(collector.calls, results);
    CloseScanItem(handle);
}

TEST(FileScan, RefusedFoldersAreNotWalked)
{
    Collector collector;
    const TestEngine engine(collector);
    EXPECT_EQ(
        engine.scan(testFolder() + L"\\tree", 65535, nullptr, L"*.tmp", L"many:010,denied:010,?dd*:010"),
        ERROR_SUCCESS);
    for (const auto& [path, count] : collector.paths) {
        EXPECT_EQ(path.find(L"\\many"), std::wstring::npos);
        EXPECT_EQ(path.find(L"report"), std::wstring::npos);
    }
    EXPECT_EQ(collector.paths.count(testFolder() + L"\\tree\\ünïcödé\\🗑.tmp"), 1U);
}

TEST(FileScan, CancelStopsBeforeTheNextHandlerCall)
{
    const EventHandle event;
    Collector first;
    Collector second;
    const TestEngine engine(first);
    FSEngineRegisterHandler(engine.handle, second, kLeafFound, 0, 0);

    // By a handler: the other handler of the same item is not called any more.
    first.action = [&](const Notification&, const SharedPtr<ScanItem>&) {
        if (first.calls == 1000)
            SetEvent(event.handle);
    };
    EXPECT_EQ(engine.scan(testFolder() + L"\\tree\\many", 1, event.handle), ERROR_CANCELLED);
    EXPECT_EQ(first.calls, 1000);
    EXPECT_EQ(second.calls, 999);

    // Signalled before: nothing is listed.
    {
        FindFirst finds(sysmaintModule());
        EXPECT_EQ(engine.rescan(1, event.handle), ERROR_CANCELLED);
        EXPECT_EQ(finds.calls(), 0);
    }

    // From another thread, while a handler runs.
    ResetEvent(event.handle);
    const EventHandle reached;
    first.calls = 0;
    first.action = [&](const Notification&, const SharedPtr<ScanItem>&) {
        if (first.calls == 500) {
            SetEvent(reached.handle);
            WaitForSingleObject(event.handle, 60000);
        }
    };
    std::thread canceller([&] {
        WaitForSingleObject(reached.handle, 60000);
        SetEvent(event.handle);
    });
    EXPECT_EQ(engine.rescan(1, event.handle), ERROR_CANCELLED);
    canceller.join();
    EXPECT_EQ(first.calls, 500);
}

TEST(FileScan, KernelCallsPerFile)
{
    Collector collector;
    collector.collects = false;
    const TestEngine engine(collector);
    const EventHandle event;
    const std::wstring many = testFolder() + L"\\tree\\many";
    ASSERT_EQ(engine.scan(many, 1), ERROR_SUCCESS); // mutexes are made, tables have room
    KernelCalls calls(sysmaintModule());
    ASSERT_EQ(engine.rescan(1), ERROR_SUCCESS);
    EXPECT_LE(calls.total(), 8) << "50,000 files with a null event cost what none cost";
    calls.reset();
    ASSERT_EQ(engine.rescan(1, event.handle), ERROR_SUCCESS);
    EXPECT_GE(calls.total(), 2 * 50000);
    EXPECT_LE(calls.total(), 2 * 50000 + 8) << "one poll per entry, one per handler call";
}

TEST(FileScan, NotificationsCarryTheRegistration)
{
    Collector collector;
    collector.action = [](const Notification& notification, const SharedPtr<ScanItem>& item) {
        EXPECT_EQ(notification.getFirst(), item->getType() == kDirectoryItem ? 1U : 0U);
        EXPECT_EQ(notification.getSecond(), 77U);
        EXPECT_EQ(notification.getValue(), 0U);
        EXPECT_EQ(notification.getRegistrationValue(), 0x123456789ABCULL);
    };
    NotifyProvider provider;
    provider.registerHandler(collector, 1, 5, 0x123456789ABC);
    provider.registerHandler(collector, 0, 6, 0x123456789ABC);
    void* engine = CreateFileScanEngine(L"notifications");
    ASSERT_EQ(FSEngineAddPath(engine, (testFolder() + L"\\tree\\dots").c_str(), 0), 0);
    ASSERT_EQ(FSEngineAddPath(engine, (testFolder() + L"\\tree").c_str(), 0), 0);
    const SharedPtr<IScanValidator> all = everything();

    // Nothing registered for a key: the scan says so rather than losing the items.
    EXPECT_EQ(FSEngineScan(engine, nullptr, all, {}), ERROR_NOT_FOUND);
    ASSERT_EQ(FSEngineRegisterHandlers(engine, provider, INotifyProvider::kKeepNumber, 77), 0);
    EXPECT_EQ(FSEngineScan(engine, nullptr, all, {}), ERROR_SUCCESS);
    const long once = collector.calls;
    EXPECT_EQ(FSEngineScan(engine, nullptr, all, {}), ERROR_SUCCESS);
    EXPECT_EQ(collector.calls, 2 * once) << "handlers are attached once, however often a scan runs";
    ASSERT_EQ(FSEngineClearHandlers(engine), 0);
    EXPECT_EQ(FSEngineScan(engine, nullptr, all, {}), ERROR_NOT_FOUND);
    ASSERT_EQ(FSEngineRegisterHandlers(engine, provider, 0, 77), 0); // both under the key of files
    EXPECT_EQ(FSEngineScan(engine, nullptr, all, {}), ERROR_NOT_FOUND) << "no handler for folders";
    CloseFileScanEngine(engine);
}

// A root path keeps the handlers of its own beside those that it receives, each called once in each scan; and
// a validator there must be.
TEST(FileScan, RootsReceiveTheEnginesHandlers)
{
    Collector engines;
    Collector own;
    const TestEngine engine(engines, L"receiving");
    const std::wstring dots = testFolder() + L"\\tree\\dots";
    ASSERT_EQ(FSEngineAddPath(engine.handle, dots.c_str(), 0), 0);
    void* handle = OpenScanItem(L"receiving", dots.c_str());
    SharedPtr<ScanItem> item;
    ASSERT_EQ(GetScanItemByHandle(handle, item), 0);
    auto& path = dynamic_cast<IScanPath&>(*item);
    path.getNotifyProvider().registerHandler(own, kLeafFound, 0, 0);
    for (long scan = 1; scan <= 3; ++scan) {
        EXPECT_EQ(engine.rescan(), ERROR_SUCCESS);
        EXPECT_EQ(engines.calls, 3 * scan);
        EXPECT_EQ(own.calls, 3 * scan);
    }
    const SharedPtr<IScanValidator> none(DllGetScanValidator(L"C:\\keep\\*.tmp:001", L""));
    EXPECT_FALSE(none) << "a drive path is no entry";
    EXPECT_EQ(FSEngineScan(engine.handle, nullptr, none, {}), ERROR_INVALID_ADDRESS);
    EXPECT_EQ(codeOf([&] { path.scan(nullptr, none, {}); }),
              static_cast<unsigned long>(ERROR_INVALID_ADDRESS));
    void* registry = CreateRegistryScanEngine(L"receiving");
    RSEngineAddPath(registry, HKEY_CURRENT_USER, L"Software");
    EXPECT_EQ(RSEngineScan(registry, nullptr, none, {}), ERROR_INVALID_ADDRESS);
    EXPECT_EQ(engines.calls + own.calls, 18) << "nothing was listed";
    CloseRegistryScanEngine(registry);
    ASSERT_EQ(FSEngineClearHandlers(engine.handle), 0);
    EXPECT_EQ(engine.rescan(), ERROR_NOT_FOUND);
    CloseScanItem(handle);
}

TEST(FileScan, WhatAHandlerRaisesEndsTheScanWithItsCode)
{
    Collector collector;
    const TestEngine engine(collector);
    const DWORD handles = processHandleCount();
    const struct
    {
        void (*raise)();
        long code;
    } rows[] = {
        {[] { throw Exception(PLACE("tests", "raise", 1), ERROR_DISK_FULL); }, ERROR_DISK_FULL},
        {[] { throw 4711L; }, 4711},
        {[] { throw 0L; }, 574},
        {[] { throw Exception(PLACE("tests", "raise", 1), 0UL); }, 574},
        {[] { throw std::bad_alloc(); }, ERROR_NOT_ENOUGH_MEMORY},
        {[] { throw std::runtime_error("any"); }, 574},
    };
    for (const auto& row : rows) {
        collector.calls = 0;
        collector.action = [&](const Notification&, const SharedPtr<ScanItem>&) {
            if (collector.calls == 5)
                row.raise();
        };
        EXPECT_EQ(engine.scan(testFolder() + L"\\tree"), row.code);
        EXPECT_EQ(collector.calls, 5);
    }
    EXPECT_EQ(processHandleCount(), handles);
}

// A handler may do to the engine what it likes while it is being scanned.
TEST(FileScan, HandlersMayChangeTheEngine)
{
    Collector collector;
    const TestEngine engine(collector, L"changing");
    const std::wstring dots = testFolder() + L"\\tree\\dots";
    const auto addTwice = [&] {
        FSEngineClear(engine.handle);
        FSEngineAddPath(engine.handle, dots.c_str(), 0);
        FSEngineAddPath(engine.handle, dots.c_str(), 0);
        collector.calls = 0;
    };
    addTwice();
    EXPECT_EQ(engine.rescan(), ERROR_SUCCESS);
    EXPECT_EQ(collector.calls, 6);

    addTwice();
    collector.action = [&](const Notification&, const SharedPtr<ScanItem>&) { FSEngineClear(engine.handle); };
    EXPECT_EQ(engine.rescan(), ERROR_INVALID_HANDLE) << "the second root was dropped";
    EXPECT_EQ(collector.calls, 3);

    addTwice();
    collector.action = [&](const Notification&, const SharedPtr<ScanItem>&) {
        FSEngineClearHandlers(engine.handle);
    };
    EXPECT_EQ(engine.rescan(), ERROR_NOT_FOUND);
    EXPECT_EQ(collector.calls, 1);
    FSEngineRegisterHandler(engine.handle, collector, kLeafFound, 0, 0);

    addTwice();
    collector.action = [&](const Notification&, const SharedPtr<ScanItem>&) {
        collector.action = nullptr;
        FSEngineAddPath(engine.handle, dots.c_str(), 0);
        CloseFileScanEngine(CreateFileScanEngine(L"changing"));
    };
    EXPECT_EQ(engine.rescan(), ERROR_SUCCESS);
    EXPECT_EQ(collector.calls, 6);
}

// Each call of the search fails in turn: the rest of the walk is not lost, the code arrives, nothing leaks.
TEST(FileScan, FailingSearchCalls)
{
    Collector collector;
    const TestEngine engine(collector);
    const std::wstring root = testFolder() + L"\\tree";
    const wchar_t* const ignores = L"many:010,denied:010";
    const auto walk = [&] {
        collector.calls = 0;
        return engine.rescan(65535, nullptr, L"", ignores);
    };
    FindFirst first(sysmaintModule());
    FindNext next(sysmaintModule());
    FindEnd end(sysmaintModule());
    ASSERT_EQ(engine.scan(root, 65535, nullptr, L"", ignores), ERROR_SUCCESS);
    const long all = collector.calls;
    const long folders = first.calls();
    const long entries = next.calls();
    ASSERT_GT(folders, 12);
    EXPECT_EQ(end.calls(), folders);

    const DWORD handles = processHandleCount();
    first.failCall(1, INVALID_HANDLE_VALUE, ERROR_NOT_READY);
    EXPECT_EQ(walk(), ERROR_NOT_READY);
    EXPECT_EQ(collector.calls, 0);
    for (long n = 2; n <= folders; ++n) {
        first.failCall(n, INVALID_HANDLE_VALUE, ERROR_NOT_READY);
        EXPECT_EQ(walk(), ERROR_NOT_READY);
        EXPECT_GE(collector.calls, all - 11) << "at most the failing folder's own tree is missing";
        EXPECT_LE(collector.calls, all);
    }
    first.failCall(1, INVALID_HANDLE_VALUE, ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(walk(), ERROR_SUCCESS) << "so the root of an empty volume answers";
    first.failCall(0, nullptr, 0);
    for (long n = 1; n <= entries; ++n) {
        next.failCall(n, FALSE, ERROR_READ_FAULT);
        end.reset();
        EXPECT_EQ(walk(), ERROR_READ_FAULT);
        EXPECT_EQ(end.calls(), next.calls() == 0 ? 0 : first.calls());
        first.reset();
    }
    next.failCall(0, FALSE, 0);

    // A system that does not know the better search gets the plain one.
    first.setHook([](auto, auto...) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return INVALID_HANDLE_VALUE;
    });
    EXPECT_EQ(walk(), ERROR_SUCCESS);
    EXPECT_EQ(collector.calls, all);
    EXPECT_EQ(processHandleCount(), handles);
}

TEST(FileScan, ReparsePointsThatAreNoLinksAreWalked)
{
    Collector collector;
    const TestEngine engine(collector);
    const struct
    {
        DWORD tag;
        bool walked;
    } rows[] = {
        {IO_REPARSE_TAG_MOUNT_POINT, false},
        {IO_REPARSE_TAG_SYMLINK, false},
        {0, false},
        {0x9000001A, true},
        {0x80000013, true},
    };
    const auto disguise = [](DWORD tag, WIN32_FIND_DATAW* entry) {
        if (std::wstring(entry->cFileName) == L"ünïcödé") {
            entry->dwFileAttributes |= FILE_ATTRIBUTE_REPARSE_POINT;
            entry->dwReserved0 = tag;
        }
    };
    FindNext next(sysmaintModule());
    for (const auto& row : rows) {
        collector.paths.clear();
        next.setHook([&](auto original, HANDLE search, WIN32_FIND_DATAW* entry) {
            const BOOL found = original(search, entry);
            disguise(row.tag, entry);
            return found;
        });
        ASSERT_EQ(engine.scan(testFolder() + L"\\tree", 65535, nullptr, L"", L"many:010,denied:010"), 0);
        const std::wstring folder = testFolder() + L"\\tree\\ünïcödé";
        EXPECT_EQ(collector.paths.count(folder), 1U) << "reported in any case";
        EXPECT_EQ(collector.paths.count(folder + L"\\日本語.txt"), row.walked ? 1U : 0U) << row.tag;
    }
}

TEST(FileScan, SeveralScansOfOneEngineAtATime)
{
    Collector collectors[4];
    void* engine = CreateFileScanEngine(L"parallel");
    std::atomic<long> calls{0};
    collectors[0].collects = false;
    collectors[0].action = [&](const Notification&, const SharedPtr<ScanItem>&) { ++calls; };
    FSEngineRegisterHandler(engine, collectors[0], kLeafFound, 0, 0);
    FSEngineAddPath(engine, (testFolder() + L"\\tree\\many").c_str(), 0);
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i)
        threads.emplace_back(
            [&] { EXPECT_EQ(FSEngineScan(engine, nullptr, everything(), {}), ERROR_SUCCESS); });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(calls, 200000);
    CloseFileScanEngine(engine);
}

// Reported, never judged: what the walk costs over the bare search, 100 files to a folder, in turns.
TEST(FileScan, CostOverTheBareSearch)
{
    const std::wstring root = scratchFolder();
    for (int folder = 0; folder < 20; ++folder) {
        const std::wstring path = root + L"\\" + std::to_wstring(folder);
        CreateDirectoryW(path.c_str(), nullptr);
        for (int file = 0; file < 100; ++file)
            CloseHandle(CreateFileW((path + L"\\" + std::to_wstring(file)).c_str(), GENERIC_WRITE, 0, nullptr,
                                    CREATE_ALWAYS, 0, nullptr));
    }
    const std::function<long(const std::wstring&)> bare = [&](const std::wstring& folder) {
        WIN32_FIND_DATAW entry;
        long count = 0;
        const HANDLE search = FindFirstFileW((folder + L"\\*").c_str(), &entry);
        if (search == INVALID_HANDLE_VALUE)
            return count;
        do {
            if (entry.cFileName[0] == L'.')
                continue;
            ++count;
            if ((entry.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0)
                count += bare(folder + L"\\" + entry.cFileName);
        } while (FindNextFileW(search, &entry));
        FindClose(search);
        return count;
    };
    Collector collector;
    collector.collects = false;
    const TestEngine engine(collector);
    engine.scan(root);
    const auto microseconds = [](const auto& work) {
        LARGE_INTEGER begin;
        LARGE_INTEGER end;
        LARGE_INTEGER frequency;
        QueryPerformanceFrequency(&frequency);
        QueryPerformanceCounter(&begin);
        work();
        QueryPerformanceCounter(&end);
        return (end.QuadPart - begin.QuadPart) * 1000000 / frequency.QuadPart;
    };
    std::vector<long long> ours;
    std::vector<long long> theirs;
    for (int turn = 0; turn < 7; ++turn) {
        theirs.push_back(microseconds([&] { EXPECT_EQ(bare(root), 2020); }));
        collector.calls = 0;
        ours.push_back(microseconds([&] { engine.rescan(); }));
        EXPECT_EQ(collector.calls, 2020);
    }
    std::sort(ours.begin(), ours.end());
    std::sort(theirs.begin(), theirs.end());
    std::printf("walk of 2,020 entries: %lld us, bare search %lld us, ratio %.2f\n", ours[3], theirs[3],
                static_cast<double>(ours[3]) / static_cast<double>(theirs[3]));
}
