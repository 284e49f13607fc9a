// The analysis of hives through the C interface.

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
    }
    ~CHives() override
    {
        for (const wchar_t* name : {L"a", L"b"})
            RegDeleteKeyValueW(HKEY_LOCAL_MACHINE, kList, name);
        CloseRegistryDefragmenter(opened);
    }
    std::int32_t analyze() { return sysmaint_hive_analyze(opened, nullptr, &told.call, &told); }
    std::int32_t load(const void* bytes, std::uint64_t size) const
    {
        return sysmaint_hive_results_load(opened, bytes, size);
    }
    Lines results()
    {
        lines.clear();
        EXPECT_EQ(sysmaint_hive_results(opened, &told.call, &told), 0);
        return lines;
    }

    static constexpr wchar_t kList[] = L"System\\CurrentControlSet\\Control\\hivelist";
    void* opened = CreateRegistryDefragmenter(L"c");
    const Lines failed{L"161 a a 0 0", L"161 b b 0 0"};
    Lines lines; // one for each hive that the callback was told of
    std::function<std::int32_t()> act = [] { return 0; };
    Callback<sysmaint_hive> told{[this](const sysmaint_hive& hive) {
        lines.push_back(std::to_wstring(hive.code) + L' ' + hive.mount_name + L' ' + hive.path + L' ' +
                        std::to_wstring(hive.old_size) + L' ' + std::to_wstring(hive.new_size));
        EXPECT_EQ(std::wstring(hive.report).find(L"RDHiveItem") != std::wstring::npos, hive.code != 0);
        return act();
    }};
};
} // namespace

TEST_F(CHives, AreListedAnalyzedAndToldOneByOne)
{
    EXPECT_EQ(sysmaint_hive_list(&told.call, &told), 0);
    EXPECT_EQ(std::exchange(lines, {}), (Lines{L"0 a a 0 0", L"0 b b 0 0"}));
    EXPECT_EQ(analyze(), ERROR_BAD_PATHNAME);
    EXPECT_EQ(lines, failed);
    EXPECT_EQ(results(), failed);

    RDAnalyzerResults measured; // as no volume here can give
    measured.addResult(L"m", L"p", 8192, 4096);
    MemoryOutputByteStream stream, list;
    measured.dump(0, stream);
    const std::uint64_t size = stream.getSize();
    static_cast<void>(stream.write("x", 1));
    EXPECT_EQ(load(stream.getData(), size - 1), ERROR_READ_FAULT);
    EXPECT_EQ(load(stream.getData(), size + 1), ERROR_INVALID_DATA);
    EXPECT_EQ(results(), failed) << "as it was";
    EXPECT_EQ(load(stream.getData(), size), 0);
    EXPECT_EQ(results(), Lines{L"0 m p 8192 4096"});

    void *listed = nullptr, *kept = nullptr;
    std::uint64_t listSize = 0, keptSize = 0;
    EXPECT_EQ(DumpHiveList(list) + sysmaint_hive_list_dump(&listed, &listSize), 0);
    ASSERT_EQ(listSize, list.getSize());
    EXPECT_EQ(std::memcmp(listed, list.getData(), listSize), 0);
    EXPECT_EQ(sysmaint_hive_results_dump(opened, &kept, &keptSize), 0);
    ASSERT_EQ(keptSize, size);
    EXPECT_EQ(std::memcmp(kept, stream.getData(), size), 0);
    utilsFreeMemory(listed);
    utilsFreeMemory(kept);
}

TEST_F(CHives, ACallbackStopsTheAnalysisAndMayCloseTheDefragmenter)
{
    act = [] { return 4711; };
    EXPECT_EQ(sysmaint_hive_list(&told.call, &told), 4711);
    act = [&] {
        EXPECT_EQ(sysmaint_hive_analyze(opened, nullptr, nullptr, nullptr), ERROR_BUSY);
        EXPECT_NE(CloseRegistryDefragmenter(opened), 0);
        return 4711;
    };
    lines.clear();
    EXPECT_EQ(analyze(), 4711);
    EXPECT_EQ(lines.size(), 1U) << "and of no other";
    EXPECT_EQ(analyze(), ERROR_INVALID_HANDLE);
}
