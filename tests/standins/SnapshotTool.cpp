// Stands in for the snapshot tool: writes its command line as received, and each of its arguments on a line,
// to the file named in the environment variable SYSMAINT_TOOL_RECORD. SYSMAINT_TOOL_DELAY: milliseconds
// before that; SYSMAINT_TOOL_RESULT: its exit code.

#include <windows.h>

#include <cwchar>
#include <filesystem>
#include <fstream>
#include <string>

int wmain(int count, wchar_t** arguments)
{
    const auto number = [](const wchar_t* name) {
        const wchar_t* const text = _wgetenv(name);
        return text != nullptr ? static_cast<int>(std::wcstol(text, nullptr, 10)) : 0;
    };
    Sleep(static_cast<DWORD>(number(L"SYSMAINT_TOOL_DELAY")));
    std::wstring text = GetCommandLineW();
    for (int i = 0; i < count; ++i)
        text += std::wstring(L"\n") + arguments[i];
    std::ofstream(std::filesystem::path(_wgetenv(L"SYSMAINT_TOOL_RECORD")), std::ios::binary)
        .write(reinterpret_cast<const char*>(text.data()),
               static_cast<std::streamsize>(text.size() * sizeof(wchar_t)));
    return number(L"SYSMAINT_TOOL_RESULT");
}
