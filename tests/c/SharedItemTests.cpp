#include "c/Calls.h"
#include "core/win32/utils/scanengine/api.h"

// An item has one name for C and C++ code.
TEST(CSharedItems, AreFoundByBothSidesUntilTheLastSharingEnds)
{
    const Folder folder;
    const std::wstring path = folder.file(L"one", 3);
    sysmaint_item *file = nullptr, *folderItem = nullptr, *found = nullptr;
    sysmaint_shared_item *first = nullptr, *second = nullptr, *third = nullptr;
    std::uint64_t size = 0;
    const auto find = [&](const std::wstring& at) {
        return sysmaint_item_find(L"c items", at.c_str(), &found);
    };
    expectCodes({
        {"file", [&] { return sysmaint_item_file(path.c_str(), 0, &file); }, 0},
        {"folder", [&] { return sysmaint_item_folder(path.c_str(), 0, &folderItem); }, 0},
        {"share", [&] { return sysmaint_item_share(file, L"c items", &first); }, 0},
        {"again", [&] { return sysmaint_item_share(file, L"c items", &second); }, 0},
        {"kind", [&] { return sysmaint_item_share(folderItem, L"c items", &third); }, ERROR_ALREADY_EXISTS},
        {"end", [&] { return sysmaint_item_unshare(first); }, 0},
        {"twice", [&] { return sysmaint_item_unshare(first); }, ERROR_INVALID_HANDLE},
        {"find", [&] { return find(path); }, 0},
        {"another", [&] { return find(path + L"2"); }, ERROR_NOT_FOUND},
        {"size", [&] { return sysmaint_item_size(found, &size); }, 0},
    });
    EXPECT_EQ(size, 3U);
    void* const opened = OpenScanItem(L"c items", path.c_str());
    EXPECT_NE(opened, INVALID_HANDLE_VALUE);
    EXPECT_EQ(sysmaint_item_unshare(second) + sysmaint_item_close(found), 0);
    EXPECT_EQ(find(path), 0); // C++ code has it
    EXPECT_NE(CloseScanItem(opened), 0);
    EXPECT_EQ(sysmaint_item_close(found), 0);
    EXPECT_EQ(find(path), ERROR_NOT_FOUND);
    // The roots of a C++ engine.
    void* const engine = CreateFileScanEngine(L"c items");
    EXPECT_EQ(FSEngineAddPath(engine, folder.path(), 0), 0);
    EXPECT_EQ(find(folder.path()), 0);
    CloseFileScanEngine(engine);
    for (sysmaint_item* each : {file, folderItem, found})
        EXPECT_EQ(sysmaint_item_close(each), 0);
}
