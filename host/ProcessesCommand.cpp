#include "Command.h"
#include "Console.h"
#include "ProcessList.h"
#include "ProcessWatch.h"

#include <algorithm>
#include <cwchar>

namespace {
constexpr const wchar_t* kHelp = LR"(usage: sysmaint processes [--tree] [--user NAME] [--sort COLUMN] [--json]
       sysmaint processes end PID|NAME... [--tree] [--services] [--yes]
       sysmaint processes end PID|NAME... --close [--yes]
       sysmaint processes watch [NAMES] [--snapshots] [--interval MS] [--seconds N] [--json]

  (nothing)    lists the processes: processor time, memory in use, user and image name
  end          ends the processes of an id or of an image name, after it has shown them and asked. They
               cannot save anything, unless --close asks them first. Refused are the system's processes, this
               program, and services.
  watch        tells each process that starts and ends, until Ctrl+C or for --seconds. NAMES are image names
               separated by commas, with wildcards.

  --tree       each process below its parent; with end: also all that they have started
  --user       only processes of that user, "name" or "domain\name"
  --sort       pid (unless given), name, session, threads, memory, time or start
  --services   also end services
  --close      only ask their windows to close, as their user would, and wait ten seconds for each: what asks
               back, or has no window, runs on
  --yes        do not ask
  --snapshots  compare snapshots, and do not ask the system for its events
  --interval   milliseconds between snapshots, 10 to 60000 (500): what lives shorter may be missed
  --json       one object per line; times of day are counted in 100 ns since 1601, UTC

example: sysmaint processes end notepad.exe --tree
)";

/// Only the process that was shown is ended, not a later one with the same id.
struct Chosen
{
    unsigned long id;
    std::wstring name;
    ProcessHandle process;
};

/// The processes that the words name; a number is an id. Names each word that finds none, and throws
/// kExitFailed then. Throws UsageError.
std::vector<Chosen> chosenBy(const std::vector<std::wstring>& words)
{
    std::vector<Chosen> all;
    bool isComplete = true;
    for (const std::wstring& word : words) {
        const bool isId = word.find_first_not_of(L"0123456789") == std::wstring::npos;
        if (isId && word.size() > 9)
            throw UsageError{printable(word) + L" is not the id of a process"};
        OwnedBuffer<ProcessEntry> buffer;
        const auto entries = processesOf(buffer, [&](ProcessEntry** found, std::size_t* count) {
            *count = 1;
            const unsigned long id = isId ? std::wcstoul(word.c_str(), nullptr, 10) : 0;
            const long code = isId ? PMFindById(id, found) : PMFindByName(word.c_str(), found, count);
            if (code == ERROR_NOT_FOUND)
                *count = 0;
            return code == ERROR_NOT_FOUND ? static_cast<long>(ERROR_SUCCESS) : code;
        });
        if (entries.empty())
            messages().writeLine(L"processes: " + printable(word) + L": there is no such process (1168)");
        isComplete = isComplete && !entries.empty();
        for (const ProcessEntry& each : entries)
            all.push_back({each.id, each.name, ProcessHandle(CreateProcessW(each))});
    }
    if (!isComplete)
        throw kExitFailed;
    return all;
}

constexpr unsigned long kPatience = 10000; // milliseconds

/// Returns 0 when it has ended, and 1400 when it has no window to ask.
long closeWindows(void* process)
{
    unsigned long asked = 0;
    if (const long code = ProcessCloseWindows(process, &asked); code != ERROR_SUCCESS)
        return code;
    unsigned long exitCode = 0;
    return asked == 0 ? ERROR_INVALID_WINDOW_HANDLE
                      : ProcessWait(process, kPatience, cancelEvent(), &exitCode);
}

/// Whether it is gone.
bool tellOutcome(const Chosen& each, long code, const wchar_t* done)
{
    const std::wstring what = std::to_wstring(each.id) + L" " + printable(each.name);
    if (code == ERROR_SUCCESS || code == ERROR_NOT_FOUND) { // the latter: with another's tree, or by itself
        results().writeLine((code == ERROR_SUCCESS ? done : std::wstring(L"gone ")) + L" " + what);
        return true;
    }
    const std::wstring why =
        code == ERROR_NOT_SUPPORTED             ? L"the system or this program needs it (50)"
        : code == ERROR_INVALID_SERVICE_CONTROL ? L"it is a service; stop it, or say --services (1052)"
        : code == ERROR_INVALID_WINDOW_HANDLE   ? L"it has no window that could be asked (1400)"
        : code == ERROR_TIMEOUT                 ? L"it still runs (1460)"
                                                : formatCode(code);
    messages().writeLine(L"processes: " + what + L": " + why);
    return false;
}

/// Whether the library would refuse it; says so before anybody is asked. A window that is to be closed needs
/// fewer rights.
bool isRefused(const Chosen& each, unsigned long options, bool wantsClosing)
{
    const long code = ProcessEnd(each.process.get(), options | kEndNothing, kPatience);
    const bool refused =
        wantsClosing ? code == ERROR_NOT_SUPPORTED : code != ERROR_SUCCESS && code != ERROR_NOT_FOUND;
    return refused && !tellOutcome(each, code, L"");
}

int end(const std::vector<std::wstring>& words)
{
    const Arguments arguments(
        words, {{L"--tree", false}, {L"--services", false}, {L"--close", false}, {L"--yes", false}});
    if (arguments.operands().empty())
        throw UsageError{L"which process?"};
    if (arguments.has(L"--close") && (arguments.has(L"--tree") || arguments.has(L"--services")))
        throw UsageError{L"--close asks the windows of one process; say neither --tree nor --services"};
    const bool wantsClosing = arguments.has(L"--close");
    const unsigned long options =
        (arguments.has(L"--tree") ? kEndTree : 0UL) | (arguments.has(L"--services") ? kEndServices : 0UL);
    std::vector<Chosen> all = chosenBy(arguments.operands());
    const auto refused = std::erase_if(all, [&](const Chosen& each) {
        return isRefused(each, wantsClosing ? kEndServices : options, wantsClosing);
    });
    if (all.empty())
        return kExitFailed;
    for (const Chosen& each : all) {
        messages().writeLine(L"end " + std::to_wstring(each.id) + L" " + printable(each.name));
        OwnedBuffer<ProcessEntry> buffer;
        std::vector<ProcessEntry> tree;
        if (arguments.has(L"--tree"))
            tree = processesOf(buffer, [&](ProcessEntry** entries, std::size_t* count) {
                return PMGetTree(each.id, entries, count);
            });
        for (std::size_t i = 1; i < tree.size(); ++i)
            messages().writeLine(L"  and " + std::to_wstring(tree[i].id) + L" " + printable(tree[i].name));
    }
    if (!arguments.has(L"--yes")) {
        const Answer answer = ask(wantsClosing ? L"They are asked to close. Go on? Type yes: "
                                               : L"They cannot save anything. Go on? Type yes: ");
        if (answer != Answer::kYes) {
            messages().writeLine(L"nothing was ended");
            return answer == Answer::kCancelled ? kExitCancelled : kExitFailed;
        }
    }
    int result = refused == 0 ? kExitDone : kExitFailed;
    for (const Chosen& each : all) {
        const long code = wantsClosing ? closeWindows(each.process.get())
                                       : ProcessEnd(each.process.get(), options, kPatience);
        if (code == ERROR_CANCELLED)
            return kExitCancelled;
        if (!tellOutcome(each, code, wantsClosing ? L"closed" : L"ended"))
            result = kExitFailed;
    }
    return result;
}

int watch(const std::vector<std::wstring>& words)
{
    const Arguments arguments(
        words, {{L"--snapshots", false}, {L"--interval", true}, {L"--seconds", true}, {L"--json", false}});
    if (arguments.operands().size() > 1)
        throw UsageError{L"watch takes one list of names"};
    constexpr unsigned long kInterval = 500;
    constexpr unsigned long kLongest = 86400; // seconds
    ProcessWatch wanted;
    wanted.names = arguments.operands().empty() ? L"" : arguments.operands()[0];
    for (std::size_t at = 0; !wanted.names.empty() && at <= wanted.names.size();) {
        const std::size_t end = std::min(wanted.names.find(L',', at), wanted.names.size());
        if (wanted.names.find_first_not_of(L' ', at) >= end)
            throw UsageError{printable(wanted.names) + L": a name between the commas is empty"};
        at = end + 1;
    }
    wanted.wantsEvents = !arguments.has(L"--snapshots");
    wanted.asJson = arguments.has(L"--json");
    wanted.interval = arguments.number(L"--interval", 10, 60000).value_or(kInterval);
    wanted.seconds = arguments.number(L"--seconds", 1, kLongest).value_or(0);
    return watchProcesses(wanted);
}

int list(const std::vector<std::wstring>& words)
{
    const Arguments arguments(words,
                              {{L"--tree", false}, {L"--user", true}, {L"--sort", true}, {L"--json", false}});
    if (!arguments.operands().empty())
        throw UsageError{L"unknown: " + printable(arguments.operands()[0])};
    const ProcessListing listing{arguments.has(L"--tree"), arguments.has(L"--json"),
                                 arguments.value(L"--user", L""), arguments.value(L"--sort", L"pid")};
    if (!isSortColumn(listing.sort))
        throw UsageError{L"--sort takes pid, name, session, threads, memory, time or start"};
    printProcesses(listing);
    return kExitDone;
}

int run(const std::vector<std::wstring>& words)
{
    try {
        const ProcessManagerScope manager;
        const std::wstring what = words.empty() ? L"" : words[0];
        if (what == L"end")
            return end({words.begin() + 1, words.end()});
        if (what == L"watch")
            return watch({words.begin() + 1, words.end()});
        return list(words);
    } catch (ExitCode code) { // said already
        return code;
    } catch (long code) {
        messages().writeLine(L"processes: " + (code == ERROR_NOT_FOUND ? L"there is no such process (1168)"
                                                                       : formatCode(code)));
        return kExitFailed;
    }
}
} // namespace

const Command kProcessesCommand = {L"processes", L"list, end and watch processes", kHelp, &run};
