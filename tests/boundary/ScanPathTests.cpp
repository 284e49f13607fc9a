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
    wchar_t temp[MAX_PATH];
    GetTempPathW(MAX_PATH, temp);
    const std::wstring folder = std::wstring(temp).append(L"sysmaint subfolders");
    const std::wstring link = folder + L"\\link";
    const std::wstring sub = folder + L"\\sub";
    const auto ask = [&](HANDLE cancelEvent = nullptr) {
        return hasSubfolders(CreateFilePath(L"subfolders", folder.c_str(), 0, 0), cancelEvent);
    };
    RemoveDirectoryW(sub.c_str());
    EXPECT_EQ(codeOf([&] { ask(); }), DWORD{ERROR_PATH_NOT_FOUND});
    CreateDirectoryW(folder.c_str(), nullptr);
    EXPECT_EQ(ask(), 0);
    CloseHandle(
        CreateFileW((folder + L"\\file").c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr));
    makeLink(std::wstring(temp, std::wcslen(temp) - 1), link);
    EXPECT_EQ(ask(), 0) << "a file and a link are no folders";
    CreateDirectoryW(sub.c_str(), nullptr);
    EXPECT_EQ(ask(), 1);
    const TestEvent cancel;
    cancel.set();
    EXPECT_EQ(codeOf([&] { ask(cancel.get()); }), DWORD{ERROR_CANCELLED});
    const SharedPtr<ScanItem> item = itemOf(CreateFilePath(L"subfolders", folder.c_str(), 0, 0));
    EXPECT_EQ(codeOf([&] { dynamic_cast<IScanPath&>(*item).getValues(nullptr, everything()); }),
              DWORD{ERROR_CALL_NOT_IMPLEMENTED});
    RemoveDirectoryW(sub.c_str());
    constexpr long long kUnlink = 87; // the system's own removal of a link may reach its target
    EXPECT_EQ(unixCall(kUnlink, unixPath(link).c_str()), 0);
    DeleteFileW((folder + L"\\file").c_str());
    EXPECT_TRUE(RemoveDirectoryW(folder.c_str()));
}

TEST_F(Registry, PathsSayWhetherTheyHaveSubkeysAndGiveTheirOwnValues)
{
    const auto ask = [&] {
        return hasSubfolders(CreateRegistryPath(L"p", HKEY_CURRENT_USER, kRoot.c_str(), 0));
    };
    const auto removeLink = [&] { // which leads nowhere, so the deletion of the tree would stop at it
        HKEY link = nullptr;
        if (RegOpenKeyExW(root, L"link", REG_OPTION_OPEN_LINK, DELETE, &link) != ERROR_SUCCESS)
            return;
        EXPECT_EQ(NtDeleteKey(link), 0);
        RegCloseKey(link);
    };
    removeLink();
    addValue(L"a");
    EXPECT_EQ(ask(), 0);
    addLink(L"link", keyName(root) + L"\\target");
    EXPECT_EQ(ask(), 0) << "a link is no sub-key";
    addKey(L"key");
    EXPECT_EQ(ask(), 1);
    addValue(L"b");
    addValue(L"below", "", L"key");

    const SharedPtr<ScanItem> item = itemOf(CreateRegistryPath(L"p", HKEY_CURRENT_USER, kRoot.c_str(), 0));
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
    EXPECT_TRUE(results(kContainerFound).empty());
    EXPECT_EQ(path.hasSubfolders(nullptr), 1);
    EXPECT_EQ(results(kLeafFound).size(), 2U) << "asking keeps the results";
    const SharedPtr<IScanValidator> onlyB(DllGetScanValidator(L"b", L""));
    EXPECT_EQ(path.getValues(nullptr, onlyB), ERROR_SUCCESS);
    EXPECT_EQ(results(kLeafFound), std::set<std::wstring>{kFull + L"\\b"});
    EXPECT_EQ(codeOf([&] { path.getValues(nullptr, SharedPtr<IScanValidator>()); }),
              DWORD{ERROR_INVALID_ADDRESS});
    const TestEvent cancel;
    cancel.set();
    EXPECT_EQ(path.getValues(cancel.get(), everything()), ERROR_CANCELLED);
    EXPECT_TRUE(results(kLeafFound).empty());
    removeLink();
}
