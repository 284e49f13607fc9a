#include "core/win32/registry/offline/include/HiveLayout.h"
#include "support/Hives.h"
#include "support/OfflineKeys.h"

namespace {
/// With lists of keys, a class name, values of all kinds and data in segments.
Bytes wholeHive(const std::wstring& file)
{
    const OfflineKey root(DllGetOfflineRegistryKey(nullptr, L""));
    for (unsigned i = 0; i < 12; ++i) {
        const OfflineKey key =
            keyOf(root, L"k\u00E9y\\" + std::to_wstring(i % 5) + L"\\\u65E5" + std::to_wstring(i));
        EXPECT_EQ(key->create(L"class"), 0);
        const Bytes data(i == 11 ? 17000 : i, 'd');
        EXPECT_EQ(valueOf(key, i % 3 == 0 ? L"" : L"value")->setData(i, data.data(), data.size()), 0);
    }
    std::filesystem::remove(file);
    EXPECT_EQ(root->save(file.c_str()), 0);
    return readBytes(file);
}

/// Changes numbers, signatures and offsets, mostly near others, and corrects the checksum.
void mutate(Bytes& hive, std::mt19937& random)
{
    constexpr std::uint32_t kOdd[] = {0, 1, 0xFFFFFFFF, 0x80000000, 0x20, 0xFFFFFFF8, 0x1000, 0x7FFFFFFF};
    for (unsigned count = 1 + random() % 6; count != 0; --count) {
        const std::size_t at = random() % 8 == 0 ? random() % 512 : 4096 + random() % 3000;
        std::uint32_t number = random() % 3 != 0 ? kOdd[random() % std::size(kOdd)] : random() % 4096;
        if (random() % 4 == 0) // a place in use elsewhere
            std::memcpy(&number, &hive[(4096 + random() % 3000) & ~std::size_t{3}], sizeof number);
        std::memcpy(&hive[at], &number, 1 + random() % 4);
    }
    auto* const block = reinterpret_cast<std::byte*>(hive.data());
    offline::layout::store(block + offline::layout::base::kChecksum, offline::layout::checksum(block));
    if (random() % 16 == 0)
        hive.resize(random() % hive.size());
}

/// Reads everything of every key and value. Returns the number of keys.
std::size_t walk(const OfflineKey& key, unsigned depth = 0)
{
    Given<wchar_t> names;
    std::size_t count = 0;
    EXPECT_EQ(key->listValues(&names, &count), 0);
    for (const wchar_t* name = names.get(); *name != 0; name += std::wcslen(name) + 1)
        EXPECT_NE(dataOf(key, name).substr(0, 4), "code");
    EXPECT_EQ(key->listSubKeys(&names, &count), 0);
    count = 1;
    for (const wchar_t* name = names.get(); *name != 0 && depth < 513; name += std::wcslen(name) + 1)
        count += walk(keyOf(key, name), depth + 1);
    return count;
}
} // namespace

// Keeps what was salvaged from about 2,000 of them for other programs, if a folder is given.
TEST(HostileHives, EndInCodes)
{
    const std::wstring folder = scratchFolder(), file = folder + L"\\hive";
    const wchar_t* const kept = _wgetenv(L"SYSMAINT_SALVAGED");
    const Bytes whole = wholeHive(file);
    const wchar_t* const asked = _wgetenv(L"SYSMAINT_HIVES"); // by scripts/fuzz
    const unsigned long wanted = std::max(std::wcstoul(asked != nullptr ? asked : L"", nullptr, 10), 2000UL);
    std::mt19937 random(7);
    const Flushes flushes([](auto, HANDLE) { return TRUE; }); // the disk does not matter here
    unsigned long read = 0, salvaged = 0;
    for (unsigned long round = 0; round < wanted && !testing::Test::HasFailure(); ++round) {
        Bytes hive = whole;
        mutate(hive, random);
        writeBytes(file, hive);
        const OfflineKey key(DllGetOfflineRegistryKey(file.c_str(), L"", kOfflineEngine));
        const unsigned long code = key == nullptr ? GetLastError() : 0;
        EXPECT_TRUE(code == 0 || code == 1009 || code == 1015) << code;
        read += key != nullptr && walk(key) != 0 ? 1U : 0U;
        const std::wstring target = (kept != nullptr && round % (wanted / 2000) == 0 ? kept : folder) +
                                    L"\\" + std::to_wstring(round) + L".hive";
        const long long losses = salvage(file, target);
        EXPECT_TRUE(losses == -1009 || (losses >= 0 && (losses == 0) == (code == 0))) << losses;
        EXPECT_EQ(readBytes(file), hive);
        if (losses >= 0) {
            const OfflineKey again(DllGetOfflineRegistryKey(target.c_str(), L"", kOfflineEngine));
            ASSERT_NE(again, nullptr) << GetLastError();
            EXPECT_NE(walk(again), 0U);
            ++salvaged;
        }
        DeleteFileW((folder + L"\\" + std::to_wstring(round) + L".hive").c_str());
    }
    std::printf("%lu of %lu hives were whole, of %lu something could be had\n", read, wanted, salvaged);
    EXPECT_GT(read, wanted / 50);
    EXPECT_GT(salvaged - read, wanted / 4);
    std::filesystem::remove_all(folder);
}

TEST(HostileHives, LeaveNoNewFileWithoutMemory)
{
    const std::wstring folder = scratchFolder(), file = folder + L"\\hive", target = folder + L"\\new";
    Bytes hive = wholeHive(file);
    byteBehind(hive, "value", -20) = 'x'; // where the record of a value begins
    writeBytes(file, hive);
    const HeapWatch watch(sysmaintModule());
    long number = 0;
    do {
        HeapWatch::arm(++number);
        const long long losses = salvage(file, target);
        HeapWatch::disarm();
        EXPECT_TRUE(losses == -8 || losses == 1) << number;
        EXPECT_EQ(isThere(target), losses == 1) << number;
        DeleteFileW(target.c_str());
    } while (HeapWatch::hasFailed());
    EXPECT_GT(number, 20);
    std::filesystem::remove_all(folder);
}
