// Stands in for the system's restore client. Each call appends a line to the file named in the environment
// variable SYSMAINT_RESTORE_RECORD, and takes the next answer from SYSMAINT_RESTORE_ANSWERS: "n12" succeeds
// with the number 12, "e5" fails with the last error 5, "s5" fails with only the status 5. Without answers:
// n12. The system's header declares both functions without a mark, so none is marked for export, and the
// linker exports every function.

#include <windows.h>

#include <srrestoreptapi.h>

#include <cstdio>
#include <cwchar>
#include <string>
#include <utility>

namespace {
void record(const std::wstring& line)
{
    wchar_t path[MAX_PATH] = L"";
    GetEnvironmentVariableW(L"SYSMAINT_RESTORE_RECORD", path, MAX_PATH);
    if (FILE* const file = _wfopen(path, L"ab"); file != nullptr) {
        std::fwrite(line.data(), sizeof(wchar_t), line.size(), file);
        std::fclose(file);
    }
}

/// The kind of the next answer, and its number.
std::pair<wchar_t, unsigned long> nextAnswer()
{
    wchar_t answers[256] = L"";
    if (GetEnvironmentVariableW(L"SYSMAINT_RESTORE_ANSWERS", answers, 256) == 0)
        return {L'n', 12};
    wchar_t* end = nullptr;
    const unsigned long value = std::wcstoul(answers + 1, &end, 10);
    SetEnvironmentVariableW(L"SYSMAINT_RESTORE_ANSWERS", *end == L' ' ? end + 1 : end);
    return {answers[0], value};
}
} // namespace

extern "C" WINBOOL __stdcall SRSetRestorePointW(RESTOREPOINTINFOW* point, STATEMGRSTATUS* status)
{
    const DWORD before = GetLastError();
    record(L"set " + std::to_wstring(point->dwEventType) + L" " + std::to_wstring(point->dwRestorePtType) +
           L" " + std::to_wstring(point->llSequenceNumber) + L" " + point->szDescription + L"\n");
    const auto [kind, value] = nextAnswer();
    if (kind == L'n')
        status->llSequenceNumber = value;
    else if (kind == L's')
        status->nStatus = value;
    SetLastError(kind == L'e' ? value : before);
    return kind == L'n';
}

extern "C" DWORD __stdcall SRRemoveRestorePoint(DWORD number)
{
    record(L"remove " + std::to_wstring(number) + L"\n");
    const auto [kind, value] = nextAnswer();
    if (kind == L'e')
        SetLastError(value);
    return kind == L'n' ? ERROR_SUCCESS : kind == L'e' ? 1 : value;
}
