#include "BootProgram.h"

#include <winternl.h>

#include <algorithm>
#include <map>
#include <set>
#include <string_view>

#include "Command.h"
#include "Console.h"
#include "OwnedHandle.h"
#include "engine/BootNames.h"
#include "engine/BootRun.h"

#include "core/win32/utils/wiper/api.h"

namespace {
std::wstring systemPath(UINT(WINAPI* folder)(LPWSTR, UINT))
{
    wchar_t path[MAX_PATH];
    const UINT length = folder(path, MAX_PATH);
    if (length == 0 || length >= MAX_PATH)
        throw static_cast<long>(length == 0 ? GetLastError() : ERROR_FILENAME_EXCED_RANGE);
    return path;
}

/// The program that comes with this one.
std::wstring suppliedProgram()
{
    std::wstring path(32768, L'\0');
    path.resize(GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size())));
    return path.substr(0, path.find_last_of(L'\\') + 1) + bootnames::kProgram;
}

std::wstring textOf(Text text)
{
    return {text.data, text.length};
}

std::wstring nativeWindowsFolder()
{
    return L"\\??\\" + systemPath(&GetWindowsDirectoryW);
}

/// What a run shows at the console.
struct Watcher
{
    ProgressLine line;
    std::map<std::wstring_view, WaitingFile> shown; // by the lines of the list
    std::set<std::wstring_view> missed; // of them, those that a run would handle and has not come to
    WaitingFile current;

    static bool isWanted(void* context, Text line)
    {
        auto& self = *static_cast<Watcher*>(context);
        const auto found = self.shown.find({line.data, line.length});
        if (found != self.shown.end())
            self.current = found->second;
        self.missed.erase({line.data, line.length});
        return found != self.shown.end();
    }
    static bool isShown(void* context, const FileNumber& found)
    {
        const WaitingFile& current = static_cast<Watcher*>(context)->current;
        return current.outcome == Outcome::kDone && current.number == found;
    }

    static bool isOver(void*) { return isCancelled(); }
    static void onProgress(void* context, std::uint32_t line, std::uint32_t lines, unsigned percent)
    {
        ProgressLine& progress = static_cast<Watcher*>(context)->line;
        if (progress.isDue())
            progress.show(std::to_wstring(line) + L" of " + std::to_wstring(lines) + L", " +
                          std::to_wstring(percent) + L" %");
    }
    static void onLeft(void* context, Text line, Text reason, native::Status status)
    {
        static_cast<Watcher*>(context)->line.clear();
        std::wstring text = L"boot: left, " + textOf(reason);
        if (status < 0)
            text += L", " + formatCode(static_cast<long>(RtlNtStatusToDosError(status)));
        messages().writeLine(text + L": " + visibleText(textOf(line)));
    }
};

void tellListFailed(native::Status status)
{
    const wchar_t* text =
        status == native::kSharingViolation
            ? L"boot: another program holds the list, ForceDelete.txt in the Windows folder: "
            : L"boot: the list: ";
    messages().writeLine(text + formatCode(static_cast<long>(RtlNtStatusToDosError(status))));
}
} // namespace

BootProgramState bootProgramState()
{
    BootProgramState state;
    state.path = systemPath(&GetSystemDirectoryW) + L"\\" + bootnames::kProgram;
    state.isThere = GetFileAttributesW(state.path.c_str()) != INVALID_FILE_ATTRIBUTES;
    state.isRegistered = BootExecuteIsScheduled(bootnames::kEntry) != 0;
    return state;
}

long installBootProgram()
{
    const std::wstring target = bootProgramState().path;
    const bool wasThere = bootProgramState().isThere;
    const std::wstring copy = target + L".new";
    // It is complete before it gets its name, so the system never starts an incomplete program.
    if (!CopyFileW(suppliedProgram().c_str(), copy.c_str(), FALSE)) {
        const auto code = static_cast<long>(GetLastError());
        messages().writeLine(L"boot: " + printable(suppliedProgram()) + L" cannot be copied to " +
                             printable(copy));
        return code;
    }
    if (!MoveFileExW(copy.c_str(), target.c_str(), MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH)) {
        const auto code = static_cast<long>(GetLastError());
        DeleteFileW(copy.c_str());
        return code;
    }
    const long code = AddBootExecute(bootnames::kEntry);
    if (code == ERROR_SUCCESS || code == ERROR_ALREADY_EXISTS)
        return ERROR_SUCCESS;
    if (!wasThere) // nothing would start it
        DeleteFileW(target.c_str());
    return code;
}

long uninstallBootProgram()
{
    const BootProgramState state = bootProgramState();
    const long code = RemoveBootExecute(bootnames::kEntry);
    if (code != ERROR_SUCCESS && code != ERROR_FILE_NOT_FOUND)
        return code;
    return !state.isThere || DeleteFileW(state.path.c_str()) ? ERROR_SUCCESS
                                                             : static_cast<long>(GetLastError());
}

long showBootLog()
{
    const std::wstring path = systemPath(&GetWindowsDirectoryW) + L"\\" + textOf(bootnames::kLog);
    const OwnedHandle file(::CreateFileW(path.c_str(), GENERIC_READ,
                                         FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                                         OPEN_EXISTING, 0, nullptr));
    if (file.get() == INVALID_HANDLE_VALUE)
        return GetLastError() == ERROR_FILE_NOT_FOUND ? ERROR_SUCCESS : static_cast<long>(GetLastError());
    std::wstring text(1U << 20U, L'\0'); // the log is never larger
    DWORD got = 0;
    if (!ReadFile(file.get(), text.data(), static_cast<DWORD>(text.size() * sizeof(wchar_t)), &got, nullptr))
        return static_cast<long>(GetLastError());
    text.resize(got / sizeof(wchar_t));
    for (std::size_t at = text.find(L'\xFEFF') == 0 ? 1 : 0; at < text.size();) {
        const std::size_t end = std::min(text.find(L"\r\n", at), text.size());
        results().writeLine(L"log: " + printable(text.substr(at, end - at)));
        at = end + 2;
    }
    return ERROR_SUCCESS;
}

std::vector<WaitingFile> examineWaitingFiles(const ForceDeleteList& list)
{
    const native::Api& api = native::systemApi();
    const std::wstring path = nativeWindowsFolder();
    WindowsFolder windows(api);
    Overwriter overwriter(api); // not used: nothing is written
    const RunEvents events;
    FileRemover remover(api, windows, overwriter, events);
    native::Status status = windows.open(Text(path.data(), path.size()));
    if (status >= 0)
        status = remover.prepare();
    if (status < 0)
        throw static_cast<long>(RtlNtStatusToDosError(status));
    for (const Text& own : {bootnames::kList, bootnames::kLog}) {
        NativeFile file(api);
        FileNumber number;
        if (file.open(&windows.folder(), own, {}) >= 0 && file.number(number) >= 0)
            remover.protect(number);
    }
    std::vector<WaitingFile> files;
    for (const WaitingLine& line : list.lines) {
        WaitingFile file;
        ListedFile listed;
        if (!line.file.empty())
            file.outcome = ListedFile::parse(Text(line.text.data(), line.text.size()), listed);
        if (file.outcome == Outcome::kDone)
            file.outcome = remover.examine(listed, file.number).outcome;
        files.push_back(file);
    }
    return files;
}

int runBootProgram(const ForceDeleteList& shown, const std::vector<WaitingFile>& files)
{
    Watcher watcher;
    for (std::size_t i = 0; i < files.size(); ++i) {
        watcher.shown[shown.lines[i].text] = files[i];
        if (files[i].outcome == Outcome::kDone)
            watcher.missed.insert(shown.lines[i].text);
    }
    RunEvents events;
    events.context = &watcher;
    events.isOver = &Watcher::isOver;
    events.isWanted = &Watcher::isWanted;
    events.isShown = &Watcher::isShown;
    events.onProgress = &Watcher::onProgress;
    events.onLeft = &Watcher::onLeft;
    const std::wstring windows = nativeWindowsFolder();
    const RunReport report = BootRun(native::systemApi(), Text(windows.data(), windows.size()), events).run();
    watcher.line.clear();
    if (report.isBusy) {
        messages().writeLine(L"boot: the list is being worked on already");
        return kExitFailed;
    }
    if (report.status < 0)
        tellListFailed(report.status);
    if (report.status < 0 && report.lines == 0) { // nothing was done
        messages().writeLine(L"nothing was wiped; still waiting: " +
                             formatCount(shown.lines.size() - shown.wrongLines));
        return isCancelled() ? kExitCancelled : kExitFailed;
    }
    messages().writeLine(std::wstring(isCancelled() ? L"cancelled; " : L"") + L"overwritten and deleted: " +
                         formatCount(report.wiped) + L" of " + formatCount(report.lines) + L", " +
                         formatBytes(report.bytes) + L"; links removed: " + formatCount(report.links) +
                         L", gone already: " + formatCount(report.gone) + L", still waiting: " +
                         formatCount(report.left));
    if (isCancelled())
        return kExitCancelled;
    for (const std::wstring_view line : watcher.missed)
        messages().writeLine(L"boot: not on the list any more: " + visibleText(std::wstring(line)));
    return report.status < 0 || report.left != 0 || !watcher.missed.empty() ? kExitFailed : kExitDone;
}

long dropBootLine(std::size_t number, const std::wstring& text)
{
    const std::wstring path = nativeWindowsFolder();
    WindowsFolder windows(native::systemApi());
    native::Status status = windows.open(Text(path.data(), path.size()));
    BootLog log(native::systemApi(), windows.folder()); // blocks runs, and others who remove lines
    if (status >= 0)
        status = log.open();
    BootList list(native::systemApi(), windows.folder());
    if (status >= 0)
        status = list.open();
    if (status < 0)
        return static_cast<long>(RtlNtStatusToDosError(status));
    ListLines lines = list.lines();
    ListLine line;
    bool isThere = true;
    for (std::size_t i = 0; i < number && isThere; ++i)
        isThere = lines.next(line);
    isThere = isThere && textOf(line.text) == text;
    if (isThere)
        status = list.drop(line, true);
    bool isEmpty = false;
    const native::Status closed = list.close(isEmpty);
    if (!isThere)
        return ERROR_NOT_FOUND;
    if (status >= 0)
        log.add(L"1 line was taken off the list at the console");
    status = status < 0 ? status : closed;
    return status < 0 ? static_cast<long>(RtlNtStatusToDosError(status)) : ERROR_SUCCESS;
}
