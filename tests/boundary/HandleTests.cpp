#include <gtest/gtest.h>

#include <functional>

#include "core/win32/registry/api.h"
#include "core/win32/utils/strings/api.h"
#include "support/Scan.h"
#include "support/Threads.h"

namespace {
void* const kInvalid = INVALID_HANDLE_VALUE;

/// The library's heap is watched as long as the program runs: numbers that were given back come again, and
/// with them blocks of earlier tests. What the process makes once and keeps (the first exception takes four
/// handles) is there before any test counts.
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
        onThreadsAtOnce(2, [](int) { CloseScanItem(CreateFileW(L"warm", L"up", 0)); });
    }
};
const auto* const warmUp = testing::AddGlobalTestEnvironment(new WarmUp);
} // namespace

// Scans of the refused and of what is filed elsewhere: nothing has changed.
TEST(Handles, RefusedRootsAreNotAdded)
{
    const SharedPtr<IScanValidator> validator = everything();
    SharedPtr<ScanItem> none;
    EXPECT_EQ(CreateScanItem(L"x", none), kInvalid);
    EXPECT_EQ(GetLastError(), ERROR_INVALID_ADDRESS);
    void* engine = CreateFileScanEngine(L"arguments");
    void* file = CreateFileW(L"arguments", L"C:\\windows", 0);
    EXPECT_EQ(OpenFileScanEngine(L"Arguments"), kInvalid) << "case counts";
    // The roots of an engine are filed under its name: a file item there is no folder.
    EXPECT_EQ(FSEngineAddPath(engine, L"C:\\windows", 0), ERROR_ALREADY_EXISTS);
    EXPECT_EQ(FSEngineScan(engine, nullptr, validator, {}), ERROR_SUCCESS) << "a refused root was added";
    CloseFileScanEngine(engine);
    CloseScanItem(file);
}

TEST(Handles, AreSharedByNameAndReusedOldestFreedFirst)
{
    void* a = CreateFileScanEngine(L"a");
    void* b = CreateFileScanEngine(L"b");
    EXPECT_EQ(CreateFileScanEngine(L"a"), a);
    EXPECT_EQ(OpenFileScanEngine(L"a"), a);
    for (int opened = 3; opened > 0; --opened) {
        EXPECT_EQ(FSEngineClear(a), ERROR_SUCCESS);
        EXPECT_NE(CloseFileScanEngine(a), 0);
    }
    EXPECT_EQ(FSEngineClear(a), ERROR_INVALID_HANDLE);
    EXPECT_EQ(CloseFileScanEngine(a), 0);
    CloseFileScanEngine(b);
    EXPECT_EQ(CreateFileScanEngine(L"c"), a);
    EXPECT_EQ(CreateFileScanEngine(L"d"), b);
    CloseFileScanEngine(a);
    CloseFileScanEngine(b);

    // An item goes on living while somebody holds it.
    void* handle = CreateFileW(L"name", L"C:\\windows", 0);
    EXPECT_EQ(OpenScanItem(L"name", L"C:\\windows"), handle);
    SharedPtr<ScanItem> item;
    ASSERT_EQ(GetScanItemByHandle(handle, item), ERROR_SUCCESS);
    CloseScanItem(handle);
    CloseScanItem(handle);
    EXPECT_EQ(item->getType(), static_cast<std::uint32_t>(kFileItem));
    EXPECT_NE(item->exists(), 0);
    void* other = CreateScanItem(L"other", item);
    EXPECT_EQ(OpenScanItem(L"other", L"C:\\windows"), other);
    CloseScanItem(other);
    CloseScanItem(other);
}

// The counting that all checks for leaks stand on: one that keeps something on purpose must show.
TEST(Handles, LeaksAreSeen)
{
    void* item = nullptr;
    HANDLE event = nullptr;
    const struct
    {
        const char* what;
        std::function<void()> leak;
        std::function<void()> mend;
    } rows[] = {
        {"memory of the runtime", [&] { item = DllGetFile(L"x", 0); },
         [&] { delete static_cast<IFile*>(item); }},
        {"a handle", [&] { event = CreateEventW(nullptr, TRUE, FALSE, nullptr); },
         [&] { CloseHandle(event); }},
    };
    for (const auto& row : rows) {
        const ProcessCounts before = ProcessCounts::now();
        row.leak();
        EXPECT_FALSE(before.isReachedAgain(1)) << row.what;
        row.mend();
        EXPECT_TRUE(before.isReachedAgain(1)) << row.what;
    }
}

TEST(Validator, TextsAreTakenApartOrRefusedWhole)
{
    const auto count = [](const wchar_t* filters, const wchar_t* ignores) {
        const SharedPtr<IScanValidator> validator(DllGetScanValidator(filters, ignores));
        return validator ? static_cast<long>(validator->getFilterCount() * 100 + validator->getIgnoreCount())
                         : -1L;
    };
    EXPECT_EQ(count(L"*.tmp,*.log:011,Temp:110", L"x"), 301);
    EXPECT_EQ(count(L"", L""), 0);
    EXPECT_EQ(count(L",,a,,", L",b:999,c"), 102);
    EXPECT_EQ(count(nullptr, L"x"), 0);
    EXPECT_EQ(count(L"x", nullptr), 0);
    for (const wchar_t* wrong :
         {L"a:", L"a:0", L"a:01", L"a:0111", L"a:01x", L"a,b:1", L"C:\\x", L":", L"a:-11"}) {
        EXPECT_EQ(count(wrong, L""), -1) << std::wstring(wrong).c_str();
        EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
        EXPECT_EQ(count(L"", wrong), -1);
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
    void* file = CreateFileW(L"v", L"C:\\Temp\\Report.LOG", 0);
    void* folder = CreateFilePath(L"v", L"C:\\Temp\\Logs", 0, 0);
    SharedPtr<ScanItem> leaf;
    SharedPtr<ScanItem> container;
    GetScanItemByHandle(file, leaf);
    GetScanItemByHandle(folder, container);
    const struct
    {
        const wchar_t* filters;
        const wchar_t* ignores;
        bool leaf;
        bool container;
    } rows[] = {
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
        {L"*:009", L"", true, true},     // an unknown kind is for everything
        {L"*:211", L"", false, true},    // an unknown mode never matches
        {L"*:031", L"", false, true},    // nor does an unknown target
        {L"*:912,*.log", L"", true, true},
        {L"", L"*.log", false, true},
        {L"", L"*:010", true, false},
        {L"", L"log:109", false, false},
        {L"", L"*:311,*:041", true, true},
        {L"*.log", L"report:111", false, true},
        {L"nothing:111,*:010", L"", true, true},
    };
    for (const auto& row : rows) {
        const SharedPtr<IScanValidator> validator(DllGetScanValidator(row.filters, row.ignores));
        // Stored and read back it decides the same.
        MemoryOutputByteStream stored;
        validator->dump(0, stored);
        MemoryInputByteStream stream(stored.getData(), stored.getSize());
        const SharedPtr<IScanValidator> loaded(DllGetScanValidator());
        loaded->load(0, stream);
        for (const auto& each : {validator, loaded}) {
            EXPECT_EQ(each->validate(*leaf), row.leaf) << std::wstring(row.filters).c_str();
            EXPECT_EQ(each->validate(*container), row.container) << std::wstring(row.filters).c_str();
        }
        // A stream that is cut short adds nothing.
        for (std::size_t length = 0; length < stored.getSize(); ++length) {
            MemoryInputByteStream cut(stored.getData(), length);
            EXPECT_THROW(loaded->load(0, cut), Exception);
        }
        EXPECT_EQ(loaded->getFilterCount(), validator->getFilterCount());
        EXPECT_EQ(loaded->getIgnoreCount(), validator->getIgnoreCount());
    }
    CloseScanItem(file);
    CloseScanItem(folder);
}

TEST(Strings, SearchTokensAndCharacters)
{
    const wchar_t* text = L"The Größe of thE thing";
    EXPECT_EQ(_wcsistr(text, L"THE"), text);
    EXPECT_EQ(_wcsistr(text, L"the t"), text + 13);
    EXPECT_EQ(_wcsistr(text, L"GRÖ"), text + 4);
    EXPECT_EQ(_wcsistr(text, L""), text);
    EXPECT_EQ(_wcsistr(text, L"things"), nullptr);
    const wchar_t* repeated = L"aaab";
    EXPECT_EQ(_wcsistr(repeated, L"AAB"), repeated + 1);
    EXPECT_EQ(_wcsistr(nullptr, L"x"), nullptr);
    EXPECT_EQ(_wcsistr(text, nullptr), nullptr);

    wchar_t token[4] = L"...";
    unsigned long needed = 0;
    EXPECT_EQ(GetTokenW(L",,ab;c,", L",;", 0, token, 4, &needed), ERROR_SUCCESS);
    EXPECT_STREQ(token, L"ab");
    EXPECT_EQ(GetTokenW(L",,ab;c,", L",;", 1, token, 4, nullptr), ERROR_SUCCESS);
    EXPECT_STREQ(token, L"c");
    EXPECT_EQ(GetTokenW(L",,ab;c,", L",;", 2, token, 4, nullptr), ERROR_NOT_FOUND);
    EXPECT_EQ(GetTokenW(L"abcd", L",", 0, token, 4, &needed), ERROR_MORE_DATA);
    EXPECT_EQ(needed, 4U);
    EXPECT_STREQ(token, L"c") << "nothing is written beyond the room there is";

    wchar_t entry[] = L"a:b:c";
    EXPECT_EQ(SetFirstCharW(entry, L':', L'\0'), entry + 1);
    EXPECT_STREQ(entry, L"a");
    EXPECT_EQ(SetFirstCharW(entry, L':', L'x'), nullptr);
    EXPECT_EQ(SetFirstCharW(nullptr, L':', L'x'), nullptr);
}
