// Stands in for the snapshot tool: writes its command line as received, and each of its arguments on a line,
// to the file named in the environment variable SYSMAINT_TOOL_RECORD. SYSMAINT_TOOL_DELAY: milliseconds
// before that; SYSMAINT_TOOL_RESULT: its exit code.

#include <windows.h>

#include <cwchar>
#include <string>

int wmain(int count, wchar_t** arguments)
{
    const auto number = [](const wchar_t* name) {
        wchar_t text[16] = L"";
        GetEnvironmentVariableW(name, text, 16);
        return static_cast<int>(std::wcstol(text, nullptr, 10));
    };
    Sleep(static_cast<DWORD>(number(L"SYSMAINT_TOOL_DELAY")));
    std::wstring text = GetCommandLineW();
    for (int i = 0; i < count; ++i)
        text += std::wstring(L"\n") + arguments[i];
    wchar_t path[MAX_PATH] = L"";
    GetEnvironmentVariableW(L"SYSMAINT_TOOL_RECORD", path, MAX_PATH);
    const HANDLE file = CreateFileW(path, GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr);
    DWORD written = 0;
    WriteFile(file, text.data(), static_cast<DWORD>(text.size() * sizeof(wchar_t)), &written, nullptr);
    CloseHandle(file);
    return number(L"SYSMAINT_TOOL_RESULT");
}
