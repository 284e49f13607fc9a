#pragma once

#include <windows.h>

#include <optional>

#include "core/win32/utils/objectmanager/include/SystemLibrary.h"

namespace offline {
/// The system's offreg.dll, loaded from the system folder only. Not every development kit has a header and an
/// import library for it, so the functions used are declared here from its documentation.
class OfflineLibrary
{
public:
    /// A key, or the root key of an open hive.
    using Handle = void*;

    /// Empty when the library or one of the functions is missing.
    [[nodiscard]] static std::optional<OfflineLibrary> load();
    /// The same, but raises the bare code.
    [[nodiscard]] static OfflineLibrary require() { return OfflineLibrary(SystemLibrary(L"offreg.dll")); }

    DWORD(WINAPI* openHive)(PCWSTR path, Handle* hive) = nullptr;
    DWORD(WINAPI* saveHive)(Handle hive, PCWSTR path, DWORD osMajor, DWORD osMinor) = nullptr;
    DWORD(WINAPI* closeHive)(Handle hive) = nullptr;
    DWORD(WINAPI* createHive)(Handle* hive) = nullptr;
    DWORD(WINAPI* openKey)(Handle key, PCWSTR path, Handle* opened) = nullptr;
    DWORD(WINAPI* createKey)
    (Handle key, PCWSTR path, PWSTR className, DWORD options, PSECURITY_DESCRIPTOR security, Handle* created,
     PDWORD disposition) = nullptr;
    DWORD(WINAPI* closeKey)(Handle key) = nullptr;
    DWORD(WINAPI* deleteKey)(Handle key, PCWSTR path) = nullptr;
    DWORD(WINAPI* enumKey)
    (Handle key, DWORD index, PWSTR name, PDWORD nameLength, PWSTR className, PDWORD classLength,
     PFILETIME written) = nullptr;
    DWORD(WINAPI* queryInfoKey)
    (Handle key, PWSTR className, PDWORD classLength, PDWORD keys, PDWORD longestKey, PDWORD longestClass,
     PDWORD values, PDWORD longestName, PDWORD largestData, PDWORD securitySize, PFILETIME written) = nullptr;
    DWORD(WINAPI* getValue)
    (Handle key, PCWSTR path, PCWSTR name, PDWORD type, PVOID data, PDWORD size) = nullptr;
    DWORD(WINAPI* setValue)(Handle key, PCWSTR name, DWORD type, const BYTE* data, DWORD size) = nullptr;
    DWORD(WINAPI* deleteValue)(Handle key, PCWSTR name) = nullptr;
    DWORD(WINAPI* enumValue)
    (Handle key, DWORD index, PWSTR name, PDWORD nameLength, PDWORD type, PBYTE data, PDWORD size) = nullptr;

    /// Writes a hive to a new file and flushes it. Raises 183 when it exists. Deletes it when it cannot be
    /// written completely.
    void saveNew(Handle hive, const wchar_t* path) const;

private:
    explicit OfflineLibrary(SystemLibrary&& library);

    SystemLibrary m_library;
};
} // namespace offline
