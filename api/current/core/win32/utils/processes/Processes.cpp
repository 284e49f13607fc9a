#include "core/win32/utils/processes/include/Processes.h"

#include <tlhelp32.h>
#include <winternl.h>

#include <algorithm>
#include <vector>

#include "core/win32/utils/objectmanager/include/Raise.h"
#include "core/win32/utils/objectmanager/include/WaitEvent.h"
#include "core/win32/utils/objectmanager/include/Win32Handle.h"
#include "core/win32/utils/paths/include/Win32Path.h"
#include "core/win32/utils/strings/include/Strings.h"
#include "core/win32/utils/time/include/Time.h"

namespace {
Win32Handle open(unsigned long id, DWORD access)
{
    Win32Handle process(OpenProcess(access, FALSE, id));
    if (!process.isValid())
        raiseLastError();
    if (GetProcessId(process.get()) != id) // the system ignores the lowest two bits, and opens a neighbour
        raiseCode(ERROR_INVALID_PARAMETER);
    return process;
}

unsigned long long startTimeOf(HANDLE process)
{
    FILETIME created, exited, kernel, user;
    if (!GetProcessTimes(process, &created, &exited, &kernel, &user))
        raiseLastError();
    return timetext::number(created);
}

/// Reads a text from another process's memory, as its own structures describe it.
std::wstring remoteText(HANDLE process, UNICODE_STRING text)
{
    std::wstring result(text.Length / sizeof(wchar_t), L'\0');
    SIZE_T read = 0;
    if (!result.empty() &&
        !ReadProcessMemory(process, text.Buffer, result.data(), result.size() * sizeof(wchar_t), &read))
        raiseLastError();
    return result;
}

template <class T>
T remoteValue(HANDLE process, const void* address)
{
    T value;
    SIZE_T read = 0;
    if (!ReadProcessMemory(process, address, &value, sizeof value, &read))
        raiseLastError();
    return value;
}

/// Platform headers name its members differently.
struct BasicInformation
{
    NTSTATUS exitStatus;
    const void* block;
    ULONG_PTR affinity;
    LONG priority;
    ULONG_PTR id;
    ULONG_PTR parent;
};

BasicInformation basicInformation(HANDLE process)
{
    BasicInformation information{};
    const NTSTATUS status = NtQueryInformationProcess(process, ProcessBasicInformation, &information,
                                                      sizeof information, nullptr);
    if (status < 0)
        raiseCode(static_cast<long>(RtlNtStatusToDosError(status)));
    return information;
}

struct Listed
{
    unsigned long id;
    unsigned long parent;
};

std::vector<Listed> snapshot()
{
    const Win32Handle list(CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0));
    if (!list.isValid())
        raiseLastError();
    std::vector<Listed> result;
    PROCESSENTRY32W entry{};
    entry.dwSize = sizeof entry;
    for (BOOL found = Process32FirstW(list.get(), &entry); found; found = Process32NextW(list.get(), &entry))
        result.push_back({entry.th32ProcessID, entry.th32ParentProcessID});
    return result;
}

/// A process held by a handle, so its id is not reused.
struct Held
{
    unsigned long id;
    unsigned long long start;
    Win32Handle handle;
};

/// Adds the children of the processes in `tree`, deepest last. Returns how many are new.
std::size_t addChildren(std::vector<Held>& tree)
{
    constexpr DWORD kAccess = PROCESS_TERMINATE | PROCESS_QUERY_LIMITED_INFORMATION | SYNCHRONIZE;
    const std::size_t before = tree.size();
    const std::vector<Listed> all = snapshot();
    for (std::size_t i = 0; i < tree.size(); ++i)
        for (const Listed& each : all) {
            const bool known =
                std::any_of(tree.begin(), tree.end(), [&](const Held& held) { return held.id == each.id; });
            if (each.parent != tree[i].id || known || each.id == 0)
                continue;
            if (each.id == GetCurrentProcessId())
                raiseCode(ERROR_NOT_SUPPORTED);
            Win32Handle child(OpenProcess(kAccess, FALSE, each.id));
            if (!child.isValid() && GetLastError() == ERROR_INVALID_PARAMETER)
                continue; // gone
            if (!child.isValid())
                raiseLastError();
            const unsigned long long start = startTimeOf(child.get());
            if (start >= tree[i].start) // otherwise its parent is an earlier process with that id
                tree.push_back({each.id, start, std::move(child)});
        }
    return tree.size() - before;
}
} // namespace

namespace processes {
std::wstring path(unsigned long id)
{
    const Win32Handle process = open(id, PROCESS_QUERY_LIMITED_INFORMATION);
    std::wstring text(MAX_PATH, L'\0');
    for (;;) {
        auto length = static_cast<DWORD>(text.size());
        if (QueryFullProcessImageNameW(process.get(), 0, text.data(), &length)) {
            text.resize(length);
            return text;
        }
        if (GetLastError() != ERROR_INSUFFICIENT_BUFFER)
            raiseLastError();
        text.resize(text.size() * 2);
    }
}

std::wstring commandLine(unsigned long id)
{
    constexpr auto kCommandLine =
        static_cast<PROCESSINFOCLASS>(60); // from Windows 8.1 on, without reading memory
    Win32Handle process = open(id, PROCESS_QUERY_LIMITED_INFORMATION);
    std::vector<unsigned char> buffer(sizeof(UNICODE_STRING) + 65536);
    ULONG length = 0;
    if (NtQueryInformationProcess(process.get(), kCommandLine, buffer.data(),
                                  static_cast<ULONG>(buffer.size()), &length) >= 0) {
        const auto* text = reinterpret_cast<const UNICODE_STRING*>(buffer.data());
        return std::wstring(text->Buffer, text->Length / sizeof(wchar_t));
    }
    process = open(id, PROCESS_QUERY_INFORMATION | PROCESS_VM_READ);
    const auto block = remoteValue<PEB>(process.get(), basicInformation(process.get()).block);
    const auto parameters = remoteValue<RTL_USER_PROCESS_PARAMETERS>(process.get(), block.ProcessParameters);
    return remoteText(process.get(), parameters.CommandLine);
}

unsigned long long startTime(unsigned long id)
{
    return startTimeOf(open(id, PROCESS_QUERY_LIMITED_INFORMATION).get());
}

unsigned long parent(unsigned long id)
{
    const Win32Handle process = open(id, PROCESS_QUERY_LIMITED_INFORMATION);
    const auto parent = static_cast<unsigned long>(basicInformation(process.get()).parent);
    const Win32Handle found(OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, parent));
    if (!found.isValid() || startTimeOf(found.get()) > startTimeOf(process.get()))
        raiseCode(ERROR_NOT_FOUND); // it has ended; its id may have been reused
    return parent;
}

void end(HANDLE process)
{
    if (TerminateProcess(process, ERROR_PROCESS_ABORTED))
        return;
    const long code = lastError();
    if (code != ERROR_ACCESS_DENIED && WaitForSingleObject(process, 0) != WAIT_OBJECT_0)
        raiseCode(code);
}

void terminateTree(unsigned long id, unsigned long timeout)
{
    const ULONGLONG begin = GetTickCount64();
    constexpr unsigned long kIdle = 0;
    constexpr unsigned long kSystem = 4;
    if (id == kIdle || id == kSystem || id == GetCurrentProcessId())
        raiseCode(ERROR_NOT_SUPPORTED);
    std::vector<Held> tree;
    Win32Handle top = open(id, PROCESS_TERMINATE | PROCESS_QUERY_LIMITED_INFORMATION | SYNCHRONIZE);
    const unsigned long long start = startTimeOf(top.get());
    tree.push_back({id, start, std::move(top)});
    addChildren(tree); // refuse before anything is ended
    std::size_t ended = 0;
    do { // children first, then those started meanwhile, until none is left that could start more
        for (std::size_t i = tree.size(); i-- > ended;)
            end(tree[i].handle.get());
        ended = tree.size();
    } while (addChildren(tree) != 0);
    for (const Held& each : tree) {
        const ULONGLONG gone = GetTickCount64() - begin;
        const DWORD left = timeout == INFINITE ? INFINITE
                           : gone < timeout    ? static_cast<DWORD>(timeout - gone)
                                               : 0;
        if (const long code = waitForEvent(each.handle.get(), left, nullptr); code != ERROR_SUCCESS)
            raiseCode(code == WAIT_TIMEOUT ? ERROR_TIMEOUT : code);
    }
}

unsigned long runAndWait(const wchar_t* program, const wchar_t* arguments, unsigned long timeout,
                         HANDLE cancelEvent)
{
    constexpr std::size_t kLongestCommand = 32767; // characters, with the terminator
    std::wstring command = strings::quoteArgument(program);
    if (arguments != nullptr && *arguments != L'\0')
        command.append(L" ").append(arguments);
    if (command.size() >= kLongestCommand)
        raiseCode(ERROR_FILENAME_EXCED_RANGE);
    if (isAlteredPath(program)) // the system would start the file without the dots and blanks
        raiseCode(ERROR_INVALID_NAME);
    requireEvent(cancelEvent);
    STARTUPINFOW startup{};
    startup.cb = sizeof startup;
    PROCESS_INFORMATION started{};
    // Name the program, so no file with a part of its name is started instead.
    if (!CreateProcessW(program, command.data(), nullptr, nullptr, FALSE, CREATE_NO_WINDOW, nullptr, nullptr,
                        &startup, &started))
        raiseLastError();
    const Win32Handle process(started.hProcess);
    const Win32Handle thread(started.hThread);
    DWORD exitCode = 0;
    if (const long code = waitForEvent(process.get(), timeout, cancelEvent); code != ERROR_SUCCESS)
        raiseCode(code == WAIT_TIMEOUT ? ERROR_TIMEOUT : code);
    if (!GetExitCodeProcess(process.get(), &exitCode))
        raiseLastError();
    return exitCode;
}

bool is32Bit(unsigned long id)
{
    BOOL wow = FALSE;
    if (!IsWow64Process(open(id, PROCESS_QUERY_LIMITED_INFORMATION).get(), &wow))
        raiseLastError();
    return wow != FALSE; // this library only runs on 64-bit systems
}
} // namespace processes
