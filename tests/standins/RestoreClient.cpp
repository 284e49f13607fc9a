// Stands in for the system's restore client. Each call appends a line to the file that the environment names
// in SYSMAINT_RESTORE_RECORD, and takes the next answer from SYSMAINT_RESTORE_ANSWERS: "n12" succeeds with
// the number 12, "e5" fails with the last error 5, "s5" fails with the status 5 alone. Without answers: n12.

#include <windows.h>

#include <srrestoreptapi.h>

#include <string>

namespace {
struct Answer
{
    wchar_t kind = L'n';
    unsigned long value = 12;
};

void record(const std::wstring& line)
{
    wchar_t path[MAX_PATH] = L"";
    GetEnvironmentVariableW(L"SYSMAINT_RESTORE_RECORD", path, MAX_PATH);
    const HANDLE file = CreateFileW(path, FILE_APPEND_DATA, 0, nullptr, OPEN_ALWAYS, 0, nullptr);
    DWORD written = 0;
    WriteFile(file, line.data(), static_cast<DWORD>(line.size() * sizeof(wchar_t)), &written, nullptr);
    CloseHandle(file);
}

Answer nextAnswer()
{
    wchar_t answers[256] = L"";
    GetEnvironmentVariableW(L"SYSMAINT_RESTORE_ANSWERS", answers, 256);
    Answer answer;
    if (answers[0] == L'\0')
        return answer;
    wchar_t* end = nullptr;
    answer.kind = answers[0];
    answer.value = std::wcstoul(answers + 1, &end, 10);
    SetEnvironmentVariableW(L"SYSMAINT_RESTORE_ANSWERS", *end == L' ' ? end + 1 : end);
    return answer;
}
} // namespace

extern "C" __declspec(dllexport) WINBOOL
    __stdcall SRSetRestorePointW(RESTOREPOINTINFOW* point, STATEMGRSTATUS* status)
{
    record(L"set " + std::to_wstring(point->dwEventType) + L" " + std::to_wstring(point->dwRestorePtType) +
           L" " + std::to_wstring(point->llSequenceNumber) + L" " + point->szDescription + L"\n");
    const Answer answer = nextAnswer();
    if (answer.kind == L'n')
        status->llSequenceNumber = answer.value;
    else if (answer.kind == L's')
        status->nStatus = answer.value;
    else
        SetLastError(answer.value);
    return answer.kind == L'n';
}

extern "C" __declspec(dllexport) DWORD __stdcall SRRemoveRestorePoint(DWORD number)
{
    record(L"remove " + std::to_wstring(number) + L"\n");
    const Answer answer = nextAnswer();
    if (answer.kind == L'n')
        return ERROR_SUCCESS;
    if (answer.kind == L'e')
        SetLastError(answer.value);
    return answer.kind == L'e' ? 1 : answer.value;
}
