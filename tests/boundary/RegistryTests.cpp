#include <gtest/gtest.h>
#include <windows.h>

#include <sddl.h>
#include <winternl.h>

#include <memory>
#include <string>

#include "core/win32/registry/api.h"
#include "support/ImportReplacement.h"
#include "support/KernelCalls.h"
#include "support/Scan.h"
#include "support/Threads.h"

// The platform headers leave them out.
extern "C" {
NTSTATUS NTAPI NtCreateKey(PHANDLE, ACCESS_MASK, POBJECT_ATTRIBUTES, ULONG, PUNICODE_STRING, ULONG, PULONG);
NTSTATUS NTAPI NtDeleteKey(HANDLE);
NTSTATUS NTAPI NtQueryKey(HANDLE, int, PVOID, ULONG, PULONG);
}

namespace {
const std::wstring kRoot = L"Software\\sysmaint-test";

/// The test's own key, empty at the beginning and gone at the end.
class TestKey
{
public:
    TestKey()
    {
        RegDeleteTreeW(HKEY_CURRENT_USER, kRoot.c_str());
        RegCreateKeyW(HKEY_CURRENT_USER, kRoot.c_str(), &handle);
    }
    TestKey(const TestKey&) = delete;
    TestKey& operator=(const TestKey&) = delete;
    ~TestKey()
    {
        RegCloseKey(handle);
        RegDeleteTreeW(HKEY_CURRENT_USER, kRoot.c_str());
    }
    void addKey(const std::wstring& name) const
    {
        HKEY key = nullptr;
        ASSERT_EQ(RegCreateKeyW(handle, name.c_str(), &key), ERROR_SUCCESS);
        RegCloseKey(key);
    }
    void addValue(const std::wstring& name, DWORD type = REG_SZ, const std::string& data = "") const
    {
        ASSERT_EQ(RegSetValueExW(handle, name.c_str(), 0, type, reinterpret_cast<const BYTE*>(data.data()),
                                 static_cast<DWORD>(data.size())),
                  ERROR_SUCCESS);
    }
    HKEY handle = nullptr;
};

class TestRegistryEngine
{
public:
    explicit TestRegistryEngine(INotifyHandler& handler) : handle(CreateRegistryScanEngine(L"registry test"))
    {
        RSEngineRegisterHandler(handle, handler, kContainerFound, 0, 0);
        RSEngineRegisterHandler(handle, handler, kLeafFound, 0, 0);
    }
    TestRegistryEngine(const TestRegistryEngine&) = delete;
    TestRegistryEngine& operator=(const TestRegistryEngine&) = delete;
    ~TestRegistryEngine() { CloseRegistryScanEngine(handle); }

    long scan(unsigned depth = 65535, HANDLE cancelEvent = nullptr, const wchar_t* path = kRoot.c_str()) const
    {
        RSEngineClear(handle);
        if (const long code = RSEngineAddPath(handle, HKEY_CURRENT_USER, path); code != ERROR_SUCCESS)
            return code;
        ScanOptions options;
        options.depthGiven = 1;
        options.depth = static_cast<std::uint16_t>(depth);
        return RSEngineScan(handle, cancelEvent, everything(), options);
    }
    void* handle;
};

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

constexpr int KeyNameInformation = 3; // NOLINT(readability-identifier-naming): the system's name

using KeyPtr = std::unique_ptr<IRegistryKey>;
using ValuePtr = std::unique_ptr<IRegistryValue>;
const std::wstring kFull = L"HKEY_CURRENT_USER\\" + kRoot;
} // namespace

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
            return codeOf([&] { set != 0 ? value->setValue(REG_SZ, L"x", 4) : value->create(); });
        });
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
    wchar_t real[2000];
    ULONG length = 0;
    ASSERT_EQ(NtQueryKey(root.handle, KeyNameInformation, real, sizeof real, &length), 0);
    ASSERT_EQ(RegDeleteKeyW(root.handle, L"found"), ERROR_SUCCESS);
    const std::wstring target = std::wstring(real + 2, *reinterpret_cast<ULONG*>(real) / 2) + L"\\target";
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
