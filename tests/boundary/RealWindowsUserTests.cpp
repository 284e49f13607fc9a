// Whose registry and folders are meant when Windows has several users, and what happens when one logs off.
// The system's answers are simulated.

#include "boundary/RegistryTest.h"

#include <wtsapi32.h>

/// The sessions of a machine, as a service of the system's account sees them.
struct Sessions : testing::Test
{
    Sessions()
    {
        asked.clear(), sessions.clear(), users.clear();
        refusesClients = false;
        consoles.setHook([this](auto) { return console; });
        sids.setHook([this](auto...) -> BOOL { return isSystem; });
    }
    ~Sessions() override
    {
        SetCurrentUserSession(kConsoleUser);
        RevertToSelf();
    }

    static BOOL WINAPI queryToken(ULONG session, PHANDLE token)
    {
        asked.push_back(session);
        const bool isRefused = refusesClients && isImpersonating();
        SetLastError(isRefused ? ERROR_PRIVILEGE_NOT_HELD : ERROR_NO_TOKEN);
        return !isRefused && users.contains(session) &&
               OpenProcessToken(GetCurrentProcess(), TOKEN_ALL_ACCESS, token);
    }
    static BOOL WINAPI enumerate(HANDLE, DWORD, DWORD, PWTS_SESSION_INFOW* found, DWORD* count)
    {
        *found = sessions.data(), *count = static_cast<DWORD>(sessions.size());
        return TRUE;
    }
    static HRESULT WINAPI folderOf(HWND, int, HANDLE token, DWORD, LPWSTR path)
    {
        std::wcscpy(path, token != nullptr ? L"C:\\Users\\somebody" : L"C:\\Windows\\systemprofile");
        return folders;
    }
    static std::wstring expanded(const wchar_t* macro, long code = 0)
    {
        wchar_t path[MAX_PATH];
        std::wcscpy(path, macro);
        EXPECT_EQ(DllGetPathValidatorW()->validate(path, MAX_PATH, nullptr), code) << macro;
        return path;
    }

    static inline std::vector<ULONG> asked;
    static inline std::vector<WTS_SESSION_INFOW> sessions;
    static inline std::set<ULONG> users; // the sessions that somebody is logged on to
    static inline bool refusesClients = false;
    static inline HRESULT folders = S_OK;
    DWORD console = 1;
    bool isSystem = true;
    const LookedUp addresses{{{"WTSQueryUserToken", address(&queryToken)},
                              {"WTSEnumerateSessionsW", address(&enumerate)},
                              {"WTSFreeMemory", address(+[](PVOID) {})},
                              {"SHGetFolderPathW", address(&folderOf)}}};
    Replaced<"WTSGetActiveConsoleSessionId", decltype(&WTSGetActiveConsoleSessionId)> consoles;
    Replaced<"IsWellKnownSid", decltype(&IsWellKnownSid)> sids;
};

/// The user's hive is unloaded at log-off: every handle opened before is dead.
struct Logoff : Registry
{
    Logoff()
    {
        const auto answer = [this](auto original, HKEY key, auto... rest) {
            handles.insert(key);
            return dead.contains(key) ? LSTATUS{ERROR_KEY_DELETED} : original(key, rest...);
        };
        opens.setHook([this](auto open, HKEY key, LPCWSTR path, DWORD options, REGSAM access, PHKEY opened) {
            handles.insert(key);
            if (dead.contains(key) || path == deleted)
                return LSTATUS{ERROR_KEY_DELETED};
            const LSTATUS status = open(key, path, options, access, opened);
            handles.insert(*opened), dead.erase(*opened); // the number may be reused
            return status;
        });
        hives.setHook(after([this](LSTATUS, REGSAM, PHKEY hive) {
            handles.insert(*hive), dead.erase(*hive);
            if (isBackInVain)
                logOff();
        }));
        infos.setHook(answer), keys.setHook(answer), values.setHook(answer), queries.setHook(answer);
    }
    void logOff() { dead = handles; }

    std::set<HKEY> handles, dead;
    bool isBackInVain = false;
    std::wstring deleted = L"?"; // a key that is
    Replaced<"RegOpenKeyExW", decltype(&RegOpenKeyExW)> opens;
    Replaced<"RegOpenCurrentUser", decltype(&RegOpenCurrentUser)> hives;
    Replaced<"RegQueryInfoKeyW", decltype(&RegQueryInfoKeyW)> infos;
    Replaced<"RegEnumKeyExW", decltype(&RegEnumKeyExW)> keys;
    Replaced<"RegEnumValueW", decltype(&RegEnumValueW)> values;
    Replaced<"RegQueryValueExW", decltype(&RegQueryValueExW)> queries;
};

/// The system's own link to the user's classes, as if it led to the hive `name`, with all that is really
/// below it.
struct LinkedClasses : Registry
{
    LinkedClasses()
    {
        addKey(L"link"); // what it looks like as itself: empty
        RegCreateKeyW(HKEY_CURRENT_USER, inner.c_str(), &made);
        RegCloseKey(made);
        opens.setHook([this](auto open, HKEY key, LPCWSTR path, DWORD options, REGSAM access, PHKEY opened) {
            const bool asLink = (options & REG_OPTION_OPEN_LINK) != 0 &&
                                (_wcsicmp(path, classes.c_str()) == 0 || std::wcscmp(path, L"Classes") == 0);
            return open(asLink ? root : key, asLink ? L"link" : path, options, access, opened);
        });
        names.setHook(after([this](NTSTATUS status, HANDLE, int, PVOID result, ULONG, PULONG length) {
            auto* const count = static_cast<ULONG*>(result);
            auto* const text = reinterpret_cast<wchar_t*>(count + 1);
            const std::wstring told(text, status == 0 ? *count / sizeof(wchar_t) : 0);
            const bool isLink = told == user + L"\\" + kRoot + L"\\link";
            if (!isLink && !told.starts_with(own))
                return;
            const std::wstring shown = isLink ? own : name.empty() ? name : name + told.substr(own.size());
            *count = static_cast<ULONG>(shown.copy(text, shown.size()) * sizeof(wchar_t));
            *length = *count + sizeof(ULONG);
        }));
    }
    ~LinkedClasses() override { RegDeleteKeyW(HKEY_CURRENT_USER, inner.c_str()); }

    const std::wstring classes = L"Software\\Classes", inner = classes + L"\\sysmaint-test";
    const std::wstring user = keyName(root).substr(0, keyName(root).size() - kRoot.size() - 1);
    const std::wstring own = user + L"\\" + classes;
    std::wstring name;
    HKEY made = nullptr;
    Replaced<"RegOpenKeyExW", decltype(&RegOpenKeyExW)> opens;
    Replaced<"NtQueryKey", NTSTATUS(NTAPI*)(HANDLE, int, PVOID, ULONG, PULONG)> names;
};

TEST_F(Sessions, TheUserIsTheConsolesOrTheOnlyOtherOrTheOneThatIsChosen)
{
    using States = std::vector<std::pair<ULONG, WTS_CONNECTSTATE_CLASS>>;
    // The console, the sessions, their users, who is chosen, the code, and which sessions are asked.
    const std::tuple<DWORD, States, std::set<ULONG>, DWORD, long, std::vector<ULONG>> rows[] = {
        {1, {{1, WTSActive}, {2, WTSActive}}, {1, 2}, kConsoleUser, 0, {1}},
        {1, {{0, WTSDisconnected}, {1, WTSConnected}, {2, WTSActive}}, {2}, kConsoleUser, 0, {1, 2}},
        {1, {{1, WTSConnected}, {2, WTSActive}, {3, WTSActive}}, {2, 3}, kConsoleUser, 7022, {1, 2, 3}},
        {1, {{1, WTSConnected}, {2, WTSActive}, {3, WTSActive}}, {3}, kConsoleUser, 0, {1, 2, 3}},
        {1, {{1, WTSConnected}, {2, WTSDisconnected}}, {2}, kConsoleUser, 1008, {1}},
        {0xFFFFFFFF, {{2, WTSActive}}, {2}, kConsoleUser, 0, {2}},
        {0xFFFFFFFF, {}, {}, kConsoleUser, 1312, {}},
        {1, {{2, WTSActive}, {3, WTSActive}}, {1, 2, 3}, 3, 0, {3}},
        {1, {{2, WTSActive}}, {1, 2}, 7, 1008, {7}},
        {1, {{2, WTSActive}}, {1, 2}, kProcessUser, 0, {}}};
    for (const auto& [atConsole, states, loggedOn, chosen, code, expected] : rows) {
        console = atConsole, users = loggedOn, asked.clear(), sessions.clear();
        for (const auto& [number, state] : states)
            sessions.push_back({number, nullptr, state});
        EXPECT_EQ(SetCurrentUserSession(chosen), 0);
        SCOPED_TRACE(testing::Message() << chosen << " with console " << atConsole);
        EXPECT_EQ(codeOf([] { static_cast<void>(keyOf(kRoot)->getHKEY()); }), static_cast<DWORD>(code));
        EXPECT_TRUE(asked == expected && !isImpersonating());
        EXPECT_EQ(ImpersonateCurrentUser(), code);
        EXPECT_EQ(isImpersonating(), code == 0);
        RevertToSelf();
        // The folders belong to the same user, except those of the machine.
        EXPECT_EQ(expanded(L"%programdata%"), L"C:\\Windows\\systemprofile");
        const bool own = chosen == kProcessUser;
        const std::wstring profile = own ? L"C:\\Windows\\systemprofile" : L"C:\\Users\\somebody";
        for (const wchar_t* macro : {L"%appdata%", L"%localappdata%", L"%userprofile%", L"%desktop%"})
            EXPECT_TRUE(expanded(macro, code) == profile || code != 0) << macro;
        EXPECT_TRUE((expanded(L"%temp%", code) == profile + L"\\Temp") != own || code != 0);
    }
    // The user of a program that is not the system's is its own, even if somebody else is logged on.
    isSystem = false, console = 1;
    SetCurrentUserSession(kConsoleUser);
    EXPECT_EQ(expanded(L"%appdata%"), L"C:\\Windows\\systemprofile");
    for (const auto& [result, code] : {std::pair{S_FALSE, 3L}, {E_ACCESSDENIED, 5L}, {S_OK, 0L}})
        folders = result, expanded(L"%appdata%", code);
}

TEST_F(Sessions, AThreadThatStandsForAClientAsksAsTheProcess)
{
    users = {1};
    refusesClients = true;
    for (const DWORD code : {0L, ERROR_NOT_ENOUGH_QUOTA}) {
        ASSERT_TRUE(ImpersonateSelf(SecurityIdentification));
        Replaced<"ImpersonateLoggedOnUser", decltype(&ImpersonateLoggedOnUser)> calls(code != 0, FALSE, code);
        asked.clear();
        EXPECT_EQ(codeOf([] { static_cast<void>(keyOf(kRoot)->getHKEY()); }), code);
        EXPECT_EQ(asked.size(), 2U);
        EXPECT_TRUE(isImpersonating()) << "the client again";
        RevertToSelf();
    }
    ASSERT_TRUE(ImpersonateSelf(SecurityIdentification));
    users.clear();
    EXPECT_TRUE(ImpersonateCurrentUser() == ERROR_NO_TOKEN && isImpersonating());
}

TEST_F(Sessions, ShortNamesInTheTemporaryFolderAreMadeLong)
{
    isSystem = false;
    const std::wstring folder = scratchFolder() + L"\\ADMINI~1";
    Replaced<"GetTempPathW", decltype(&GetTempPathW)> temporary([&](auto, DWORD, LPWSTR path) {
        std::wcscpy(path, (folder + L"\\").c_str());
        return static_cast<DWORD>(folder.size() + 1);
    });
    Replaced<"GetLongPathNameW", decltype(&GetLongPathNameW)> longs([](auto, LPCWSTR, LPWSTR path, DWORD) {
        std::wcscpy(path, L"C:\\Users\\administrator\\");
        return 23UL;
    });
    EXPECT_EQ(expanded(L"%temp%"), folder) << "one that is not there has no other name";
    CreateDirectoryW(folder.c_str(), nullptr);
    EXPECT_EQ(expanded(L"%temp%"), L"C:\\Users\\administrator");
}

TEST_F(Logoff, NothingIsCalledMissingThatIsInAHiveThatIsGone)
{
    addKey(L"key");
    addValue(L"value", "abc");
    const std::wstring path = kRoot + L"\\key";
    const KeyPtr key = keyOf(path);
    const ValuePtr value = valueOf(kRoot, L"value"), data = valueOf(kRoot, L"value");
    EXPECT_TRUE(key->exists() == 1 && value->exists() == 1 && data->getValueType() == REG_BINARY);
    deleted = path;
    EXPECT_EQ(key->exists(), 0) << "the key, and not the hive";
    deleted = L"?";
    logOff();
    EXPECT_EQ(codeOf([&] { return keyOf(path)->exists(); }), 0U);
    EXPECT_TRUE(codeOf([&] { key->deleteItem(); }) == ERROR_KEY_DELETED && hasKey(root, L"key"));
    EXPECT_TRUE(key->exists() == 1 && value->exists() == 1) << "opened anew";
    EXPECT_EQ(dataOf(*data), "abc");
    logOff();
    isBackInVain = true;
    EXPECT_EQ(codeOf([&] { return key->exists(); }), ERROR_KEY_DELETED);
    EXPECT_EQ(codeOf([&] { return value->exists(); }), ERROR_KEY_DELETED);
    isBackInVain = false;
    // The value's key was open already.
    const ValuePtr other = valueOf(kRoot, L"value");
    queries.setHook([this](auto...) { return logOff(), LSTATUS{ERROR_KEY_DELETED}; });
    EXPECT_EQ(codeOf([&] { return other->exists(); }), ERROR_KEY_DELETED);
}

TEST_F(Logoff, AScanEndsWithItAndTheNextBeginsAnew)
{
    for (const wchar_t* name : {L"a", L"a\\b", L"c"})
        addKey(name);
    ASSERT_EQ(RSEngineAddPath(engine, HKEY_CURRENT_USER, kRoot.c_str()), 0);
    SharedPtr<ScanItem> found;
    for (int number = 1; number <= 4; ++number) { // the item after which the user logs off
        collector.action = [&](const Notification&, const SharedPtr<ScanItem>& item) {
            found = item;
            if (collector.calls == number)
                logOff();
        };
        EXPECT_EQ(scanAdded(), number == 4 ? 0 : ERROR_KEY_DELETED) << number;
        EXPECT_EQ(collector.calls, number < 3 ? 2 : 3) << number; // names are read before they are reported
    }
    // What was found in that hive is not searched for in another.
    logOff();
    EXPECT_EQ(codeOf([&] { return dynamic_cast<IRegistryKey&>(*found).exists(); }), ERROR_KEY_DELETED);
    RSEngineClear(engine);
}

TEST_F(LinkedClasses, AreWalkedThroughTheSystemsOwnLink)
{
    SharedPtr<ScanItem> found;
    collector.action = [&](const Notification&, const SharedPtr<ScanItem>& item) {
        if (item->getPath() == L"HKEY_CURRENT_USER\\" + inner)
            found = item;
    };
    const std::wstring targets[] = {user + L"_Classes", user + L"_CLASSES", user + L"_Other",
                                    L"\\REGISTRY\\USER\\S-1-5-18_Classes", L""};
    for (const std::wstring& target : targets) {
        name = target;
        EXPECT_EQ(scan(L"Software", 3), 0);
        EXPECT_EQ(collector.paths.count(L"HKEY_CURRENT_USER\\" + classes), 1U);
        EXPECT_EQ(collector.paths.count(L"HKEY_CURRENT_USER\\" + inner), &target < targets + 2) << target;
    }
    // What was found there can be removed while the link leads there.
    ASSERT_TRUE(found);
    auto& key = dynamic_cast<IRegistryKey&>(*found);
    for (const bool isTheirs : {false, true}) {
        name = user + (isTheirs ? L"_Classes" : L"_Other");
        EXPECT_EQ(codeOf([&] { key.deleteItem(); }), isTheirs ? 0UL : 681UL);
        EXPECT_EQ(hasKey(HKEY_CURRENT_USER, inner), !isTheirs);
    }
}
