#include "c/Calls.h"

namespace {
class CScan : public testing::Test
{
protected:
    CScan()
    {
        EXPECT_EQ(sysmaint_scan_create(SYSMAINT_SCAN_FOLDERS, &scan), 0);
        EXPECT_EQ(sysmaint_scan_add_folder(scan, folder.path(), 0), 0);
        CreateDirectoryW(folder.at(L"sub").c_str(), nullptr);
        folder.file(L"one.tmp", 3);
        folder.file(L"sub\\two.tmp", 5);
        folder.file(L"sub\\three.txt", 7);
    }
    ~CScan() override { sysmaint_scan_close(scan); }

    std::int32_t run(sysmaint_validator* validator = nullptr, void* event = nullptr)
    {
        names.clear();
        return sysmaint_scan_run(scan, nullptr, validator, event, &find.call, &find);
    }

    const Folder folder;
    sysmaint_scan* scan = nullptr;
    using Names = std::multiset<std::wstring>;
    Names names; // that were found; "D" for a folder or key, "?" for one that could not be listed
    std::function<std::int32_t(const sysmaint_found&)> act = [](const sysmaint_found&) { return 0; };
    Callback<sysmaint_found> find{[this](const sysmaint_found& found) {
        const std::wstring path = found.path;
        const wchar_t* const kinds[] = {L"", L"D", L"?"};
        names.insert(kinds[found.kind] + path.substr(path.rfind(L'\\') + 1));
        return act(found);
    }};
};
} // namespace

TEST_F(CScan, ReportsWhatTheValidatorAcceptsDownToTheDepth)
{
    EXPECT_EQ(run(), 0);
    EXPECT_EQ(names, (Names{L"Dsub", L"one.tmp", L"two.tmp", L"three.txt"}));
    const sysmaint_scan_options options{sizeof options, 1};
    names.clear();
    EXPECT_EQ(sysmaint_scan_run(scan, &options, nullptr, nullptr, &find.call, &find), 0);
    EXPECT_EQ(names, (Names{L"Dsub", L"one.tmp"}));

    sysmaint_validator* validator = nullptr;
    ASSERT_EQ(sysmaint_validator_create(L"*.tmp", nullptr, &validator), 0);
    // In use, it cannot be changed; closed, the run goes on with it.
    act = [&](const sysmaint_found& found) {
        EXPECT_EQ(sysmaint_validator_clear(validator), names.size() == 1 ? ERROR_BUSY : 6);
        EXPECT_TRUE(names.size() != 1 || sysmaint_validator_close(validator) == 0);
        EXPECT_EQ(found.code, 0);
        return 0;
    };
    EXPECT_EQ(run(validator), 0);
    EXPECT_EQ(names, (Names{L"Dsub", L"one.tmp", L"two.tmp"}));

    act = [](const sysmaint_found&) { return 0; };
    EXPECT_EQ(sysmaint_scan_add_folder(scan, folder.at(L"missing").c_str(), 0), 0);
    EXPECT_EQ(run(), ERROR_PATH_NOT_FOUND);
    EXPECT_EQ(names.count(L"?missing"), 1U);
    EXPECT_EQ(sysmaint_scan_clear(scan), 0);
    EXPECT_EQ(run(), 0);
    EXPECT_TRUE(names.empty());
}

TEST_F(CScan, StopsByTheCallbacksResultOrTheEvent)
{
    for (const std::int32_t result : {4711, 1223, -5}) {
        act = [&](const sysmaint_found&) { return result; };
        EXPECT_EQ(run(), result);
        EXPECT_EQ(names.size(), 1U);
    }
    void* const event = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    act = [&](const sysmaint_found&) { return SetEvent(event) ? 0 : 1; };
    EXPECT_EQ(run(nullptr, event), ERROR_CANCELLED);
    EXPECT_EQ(names.size(), 1U);
    CloseHandle(event);
}

// A callback may end, change and repeat what calls it.
TEST_F(CScan, SurvivesACallbackThatClosesIt)
{
    act = [&](const sysmaint_found& found) {
        EXPECT_EQ(sysmaint_scan_run(scan, nullptr, nullptr, nullptr, &find.call, &find),
                  names.size() == 1 ? ERROR_BUSY : ERROR_INVALID_HANDLE);
        EXPECT_TRUE(names.size() != 1 || sysmaint_scan_close(scan) == 0);
        EXPECT_EQ(sysmaint_item_close(found.item), 0);
        return 0;
    };
    EXPECT_EQ(run(), 0);
    EXPECT_EQ(names.size(), 4U);
    EXPECT_EQ(run(), ERROR_INVALID_HANDLE);
}

TEST_F(CScan, ItemsAreUsedInTheCallbackAndKeptBeyondIt)
{
    std::map<std::wstring, std::uint64_t> sizes;
    sysmaint_item* stale = nullptr;
    sysmaint_item* kept = nullptr;
    act = [&](const sysmaint_found& found) {
        std::uint64_t size = 0;
        std::uint32_t level = 9;
        EXPECT_EQ(found.type,
                  found.kind == SYSMAINT_FOUND_CONTAINER ? SYSMAINT_ITEM_FOLDER : SYSMAINT_ITEM_FILE);
        if (found.kind == SYSMAINT_FOUND_CONTAINER) {
            EXPECT_EQ(sysmaint_item_level(found.item, &level), 0);
            EXPECT_EQ(level, 1U);
            return 0;
        }
        EXPECT_EQ(sysmaint_item_size(found.item, &size), 0);
        sizes[found.path] = size;
        // The file before, never this one.
        EXPECT_TRUE(stale == nullptr || sysmaint_item_delete(stale, nullptr) == ERROR_INVALID_HANDLE);
        stale = found.item;
        EXPECT_TRUE(size != 5 || sysmaint_item_keep(found.item, &kept) == 0);
        return size == 7 ? sysmaint_item_delete(found.item, nullptr) : 0;
    };
    EXPECT_EQ(run(), 0);
    EXPECT_EQ(sizes, (std::map<std::wstring, std::uint64_t>{{folder.at(L"one.tmp"), 3},
                                                            {folder.at(L"sub\\two.tmp"), 5},
                                                            {folder.at(L"sub\\three.txt"), 7}}));
    EXPECT_FALSE(Folder::isThere(folder.at(L"sub\\three.txt")));

    EXPECT_EQ(sysmaint_item_delete(stale, nullptr), ERROR_INVALID_HANDLE);
    EXPECT_EQ(sysmaint_item_delete(kept, nullptr), 0);
    EXPECT_FALSE(Folder::isThere(folder.at(L"sub\\two.tmp")));
    EXPECT_EQ(sysmaint_item_close(kept), 0);
}
