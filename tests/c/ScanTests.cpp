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
        std::int32_t has = 0;
        std::uint32_t type = 0;
        EXPECT_EQ(sysmaint_item_type(found.item, &type), 0);
        EXPECT_EQ(type, found.type);
        if (found.kind == SYSMAINT_FOUND_CONTAINER) {
            EXPECT_EQ(sysmaint_item_size(found.item, &size), ERROR_CALL_NOT_IMPLEMENTED);
            EXPECT_EQ(sysmaint_item_has_containers(found.item, nullptr, &has), 0);
            EXPECT_EQ(has, 0);
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

    const wchar_t* path = nullptr;
    void* bytes = nullptr;
    std::uint64_t size = 0;
    std::int32_t is = 0;
    sysmaint_item* loaded = nullptr;
    sysmaint_validator* rules = nullptr;
    EXPECT_EQ(sysmaint_validator_create(nullptr, L"*.tmp", &rules), 0);
    expectCodes({
        {"stale", [&] { return sysmaint_item_delete(stale, nullptr); }, 6},
        {"path", [&] { return sysmaint_item_path(kept, &path); }, 0},
        {"matches", [&] { return sysmaint_item_matches(kept, rules, &is); }, 0},
        {"dump", [&] { return sysmaint_item_dump(kept, &bytes, &size); }, 0},
        {"cut", [&] { return sysmaint_item_load(bytes, size - 1, &loaded); }, 30},
        {"empty", [&] { return sysmaint_item_load(bytes, 0, &loaded); }, 30},
        {"load", [&] { return sysmaint_item_load(bytes, size, &loaded); }, 0},
        {"no value", [&] { return sysmaint_item_value_name(kept, &path); }, 120},
        {"no key", [&] { return sysmaint_item_create(kept); }, 120},
        {"no server", [&] { return sysmaint_item_download(kept, L"x", 0, nullptr); }, 120},
        {"no container", [&] { return sysmaint_item_has_containers(kept, nullptr, &is); }, 120},
        {"typed", [&] { return sysmaint_item_write(kept, 1, "x", 1); }, 87},
        {"delete", [&] { return sysmaint_item_delete(loaded, nullptr); }, 0},
        {"exists", [&] { return sysmaint_item_exists(kept, &is); }, 0},
    });
    EXPECT_EQ(path, folder.at(L"sub\\two.tmp"));
    EXPECT_EQ(is, 0);
    static_cast<unsigned char*>(bytes)[0] = 4; // no type
    EXPECT_EQ(sysmaint_item_load(bytes, size, &loaded), ERROR_INVALID_DATA);
    utilsFreeMemory(bytes);
    EXPECT_EQ(sysmaint_item_close(loaded), 0);
    EXPECT_EQ(sysmaint_item_close(kept), 0);
    EXPECT_EQ(sysmaint_item_close(kept), ERROR_INVALID_HANDLE);
    EXPECT_EQ(sysmaint_validator_close(rules), 0);
}

TEST(CItems, AreMadeFromNames)
{
    const Folder folder;
    sysmaint_item* item = nullptr;
    void* bytes = nullptr;
    std::uint64_t size = 0;
    std::uint32_t type = 0;
    const wchar_t* name = nullptr;
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
    const wchar_t* const key = L"Software\\sysmaint-c-tests\\key";
    expectCodes({
        {"key", [&] { return sysmaint_item_registry_key(HKEY_CURRENT_USER, key, 0, &item); }, 0},
        {"create", [&] { return sysmaint_item_create(item); }, 0},
        {"close", [&] { return sysmaint_item_close(item); }, 0},
        {"value", [&] { return sysmaint_item_registry_value(HKEY_CURRENT_USER, key, L"v", 0, &item); }, 0},
        {"no key", [&] { return sysmaint_item_create(item); }, 120},
        {"write", [&] { return sysmaint_item_write(item, REG_BINARY, "xyz", 3); }, 0},
        {"type", [&] { return sysmaint_item_value_type(item, &type); }, 0},
        {"name", [&] { return sysmaint_item_value_name(item, &name); }, 0},
        {"size", [&] { return sysmaint_item_size(item, &size); }, 0},
        {"nothing", [&] { return sysmaint_item_read(item, nullptr, &size); }, 87},
    });
    EXPECT_EQ(type, static_cast<std::uint32_t>(REG_BINARY));
    EXPECT_STREQ(name, L"v");
    EXPECT_EQ(size, 3U);
    EXPECT_EQ(sysmaint_item_close(item), 0);

    sysmaint_scan* scan = nullptr;
    Finds finds;
    ASSERT_EQ(sysmaint_scan_create(SYSMAINT_SCAN_REGISTRY, &scan), 0);
    expectCodes({
        {"another kind", [&] { return sysmaint_scan_add_folder(scan, folder.path(), 0); }, 120},
        {"bit", [&] { return sysmaint_scan_add_key(scan, HKEY_CURRENT_USER, key, 2); }, 87},
        {"no root", [&] { return sysmaint_scan_add_key(scan, nullptr, key, 0); }, 87},
        {"key",
         [&] { return sysmaint_scan_add_key(scan, HKEY_CURRENT_USER, L"Software\\sysmaint-c-tests", 0); }, 0},
        {"run", [&] { return sysmaint_scan_run(scan, nullptr, nullptr, nullptr, &Finds::find, &finds); }, 0},
        {"close", [&] { return sysmaint_scan_close(scan); }, 0},
        {"root",
         [&] {
             return sysmaint_item_registry_key(HKEY_CURRENT_USER, L"Software\\sysmaint-c-tests", 0, &item);
         },
         0},
        {"delete", [&] { return sysmaint_item_delete(item, nullptr); }, 0},
        {"close", [&] { return sysmaint_item_close(item); }, 0},
    });
    EXPECT_EQ(finds.names, (std::multiset<std::wstring>{L"Dkey", L"v"}));
}

TEST_F(CScan, RefusesWrongArguments)
{
    std::uint32_t type = 0;
    sysmaint_item* item = nullptr;
    sysmaint_ftp* ftp = nullptr;
    sysmaint_ftp_account account{sizeof account, 0, L"localhost", nullptr, nullptr, 1, 0};
    const auto size = static_cast<std::uint32_t>(sizeof(sysmaint_scan_options));
    const auto addFtp = [&](std::uint32_t with) {
        account.size = with;
        return sysmaint_ftp_create(&account, &ftp);
    };
    expectCodes({
        {"create", [] { return sysmaint_scan_create(SYSMAINT_SCAN_FTP, nullptr); }, 87},
        {"kind", [&] { return sysmaint_scan_create(4, &scan); }, 87},
        {"small", [&] { return runWith(size - 1, 0); }, 87},
        {"large", [&] { return runWith(size + 1, 0); }, 87},
        {"depth", [&] { return runWith(size, 0x10000); }, 87},
        {"callback", [&] { return sysmaint_scan_run(scan, nullptr, nullptr, nullptr, nullptr, nullptr); },
         87},
        {"validator", [&] { return run(strange<sysmaint_validator>()); }, 6},
        {"path", [&] { return sysmaint_scan_add_folder(scan, nullptr, 0); }, 87},
        {"no path", [&] { return sysmaint_scan_add_folder(scan, L"", 0); }, 87},
        {"key", [&] { return sysmaint_scan_add_key(scan, HKEY_CURRENT_USER, L"", 0); }, 120},
        {"server", [&] { return sysmaint_scan_add_ftp_folder(scan, &account, L"/"); }, 120},
        {"no scan", [&] { return sysmaint_scan_add_folder(nullptr, L"C:\\", 0); }, 6},
        {"clear", [] { return sysmaint_scan_clear(strange<sysmaint_scan>()); }, 6},
        {"close", [] { return sysmaint_scan_close(nullptr); }, 6},
        {"file", [&] { return sysmaint_item_file(nullptr, 0, &item); }, 87},
        {"folder", [] { return sysmaint_item_folder(L"C:\\", 0, nullptr); }, 87},
        {"value", [&] { return sysmaint_item_registry_value(HKEY_CURRENT_USER, L"", nullptr, 0, &item); },
         87},
        {"load", [&] { return sysmaint_item_load(nullptr, 4, &item); }, 87},
        {"type", [&] { return sysmaint_item_type(nullptr, &type); }, 6},
        {"strange type", [&] { return sysmaint_item_type(strange<sysmaint_item>(), &type); }, 6},
        {"small account", [&] { return addFtp(sizeof account - 1); }, 87},
        {"account", [&] { return sysmaint_ftp_create(nullptr, &ftp); }, 87},
        {"ftp", [&] { return addFtp(sizeof account); }, 0},
        {"dots", [&] { return sysmaint_item_ftp_file(ftp, L"/../x", &item); }, 87},
        {"ftp file", [&] { return sysmaint_item_ftp_file(ftp, L"/x", &item); }, 0},
        {"ftp close", [&] { return sysmaint_ftp_close(ftp); }, 0},
        {"ftp connect", [&] { return sysmaint_ftp_connect(ftp, nullptr); }, 6},
        {"gone", [&] { return sysmaint_item_delete(item, nullptr); }, 2250},
        {"item close", [&] { return sysmaint_item_close(item); }, 0},
    });
    EXPECT_TRUE(finds.names.empty());
}
