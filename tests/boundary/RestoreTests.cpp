// Restore managers, with a stand-in for the restore client, one for WMI, and the platform's own WMI.

#include <objbase.h>
#include <sddl.h>

#include "core/win32/utils/restoremanager/api.h"
#include "support/RestoreClient.h"
#include "support/Wmi.h"

namespace {
constexpr wchar_t kKey[] = L"Software\\Microsoft\\Windows NT\\CurrentVersion\\SystemRestore";
constexpr auto kFailed = static_cast<HRESULT>(0x80041003);
constexpr auto kWithoutCode = static_cast<HRESULT>(0x80040000);

std::wstring security; // who may call this process
DWORD level = 0;

// Replacements of COM's functions.
const std::map<std::string_view, void*> kReplaced{
    {"CoInitializeEx", address(+[](void* reserved, DWORD kind) {
         const HRESULT result = com.next();
         const HRESULT real = FAILED(result) ? result : ::CoInitializeEx(reserved, kind);
         com.apartments += SUCCEEDED(real) ? 1 : 0;
         return real;
     })},
    {"CoUninitialize", address(+[] {
         --com.apartments;
         EXPECT_EQ(com.references, 0) << "released after COM";
         ::CoUninitialize();
     })},
    {"CoInitializeSecurity",
     address(+[](PSECURITY_DESCRIPTOR given, LONG, void*, void*, DWORD authentication) {
         constexpr SECURITY_INFORMATION kAll =
             OWNER_SECURITY_INFORMATION | GROUP_SECURITY_INFORMATION | DACL_SECURITY_INFORMATION;
         wchar_t* text = nullptr;
         ConvertSecurityDescriptorToStringSecurityDescriptorW(given, SDDL_REVISION_1, kAll, &text, nullptr);
         security = text != nullptr ? text : L"";
         level = authentication;
         LocalFree(text);
         return com.next();
     })},
    {"CoSetProxyBlanket", address(+[](void*, DWORD, DWORD, void*, DWORD, DWORD impersonation) {
         EXPECT_EQ(impersonation, DWORD{RPC_C_IMP_LEVEL_IMPERSONATE});
         return com.next();
     })},
    {"SysAllocString", address(+[](const wchar_t* text) {
         const bool failed = FAILED(com.next());
         com.code = failed ? E_OUTOFMEMORY : com.code; // how a caller must interpret null
         com.texts += failed ? 0 : 1;
         return failed ? nullptr : ::SysAllocString(text);
     })},
    {"SysFreeString", address(+[](BSTR text) {
         com.texts -= text != nullptr ? 1 : 0;
         ::SysFreeString(text);
     })},
    {"VariantClear", address(+[](VARIANT* value) {
         com.texts -= value->vt == VT_BSTR ? 1 : 0;
         return ::VariantClear(value);
     })}};

struct RestoreTest : testing::Test
{
    RestoreTest()
    {
        com = ComCalls{};
        RestoreClient::answer(nullptr);
        functions.setHook([this](auto original, HMODULE module, LPCSTR name) -> FARPROC {
            SetLastError(ERROR_PROC_NOT_FOUND);
            const auto found = kReplaced.find(name);
            return name == missing            ? nullptr
                   : found == kReplaced.end() ? original(module, name)
                                              : reinterpret_cast<FARPROC>(found->second);
        });
        versions.setHook([this](auto, RTL_OSVERSIONINFOW* told) -> LONG {
            std::tie(told->dwMajorVersion, told->dwMinorVersion) = version;
            return 0;
        });
    }
    ~RestoreTest() override { CloseRestoreManager(manager); }

    [[nodiscard]] std::int64_t number() const
    {
        std::int64_t result = -1;
        EXPECT_EQ(GetRestorePointID(manager, result), ERROR_SUCCESS);
        return result;
    }
    static std::wstring nameOf(void* manager)
    {
        wchar_t text[1024];
        std::uint64_t size = 1024;
        EXPECT_EQ(GetRestorePointName(manager, text, &size), ERROR_SUCCESS);
        return text;
    }
    /// The code, and the flag in the next digit: 7 means unchanged.
    [[nodiscard]] long status() const
    {
        int flag = 7;
        const long code = IsSystemRestoreEnabled(manager, &flag);
        EXPECT_TRUE(com.isBalanced());
        return code * 10 + flag;
    }
    /// Creates or removes a restore point; checks the code and all arguments of the client.
    void expectCall(const wchar_t* answers, long code, const std::wstring& record, long long removed = -9)
    {
        RestoreClient::answer(answers);
        EXPECT_EQ(removed == -9 ? CreateRestorePoint(manager) : DeleteRestorePoint(manager, removed), code);
        EXPECT_EQ(client.takeRecord(), record) << answers << removed;
        EXPECT_TRUE(com.isBalanced()) << answers << removed;
        EXPECT_EQ(GetModuleHandleW(L"restore_client.dll"), nullptr) << "not unloaded";
    }

    std::string_view missing; // function
    std::pair<DWORD, DWORD> version{10, 0};
    RestoreClient client{scratchFolder()};
    Replaced<"GetProcAddress", decltype(&GetProcAddress)> functions;
    Replaced<"RtlGetVersion", LONG(WINAPI*)(RTL_OSVERSIONINFOW*)> versions;
    void* manager = CreateRestoreManager(L"tests");
    std::wstring name = nameOf(manager);
};
struct RestoreWmiTest : RestoreTest
{
    const FakeWmi wmi;
};
} // namespace

// The previous number stays unless a new restore point is created.
TEST_F(RestoreTest, TakesAPointWithBothCallsAndKeepsItsNumberOnlyThen)
{
    version = {6, 1}; // which never returns an older one
    // The code, the stored number, that of the second call if there is one, and the client's answers.
    for (const wchar_t* row : {L"5 0 - e5", L"1058 0 - s1058", L"1003 0 - e0", L"5 0 12 n12 e5",
                               L"183 0 0 n0 n0", L"0 12 12 n12 n99", L"5 12 - e5", L"183 12 12 n12 n12",
                               L"183 12 0 n0 n0", L"0 4294967295 4294967295 n4294967295 n0"}) {
        std::wistringstream fields(row);
        long code = 0;
        std::int64_t kept = 0;
        std::wstring ended, answers;
        std::getline(fields >> code >> kept >> ended >> std::ws, answers);
        expectCall(answers.c_str(), code,
                   L"set 100 12 0 " + name + L"\n" +
                       (ended == L"-" ? L"" : L"set 101 12 " + ended + L" " + name + L"\n"));
        EXPECT_EQ(number(), kept) << row;
    }
    // Only administrators, services, the process itself and the system may call this process, to execute.
    EXPECT_EQ(security, L"O:BAG:BAD:(A;;CCDC;;;BA)(A;;CCDC;;;LS)(A;;CCDC;;;NS)(A;;CCDC;;;PS)(A;;CCDC;;;SY)");
    EXPECT_EQ(level, DWORD{RPC_C_AUTHN_LEVEL_PKT_PRIVACY});
}

TEST_F(RestoreTest, RemovesThePointOfThatNumberAndNoOther)
{
    for (const auto& [removed, code, answers, record] : {std::tuple(12LL, 0L, L"n0", L"remove 12\n"),
                                                         {4294967295, 0, L"n0", L"remove 4294967295\n"},
                                                         {7, 5, L"e5", L"remove 7\n"},
                                                         {0, 13, L"s13", L"remove 0\n"},
                                                         {4294967296 + 12, 87, L"n0", L""},
                                                         {-1, 87, L"n0", L""}}) {
        RestoreClient::answer(L"n12 n12");
        CreateRestorePoint(manager);
        client.takeRecord();
        expectCall(answers, code, record, removed);
        EXPECT_EQ(number(), 0) << removed;
    }
    client.exists = false;
    expectCall(L"", ERROR_MOD_NOT_FOUND, L"", 12);
    expectCall(L"", ERROR_MOD_NOT_FOUND, L"");
    client.exists = true;
    for (const char* function :
         {"CoInitializeEx", "CoUninitialize", "CoInitializeSecurity", "CoCreateInstance", "CoSetProxyBlanket",
          "SysAllocString", "SysFreeString", "VariantClear", "SRRemoveRestorePoint", "SRSetRestorePointW"}) {
        missing = function;
        expectCall(L"", ERROR_PROC_NOT_FOUND, L"", missing == "SRSetRestorePointW" ? -9 : 12);
    }
    EXPECT_EQ(number(), 0);
}

// The system's success with the number of an older restore point is not a success, and the number is not
// stored.
TEST_F(RestoreWmiTest, TellsAnOlderPointFromItsOwn)
{
    const auto create = [&](DWORD minorVersion, const wchar_t* description, int withheld, long failing) {
        version = {6, minorVersion};
        FakeWmi::setText(L"Description", description);
        FakeWmi::withheld = withheld;
        com.fail(failing, kFailed);
        const long code = CreateRestorePoint(manager);
        EXPECT_EQ(number(), code == 0 ? 12 : 0);
        com.failing = 0;
        DeleteRestorePoint(manager, 12);
        EXPECT_TRUE(com.isBalanced());
        return code;
    };
    EXPECT_EQ(create(2, name.c_str(), -1, 0), 0);
    FakeWmi::takeAsked();
    EXPECT_EQ(create(2, L"Windows Update", -1, 0), 183);
    EXPECT_EQ(wmi.takeAsked(), L"ROOT\\Default;WQL;SELECT * FROM SystemRestore WHERE SequenceNumber = 12;");
    EXPECT_EQ(create(1, L"Windows Update", -1, 0), 0) << "that system keeps no such limit";
    EXPECT_EQ(create(2, L"Windows Update", FakeWmi::kNextRow, 0), 0) << "cannot be told";
    EXPECT_EQ(create(2, nullptr, -1, 0), 0) << "without a description it cannot be told";
    EXPECT_EQ(create(2, L"Windows Update", -1, 5), 0) << "cannot be asked";
}

TEST_F(RestoreTest, DescribesItsPointByNameAndLocalTime)
{
    Replaced<"GetLocalTime", decltype(&GetLocalTime)> clock(
        [](auto, SYSTEMTIME* now) { *now = {2010, 3, 5, 5, 14, 7, 9, 0}; });
    CloseRestoreManager(std::exchange(manager, CreateRestoreManager(L"Registry")));
    const std::wstring described = L"Registry_05.03.2010 14:07:09";
    const std::uint64_t needed = described.size() + 1;
    for (const std::uint64_t size : {std::uint64_t{0}, needed - 1, needed, needed + 1}) {
        std::uint64_t room = size;
        std::wstring buffer(needed + 1, L'?');
        EXPECT_EQ(GetRestorePointName(manager, buffer.data(), &room), size < needed ? 234 : 0) << size;
        EXPECT_EQ(room, std::max(size, needed)) << size;
        EXPECT_EQ(buffer, size < needed ? std::wstring(needed + 1, L'?') : described + L'\0' + L'?') << size;
    }
    // Cut where the client's field ends, between two characters.
    for (const std::size_t length : {254U, 255U}) {
        const std::wstring longName = std::wstring(length, L'x') + L"\U0001F5D1";
        CloseRestoreManager(std::exchange(manager, CreateRestoreManager(longName.c_str())));
        CreateRestorePoint(manager);
        EXPECT_TRUE(client.takeRecord().starts_with(L"set 100 12 0 " + longName.substr(0, length) + L"\n"));
        EXPECT_EQ(nameOf(manager), longName + L"_05.03.2010 14:07:09");
    }
}

TEST_F(RestoreWmiTest, AsksTheRegistryOrWmiAsTheVersionWants)
{
    FakeWmi::properties[L"RPSessionInterval"] = FakeWmi::number(1);
    // The version, the value's data (-1: no key, -2: no value, -3: a text), and the status.
    std::istringstream rows(
        "4 10 1 7  5 0 1 7  5 3 1 7  5 1 -1 1  5 2 -1 1  5 1 -2 27  5 1 0 1  5 2 1 0  5 1 2 0 "
        "5 2 -3 16307  6 0 1 1  6 1 1 1  6 3 1 1  10 0 1 1  11 0 1 1");
    int data = 0;
    for (long expected = 0; rows >> version.first >> version.second >> data >> expected;) {
        RegDeleteTreeW(HKEY_LOCAL_MACHINE, kKey);
        if (data != -1)
            RegSetKeyValueW(HKEY_LOCAL_MACHINE, kKey, data == -2 ? L"Other" : L"DisableSR",
                            data == -3 ? REG_SZ : REG_DWORD, &data, sizeof data);
        EXPECT_EQ(status(), expected) << version.first << "." << version.second << ", " << data;
    }
    EXPECT_TRUE(rows.eof());
    RegDeleteTreeW(HKEY_LOCAL_MACHINE, kKey);
    const Replaced<"RegOpenKeyExW", decltype(&RegOpenKeyExW)> keys(kEachCall, ERROR_ACCESS_DENIED, 0);
    version = {5, 1};
    EXPECT_EQ(status(), 57);
}

TEST_F(RestoreWmiTest, TakesFromWmiWhatItSays)
{
    EXPECT_EQ(status(), 0x1002 * 10 + 7) << "the property is missing";
    EXPECT_EQ(wmi.takeAsked(), L"ROOT\\Default;WQL;SELECT * FROM SystemRestoreConfig;");
    // The interval, its type, and the status.
    for (const auto& [interval, type, expected] :
         {std::tuple(1, VT_I4, 1), {0, VT_I4, 0}, {-1, VT_UI4, 1}, {1, VT_NULL, 137}, {1, VT_BOOL, 137}}) {
        FakeWmi::properties[L"RPSessionInterval"] = FakeWmi::number(interval, static_cast<VARTYPE>(type));
        EXPECT_EQ(status(), expected) << interval << " of type " << type;
    }
    FakeWmi::withheld = FakeWmi::kNextRow;
    EXPECT_EQ(status(), 11687) << "no row";
    FakeWmi::withheld = -1;
    for (const long result : {0L, 5L}) {
        FakeWmi::takeAsked();
        FakeWmi::properties[L"ReturnValue"] = FakeWmi::number(result);
        EXPECT_EQ(EnableSystemRestore(manager, L"D:\\"), result);
        EXPECT_EQ(wmi.takeAsked(), L"ROOT\\Default;SystemRestore;Enable;Drive=D:\\;SystemRestore;Enable;");
        EXPECT_EQ(level, DWORD{RPC_C_AUTHN_LEVEL_CONNECT});
    }
    FakeWmi::withheld = FakeWmi::kExecute;
    EXPECT_EQ(EnableSystemRestore(manager, L"D:\\"), 0x1002);
    EXPECT_EQ(EnableSystemRestore(manager, L""), 87) << "to WMI it means all drives";
    EXPECT_TRUE(com.isBalanced());
}

// Each call of each operation in turn fails: its code, and everything is given back.
TEST_F(RestoreWmiTest, ReportsEveryFailingCallAndGivesBackWhatItHas)
{
    FakeWmi::properties[L"RPSessionInterval"] = FakeWmi::properties[L"ReturnValue"] = FakeWmi::number(0);
    version = {6, 1};
    int flag = 7, point = 0;
    const auto create = [&] { // another one each time
        RestoreClient::answer((L"n" + std::to_wstring(++point)).c_str());
        return CreateRestorePoint(manager);
    };
    const std::pair<long, std::function<long()>> operations[] = {
        {15, [&] { return EnableSystemRestore(manager, L"C:\\"); }},
        {12, [&] { return IsSystemRestoreEnabled(manager, &flag); }},
        {2, [&] { return DeleteRestorePoint(manager, 12); }},
        {2, create}};
    DWORD handles = 0;
    for (int turn = 0; turn < 2; ++turn) {
        handles = turn == 0 ? 0 : processHandleCount();
        for (const auto& [calls, run] : operations) {
            com.fail(0, S_OK);
            EXPECT_TRUE(run() == ERROR_SUCCESS && com.calls == calls);
            for (long i = 2; i < 2 * calls + 2; ++i) {
                SCOPED_TRACE(testing::Message() << i / 2 << " of " << calls);
                flag = 7;
                com.fail(i / 2, i % 2 == 0 ? kFailed : kWithoutCode);
                const long result = run();
                EXPECT_EQ(result, com.code == E_OUTOFMEMORY ? 8 : i % 2 == 0 ? 0x1003 : 574);
                EXPECT_TRUE(com.isBalanced() && flag == 7);
            }
            com.fail(2, RPC_E_TOO_LATE); // the process's security, which is set already
            EXPECT_EQ(run(), ERROR_SUCCESS);
        }
    }
    EXPECT_LE(processHandleCount(), handles);
    com.fail(0, S_OK);
    for (const char* function :
         {"CreateWellKnownSid", "InitializeAcl", "AddAccessAllowedAce", "SetSecurityDescriptorOwner"}) {
        const ImportReplacement replaced(sysmaintModule(), function, address(+[]() -> BOOL {
                                             return SetLastError(ERROR_INVALID_SID), FALSE;
                                         }));
        EXPECT_EQ(CreateRestorePoint(manager), ERROR_INVALID_SID) << function;
        EXPECT_TRUE(com.isBalanced());
    }
}

// The platform's own WMI, on threads with an apartment of either kind and with none: each keeps what it has.
TEST_F(RestoreTest, UsesTheApartmentThatTheThreadHas)
{
    const auto apartment = [] {
        APTTYPE type{};
        APTTYPEQUALIFIER qualifier{};
        return std::make_pair(::CoGetApartmentType(&type, &qualifier), type);
    };
    for (const int kind : {-1, int{COINIT_MULTITHREADED}, int{COINIT_APARTMENTTHREADED}})
        std::thread([&] {
            SCOPED_TRACE(kind);
            const bool isInitialized = kind != -1 && SUCCEEDED(::CoInitializeEx(nullptr, kind));
            const auto before = apartment();
            EXPECT_EQ(EnableSystemRestore(manager, L"C:\\"), ERROR_SUCCESS);
            EXPECT_EQ(status(), 11687) << "it has no rows";
            EXPECT_TRUE(CreateRestorePoint(manager) == 0 && DeleteRestorePoint(manager, 12) == 0);
            EXPECT_TRUE(apartment() == before && com.isBalanced());
            if (isInitialized)
                ::CoUninitialize();
        }).join();
}
