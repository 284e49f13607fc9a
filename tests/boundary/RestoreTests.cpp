// Restore managers, with a stand-in for the restore client, one for WMI, and the platform's own WMI.

#include <objbase.h>
#include <sddl.h>

#include <thread>

#include "core/win32/utils/restoremanager/api.h"
#include "support/RestoreClient.h"
#include "support/Wmi.h"

namespace {
constexpr wchar_t kKey[] = L"Software\\Microsoft\\Windows NT\\CurrentVersion\\SystemRestore";
constexpr auto kFailed = static_cast<HRESULT>(0x80041003);
constexpr long kFailedCode = 0x1003;

// In the place of COM's functions.
HRESULT WINAPI initialize(void* reserved, DWORD kind)
{
    HRESULT result = com.next();
    if (SUCCEEDED(result))
        result = ::CoInitializeEx(reserved, kind);
    com.apartments += SUCCEEDED(result) ? 1 : 0;
    return result;
}
void WINAPI uninitialize()
{
    --com.apartments;
    EXPECT_EQ(com.references, 0) << "released after COM";
    ::CoUninitialize();
}
HRESULT WINAPI initializeSecurity(PSECURITY_DESCRIPTOR descriptor, LONG, SOLE_AUTHENTICATION_SERVICE*, void*,
                                  DWORD level, DWORD, void*, DWORD, void*)
{
    wchar_t* text = nullptr;
    if (descriptor != nullptr)
        ConvertSecurityDescriptorToStringSecurityDescriptorW(
            descriptor, SDDL_REVISION_1,
            OWNER_SECURITY_INFORMATION | GROUP_SECURITY_INFORMATION | DACL_SECURITY_INFORMATION, &text,
            nullptr);
    com.security = text != nullptr ? text : L"";
    com.level = level;
    LocalFree(text);
    return com.next();
}
HRESULT WINAPI createInstance(const CLSID& id, IUnknown* outer, DWORD context, const IID& type, void** object)
{
    const HRESULT result = com.next();
    return FAILED(result) ? result : ::CoCreateInstance(id, outer, context, type, object);
}
HRESULT WINAPI setProxyBlanket(IUnknown* proxy, DWORD service, DWORD authorization, OLECHAR* name,
                               DWORD level, DWORD impersonation, void* identity, DWORD capabilities)
{
    EXPECT_EQ(impersonation, DWORD{RPC_C_IMP_LEVEL_IMPERSONATE});
    const HRESULT result = com.next();
    return FAILED(result) || com.isStandIn ? result
                                           : ::CoSetProxyBlanket(proxy, service, authorization, name, level,
                                                                 impersonation, identity, capabilities);
}
BSTR WINAPI allocString(const wchar_t* text)
{
    com.failedText = FAILED(com.next());
    com.texts += com.failedText ? 0 : 1;
    return com.failedText ? nullptr : ::SysAllocString(text);
}
void WINAPI freeString(BSTR text)
{
    com.texts -= text != nullptr ? 1 : 0;
    ::SysFreeString(text);
}
HRESULT WINAPI clearVariant(VARIANT* value)
{
    com.texts -= value->vt == VT_BSTR ? 1 : 0;
    return ::VariantClear(value);
}

class RestoreTest : public testing::Test
{
protected:
    RestoreTest()
    {
        com = ComCalls{};
        version = {10, 0};
        RestoreClient::answer(nullptr);
        functions.setHook([this](auto original, HMODULE module, LPCSTR name) -> FARPROC {
            if (name == missingFunction) {
                SetLastError(ERROR_PROC_NOT_FOUND);
                return nullptr;
            }
            const auto found = kReplaced.find(name);
            return found != kReplaced.end() ? reinterpret_cast<FARPROC>(found->second)
                                            : original(module, name);
        });
        versions.setHook([this](auto, RTL_OSVERSIONINFOW* told) -> LONG {
            told->dwMajorVersion = version.first;
            told->dwMinorVersion = version.second;
            return 0;
        });
    }
    ~RestoreTest() override
    {
        CloseRestoreManager(manager);
        RegDeleteTreeW(HKEY_LOCAL_MACHINE, kKey);
    }

    [[nodiscard]] std::int64_t number() const
    {
        std::int64_t result = -1;
        EXPECT_EQ(GetRestorePointID(manager, result), ERROR_SUCCESS);
        return result;
    }
    [[nodiscard]] static std::wstring nameOf(void* manager)
    {
        wchar_t text[1024];
        std::uint64_t size = 1024;
        EXPECT_EQ(GetRestorePointName(manager, text, &size), ERROR_SUCCESS);
        return text;
    }

    static inline const std::map<std::string_view, void*> kReplaced{
        {"CoInitializeEx", FakeObject::method(&initialize)},
        {"CoUninitialize", FakeObject::method(&uninitialize)},
        {"CoInitializeSecurity", FakeObject::method(&initializeSecurity)},
        {"CoCreateInstance", FakeObject::method(&createInstance)},
        {"CoSetProxyBlanket", FakeObject::method(&setProxyBlanket)},
        {"SysAllocString", FakeObject::method(&allocString)},
        {"SysFreeString", FakeObject::method(&freeString)},
        {"VariantClear", FakeObject::method(&clearVariant)}};
    std::string_view missingFunction;
    std::pair<DWORD, DWORD> version;
    RestoreClient client{scratchFolder()};
    Replaced<"GetProcAddress", decltype(&GetProcAddress)> functions;
    Replaced<"RtlGetVersion", LONG(WINAPI*)(RTL_OSVERSIONINFOW*)> versions;
    void* manager = CreateRestoreManager(L"tests");
    std::wstring name = nameOf(manager);
};
} // namespace

TEST_F(RestoreTest, TakesAPointWithBothCallsAndKeepsItsNumberOnlyThen)
{
    const std::wstring begun = L"set 100 12 0 " + name + L"\n";
    const auto ended = [&](const wchar_t* number) {
        return L"set 101 12 " + (number + (L" " + name)) + L"\n";
    };
    struct Row
    {
        const wchar_t* answers;
        long code;
        std::wstring record;
        std::int64_t number; // afterwards: what stood there stays unless a new one is made
    };
    const Row rows[] = {{L"e5", 5, begun, 0},
                        {L"s1058", 1058, begun, 0},
                        {L"e0", 1003, begun, 0},
                        {L"n12 e5", 5, begun + ended(L"12"), 0},
                        {L"n0 n0", 183, begun + ended(L"0"), 0},
                        {L"n12 n99", 0, begun + ended(L"12"), 12},
                        {L"e5", 5, begun, 12},
                        {L"n12 n12", 183, begun + ended(L"12"), 12},
                        {L"n4294967295 n0", 0, begun + ended(L"4294967295"), 4294967295}};
    for (const Row& row : rows) {
        RestoreClient::answer(row.answers);
        EXPECT_EQ(CreateRestorePoint(manager), row.code) << row.answers;
        EXPECT_EQ(client.takeRecord(), row.record) << row.answers;
        EXPECT_EQ(number(), row.number) << row.answers;
        EXPECT_TRUE(com.isBalanced()) << row.answers;
        EXPECT_EQ(GetModuleHandleW(L"restore_client.dll"), nullptr) << "not unloaded";
    }
    // Administrators, services, the process itself and the system may call in, to execute; nobody else.
    EXPECT_EQ(com.security,
              L"O:BAG:BAD:(A;;CCDC;;;BA)(A;;CCDC;;;LS)(A;;CCDC;;;NS)(A;;CCDC;;;PS)(A;;CCDC;;;SY)");
}

TEST_F(RestoreTest, NeedsTheClientAndItsFunctions)
{
    CreateRestorePoint(manager);
    client.takeRecord();
    const auto both = [&](long code, const char* what) {
        EXPECT_EQ(CreateRestorePoint(manager), code) << what;
        EXPECT_EQ(number(), 12) << what;
        EXPECT_EQ(DeleteRestorePoint(manager, 12), code) << what;
        EXPECT_EQ(number(), 0) << what;
        EXPECT_TRUE(com.isBalanced()) << what;
        EXPECT_EQ(client.takeRecord(), L"") << what;
    };
    client.isMissing = true;
    both(ERROR_MOD_NOT_FOUND, "no library");
    client.isMissing = false;
    for (const auto& [function, fake] : kReplaced) {
        CreateRestorePoint(manager);
        client.takeRecord();
        missingFunction = function;
        both(ERROR_PROC_NOT_FOUND, function.data());
        missingFunction = {};
    }
    missingFunction = "SRSetRestorePointW";
    EXPECT_EQ(CreateRestorePoint(manager), ERROR_PROC_NOT_FOUND);
    missingFunction = "SRRemoveRestorePoint";
    EXPECT_EQ(DeleteRestorePoint(manager, 12), ERROR_PROC_NOT_FOUND);
}

TEST_F(RestoreTest, RemovesThePointOfThatNumberAndNoOther)
{
    struct Row
    {
        std::int64_t number;
        const wchar_t* answers;
        long code;
        const wchar_t* record;
    };
    for (const Row& row :
         {Row{12, L"n0", 0, L"remove 12\n"}, Row{4294967295, L"n0", 0, L"remove 4294967295\n"},
          Row{0, L"s13", 13, L"remove 0\n"}, Row{7, L"e5", 5, L"remove 7\n"},
          Row{4294967296 + 12, L"n0", 87, L""}, Row{-1, L"n0", 87, L""}}) {
        RestoreClient::answer(L"n12 n12");
        CreateRestorePoint(manager);
        client.takeRecord();
        RestoreClient::answer(row.answers);
        EXPECT_EQ(DeleteRestorePoint(manager, row.number), row.code) << row.number;
        EXPECT_EQ(client.takeRecord(), row.record) << row.number;
        EXPECT_EQ(number(), 0) << row.number;
        EXPECT_TRUE(com.isBalanced());
    }
}

// The system's success with an older restore point's number is no success, and that number is not kept.
TEST_F(RestoreTest, TellsAnOlderPointFromItsOwn)
{
    const FakeWmi wmi(COINIT_MULTITHREADED);
    struct Row
    {
        DWORD minor; // of NT 6
        VARIANT description;
        long rows;
        HRESULT failing;
        long code;
    };
    const VARIANT own = FakeWmi::text(name.c_str());
    const VARIANT other = FakeWmi::text(L"Windows Update");
    for (const Row& row : {Row{2, own, 1, S_OK, 0}, Row{2, other, 1, S_OK, 183}, Row{1, other, 1, S_OK, 0},
                           Row{2, other, 0, S_OK, 0}, Row{2, other, 1, kFailed, 0}}) {
        version = {6, row.minor};
        FakeWmi::properties[L"Description"] = row.description;
        FakeWmi::rows = row.rows;
        FakeWmi::asked.clear();
        com.calls = 0;
        com.failing = row.failing == S_OK ? 0 : 5; // connecting
        com.code = row.failing;
        EXPECT_EQ(CreateRestorePoint(manager), row.code);
        EXPECT_EQ(number(), row.code == 0 ? 12 : 0);
        EXPECT_TRUE(com.isBalanced());
        if (row.minor == 2 && row.failing == S_OK) {
            EXPECT_EQ(FakeWmi::asked,
                      L"ROOT\\Default;WQL:SELECT * FROM SystemRestore WHERE SequenceNumber = 12;");
        }
        DeleteRestorePoint(manager, 12);
    }
    ::SysFreeString(own.bstrVal);
    ::SysFreeString(other.bstrVal);
}

TEST_F(RestoreTest, DescribesItsPointByNameAndLocalTime)
{
    CloseRestoreManager(manager);
    Replaced<"GetLocalTime", decltype(&GetLocalTime)> clock(
        [](auto, SYSTEMTIME* now) { *now = {2010, 3, 5, 5, 14, 7, 9, 0}; });
    manager = CreateRestoreManager(L"Registry");
    const std::wstring described = L"Registry_05.03.2010 14:07:09";
    wchar_t buffer[64];
    const std::uint64_t needed = described.size() + 1;
    for (const std::uint64_t size : {std::uint64_t{0}, needed - 1, needed, needed + 1}) {
        std::uint64_t room = size;
        std::fill(std::begin(buffer), std::end(buffer), L'?');
        EXPECT_EQ(GetRestorePointName(manager, buffer, &room), size < needed ? 234 : 0) << size;
        EXPECT_EQ(room, std::max(size, needed)) << size;
        EXPECT_EQ(std::wstring(buffer, 2), size < needed ? L"??" : L"Re");
        if (size >= needed) {
            EXPECT_STREQ(buffer, described.c_str());
        }
        EXPECT_EQ(buffer[needed], L'?') << size;
    }
    // Cut where the client's field ends, between two characters.
    for (const std::size_t length : {254U, 255U}) {
        const std::wstring longName = std::wstring(length, L'x') + L"\U0001F5D1";
        void* const other = CreateRestoreManager(longName.c_str());
        EXPECT_EQ(CreateRestorePoint(other), 0);
        EXPECT_EQ(client.takeRecord().substr(0, 13 + length + 1),
                  L"set 100 12 0 " + longName.substr(0, length) + L"\n");
        EXPECT_EQ(nameOf(other), longName + L"_05.03.2010 14:07:09");
        CloseRestoreManager(other);
    }
}

TEST_F(RestoreTest, AsksTheRegistryOrWmiAsTheVersionWants)
{
    const FakeWmi wmi(COINIT_MULTITHREADED);
    FakeWmi::properties[L"RPSessionInterval"] = FakeWmi::number(1);
    struct Row
    {
        DWORD major, minor;
        int data; // of the value; -1: no key, -2: no value, -3: a text
        long code;
        int flag; // 7: as it was
    };
    const Row rows[] = {{5, 0, 1, 0, 7},  {5, 1, -1, 0, 1}, {5, 2, -1, 0, 1}, {5, 1, -2, 2, 7},
                        {5, 1, 0, 0, 1},  {5, 2, 1, 0, 0},  {5, 1, 2, 0, 0},  {5, 2, -3, 1630, 7},
                        {5, 3, 1, 0, 7},  {6, 0, 1, 0, 1},  {6, 1, 1, 0, 1},  {6, 3, 1, 0, 1},
                        {10, 0, 1, 0, 1}, {11, 0, 1, 0, 1}, {4, 10, 1, 0, 7}};
    for (const Row& row : rows) {
        version = {row.major, row.minor};
        RegDeleteTreeW(HKEY_LOCAL_MACHINE, kKey);
        const DWORD number = static_cast<DWORD>(row.data);
        if (row.data == -2)
            RegSetKeyValueW(HKEY_LOCAL_MACHINE, kKey, L"Other", REG_DWORD, &number, sizeof number);
        else if (row.data != -1)
            RegSetKeyValueW(HKEY_LOCAL_MACHINE, kKey, L"DisableSR", row.data == -3 ? REG_SZ : REG_DWORD,
                            &number, sizeof number);
        int flag = 7;
        EXPECT_EQ(IsSystemRestoreEnabled(manager, &flag), row.code) << row.major << "." << row.minor;
        EXPECT_EQ(flag, row.flag) << row.major << "." << row.minor << ", " << row.data;
    }
    Replaced<"RegOpenKeyExW", decltype(&RegOpenKeyExW)> keys(
        [](auto...) -> LSTATUS { return ERROR_ACCESS_DENIED; });
    version = {5, 1};
    int flag = 7;
    EXPECT_EQ(IsSystemRestoreEnabled(manager, &flag), ERROR_ACCESS_DENIED);
    EXPECT_EQ(flag, 7);
}

TEST_F(RestoreTest, TakesFromWmiWhatItSays)
{
    const FakeWmi wmi(COINIT_MULTITHREADED);
    struct Row
    {
        long rows;
        VARIANT interval;
        long code;
        int flag;
    };
    for (const Row& row :
         {Row{1, FakeWmi::number(1), 0, 1}, Row{1, FakeWmi::number(0), 0, 0},
          Row{3, FakeWmi::number(-1, VT_UI4), 0, 1}, Row{0, FakeWmi::number(1), 1168, 7},
          Row{1, FakeWmi::number(1, VT_NULL), 13, 7}, Row{1, FakeWmi::number(1, VT_BOOL), 13, 7}}) {
        FakeWmi::rows = row.rows;
        FakeWmi::properties[L"RPSessionInterval"] = row.interval;
        int flag = 7;
        EXPECT_EQ(IsSystemRestoreEnabled(manager, &flag), row.code) << row.rows << ", " << row.interval.vt;
        EXPECT_EQ(flag, row.flag);
        EXPECT_EQ(FakeWmi::asked, L"ROOT\\Default;WQL:SELECT * FROM SystemRestoreConfig;");
        EXPECT_TRUE(com.isBalanced());
    }
    FakeWmi::properties.clear();
    int flag = 7;
    EXPECT_EQ(IsSystemRestoreEnabled(manager, &flag), 0x1002) << "the property is missing";
    EXPECT_EQ(flag, 7);

    for (const long result : {0L, 5L}) {
        FakeWmi::properties[L"ReturnValue"] = FakeWmi::number(result);
        EXPECT_EQ(EnableSystemRestore(manager, L"D:\\"), result);
        EXPECT_EQ(FakeWmi::asked, L"ROOT\\Default;SystemRestore;Enable;Drive=D:\\;SystemRestore.Enable;");
        EXPECT_EQ(com.level, DWORD{RPC_C_AUTHN_LEVEL_CONNECT});
    }
    FakeWmi::hasAnswer = false;
    EXPECT_EQ(EnableSystemRestore(manager, L"D:\\"), 0x1002);
    EXPECT_EQ(EnableSystemRestore(manager, L""), 87) << "to WMI it means all drives";
    EXPECT_TRUE(com.isBalanced());
}

// Each call of each operation in turn fails: its code, and everything is given back.
TEST_F(RestoreTest, ReportsEveryFailingCallAndGivesBackWhatItHas)
{
    const FakeWmi wmi(COINIT_MULTITHREADED);
    FakeWmi::properties[L"RPSessionInterval"] = FakeWmi::properties[L"ReturnValue"] = FakeWmi::number(0);
    int flag = 7;
    const std::pair<long, std::function<long()>> operations[] = {
        {12, [&] { return EnableSystemRestore(manager, L"C:\\"); }},
        {12, [&] { return IsSystemRestoreEnabled(manager, &flag); }},
        {2, [&] { return DeleteRestorePoint(manager, 12); }},
        {2, [&] {
             return version = {6, 1}, CreateRestorePoint(manager);
         }}};
    DWORD handles = 0;
    for (int turn = 0; turn < 2; ++turn) {
        handles = turn == 0 ? 0 : processHandleCount();
        for (const auto& [least, run] : operations) {
            com.calls = com.failing = 0;
            EXPECT_EQ(run(), ERROR_SUCCESS);
            const long calls = com.calls;
            EXPECT_GE(calls, least);
            for (com.failing = 1; com.failing <= calls; ++com.failing) {
                for (const HRESULT code : {kFailed, static_cast<HRESULT>(0x80040000)}) {
                    flag = 7;
                    com.calls = 0;
                    com.code = code;
                    com.failedText = false;
                    const long result = run();
                    const long expected = com.failedText ? 8 : code == kFailed ? kFailedCode : 574;
                    EXPECT_EQ(result, expected) << com.failing << " of " << calls;
                    EXPECT_TRUE(com.isBalanced()) << com.failing << " of " << calls;
                    EXPECT_EQ(flag, 7);
                }
            }
        }
    }
    EXPECT_LE(processHandleCount(), handles);
    // The second call is the one for the process's security: that it is set already does no harm.
    com.code = RPC_E_TOO_LATE;
    for (const auto& [least, run] : operations) {
        com.calls = 0;
        com.failing = 2;
        EXPECT_EQ(run(), ERROR_SUCCESS);
    }
    const char* const failing[] = {"CreateWellKnownSid", "InitializeAcl", "AddAccessAllowedAce",
                                   "SetSecurityDescriptorOwner"};
    for (const char* function : failing) {
        const ImportReplacement replaced(sysmaintModule(), function, FakeObject::method(+[]() -> BOOL {
                                             SetLastError(ERROR_INVALID_SID);
                                             return FALSE;
                                         }));
        com.failing = 0;
        EXPECT_EQ(CreateRestorePoint(manager), ERROR_INVALID_SID) << function;
        EXPECT_TRUE(com.isBalanced());
    }
}

// The platform's own WMI, on threads with an apartment of either kind and with none: each keeps what it has.
TEST_F(RestoreTest, UsesTheApartmentThatTheThreadHas)
{
    for (const int kind :
         {-1, static_cast<int>(COINIT_MULTITHREADED), static_cast<int>(COINIT_APARTMENTTHREADED)})
        std::thread([&] {
            if (kind != -1)
                ::CoInitializeEx(nullptr, static_cast<DWORD>(kind));
            const auto apartment = [] {
                APTTYPE type{};
                APTTYPEQUALIFIER qualifier{};
                const HRESULT result = ::CoGetApartmentType(&type, &qualifier);
                return std::to_string(result) + "," + std::to_string(type);
            };
            const std::string before = apartment();
            int flag = 7;
            EXPECT_EQ(EnableSystemRestore(manager, L"C:\\"), ERROR_SUCCESS) << kind;
            EXPECT_EQ(IsSystemRestoreEnabled(manager, &flag), ERROR_NOT_FOUND) << kind; // it has no rows
            EXPECT_EQ(flag, 7);
            EXPECT_EQ(CreateRestorePoint(manager), ERROR_SUCCESS) << kind;
            EXPECT_EQ(DeleteRestorePoint(manager, 12), ERROR_SUCCESS) << kind;
            EXPECT_EQ(apartment(), before) << kind;
            EXPECT_TRUE(com.isBalanced()) << kind;
            if (kind != -1)
                ::CoUninitialize();
        }).join();
}
