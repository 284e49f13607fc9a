// sysmaint.exe: the library's capabilities at a prompt. It only uses the exported functions.

#include <algorithm>
#include <exception>
#include <iterator>

#include "Command.h"
#include "Console.h"
#include "OwnedText.h"

#include "core/win32/utils/versions/api.h"

namespace {
const Command* const kCommands[] = {&kScanCommand,    &kWipeCommand,    &kBootCommand,     &kHivesCommand,
                                    &kHiveCommand,    &kRestoreCommand, &kSnapshotCommand, &kLogCommand,
                                    &kLookupCommand,  &kTopicCommand,   &kUtilCommand,     &kProcessesCommand,
                                    &kSessionsCommand};

void printUsage(Output& output)
{
    output.writeLine(L"usage: sysmaint <command> [options]\n\ncommands:");
    for (const Command* command : kCommands)
        output.writeLine(L"  " + std::wstring(command->name) +
                         std::wstring(11 - std::wstring(command->name).size(), L' ') + command->summary);
    output.writeLine(L"\n'sysmaint <command> --help' tells more and gives an example;\n"
                     L"'sysmaint --version' tells the version.\n"
                     L"Exit codes: 0 done, 1 failed, 2 wrong arguments, 130 cancelled.");
}

/// The program's version, and which library it has loaded: another one may lie beside it.
int printVersion()
{
    std::wstring path(UNICODE_STRING_MAX_CHARS, L'\0');
    path.resize(
        GetModuleFileNameW(GetModuleHandleW(L"sysmaint.dll"), path.data(), static_cast<DWORD>(path.size())));
    unsigned long long number = 0;
    OwnedBuffer<wchar_t> library;
    const long code = VersionGetFileVersion(path.c_str(), &number, library.target());
    results().writeLine(L"sysmaint " SYSMAINT_VERSION);
    results().writeLine(L"library " + (code == ERROR_SUCCESS ? library.get() : formatCode(code)) + L"  " +
                        printable(path));
    return code == ERROR_SUCCESS ? kExitDone : kExitFailed;
}

int runCommand(const Command& command, const std::vector<std::wstring>& words)
{
    try {
        return command.run(words);
    } catch (const HelpRequest&) {
        results().write(command.help);
        return kExitDone;
    } catch (const UsageError& error) {
        messages().writeLine(std::wstring(command.name) + L": " + error.text + L"\nTry 'sysmaint " +
                             command.name + L" --help'.");
        return kExitUsage;
    }
}

int run(int argumentCount, wchar_t** arguments)
{
    std::vector<std::wstring> words(arguments + std::min(argumentCount, 1), arguments + argumentCount);
    if (words.empty()) {
        printUsage(messages());
        return kExitUsage;
    }
    if (words[0] == L"--help" || words[0] == L"help") {
        printUsage(results());
        return kExitDone;
    }
    if (words[0] == L"--version" && words.size() == 1)
        return printVersion();
    const auto* const* command = std::find_if(std::begin(kCommands), std::end(kCommands),
                                              [&](const Command* known) { return words[0] == known->name; });
    if (command == std::end(kCommands)) {
        messages().writeLine(L"sysmaint: unknown command " + printable(words[0]));
        printUsage(messages());
        return kExitUsage;
    }
    words.erase(words.begin());
    return runCommand(**command, words);
}
} // namespace

namespace {
/// Libraries loaded from now on come from the system folder. Systems without the call (Windows 7 without its
/// update of 2011) search as before.
void searchSystemFolderAlone()
{
    const HMODULE kernel = GetModuleHandleW(L"kernel32.dll");
    const auto set = reinterpret_cast<BOOL(WINAPI*)(DWORD)>(
        reinterpret_cast<void*>(GetProcAddress(kernel, "SetDefaultDllDirectories")));
    if (set != nullptr)
        set(LOAD_LIBRARY_SEARCH_SYSTEM32);
}

/// Results that could not be written are a failure, and a cancel counts even if it came too late.
int withResultsWritten(int code)
{
    results().flush();
    if (results().isOpen())
        return code == kExitDone && isCancelled() ? static_cast<int>(kExitCancelled) : code;
    messages().writeLine(L"sysmaint: the results could not be written: " +
                         formatCode(static_cast<long>(results().failure())));
    return code == kExitDone ? static_cast<int>(kExitFailed) : code;
}
} // namespace

int wmain(int argumentCount, wchar_t** arguments)
{
    searchSystemFolderAlone();
    const WorkScope work;
    try {
        return withResultsWritten(run(argumentCount, arguments));
    } catch (const std::exception& error) {
        const std::string text = error.what();
        messages().writeLine(L"sysmaint: " + std::wstring(text.begin(), text.end()));
        return kExitFailed;
    } catch (long code) {
        messages().writeLine(L"sysmaint: " + formatCode(code));
        return kExitFailed;
    }
}
