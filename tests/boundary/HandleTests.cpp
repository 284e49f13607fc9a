#include "core/win32/registry/api.h"
#include "support/Scan.h"

namespace {
/// The library's heap is watched while the program runs: freed handle numbers are reused, and with them
/// blocks of earlier tests. What the process creates once and keeps (the first exception takes four handles)
/// exists before any test counts.
struct WarmUp : testing::Environment
{
    void SetUp() override
    {
        static const HeapWatch heap(sysmaintModule());
        Collector handler;
        const TestEngine engine(handler);
        EXPECT_NE(engine.scan(L"C:\\no such folder"), ERROR_SUCCESS);
        EXPECT_EQ(ImpersonateCurrentUser(), ERROR_SUCCESS);
        RevertToSelf();
        void* keys = CreateRegistryScanEngine(L"warm up");
        RSEngineAddPath(keys, HKEY_CURRENT_USER, L"no such key");
        EXPECT_NE(RSEngineScan(keys, nullptr, everything(), {}), ERROR_SUCCESS);
        CloseRegistryScanEngine(keys);
        // For each thread that has had an exception while the others still run the runtime keeps a block.
        constexpr int kThreads = 32; // no test has more
        std::atomic<int> left{kThreads};
        onThreadsAtOnce(kThreads, [&](int) {
            CloseScanItem(CreateFileW(L"warm", L"up", 0));
            for (--left; left != 0;)
                std::this_thread::yield();
        });
    }
};
const auto* const warmUp = testing::AddGlobalTestEnvironment(new WarmUp);
} // namespace

TEST(Handles, AreSharedByNameAndKeepTheirObjects)
{
    // The roots of an engine are filed under its name: a file item there is no folder.
    void* handle = CreateFileW(L"name", L"C:\\windows", 0);
    EXPECT_EQ(OpenScanItem(L"name", L"C:\\windows"), handle);
    EXPECT_EQ(OpenScanItem(L"Name", L"C:\\windows"), INVALID_HANDLE_VALUE) << "case counts";
    void* engine = CreateFileScanEngine(L"name");
    EXPECT_EQ(CreateFileScanEngine(L"name"), engine);
    EXPECT_EQ(FSEngineAddPath(engine, L"C:\\windows", 0), ERROR_ALREADY_EXISTS);
    EXPECT_EQ(FSEngineScan(engine, nullptr, everything(), {}), ERROR_SUCCESS) << "a refused root was added";
    for (const int opened : {1, 1, 0})
        EXPECT_EQ(CloseFileScanEngine(engine) != 0, opened != 0);

    // An item lives on while somebody holds it.
    SharedPtr<ScanItem> item;
    EXPECT_EQ(refusalOf(CreateScanItem(L"x", item)), ERROR_INVALID_ADDRESS);
    ASSERT_EQ(GetScanItemByHandle(handle, item), ERROR_SUCCESS);
    EXPECT_TRUE(CloseScanItem(handle) != 0 && CloseScanItem(handle) != 0);
    EXPECT_NE(item->exists(), 0);
    CloseScanItem(CreateScanItem(L"other", item));
}

// Checks the counting that all leak checks rely on: a deliberate leak must show, once nothing that earlier
// tests have left ends at the same moment.
TEST(Handles, LeaksAreSeen)
{
    const auto isSeen = [](const auto& leak) {
        for (int turn = 0; turn < 600; ++turn, Sleep(10)) {
            const ProcessCounts before = ProcessCounts::now();
            auto leaked = leak();
            const bool isReached = before.isReachedAgain(1);
            leaked.reset();
            if (!isReached)
                return before.isReachedAgain();
        }
        return testing::AssertionFailure();
    };
    EXPECT_TRUE(isSeen([] { return std::unique_ptr<IFile>(DllGetFile(L"x", 0)); })) << "memory";
    EXPECT_TRUE(isSeen([] { return std::make_unique<TestEvent>(); })) << "a handle";
}

TEST(Validator, TextsAreTakenApartOrRefusedWhole)
{
    const auto count = [](const wchar_t* filters, const wchar_t* ignores) -> long {
        const SharedPtr<IScanValidator> validator(DllGetScanValidator(filters, ignores));
        return validator ? long{100} * static_cast<long>(validator->getFilterCount()) +
                               static_cast<long>(validator->getIgnoreCount())
                         : -1;
    };
    EXPECT_TRUE(count(L"*.tmp,*.log:011,Temp:110", L"x") == 301 && count(L"", L"") == 0);
    EXPECT_EQ(count(L",,a,,", L",b:999,c"), 102);
    EXPECT_TRUE(count(nullptr, L"x") == 0 && count(L"x", nullptr) == 0);
    for (const wchar_t* wrong :
         {L"a:", L"a:0", L"a:01", L"a:0111", L"a:01x", L"a,b:1", L"C:\\x", L":", L"a:-11"}) {
        EXPECT_EQ(count(wrong, L""), -1) << std::wstring(wrong).c_str();
        EXPECT_TRUE(GetLastError() == ERROR_INVALID_PARAMETER && count(L"", wrong) == -1);
    }
    const SharedPtr<IScanValidator> validator(DllGetScanValidator(L"*.tmp,Temp:110", L"x:011"));
    EXPECT_STREQ(validator->getFilter(1), L"Temp");
    EXPECT_STREQ(validator->getIgnore(0), L"x");
    EXPECT_THROW(static_cast<void>(validator->getFilter(2)), Exception);
    EXPECT_THROW(static_cast<void>(validator->getIgnore(1)), Exception);
    EXPECT_THROW(validator->addFilter(nullptr, 0, 0, 0), Exception);
    EXPECT_THROW(validator->addIgnore(nullptr, 0, 0, 0), Exception);
    EXPECT_EQ(validator->getFilterCount(), 2U);
    validator->clear();
    EXPECT_EQ(validator->getFilterCount() + validator->getIgnoreCount(), 0U);
}

TEST(Validator, Verdicts)
{
    const SharedPtr<ScanItem> leaf = itemOf(CreateFileW(L"v", L"C:\\Temp\\Report.LOG", 0));
    const SharedPtr<ScanItem> container = itemOf(CreateFilePath(L"v", L"C:\\Temp\\Logs", 0, 0));
    // The filters, the ignores, and whether the leaf and the container are accepted.
    const std::tuple<const wchar_t*, const wchar_t*, bool, bool> rows[] = {
        {L"", L"", true, true},
        {L"*.log", L"", true, true}, // leaf filters let containers through
        {L"*.tmp", L"", false, true},
        {L"*.tmp,*.log", L"", true, true},
        {L"Temp:110", L"", true, false}, // an unknown name of a folder: "Logs"
        {L"temp:100", L"", true, true},  // in the folder's full path
        {L"LOGS:110", L"", true, true},
        {L"C?\\temp\\*:001", L"", true, true}, // ":" cannot stand in a pattern, so "?" does
        {L"temp:101", L"", true, true},
        {L"temp:111", L"", false, true}, // not in the leaf's name
        {L"*:009", L"", true, true},     // an unknown kind applies to everything
        {L"*:211", L"", false, true},    // an unknown mode never matches
        {L"*:031", L"", false, true},    // nor does an unknown target
        {L"*:912,*.log", L"", true, true},
        {L"", L"*.log", false, true},
        {L"", L"*:010", true, false},
        {L"", L"log:109", false, false},
        {L"", L"*:311,*:041", true, true},
        {L"*.log", L"report:111", false, true},
        {L"nothing:111,*:010", L"", true, true}};
    for (const auto& [filters, ignores, acceptsLeaf, acceptsContainer] : rows) {
        const SharedPtr<IScanValidator> validator(DllGetScanValidator(filters, ignores));
        // Stored and read back it decides the same.
        SCOPED_TRACE(testing::Message() << filters << ignores);
        const std::string stored = dumpOf(*validator, 0);
        const SharedPtr<IScanValidator> loaded(DllGetScanValidator());
        MemoryInputByteStream whole(stored.data(), stored.size());
        loaded->load(0, whole);
        expectCutsChangeNothing(*loaded, *validator, 0);
        EXPECT_EQ(dumpOf(*loaded, 0), stored);
        for (const auto& each : {validator, loaded}) {
            EXPECT_EQ(each->validate(*leaf), acceptsLeaf);
            EXPECT_EQ(each->validate(*container), acceptsContainer);
        }
    }
}
