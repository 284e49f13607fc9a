#include "Command.h"
#include "Console.h"

#include <algorithm>

#include "BootProgram.h"
#include "ForceDeleteList.h"

#include "core/win32/utils/wiper/api.h"

namespace {
constexpr const wchar_t* kHelp =
    LR"(usage: sysmaint boot list | status | install | uninstall | run [--yes] | drop NUMBER [--yes]
       sysmaint boot add COMMAND | remove COMMAND

The files that wait for the restart to be overwritten and deleted, the program that does it, and the command
lines that the system runs at its start, before anything else can open a file.

  list       shows the command lines and the files that wait
  status     shows whether the program is installed, the files that wait, and what the program did
  install    copies the program into the system's folder and registers it as a command line
  uninstall  undoes that; files that wait go on waiting
  run        does the program's work now: overwrites and deletes what waits, as far as it can be opened.
             Shows it first, and asks; --yes: does not ask
  drop       takes one line off the list of files: its file stays as it is. The number is the one that list
             shows. Shows the line first, and asks; --yes: does not ask
  add        appends a command line
  remove     removes every equal command line; case does not count

The program takes its command line away by itself when nothing waits any more; what it did is in
"sysmaint-boot.log" in the Windows folder. Files that are overwritten are counted there and not named. What it
leaves alone stays on the list: links on the way to a file, folders, what the system needs, and lines that name
no file of a drive.

Exit codes: 0 done, 1 something failed or still waits after a run, 2 wrong arguments, 130 cancelled.

example: sysmaint boot install
)";

int report(long code)
{
    if (code == ERROR_SUCCESS)
        return kExitDone;
    messages().writeLine(L"boot: " + formatCode(code));
    return kExitFailed;
}

/// Prints the strings of the value up to the closing empty one or the end of its data.
long listCommands()
{
    std::wstring list;
    DWORD size = 0;
    LSTATUS code = ERROR_MORE_DATA;
    for (DWORD room = 65536; code == ERROR_MORE_DATA && room < 0x10000000; room *= 2) {
        list.resize(room);
        size = static_cast<DWORD>(list.size() * sizeof(wchar_t));
        code = RegGetValueW(HKEY_LOCAL_MACHINE, L"System\\CurrentControlSet\\Control\\Session Manager",
                            L"BootExecute", RRF_RT_REG_MULTI_SZ, nullptr, list.data(), &size);
    }
    if (code != ERROR_SUCCESS)
        return code == ERROR_FILE_NOT_FOUND ? ERROR_SUCCESS : code;
    list.resize(size / sizeof(wchar_t));
    std::size_t at = 0;
    while (at < list.size() && list[at] != L'\0') {
        const std::wstring entry = list.c_str() + at;
        results().writeLine(L"command: " + printable(entry));
        at += entry.size() + 1;
    }
    // What follows the end is neither run nor shown, but it exists.
    const bool more = at < list.size() && list.find_first_not_of(L'\0', at) != std::wstring::npos;
    return more ? ERROR_INVALID_DATA : ERROR_SUCCESS;
}

void tellPrivateFolder(const ForceDeleteList& list)
{
    if (list.code == ERROR_BAD_ENVIRONMENT)
        messages().writeLine(
            L"boot: the Windows folder of this session is not the system's, so that nothing would "
            L"read a list there at the start");
}

/// Prints the files of the list, one per line.
long listFiles()
{
    const ForceDeleteList list = readForceDeleteList();
    std::size_t number = 0;
    for (const WaitingLine& line : list.lines)
        results().writeLine((line.file.empty() ? L"line " : L"file ") + std::to_wstring(++number) + L": " +
                            visibleText(line.file.empty() ? line.text : line.file));
    if (list.lines.size() != list.wrongLines)
        messages().writeLine(kRestartAdvice);
    tellPrivateFolder(list);
    if (list.wrongLines != 0)
        messages().writeLine(L"boot: lines of ForceDelete.txt that name no file: " +
                             formatCount(list.wrongLines) + L"; 'sysmaint boot drop' takes them off");
    return list.wrongLines != 0 ? ERROR_INVALID_DATA : list.code;
}

int showStatus()
{
    const BootProgramState state = bootProgramState();
    results().writeLine(L"program: " +
                        (state.isThere ? printable(state.path) : L"not in the system's folder"));
    results().writeLine(std::wstring(L"registered: ") + (state.isRegistered ? L"yes" : L"no"));
    const int files = report(listFiles());
    const int log = report(showBootLog());
    return std::max(files, log);
}

int install(bool isWanted)
{
    const long code = isWanted ? installBootProgram() : uninstallBootProgram();
    if (code == ERROR_SUCCESS)
        messages().writeLine(isWanted ? L"installed; it runs at the next start of the system"
                                      : L"not installed any more");
    return report(code);
}

/// Asks whether to continue; otherwise prints what was not done. Returns an ExitCode, kExitDone for yes.
int askFor(const wchar_t* otherwise)
{
    const Answer answer = ask(L"This cannot be undone. Go on? Type yes: ");
    if (answer == Answer::kYes)
        return kExitDone;
    messages().writeLine(otherwise);
    return answer == Answer::kCancelled ? kExitCancelled : kExitFailed;
}

/// Shows what would be deleted, and asks.
int runNow(bool yes)
{
    const ForceDeleteList list = readForceDeleteList();
    tellPrivateFolder(list);
    if (list.code != ERROR_SUCCESS)
        return report(list.code);
    for (const WaitingLine& line : list.lines)
        if (!line.file.empty())
            messages().writeLine(L"  " + visibleText(line.file));
    const std::size_t files = list.lines.size() - list.wrongLines;
    messages().writeLine(L"wipe what waits for the restart, " + formatCount(files) +
                         (files == 1 ? L" file" : L" files") +
                         L", each as it was asked for; all names of a file share its data");
    if (const int answer = yes ? kExitDone : askFor(L"nothing was wiped"); answer != kExitDone)
        return answer;
    cancelEvent(); // from now on Ctrl+C only signals it
    return runBootProgram(list);
}

/// Removes the one line that it has shown.
int drop(const std::wstring& word, bool yes)
{
    constexpr std::size_t kMostDigits = 9;
    const bool isNumber =
        word.size() <= kMostDigits && word.find_first_not_of(L"0123456789") == std::wstring::npos;
    const std::size_t number = isNumber ? std::stoul(word) : 0;
    if (number == 0)
        throw UsageError{printable(word) + L" is not the number of a line"};
    const ForceDeleteList list = readForceDeleteList();
    if (list.code != ERROR_SUCCESS)
        return report(list.code);
    if (number > list.lines.size()) {
        messages().writeLine(L"boot: the list has " + formatCount(list.lines.size()) + L" lines");
        return kExitFailed;
    }
    const std::wstring& text = list.lines[number - 1].text;
    messages().writeLine(L"take off the list: " + visibleText(text));
    if (const int answer = yes ? kExitDone : askFor(L"nothing was taken off"); answer != kExitDone)
        return answer;
    const long code = dropBootLine(number, text);
    if (code == ERROR_SUCCESS)
        messages().writeLine(L"taken off; the file stays as it is");
    else if (code == ERROR_SHARING_VIOLATION)
        messages().writeLine(L"boot: the list is being worked on; nothing was taken off (32)");
    else if (code == ERROR_NOT_FOUND)
        messages().writeLine(L"boot: the list has changed meanwhile; nothing was taken off (1168)");
    else
        report(code);
    return code == ERROR_SUCCESS ? kExitDone : kExitFailed;
}

/// Adds or removes a command line.
int edit(bool isAdded, const std::wstring& command)
{
    if (std::any_of(command.begin(), command.end(), [](wchar_t c) { return c < L' '; }) ||
        command.find_first_not_of(L' ') == std::wstring::npos)
        throw UsageError{L"a command is one line with something in it"};
    if (isAdded)
        return report(AddBootExecute(command.c_str()));
    const bool wasThere = BootExecuteIsScheduled(command.c_str()) != 0;
    const long code = RemoveBootExecute(command.c_str());
    if (code == ERROR_SUCCESS && !wasThere)
        messages().writeLine(L"boot: it was not there");
    return report(code);
}

int run(const std::vector<std::wstring>& words)
{
    const Arguments arguments(words, {{L"--yes", false}});
    const std::vector<std::wstring>& operands = arguments.operands();
    const std::wstring what = operands.empty() ? L"" : operands[0];
    if (arguments.has(L"--yes") && what != L"run" && what != L"drop")
        throw UsageError{L"--yes is for run and drop"};
    if (operands.size() == 1 && what == L"list") {
        const int commands = report(listCommands());
        const int files = report(listFiles());
        return std::max(commands, files);
    }
    if (operands.size() == 1 && what == L"status")
        return showStatus();
    if (operands.size() == 1 && (what == L"install" || what == L"uninstall"))
        return install(what == L"install");
    if (operands.size() == 1 && what == L"run")
        return runNow(arguments.has(L"--yes"));
    if (operands.size() == 2 && what == L"drop")
        return drop(operands[1], arguments.has(L"--yes"));
    if ((what != L"add" && what != L"remove") || operands.size() != 2)
        throw UsageError{
            L"list, status, install, uninstall, run, drop NUMBER, add COMMAND or remove COMMAND"};
    return edit(what == L"add", operands[1]);
}
} // namespace

const Command kBootCommand = {L"boot", L"show and edit what runs before the system's start", kHelp, &run};
