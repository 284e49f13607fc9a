#include "Command.h"
#include "Console.h"

#include <algorithm>

#include "ForceDeleteList.h"

#include "core/win32/utils/wiper/api.h"

namespace {
constexpr const wchar_t* kHelp = LR"(usage: sysmaint boot list | add COMMAND | remove COMMAND

The command lines that the system runs at its start, before anything else can open a file, and the files
that wait there to be overwritten and deleted.

  list     shows both
  add      appends a command line
  remove   removes every equal command line; case does not count

example: sysmaint boot add "autoshred *"
)";

int report(long code)
{
    if (code == ERROR_SUCCESS)
        return kExitDone;
    messages().writeLine(L"boot: " + formatCode(code));
    return kExitFailed;
}

/// Prints the strings of the value up to its closing empty one, or to the end of its data.
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
    // What stands behind the end is not run, and not shown: but it is there.
    const bool more = at < list.size() && list.find_first_not_of(L'\0', at) != std::wstring::npos;
    return more ? ERROR_INVALID_DATA : ERROR_SUCCESS;
}

/// Prints the files of the list, one a line.
long listFiles()
{
    const ForceDeleteList list = readForceDeleteList();
    for (const std::wstring& file : list.files)
        results().writeLine(L"file: " + printable(file));
    if (!list.files.empty())
        messages().writeLine(kRestartAdvice);
    if (list.code == ERROR_BAD_ENVIRONMENT)
        messages().writeLine(
            L"boot: the Windows folder of this session is not the system's, so that nothing would "
            L"read a list there at the start");
    if (list.wrongLines != 0)
        messages().writeLine(L"boot: lines of ForceDelete.txt that name no file: " +
                             formatCount(list.wrongLines));
    return list.wrongLines != 0 ? ERROR_INVALID_DATA : list.code;
}

int run(const std::vector<std::wstring>& words)
{
    const Arguments arguments(words, {});
    const std::vector<std::wstring>& operands = arguments.operands();
    const std::wstring what = operands.empty() ? L"" : operands[0];
    if (what == L"list" && operands.size() == 1) {
        const int commands = report(listCommands());
        const int files = report(listFiles());
        return std::max(commands, files);
    }
    if ((what != L"add" && what != L"remove") || operands.size() != 2)
        throw UsageError{L"list, add COMMAND or remove COMMAND"};
    const std::wstring& command = operands[1];
    if (std::any_of(command.begin(), command.end(), [](wchar_t c) { return c < L' '; }) ||
        command.find_first_not_of(L' ') == std::wstring::npos)
        throw UsageError{L"a command is one line with something in it"};
    if (what == L"add")
        return report(AddBootExecute(operands[1].c_str()));
    const bool wasThere = BootExecuteIsScheduled(operands[1].c_str()) != 0;
    const long code = RemoveBootExecute(operands[1].c_str());
    if (code == ERROR_SUCCESS && !wasThere)
        messages().writeLine(L"boot: it was not there");
    return report(code);
}
} // namespace

const Command kBootCommand = {L"boot", L"show and edit what runs before the system's start", kHelp, &run};
