#include "boundary/RegistryTest.h"

namespace {
/// Loads an item with `read`; returns the code when that fails.
template <class Item>
DWORD load(std::unique_ptr<Item>& item, Item* (*read)(unsigned long, IInputByteStream&),
           const std::string& bytes, unsigned long code = kStateAll)
{
    MemoryInputByteStream stream(bytes.data(), bytes.size());
    item.reset(read(code, stream));
    return item != nullptr ? ERROR_SUCCESS : GetLastError();
}

/// The value comes through a stream and back. One that ends early or lies about a length gives a code.
void expectStorable(IRegistryValue& value, unsigned long code)
{
    const std::string bytes = dumpOf(value, code);
    ValuePtr loaded;
    ASSERT_EQ(load(loaded, DllGetRegistryValue, bytes, code), ERROR_SUCCESS);
    EXPECT_STREQ(loaded->getName(), value.getName());
    EXPECT_TRUE(loaded->getValueType() == value.getValueType() && dataOf(*loaded) == dataOf(value));
    EXPECT_EQ(std::wstring(loaded->getPath()), (code & kStatePath) != 0
                                                   ? value.getPath()
                                                   : std::wstring(L"HKEY_CURRENT_USER\\") + value.getName());
    EXPECT_EQ(load(loaded, DllGetRegistryValue, bytes.substr(0, bytes.size() - 1), code), ERROR_READ_FAULT);
    const std::string hostile = "\xFE\xFF\xFF\xFF\xFF\xFF\xFF\xFF";
    for (std::size_t at = 0; at + 8 <= std::min<std::size_t>(bytes.size(), 200); ++at) {
        const DWORD got = load(loaded, DllGetRegistryValue, std::string(bytes).replace(at, 8, hostile), code);
        // The first field of each form is a length, a type or a root.
        EXPECT_TRUE(got == ERROR_READ_FAULT || got == ERROR_INVALID_DATA || (got == 0 && at >= 8));
    }
}
} // namespace

TEST_F(Registry, FullPathsOfTheRoots)
{
    for (const auto& [key, name] : {std::pair<HKEY, std::wstring>(HKEY_CLASSES_ROOT, L"HKEY_CLASSES_ROOT"),
                                    {HKEY_LOCAL_MACHINE, L"HKEY_LOCAL_MACHINE"},
                                    {HKEY_USERS, L"HKEY_USERS"},
                                    {HKEY_CURRENT_CONFIG, L"HKEY_CURRENT_CONFIG"},
                                    {HKEY_CURRENT_USER, L"HKEY_CURRENT_USER"},
                                    {HKEY_PERFORMANCE_DATA, L"HKEY_CURRENT_USER"},
                                    {root, L"HKEY_CURRENT_USER"}}) {
        EXPECT_EQ(keyOf(L"a\\b", key)->getPath(), name + L"\\a\\b");
        EXPECT_EQ(valueOf(L"a", L"b\\c", key)->getPath(), name + L"\\a\\b\\c");
        EXPECT_EQ(valueOf(L"a", L"", key)->getPath(), name + L"\\a\\");
    }
    // Only a backslash separates.
    for (const wchar_t* name : {L"http://x/\\deep\\lost", L"http://x/deep", L"C:\\deep", L"/\\deep"})
        addKey(name);
    ASSERT_EQ(scan(), ERROR_SUCCESS);
    expectFound({L"http://x/", L"http://x/\\deep", L"http://x/\\deep\\lost", L"http://x/deep", L"C:",
                 L"C:\\deep", L"/", L"/\\deep"});
}

TEST_F(Registry, ValuesAreMadeReadStoredAndDeleted)
{
    std::vector<std::tuple<std::wstring, DWORD, std::string>> rows = {
        {L"", REG_SZ, std::string("d\0\0\0", 4)},
        {std::wstring(16383, L'n'), REG_BINARY, "abc"},
        {L"large", REG_BINARY, std::string(1048576, 'x')},
        {L"control\x01\x1F\n", 0x4711, ""}};
    for (DWORD type = REG_NONE; type <= REG_QWORD; ++type)
        rows.emplace_back(L"of this type", type, std::string("\1\2\3\4\0\0\0\0", 8));
    for (const auto& [name, type, data] : rows) {
        const ValuePtr value = valueOf(kRoot, name);
        value->setData(type, data.data(), static_cast<unsigned long>(data.size()));
        EXPECT_EQ(value->exists(), 0);
        value->create();
        EXPECT_NE(value->exists(), 0);
        const ValuePtr reader = valueOf(kRoot, name);
        EXPECT_TRUE(reader->getValueType() == type && dataOf(*reader) == data);
        for (const unsigned long code : {kStateNone, kStateType, kStatePath, kStateAll})
            expectStorable(*reader, code);
        reader->deleteItem();
        EXPECT_TRUE(reader->exists() == 0 && codeOf([&] { reader->deleteItem(); }) == ERROR_FILE_NOT_FOUND);
    }
    const ValuePtr text(DllGetRegistryValue(HKEY_CURRENT_USER, kRoot.c_str(), L"t", L"text"));
    text->create();
    text->setValue(REG_DWORD, "\5\0\0", 4);
    EXPECT_EQ(valueOf(kRoot, L"t")->getValueType(), DWORD{REG_DWORD});
    EXPECT_EQ(codeOf([&] { text->setData(REG_SZ, nullptr, 1); }), ERROR_INVALID_PARAMETER);

    // A found value keeps its type through a stream.
    const std::string found = dumpOf(dynamic_cast<IRegistryValue&>(*find(L"\\t")));
    text->deleteItem();
    ValuePtr loaded;
    EXPECT_EQ(load(loaded, DllGetRegistryValue, found), ERROR_SUCCESS);
    EXPECT_EQ(loaded->getValueType(), DWORD{REG_DWORD});
}

TEST_F(Registry, KeysAreMadeStoredAndDeleted)
{
    const KeyPtr key = keyOf(kRoot + L"\\one\\two\\" + std::wstring(255, L'k'));
    EXPECT_EQ(key->exists(), 0);
    key->create();
    const std::string bytes = dumpOf(*key);
    KeyPtr loaded;
    ASSERT_EQ(load(loaded, DllGetRegistryKey, bytes), ERROR_SUCCESS);
    EXPECT_STREQ(loaded->getPath(), key->getPath());
    EXPECT_NE(loaded->exists(), 0);
    for (const std::size_t at : {std::size_t{0}, bytes.size() - 8, bytes.size() - 3}) // type, root, views
        EXPECT_EQ(load(loaded, DllGetRegistryKey, std::string(bytes).replace(at, 1, 1, 0x0B)), 13);
    // A key below a handle does not become another one through a stream.
    ASSERT_EQ(load(loaded, DllGetRegistryKey, dumpOf(*keyOf(L"one", root))), ERROR_SUCCESS);
    EXPECT_EQ(codeOf([&] { return loaded->exists(); }), ERROR_INVALID_HANDLE);

    // A key is deleted with everything below it, a whole root never.
    keyOf(kRoot + L"\\one")->deleteItem();
    EXPECT_EQ(key->exists(), 0);
    for (const wchar_t* whole : {L"", L"\\"})
        EXPECT_EQ(codeOf([&] { keyOf(whole)->deleteItem(); }), ERROR_INVALID_PARAMETER);
}

TEST_F(Registry, ViewsOfOnePathAreTwoKeys)
{
    const auto keyIn = [](unsigned long view) -> IRegistryKey& {
        static SharedPtr<ScanItem> item;
        item = itemOf(CreateRegistryKey(L"view", HKEY_LOCAL_MACHINE, kRoot.c_str(), view));
        return dynamic_cast<IRegistryKey&>(*item);
    };
    for (const unsigned long view : {kRegistryView32, kRegistryView64}) {
        EXPECT_EQ(codeOf([&] { keyIn(view).deleteItem(); }), ERROR_FILE_NOT_FOUND);
        keyIn(view).create();
        HKEY opened = nullptr;
        const REGSAM access = KEY_WRITE | (view == kRegistryView32 ? KEY_WOW64_32KEY : KEY_WOW64_64KEY);
        EXPECT_EQ(RegOpenKeyExW(HKEY_LOCAL_MACHINE, kRoot.c_str(), 0, access, &opened), ERROR_SUCCESS);
        RegSetValueExW(opened, std::to_wstring(view).c_str(), 0, REG_SZ, nullptr, 0);
        RegCloseKey(opened);
        EXPECT_EQ(RSEngineAddPath(engine, HKEY_LOCAL_MACHINE, kRoot.c_str(), view), ERROR_SUCCESS);
    }
    EXPECT_EQ(scanAdded(), ERROR_SUCCESS); // both views in one engine
    for (const unsigned long view : {kRegistryView32, kRegistryView64}) {
        EXPECT_EQ(collector.paths[L"HKEY_LOCAL_MACHINE\\" + kRoot + L"\\" + std::to_wstring(view)], 1);
        EXPECT_NE(keyIn(view).exists(), 0) << "it went with the other view's";
        keyIn(view).deleteItem();
        EXPECT_EQ(keyIn(view).exists(), 0);
    }
}

TEST_F(Registry, HandlesAndArguments)
{
    void* key = CreateRegistryKey(L"n", HKEY_CURRENT_USER, kRoot.c_str(), kRegistryReadOnly);
    int exists = 0;
    EXPECT_TRUE(ScanItemExists(key, &exists) == ERROR_SUCCESS && exists == 1);
    EXPECT_EQ(OpenScanItem(L"n", kFull.c_str()), key);
    CloseScanItem(key);
    const SharedPtr<ScanItem> item = itemOf(key);
    auto& readOnly = dynamic_cast<IRegistryKey&>(*item);
    EXPECT_EQ(codeOf([&] { readOnly.deleteItem(); }), ERROR_ACCESS_DENIED);
    EXPECT_EQ(codeOf([&] { readOnly.create(); }), ERROR_ACCESS_DENIED);

    // One full path, different things: a registered item is not mistaken for the requested one.
    const HKEY user = HKEY_CURRENT_USER;
    void* filed = CreateRegistryKey(L"n", user, L"a\\b", 0);
    EXPECT_EQ(CreateRegistryKey(L"n", user, L"a\\b", 0), filed);
    CloseScanItem(filed);
    for (void* refused :
         {CreateRegistryKey(L"n", user, L"a\\b", kRegistryView32), CreateRegistryPath(L"n", user, L"a\\b", 0),
          CreateRegistryKey(L"n", root, L"a\\b", 0), CreateRegistryValue(L"n", user, L"a", L"b", 0)})
        EXPECT_EQ(refusalOf(refused), ERROR_ALREADY_EXISTS);
    EXPECT_NE(CloseScanItem(filed), 0);
    EXPECT_EQ(CloseScanItem(filed), 0) << "a refused call left it open";
    EXPECT_EQ(RSEngineAddPath(engine, user, L"x", kRegistryView32 | kRegistryView64), 87);
    EXPECT_EQ(scan(kRoot + L"\\missing", 9), ERROR_FILE_NOT_FOUND);
}

TEST_F(Registry, AllWhoAskForDataAtOnceGetOneReading)
{
    addValue(L"v", "data");
    Replaced<"RegQueryValueExW", decltype(&RegQueryValueExW)> queries;
    EXPECT_EQ(dataOf(*valueOf(kRoot, L"v")), "data");
    const long once = queries.calls();
    const ValuePtr shared = valueOf(kRoot, L"v");
    queries.reset();
    onThreadsAtOnce(8, [&](int) { EXPECT_EQ(dataOf(*shared), "data"); });
    EXPECT_EQ(queries.calls(), once);
}
