#include "c/Calls.h"
#include "core/win32/utils/scanengine/api.h"

// An item has one name for C and C++ code.
TEST(CSharedItems, AreFoundByBothSidesUntilTheLastSharingEnds)
{
    const Folder folder;
    const std::wstring path = folder.file(L"one", 3);
    sysmaint_item *file = nullptr, *found = nullptr;
    sysmaint_shared_item *first = nullptr, *second = nullptr;
    const auto find = [&] { return sysmaint_item_find(L"c items", path.c_str(), &found); };
    expectCodes({
        {"file", [&] { return sysmaint_item_file(path.c_str(), 0, &file); }, 0},
        {"share", [&] { return sysmaint_item_share(file, L"c items", &first); }, 0},
        {"again", [&] { return sysmaint_item_share(file, L"c items", &second); }, 0},
        {"end", [&] { return sysmaint_item_unshare(first); }, 0},
        {"twice", [&] { return sysmaint_item_unshare(first); }, ERROR_INVALID_HANDLE},
        {"find", find, 0},
        {"close", [&] { return sysmaint_item_close(found); }, 0},
    });
    void* const opened = OpenScanItem(L"c items", path.c_str());
    EXPECT_NE(opened, INVALID_HANDLE_VALUE);
    EXPECT_EQ(sysmaint_item_unshare(second), 0);
    EXPECT_EQ(find() + sysmaint_item_close(found), 0); // C++ code has it
    EXPECT_NE(CloseScanItem(opened), 0);
    EXPECT_EQ(find(), ERROR_NOT_FOUND);
    EXPECT_EQ(sysmaint_item_close(file), 0);
}
