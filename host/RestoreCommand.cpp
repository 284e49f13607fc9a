#include "Command.h"
#include "Console.h"

#include <cwchar>

#include "RestorePoint.h"

#include "core/win32/utils/restoremanager/api.h"

namespace {
constexpr const wchar_t* kHelp =
    LR"(usage: sysmaint restore status | create [NAME] | delete NUMBER | enable DRIVE
                   [--json] [--yes]

System Restore of Windows: restore points, to which the system's own files and registry can be taken back.

  status   tells whether System Restore is on
  create   makes a restore point and tells its number. It is described by the name, "sysmaint" if none is
           given, and the time. Takes up to some minutes. Windows makes one in 24 hours: within these it
           makes none, which is said and counts as failed.
  delete   removes the restore point of that number, after it has asked
  enable   switches System Restore on for a drive; the system's own drive has to be the first

  --json   the result as one object
  --yes    do not ask

'sysmaint wipe' makes a restore point first with --restore-point. A restore point does not bring wiped files
back: it holds what the system itself needs.

example: sysmaint restore create "before the cleaning"
)";

/// The number of a restore point: 1 to 4294967295.
std::int64_t requireNumber(const std::wstring& word)
{
    const bool digits = word.size() <= 10 && word.find_first_not_of(L"0123456789") == std::wstring::npos;
    const std::int64_t number = digits ? std::wcstoll(word.c_str(), nullptr, 10) : 0;
    if (number < 1 || number > 4294967295)
        throw UsageError{printable(word) + L" is not the number of a restore point"};
    return number;
}

int report(long code)
{
    if (code == ERROR_SUCCESS)
        return kExitDone;
    messages().writeLine(L"restore: " + formatRestoreCode(code));
    return kExitFailed;
}

int showStatus(bool json)
{
    constexpr int kNotTold = -1;
    int enabled = kNotTold;
    const RestoreManagerHandle manager(L"sysmaint");
    const long code = IsSystemRestoreEnabled(manager.get(), &enabled);
    if (code == ERROR_NOT_FOUND)
        messages().writeLine(L"restore: the system has no settings of System Restore to ask (1168)");
    else if (code != ERROR_SUCCESS)
        report(code);
    if (code != ERROR_SUCCESS)
        return kExitFailed;
    const wchar_t* const value = enabled == kNotTold ? L"null" : enabled != 0 ? L"true" : L"false";
    if (json)
        results().writeLine(std::wstring(L"{\"type\":\"status\",\"enabled\":") + value + L"}");
    else if (enabled == kNotTold)
        results().writeLine(L"this version of Windows does not tell whether System Restore is on");
    else
        results().writeLine(enabled != 0 ? L"System Restore is on" : L"System Restore is off");
    return kExitDone;
}

int create(const std::wstring& name, bool json)
{
    RestorePoint point;
    const long code = makeRestorePoint(name, point);
    if (code != ERROR_SUCCESS)
        return report(code);
    const std::wstring number = std::to_wstring(point.number);
    results().writeLine(json ? L"{\"type\":\"restorePoint\",\"number\":" + number + L",\"name\":" +
                                   jsonString(point.name) + L"}"
                             : L"restore point " + number + L": " + printable(point.name));
    return kExitDone;
}

int remove(std::int64_t number, bool yes)
{
    messages().writeLine(L"delete restore point " + std::to_wstring(number));
    if (!yes) {
        const Answer answer = ask(L"This cannot be undone. Go on? Type yes: ");
        if (answer != Answer::kYes) {
            messages().writeLine(L"nothing was deleted");
            return answer == Answer::kCancelled ? kExitCancelled : kExitFailed;
        }
    }
    const RestoreManagerHandle manager(L"sysmaint");
    const long code = DeleteRestorePoint(manager.get(), number);
    if (code == ERROR_SUCCESS)
        messages().writeLine(L"removed");
    return report(code);
}

int enable(const std::wstring& drive, bool json)
{
    const RestoreManagerHandle manager(L"sysmaint");
    const long code = EnableSystemRestore(manager.get(), drive.c_str());
    if (code == ERROR_SUCCESS)
        results().writeLine(json ? L"{\"type\":\"enabled\",\"drive\":" + jsonString(drive) + L"}"
                                 : L"System Restore is switched on for " + drive);
    return report(code);
}

int run(const std::vector<std::wstring>& words)
{
    const Arguments arguments(words, {{L"--json", false}, {L"--yes", false}});
    const std::vector<std::wstring>& operands = arguments.operands();
    const std::wstring what = operands.empty() ? L"" : operands[0];
    const bool json = arguments.has(L"--json");
    if (what == L"status" && operands.size() == 1)
        return showStatus(json);
    if (what == L"create" && operands.size() <= 2)
        return create(operands.size() == 2 ? operands[1] : L"sysmaint", json);
    if (what == L"delete" && operands.size() == 2)
        return remove(requireNumber(operands[1]), arguments.has(L"--yes"));
    if (what == L"enable" && operands.size() == 2)
        return enable(requireDrive(operands[1]), json);
    throw UsageError{L"status, create [NAME], delete NUMBER or enable DRIVE"};
}
} // namespace

const Command kRestoreCommand = {L"restore", L"make and remove restore points, switch System Restore on",
                                 kHelp, &run};
