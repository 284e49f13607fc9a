#include "boundary/RegistryTest.h"

#include <sddl.h>

#include "support/Threads.h"

namespace {
bool isImpersonating()
{
    HANDLE token = nullptr;
    const bool found = OpenThreadToken(GetCurrentThread(), TOKEN_QUERY, TRUE, &token) != 0;
    if (found)
        CloseHandle(token);
    return found;
}

/// Makes call `number` of one import of the DLL fail: `operation` gives `code`, and nobody stays
/// impersonated.
template <ImportName Name, class Function, class Result, class Operation>
void expectFault(Result result, DWORD code, Operation&& operation, long number = 1)
{
    CountedImport<Name, Function> import(sysmaintModule());
    import.failCall(number, result, code);
    EXPECT_EQ(static_cast<DWORD>(operation()), code) << Name.text;
    EXPECT_GE(import.calls(), number) << Name.text;
    EXPECT_FALSE(isImpersonating());
}

/// What WTSQueryUserToken fails with in refuseToken.
DWORD refusal = 0;
BOOL WINAPI refuseToken(ULONG, PHANDLE)
{
    SetLastError(refusal);
    return FALSE;
}
} // namespace

TEST(Registry, WideAndDeepKeysAreScannedOnce)
{
    const TestKey root;
    for (int i = 0; i < 10000; ++i) {
        root.addKey(L"key" + std::to_wstring(i));
        root.addValue(L"value" + std::to_wstring(i));
    }
    root.addKey(L"key5\\a\\b\\c");
    const std::wstring longest[] = {L"", std::wstring(16383, L'n'), L"control\x01\x1F\n"};
    for (const std::wstring& name : longest)
        root.addValue(name, REG_BINARY, std::string(1048576, 'x'));
    const std::wstring longKeys[] = {std::wstring(255, L'k'), L"key control\x01\x1F\n"};
    for (const std::wstring& name : longKeys)
        root.addKey(name);
    Collector collector;
    std::vector<std::wstring> order;
    collector.action = [&](const Notification& notification, const SharedPtr<ScanItem>& item) {
        EXPECT_EQ(notification.getFirst(), item->getType() == kRegistryKeyItem ? 1U : 0U);
        order.push_back(item->getPath());
    };
    const TestRegistryEngine engine(collector);
    ASSERT_EQ(engine.scan(), ERROR_SUCCESS);
    EXPECT_EQ(collector.paths.size(), 20008U);
    EXPECT_EQ(collector.calls, 20008);
    const auto full = [](const std::wstring& name) { return std::wstring(kFull).append(L"\\").append(name); };
    for (const std::wstring& name : longest)
        EXPECT_EQ(collector.paths.count(full(name)), 1U);
    for (const std::wstring& name : longKeys)
        EXPECT_EQ(collector.paths.count(full(name)), 1U);
    for (int i = 0; i < 10000; ++i) {
        ASSERT_EQ(collector.paths.count(kFull + L"\\key" + std::to_wstring(i)), 1U);
        ASSERT_EQ(collector.paths.count(kFull + L"\\value" + std::to_wstring(i)), 1U);
    }
    EXPECT_EQ(order.back(), kFull + L"\\key5\\a\\b\\c") << "breadth first";
    collector.calls = 0;
    ASSERT_EQ(engine.scan(1), ERROR_SUCCESS);
    EXPECT_EQ(collector.calls, 20005);
    EXPECT_EQ(isImpersonating(), false);

    // Entries that come and go under the walk: it goes on, and nothing is told twice.
    collector.paths.clear();
    collector.calls = 0;
    collector.action = [&](const Notification&, const SharedPtr<ScanItem>& item) {
        if (collector.calls == 10) {
            root.addValue(L"0 new");
            root.addKey(L"0 new");
            RegDeleteValueW(root.handle, L"value9");
            RegDeleteTreeW(root.handle, L"key9");
        }
        if (item->getPath() == kFull + L"\\key7")
            RegDeleteKeyW(root.handle, L"key7"); // found, and gone before it is listed
    };
    EXPECT_EQ(engine.scan(), ERROR_SUCCESS);
    for (const auto& [path, count] : collector.paths)
        ASSERT_EQ(count, 1) << std::string(path.begin(), path.end());
    EXPECT_GE(collector.paths.size(), 20007U);

    HANDLE event = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    collector.calls = 0;
    collector.action = [&](const Notification&, const SharedPtr<ScanItem>&) {
        if (collector.calls == 100)
            SetEvent(event);
    };
    EXPECT_EQ(engine.scan(65535, event), ERROR_CANCELLED);
    EXPECT_EQ(collector.calls, 100);
    CloseHandle(event);
}

// A key that allows half of what a listing needs gives that half; one that allows nothing loses only itself.
TEST(Registry, KeysThatRefuseAccess)
{
    const TestKey root;
    root.addKey(L"guarded\\inner");
    root.addKey(L"other");
    RegSetKeyValueW(root.handle, L"guarded", L"v", REG_SZ, L"x", 4);
    HKEY guarded = nullptr;
    ASSERT_EQ(RegOpenKeyExW(root.handle, L"guarded", 0, READ_CONTROL | WRITE_DAC, &guarded), ERROR_SUCCESS);
    const struct
    {
        const wchar_t* access;
        DWORD code;
        int value;
        int inner;
    } rows[] = {
        {L"D:(A;;0x60009;;;WD)", ERROR_SUCCESS, 1, 1}, // READ_CONTROL, WRITE_DAC and both
        {L"D:(A;;0x60008;;;WD)", ERROR_ACCESS_DENIED, 0, 1},
        {L"D:(A;;0x60001;;;WD)", ERROR_ACCESS_DENIED, 1, 0},
        {L"D:(A;;0x60000;;;WD)", ERROR_ACCESS_DENIED, 0, 0},
        {L"D:(A;;KA;;;WD)", ERROR_SUCCESS, 1, 1},
    };
    for (const auto& row : rows) {
        PSECURITY_DESCRIPTOR descriptor = nullptr;
        ASSERT_TRUE(ConvertStringSecurityDescriptorToSecurityDescriptorW(row.access, SDDL_REVISION_1,
                                                                         &descriptor, nullptr));
        ASSERT_EQ(RegSetKeySecurity(guarded, DACL_SECURITY_INFORMATION, descriptor), ERROR_SUCCESS);
        LocalFree(descriptor);
        Collector collector;
        const TestRegistryEngine engine(collector);
        const DWORD handles = processHandleCount();
        EXPECT_EQ(engine.scan(), static_cast<long>(row.code)) << row.code;
        RSEngineClear(engine.handle);
        EXPECT_LE(processHandleCount(), handles);
        EXPECT_EQ(collector.calls, 2 + row.value + row.inner);
        EXPECT_EQ(collector.paths[kFull + L"\\guarded\\v"], row.value);
        EXPECT_EQ(collector.paths[kFull + L"\\guarded\\inner"], row.inner);
        EXPECT_EQ(collector.paths[kFull + L"\\other"], 1);

        // As a root it ends the scan only when nothing of it can be had.
        collector.paths.clear();
        ASSERT_EQ(RSEngineAddPath(engine.handle, HKEY_CURRENT_USER, (kRoot + L"\\guarded").c_str()), 0);
        ASSERT_EQ(RSEngineAddPath(engine.handle, HKEY_CURRENT_USER, kRoot.c_str()), 0);
        EXPECT_EQ(RSEngineScan(engine.handle, nullptr, everything(), ScanOptions{}),
                  static_cast<long>(row.code));
        EXPECT_EQ(collector.paths.count(kFull + L"\\other"), row.value + row.inner != 0 ? 1U : 0U);
        RSEngineClear(engine.handle);
    }
    RegCloseKey(guarded);
}

// Each registry call fails in turn: the code arrives, no key stays open, nobody stays impersonated.
TEST(Registry, FailingCalls)
{
    const TestKey root;
    root.addKey(L"a\\b");
    root.addKey(L"c");
    root.addValue(L"v");
    Collector collector;
    const TestRegistryEngine engine(collector);
    ASSERT_EQ(engine.scan(), ERROR_SUCCESS);
    const long all = collector.calls;
    RSEngineClear(engine.handle);
    const HMODULE dll = sysmaintModule();
    CountedImport<"RegOpenKeyExW", decltype(&RegOpenKeyExW)> opens(dll);
    CountedImport<"RegCloseKey", decltype(&RegCloseKey)> closes(dll);
    CountedImport<"RegEnumKeyExW", decltype(&RegEnumKeyExW)> keys(dll);
    CountedImport<"RegEnumValueW", decltype(&RegEnumValueW)> values(dll);
    CountedImport<"RegOpenCurrentUser", decltype(&RegOpenCurrentUser)> users(dll);
    const DWORD handles = processHandleCount();
    const auto walk = [&] {
        collector.calls = 0;
        closes.reset();
        const long code = engine.scan();
        RSEngineClear(engine.handle); // drops the root with its hive
        EXPECT_FALSE(isImpersonating());
        EXPECT_LE(processHandleCount(), handles);
        return code;
    };
    opens.reset();
    ASSERT_EQ(walk(), ERROR_SUCCESS);
    const long opened = opens.calls();
    ASSERT_EQ(opened, 4);
    EXPECT_EQ(closes.calls(), opened + 1);
    for (long n = 1; n <= opened; ++n) {
        opens.failCall(n, ERROR_REGISTRY_IO_FAILED, 0);
        EXPECT_EQ(walk(), ERROR_REGISTRY_IO_FAILED);
        EXPECT_EQ(collector.calls, n == 1 ? 0 : n == 2 ? all - 1 : all) << "the rest of the walk is not lost";
        EXPECT_EQ(closes.calls(), n == 1 ? 1 : n == 2 ? opened - 1 : opened);
    }
    opens.failCall(2, ERROR_KEY_DELETED, 0);
    EXPECT_EQ(walk(), ERROR_SUCCESS) << "a key that is gone is no failure";
    opens.failCall(0, 0, 0);
    for (long n = 1; n <= 7; ++n) {
        keys.failCall(n, ERROR_REGISTRY_IO_FAILED, 0);
        EXPECT_EQ(walk(), ERROR_REGISTRY_IO_FAILED) << n;
    }
    keys.failCall(0, 0, 0);
    for (long n = 1; n <= 5; ++n) {
        values.failCall(n, ERROR_REGISTRY_IO_FAILED, 0);
        EXPECT_EQ(walk(), ERROR_REGISTRY_IO_FAILED) << n;
        EXPECT_EQ(collector.calls, n == 1 ? all - 1 : all) << "a failed listing of values loses no keys";
    }
    values.failCall(0, 0, 0);

    // Getting at the user's hive.
    users.failCall(1, ERROR_NOT_READY, 0);
    EXPECT_EQ(walk(), ERROR_NOT_READY);
    users.failCall(1, ERROR_NOT_READY, 0);
    try {
        KeyPtr(DllGetRegistryKey(HKEY_CURRENT_USER, kRoot.c_str()))->create();
        ADD_FAILURE() << "nothing was raised";
    } catch (const Exception& raised) {
        EXPECT_NE(std::wstring_view(raised.getText()).find(L"RegistryKey::getHKEY"), std::wstring_view::npos);
    }
    users.failCall(0, 0, 0);
    {
        CountedImport<"RevertToSelf", decltype(&RevertToSelf)> reverts(dll);
        reverts.failCall(1, FALSE, ERROR_BAD_IMPERSONATION_LEVEL);
        EXPECT_EQ(walk(), ERROR_BAD_IMPERSONATION_LEVEL);
    }
    {
        CountedImport<"OpenThreadToken", decltype(&OpenThreadToken)> tokens(dll);
        tokens.failCall(1, FALSE, ERROR_ACCESS_DENIED);
        EXPECT_EQ(walk(), ERROR_ACCESS_DENIED);
    }
    {
        CountedImport<"WTSGetActiveConsoleSessionId", decltype(&WTSGetActiveConsoleSessionId)> sessions(dll);
        sessions.failCall(1, 0xFFFFFFFF, 0);
        EXPECT_EQ(walk(), ERROR_NO_SUCH_LOGON_SESSION);
        sessions.failCall(1, 0xFFFFFFFF, 0);
        EXPECT_EQ(ImpersonateCurrentUser(), ERROR_NO_SUCH_LOGON_SESSION);
        EXPECT_FALSE(isImpersonating());
    }
    expectFault<"LoadLibraryExW", decltype(&LoadLibraryExW)>(nullptr, ERROR_MOD_NOT_FOUND, walk);
    expectFault<"GetProcAddress", decltype(&GetProcAddress)>(nullptr, ERROR_PROC_NOT_FOUND, walk);
    expectFault<"ImpersonateLoggedOnUser", decltype(&ImpersonateLoggedOnUser)>(FALSE, ERROR_NOT_ENOUGH_QUOTA,
                                                                               walk);
    {
        // The session's user cannot be asked for: an ordinary program is that user, the system is not.
        CountedImport<"GetProcAddress", decltype(&GetProcAddress)> addresses(dll);
        addresses.setHook([](auto original, HMODULE library, LPCSTR name) -> FARPROC {
            return std::strcmp(name, "WTSQueryUserToken") == 0
                       ? reinterpret_cast<FARPROC>(reinterpret_cast<void*>(&refuseToken))
                       : original(library, name);
        });
        refusal = ERROR_NO_TOKEN;
        EXPECT_EQ(walk(), ERROR_NO_TOKEN);
        refusal = ERROR_PRIVILEGE_NOT_HELD;
        EXPECT_EQ(walk(), ERROR_SUCCESS);
        expectFault<"ImpersonateSelf", decltype(&ImpersonateSelf)>(FALSE, ERROR_NOT_ENOUGH_QUOTA, walk);
        CountedImport<"IsWellKnownSid", decltype(&IsWellKnownSid)> sids(dll);
        sids.failCall(1, TRUE, 0);
        EXPECT_EQ(walk(), ERROR_PRIVILEGE_NOT_HELD);
        EXPECT_EQ(sids.calls(), 1);
        CountedImport<"OpenProcessToken", decltype(&OpenProcessToken)> tokens(dll);
        tokens.failCall(1, FALSE, ERROR_ACCESS_DENIED);
        EXPECT_EQ(walk(), ERROR_PRIVILEGE_NOT_HELD);
    }
    // A caller who is somebody else already stays so.
    ASSERT_TRUE(ImpersonateSelf(SecurityImpersonation));
    collector.calls = 0;
    EXPECT_EQ(engine.scan(), ERROR_SUCCESS);
    EXPECT_EQ(collector.calls, all);
    EXPECT_TRUE(isImpersonating());
    {
        CountedImport<"SetThreadToken", decltype(&SetThreadToken)> tokens(dll);
        tokens.failCall(1, FALSE, ERROR_ACCESS_DENIED);
        EXPECT_EQ(engine.scan(), ERROR_ACCESS_DENIED);
    }
    RevertToSelf();
    EXPECT_EQ(ImpersonateCurrentUser(), ERROR_SUCCESS);
    EXPECT_TRUE(isImpersonating());
    RevertToSelf();

    // Making, reading and deleting single items. What was there before is there still.
    const ValuePtr value(DllGetRegistryValue(HKEY_CURRENT_USER, kRoot.c_str(), L"v", L"new"));
    const KeyPtr fresh(DllGetRegistryKey(HKEY_CURRENT_USER, (kRoot + L"\\fresh").c_str()));
    const auto codeOfRead = [&](auto read) {
        return codeOf([&] { read(*ValuePtr(DllGetRegistryValue(HKEY_CURRENT_USER, kRoot.c_str(), L"v"))); });
    };
    unsigned long size = 0;
    expectFault<"RegCreateKeyExW", decltype(&RegCreateKeyExW)>(
        ERROR_DISK_FULL, ERROR_DISK_FULL, [&] { return codeOf([&] { fresh->create(); }); });
    EXPECT_EQ(fresh->exists(), 0);
    for (int set = 0; set < 2; ++set)
        expectFault<"RegSetValueExW", decltype(&RegSetValueExW)>(ERROR_DISK_FULL, ERROR_DISK_FULL, [&] {
            return codeOf([&] { set != 0 ? value->setValue(REG_BINARY, L"x", 4) : value->create(); });
        });
    EXPECT_STREQ(static_cast<const wchar_t*>(value->getData(size)), L"new") << "kept, as it was not written";
    EXPECT_EQ(value->getValueType(), static_cast<unsigned long>(REG_SZ));
    expectFault<"RegDeleteValueW", decltype(&RegDeleteValueW)>(
        ERROR_ACCESS_DENIED, ERROR_ACCESS_DENIED, [&] { return codeOf([&] { value->deleteItem(); }); });
    const ValuePtr old(DllGetRegistryValue(HKEY_CURRENT_USER, kRoot.c_str(), L"v"));
    old->getData(size);
    EXPECT_EQ(size, 0U) << "as the test made it";
    for (long n = 1; n <= 2; ++n)
        expectFault<"RegQueryValueExW", decltype(&RegQueryValueExW)>(
            ERROR_ACCESS_DENIED, ERROR_ACCESS_DENIED,
            [&] { return codeOfRead([&](IRegistryValue& item) { item.getData(size); }); }, n);
    expectFault<"RegQueryValueExW", decltype(&RegQueryValueExW)>(
        ERROR_ACCESS_DENIED, ERROR_ACCESS_DENIED,
        [&] { return codeOfRead([](IRegistryValue& item) { static_cast<void>(item.exists()); }); });
    expectFault<"RegQueryValueExW", decltype(&RegQueryValueExW)>(
        ERROR_ACCESS_DENIED, ERROR_ACCESS_DENIED,
        [&] { return codeOfRead([](IRegistryValue& item) { static_cast<void>(item.getValueType()); }); });
    {
        // A provider that never says how much it takes.
        CountedImport<"RegQueryValueExW", decltype(&RegQueryValueExW)> queries(dll);
        queries.setHook([](auto, HKEY, LPCWSTR, LPDWORD, LPDWORD, LPBYTE, LPDWORD length) -> LSTATUS {
            const bool enough = *length >= 5000;
            *length = enough ? 5000 : 0;
            return enough ? ERROR_SUCCESS : ERROR_MORE_DATA;
        });
        EXPECT_EQ(codeOfRead([&](IRegistryValue& item) { item.getData(size); }), ERROR_SUCCESS);
        EXPECT_EQ(size, 5000U);
        queries.setHook([](auto, HKEY, LPCWSTR, LPDWORD, LPDWORD, LPBYTE, LPDWORD length) -> LSTATUS {
            *length = 0;
            return ERROR_MORE_DATA;
        });
        EXPECT_EQ(codeOfRead([&](IRegistryValue& item) { item.getData(size); }), ERROR_NOT_ENOUGH_MEMORY);
    }

    // Deleting stops at the first that cannot go, and leaves what is above it.
    {
        CountedImport<"NtDeleteKey", long (*)(HANDLE)> deletes(dll);
        for (long n = 1; n <= 4; ++n) {
            deletes.failCall(n, static_cast<long>(0xC0000022), 0); // STATUS_ACCESS_DENIED
            EXPECT_EQ(
                codeOf([] { KeyPtr(DllGetRegistryKey(HKEY_CURRENT_USER, kRoot.c_str()))->deleteItem(); }),
                ERROR_ACCESS_DENIED);
            EXPECT_NE(KeyPtr(DllGetRegistryKey(HKEY_CURRENT_USER, kRoot.c_str()))->exists(), 0);
            root.addKey(L"a\\b");
            root.addKey(L"c");
        }
    }
    // What somebody else deletes meanwhile does not stop it.
    keys.setHook([&](auto original, HKEY key, DWORD index, LPWSTR name, auto... rest) {
        const LSTATUS status = original(key, index, name, rest...);
        if (status == ERROR_SUCCESS && name[0] == L'c')
            RegDeleteTreeW(key, name);
        return status;
    });
    KeyPtr(DllGetRegistryKey(HKEY_CURRENT_USER, kRoot.c_str()))->deleteItem();
    EXPECT_EQ(KeyPtr(DllGetRegistryKey(HKEY_CURRENT_USER, kRoot.c_str()))->exists(), 0);
    EXPECT_LE(processHandleCount(), handles);
}

TEST(Registry, LinksAreReportedAndNotFollowed)
{
    const TestKey root;
    root.addKey(L"target\\inside");
    HKEY link = nullptr;
    ASSERT_EQ(RegCreateKeyExW(root.handle, L"link", 0, nullptr, REG_OPTION_CREATE_LINK,
                              KEY_ALL_ACCESS | KEY_CREATE_LINK, nullptr, &link, nullptr),
              ERROR_SUCCESS);
    const std::wstring target = L"\\Registry\\Machine\\Software";
    ASSERT_EQ(RegSetValueExW(link, L"SymbolicLinkValue", 0, REG_LINK,
                             reinterpret_cast<const BYTE*>(target.data()),
                             static_cast<DWORD>(target.size() * sizeof(wchar_t))),
              ERROR_SUCCESS);
    RegCloseKey(link);
    // A key that carries a link's value is none.
    root.addKey(L"decoy\\hidden");
    RegSetKeyValueW(root.handle, L"decoy", L"SymbolicLinkValue", REG_LINK, target.data(), 4);
    Collector collector;
    const TestRegistryEngine engine(collector);
    ASSERT_EQ(engine.scan(), ERROR_SUCCESS);
    EXPECT_EQ(collector.paths.size(), 5U);
    EXPECT_EQ(collector.paths.count(kFull + L"\\link"), 1U);
    EXPECT_EQ(collector.paths.count(kFull + L"\\decoy\\hidden"), 1U);

    // A name with a zero inside, which Win32 would take for that of its innocent neighbour.
    root.addKey(L"above\\name");
    HKEY above = nullptr;
    ASSERT_EQ(RegOpenKeyW(root.handle, L"above", &above), ERROR_SUCCESS);
    wchar_t text[] = L"name\0hidden";
    UNICODE_STRING name{sizeof text - sizeof(wchar_t), sizeof text, text};
    OBJECT_ATTRIBUTES attributes{};
    InitializeObjectAttributes(&attributes, &name, 0, above, nullptr);
    HANDLE hidden = nullptr;
    ASSERT_EQ(NtCreateKey(&hidden, KEY_ALL_ACCESS, &attributes, 0, nullptr, 0, nullptr), 0);
    collector.paths.clear();
    ASSERT_EQ(engine.scan(), ERROR_INVALID_NAME) << "passed over in silence";
    EXPECT_EQ(collector.paths.size(), 7U);
    EXPECT_EQ(collector.paths.at(kFull + L"\\above\\name"), 1);
    EXPECT_EQ(codeOf([] { KeyPtr(DllGetRegistryKey(HKEY_CURRENT_USER, kRoot.c_str()))->deleteItem(); }),
              ERROR_INVALID_NAME);
    EXPECT_EQ(NtDeleteKey(hidden), 0) << "it was still there";
    NtClose(hidden);
    RegCloseKey(above);
    KeyPtr(DllGetRegistryKey(HKEY_CURRENT_USER, kRoot.c_str()))->deleteItem();
    HKEY software = nullptr;
    EXPECT_EQ(RegOpenKeyW(HKEY_LOCAL_MACHINE, L"Software\\Microsoft", &software), ERROR_SUCCESS)
        << "the link was followed";
    RegCloseKey(software);
}

// What is found is what is there, once, and what is done to it is done to nothing else.
TEST(Registry, FoundItemsAreWhatTheySay)
{
    const TestKey root;
    // Only a backslash separates.
    for (const wchar_t* name : {L"http://x/\\deep\\lost", L"http://x/deep", L"C:\\deep", L"/\\deep"})
        root.addKey(name);
    Collector collector;
    const TestRegistryEngine engine(collector);
    ASSERT_EQ(engine.scan(), ERROR_SUCCESS);
    EXPECT_EQ(collector.paths.size(), 8U);
    for (const wchar_t* name : {L"\\http://x/\\deep\\lost", L"\\http://x/deep", L"\\C:\\deep", L"\\/\\deep"})
        EXPECT_EQ(collector.paths[kFull + name], 1);

    // Two that come in front while names are read move the others back by two; then the key is deleted.
    for (const LSTATUS end : {ERROR_NO_MORE_ITEMS, ERROR_KEY_DELETED}) {
        CountedImport<"RegEnumValueW", decltype(&RegEnumValueW)> values(sysmaintModule());
        values.setHook([&](auto, HKEY, DWORD index, LPWSTR name, LPDWORD length, auto...) -> LSTATUS {
            const wchar_t* const order[] = {L"d", L"e", L"d", L"e", L"e", L"f"};
            if (index >= std::size(order) || values.calls() > 7)
                return end;
            *length = static_cast<DWORD>(std::wcslen(std::wcscpy(name, order[index])));
            return ERROR_SUCCESS;
        });
        collector.paths.clear();
        EXPECT_EQ(engine.scan(1), ERROR_SUCCESS);
        for (const wchar_t* name : {L"\\d", L"\\e", L"\\f"})
            EXPECT_EQ(collector.paths[kFull + name], 1);
    }

    // Both views in one engine.
    const struct
    {
        unsigned long view;
        REGSAM access;
    } views[] = {{kRegistryView32, KEY_WOW64_32KEY}, {kRegistryView64, KEY_WOW64_64KEY}};
    RSEngineClear(engine.handle);
    for (const auto& row : views) {
        HKEY key = nullptr;
        RegCreateKeyExW(HKEY_LOCAL_MACHINE, kRoot.c_str(), 0, nullptr, 0, KEY_WRITE | row.access, nullptr,
                        &key, nullptr);
        RegSetValueExW(key, std::to_wstring(row.view).c_str(), 0, REG_SZ, nullptr, 0);
        RegCloseKey(key);
        EXPECT_EQ(RSEngineAddPath(engine.handle, HKEY_LOCAL_MACHINE, kRoot.c_str(), row.view), ERROR_SUCCESS);
    }
    collector.paths.clear();
    EXPECT_EQ(RSEngineScan(engine.handle, nullptr, everything(), {}), ERROR_SUCCESS);
    for (const auto& row : views) {
        EXPECT_EQ(collector.paths[L"HKEY_LOCAL_MACHINE\\" + kRoot + L"\\" + std::to_wstring(row.view)], 1);
        RegDeleteKeyExW(HKEY_LOCAL_MACHINE, kRoot.c_str(), row.access, 0);
    }

    // A link in the place of a found key is not followed.
    root.addKey(L"target");
    root.addKey(L"found");
    for (const wchar_t* key : {L"target", L"found"})
        RegSetKeyValueW(root.handle, key, L"v", REG_SZ, L"x", 4);
    SharedPtr<ScanItem> value;
    collector.action = [&](const Notification&, const SharedPtr<ScanItem>& item) {
        if (item->getPath() == kFull + L"\\found\\v")
            value = item;
    };
    ASSERT_EQ(engine.scan(), ERROR_SUCCESS);
    ASSERT_TRUE(value);
    ASSERT_EQ(RegDeleteKeyW(root.handle, L"found"), ERROR_SUCCESS);
    const std::wstring target = keyName(root.handle) + L"\\target";
    HKEY link = nullptr;
    ASSERT_EQ(RegCreateKeyExW(root.handle, L"found", 0, nullptr, REG_OPTION_CREATE_LINK,
                              KEY_ALL_ACCESS | KEY_CREATE_LINK, nullptr, &link, nullptr),
              ERROR_SUCCESS);
    RegSetValueExW(link, L"SymbolicLinkValue", 0, REG_LINK, reinterpret_cast<const BYTE*>(target.data()),
                   static_cast<DWORD>(target.size() * 2));
    RegCloseKey(link);
    EXPECT_EQ(RegGetValueW(root.handle, L"found", L"v", RRF_RT_ANY, nullptr, nullptr, nullptr),
              ERROR_SUCCESS);
    EXPECT_EQ(codeOf([&] { dynamic_cast<IRegistryValue&>(*value).deleteItem(); }), ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(RegGetValueW(root.handle, L"target", L"v", RRF_RT_ANY, nullptr, nullptr, nullptr),
              ERROR_SUCCESS);
    KeyPtr(DllGetRegistryKey(HKEY_CURRENT_USER, (kRoot + L"\\found").c_str()))->deleteItem();

    // An item below a handle becomes no other key through a stream, and a found value keeps its type.
    MemoryOutputByteStream stored;
    KeyPtr(DllGetRegistryKey(root.handle, L"target"))->dump(kStateAll, stored);
    MemoryInputByteStream stream(stored.getData(), stored.getSize());
    const KeyPtr loaded(DllGetRegistryKey(kStateAll, stream));
    EXPECT_EQ(codeOf([&] { static_cast<void>(loaded->exists()); }), ERROR_INVALID_HANDLE);
    MemoryOutputByteStream typed;
    value->dump(kStateAll, typed);
    MemoryInputByteStream again(typed.getData(), typed.getSize());
    EXPECT_EQ(ValuePtr(DllGetRegistryValue(kStateAll, again))->getValueType(), 1U);

    // All that ask for its data at once get one reading.
    RegSetValueExW(root.handle, L"shared", 0, REG_SZ, reinterpret_cast<const BYTE*>(L"abc"), 8);
    CountedImport<"RegQueryValueExW", decltype(&RegQueryValueExW)> queries(sysmaintModule());
    unsigned long size = 0;
    ValuePtr(DllGetRegistryValue(HKEY_CURRENT_USER, kRoot.c_str(), L"shared"))->getData(size);
    const long once = queries.calls();
    const ValuePtr shared(DllGetRegistryValue(HKEY_CURRENT_USER, kRoot.c_str(), L"shared"));
    queries.reset();
    onThreadsAtOnce(8, [&](int) {
        unsigned long length = 0;
        EXPECT_STREQ(static_cast<const wchar_t*>(shared->getData(length)), L"abc");
    });
    EXPECT_EQ(queries.calls(), once);
}
