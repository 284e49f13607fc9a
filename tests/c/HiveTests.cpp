// Hives through the C interface: their analysis, files that are not loaded, and settings.

#include "c/Calls.h"
#include "core/win32/registry/defragmenter/api.h"

namespace {
/// What a callback is told, as one line for each hive, and what it returns or does.
struct Told
{
    std::vector<std::wstring> lines;
    std::int32_t result = 0;
    std::function<void()> act = [] {};

    static std::int32_t tell(void* context, const sysmaint_hive* hive)
    {
        auto& self = *static_cast<Told*>(context);
        EXPECT_EQ(hive->size, sizeof *hive);
        std::wstring line = std::to_wstring(hive->code) + L' ' + hive->mount_name + L' ' + hive->path;
        if (hive->code == 0)
            line += L' ' + std::to_wstring(hive->old_size) + L' ' + std::to_wstring(hive->new_size);
        else
            EXPECT_NE(std::wstring(hive->report).find(L"RDHiveItem"), std::wstring::npos);
        self.lines.push_back(line);
        self.act();
        return self.result;
    }
};
using Lines = std::vector<std::wstring>;

class CHives : public testing::Test
{
protected:
    CHives()
    {
        RegCreateKeyW(HKEY_LOCAL_MACHINE, L"System\\CurrentControlSet\\Control\\hivelist", &list);
        for (const wchar_t* name : {L"a", L"b"}) // whose paths have no known form
            RegSetValueExW(list, name, 0, REG_SZ, reinterpret_cast<const BYTE*>(name), 4);
        opened = CreateRegistryDefragmenter(L"c");
    }
    ~CHives() override
    {
        RegDeleteValueW(list, L"a");
        RegDeleteValueW(list, L"b");
        RegCloseKey(list);
        CloseRegistryDefragmenter(opened);
    }
    std::int32_t analyze(HANDLE stop = nullptr)
    {
        return sysmaint_hive_analyze(opened, stop, &Told::tell, &told);
    }

    HKEY list = nullptr;
    void* opened;
    Told told;
};
} // namespace

TEST_F(CHives, AreListedAnalyzedAndToldOneByOne)
{
    const Lines failed{L"161 a a", L"161 b b"};
    EXPECT_EQ(sysmaint_hive_list(&Told::tell, &told), 0);
    EXPECT_EQ(std::exchange(told.lines, {}), (Lines{L"0 a a 0 0", L"0 b b 0 0"}));
    EXPECT_EQ(analyze(), ERROR_BAD_PATHNAME);
    EXPECT_EQ(std::exchange(told.lines, {}), failed);
    EXPECT_EQ(sysmaint_hive_analyze(opened, nullptr, nullptr, nullptr), ERROR_BAD_PATHNAME);
    EXPECT_EQ(sysmaint_hive_results(opened, &Told::tell, &told), 0);
    EXPECT_EQ(std::exchange(told.lines, {}), failed);

    void *kept = nullptr, *listed = nullptr;
    std::uint64_t size = 0, listSize = 0;
    EXPECT_EQ(sysmaint_hive_results_dump(opened, &kept, &size), 0);
    RDAnalyzerResults measured; // as no volume here can give
    measured.addResult(L"m", L"p", 8192, 4096);
    MemoryOutputByteStream stream;
    measured.dump(0, stream);
    const auto load = [&](const void* bytes, std::uint64_t count) {
        return sysmaint_hive_results_load(opened, bytes, count);
    };
    EXPECT_EQ(load(stream.getData(), stream.getSize() - 1), ERROR_READ_FAULT);
    static_cast<void>(stream.write("x", 1));
    EXPECT_EQ(load(stream.getData(), stream.getSize()), ERROR_INVALID_DATA);
    EXPECT_EQ(sysmaint_hive_results(opened, &Told::tell, &told), 0);
    EXPECT_EQ(std::exchange(told.lines, {}), failed) << "as it was";
    EXPECT_EQ(load(stream.getData(), stream.getSize() - 1), 0);
    EXPECT_EQ(sysmaint_hive_results(opened, &Told::tell, &told), 0);
    EXPECT_EQ(std::exchange(told.lines, {}), Lines{L"0 m p 8192 4096"});
    EXPECT_EQ(load(kept, size), 0);
    EXPECT_EQ(sysmaint_hive_results(opened, &Told::tell, &told), 0);
    EXPECT_EQ(told.lines, failed);

    MemoryOutputByteStream list;
    EXPECT_EQ(DumpHiveList(list), 0);
    EXPECT_EQ(sysmaint_hive_list_dump(&listed, &listSize), 0);
    EXPECT_EQ(std::string(static_cast<char*>(listed), listSize),
              std::string(reinterpret_cast<const char*>(list.getData()), list.getSize()));
    utilsFreeMemory(kept);
    utilsFreeMemory(listed);
}

TEST_F(CHives, ACallbackStopsTheAnalysisAndMayCloseTheDefragmenter)
{
    told.result = 4711;
    EXPECT_EQ(sysmaint_hive_list(&Told::tell, &told), 4711);
    told.act = [&] {
        EXPECT_EQ(sysmaint_hive_analyze(opened, nullptr, nullptr, nullptr), ERROR_BUSY);
        EXPECT_NE(CloseRegistryDefragmenter(opened), 0);
        EXPECT_EQ(CloseRegistryDefragmenter(opened), 0);
    };
    told.lines.clear();
    EXPECT_EQ(analyze(), 4711);
    EXPECT_EQ(told.lines, Lines{L"161 a a"}) << "and of no other";
    const HANDLE stop = CreateEventW(nullptr, TRUE, TRUE, nullptr);
    expectCodes({
        {"closed", [&] { return analyze(); }, 6},
        {"reopened", [&] { return (opened = CreateRegistryDefragmenter(L"c")) != nullptr ? 0 : 1; }, 0},
        {"stopped", [&] { return analyze(stop); }, 1223},
    });
    CloseHandle(stop);
}

namespace {
/// Settings in a file, which is a hive with the key a\\b.
void makeSettings(const std::wstring& file)
{
    void* const settings = CreateSettingsHive(file.c_str(), 0);
    EXPECT_EQ(SettingsHiveSetNumber32(settings, L"a\\b", L"number", 7), 0);
    EXPECT_EQ(SettingsHiveSave(settings), 0);
    EXPECT_NE(CloseSettingsHive(settings), 0);
}
} // namespace

TEST(COffline, SettingsAreAHiveWhoseKeysAreReadChangedAndSaved)
{
    const Folder folder;
    const std::wstring file = folder.at(L"settings.hiv"), saved = folder.at(L"saved.hiv");
    makeSettings(file);
    sysmaint_offline_key *root = nullptr, *key = nullptr, *made = nullptr;
    std::uint32_t number = 0;
    std::uint64_t size = 0, subKeys = 9, values = 9, below = 9, time = 0;
    void* data = nullptr;
    wchar_t *names = nullptr, *className = nullptr, *keys = nullptr;
    const wchar_t* path = nullptr;
    std::int32_t exists = 9;
    expectCodes({
        {"open", [&] { return sysmaint_offline_open(file.c_str(), L"", 2, &root); }, 0},
        {"below", [&] { return sysmaint_offline_open_below(root, L"a\\b", &key); }, 0},
        {"get", [&] { return sysmaint_offline_value_get(key, L"NUMBER", &number, &data, &size); }, 0},
        {"set", [&] { return sysmaint_offline_value_set(key, L"x", REG_SZ, L"x", 4); }, 0},
        {"delete", [&] { return sysmaint_offline_value_delete(key, L"number"); }, 0},
        {"values", [&] { return sysmaint_offline_values(key, &names, &size); }, 0},
        {"sub-keys", [&] { return sysmaint_offline_sub_keys(root, &keys, &size); }, 0},
        {"counts", [&] { return sysmaint_offline_counts(root, &subKeys, &values, &below); }, 0},
        {"path", [&] { return sysmaint_offline_path(key, &path); }, 0},
        {"another", [&] { return sysmaint_offline_open_below(key, L"c", &made); }, 0},
        {"missing", [&] { return sysmaint_offline_delete(made); }, 2},
        {"create", [&] { return sysmaint_offline_create(made, L"class"); }, 0},
        {"about", [&] { return sysmaint_offline_information(made, &time, &className); }, 0},
        {"close", [&] { return sysmaint_offline_close(root); }, 0},
        {"save", [&] { return sysmaint_offline_save(key, saved.c_str()); }, 0}, // the hive is still there
        {"again", [&] { return sysmaint_offline_save(key, saved.c_str()); }, 183},
        {"no hive", [&] { return sysmaint_offline_open(folder.file(L"x", 9).c_str(), L"", 0, &root); }, 1009},
        {"name", [&] { return sysmaint_offline_open(nullptr, L"\\a", 2, &root); }, 123},
        {"saved", [&] { return sysmaint_offline_open(saved.c_str(), L"a\\b\\c", 2, &root); }, 0},
        {"is there", [&] { return sysmaint_offline_exists(root, &exists); }, 0},
    });
    EXPECT_EQ(exists, 1);
    EXPECT_EQ(*static_cast<const std::uint32_t*>(data), 7U);
    EXPECT_EQ(number, static_cast<std::uint32_t>(REG_DWORD));
    EXPECT_EQ(std::wstring(names, 3), (std::wstring{L'x', L'\0', L'\0'}));
    EXPECT_EQ(std::vector({std::wstring(keys), std::wstring(path), std::wstring(className)}),
              (Lines{L"a", L"a\\b", L"class"}));
    EXPECT_EQ(std::vector({size, subKeys, values, below}), (std::vector<std::uint64_t>{1, 1, 0, 2}));
    EXPECT_NE(time, 0U);
    EXPECT_EQ(sysmaint_offline_value_exists(key, L"number", &exists), 0);
    EXPECT_EQ(exists, 0);
    EXPECT_EQ(sysmaint_offline_way(key, &number), 0);
    EXPECT_EQ(number, SYSMAINT_OFFLINE_ENGINE);
    for (void* memory : std::initializer_list<void*>{data, names, keys, className})
        utilsFreeMemory(memory);

    for (sysmaint_offline_key* each : {root, key, made})
        EXPECT_EQ(sysmaint_offline_close(each), 0);
}
