#include "boundary/RegistryTest.h"
#include "support/Links.h"

namespace {
/// What hasSubfolders says of a scan path with a handle, which is closed.
int hasSubfolders(void* handle, HANDLE cancelEvent = nullptr)
{
    const SharedPtr<ScanItem> item = itemOf(handle);
    return dynamic_cast<IScanPath&>(*item).hasSubfolders(cancelEvent);
}
} // namespace

TEST(ScanPaths, SayWhetherTheyHaveSubfolders)
{
    const std::wstring folder = scratchFolder();
    const auto ask = [&](HANDLE cancelEvent = nullptr) {
        return hasSubfolders(CreateFilePath(L"subfolders", folder.c_str(), 0, 0), cancelEvent);
    };
    EXPECT_EQ(ask(), 0);
    std::ofstream(std::filesystem::path(folder + L"\\file")).put('x');
    makeLink(scratchFolder({L"\\other"}), folder + L"\\link");
    EXPECT_EQ(ask(), 0) << "a file and a link are no folders";
    CreateDirectoryW((folder + L"\\sub").c_str(), nullptr);
    EXPECT_EQ(ask(), 1);
    EXPECT_EQ(codeOf([&] { hasSubfolders(CreateFilePath(L"none", (folder + L"\\none").c_str(), 0, 0)); }),
              ERROR_PATH_NOT_FOUND);
    const TestEvent cancel(true);
    EXPECT_EQ(codeOf([&] { ask(cancel.get()); }), ERROR_CANCELLED);
    const SharedPtr<ScanItem> item = itemOf(CreateFilePath(L"subfolders", folder.c_str(), 0, 0));
    EXPECT_EQ(codeOf([&] { dynamic_cast<IScanPath&>(*item).getValues(nullptr, everything()); }),
              ERROR_CALL_NOT_IMPLEMENTED);
}

TEST_F(Registry, PathsSayWhetherTheyHaveSubkeysAndGiveTheirOwnValues)
{
    const auto make = [] { return CreateRegistryPath(L"p", HKEY_CURRENT_USER, kRoot.c_str(), 0); };
    const auto ask = [&] { return hasSubfolders(make()); };
    addValue(L"a");
    EXPECT_EQ(ask(), 0);
    addLink(L"link", keyName(root) + L"\\target");
    EXPECT_EQ(ask(), 0) << "a link is no sub-key";
    addKey(L"key");
    EXPECT_EQ(ask(), 1);
    addValue(L"b");
    addValue(L"below", "", L"key");

    const SharedPtr<ScanItem> item = itemOf(make());
    auto& path = dynamic_cast<IScanPath&>(*item);
    const auto results = [&](std::uint32_t key) {
        std::set<std::wstring> paths;
        SharedPtr<ScanItem> result;
        for (std::size_t i = 0; path.getResult(key, i, result) == ERROR_SUCCESS; ++i)
            paths.insert(result->getPath());
        return paths;
    };
    EXPECT_EQ(path.getValues(nullptr, everything()), ERROR_SUCCESS); // twice: nothing is kept
    EXPECT_EQ(path.getValues(nullptr, everything()), ERROR_SUCCESS);
    EXPECT_EQ(results(kLeafFound), (std::set<std::wstring>{kFull + L"\\a", kFull + L"\\b"}));
    EXPECT_TRUE(results(kContainerFound).empty() && path.hasSubfolders(nullptr) == 1);
    EXPECT_EQ(results(kLeafFound).size(), 2U) << "asking keeps the results";
    const SharedPtr<IScanValidator> onlyB(DllGetScanValidator(L"b", L""));
    EXPECT_EQ(path.getValues(nullptr, onlyB), ERROR_SUCCESS);
    EXPECT_EQ(results(kLeafFound), std::set<std::wstring>{kFull + L"\\b"});
    EXPECT_EQ(codeOf([&] { path.getValues(nullptr, SharedPtr<IScanValidator>()); }), ERROR_INVALID_ADDRESS);
    const TestEvent cancel(true);
    EXPECT_TRUE(path.getValues(cancel.get(), everything()) == ERROR_CANCELLED && results(kLeafFound).empty());
    keyOf(kRoot)
        ->deleteItem(); // the link leads nowhere, so the system's deletion of the tree would stop at it
}
