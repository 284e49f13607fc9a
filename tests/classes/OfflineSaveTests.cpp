#include "core/win32/registry/offline/include/OfflineSave.h"

#include "core/win32/registry/offline/include/OfflineFile.h"
#include "support/Hives.h"

namespace {
using HiveBytes = std::vector<std::byte>;

/// A hive with far more space than it needs: free pages at the end.
HiveBytes bloatedHive()
{
    offline::Hive hive = offline::Hive::create(1);
    hive.setValue(hive.createKey(offline::Hive::root(), u"key", 2), u"value", 3,
                  HiveBytes(60000, std::byte{7}), 3);
    const auto bloated = hiveOf(2, hive);
    const auto bytes = std::as_bytes(std::span(bloated));
    return {bytes.begin(), bytes.end()};
}

/// Through the stand-in for offreg.dll, and without it.
class OfflineSave : public testing::TestWithParam<bool>
{
protected:
    OfflineSave()
    {
        offline::writeFile(source.c_str(), bloatedHive());
        std::filesystem::remove(target);
    }
    ~OfflineSave() override
    {
        std::filesystem::remove(source);
        std::filesystem::remove(target);
    }
    [[nodiscard]] unsigned long save() const
    {
        return codeOf([&] { offline::saveCompact(source.c_str(), target.c_str()); });
    }

    Replaced<"LoadLibraryExW", decltype(&LoadLibraryExW)> loads{
        [](auto original, LPCWSTR name, HANDLE file, DWORD flags) -> HMODULE {
            if (std::wstring_view(name) != L"offreg.dll")
                return original(name, file, flags);
            EXPECT_EQ(flags, DWORD{LOAD_LIBRARY_SEARCH_SYSTEM32});
            SetLastError(ERROR_MOD_NOT_FOUND);
            return GetParam() ? LoadLibraryW(L"offline_registry.dll") : nullptr;
        }};
    const std::wstring source = (std::filesystem::temp_directory_path() / L"offline \u65E5.hive").wstring();
    const std::wstring target = (std::filesystem::temp_directory_path() / L"offline new.hive").wstring();
};
} // namespace

TEST_P(OfflineSave, WritesTheHiveCompactlyAndLeavesTheSource)
{
    const HiveBytes compact = offline::Hive::parse(bloatedHive()).compact();
    for (int time = 0; time < 2; ++time) { // the second time over the first
        EXPECT_EQ(save(), 0);
        EXPECT_EQ(offline::readFile(target.c_str()), compact);
    }
    EXPECT_EQ(compact.size() + 8192, bloatedHive().size());
    EXPECT_EQ(offline::readFile(source.c_str()), bloatedHive());
}

TEST_P(OfflineSave, LeavesNothingHalfDone)
{
    {
        const Flushes flushes(1, FALSE, ERROR_IO_DEVICE);
        EXPECT_EQ(save(), ERROR_IO_DEVICE);
        EXPECT_FALSE(isThere(target));
    }
    if (!GetParam()) {
        const Writes writes(1, FALSE, ERROR_DISK_FULL);
        EXPECT_EQ(save(), ERROR_DISK_FULL);
        EXPECT_FALSE(isThere(target));
    }
    EXPECT_EQ(save(), 0);
    const HiveBytes before = offline::readFile(target.c_str());
    std::filesystem::remove(source);
    EXPECT_EQ(save(), ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(offline::readFile(target.c_str()), before);
}

INSTANTIATE_TEST_SUITE_P(Ways, OfflineSave, testing::Bool(),
                         [](const auto& way) { return way.param ? "ByLibrary" : "ByEngine"; });
