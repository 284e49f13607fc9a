// Starts a program, waits until it holds a file exclusively, and sends it a control event as the system does,
// by a thread at CtrlRoutine: SendControl EVENT FILE PROGRAM ARGUMENT... Ends with the program's exit code.
// Event -1: none.

#include <windows.h>

#include <cwchar>
#include <string>

namespace {
bool isInUse(const wchar_t* path)
{
    const HANDLE file =
        CreateFileW(path, GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                    OPEN_EXISTING, 0, nullptr);
    const bool isRefused = file == INVALID_HANDLE_VALUE && GetLastError() == ERROR_SHARING_VIOLATION;
    CloseHandle(file);
    return isRefused;
}

void sendEvent(HANDLE process, int event)
{
    const auto routine = reinterpret_cast<LPTHREAD_START_ROUTINE>(
        reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"kernel32"), "CtrlRoutine")));
    CloseHandle(CreateRemoteThread(process, nullptr, 0, routine,
                                   reinterpret_cast<void*>(static_cast<INT_PTR>(event)), 0, nullptr));
}
} // namespace

int wmain(int argumentCount, wchar_t** arguments)
{
    if (argumentCount < 4)
        return 2;
    std::wstring command;
    for (int i = 3; i < argumentCount; ++i)
        command += L"\"" + std::wstring(arguments[i]) + L"\" ";
    const int event = static_cast<int>(std::wcstol(arguments[1], nullptr, 10));
    // With no event to send, the file is held open while the program runs.
    const HANDLE held = event >= 0 ? INVALID_HANDLE_VALUE
                                   : CreateFileW(arguments[2], GENERIC_READ, FILE_SHARE_READ, nullptr,
                                                 OPEN_EXISTING, 0, nullptr);
    STARTUPINFOW startup{};
    startup.cb = sizeof startup;
    PROCESS_INFORMATION process{};
    if (!CreateProcessW(nullptr, command.data(), nullptr, nullptr, TRUE, 0, nullptr, nullptr, &startup,
                        &process))
        return 3;
    while (event >= 0 && !isInUse(arguments[2]) && WaitForSingleObject(process.hProcess, 1) == WAIT_TIMEOUT) {
    }
    if (event >= 0)
        sendEvent(process.hProcess, event);
    DWORD code = 4;
    if (WaitForSingleObject(process.hProcess, 60000) == WAIT_OBJECT_0)
        GetExitCodeProcess(process.hProcess, &code);
    else
        TerminateProcess(process.hProcess, 4);
    CloseHandle(held);
    return static_cast<int>(code);
}
