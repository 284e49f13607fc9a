#include "boundary/RegistryTest.h"

TEST(Registry, FullPathsOfTheRoots)
{
    const TestKey key;
    const struct
    {
        HKEY root;
        const wchar_t* name;
    } rows[] = {
        {HKEY_CLASSES_ROOT, L"HKEY_CLASSES_ROOT\\a\\b"},
        {HKEY_LOCAL_MACHINE, L"HKEY_LOCAL_MACHINE\\a\\b"},
        {HKEY_USERS, L"HKEY_USERS\\a\\b"},
        {HKEY_CURRENT_CONFIG, L"HKEY_CURRENT_CONFIG\\a\\b"},
        {HKEY_CURRENT_USER, L"HKEY_CURRENT_USER\\a\\b"},
        {HKEY_PERFORMANCE_DATA, L"HKEY_CURRENT_USER\\a\\b"},
        {key.handle, L"HKEY_CURRENT_USER\\a\\b"},
    };
    for (const auto& row : rows)
        EXPECT_STREQ(KeyPtr(DllGetRegistryKey(row.root, L"a\\b"))->getPath(), row.name);
    EXPECT_STREQ(ValuePtr(DllGetRegistryValue(HKEY_USERS, L"a", L"b\\c"))->getPath(), L"HKEY_USERS\\a\\b\\c");
    EXPECT_STREQ(ValuePtr(DllGetRegistryValue(HKEY_USERS, L"a", L""))->getPath(), L"HKEY_USERS\\a\\");
}

TEST(Registry, KeysAndValuesAreMadeReadAndDeleted)
{
    const TestKey root;
    const std::wstring path = kRoot + L"\\one\\two\\" + std::wstring(255, L'k');
    const KeyPtr key(DllGetRegistryKey(HKEY_CURRENT_USER, path.c_str()));
    EXPECT_EQ(key->exists(), 0);
    key->create();
    EXPECT_NE(key->exists(), 0);

    std::string megabyte(1048576, 'x');
    const struct
    {
        std::wstring name;
        DWORD type;
        std::string data;
    } rows[] = {
        {L"", REG_SZ, std::string("d\0\0\0", 4)},
        {std::wstring(16383, L'n'), REG_BINARY, "abc"},
        {L"large", REG_BINARY, megabyte},
        {L"control\x01\x1F\n", REG_EXPAND_SZ, ""},
        {L"number", REG_DWORD, std::string("\1\2\3\4", 4)},
        {L"big endian", REG_DWORD_BIG_ENDIAN, std::string("\1\2\3\4", 4)},
        {L"quad", REG_QWORD, "12345678"},
        {L"multi", REG_MULTI_SZ, std::string("a\0\0\0\0\0", 6)},
        {L"none", REG_NONE, "odd"},
        {L"resources", REG_RESOURCE_LIST, "r"},
        {L"hardware", REG_FULL_RESOURCE_DESCRIPTOR, "h"},
        {L"requirements", REG_RESOURCE_REQUIREMENTS_LIST, "q"},
        {L"link", REG_LINK, "l"},
        {L"strange", 0x4711, "s"},
    };
    for (const auto& row : rows) {
        const ValuePtr value(DllGetRegistryValue(HKEY_CURRENT_USER, path.c_str(), row.name.c_str()));
        EXPECT_EQ(value->exists(), 0);
        value->setData(row.type, row.data.data(), static_cast<unsigned long>(row.data.size()));
        EXPECT_EQ(value->exists(), 0);
        value->create();
        EXPECT_NE(value->exists(), 0);
        const ValuePtr reader(DllGetRegistryValue(HKEY_CURRENT_USER, path.c_str(), row.name.c_str()));
        EXPECT_EQ(reader->getValueType(), row.type);
        unsigned long size = 0;
        const void* data = reader->getData(size);
        EXPECT_EQ(std::string(static_cast<const char*>(data), size), row.data);

        // Through a stream and back, with and without the common parts.
        for (const unsigned long code : {kStateNone, kStateType, kStatePath, kStateAll}) {
            MemoryOutputByteStream stored;
            reader->dump(code, stored);
            MemoryInputByteStream stream(stored.getData(), stored.getSize());
            const ValuePtr loaded(DllGetRegistryValue(code, stream));
            ASSERT_NE(loaded, nullptr);
            EXPECT_STREQ(loaded->getName(), row.name.c_str());
            EXPECT_EQ(loaded->getValueType(), row.type);
            EXPECT_EQ(std::string(static_cast<const char*>(loaded->getData(size)), size), row.data);
            EXPECT_EQ(std::wstring(loaded->getPath()),
                      (code & kStatePath) != 0 ? reader->getPath() : L"HKEY_CURRENT_USER\\" + row.name);
            const auto* bytes = reinterpret_cast<const char*>(stored.getData());
            for (std::size_t length = 0; length < std::min<std::size_t>(stored.getSize(), 600); ++length) {
                MemoryInputByteStream cut(bytes, length);
                EXPECT_EQ(DllGetRegistryValue(code, cut), nullptr);
                EXPECT_EQ(GetLastError(), ERROR_READ_FAULT);
            }
            // A length that lies, wherever there is one.
            const std::string hostile = "\xFE\xFF\xFF\xFF\xFF\xFF\xFF\xFF";
            for (std::size_t at = 0; at + 8 <= std::min<std::size_t>(stored.getSize(), 200); ++at) {
                const std::string changed = std::string(bytes, stored.getSize()).replace(at, 8, hostile);
                MemoryInputByteStream lying(changed.data(), changed.size());
                if (ValuePtr(DllGetRegistryValue(code, lying)) == nullptr)
                    EXPECT_TRUE(GetLastError() == ERROR_READ_FAULT || GetLastError() == ERROR_INVALID_DATA);
                else
                    EXPECT_TRUE(at >= 8) << "the first field of each form is a length, a type or a root";
            }
        }
        reader->deleteItem();
        EXPECT_EQ(reader->exists(), 0);
        EXPECT_EQ(codeOf([&] { reader->deleteItem(); }), ERROR_FILE_NOT_FOUND);
    }
    const ValuePtr text(DllGetRegistryValue(HKEY_CURRENT_USER, path.c_str(), L"t", L"text"));
    text->create();
    text->setValue(REG_DWORD, "\5\0\0", 4);
    EXPECT_EQ(ValuePtr(DllGetRegistryValue(HKEY_CURRENT_USER, path.c_str(), L"t"))->getValueType(),
              static_cast<unsigned long>(REG_DWORD));
    EXPECT_EQ(codeOf([&] { text->setData(REG_SZ, nullptr, 1); }), ERROR_INVALID_PARAMETER);

    // A key through a stream and back; another type, a foreign root and both views are refused.
    MemoryOutputByteStream stored;
    key->dump(kStateAll, stored);
    const std::string bytes(reinterpret_cast<const char*>(stored.getData()), stored.getSize());
    MemoryInputByteStream whole(bytes.data(), bytes.size());
    EXPECT_STREQ(KeyPtr(DllGetRegistryKey(kStateAll, whole))->getPath(), key->getPath());
    for (const std::size_t at : {std::size_t{0}, bytes.size() - 8, bytes.size() - 3}) {
        std::string changed = bytes;
        changed[at] = 0x0B;
        MemoryInputByteStream stream(changed.data(), changed.size());
        EXPECT_EQ(DllGetRegistryKey(kStateAll, stream), nullptr) << at;
        EXPECT_EQ(GetLastError(), ERROR_INVALID_DATA);
    }

    // The two views of one path are two keys.
    const std::wstring machine = L"Software\\sysmaint-test";
    const auto keyIn = [&](unsigned long view) {
        void* handle = CreateRegistryKey(L"view", HKEY_LOCAL_MACHINE, machine.c_str(), view);
        SharedPtr<ScanItem> item;
        GetScanItemByHandle(handle, item);
        CloseScanItem(handle);
        return item;
    };
    for (const unsigned long view : {kRegistryView32, kRegistryView64}) {
        const auto made = keyIn(view);
        dynamic_cast<IRegistryKey&>(*made).create();
        const unsigned long other = kRegistryView32 + kRegistryView64 - view;
        EXPECT_EQ(dynamic_cast<IRegistryKey&>(*keyIn(other)).exists(), 0);
        EXPECT_EQ(codeOf([&] { dynamic_cast<IRegistryKey&>(*keyIn(other)).deleteItem(); }),
                  ERROR_FILE_NOT_FOUND);
        dynamic_cast<IRegistryKey&>(*made).deleteItem();
        EXPECT_EQ(dynamic_cast<IRegistryKey&>(*made).exists(), 0);
    }

    // A key goes with all that is below it, a whole root never.
    KeyPtr(DllGetRegistryKey(HKEY_CURRENT_USER, (kRoot + L"\\one").c_str()))->deleteItem();
    EXPECT_EQ(key->exists(), 0);
    EXPECT_EQ(codeOf([] { KeyPtr(DllGetRegistryKey(HKEY_CURRENT_USER, L""))->deleteItem(); }),
              ERROR_INVALID_PARAMETER);
    EXPECT_EQ(codeOf([] { KeyPtr(DllGetRegistryKey(HKEY_CURRENT_USER, L"\\"))->deleteItem(); }),
              ERROR_INVALID_PARAMETER);
}

TEST(Registry, HandlesAndArguments)
{
    const TestKey root;
    void* key = CreateRegistryKey(L"n", HKEY_CURRENT_USER, kRoot.c_str(), kRegistryReadOnly);
    int exists = 0;
    EXPECT_EQ(ScanItemExists(key, &exists), ERROR_SUCCESS);
    EXPECT_EQ(exists, 1);
    EXPECT_EQ(OpenScanItem(L"n", kFull.c_str()), key);
    CloseScanItem(key);
    SharedPtr<ScanItem> item;
    ASSERT_EQ(GetScanItemByHandle(key, item), ERROR_SUCCESS);
    auto* readOnly = dynamic_cast<IRegistryKey*>(item.get());
    ASSERT_NE(readOnly, nullptr);
    EXPECT_EQ(codeOf([&] { readOnly->deleteItem(); }), ERROR_ACCESS_DENIED);
    EXPECT_EQ(codeOf([&] { readOnly->create(); }), ERROR_ACCESS_DENIED);
    CloseScanItem(key);

    const HKEY user = HKEY_CURRENT_USER;
    const unsigned long both = kRegistryView32 | kRegistryView64;
    void* const results[] = {
        CreateRegistryKey(nullptr, user, L"x", 0),         CreateRegistryKey(L"n", nullptr, L"x", 0),
        CreateRegistryKey(L"n", user, nullptr, 0),         CreateRegistryKey(L"n", user, L"x", both),
        CreateRegistryValue(nullptr, user, L"x", L"v", 0), CreateRegistryValue(L"n", user, nullptr, L"v", 0),
        CreateRegistryValue(L"n", user, L"x", nullptr, 0), CreateRegistryPath(nullptr, user, L"x", 0),
        CreateRegistryPath(L"n", nullptr, L"x", 0),        CreateRegistryPath(L"n", user, nullptr, 0),
    };
    for (void* result : results)
        EXPECT_EQ(result, INVALID_HANDLE_VALUE);
    EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
    EXPECT_EQ(DllGetRegistryKey(nullptr, L"x"), nullptr);
    EXPECT_EQ(DllGetRegistryKey(user, nullptr), nullptr);
    EXPECT_EQ(DllGetRegistryValue(user, L"x", nullptr), nullptr);
    EXPECT_EQ(DllGetRegistryValue(user, L"x", L"v", nullptr), nullptr);

    // One full path, different things: what is filed is not mistaken for what was asked for.
    void* filed = CreateRegistryKey(L"n", user, L"a\\b", 0);
    EXPECT_EQ(CreateRegistryKey(L"n", user, L"a\\b", 0), filed);
    CloseScanItem(filed);
    EXPECT_EQ(CreateRegistryValue(L"n", user, L"a", L"b", 0), INVALID_HANDLE_VALUE);
    EXPECT_EQ(GetLastError(), ERROR_ALREADY_EXISTS);
    EXPECT_EQ(CreateRegistryKey(L"n", user, L"a\\b", kRegistryView32), INVALID_HANDLE_VALUE);
    EXPECT_EQ(CreateRegistryKey(L"n", root.handle, L"a\\b", 0), INVALID_HANDLE_VALUE);
    EXPECT_EQ(CreateRegistryPath(L"n", user, L"a\\b", 0), INVALID_HANDLE_VALUE);
    EXPECT_NE(CloseScanItem(filed), 0);
    EXPECT_EQ(CloseScanItem(filed), 0) << "a refused call left it open";

    Collector collector;
    const TestRegistryEngine engine(collector);
    EXPECT_EQ(RSEngineAddPath(engine.handle, nullptr, L"x"), ERROR_INVALID_PARAMETER);
    EXPECT_EQ(RSEngineAddPath(engine.handle, user, nullptr), ERROR_INVALID_PARAMETER);
    EXPECT_EQ(RSEngineAddPath(engine.handle, user, L"x", both), ERROR_INVALID_PARAMETER);
    NotifyProvider provider;
    for (void* wrong : {static_cast<void*>(nullptr), INVALID_HANDLE_VALUE, reinterpret_cast<void*>(99999)}) {
        EXPECT_EQ(RSEngineAddPath(wrong, user, L"x"), ERROR_INVALID_HANDLE);
        EXPECT_EQ(RSEngineRegisterHandler(wrong, collector, 0, 0, 0), ERROR_INVALID_HANDLE);
        EXPECT_EQ(RSEngineRegisterHandlers(wrong, provider, 0, 0), ERROR_INVALID_HANDLE);
        EXPECT_EQ(RSEngineScan(wrong, nullptr, everything(), {}), ERROR_INVALID_HANDLE);
        EXPECT_EQ(RSEngineClearHandlers(wrong), ERROR_INVALID_HANDLE);
        EXPECT_EQ(RSEngineClear(wrong), ERROR_INVALID_HANDLE);
        EXPECT_EQ(CloseRegistryScanEngine(wrong), 0);
    }
    EXPECT_EQ(CreateRegistryScanEngine(nullptr), INVALID_HANDLE_VALUE);
    EXPECT_EQ(OpenRegistryScanEngine(L"none"), INVALID_HANDLE_VALUE);
    EXPECT_EQ(engine.scan(9, nullptr, (kRoot + L"\\missing").c_str()), ERROR_FILE_NOT_FOUND);

    // An engine without a handle does the same.
    root.addValue(L"v");
    const std::unique_ptr<IRegistryScanEngine> own(DllGetRegistryScanEngine());
    own->registerHandler(collector, kLeafFound, 0, 0);
    own->addPath(user, kRoot.c_str(), 0);
    EXPECT_EQ(own->scan(nullptr, everything(), {}), ERROR_SUCCESS);
    EXPECT_EQ(collector.paths.count(kFull + L"\\v"), 1U);

    // Another provider's registrations serve as well.
    provider.registerHandler(collector, kLeafFound, 0, 0);
    own->clearNotifyHandlers();
    EXPECT_EQ(codeOf([&] { own->scan(nullptr, everything(), {}); }), ERROR_NOT_FOUND);
    RSEngineClearHandlers(engine.handle);
    RSEngineClear(engine.handle);
    RSEngineAddPath(engine.handle, user, kRoot.c_str());
    EXPECT_EQ(RSEngineRegisterHandlers(engine.handle, provider, 0, 0), ERROR_SUCCESS);
    EXPECT_EQ(RSEngineScan(engine.handle, nullptr, everything(), {}), ERROR_SUCCESS);
    EXPECT_EQ(collector.paths.at(kFull + L"\\v"), 2);
}
