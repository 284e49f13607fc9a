#include "Command.h"
#include "Console.h"
#include "OwnedText.h"
#include "TextTable.h"

#include <windows.h>

#include <iterator>

#include "core/win32/utils/processmanager/api.h"

namespace {
constexpr const wchar_t* kHelp = LR"(usage: sysmaint sessions [--json]

Lists the sessions: who is logged on there, in what state it is, and from which computer it is worked in.

  --json  one object per line

example: sysmaint sessions
)";

std::wstring stateName(unsigned long state)
{
    const wchar_t* const names[] = {L"active", L"connected", L"connecting", L"shadowing", L"disconnected",
                                    L"idle",   L"listening", L"resetting",  L"down",      L"starting"};
    return state < std::size(names) ? names[state] : std::to_wstring(state);
}

int run(const std::vector<std::wstring>& words)
{
    const Arguments arguments(words, {{L"--json", false}});
    if (!arguments.operands().empty())
        throw UsageError{L"sessions takes no operand"};
    OwnedBuffer<SessionRecord> records;
    std::size_t count = 0;
    if (const long code = SessionEnumerate(records.target(), &count); code != ERROR_SUCCESS) {
        messages().writeLine(L"sessions: " + formatCode(code));
        return kExitFailed;
    }
    TextTable table(
        {{L"ID", true}, {L"STATE", false}, {L"CONSOLE", false}, {L"USER", false}, {L"CLIENT", false}});
    for (std::size_t i = 0; i < count; ++i) {
        const SessionRecord& each = records.get()[i];
        const std::wstring user = *each.user == L'\0' ? L"" : std::wstring(each.domain) + L"\\" + each.user;
        const bool isConsole = each.isConsole != 0;
        if (arguments.has(L"--json"))
            results().writeLine(L"{\"id\":" + std::to_wstring(each.id) + L",\"state\":" +
                                jsonString(stateName(each.state)) + L",\"console\":" +
                                (isConsole ? L"true" : L"false") + L",\"user\":" +
                                (user.empty() ? L"null" : jsonString(user)) + L",\"client\":" +
                                (*each.clientName == L'\0' ? L"null" : jsonString(each.clientName)) + L"}");
        else
            table.add({std::to_wstring(each.id), stateName(each.state), isConsole ? L"yes" : L"no",
                       user.empty() ? L"-" : printable(user), printable(each.clientName)});
    }
    if (!arguments.has(L"--json"))
        table.print();
    return kExitDone;
}
} // namespace

const Command kSessionsCommand = {L"sessions", L"list the sessions and their users", kHelp, &run};
