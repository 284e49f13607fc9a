#include "core/win32/registry/offline/include/OfflineSave.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "core/win32/registry/offline/include/HiveFile.h"
#include "core/win32/registry/offline/include/OfflineFile.h"
#include "support/ImportReplacement.h"

namespace {
using Bytes = std::vector<std::byte>;

/// A hive with far more space than it needs: free pages at the end.
Bytes bloatedHive()
{
    offline::Hive hive = offline::Hive::create(1);
    hive.setValue(hive.createKey(offline::Hive::root(), u"key", 2), u"value", 3, Bytes(60000, std::byte{7}),
                  3);
    Bytes bytes = hive.compact();
    const std::size_t begin = bytes.size();
    bytes.resize(begin + 8192);
    const std::uint32_t bin[] = {0x6E696268, static_cast<std::uint32_t>(begin - 4096), 8192};
    const std::uint32_t free = 8192 - 32;
    const auto size = static_cast<std::uint32_t>(bytes.size() - 4096);
    std::memcpy(bytes.data() + begin, bin, sizeof bin);
    std::memcpy(bytes.data() + begin + 32, &free, sizeof free);
    std::memcpy(bytes.data() + 40, &size, sizeof size);
    std::uint32_t sum = 0;
    for (std::size_t i = 0; i < 508; i += 4) {
        std::uint32_t word = 0;
        std::memcpy(&word, bytes.data() + i, 4);
        sum ^= word;
    }
    std::memcpy(bytes.data() + 508, &sum, sizeof sum);
    return bytes;
}

/// Through the stand-in for offreg.dll, and without it.
class OfflineSave : public testing::TestWithParam<bool>
{
protected:
    OfflineSave() : loads(GetModuleHandleW(nullptr))
    {
        loads.setHook([](auto original, LPCWSTR name, HANDLE file, DWORD flags) -> HMODULE {
            if (std::wstring_view(name) != L"offreg.dll")
                return original(name, file, flags);
            EXPECT_EQ(flags, DWORD{LOAD_LIBRARY_SEARCH_SYSTEM32});
            SetLastError(ERROR_MOD_NOT_FOUND);
            return GetParam() ? LoadLibraryW(L"offline_registry.dll") : nullptr;
        });
        offline::writeFile(source.c_str(), bloatedHive());
        std::filesystem::remove(target);
    }
    ~OfflineSave() override
    {
        std::filesystem::remove(source);
        std::filesystem::remove(target);
    }
    [[nodiscard]] long save() const
    {
        try {
            offline::saveCompact(source.c_str(), target.c_str());
            return 0;
        } catch (const long code) {
            return code;
        }
    }
    [[nodiscard]] bool isThere() const { return std::filesystem::exists(target); }

    CountedImport<"LoadLibraryExW", decltype(&LoadLibraryExW)> loads;
    const std::wstring source = (std::filesystem::temp_directory_path() / L"offline \u65E5.hive").wstring();
    const std::wstring target = (std::filesystem::temp_directory_path() / L"offline new.hive").wstring();
};
} // namespace

TEST_P(OfflineSave, WritesTheHiveCompactlyAndLeavesTheSource)
{
    const Bytes compact = offline::Hive::parse(bloatedHive()).compact();
    for (int time = 0; time < 2; ++time) { // the second time over the first
        EXPECT_EQ(save(), 0);
        EXPECT_EQ(offline::readFile(target.c_str()), compact);
    }
    EXPECT_EQ(compact.size() + 8192, bloatedHive().size());
    EXPECT_EQ(offline::readFile(source.c_str()), bloatedHive());
}

TEST_P(OfflineSave, LeavesNothingHalfDone)
{
    const HMODULE self = GetModuleHandleW(nullptr);
    {
        CountedImport<"FlushFileBuffers", decltype(&FlushFileBuffers)> flushes(self);
        flushes.failCall(1, FALSE, ERROR_IO_DEVICE);
        EXPECT_EQ(save(), ERROR_IO_DEVICE);
        EXPECT_FALSE(isThere());
    }
    if (!GetParam()) {
        CountedImport<"WriteFile", decltype(&WriteFile)> writes(self);
        writes.failCall(1, FALSE, ERROR_DISK_FULL);
        EXPECT_EQ(save(), ERROR_DISK_FULL);
        EXPECT_FALSE(isThere());
    }
    EXPECT_EQ(save(), 0);
    const Bytes before = offline::readFile(target.c_str());
    for (const auto& [size, code] : {std::pair{0U, 1009L}, {4095U, 1009L}, {8192U, 1015L}}) {
        Bytes cut = bloatedHive();
        cut.resize(size);
        offline::writeFile(source.c_str(), cut);
        EXPECT_EQ(save(), code) << size;
        EXPECT_EQ(offline::readFile(target.c_str()), before);
    }
    std::filesystem::remove(source);
    EXPECT_EQ(save(), ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(offline::readFile(target.c_str()), before);
}

INSTANTIATE_TEST_SUITE_P(Ways, OfflineSave, testing::Bool(),
                         [](const auto& way) { return way.param ? "ByLibrary" : "ByEngine"; });
