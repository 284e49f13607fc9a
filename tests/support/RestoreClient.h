#pragma once

#include "support/Wipe.h"

/// Puts a stand-in where the DLL loads the system's restore client, which must not be called here: it would
/// end the process. standins/RestoreClient.cpp describes what it answers and records.
class RestoreClient
{
public:
    explicit RestoreClient(const std::wstring& folder) : m_record(folder + L"\\restore-record")
    {
        SetEnvironmentVariableW(L"SYSMAINT_RESTORE_RECORD", m_record.c_str());
        m_loads.setHook([this](auto original, LPCWSTR name, HANDLE file, DWORD flags) -> HMODULE {
            EXPECT_EQ(flags, DWORD{LOAD_LIBRARY_SEARCH_SYSTEM32}) << name;
            if (std::wstring_view(name) != L"srclient.dll")
                return original(name, file, flags);
            SetLastError(ERROR_MOD_NOT_FOUND);
            return isMissing ? nullptr : LoadLibraryW(besideTests(L"restore_client.dll").c_str());
        });
    }

    static void answer(const wchar_t* text) { SetEnvironmentVariableW(L"SYSMAINT_RESTORE_ANSWERS", text); }
    /// The calls since the last time.
    std::wstring takeRecord() const
    {
        std::wstring text = readText(m_record);
        DeleteFileW(m_record.c_str());
        return text;
    }

    bool isMissing = false;

private:
    std::wstring m_record;
    Replaced<"LoadLibraryExW", decltype(&LoadLibraryExW)> m_loads;
};
