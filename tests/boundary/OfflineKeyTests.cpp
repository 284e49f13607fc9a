#include "support/OfflineKeys.h"

#include "core/win32/registry/settingshive/api.h"
#include "support/Hives.h"

/// Each row through both ways; the library is a stand-in.
struct OfflineKeys : testing::TestWithParam<unsigned long>
{
    OfflineKeys()
    {
        root.reset(DllGetOfflineRegistryKey(nullptr, L"", GetParam()));
        EXPECT_NE(root, nullptr) << GetLastError();
    }
    ~OfflineKeys() override { std::filesystem::remove_all(folder); }

    [[nodiscard]] static OfflineKey open(const std::wstring& hive)
    {
        return OfflineKey(DllGetOfflineRegistryKey(hive.c_str(), L"", GetParam()));
    }
    /// Sub-keys, values, keys below.
    using Counts = std::array<std::size_t, 3>;
    [[nodiscard]] static Counts counts(const OfflineKey& key)
    {
        Counts counts{};
        EXPECT_EQ(key->getCounts(&counts[0], &counts[1], &counts[2]), 0);
        return counts;
    }
    template <class Item>
    [[nodiscard]] static int isThere(const Item& item)
    {
        return flagOf([&](int* there) { return item->exists(there); });
    }
    [[nodiscard]] std::ptrdiff_t files() const
    {
        return std::distance(std::filesystem::directory_iterator(folder), {});
    }

    StandIn offreg{L"offreg.dll", L"offline_registry.dll"};
    const std::wstring folder = scratchFolder();
    const std::wstring file = folder + L"\\new \u65E5.hive";
    OfflineKey root; ///< of a new hive
};

TEST_P(OfflineKeys, AreMadeChangedSavedAndReadAgain)
{
    const std::string large(1 << 20, 'L');
    const std::wstring longest(255, L'k');
    EXPECT_EQ(root->getWay(), GetParam());
    EXPECT_EQ(keyOf(root, L"Software\\\u00C4rger\\deep")->create(L"class \u03A9"), 0);
    EXPECT_EQ(keyOf(root, L"SOFTWARE\\\u00E4rger\\DEEP")->create(L"another class"), 0) << "it is there";
    EXPECT_EQ(keyOf(root, longest)->create(nullptr), 0);
    const OfflineKey key = keyOf(root, L"software");
    using Row = std::tuple<const wchar_t*, DWORD, std::string>;
    for (const auto& [name, type, data] :
         {Row(L"", REG_SZ, "d"), Row(L"z", 0xFFFFFFFF, "four"), Row(L"a", REG_BINARY, large),
          Row(L"none", REG_NONE, ""), Row(L"Z", REG_DWORD, "five!")})
        EXPECT_EQ(valueOf(key, name)->setData(type, data.empty() ? nullptr : data.data(), data.size()), 0);
    for (int time = 0; time < 2; ++time) { // the second time from the file
        const OfflineKey below = keyOf(root, L"SOFTWARE");
        EXPECT_EQ(std::tuple(keysOf(root), keysOf(below), valuesOf(below)),
                  std::tuple(longest + L",Software", L"\u00C4rger", L"z,a,none"));
        EXPECT_EQ(std::tuple(counts(root), counts(below)), std::tuple(Counts{2, 0, 4}, Counts{1, 4, 2}));
        for (const auto& [name, data] : {std::pair<const wchar_t*, std::string>(L"", "1: d"),
                                         {L"z", "4: five!"},
                                         {L"A", "3: " + large},
                                         {L"NONE", "0: "},
                                         {L"other", "code 2"}})
            EXPECT_EQ(dataOf(below, name), data);
        const OfflineKey deep = keyOf(below, L"\u00E4rger\\deep");
        unsigned long long written = 0;
        Given<wchar_t> className;
        EXPECT_EQ(deep->getInformation(&written, &className), 0);
        EXPECT_EQ(std::wstring(className.get()), L"class \u03A9");
        EXPECT_GT(written, 132000000000000000ULL);
        EXPECT_EQ(std::wstring(deep->getPath()), L"SOFTWARE\\\u00E4rger\\deep");
        if (time == 0) {
            EXPECT_EQ(root->save(file.c_str()), 0);
            EXPECT_EQ(root->save(file.c_str()), 183) << "no file is overwritten";
        }
        root = open(file);
        ASSERT_NE(root, nullptr) << GetLastError();
    }
    for (const long code : {0, 2})
        EXPECT_EQ(keyOf(root, L"software")->deleteItem(), code);
    EXPECT_EQ(isThere(keyOf(root, L"software\\\u00C4rger")), 0);
    EXPECT_EQ(keysOf(root), longest);
    EXPECT_EQ(root->save((file + L"2").c_str()), 0);
    EXPECT_LT(std::filesystem::file_size(file + L"2"), 9000U);
    EXPECT_EQ(keysOf(open(file)), longest + L",Software") << "the other file is as it was";
}

TEST_P(OfflineKeys, RefuseTheSameEitherWay)
{
    EXPECT_EQ(keyOf(root, L"key\\below")->create(nullptr), 0);
    const OfflineKey none = keyOf(root, L"none");
    EXPECT_EQ(keysOf(none) + valuesOf(none), L"code 2code 2");
    EXPECT_EQ(isThere(keyOf(root, L"KEY\\Below")), 1);
    EXPECT_EQ(isThere(keyOf(none, L"deep")) + isThere(valueOf(none, L"v")), 0);
    IOfflineRegistryValue* value = nullptr;
    EXPECT_EQ(
        (std::vector{root->deleteItem(), valueOf(none, L"v")->setData(1, "x", 1),
                     valueOf(root, L"v")->deleteItem(), valueOf(root, L"v")->setData(1, nullptr, 1),
                     root->getValue(std::wstring(16384, L'v').c_str(), &value), root->getKey(L"", nullptr),
                     root->listSubKeys(nullptr, nullptr), root->getCounts(nullptr, nullptr, nullptr)}),
        (std::vector{50L, 2L, 2L, 87L, 206L, 87L, 87L, 87L}));
    std::wstring deepest = L"k";
    for (int level = 2; level < 512; ++level)
        deepest += L"\\k";
    EXPECT_TRUE(keyOf(root, deepest)->create(nullptr) == 0 && keyOf(root, L"k")->deleteItem() == 0);
    IOfflineRegistryKey* key = nullptr;
    for (const auto& [path, code] : {std::pair(std::wstring(256, L'k'), 206),
                                     {deepest + L"\\k", 206},
                                     {L"a\\\\b", 123},
                                     {L"\\a", 123},
                                     {L"a\\", 123},
                                     {L"\\", 123}})
        EXPECT_EQ(root->getKey(path.c_str(), &key), code) << utf8(path);
    EXPECT_EQ(keysOf(root), L"key");

    writeBytes(folder + L"\\bad", Bytes(8192, 'x'));
    const auto refusalOfHive = [&](const wchar_t* hive, const wchar_t* path, unsigned long way = GetParam()) {
        return refusalOf(DllGetOfflineRegistryKey((folder + L"\\" + hive).c_str(), path, way));
    };
    EXPECT_EQ((std::vector{refusalOfHive(L"none", L""), refusalOfHive(L"none", nullptr),
                           refusalOfHive(L"none", L"\\"), refusalOfHive(L"none", L"", 3),
                           refusalOfHive(L"bad", L"")}),
              (std::vector<DWORD>{2, 87, 123, 87, 1009}));
    EXPECT_EQ(root->save((folder + L"\\none\\x").c_str()), 3);
    Flushes flushes(1, FALSE, ERROR_IO_DEVICE);
    EXPECT_EQ(root->save(file.c_str()), ERROR_IO_DEVICE);
    root.reset(DllGetOfflineRegistryKey(nullptr, L"x", GetParam()));
    EXPECT_EQ(isThere(root), 0);
    EXPECT_EQ(files(), 1);
}

/// Somebody else's file of that name appears before each call.
TEST_P(OfflineKeys, OverwriteNoFileThatAppearsMeanwhile)
{
    long code = 183;
    long at = 1;
    for (; code == 183; ++at) {
        SCOPED_TRACE(at);
        long calls = 0;
        const auto appear = [&](auto original, auto... arguments) {
            if (++calls == at)
                writeBytes(file, Bytes(3, 'x'));
            return original(arguments...);
        };
        const Opens opens(appear);
        const Replaced<"MoveFileExW", decltype(&MoveFileExW)> moves(appear);
        code = root->save(file.c_str());
        EXPECT_EQ(code, calls < at ? 0 : 183);
        EXPECT_EQ(readBytes(file) == Bytes(3, 'x'), code == 183);
        EXPECT_EQ(files(), 1);
        DeleteFileW(file.c_str());
    }
    EXPECT_GT(at, 2) << "the file has appeared before a call";
    for (const wchar_t* end : {L"-1.tmp", L"-2.tmp"}) // of this process, so none is left over
        writeBytes(file + L"." + std::to_wstring(GetCurrentProcessId()) + end, Bytes(3, 'x'));
    EXPECT_EQ(root->save(file.c_str()), 0);
    EXPECT_TRUE(files() == 3 && readBytes(file).size() > 3);
}

TEST_P(OfflineKeys, AreSavedOnlyToFiles)
{
    EXPECT_EQ(root->save(file.c_str()), 0);
    for (const std::wstring& name : std::initializer_list<std::wstring>{
             L"NUL", L"con.hive", folder + L"\\lpt1", LR"(\\.\NUL)", LR"(\\?\UNC\server\pipe\x)",
             LR"(\\.\mailslot\x)", LR"(\\.\C:)", folder + L"\\a:b", folder + L"\\"}) {
        EXPECT_EQ(root->save(name.c_str()), 161) << utf8(name);
        EXPECT_EQ(salvage(file, name), -161) << utf8(name);
    }
    EXPECT_EQ(root->save(folder.c_str()), 183);
    EXPECT_EQ(files(), 1);
}

/// A key with a backslash in its name is never taken for the one at the path of that form.
TEST_P(OfflineKeys, HaveKeysThatNoPathNames)
{
    for (const auto& [path, data] : {std::pair{L"a\\b", "path"}, {L"a~b", "name"}, {L"a~b\\c", "below"}}) {
        EXPECT_EQ(keyOf(root, path)->create(nullptr), 0);
        EXPECT_EQ(valueOf(keyOf(root, path), L"v\\v")->setData(1, data, 4), 0);
    }
    const std::wstring saved = file + L"2", salvaged = file + L"3";
    EXPECT_EQ(root->save(file.c_str()), 0);
    Bytes bytes = readBytes(file);
    byteBehind(bytes, "a~b", 1) = '\\';
    writeBytes(file, bytes);
    root = open(file);
    ASSERT_NE(root, nullptr) << GetLastError();
    EXPECT_EQ(root->save(saved.c_str()), 0);
    EXPECT_EQ(salvage(file, salvaged), 0);
    EXPECT_EQ(readBytes(saved), readBytes(salvaged));
    for (const std::wstring& each : {file, saved}) {
        root = open(each);
        const OfflineKey atPath = keyOf(root, L"a\\b");
        EXPECT_EQ(counts(root), (Counts{2, 0, GetParam() == kOfflineEngine ? 4U : 3U}));
        EXPECT_EQ(std::tuple(keysOf(root), valuesOf(atPath), dataOf(atPath, L"v\\v"),
                             isThere(keyOf(root, L"a\\b\\c"))),
                  std::tuple(L"a", L"v\\v", "1: path", 0));
        void* const hive = CreateSettingsHive(each.c_str(), kSettingsReadOnly);
        EXPECT_EQ(listOf([&](auto... list) { return SettingsHiveEnumerateKeys(hive, L"", list...); }), L"a");
        CloseSettingsHive(hive);
    }
    EXPECT_EQ(keyOf(root, L"a")->deleteItem(), 0);
    EXPECT_EQ(counts(root)[0], 1U) << "the other one stays";
    EXPECT_EQ(isThere(keyOf(root, L"a\\b")), 0);
}

TEST_P(OfflineKeys, ServeManyThreads)
{
    onThreadsAtOnce(4, [&](int thread) {
        const OfflineKey own = keyOf(root, L"thread " + std::to_wstring(thread));
        EXPECT_EQ(own->create(nullptr), 0);
        for (int round = 0; round < 100; ++round) {
            EXPECT_EQ(valueOf(own, std::to_wstring(round))->setData(REG_SZ, &round, sizeof round), 0);
            const OfflineKey temporary = keyOf(own, L"temporary");
            EXPECT_TRUE(temporary->create(nullptr) == 0 && temporary->deleteItem() == 0);
        }
    });
    for (const wchar_t* key : {L"thread 0", L"thread 1", L"thread 2", L"thread 3"})
        EXPECT_EQ(std::ranges::count(valuesOf(keyOf(root, key)), L','), 99);
}

TEST_P(OfflineKeys, AreServedAsChosen)
{
    offreg.exists = GetParam() == kOfflineLibrary;
    root.reset(DllGetOfflineRegistryKey(nullptr, L""));
    ASSERT_NE(root, nullptr);
    EXPECT_EQ(root->getWay(), GetParam());
    EXPECT_EQ(OfflineKey(DllGetOfflineRegistryKey(nullptr, L"", kOfflineLibrary)) != nullptr, offreg.exists);
    EXPECT_TRUE(offreg.exists || GetLastError() == ERROR_MOD_NOT_FOUND);
}

INSTANTIATE_TEST_SUITE_P(Ways, OfflineKeys, testing::Values(kOfflineLibrary, kOfflineEngine),
                         [](auto& way) { return way.param == kOfflineEngine ? "ByEngine" : "ByLibrary"; });
