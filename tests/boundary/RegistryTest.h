#pragma once

#include "core/win32/registry/api.h"
#include "support/Faults.h"
#include "support/Links.h"
#include "support/Scan.h"

#include <sddl.h>

// The platform headers leave them out.
extern "C" {
NTSTATUS NTAPI NtCreateKey(PHANDLE, ACCESS_MASK, POBJECT_ATTRIBUTES, ULONG, PUNICODE_STRING, ULONG, PULONG);
NTSTATUS NTAPI NtDeleteKey(HANDLE);
NTSTATUS NTAPI NtQueryKey(HANDLE, int, PVOID, ULONG, PULONG);
}

inline const std::wstring kRoot = L"Software\\sysmaint-test";
inline const std::wstring kFull = L"HKEY_CURRENT_USER\\" + kRoot;
using KeyPtr = std::unique_ptr<IRegistryKey>;
using ValuePtr = std::unique_ptr<IRegistryValue>;

inline KeyPtr keyOf(const std::wstring& path, HKEY root = HKEY_CURRENT_USER)
{
    return KeyPtr(DllGetRegistryKey(root, path.c_str()));
}

inline ValuePtr valueOf(const std::wstring& path, const std::wstring& name, HKEY root = HKEY_CURRENT_USER)
{
    return ValuePtr(DllGetRegistryValue(root, path.c_str(), name.c_str()));
}

inline std::string dataOf(IRegistryValue& value)
{
    unsigned long size = 0;
    const void* data = value.getData(size);
    return {static_cast<const char*>(data), size};
}

inline bool hasKey(HKEY parent, const std::wstring& name)
{
    HKEY key = nullptr;
    return RegOpenKeyExW(parent, name.c_str(), REG_OPTION_OPEN_LINK, KEY_READ, &key) == ERROR_SUCCESS &&
           RegCloseKey(key) == ERROR_SUCCESS;
}

inline bool hasValue(HKEY parent, const std::wstring& key, const wchar_t* name)
{
    return RegGetValueW(parent, key.c_str(), name, RRF_RT_ANY, nullptr, nullptr, nullptr) == ERROR_SUCCESS;
}

/// A security descriptor from its text.
inline std::shared_ptr<void> descriptorOf(const wchar_t* text)
{
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    ConvertStringSecurityDescriptorToSecurityDescriptorW(text, SDDL_REVISION_1, &descriptor, nullptr);
    return {descriptor, LocalFree};
}

/// The full name of a key in the registry.
inline std::wstring keyName(HANDLE key)
{
    constexpr int kNameInformation = 3;
    static thread_local std::vector<wchar_t> name(200000);
    ULONG length = 0;
    if (NtQueryKey(key, kNameInformation, name.data(), static_cast<ULONG>(name.size() * 2), &length) != 0)
        return {};
    return {name.data() + 2, *reinterpret_cast<const ULONG*>(name.data()) / sizeof(wchar_t)};
}

/// Refuses deletions outside the tests' own keys: a failing test must not destroy the prefix's registry.
class ScratchGuard
{
    static bool isScratch(HANDLE key) { return keyName(key).find(L"\\sysmaint-test") != std::wstring::npos; }
    static NTSTATUS NTAPI deleteKey(HANDLE key)
    {
        return isScratch(key) ? NtDeleteKey(key) : static_cast<NTSTATUS>(0xC0000022); // STATUS_ACCESS_DENIED
    }
    static LSTATUS WINAPI deleteValue(HKEY key, LPCWSTR name)
    {
        return isScratch(key) ? RegDeleteValueW(key, name) : ERROR_ACCESS_DENIED;
    }

    const ImportReplacement m_keys{sysmaintModule(), "NtDeleteKey", address(&deleteKey)};
    const ImportReplacement m_values{sysmaintModule(), "RegDeleteValueW", address(&deleteValue)};
};

/// A key for the tests, empty at the beginning and deleted at the end, and an engine to scan it.
struct Registry : testing::Test
{
    Registry()
    {
        RegDeleteTreeW(HKEY_CURRENT_USER, kRoot.c_str());
        RegCreateKeyW(HKEY_CURRENT_USER, kRoot.c_str(), &root);
        for (const unsigned long key : {kContainerFound, kLeafFound, kListingFailed})
            RSEngineRegisterHandler(engine, collector, key, 0, 0);
    }
    ~Registry() override
    {
        CloseRegistryScanEngine(engine);
        RegCloseKey(root);
        RegDeleteTreeW(HKEY_CURRENT_USER, kRoot.c_str());
    }

    template <class... Names>
    void addKey(const Names&... names) const
    {
        HKEY key = nullptr;
        for (const std::wstring& name : {std::wstring(names)...})
            EXPECT_TRUE(RegCreateKeyW(root, name.c_str(), &key) == 0 && RegCloseKey(key) == 0);
    }
    /// Adds a value to a key below the tests' key, and creates that key if necessary.
    void addValue(const std::wstring& name, const std::string& data = "", const wchar_t* key = nullptr) const
    {
        ASSERT_EQ(RegSetKeyValueW(root, key, name.c_str(), REG_BINARY, data.data(), DWORD(data.size())), 0);
    }
    void addLink(const wchar_t* name, const std::wstring& target) const { makeKeyLink(root, name, target); }

    /// Scans one path and removes it.
    long scan(const std::wstring& path = kRoot, unsigned depth = 65535, HANDLE cancelEvent = nullptr)
    {
        long code = RSEngineAddPath(engine, HKEY_CURRENT_USER, path.c_str());
        if (code == ERROR_SUCCESS)
            code = scanAdded(depth, cancelEvent);
        RSEngineClear(engine);
        return code;
    }
    /// Scans what was added to the engine.
    long scanAdded(unsigned depth = 65535, HANDLE cancelEvent = nullptr)
    {
        collector.paths.clear();
        collector.codes.clear();
        collector.calls = 0;
        ScanOptions options;
        options.depthGiven = 1;
        options.depth = static_cast<std::uint16_t>(depth);
        return RSEngineScan(engine, cancelEvent, everything(), options);
    }
    /// The last scan reported each of these below the tests' key once, and nothing else.
    void expectFound(const std::vector<std::wstring>& names) const
    {
        std::map<std::wstring, int> expected;
        for (const std::wstring& name : names)
            expected[std::wstring(kFull).append(L"\\").append(name)] = 1;
        EXPECT_EQ(collector.paths, expected);
    }

    /// Scans for the item whose full path ends so.
    SharedPtr<ScanItem> find(std::wstring_view end)
    {
        SharedPtr<ScanItem> found;
        collector.action = [&](const Notification&, const SharedPtr<ScanItem>& item) {
            if (std::wstring_view(item->getPath()).ends_with(end))
                found = item;
        };
        EXPECT_EQ(scan(), ERROR_SUCCESS);
        collector.action = nullptr;
        return found;
    }

    HKEY root = nullptr;
    Collector collector;
    void* const engine = CreateRegistryScanEngine(L"registry test");

private:
    const ScratchGuard m_guard;
};
