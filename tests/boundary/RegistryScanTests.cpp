#include "boundary/RegistryTest.h"

TEST_F(Registry, WideAndDeepKeysAreScannedOnce)
{
    std::vector<std::wstring> names = {L"", std::wstring(16383, L'n'), L"value control\x01\x1F\n"};
    for (const std::wstring& name : names)
        addValue(name, std::string(1048576, 'x'));
    std::vector<std::wstring> keys = {std::wstring(255, L'k'), L"key control\x01\x1F\n", L"key5\\a",
                                      L"key5\\a\\b", L"key5\\a\\b\\c"};
    for (int i = 0; i < 10000; ++i) {
        keys.push_back(L"key" + std::to_wstring(i));
        names.push_back(L"value" + std::to_wstring(i));
        addValue(names.back());
    }
    for (const std::wstring& key : keys)
        addKey(key);
    names.insert(names.end(), keys.begin(), keys.end());
    std::wstring last;
    collector.action = [&](const Notification& notification, const SharedPtr<ScanItem>& item) {
        EXPECT_EQ(notification.getFirst(), item->getType() == kRegistryKeyItem ? 1U : 0U);
        last = item->getPath();
    };
    ASSERT_EQ(scan(), ERROR_SUCCESS);
    expectFound(names);
    EXPECT_EQ(last, kFull + L"\\key5\\a\\b\\c") << "breadth first";
    EXPECT_FALSE(isImpersonating());
    ASSERT_EQ(scan(kRoot, 1), ERROR_SUCCESS);
    EXPECT_EQ(collector.calls, 20005);
}

TEST_F(Registry, NamesThatMoveWhileTheyAreRead)
{
    // Two new ones at the front shift the others by two; then the key is deleted.
    Replaced<"RegEnumValueW", decltype(&RegEnumValueW)> values;
    for (const LSTATUS end : {ERROR_NO_MORE_ITEMS, ERROR_KEY_DELETED}) {
        values.reset();
        values.setHook([&](auto, HKEY, DWORD index, LPWSTR name, LPDWORD length, auto...) -> LSTATUS {
            const wchar_t* const order[] = {L"d", L"e", L"d", L"e", L"e", L"f"};
            if (index >= std::size(order) || values.calls() > 7)
                return end;
            *length = static_cast<DWORD>(std::wcslen(std::wcscpy(name, order[index])));
            return ERROR_SUCCESS;
        });
        EXPECT_EQ(scan(), ERROR_SUCCESS);
        expectFound({L"d", L"e", L"f"});
    }
}

TEST_F(Registry, ACancelAmongValuesAndAmongKeys)
{
    for (const wchar_t* name : {L"1", L"2", L"3"}) {
        addKey(name);
        addValue(name);
    }
    for (const long at : {2L, 5L}) {
        const TestEvent cancel;
        collector.action = [&](const Notification&, const SharedPtr<ScanItem>&) {
            if (collector.calls == at)
                cancel.set();
        };
        EXPECT_TRUE(scan(kRoot, 65535, cancel.get()) == ERROR_CANCELLED && collector.calls == at);
    }
}

// A key that allows half of what a listing needs gives that half; one that allows nothing loses only itself.
TEST_F(Registry, KeysThatRefuseAccess)
{
    addKey(L"guarded\\inner", L"other");
    addValue(L"v", "", L"guarded");
    HKEY guarded = nullptr;
    ASSERT_EQ(RegOpenKeyExW(root, L"guarded", 0, READ_CONTROL | WRITE_DAC, &guarded), ERROR_SUCCESS);
    // READ_CONTROL, WRITE_DAC and what is needed for the values (1) and for the keys (8).
    const std::tuple<const wchar_t*, long, std::vector<std::wstring>> rows[] = {
        {L"D:(A;;0x60009;;;WD)", 0, {L"guarded\\v", L"guarded\\inner"}},
        {L"D:(A;;0x60008;;;WD)", 5, {L"guarded\\inner"}},
        {L"D:(A;;0x60001;;;WD)", 5, {L"guarded\\v"}},
        {L"D:(A;;0x60000;;;WD)", 5, {}},
        {L"D:(A;;KA;;;WD)", 0, {L"guarded\\v", L"guarded\\inner"}}};
    for (const auto& [access, code, below] : rows) {
        ASSERT_EQ(RegSetKeySecurity(guarded, DACL_SECURITY_INFORMATION, descriptorOf(access).get()), 0);
        EXPECT_EQ(scan(), code);
        EXPECT_EQ(collector.codes[kFull + L"\\guarded"], static_cast<DWORD>(code));
        std::vector<std::wstring> names = below;
        names.insert(names.end(), {L"guarded", L"other"});
        expectFound(names);

        // A root ends the scan only when nothing of it can be read.
        for (const std::wstring& path : {kRoot + L"\\guarded", kRoot})
            ASSERT_EQ(RSEngineAddPath(engine, HKEY_CURRENT_USER, path.c_str()), ERROR_SUCCESS);
        EXPECT_EQ(scanAdded(), code);
        EXPECT_EQ(collector.paths.count(kFull + L"\\other"), below.empty() ? 0U : 1U);
        RSEngineClear(engine);
    }
    RegCloseKey(guarded);
}

TEST_F(Registry, FailingCallsOfAWalk)
{
    addKey(L"a\\b", L"c");
    addValue(L"v");
    ASSERT_EQ(scan(), ERROR_SUCCESS);
    ASSERT_EQ(collector.calls, 4);
    Replaced<"RegOpenKeyExW", decltype(&RegOpenKeyExW)> opens(2, ERROR_KEY_DELETED, 0);
    EXPECT_EQ(scan(), ERROR_SUCCESS) << "a key that is gone is no failure";
    EXPECT_EQ(opens.calls(), 3) << "one for each key";
    Replaced<"RegEnumValueW", decltype(&RegEnumValueW)> values;
    // The rest of the walk is not lost, and a failed listing of values loses no keys.
    for (const auto& [open, value, found] :
         {std::tuple{1, 0, 0}, {2, 0, 3}, {3, 0, 4}, {4, 0, 4}, {0, 1, 3}, {0, 2, 4}}) {
        opens.failCall(open, ERROR_REGISTRY_IO_FAILED, 0);
        values.failCall(value, ERROR_REGISTRY_IO_FAILED, 0);
        EXPECT_EQ(scan(), ERROR_REGISTRY_IO_FAILED);
        EXPECT_EQ(collector.calls, found) << open << value;
    }
    // What fails is told, whichever of the two has vanished meanwhile.
    Replaced<"RegEnumKeyExW", decltype(&RegEnumKeyExW)> keys;
    const std::pair<DWORD, DWORD> codes(ERROR_KEY_DELETED, ERROR_REGISTRY_IO_FAILED);
    for (const auto& [ofValues, ofKeys] : {codes, std::pair(codes.second, codes.first)}) {
        opens.failCall(0, 0, 0);
        values.failCall(1, static_cast<LSTATUS>(ofValues), 0);
        keys.failCall(1, static_cast<LSTATUS>(ofKeys), 0);
        EXPECT_EQ(scan(), ERROR_REGISTRY_IO_FAILED) << ofValues;
    }
}

TEST_F(Registry, FailuresOnTheWayToTheUsersHive)
{
    Replaced<"RegOpenCurrentUser", decltype(&RegOpenCurrentUser)> users(1, ERROR_NOT_READY, 0);
    try {
        keyOf(kRoot)->create();
        ADD_FAILURE();
    } catch (const Exception& raised) {
        EXPECT_NE(std::wstring(raised.getText()).find(L"RegistryKey::getHKEY"), std::wstring::npos);
    }
    // The session's user cannot be queried: an ordinary program is that user, the system is not.
    static DWORD refusal = ERROR_NO_TOKEN;
    const LookedUp sessions({{"WTSQueryUserToken", address(+[](ULONG, PHANDLE) -> BOOL {
                                  return SetLastError(refusal), FALSE;
                              })}});
    EXPECT_EQ(scan(), ERROR_NO_TOKEN);
    refusal = ERROR_PRIVILEGE_NOT_HELD;
    EXPECT_EQ(scan(), ERROR_SUCCESS);
    const auto expect = [](const std::string& import, long code) {
        EXPECT_EQ(code, import == "OpenProcessToken"               ? ERROR_PRIVILEGE_NOT_HELD
                        : import == "WTSGetActiveConsoleSessionId" ? ERROR_NO_SUCH_LOGON_SESSION
                                                                   : long{kFailure});
    };
    failEachCall([] {}, [&] { return scan(); }, expect);
    Replaced<"IsWellKnownSid", decltype(&IsWellKnownSid)> sids(1, TRUE, 0);
    EXPECT_EQ(scan(), ERROR_PRIVILEGE_NOT_HELD);
}

// One that never tells the size it needs, and one for which no size is enough.
TEST_F(Registry, ProvidersOfOddValues)
{
    addValue(L"v");
    Replaced<"RegQueryValueExW", decltype(&RegQueryValueExW)> queries;
    for (const DWORD needed : {5000U, 4294967295U}) {
        queries.setHook([&](auto, HKEY, LPCWSTR, LPDWORD, LPDWORD, LPBYTE, LPDWORD length) -> LSTATUS {
            const bool enough = *length >= needed;
            *length = enough ? needed : 0;
            return enough ? ERROR_SUCCESS : ERROR_MORE_DATA;
        });
        EXPECT_EQ(codeOf([&] { EXPECT_EQ(dataOf(*valueOf(kRoot, L"v")).size(), needed); }),
                  needed == 5000 ? ERROR_SUCCESS : ERROR_NOT_ENOUGH_MEMORY);
    }
}

// Deleting stops at the first key that cannot be deleted, and leaves those above it.
TEST_F(Registry, DeletionsThatFail)
{
    const auto remove = [] { keyOf(kRoot)->deleteItem(); };
    for (long n = 1; n <= 4; ++n) {
        addKey(L"a\\b", L"c");
        const Replaced<"NtDeleteKey", decltype(&NtDeleteKey)> tries(n, static_cast<NTSTATUS>(0xC0000022), 0);
        EXPECT_TRUE(codeOf(remove) == ERROR_ACCESS_DENIED && tries.calls() == n);
    }
    // A name with a zero inside, which Win32 would take for its neighbour's name.
    addKey(L"name");
    wchar_t text[] = L"name\0hidden";
    UNICODE_STRING name{sizeof text - sizeof(wchar_t), sizeof text, text};
    OBJECT_ATTRIBUTES attributes{};
    InitializeObjectAttributes(&attributes, &name, 0, root, nullptr);
    HANDLE hidden = nullptr;
    ASSERT_EQ(NtCreateKey(&hidden, KEY_ALL_ACCESS, &attributes, 0, nullptr, 0, nullptr), 0);
    ASSERT_EQ(scan(), ERROR_INVALID_NAME) << "passed over in silence";
    expectFound({L"name"});
    EXPECT_EQ(codeOf(remove), ERROR_INVALID_NAME);
    EXPECT_EQ(NtDeleteKey(hidden), 0) << "it was still there";
    NtClose(hidden);

    // What somebody else deletes meanwhile does not stop it.
    addKey(L"a\\b", L"c");
    Replaced<"RegEnumKeyExW", decltype(&RegEnumKeyExW)> keys(
        after([](LSTATUS status, HKEY key, DWORD, LPWSTR found, auto...) {
            if (status == ERROR_SUCCESS && found[0] == L'c')
                RegDeleteTreeW(key, found);
        }));
    remove();
    EXPECT_EQ(keyOf(kRoot)->exists(), 0);
}

TEST_F(Registry, LinksAreReportedAndNotFollowed)
{
    addKey(L"target\\inside");
    addLink(L"link", L"\\Registry\\Machine\\Software");
    addKey(L"decoy\\hidden");
    RegSetKeyValueW(root, L"decoy", L"SymbolicLinkValue", REG_LINK, L"\\R", 4); // makes it no link
    ASSERT_EQ(scan(), ERROR_SUCCESS);
    expectFound({L"target", L"target\\inside", L"link", L"decoy", L"decoy\\hidden"});

    // A key that replaces a found key.
    for (const wchar_t* key : {L"target", L"found"})
        addValue(L"v", "", key);
    const SharedPtr<ScanItem> value = find(L"\\found\\v");
    ASSERT_TRUE(value);
    ASSERT_EQ(RegDeleteKeyW(root, L"found"), ERROR_SUCCESS);
    addLink(L"found", keyName(root) + L"\\target");
    EXPECT_TRUE(hasValue(root, L"found", L"v"));
    EXPECT_EQ(codeOf([&] { dynamic_cast<IRegistryValue&>(*value).deleteItem(); }), ERROR_FILE_NOT_FOUND);
    EXPECT_TRUE(hasValue(root, L"target", L"v"));
    keyOf(kRoot + L"\\found")->deleteItem();
    EXPECT_TRUE(hasValue(root, L"target", L"v"));
    keyOf(kRoot)->deleteItem();
    EXPECT_TRUE(hasKey(HKEY_LOCAL_MACHINE, L"Software\\Microsoft")) << "the link was followed";
}

// What a walk has found is changed only where it was found: a link that replaced a key on the way is not
// followed; a link on the way to the root is the caller's choice.
TEST_F(Registry, NoLinkOnTheWayIsFollowed)
{
    addValue(L"v", "1", L"top\\sub\\deep");
    addValue(L"v", "precious", L"keep\\sub\\deep");
    std::vector<SharedPtr<ScanItem>> found;
    collector.action = [&](auto&, const SharedPtr<ScanItem>& item) { found.push_back(item); };
    const auto change = [&](unsigned long code) {
        for (const SharedPtr<ScanItem>& item : found) {
            auto* value = dynamic_cast<IRegistryValue*>(item.get());
            if (value == nullptr)
                continue;
            EXPECT_EQ(codeOf([&] { value->setValue(REG_BINARY, "2", 1); }), code);
            EXPECT_EQ(codeOf([&] { value->deleteItem(); }), code);
        }
        EXPECT_EQ(codeOf([&] { dynamic_cast<IRegistryKey&>(*found[1]).deleteItem(); }), code);
    };
    addLink(L"way", keyName(root) + L"\\top");
    ASSERT_EQ(scan(kRoot + L"\\way"), ERROR_SUCCESS);
    ASSERT_EQ(found.size(), 3U);
    RegDeleteTreeW(root, L"top\\sub");
    addLink(L"top\\sub", keyName(root) + L"\\keep\\sub");
    change(681);
    EXPECT_TRUE(hasValue(root, L"keep\\sub\\deep", L"v"));

    keyOf(kRoot + L"\\top\\sub")->deleteItem();
    addValue(L"v", "1", L"top\\sub\\deep");
    change(ERROR_SUCCESS);
    EXPECT_FALSE(hasKey(root, L"top\\sub\\deep"));
    keyOf(kRoot + L"\\way")->deleteItem();
}
