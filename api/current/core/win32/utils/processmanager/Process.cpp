#include "core/win32/utils/processmanager/include/Process.h"

#include <psapi.h>
#include <winternl.h>

#include <algorithm>
#include <array>

#include "core/win32/utils/objectmanager/include/Boundary.h"
#include "core/win32/utils/objectmanager/include/ReadWriteLock.h"
#include "core/win32/utils/objectmanager/include/SystemLibrary.h"
#include "core/win32/utils/objectmanager/include/SystemText.h"
#include "core/win32/utils/objectmanager/include/WaitEvent.h"
#include "core/win32/utils/paths/include/Paths.h"
#include "core/win32/utils/processes/include/Processes.h"
#include "core/win32/utils/processmanager/include/ProcessEnder.h"
#include "core/win32/utils/security/include/Security.h"
#include "core/win32/utils/strings/include/Strings.h"
#include "core/win32/utils/time/include/Time.h"
#include "win32/processes/include/ProcessOptions.h"

extern "C" {
NTSTATUS NTAPI NtSuspendProcess(HANDLE process); // no platform header declares them
NTSTATUS NTAPI NtResumeProcess(HANDLE process);
}

ObjectTable<SharedPtr<Process>> processObjects(50);

namespace {
constexpr unsigned long kIdle = 0;
constexpr unsigned long kSystem = 4;

// If one of these ends, so does the system or the session. Some have no file and cannot be opened.
constexpr std::array kSystemNames = {L"smss.exe",     L"csrss.exe", L"wininit.exe",   L"winlogon.exe",
                                     L"services.exe", L"lsass.exe", L"lsaiso.exe",    L"lsm.exe",
                                     L"Registry",     L"System",    L"Secure System", L"Memory Compression"};

bool hasEnded(HANDLE process)
{
    const DWORD waited = WaitForSingleObject(process, 0);
    if (waited == WAIT_FAILED)
        raiseLastError();
    return waited == WAIT_OBJECT_0;
}

constexpr auto kAccessDenied = static_cast<NTSTATUS>(0xC0000022);

/// Whether the end of the process would end the system. Raises 5 when the system does not tell.
bool isCritical(HANDLE process, unsigned long id)
{
    constexpr auto kBreakOnTermination = static_cast<PROCESSINFOCLASS>(29);
    constexpr auto kInvalidInfoClass = static_cast<NTSTATUS>(0xC0000003);
    constexpr auto kNotImplemented = static_cast<NTSTATUS>(0xC0000002);
    ULONG critical = 0;
    const auto ask = [&](HANDLE asked) {
        return NtQueryInformationProcess(asked, kBreakOnTermination, &critical, sizeof critical, nullptr);
    };
    NTSTATUS status = ask(process);
    if (status == kAccessDenied) { // older systems need more access; the id is still this process's
        const Win32Handle opened(::OpenProcess(PROCESS_QUERY_INFORMATION, FALSE, id));
        status = opened.isValid() ? ask(opened.get()) : status;
    }
    if (status == kInvalidInfoClass || status == kNotImplemented)
        return false;
    if (status < 0)
        raiseCode(ERROR_ACCESS_DENIED);
    return critical != 0;
}

/// Whether the file of a process may be in the system folder; true when the file is unknown.
bool mayBeOfSystem(HANDLE process)
{
    const std::wstring folder =
        systemText([](wchar_t* text, DWORD size) { return GetSystemDirectoryW(text, size); });
    std::wstring path(MAX_PATH, L'\0');
    auto length = static_cast<DWORD>(path.size());
    if (!QueryFullProcessImageNameW(process, 0, path.data(), &length))
        return GetLastError() != ERROR_INSUFFICIENT_BUFFER;
    path.resize(length);
    return paths::isInside(path, folder);
}

void requireStatus(NTSTATUS status)
{
    if (status < 0)
        raiseCode(static_cast<long>(RtlNtStatusToDosError(status)));
}

/// Reads one part of the details; what it raises becomes that part's code.
template <class Part>
long codeOf(Part&& part) noexcept
{
    return boundary::statusOf([&]() -> long {
        part();
        return ERROR_SUCCESS;
    });
}

void askToken(HANDLE process, ProcessDetails& details, std::wstring& sid, std::wstring& domain,
              std::wstring& user)
{
    HANDLE opened = nullptr;
    if (!OpenProcessToken(process, TOKEN_QUERY, &opened))
        raiseLastError();
    const Win32Handle token(opened);
    alignas(TOKEN_USER) std::array<BYTE, sizeof(TOKEN_USER) + SECURITY_MAX_SID_SIZE> buffer;
    DWORD size = 0;
    if (!GetTokenInformation(token.get(), TokenUser, buffer.data(), buffer.size(), &size))
        raiseLastError();
    const std::wstring text = sids::text(reinterpret_cast<const TOKEN_USER*>(buffer.data())->User.Sid);
    const unsigned long integrity = tokens::integrity(token.get());
    details.isElevated = tokens::hasElevation(token.get()) ? 1 : 0;
    details.integrity = integrity;
    sid = text;
    unsigned long kind = 0; // a SID without an account is still valid
    codeOf([&] { std::tie(domain, user, kind) = sids::toAccount(text.c_str()); });
}

struct WindowSearch
{
    decltype(&GetWindowThreadProcessId) processOf;
    decltype(&IsWindowVisible) isVisible;
    decltype(&PostMessageW) post;
    unsigned long process;
    unsigned long asked;
};

BOOL CALLBACK askToClose(HWND window, LPARAM parameter)
{
    auto& search = *reinterpret_cast<WindowSearch*>(parameter);
    DWORD process = 0;
    search.processOf(window, &process);
    if (process == search.process && search.isVisible(window) && search.post(window, WM_CLOSE, 0, 0))
        ++search.asked;
    return TRUE;
}
} // namespace

void protection::requireUnprotected(HANDLE process, unsigned long id, const wchar_t* name)
{
    const bool isOfSystem = std::any_of(kSystemNames.begin(), kSystemNames.end(), [&](const wchar_t* each) {
        return strings::equalsIgnoringCase(each, name);
    });
    if (id == kIdle || id == kSystem || id == GetCurrentProcessId() || isCritical(process, id) ||
        (isOfSystem && mayBeOfSystem(process)))
        raiseCode(ERROR_NOT_SUPPORTED);
}

std::wstring Process::defaultName(const ProcessEntry& entry)
{
    return std::to_wstring(entry.id) + L"@" + std::to_wstring(entry.startTime);
}

void Process::requireOwnName(const ProcessEntry& entry, std::wstring_view name)
{
    constexpr std::wstring_view kDigits = L"0123456789";
    const std::size_t at = name.find_first_not_of(kDigits);
    const bool isDefault = at != 0 && at != std::wstring_view::npos && at + 1 < name.size() &&
                           name[at] == L'@' &&
                           name.find_first_not_of(kDigits, at + 1) == std::wstring_view::npos;
    if (isDefault && name != defaultName(entry))
        raiseCode(ERROR_INVALID_PARAMETER);
}

Win32Handle Process::open(DWORD access) const
{
    Win32Handle process(::OpenProcess(access | PROCESS_QUERY_LIMITED_INFORMATION | SYNCHRONIZE, FALSE, m_id));
    if (!process.isValid()) {
        const long code = lastError();
        raiseCode(code == ERROR_INVALID_PARAMETER ? static_cast<long>(ERROR_NOT_FOUND) : code);
    }
    if (GetProcessId(process.get()) != m_id) // the system ignores the lowest two bits of an id
        raiseCode(ERROR_NOT_FOUND);
    FILETIME started, exited, kernel, user;
    if (m_startTime == 0 || !GetProcessTimes(process.get(), &started, &exited, &kernel, &user))
        raiseCode(ERROR_ACCESS_DENIED);
    if (timetext::number(started) != m_startTime || hasEnded(process.get()))
        raiseCode(ERROR_NOT_FOUND);
    return process;
}

/// For operations that could harm a process.
Win32Handle Process::openUnprotected(DWORD access) const
{
    const Win32Handle asked = open(0);
    const ProcessSnapshot snapshot;
    const ProcessEntry* const entry = snapshot.find(m_id);
    if (entry == nullptr)
        raiseCode(ERROR_NOT_FOUND);
    protection::requireUnprotected(asked.get(), m_id, entry->name);
    return open(access); // still the same process, because it is held
}

bool Process::isRunning() const
{
    const long code = codeOf([&] { static_cast<void>(open(0)); });
    if (code != ERROR_SUCCESS && code != ERROR_NOT_FOUND)
        raiseCode(code);
    return code == ERROR_SUCCESS;
}

RecordList<ProcessDetails> Process::details() const
{
    const Win32Handle process = open(0);
    const ProcessSnapshot snapshot;
    const ProcessEntry* const entry = snapshot.find(m_id);
    if (entry == nullptr)
        raiseCode(ERROR_NOT_FOUND);
    ProcessDetails details{};
    static_cast<ProcessEntry&>(details) = *entry;
    details.hasParent = snapshot.parentOf(*entry) != nullptr ? 1 : 0;
    std::wstring path, commandLine, sid, domain, user;
    details.pathCode = codeOf([&] { path = processes::path(m_id); });
    details.commandLineCode = codeOf([&] { commandLine = processes::commandLine(m_id); });
    details.userCode = codeOf([&] { askToken(process.get(), details, sid, domain, user); });
    details.accessCode = codeOf([&] {
        details.is32Bit = processes::is32Bit(m_id) ? 1 : 0;
        details.priorityClass = GetPriorityClass(process.get());
        if (details.priorityClass == 0)
            raiseLastError();
    });
    if (hasEnded(process.get())) // the last answer may be incomplete
        raiseCode(ERROR_NOT_FOUND);
    RecordList<ProcessDetails> list;
    list.add(details, {{&ProcessDetails::name, entry->name},
                       {&ProcessDetails::path, path},
                       {&ProcessDetails::commandLine, commandLine},
                       {&ProcessDetails::sid, sid},
                       {&ProcessDetails::domain, domain},
                       {&ProcessDetails::user, user}});
    return list;
}

unsigned long Process::closeWindows() const
{
    const Win32Handle process = openUnprotected(0);
    const SystemLibrary library(L"user32.dll");
    WindowSearch search{library.function<decltype(&GetWindowThreadProcessId)>("GetWindowThreadProcessId"),
                        library.function<decltype(&IsWindowVisible)>("IsWindowVisible"),
                        library.function<decltype(&PostMessageW)>("PostMessageW"), m_id, 0};
    library.function<decltype(&EnumWindows)>("EnumWindows")(&askToClose, reinterpret_cast<LPARAM>(&search));
    return search.asked;
}

unsigned long Process::wait(unsigned long timeout, HANDLE cancelEvent) const
{
    requireEvent(cancelEvent);
    const Win32Handle process = open(0);
    const long code = waitForEvent(process.get(), timeout, cancelEvent);
    requireSuccess(code == WAIT_TIMEOUT ? static_cast<long>(ERROR_TIMEOUT) : code);
    DWORD exitCode = 0;
    if (!GetExitCodeProcess(process.get(), &exitCode))
        raiseLastError();
    return exitCode;
}

void Process::end(unsigned long options, unsigned long timeout) const
{
    constexpr unsigned long kKnown = kEndTree | kEndServices | kEndNothing;
    if ((options & ~kKnown) != 0)
        raiseCode(ERROR_INVALID_PARAMETER);
    const Deadline deadline(timeout);
    constexpr unsigned long kPatience = 5000; // milliseconds for a tree that grows while it is ended
    const Deadline patience(std::max(timeout, kPatience));
    const auto requirePatience = [&] {
        if (patience.getLeft() == 0)
            raiseCode(ERROR_TIMEOUT);
    };
    ProcessEnder ender((options & kEndServices) != 0);
    const Win32Handle held = open(0);
    const ProcessSnapshot snapshot;
    const ProcessEntry* const entry = snapshot.find(m_id);
    if (entry == nullptr)
        raiseCode(ERROR_NOT_FOUND);
    ender.add(*entry);
    const bool endsNothing = (options & kEndNothing) != 0;
    if ((options & kEndTree) == 0) {
        if (endsNothing)
            return;
        ender.endAll(0);
        return ender.wait(deadline.getLeft());
    }
    const auto endLower = [&](std::size_t kept) {
        while (ender.addChildren()) {
            requirePatience();
            ender.endAll(kept);
        }
    };
    while (ender.addChildren()) // collect all of them first: refuse before anything is ended
        requirePatience();
    if (endsNothing)
        return;
    ender.endAll(1);
    endLower(1); // what they have started meanwhile
    ender.endAll(0);
    // And what the top one started at the last moment. A failure would conceal that all others have ended.
    if (const long code = codeOf([&] { endLower(0); }); code == ERROR_NOT_ENOUGH_MEMORY)
        endLower(0);
    else
        requireSuccess(code);
    ender.wait(deadline.getLeft());
}

void Process::suspend() const
{
    requireStatus(NtSuspendProcess(openUnprotected(PROCESS_SUSPEND_RESUME).get()));
}

void Process::resume() const
{
    requireStatus(NtResumeProcess(openUnprotected(PROCESS_SUSPEND_RESUME).get()));
}

void Process::setPriority(unsigned long priorityClass) const
{
    if (!SetPriorityClass(open(PROCESS_SET_INFORMATION).get(), priorityClass))
        raiseLastError();
}
