#pragma once

#include <gtest/gtest.h>
#include <windows.h>

#include <winternl.h>

#include <memory>
#include <string>
#include <vector>

#include "core/win32/registry/api.h"
#include "support/ImportReplacement.h"
#include "support/Scan.h"

// The platform headers leave them out.
extern "C" {
NTSTATUS NTAPI NtCreateKey(PHANDLE, ACCESS_MASK, POBJECT_ATTRIBUTES, ULONG, PUNICODE_STRING, ULONG, PULONG);
NTSTATUS NTAPI NtDeleteKey(HANDLE);
NTSTATUS NTAPI NtQueryKey(HANDLE, int, PVOID, ULONG, PULONG);
}

inline const std::wstring kRoot = L"Software\\sysmaint-test";

constexpr int KeyNameInformation = 3; // NOLINT(readability-identifier-naming): the system's name

/// The whole name of a key, as the registry knows it.
inline std::wstring keyName(HANDLE key)
{
    static thread_local std::vector<wchar_t> name(200000);
    ULONG length = 0;
    if (NtQueryKey(key, KeyNameInformation, name.data(), static_cast<ULONG>(name.size() * 2), &length) != 0)
        return {};
    return {name.data() + 2, *reinterpret_cast<const ULONG*>(name.data()) / sizeof(wchar_t)};
}

/// Refuses what the DLL would delete outside the tests' own keys: a failing test must not take the prefix's
/// registry along.
class ScratchGuard
{
public:
    ScratchGuard()
        : m_keys(sysmaintModule(), "NtDeleteKey", reinterpret_cast<void*>(&deleteKey)),
          m_values(sysmaintModule(), "RegDeleteValueW", reinterpret_cast<void*>(&deleteValue))
    {
    }

private:
    static bool isScratch(HANDLE key) { return keyName(key).find(L"\\sysmaint-test") != std::wstring::npos; }
    static NTSTATUS NTAPI deleteKey(HANDLE key)
    {
        return isScratch(key) ? NtDeleteKey(key) : static_cast<NTSTATUS>(0xC0000022); // STATUS_ACCESS_DENIED
    }
    static LSTATUS WINAPI deleteValue(HKEY key, LPCWSTR name)
    {
        return isScratch(key) ? RegDeleteValueW(key, name) : ERROR_ACCESS_DENIED;
    }

    const ImportReplacement m_keys;
    const ImportReplacement m_values;
};

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

private:
    const ScratchGuard m_guard;
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

using KeyPtr = std::unique_ptr<IRegistryKey>;
using ValuePtr = std::unique_ptr<IRegistryValue>;
inline const std::wstring kFull = L"HKEY_CURRENT_USER\\" + kRoot;
