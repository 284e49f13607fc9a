#pragma once

#include "support/StandIn.h"
#include "support/Wipe.h"

/// Puts a stand-in where the DLL loads the system's restore client, which must not be called here: it would
/// end the process. standins/RestoreClient.cpp describes what it answers and records.
class RestoreClient : public StandIn
{
public:
    explicit RestoreClient(const std::wstring& folder)
        : StandIn(L"srclient.dll", L"restore_client.dll"), m_record(folder + L"\\restore-record")
    {
        SetEnvironmentVariableW(L"SYSMAINT_RESTORE_RECORD", m_record.c_str());
    }

    static void answer(const wchar_t* text) { SetEnvironmentVariableW(L"SYSMAINT_RESTORE_ANSWERS", text); }
    /// The calls since the last time.
    std::wstring takeRecord() const
    {
        std::wstring text = readText(m_record);
        DeleteFileW(m_record.c_str());
        return text;
    }

private:
    std::wstring m_record;
};
