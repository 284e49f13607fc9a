#include "support/Process.h"
#include "support/Utilities.h"

constexpr unsigned long kOwn = 0xFFFFFFFF;
constexpr wchar_t kName[] = L"sysmaint-u18"; // a service
constexpr wchar_t kShell[] = L"C:\\windows\\system32\\cmd.exe";

TEST(Services, AreToldSetAndDeleted)
{
    const SC_HANDLE manager = OpenSCManagerW(nullptr, nullptr, SC_MANAGER_ALL_ACCESS);
    ServiceDelete(kName);
    SERVICE_DESCRIPTIONW text{const_cast<wchar_t*>(L"for a test")};
    const SC_HANDLE service =
        CreateServiceW(manager, kName, L"Test of services", SERVICE_ALL_ACCESS, SERVICE_WIN32_OWN_PROCESS,
                       SERVICE_DEMAND_START, SERVICE_ERROR_IGNORE, L"C:\\not there.exe", nullptr, nullptr,
                       L"Eventlog\0+Group\0", nullptr, nullptr);
    ASSERT_NE(service, nullptr);
    ChangeServiceConfig2W(service, SERVICE_CONFIG_DESCRIPTION, &text);
    CloseServiceHandle(service);
    CloseServiceHandle(manager);
    Given<ServiceRecord> records;
    size_t count = 0, found = 0;
    EXPECT_EQ(ServiceEnumerate(0, 0, &records, &count), 0);
    for (size_t i = 0; i < count; ++i)
        found += std::wstring(records[i].name) == kName &&
                 std::wstring(records[i].displayName) == L"Test of services" &&
                 records[i].state == SERVICE_STOPPED && records[i].processId == 0;
    EXPECT_EQ(found, 1U);
    unsigned long type = 7;
    Given<wchar_t> program, account, dependencies;
    EXPECT_EQ(ServiceSetStartType(kName, SERVICE_DISABLED), 0);
    EXPECT_EQ(ServiceSetStartType(kName, 5), 87);
    EXPECT_EQ(ServiceGetConfig(kName, &type, &program, &account, &dependencies), 0);
    EXPECT_EQ(type, DWORD{SERVICE_DISABLED});
    EXPECT_STREQ(program.get(), L"C:\\not there.exe");
    EXPECT_EQ(asText(ServiceGetDescription)(kName), L"for a test");
    EXPECT_EQ(ServiceStart(kName, 1000, nullptr), 1058);
    EXPECT_EQ(asNumber(ServiceGetState)(kName), SERVICE_STOPPED);
    EXPECT_EQ(ServiceStop(kName, 1, 1000, nullptr), 0) << "it stands already";
    EXPECT_EQ(asNumber(ServiceExists)(kName), 1);
    EXPECT_EQ(ServiceDelete(kName), 0);
    // The system removes it once nobody has it open.
    EXPECT_TRUE(comesTrue([] { return asNumber(ServiceExists)(kName) == 0; }));
    EXPECT_EQ(ServiceStart(kName, 1000, nullptr), 1060);
    EXPECT_EQ(ServiceStop(kName, 0, 1000, nullptr), 1060);
}

// One that takes its time, as the test plays it.
TEST(Services, AreWaitedForUntilTheTimeIsOverOrACancelComes)
{
    DWORD now = SERVICE_STOPPED;
    Replaced<"OpenServiceW", decltype(&OpenServiceW)> open(
        [](auto...) { return OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT); });
    Replaced<"QueryServiceStatusEx", decltype(&QueryServiceStatusEx)> query(
        [&](auto, SC_HANDLE, SC_STATUS_TYPE, BYTE* target, DWORD, DWORD*) {
            SERVICE_STATUS_PROCESS status{};
            status.dwCurrentState = now;
            status.dwWin32ExitCode = ERROR_FILE_NOT_FOUND;
            *reinterpret_cast<SERVICE_STATUS_PROCESS*>(target) = status;
            return TRUE;
        });
    Replaced<"StartServiceW", decltype(&StartServiceW)> start;
    DWORD after = SERVICE_START_PENDING;
    start.setHook([&](auto...) { return now = after, TRUE; });
    Replaced<"ControlService", decltype(&ControlService)> control(
        [&](auto...) { return now = SERVICE_STOP_PENDING, TRUE; });
    EXPECT_EQ(ServiceStart(kName, 120, nullptr), 1460);
    after = SERVICE_STOPPED;
    EXPECT_EQ(ServiceStart(kName, 1000, nullptr), 2) << "its own code";
    const TestEvent cancel, answers;
    start.setHook([&](auto...) { return cancel.set(), now = SERVICE_START_PENDING, TRUE; });
    EXPECT_EQ(ServiceStart(kName, INFINITE, cancel.get()), 1223);
    start.reset();
    EXPECT_EQ(ServiceStart(kName, INFINITE, cancel.get()), 1223);
    EXPECT_EQ(start.calls(), 0) << "a cancel that came first";
    EXPECT_EQ(ServiceStart(kName, INFINITE, kNoHandle), 6);
    // The system's call itself takes long: nobody waits for it.
    std::atomic<int> answered = 0;
    start.setHook([&](auto...) { return cancel.set(), answered += answers.wait() ? 1 : 0, TRUE; });
    EXPECT_EQ(ServiceStart(kName, 120, nullptr), 1460);
    cancel.reset();
    EXPECT_EQ(ServiceStart(kName, INFINITE, cancel.get()), 1223);
    EXPECT_EQ(answered, 0);
    for (answers.set(); answered < 2;)
        Sleep(10);
    now = SERVICE_RUNNING;
    EXPECT_EQ(ServiceStop(kName, 0, INFINITE, cancel.get()), 1223);
    EXPECT_EQ(ServiceStop(kName, 0, 120, nullptr), 1460);
    EXPECT_EQ(control.calls(), 1) << "it is told once";
}

TEST(Security, TokensAndSids)
{
    int was = 7;
    constexpr wchar_t kPrivilege[] = L"SeBackupPrivilege";
    EXPECT_EQ(PrivilegeDisable(kPrivilege), 0);
    for (const int expected : {0, 1}) {
        EXPECT_EQ(PrivilegeEnable(kPrivilege, &was), 0);
        EXPECT_EQ(was, expected);
    }
    EXPECT_EQ(PrivilegeEnable(L"SeNoSuchPrivilege", &was), 1313);
    EXPECT_EQ(PrivilegeEnable(L"SeCreateTokenPrivilege", &was), 1300);
    const auto isHeld = asNumber(PrivilegeIsHeld);
    const auto isElevated = asNumber(TokenHasElevation);
    EXPECT_EQ((Numbers{isHeld(kPrivilege), isHeld(L"SeCreateTokenPrivilege"), isElevated(nullptr),
                       isElevated(kNoHandle)}),
              (Numbers{1, 0, 1, -6}));
    EXPECT_EQ((Numbers{asNumber(TokenGetIntegrity)(nullptr), asNumber(UserIsAdministrator)()}),
              (Numbers{0x3000, 1}));
    const std::wstring sid = asText(SidOfCurrentUser)();
    Given<wchar_t> domain, name;
    unsigned long kind = 0;
    EXPECT_EQ(SidToAccount(sid.c_str(), &domain, &name, &kind), 0);
    EXPECT_EQ(kind, DWORD{SidTypeUser});
    const std::wstring account = std::wstring(domain.get()) + L"\\" + name.get();
    EXPECT_EQ(asText(SidFromAccount)(account.c_str()), sid);
    EXPECT_EQ(asText(SidFromAccount)(L"nobody-18\\x"), L"code 1332");
    EXPECT_EQ(asText(SidFromAccount)(L""), L"code 87");
    EXPECT_EQ(SidToAccount(L"S-1-5-21-1-2-3-4", &domain, &name, &kind), 1332);
    EXPECT_EQ(SidToAccount(L"S-x", &domain, &name, &kind), 1337);
    for (const auto& [number, is] :
         {std::pair(WinBuiltinAdministratorsSid + 0, 1), {WinBuiltinUsersSid + 0, 0}, {9999, -87}})
        EXPECT_EQ(asNumber(SidIsWellKnown)(L"S-1-5-32-544", number), is);
}

TEST(Security, OfTheSession)
{
    unsigned long session = 7, exitCode = 7;
    EXPECT_EQ(SessionGetActive(&session), 0);
    Given<wchar_t> user, home;
    wchar_t own[256];
    DWORD size = 256;
    GetUserNameW(own, &size);
    EXPECT_EQ(SessionGetUserName(session, &home, &user), 0);
    EXPECT_STREQ(user.get(), own);
    void *token = nullptr, *outer = nullptr, *inner = nullptr;
    EXPECT_EQ(SessionGetUserToken(session, &token), 0);
    CloseHandle(token);
    EXPECT_EQ(SessionRunAsUser(session, L"C:\\windows\\system32\\cmd.exe /c exit 5", 1, &exitCode), 0);
    EXPECT_EQ(exitCode, 5U);
    EXPECT_EQ(SessionRunAsUser(session, L"\"C:\\not there.exe\"", 1, &exitCode), 2);
    EXPECT_EQ(SessionImpersonate(session, &outer) + SessionImpersonate(session, &inner), 0);
    EXPECT_EQ(SessionRevert(inner), 0);
    EXPECT_TRUE(OpenThreadToken(GetCurrentThread(), TOKEN_QUERY, TRUE, &token)) << "still the first one";
    CloseHandle(token);
    EXPECT_EQ(SessionRevert(outer), 0);
    EXPECT_FALSE(OpenThreadToken(GetCurrentThread(), TOKEN_QUERY, TRUE, &token));
    EXPECT_EQ(SessionRevert(kNoHandle), 6);
}

TEST(Security, Ownership)
{
    const std::wstring file = testPath(L"owned");
    EXPECT_EQ(FileWriteAtomically(file.c_str(), "x", 1), 0);
    const std::wstring sid = asText(SidOfCurrentUser)();
    const auto owner = asText(SecurityGetOwner);
    EXPECT_EQ((Texts{owner(file.c_str(), 0), owner(file.c_str(), 3), owner(L"C:\\not there", 0),
                     owner(L"HKCU\\not there", 1), owner(L"not there", 2)}),
              (Texts{sid, L"code 87", L"code 2", L"code 2", L"code 1060"}));
    // An object without a list lets everybody in: a list with one entry would shut the others out.
    std::tuple<SECURITY_INFORMATION, DWORD, bool> made; // what, entries, whether there is an owner
    Replaced<"SetSecurityInfo", DWORD(WINAPI*)(HANDLE, int, SECURITY_INFORMATION, PSID, PSID, ACL*, ACL*)>
        set([&](auto, HANDLE, int, SECURITY_INFORMATION what, PSID owner, PSID, ACL* list, ACL*) -> DWORD {
            made = {what, list != nullptr ? list->AceCount : 0U, owner != nullptr};
            return 0;
        });
    Replaced<"GetSecurityInfo", DWORD(WINAPI*)(HANDLE, int, SECURITY_INFORMATION, PSID*, PSID*, ACL**, ACL**,
                                               PSECURITY_DESCRIPTOR*)>
        get;
    ACL empty{2, 0, sizeof(ACL), 0, 0};
    for (ACL* const list : {static_cast<ACL*>(nullptr), &empty}) {
        get.setHook([list](auto, HANDLE, int, SECURITY_INFORMATION, PSID*, PSID*, ACL** found, ACL**,
                           PSECURITY_DESCRIPTOR* memory) -> DWORD {
            *found = list;
            *memory = LocalAlloc(LMEM_FIXED, 8);
            return 0;
        });
        EXPECT_EQ(SecurityGrantAccess(file.c_str(), 0, sid.c_str(), GENERIC_READ), 0);
        EXPECT_EQ(set.calls(), list != nullptr ? 1 : 0);
    }
    EXPECT_EQ(made, std::tuple(DACL_SECURITY_INFORMATION, 1U, false));
    EXPECT_EQ(SecurityTakeOwnership(file.c_str(), 0), 0);
    EXPECT_EQ(made, std::tuple(OWNER_SECURITY_INFORMATION, 0U, true));
}

TEST(Processes, AreRunAndTold)
{
    unsigned long exitCode = 7;
    const auto run = [&](const std::wstring& program, const wchar_t* arguments, DWORD timeout = INFINITE,
                         HANDLE cancel = nullptr) {
        return ProcessRunAndWait(program.c_str(), arguments, timeout, cancel, &exitCode);
    };
    EXPECT_EQ(run(kShell, L"/c exit 9"), 0);
    EXPECT_EQ(exitCode, 9U);
    EXPECT_EQ(run(L"C:\\not there.exe", nullptr), 2);
    EXPECT_EQ(run(kShell, std::wstring(32767, L'x').c_str(), 0), 206);
    EXPECT_EQ(run(kShell, L"/c exit 9", INFINITE, kNoHandle), 6);
    for (const wchar_t* end : {L" ", L".", L". ."})
        EXPECT_EQ(run(kShell + std::wstring(end), L"/c exit 9"), 123);
    {
        const Replaced<"CreateProcessW", decltype(&CreateProcessW)> refusing(1, FALSE, ERROR_GEN_FAILURE);
        EXPECT_EQ(run(L"\\\\?\\C:\\tool.", nullptr, 0), 31) << "as it stands";
    }
    const TestEvent cancel;
    EXPECT_EQ(run(kShell, L"/c exit 1", 0), 1460);
    Replaced<"CreateProcessW", decltype(&CreateProcessW)> starts(
        [&](auto original, auto... all) { return cancel.set(), original(all...); });
    for (const long started : {1, 1}) { // the second time the cancel comes first
        EXPECT_EQ(run(kShell, L"/c ping -n 2 127.0.0.1", INFINITE, cancel.get()), 1223);
        EXPECT_EQ(starts.calls(), started);
    }
    const unsigned long self = GetCurrentProcessId();
    EXPECT_EQ(asText(ProcessGetPath)(self), ownPath());
    EXPECT_EQ(asText(ProcessGetCommandLine)(self), GetCommandLineW());
    EXPECT_EQ(asNumber(ProcessIs32Bit)(self), 0);
    EXPECT_EQ(asText(ProcessGetPath)(0xfffffff0), L"code 87");
}

// The system reports the second process as a child of the first, and the third once one has been ended.
TEST(Processes, EndWithTheirTreeFromBelow)
{
    const unsigned long self = GetCurrentProcessId();
    PROCESS_INFORMATION started[3]{};
    for (PROCESS_INFORMATION& each : started) {
        wchar_t command[] = L"child sleep";
        STARTUPINFOW startup{};
        ASSERT_TRUE(CreateProcessW(besideTests(L"process_child.exe").c_str(), command, nullptr, nullptr,
                                   FALSE, 0, nullptr, nullptr, &startup, &each));
    }
    const unsigned long top = started[0].dwProcessId;
    EXPECT_EQ(asNumber(ProcessGetParent)(top), self);
    unsigned long long mine = 0, its = 0;
    EXPECT_EQ(ProcessGetStartTime(self, &mine) + ProcessGetStartTime(top, &its), 0);
    EXPECT_LE(mine, its);
    for (const unsigned long refused : {0UL, 4UL, self})
        EXPECT_EQ(ProcessTerminateTree(refused, 1000), 50);
    for (const unsigned long beside : {1UL, 2UL, 3UL}) { // for the system an id of the same process
        EXPECT_EQ(ProcessTerminateTree(top + beside, 1000), 87);
        EXPECT_EQ(ProcessTerminateTree(self + beside, 1000), 87);
    }
    std::vector<unsigned long> order;
    const Replaced<"TerminateProcess", decltype(&TerminateProcess)> end(
        before([&](HANDLE process, UINT) { order.push_back(GetProcessId(process)); }));
    const Replaced<"Process32NextW", decltype(&Process32NextW)> list(
        after([&](BOOL, HANDLE, PROCESSENTRY32W* entry) {
            if (entry->th32ProcessID == started[1].dwProcessId ||
                (entry->th32ProcessID == started[2].dwProcessId && !order.empty()))
                entry->th32ParentProcessID = top;
        }));
    EXPECT_EQ(ProcessTerminateTree(top, 10000), 0);
    EXPECT_EQ(order, (std::vector{started[1].dwProcessId, top, started[2].dwProcessId}));
    for (const PROCESS_INFORMATION& each : started) {
        EXPECT_EQ(WaitForSingleObject(each.hProcess, 0), WAIT_OBJECT_0);
        CloseHandle(each.hProcess), CloseHandle(each.hThread);
    }
}

TEST(Shell, Shortcuts)
{
    const std::wstring link = testPath(L"a.lnk");
    const std::wstring target = testPath(L"t\u00e4rget.txt");
    EXPECT_EQ(FileWriteAtomically(target.c_str(), "x", 1), 0);
    EXPECT_EQ(ShellCreateShortcut(link.c_str(), target.c_str(), L"-x", nullptr, 0), 0);
    Given<wchar_t> to, arguments, folder;
    EXPECT_EQ(ShellReadShortcut(link.c_str(), &to, &arguments, &folder), 0);
    EXPECT_EQ(std::wstring(to.get()) + arguments.get(), target + L"-x");
    // A shortcut is replaced, any other file is not; what would be cut is refused.
    const std::wstring most(32766, L'a');
    const auto made = [&](const std::wstring& where, const std::wstring& what, const std::wstring& with) {
        return ShellCreateShortcut(where.c_str(), what.c_str(), with.c_str(), nullptr, 0);
    };
    EXPECT_EQ(made(link, target, most), 0);
    EXPECT_EQ(ShellReadShortcut(link.c_str(), &to, &arguments, &folder), 0);
    EXPECT_EQ(arguments.get(), most);
    EXPECT_EQ((Numbers{made(link, target, most + L"a"), made(link, L"C:\\" + std::wstring(257, L'x'), L""),
                       made(link, L"", L""), made(target, target, L""), made(L"C:\\no\\a.lnk", target, L""),
                       made(L"C:\\users", target, L"")}),
              (Numbers{206, 206, 87, 80, 3, 336}));
    EXPECT_EQ(ShellReadShortcut(target.c_str(), &to, &arguments, &folder), 13);
    const auto broken = [&] { return asNumber(ShellShortcutIsBroken)(link.c_str()); };
    EXPECT_EQ(broken(), 0);
    DeleteFileW(target.c_str());
    Replaced<"GetDriveTypeW", decltype(&GetDriveTypeW)> drive;
    for (const UINT type : {DRIVE_FIXED, DRIVE_REMOVABLE, DRIVE_REMOTE, DRIVE_NO_ROOT_DIR}) {
        drive.setHook([type](auto, auto) { return type; });
        EXPECT_EQ(broken(), type == DRIVE_FIXED ? 1 : 0) << type;
    }
    EXPECT_EQ(ShellReadShortcut(testPath(L"none.lnk").c_str(), &to, &arguments, &folder), 2);
    long verdict = 7;
    EXPECT_EQ(asText(SignatureVerifyFile)(link.c_str(), &verdict), L"");
    EXPECT_NE(verdict, 0);
    EXPECT_EQ(asText(SignatureVerifyFile)(L"C:\\not there", &verdict), L"code 2");
}

TEST(Shell, FoldersRecycleBinAndIcons)
{
    for (const unsigned long session : {kOwn, 1UL})
        EXPECT_EQ(asText(ShellGetFolder)(0x24, session), L"C:\\windows");
    EXPECT_NE(asText(ShellGetTypeName)(L"C:\\windows").substr(0, 5), L"code ");
    const TestEvent cancel(true);
    EXPECT_EQ(RecycleBinEmpty(nullptr, cancel.get()), 1223);
    EXPECT_EQ(RecycleBinEmpty(nullptr, kNoHandle), 6);
    unsigned long long bytes = 0, items = 0;
    EXPECT_EQ(RecycleBinQuery(nullptr, &bytes, &items), 0);
    constexpr wchar_t kIcons[] = L"C:\\windows\\system32\\shell32.dll";
    void* icon = nullptr;
    EXPECT_EQ(IconExtract(L"C:\\not there", 0, 32, &icon), 2);
    EXPECT_GT(asNumber(IconCount)(kIcons), 10);
    EXPECT_EQ(asNumber(IconCount)(L"C:\\windows\\win.ini"), 0);
    for (const auto& [index, size, code] : {std::tuple(9999, 32, 1814), {0, 257, 87}, {0, 32, 0}})
        EXPECT_EQ(IconExtract(kIcons, index, size, &icon), code);
    const std::wstring bitmap = testPath(L"icon.bmp");
    EXPECT_EQ(IconToBitmapFile(icon, bitmap.c_str()), 0);
    Given<unsigned char> content;
    size_t size = 0;
    EXPECT_EQ(FileReadAll(bitmap.c_str(), 100000, &content, &size), 0);
    EXPECT_EQ(size, 54U + 32 * 32 * 4);
    size_t seen = 0, colored = 0;
    for (size_t i = 54; i + 3 < size; i += 4)
        seen += content[i + 3] != 0, colored += content[i] != content[i + 2];
    EXPECT_TRUE(seen > 100 && seen < 1024 && colored > 50) << seen << ", " << colored;
    EXPECT_EQ(IconDestroy(icon), 0);
    EXPECT_EQ(IconDestroy(icon), 1402);
    EXPECT_EQ(IconToBitmapFile(icon, bitmap.c_str()), 1402);
    EXPECT_EQ(IconForPath(L"C:\\windows", 1, &icon), 0);
    EXPECT_EQ(IconDestroy(icon), 0);
}

TEST(System, Environment)
{
    const auto get = asText(EnvironmentGet);
    const auto expand = asText(EnvironmentExpand);
    SetEnvironmentVariableW(L"U18", std::wstring(5000, L'x').c_str());
    EXPECT_EQ(get(L"U18"), std::wstring(5000, L'x'));
    EXPECT_EQ(expand(L"<%U18%>", kOwn), L"<" + std::wstring(5000, L'x') + L">");
    // As the system expands it, but for its limit.
    const std::wstring longer(40000, L'y');
    for (const wchar_t* text :
         {L"", L"%", L"%%", L"%windir", L"%none%windir%", L"%none%", L"a%windir%b%WINDIR%", L"%%windir%"}) {
        wchar_t expected[1024];
        ExpandEnvironmentStringsW(text, expected, 1024);
        for (const unsigned long session : {kOwn, 1UL})
            EXPECT_EQ(expand(text, session), expected) << text;
    }
    for (const unsigned long session : {kOwn, 1UL})
        EXPECT_EQ(expand((longer + L"%windir%").c_str(), session), longer + L"C:\\windows");
    SetEnvironmentVariableW(L"U18", nullptr);
    EXPECT_EQ(get(L"U18"), L"code 203");
    const auto stored = [] {
        unsigned long type = 0;
        Given<unsigned char> bytes;
        size_t size = 0;
        EXPECT_EQ(RegistryReadBinary(HKEY_CURRENT_USER, L"Environment", L"U18", 0, &bytes, &size, &type), 0);
        return reinterpret_cast<wchar_t*>(bytes.get()) + std::to_wstring(type);
    };
    for (const wchar_t* value : {L"a", L"%TEMP%"}) {
        EXPECT_EQ(EnvironmentSetPersistent(L"U18", value, 0), 0);
        EXPECT_EQ(stored(), value + std::wstring(*value == L'%' ? L"2" : L"1"));
    }
    EXPECT_EQ(RegistryDeleteValueIfPresent(HKEY_CURRENT_USER, L"Environment", L"U18", 0), 0);
    for (const wchar_t* wrong : {L"", L"a=b"})
        EXPECT_EQ(EnvironmentSetPersistent(wrong, L"a", 0), 87);
}

TEST(System, EventsPowerAndRestart)
{
    const TestEvent first, second;
    EXPECT_EQ(WaitEvent(first.get(), second.get(), 0), 258);
    second.set();
    EXPECT_EQ(WaitEvent(first.get(), second.get(), INFINITE), 1223);
    first.set();
    for (void* const cancel : {second.get(), static_cast<void*>(nullptr)})
        EXPECT_EQ(WaitEvent(first.get(), cancel, 0), 0);
    EXPECT_EQ(WaitEvent(kNoHandle, nullptr, 0), 6);
    EXPECT_EQ(asNumber(SystemIsSafeMode)(), 0);
    Replaced<"GetSystemPowerStatus", decltype(&GetSystemPowerStatus)> power;
    for (const auto& [line, expected] : {std::pair<BYTE, int>{0, 1}, {1, 0}, {255, -50}}) {
        power.setHook([line = line](auto, auto* status) { return status->ACLineStatus = line, TRUE; });
        EXPECT_EQ(asNumber(SystemIsOnBattery)(), expected);
    }
    EXPECT_GE(asNumber(SystemGetIdleTime)(), 0);
    Replaced<"InitiateSystemShutdownExW", decltype(&InitiateSystemShutdownExW)> shutdown;
    for (const BOOL kind : {FALSE, TRUE}) {
        shutdown.setHook([kind](auto, wchar_t*, wchar_t*, DWORD seconds, BOOL force, BOOL restart, DWORD) {
            EXPECT_EQ(seconds, 60U);
            EXPECT_EQ(force * 10 + restart, kind);
            return SetLastError(ERROR_SHUTDOWN_IN_PROGRESS), kind;
        });
        EXPECT_EQ(SystemRestart(static_cast<unsigned long>(kind), 60), kind ? 0 : 1115);
    }
    EXPECT_EQ(SystemRestart(2, 60), 87);
    EXPECT_EQ(shutdown.calls(), 2);
}
