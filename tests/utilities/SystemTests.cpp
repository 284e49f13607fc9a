#include "core/win32/utils/system/api.h"

#include <atomic>
#include <csignal>

#include "core/win32/utils/files/api.h"
#include "core/win32/utils/processes/api.h"
#include "core/win32/utils/registry/api.h"
#include "core/win32/utils/security/api.h"
#include "core/win32/utils/services/api.h"
#include "core/win32/utils/shell/api.h"
#include "support/ImportReplacement.h"
#include "support/Utilities.h"

namespace {
constexpr unsigned long kOwn = 0xFFFFFFFF;
constexpr wchar_t kShell[] = L"C:\\windows\\system32\\cmd.exe";
unsigned long state(const wchar_t* service)
{
    return static_cast<unsigned long>(
        numberOf<unsigned long>([&](unsigned long* s) { return ServiceGetState(service, s); }));
}
std::wstring scratch(const wchar_t* name)
{
    wchar_t text[1024];
    GetEnvironmentVariableW(L"SYSMAINT_TEST_FOLDER", text, 1024);
    return std::wstring(text) + L"\\" + name;
}
} // namespace

TEST(Services, EndToEnd)
{
    constexpr wchar_t kName[] = L"sysmaint-u18";
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
    EXPECT_EQ(type, static_cast<unsigned long>(SERVICE_DISABLED));
    EXPECT_STREQ(program.get(), L"C:\\not there.exe");
    EXPECT_EQ(wideOf([&](wchar_t** r) { return ServiceGetDescription(kName, r); }), L"for a test");
    EXPECT_EQ(ServiceStart(kName, 1000, nullptr), 1058);
    EXPECT_EQ(state(kName), static_cast<unsigned long>(SERVICE_STOPPED));
    EXPECT_EQ(ServiceStop(kName, 1, 1000, nullptr), 0) << "it stands already";
    EXPECT_EQ(flagOf([&](int* f) { return ServiceExists(kName, f); }), 1);
    EXPECT_EQ(ServiceDelete(kName), 0);
    EXPECT_EQ(flagOf([&](int* f) { return ServiceExists(kName, f); }), 0);
    EXPECT_EQ(ServiceStart(kName, 1000, nullptr), 1060);
    EXPECT_EQ(ServiceStop(kName, 0, 1000, nullptr), 1060);
    // A slow service, simulated by the test.
    DWORD now = SERVICE_STOPPED;
    CountedImport<"OpenServiceW", decltype(&OpenServiceW)> open(sysmaintModule());
    open.setHook([](auto, SC_HANDLE, const wchar_t*, DWORD) {
        return OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT);
    });
    CountedImport<"QueryServiceStatusEx", decltype(&QueryServiceStatusEx)> query(sysmaintModule());
    query.setHook([&](auto, SC_HANDLE, SC_STATUS_TYPE, BYTE* target, DWORD, DWORD*) {
        SERVICE_STATUS_PROCESS status{};
        status.dwCurrentState = now;
        status.dwWin32ExitCode = ERROR_FILE_NOT_FOUND;
        *reinterpret_cast<SERVICE_STATUS_PROCESS*>(target) = status;
        return TRUE;
    });
    CountedImport<"StartServiceW", decltype(&StartServiceW)> start(sysmaintModule());
    DWORD after = SERVICE_START_PENDING;
    start.setHook([&](auto...) { return now = after, TRUE; });
    CountedImport<"ControlService", decltype(&ControlService)> control(sysmaintModule());
    control.setHook([&](auto...) { return now = SERVICE_STOP_PENDING, TRUE; });
    EXPECT_EQ(ServiceStart(kName, 120, nullptr), 1460);
    after = SERVICE_STOPPED;
    EXPECT_EQ(ServiceStart(kName, 1000, nullptr), 2) << "its own code";
    const HANDLE cancel = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    start.setHook([&](auto...) { return SetEvent(cancel), now = SERVICE_START_PENDING, TRUE; });
    EXPECT_EQ(ServiceStart(kName, INFINITE, cancel), 1223);
    start.reset();
    EXPECT_EQ(ServiceStart(kName, INFINITE, cancel), 1223);
    EXPECT_EQ(start.calls(), 0) << "a cancel that came first";
    EXPECT_EQ(ServiceStart(kName, INFINITE, reinterpret_cast<void*>(0x5554)), 6);
    // The system's call itself takes long, but the function does not wait for it.
    const HANDLE answers = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    std::atomic<int> answered = 0;
    start.setHook(
        [&](auto...) { return SetEvent(cancel), WaitForSingleObject(answers, 5000), ++answered, TRUE; });
    EXPECT_EQ(ServiceStart(kName, 120, nullptr), 1460);
    ResetEvent(cancel);
    EXPECT_EQ(ServiceStart(kName, INFINITE, cancel), 1223);
    EXPECT_EQ(answered, 0);
    for (SetEvent(answers); answered < 2;)
        Sleep(10);
    now = SERVICE_RUNNING;
    EXPECT_EQ(ServiceStop(kName, 0, INFINITE, cancel), 1223);
    EXPECT_EQ(ServiceStop(kName, 0, 120, nullptr), 1460);
    EXPECT_EQ(control.calls(), 1) << "it is told once";
    CloseHandle(cancel);
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
    const auto held = [](const wchar_t* name) {
        return flagOf([&](int* f) { return PrivilegeIsHeld(name, f); });
    };
    EXPECT_EQ(held(kPrivilege) * 10 + held(L"SeCreateTokenPrivilege"), 10);
    EXPECT_EQ(flagOf([](int* f) { return TokenHasElevation(nullptr, f); }), 1);
    EXPECT_EQ(flagOf([](int* f) { return TokenHasElevation(reinterpret_cast<void*>(0x5554), f); }), -6);
    EXPECT_EQ(numberOf<unsigned long>([](unsigned long* l) { return TokenGetIntegrity(nullptr, l); }),
              0x3000);
    EXPECT_EQ(flagOf([](int* f) { return UserIsAdministrator(f); }), 1);
    const std::wstring sid = wideOf([](wchar_t** r) { return SidOfCurrentUser(r); });
    Given<wchar_t> domain, name;
    unsigned long kind = 0;
    EXPECT_EQ(SidToAccount(sid.c_str(), &domain, &name, &kind), 0);
    EXPECT_EQ(kind, static_cast<unsigned long>(SidTypeUser));
    const std::wstring account = std::wstring(domain.get()) + L"\\" + name.get();
    EXPECT_EQ(wideOf([&](wchar_t** r) { return SidFromAccount(account.c_str(), r); }), sid);
    EXPECT_EQ(wideOf([&](wchar_t** r) { return SidFromAccount(L"nobody-18\\x", r); }), L"code 1332");
    EXPECT_EQ(wideOf([&](wchar_t** r) { return SidFromAccount(L"", r); }), L"code 87");
    EXPECT_EQ(SidToAccount(L"S-1-5-21-1-2-3-4", &domain, &name, &kind), 1332);
    EXPECT_EQ(SidToAccount(L"S-x", &domain, &name, &kind), 1337);
    const auto wellKnown = [](int number) {
        return flagOf([&](int* f) { return SidIsWellKnown(L"S-1-5-32-544", number, f); });
    };
    EXPECT_EQ(wellKnown(WinBuiltinAdministratorsSid) * 10 + wellKnown(WinBuiltinUsersSid), 10);
    EXPECT_EQ(wellKnown(9999), -87);

    unsigned long session = 7, exitCode = 7;
    EXPECT_EQ(SessionGetActive(&session), 0);
    Given<wchar_t> user;
    Given<wchar_t> home;
    EXPECT_EQ(SessionGetUserName(session, &home, &user), 0);
    EXPECT_STREQ(user.get(), name.get());
    void* token = nullptr;
    EXPECT_EQ(SessionGetUserToken(session, &token), 0);
    CloseHandle(token);
    EXPECT_EQ(SessionRunAsUser(session, L"C:\\windows\\system32\\cmd.exe /c exit 5", 1, &exitCode), 0);
    EXPECT_EQ(exitCode, 5U);
    EXPECT_EQ(SessionRunAsUser(session, L"\"C:\\not there.exe\"", 1, &exitCode), 2);
    void* outer = nullptr;
    void* inner = nullptr;
    EXPECT_EQ(SessionImpersonate(session, &outer), 0);
    EXPECT_EQ(SessionImpersonate(session, &inner), 0);
    EXPECT_EQ(SessionRevert(inner), 0);
    EXPECT_TRUE(OpenThreadToken(GetCurrentThread(), TOKEN_QUERY, TRUE, &token)) << "still the first one";
    CloseHandle(token);
    EXPECT_EQ(SessionRevert(outer), 0);
    EXPECT_FALSE(OpenThreadToken(GetCurrentThread(), TOKEN_QUERY, TRUE, &token));
    EXPECT_EQ(SessionRevert(reinterpret_cast<void*>(0x5554)), 6);
}

TEST(Security, Ownership)
{
    const std::wstring file = scratch(L"owned");
    EXPECT_EQ(FileWriteAtomically(file.c_str(), "x", 1), 0);
    const std::wstring sid = wideOf([](wchar_t** r) { return SidOfCurrentUser(r); });
    EXPECT_EQ(wideOf([&](wchar_t** r) { return SecurityGetOwner(file.c_str(), 0, r); }), sid);
    EXPECT_EQ(wideOf([&](wchar_t** r) { return SecurityGetOwner(file.c_str(), 3, r); }), L"code 87");
    EXPECT_EQ(wideOf([&](wchar_t** r) { return SecurityGetOwner(L"C:\\not there", 0, r); }), L"code 2");
    EXPECT_EQ(wideOf([&](wchar_t** r) { return SecurityGetOwner(L"HKCU\\not there", 1, r); }), L"code 2");
    EXPECT_EQ(wideOf([&](wchar_t** r) { return SecurityGetOwner(L"not there", 2, r); }), L"code 1060");
    // An object without a list admits everybody: a list with one entry would lock out the others.
    struct Made
    {
        SECURITY_INFORMATION what = 0;
        DWORD entries = 0;
        bool owner = false;
    };
    static Made made;
    CountedImport<"SetSecurityInfo",
                  DWORD(WINAPI*)(HANDLE, int, SECURITY_INFORMATION, PSID, PSID, ACL*, ACL*)>
        set(sysmaintModule());
    set.setHook([](auto, HANDLE, int, SECURITY_INFORMATION what, PSID owner, PSID, ACL* list, ACL*) -> DWORD {
        made = {what, list != nullptr ? list->AceCount : 0U, owner != nullptr};
        return 0;
    });
    CountedImport<"GetSecurityInfo", DWORD(WINAPI*)(HANDLE, int, SECURITY_INFORMATION, PSID*, PSID*, ACL**,
                                                    ACL**, PSECURITY_DESCRIPTOR*)>
        get(sysmaintModule());
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
    EXPECT_EQ(made.what * 10 + made.entries, static_cast<unsigned>(DACL_SECURITY_INFORMATION) * 10 + 1);
    EXPECT_EQ(SecurityTakeOwnership(file.c_str(), 0), 0);
    EXPECT_TRUE(made.owner && made.what == OWNER_SECURITY_INFORMATION);
}

TEST(Processes, RunAndEnd)
{
    unsigned long exitCode = 7;
    EXPECT_EQ(ProcessRunAndWait(kShell, L"/c exit 9", INFINITE, nullptr, &exitCode), 0);
    EXPECT_EQ(exitCode, 9U);
    EXPECT_EQ(ProcessRunAndWait(L"C:\\not there.exe", nullptr, INFINITE, nullptr, &exitCode), 2);
    EXPECT_EQ(ProcessRunAndWait(kShell, std::wstring(32767, L'x').c_str(), 0, nullptr, &exitCode), 206);
    EXPECT_EQ(ProcessRunAndWait(kShell, L"/c exit 9", INFINITE, reinterpret_cast<void*>(0x5554), &exitCode),
              6);
    const HANDLE cancel = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    EXPECT_EQ(ProcessRunAndWait(kShell, L"/c exit 1", 0, nullptr, &exitCode), 1460);
    CountedImport<"CreateProcessW", decltype(&CreateProcessW)> starts(sysmaintModule());
    starts.setHook([&](auto original, auto... all) { return SetEvent(cancel), original(all...); });
    for (const long started : {1, 1}) { // the second time the cancel comes first
        EXPECT_EQ(ProcessRunAndWait(kShell, L"/c ping -n 2 127.0.0.1", INFINITE, cancel, &exitCode), 1223);
        EXPECT_EQ(starts.calls(), started);
    }
    CloseHandle(cancel);
    const unsigned long self = GetCurrentProcessId();
    wchar_t path[1024];
    GetModuleFileNameW(nullptr, path, 1024);
    EXPECT_EQ(wideOf([&](wchar_t** r) { return ProcessGetPath(self, r); }), path);
    EXPECT_EQ(wideOf([&](wchar_t** r) { return ProcessGetCommandLine(self, r); }), GetCommandLineW());
    EXPECT_EQ(flagOf([&](int* f) { return ProcessIs32Bit(self, f); }), 0);
    EXPECT_EQ(wideOf([&](wchar_t** r) { return ProcessGetPath(0xfffffff0, r); }), L"code 87");
    // A shell that waits for another one: only these two end.
    STARTUPINFOW startup{};
    startup.cb = sizeof startup;
    wchar_t command[] = L"C:\\windows\\system32\\cmd.exe /c \"cmd.exe /k & cmd.exe /k\"";
    SECURITY_ATTRIBUTES inherited{sizeof inherited, nullptr, TRUE};
    HANDLE input = nullptr, output = nullptr;
    CreatePipe(&input, &output, &inherited, 0);
    startup.dwFlags = STARTF_USESTDHANDLES;
    HANDLE said = nullptr, saying = nullptr;
    CreatePipe(&said, &saying, &inherited, 0);
    startup.hStdInput = input;
    startup.hStdOutput = saying;
    PROCESS_INFORMATION started{};
    ASSERT_TRUE(
        CreateProcessW(nullptr, command, nullptr, nullptr, TRUE, 0, nullptr, nullptr, &startup, &started));
    EXPECT_EQ(
        numberOf<unsigned long>([&](unsigned long* p) { return ProcessGetParent(started.dwProcessId, p); }),
        self);
    unsigned long long mine = 0, its = 0;
    EXPECT_EQ(ProcessGetStartTime(self, &mine) + ProcessGetStartTime(started.dwProcessId, &its), 0);
    EXPECT_LE(mine, its);
    for (const unsigned long refused : {0UL, 4UL, self})
        EXPECT_EQ(ProcessTerminateTree(refused, 1000), 50);
    for (const unsigned long beside : {1UL, 2UL, 3UL}) { // for the system an id of the same process
        EXPECT_EQ(ProcessTerminateTree(started.dwProcessId + beside, 1000), 87);
        EXPECT_EQ(ProcessTerminateTree(GetCurrentProcessId() + beside, 1000), 87);
    }
    char first = 0;
    DWORD size = 0;
    EXPECT_TRUE(ReadFile(said, &first, 1, &size, nullptr)) << "the inner shell greets";
    std::vector<unsigned long> order;
    CountedImport<"TerminateProcess", decltype(&TerminateProcess)> end(sysmaintModule());
    end.setHook([&](auto original, HANDLE process, UINT code) {
        order.push_back(GetProcessId(process));
        return original(process, code);
    });
    EXPECT_EQ(ProcessTerminateTree(started.dwProcessId, 10000), 0);
    EXPECT_TRUE(order.size() > 1 && order.back() == started.dwProcessId) << "children first";
    EXPECT_EQ(WaitForSingleObject(started.hProcess, 0), WAIT_OBJECT_0);
    for (const HANDLE handle : {started.hProcess, started.hThread, input, output, said, saying})
        CloseHandle(handle);
}

TEST(Shell, ShortcutsIconsAndSignatures)
{
    const std::wstring link = scratch(L"a.lnk");
    const std::wstring target = scratch(L"t\u00e4rget.txt");
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
    Given<wchar_t> all, other, place;
    EXPECT_EQ(ShellReadShortcut(link.c_str(), &other, &all, &place), 0);
    EXPECT_EQ(all.get(), most);
    EXPECT_EQ(made(link, target, most + L"a"), 206);
    EXPECT_EQ(made(link, L"C:\\" + std::wstring(257, L'x'), L""), 206);
    EXPECT_EQ(made(link, L"", L""), 87);
    EXPECT_EQ(made(target, target, L""), 80);
    EXPECT_EQ(made(L"C:\\no\\a.lnk", target, L""), 3);
    EXPECT_EQ(made(L"C:\\users", target, L""), 336);
    EXPECT_EQ(ShellReadShortcut(target.c_str(), &other, &all, &place), 13);
    const auto broken = [&] {
        return flagOf([&](int* f) { return ShellShortcutIsBroken(link.c_str(), f); });
    };
    EXPECT_EQ(broken(), 0);
    DeleteFileW(target.c_str());
    CountedImport<"GetDriveTypeW", decltype(&GetDriveTypeW)> drive(sysmaintModule());
    for (const UINT type : {DRIVE_FIXED, DRIVE_REMOVABLE, DRIVE_REMOTE, DRIVE_NO_ROOT_DIR}) {
        drive.setHook([type](auto, auto) { return type; });
        EXPECT_EQ(broken(), type == DRIVE_FIXED ? 1 : 0) << type;
    }
    EXPECT_EQ(ShellReadShortcut(scratch(L"none.lnk").c_str(), &to, &arguments, &folder), 2);
    EXPECT_EQ(wideOf([](wchar_t** r) { return ShellGetFolder(0x24, kOwn, r); }), L"C:\\windows");
    EXPECT_EQ(wideOf([](wchar_t** r) { return ShellGetFolder(0x24, 1, r); }), L"C:\\windows");
    EXPECT_NE(wideOf([](wchar_t** r) { return ShellGetTypeName(L"C:\\windows", r); }).substr(0, 5), L"code ");
    const HANDLE cancel = CreateEventW(nullptr, TRUE, TRUE, nullptr);
    EXPECT_EQ(RecycleBinEmpty(nullptr, cancel), 1223);
    EXPECT_EQ(RecycleBinEmpty(nullptr, reinterpret_cast<void*>(0x5554)), 6);
    CloseHandle(cancel);
    unsigned long long bytes = 0, items = 0;
    EXPECT_EQ(RecycleBinQuery(nullptr, &bytes, &items), 0);

    constexpr wchar_t kIcons[] = L"C:\\windows\\system32\\shell32.dll";
    void* icon = nullptr;
    EXPECT_GT(numberOf<unsigned long>([&](unsigned long* n) { return IconCount(kIcons, n); }), 10);
    EXPECT_EQ(IconCount(L"C:\\windows\\win.ini", reinterpret_cast<unsigned long*>(&bytes)), 0);
    EXPECT_EQ(IconExtract(kIcons, 9999, 32, &icon), 1814);
    EXPECT_EQ(IconExtract(L"C:\\not there", 0, 32, &icon), 2);
    EXPECT_EQ(IconExtract(kIcons, 0, 257, &icon), 87);
    EXPECT_EQ(IconExtract(kIcons, 0, 32, &icon), 0);
    const std::wstring bitmap = scratch(L"icon.bmp");
    EXPECT_EQ(IconToBitmapFile(icon, bitmap.c_str()), 0);
    Given<unsigned char> content;
    size_t size = 0;
    EXPECT_EQ(FileReadAll(bitmap.c_str(), 100000, &content, &size), 0);
    EXPECT_EQ(size, 54U + 32 * 32 * 4);
    size_t seen = 0, colored = 0;
    for (size_t i = 54; i + 3 < size; i += 4) {
        seen += content[i + 3] != 0;
        colored += content[i] != content[i + 2];
    }
    EXPECT_TRUE(seen > 100 && seen < 1024 && colored > 50) << seen << ", " << colored;
    EXPECT_EQ(IconDestroy(icon), 0);
    EXPECT_EQ(IconDestroy(icon), 1402);
    EXPECT_EQ(IconToBitmapFile(icon, bitmap.c_str()), 1402);
    EXPECT_EQ(IconForPath(L"C:\\windows", 1, &icon), 0);
    EXPECT_EQ(IconDestroy(icon), 0);
    long verdict = 7;
    EXPECT_EQ(wideOf([&](wchar_t** r) { return SignatureVerifyFile(link.c_str(), &verdict, r); }), L"");
    EXPECT_NE(verdict, 0);
    EXPECT_EQ(wideOf([&](wchar_t** r) { return SignatureVerifyFile(L"C:\\not there", &verdict, r); }),
              L"code 2");
}

TEST(System, EnvironmentAndState)
{
    const HANDLE first = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    const HANDLE second = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    EXPECT_EQ(WaitEvent(first, second, 0), 258);
    SetEvent(second);
    EXPECT_EQ(WaitEvent(first, second, INFINITE), 1223);
    SetEvent(first);
    EXPECT_EQ(WaitEvent(first, second, 0), 0);
    EXPECT_EQ(WaitEvent(first, nullptr, 0), 0);
    CloseHandle(first);
    CloseHandle(second);
    EXPECT_EQ(WaitEvent(reinterpret_cast<void*>(0x5554), nullptr, 0), 6);

    const auto get = [](const wchar_t* name) {
        return wideOf([&](wchar_t** r) { return EnvironmentGet(name, r); });
    };
    SetEnvironmentVariableW(L"U18", std::wstring(5000, L'x').c_str());
    EXPECT_EQ(get(L"U18"), std::wstring(5000, L'x'));
    EXPECT_EQ(wideOf([](wchar_t** r) { return EnvironmentExpand(L"<%U18%>", kOwn, r); }),
              L"<" + std::wstring(5000, L'x') + L">");
    // As the system expands it, but without its limit.
    for (const wchar_t* text :
         {L"", L"%", L"%%", L"%windir", L"%none%windir%", L"%none%", L"a%windir%b%WINDIR%", L"%%windir%"}) {
        wchar_t expected[1024];
        ExpandEnvironmentStringsW(text, expected, 1024);
        for (const unsigned long session : {kOwn, 1UL})
            EXPECT_EQ(wideOf([&](wchar_t** r) { return EnvironmentExpand(text, session, r); }), expected)
                << text;
    }
    const std::wstring longer(40000, L'y');
    for (const unsigned long session : {kOwn, 1UL})
        EXPECT_EQ(wideOf([&](wchar_t** r) {
                      return EnvironmentExpand((longer + L"%windir%").c_str(), session, r);
                  }),
                  longer + L"C:\\windows");
    SetEnvironmentVariableW(L"U18", nullptr);
    EXPECT_EQ(get(L"U18"), L"code 203");
    const auto stored = [] {
        unsigned long type = 0;
        Given<unsigned char> bytes;
        size_t size = 0;
        EXPECT_EQ(RegistryReadBinary(HKEY_CURRENT_USER, L"Environment", L"U18", 0, &bytes, &size, &type), 0);
        return reinterpret_cast<wchar_t*>(bytes.get()) + std::to_wstring(type);
    };
    EXPECT_EQ(EnvironmentSetPersistent(L"U18", L"a", 0), 0);
    EXPECT_EQ(stored(), L"a1");
    EXPECT_EQ(EnvironmentSetPersistent(L"U18", L"%TEMP%", 0), 0);
    EXPECT_EQ(stored(), L"%TEMP%2");
    EXPECT_EQ(RegistryDeleteValueIfPresent(HKEY_CURRENT_USER, L"Environment", L"U18", 0), 0);
    EXPECT_EQ(EnvironmentSetPersistent(L"", L"a", 0), 87);
    EXPECT_EQ(EnvironmentSetPersistent(L"a=b", L"a", 0), 87);

    EXPECT_EQ(flagOf([](int* f) { return SystemIsSafeMode(f); }), 0);
    CountedImport<"GetSystemPowerStatus", decltype(&GetSystemPowerStatus)> power(sysmaintModule());
    for (const auto& [line, expected] : {std::pair<BYTE, int>{0, 1}, {1, 0}, {255, -50}}) {
        power.setHook(
            [line = line](auto, SYSTEM_POWER_STATUS* status) { return status->ACLineStatus = line, TRUE; });
        EXPECT_EQ(flagOf([](int* f) { return SystemIsOnBattery(f); }), expected);
    }
    unsigned long long idle = 0;
    EXPECT_EQ(SystemGetIdleTime(&idle), 0);
    CountedImport<"InitiateSystemShutdownExW", decltype(&InitiateSystemShutdownExW)> shutdown(
        sysmaintModule());
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
