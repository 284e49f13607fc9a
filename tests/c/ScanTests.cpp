#include <algorithm>
#include <map>
#include <set>

#include "c/Calls.h"

namespace {
/// A callback's record of what was found, and what it returns or does.
struct Finds
{
    std::multiset<std::wstring> names; // "D" for a folder or key, "?" for one that could not be listed
    std::function<std::int32_t(const sysmaint_found&)> act = [](const sysmaint_found&) { return 0; };

    static std::int32_t find(void* context, const sysmaint_found* found)
    {
        auto& self = *static_cast<Finds*>(context);
        EXPECT_EQ(found->size, sizeof *found);
        const std::wstring path = found->path;
        const wchar_t* const kinds[] = {L"", L"D", L"?"};
        self.names.insert(kinds[found->kind] + path.substr(path.rfind(L'\\') + 1));
        return self.act(*found);
    }
};

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
        finds.names.clear();
        return sysmaint_scan_run(scan, nullptr, validator, event, &Finds::find, &finds);
    }
    std::int32_t runWith(std::uint32_t size, std::uint32_t depth)
    {
        finds.names.clear();
        const sysmaint_scan_options options{size, depth};
        return sysmaint_scan_run(scan, &options, nullptr, nullptr, &Finds::find, &finds);
    }

    /// Goes on with a file that a callback has kept.
    void useKept(sysmaint_item* kept) const;

    const Folder folder;
    sysmaint_scan* scan = nullptr;
    Finds finds;
    using Names = std::multiset<std::wstring>;
};
} // namespace

TEST_F(CScan, ReportsWhatTheValidatorAcceptsDownToTheDepth)
{
    EXPECT_EQ(run(), 0);
    EXPECT_EQ(finds.names, (Names{L"Dsub", L"one.tmp", L"two.tmp", L"three.txt"}));
    EXPECT_EQ(runWith(sizeof(sysmaint_scan_options), 1), 0);
    EXPECT_EQ(finds.names, (Names{L"Dsub", L"one.tmp"}));

    sysmaint_validator* validator = nullptr;
    ASSERT_EQ(sysmaint_validator_create(L"*.tmp", nullptr, &validator), 0);
    // In use, it cannot be changed; closed, the run goes on with it.
    finds.act = [&](const sysmaint_found& found) {
        EXPECT_EQ(sysmaint_validator_clear(validator), finds.names.size() == 1 ? ERROR_BUSY : 6);
        if (finds.names.size() == 1) {
            EXPECT_EQ(sysmaint_validator_close(validator), 0);
        }
        EXPECT_EQ(found.code, 0);
        return 0;
    };
    EXPECT_EQ(run(validator), 0);
    EXPECT_EQ(finds.names, (Names{L"Dsub", L"one.tmp", L"two.tmp"}));

    finds.act = [](const sysmaint_found&) { return 0; };
    EXPECT_EQ(sysmaint_scan_add_folder(scan, folder.at(L"missing").c_str(), 0), 0);
    EXPECT_EQ(run(), ERROR_PATH_NOT_FOUND);
    EXPECT_EQ(finds.names.count(L"?missing"), 1U);
    EXPECT_EQ(sysmaint_scan_clear(scan), 0);
    EXPECT_EQ(run(), 0);
    EXPECT_TRUE(finds.names.empty());
}

TEST_F(CScan, StopsByTheCallbacksResultOrTheEvent)
{
    for (const std::int32_t result : {4711, 1223, -5}) {
        finds.act = [&](const sysmaint_found&) { return result; };
        EXPECT_EQ(run(), result);
        EXPECT_EQ(finds.names.size(), 1U);
    }
    void* const event = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    finds.act = [&](const sysmaint_found&) { return SetEvent(event) ? 0 : 1; };
    EXPECT_EQ(run(nullptr, event), ERROR_CANCELLED);
    EXPECT_EQ(finds.names.size(), 1U);
    CloseHandle(event);
}

// A callback may end, change and repeat what calls it.
TEST_F(CScan, SurvivesACallbackThatClosesIt)
{
    finds.act = [&](const sysmaint_found& found) {
        EXPECT_EQ(sysmaint_scan_run(scan, nullptr, nullptr, nullptr, &Finds::find, &finds),
                  finds.names.size() == 1 ? ERROR_BUSY : ERROR_INVALID_HANDLE);
        if (finds.names.size() == 1) {
            EXPECT_EQ(sysmaint_scan_close(scan), 0);
        }
        EXPECT_EQ(sysmaint_item_close(found.item), 0);
        return 0;
    };
    EXPECT_EQ(run(), 0);
    EXPECT_EQ(finds.names.size(), 4U);
    EXPECT_EQ(run(), ERROR_INVALID_HANDLE);
}

TEST_F(CScan, ItemsAreUsedInTheCallbackAndKeptBeyondIt)
{
    std::map<std::wstring, std::uint64_t> sizes;
    sysmaint_item* stale = nullptr;
    sysmaint_item* kept = nullptr;
    finds.act = [&](const sysmaint_found& found) {
        std::uint64_t size = 0;
        std::int32_t has = 9;
        std::uint32_t type = 0, level = 9;
        EXPECT_EQ(sysmaint_item_type(found.item, &type), 0);
        EXPECT_EQ(type, found.type);
        if (found.kind == SYSMAINT_FOUND_CONTAINER) {
            EXPECT_EQ(sysmaint_item_has_containers(found.item, nullptr, &has), 0);
            EXPECT_EQ(sysmaint_item_level(found.item, &level), 0);
            EXPECT_EQ(std::tuple(has, level), std::tuple(0, 1U));
            return 0;
        }
        EXPECT_EQ(sysmaint_item_size(found.item, &size), 0);
        sizes[found.path] = size;
        if (stale != nullptr) { // the file before, never this one
            EXPECT_EQ(sysmaint_item_delete(stale, nullptr), ERROR_INVALID_HANDLE);
        }
        stale = found.item;
        if (size == 5) {
            EXPECT_EQ(sysmaint_item_keep(found.item, &kept), 0);
        }
        return size == 7 ? sysmaint_item_delete(found.item, nullptr) : 0;
    };
    EXPECT_EQ(run(), 0);
    EXPECT_EQ(sizes, (std::map<std::wstring, std::uint64_t>{{folder.at(L"one.tmp"), 3},
                                                            {folder.at(L"sub\\two.tmp"), 5},
                                                            {folder.at(L"sub\\three.txt"), 7}}));
    EXPECT_FALSE(Folder::isThere(folder.at(L"sub\\three.txt")));

    EXPECT_EQ(sysmaint_item_delete(stale, nullptr), ERROR_INVALID_HANDLE);
    useKept(kept);
}

void CScan::useKept(sysmaint_item* kept) const
{
    const wchar_t* path = nullptr;
    void* bytes = nullptr;
    std::uint64_t size = 0;
    std::int32_t is = 9;
    sysmaint_item* loaded = nullptr;
    sysmaint_validator* rules = nullptr;
    EXPECT_EQ(sysmaint_validator_create(nullptr, L"*.tmp", &rules), 0);
    expectCodes({
        {"path", [&] { return sysmaint_item_path(kept, &path); }, 0},
        {"matches", [&] { return sysmaint_item_matches(kept, rules, &is); }, 0},
        {"dump", [&] { return sysmaint_item_dump(kept, &bytes, &size); }, 0},
        {"cut", [&] { return sysmaint_item_load(bytes, size - 1, &loaded); }, 30},
        {"empty", [&] { return sysmaint_item_load(bytes, 0, &loaded); }, 30},
        {"load", [&] { return sysmaint_item_load(bytes, size, &loaded); }, 0},
        {"typed", [&] { return sysmaint_item_write(kept, 1, "x", 1); }, 87},
        {"delete", [&] { return sysmaint_item_delete(loaded, nullptr); }, 0},
        {"exists", [&] { return sysmaint_item_exists(kept, &is); }, 0},
    });
    EXPECT_EQ(path, folder.at(L"sub\\two.tmp"));
    EXPECT_EQ(is, 0);
    static_cast<unsigned char*>(bytes)[0] = 4; // no type
    EXPECT_EQ(sysmaint_item_load(bytes, size, &loaded), ERROR_INVALID_DATA);
    utilsFreeMemory(bytes);
    EXPECT_EQ(sysmaint_item_close(loaded) + sysmaint_item_close(kept) + sysmaint_validator_close(rules), 0);
}

TEST(CItems, AreMadeFromNames)
{
    const Folder folder;
    sysmaint_item* item = nullptr;
    void* bytes = nullptr;
    std::uint64_t size = 0;
    const std::wstring path = folder.at(L"written");
    expectCodes({
        {"file", [&] { return sysmaint_item_file(path.c_str(), 0, &item); }, 0},
        {"write", [&] { return sysmaint_item_write(item, 0, "abc", 3); }, 0},
        {"close", [&] { return sysmaint_item_close(item); }, 0},
        {"again", [&] { return sysmaint_item_file(path.c_str(), 0, &item); }, 0},
        {"read", [&] { return sysmaint_item_read(item, &bytes, &size); }, 0},
        {"close", [&] { return sysmaint_item_close(item); }, 0},
    });
    EXPECT_EQ(std::string(static_cast<char*>(bytes), size), "abc");
    utilsFreeMemory(bytes);
}

TEST(CItems, OfTheRegistryAreMadeFoundAndDeleted)
{
    const wchar_t* const parent = L"Software\\sysmaint-c-tests";
    const wchar_t* const key = L"Software\\sysmaint-c-tests\\key";
    sysmaint_item *made = nullptr, *value = nullptr, *root = nullptr;
    sysmaint_scan* scan = nullptr;
    std::uint64_t size = 0;
    std::uint32_t type = 0;
    std::array<std::int32_t, 3> exists{-1, -1, -1};
    const wchar_t* name = nullptr;
    Finds finds;
    expectCodes({
        {"key", [&] { return sysmaint_item_registry_key(HKEY_CURRENT_USER, key, 0, &made); }, 0},
        {"create", [&] { return sysmaint_item_create(made); }, 0},
        {"value", [&] { return sysmaint_item_registry_value(HKEY_CURRENT_USER, key, L"v", 0, &value); }, 0},
        {"write", [&] { return sysmaint_item_write(value, REG_BINARY, "xyz", 3); }, 0},
        {"type", [&] { return sysmaint_item_value_type(value, &type); }, 0},
        {"name", [&] { return sysmaint_item_value_name(value, &name); }, 0},
        {"size", [&] { return sysmaint_item_size(value, &size); }, 0},
        {"scan", [&] { return sysmaint_scan_create(SYSMAINT_SCAN_REGISTRY, &scan); }, 0},
        {"add", [&] { return sysmaint_scan_add_key(scan, HKEY_CURRENT_USER, parent, 0); }, 0},
        {"run", [&] { return sysmaint_scan_run(scan, nullptr, nullptr, nullptr, &Finds::find, &finds); }, 0},
        {"root", [&] { return sysmaint_item_registry_key(HKEY_CURRENT_USER, parent, 0, &root); }, 0},
        {"delete a value", [&] { return sysmaint_item_delete(value, nullptr); }, 0},
        {"is it there?", [&] { return sysmaint_item_exists(value, &exists[0]); }, 0},
        {"its key?", [&] { return sysmaint_item_exists(made, &exists[1]); }, 0},
        {"delete the keys", [&] { return sysmaint_item_delete(root, nullptr); }, 0},
        {"are they there?", [&] { return sysmaint_item_exists(made, &exists[2]); }, 0},
    });
    EXPECT_EQ(exists, (std::array<std::int32_t, 3>{0, 1, 0}));
    EXPECT_EQ(type, static_cast<std::uint32_t>(REG_BINARY));
    EXPECT_STREQ(name, L"v");
    EXPECT_EQ(size, 3U);
    EXPECT_EQ(finds.names, (std::multiset<std::wstring>{L"Dkey", L"v"}));
    for (sysmaint_item* each : {made, value, root})
        EXPECT_EQ(sysmaint_item_close(each), 0);
    EXPECT_EQ(sysmaint_scan_close(scan), 0);
}

TEST_F(CScan, RefusesWhatCannotBeAPathOrADepth)
{
    sysmaint_ftp* ftp = nullptr;
    sysmaint_item* item = nullptr;
    const sysmaint_ftp_account account{sizeof account, 0, L"localhost", nullptr, nullptr, 1, 0};
    expectCodes({
        {"depth", [&] { return runWith(sizeof(sysmaint_scan_options), 0x10000); }, 87},
        {"no path", [&] { return sysmaint_scan_add_folder(scan, L"", 0); }, 87},
        {"ftp", [&] { return sysmaint_ftp_create(&account, &ftp); }, 0},
        {"dots", [&] { return sysmaint_item_ftp_file(ftp, L"/../x", &item); }, 87},
        {"ftp file", [&] { return sysmaint_item_ftp_file(ftp, L"/x", &item); }, 0},
        {"ftp close", [&] { return sysmaint_ftp_close(ftp); }, 0},
        {"gone", [&] { return sysmaint_item_delete(item, nullptr); }, 2250},
        {"item close", [&] { return sysmaint_item_close(item); }, 0},
    });
    EXPECT_TRUE(finds.names.empty());
}
