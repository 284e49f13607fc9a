#include "Command.h"
#include "Console.h"

#include <iterator>
#include <memory>

#include "core/win32/utils/restoremanager/api.h"

namespace {
constexpr wchar_t kPasswordVariable[] = L"SYSMAINT_SNAPSHOT_PASSWORD";

constexpr const wchar_t* kHelp = LR"(usage: sysmaint snapshot create NAME [--comment TEXT]
       sysmaint snapshot restore current | baseline | time TEXT | name NAME [--yes]
       both: --tool PATH [--user NAME] [--password]

Runs the external snapshot tool "vrlcmd", which takes snapshots of the whole system and goes back to them, and
waits until it has ended. Whether it succeeded the tool says itself.

  create    takes a snapshot
  restore   goes back to the current snapshot, the baseline, the snapshot of a time, or that of a name, which is
            looked up in the tool's list "snapshot.qmx" in the current folder. It asks before it begins.

  --tool      the tool's program; no batch file
  --user      the user that the tool is to work for
  --password  his password: from the environment variable SYSMAINT_SNAPSHOT_PASSWORD, or else from a question
              without echo. It cannot be given here, where others can read it. But the tool wants it on its own
              command line: while it runs, other programs of this user can read it there.
  --yes       do not ask

No text may hold a quote or end in a backslash; user and password of restore also hold no blank, since the tool
takes them without quotes.

Exit codes: 0 the tool has ended, 1 it was not started, or the answer was not yes, 2 wrong arguments, 130 cancelled.

example: sysmaint snapshot create "before the cleaning" --tool "C:\Program Files\Snapshots\vrlcmd.exe"
)";

/// A text that the library takes as null when it was not given, and that is overwritten in the end.
class OptionalText
{
public:
    OptionalText() = default;
    OptionalText(const Arguments& arguments, const wchar_t* option)
        : m_isGiven(arguments.has(option)), m_text(arguments.value(option, L""))
    {
    }
    OptionalText(const OptionalText&) = delete;
    OptionalText& operator=(const OptionalText&) = delete;
    ~OptionalText() { SecureZeroMemory(m_text.data(), m_text.size() * sizeof(wchar_t)); }

    void set(std::wstring text)
    {
        m_text = std::move(text);
        m_isGiven = true;
    }
    [[nodiscard]] const wchar_t* get() const { return m_isGiven ? m_text.c_str() : nullptr; }

private:
    bool m_isGiven = false;
    std::wstring m_text;
};

/// The password, if one is wanted. False when the question was cancelled.
bool getPassword(const Arguments& arguments, OptionalText& password)
{
    if (!arguments.has(L"--password"))
        return true;
    wchar_t text[1024];
    const DWORD length =
        GetEnvironmentVariableW(kPasswordVariable, text, static_cast<DWORD>(std::size(text)));
    if (length >= std::size(text))
        throw UsageError{L"the password is too long"};
    if (length != 0) {
        password.set(text);
        SecureZeroMemory(text, sizeof text);
        SetEnvironmentVariableW(kPasswordVariable, nullptr); // the tool gets it once
        return true;
    }
    std::wstring typed;
    if (askSecret(L"Password: ", typed) == Answer::kCancelled)
        return false;
    if (typed.empty())
        throw UsageError{L"an empty password; leave --password out"};
    password.set(std::move(typed));
    return true;
}

int report(long status)
{
    if (isCancelled()) {
        messages().writeLine(L"snapshot: cancelled; the tool was told by the same Ctrl+C");
        return kExitCancelled;
    }
    if (status == 0) {
        messages().writeLine(L"snapshot: the tool has ended");
        return kExitDone;
    }
    messages().writeLine(status == kSnapshotNoMemory
                             ? L"snapshot: memory is short (0xC0000017)"
                             : L"snapshot: the tool could not be started, the name is not in its list, or a "
                               L"text cannot be passed on (0xC0000001)");
    return kExitFailed;
}

int create(const Arguments& arguments, const std::wstring& tool)
{
    const std::vector<std::wstring>& operands = arguments.operands();
    if (operands.size() != 2)
        throw UsageError{L"create takes one name"};
    const OptionalText comment(arguments, L"--comment");
    const OptionalText user(arguments, L"--user");
    OptionalText password;
    cancelEvent(); // the tool decides what Ctrl+C means to it; this program waits for its end
    if (!getPassword(arguments, password))
        return kExitCancelled;
    const std::unique_ptr<IVRL> snapshots(DllGetVRL());
    return report(snapshots ? snapshots->createSnapshot(tool.c_str(), operands[1].c_str(), comment.get(),
                                                        user.get(), password.get())
                            : kSnapshotNoMemory);
}

/// What to go back to, and the name or time that belongs to it.
std::uint32_t requireMode(const std::vector<std::wstring>& operands)
{
    constexpr const wchar_t* kModes[] = {L"current", L"baseline", L"time", L"name"};
    for (std::uint32_t mode = 0; mode < std::size(kModes); ++mode)
        if (operands.size() == (mode < kSnapshotTime ? 2U : 3U) && operands[1] == kModes[mode])
            return mode;
    throw UsageError{L"restore takes current, baseline, time TEXT or name NAME"};
}

int restore(const Arguments& arguments, const std::wstring& tool)
{
    const std::vector<std::wstring>& operands = arguments.operands();
    const std::uint32_t mode = requireMode(operands);
    if (arguments.has(L"--comment"))
        throw UsageError{L"--comment is for create"};
    const OptionalText user(arguments, L"--user");
    OptionalText password;
    cancelEvent();
    const std::wstring value = operands.size() == 3 ? operands[2] : L"";
    messages().writeLine(L"take the whole system back to: " + printable(operands[1]) +
                         (value.empty() ? L"" : L" " + printable(value)));
    if (!arguments.has(L"--yes")) {
        const Answer answer = ask(L"What came after it is lost. Go on? Type yes: ");
        if (answer != Answer::kYes) {
            messages().writeLine(L"nothing was restored");
            return answer == Answer::kCancelled ? kExitCancelled : kExitFailed;
        }
    }
    if (!getPassword(arguments, password))
        return kExitCancelled;
    const std::unique_ptr<IVRL> snapshots(DllGetVRL());
    return report(snapshots ? snapshots->restoreSnapshot(mode, tool.c_str(), user.get(), password.get(),
                                                         value.c_str(), value.c_str())
                            : kSnapshotNoMemory);
}

int run(const std::vector<std::wstring>& words)
{
    const Arguments arguments(words, {{L"--tool", true},
                                      {L"--comment", true},
                                      {L"--user", true},
                                      {L"--password", false},
                                      {L"--yes", false}});
    const std::wstring tool = arguments.value(L"--tool", L"");
    const std::wstring what = arguments.operands().empty() ? L"" : arguments.operands()[0];
    if (what != L"create" && what != L"restore")
        throw UsageError{L"create or restore?"}; // not what was given: it may be a password
    if (tool.empty())
        throw UsageError{L"which program? --tool PATH"};
    return what == L"create" ? create(arguments, tool) : restore(arguments, tool);
}
} // namespace

const Command kSnapshotCommand = {L"snapshot", L"run the external tool for snapshots of the system", kHelp,
                                  &run};
