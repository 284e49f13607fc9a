// Hives through the C interface: their analysis, files that are not loaded, and settings.

#include "c/Calls.h"
#include "core/win32/registry/defragmenter/api.h"

namespace {
using Lines = std::vector<std::wstring>;

class CHives : public testing::Test
{
protected:
    CHives()
    {
        for (const wchar_t* name : {L"a", L"b"}) // whose paths have no known form
            RegSetKeyValueW(HKEY_LOCAL_MACHINE, kList, name, REG_SZ, name, 4);
        opened = CreateRegistryDefragmenter(L"c");
    }
    ~CHives() override
    {
        for (const wchar_t* name : {L"a", L"b"})
            RegDeleteKeyValueW(HKEY_LOCAL_MACHINE, kList, name);
        CloseRegistryDefragmenter(opened);
    }
    std::int32_t analyze(HANDLE stop = nullptr)
    {
        return sysmaint_hive_analyze(opened, stop, &told.call, &told);
    }

    static constexpr wchar_t kList[] = L"System\\CurrentControlSet\\Control\\hivelist";
    void* opened;
    Lines lines; // one for each hive that the callback was told of
    std::int32_t result = 0;
    std::function<void()> act = [] {};
    Callback<sysmaint_hive> told{[this](const sysmaint_hive& hive) {
        std::wstring line = std::to_wstring(hive.code) + L' ' + hive.mount_name + L' ' + hive.path;
        if (hive.code == 0)
            line += L' ' + std::to_wstring(hive.old_size) + L' ' + std::to_wstring(hive.new_size);
        else
            EXPECT_NE(std::wstring(hive.report).find(L"RDHiveItem"), std::wstring::npos);
        lines.push_back(line);
        act();
        return result;
    }};
};
} // namespace

TEST_F(CHives, AreListedAnalyzedAndToldOneByOne)
{
    const Lines failed{L"161 a a", L"161 b b"};
    EXPECT_EQ(sysmaint_hive_list(&told.call, &told), 0);
    EXPECT_EQ(std::exchange(lines, {}), (Lines{L"0 a a 0 0", L"0 b b 0 0"}));
    EXPECT_EQ(analyze(), ERROR_BAD_PATHNAME);
    EXPECT_EQ(std::exchange(lines, {}), failed);
    EXPECT_EQ(sysmaint_hive_analyze(opened, nullptr, nullptr, nullptr), ERROR_BAD_PATHNAME);
    EXPECT_EQ(sysmaint_hive_results(opened, &told.call, &told), 0);
    EXPECT_EQ(std::exchange(lines, {}), failed);

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
    EXPECT_EQ(sysmaint_hive_results(opened, &told.call, &told), 0);
    EXPECT_EQ(std::exchange(lines, {}), failed) << "as it was";
    EXPECT_EQ(load(stream.getData(), stream.getSize() - 1), 0);
    EXPECT_EQ(sysmaint_hive_results(opened, &told.call, &told), 0);
    EXPECT_EQ(std::exchange(lines, {}), Lines{L"0 m p 8192 4096"});
    EXPECT_EQ(load(kept, size), 0);
    EXPECT_EQ(sysmaint_hive_results(opened, &told.call, &told), 0);
    EXPECT_EQ(lines, failed);

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
    result = 4711;
    EXPECT_EQ(sysmaint_hive_list(&told.call, &told), 4711);
    act = [&] {
        EXPECT_EQ(sysmaint_hive_analyze(opened, nullptr, nullptr, nullptr), ERROR_BUSY);
        EXPECT_NE(CloseRegistryDefragmenter(opened), 0);
        EXPECT_EQ(CloseRegistryDefragmenter(opened), 0);
    };
    lines.clear();
    EXPECT_EQ(analyze(), 4711);
    EXPECT_EQ(lines, Lines{L"161 a a"}) << "and of no other";
    const HANDLE stop = CreateEventW(nullptr, TRUE, TRUE, nullptr);
    expectCodes({
        {"closed", [&] { return analyze(); }, 6},
        {"reopened",
         [&] { return (opened = CreateRegistryDefragmenter(L"c")) != INVALID_HANDLE_VALUE ? 0 : 1; }, 0},
        {"stopped", [&] { return analyze(stop); }, 1223},
    });
    CloseHandle(stop);
}
