#include "Command.h"
#include "Console.h"

#include <algorithm>
#include <cwchar>
#include <initializer_list>
#include <iterator>
#include <memory>
#include <string_view>

#include "core/win32/utils/restoremanager/api.h"

namespace {
constexpr wchar_t kPasswordVariable[] = L"SYSMAINT_SNAPSHOT_PASSWORD";
constexpr std::size_t kLongestTexts = 32700; // the system takes 32,766 characters in all
constexpr wchar_t kNotStarted[] =
    L"snapshot: the tool could not be started: a batch file, a path that Windows "
    L"would alter, or no program (0xC0000001)";
constexpr wchar_t kNotListed[] = L"snapshot: \"snapshot.qmx\" in the current folder gives no time for that "
                                 L"name, or the tool could not be started (0xC0000001)";

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

/// A text that is null for the library when it was not given. The destructor overwrites it.
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

/// Asks for the password if one is needed. False when the question was cancelled.
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
        SetEnvironmentVariableW(kPasswordVariable, nullptr); // pass it to the tool only once
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

/// Why a value cannot be passed on to the tool, or nothing. `isBare`: without quotes, as user and password of
/// restore.
std::wstring faultOf(const wchar_t* value, bool isBare)
{
    const std::wstring_view text = value != nullptr ? value : L"x";
    if (text.find(L'"') != std::wstring_view::npos)
        return L" holds a quote, which the tool would take for its end";
    if (isBare &&
        (text.empty() || std::any_of(text.begin(), text.end(), [](wchar_t c) { return c <= L' '; })))
        return L" is empty or holds a blank, and restore passes it on without quotes";
    if (text.find_first_of(L"\r\n") != std::wstring_view::npos)
        return L" holds a line end";
    if (!isBare && !text.empty() && text.back() == L'\\')
        return L" ends in a backslash, which would take the closing quote's meaning away";
    return L"";
}

/// A value for the tool, with its name.
struct Value
{
    const wchar_t* name;
    const wchar_t* text;
    bool isBare;
};

/// Whether the library accepts these values; otherwise prints why not, without showing them.
bool areGood(const std::wstring& tool, std::initializer_list<Value> values)
{
    std::wstring fault;
    std::size_t length = 0;
    for (const Value& value : values) {
        length += value.text != nullptr ? std::wcslen(value.text) + 10 : 0;
        if (const std::wstring found = faultOf(value.text, value.isBare); fault.empty() && !found.empty())
            fault = std::wstring(L"the ") + value.name + found;
    }
    const DWORD attributes = GetFileAttributesW(tool.c_str());
    if (attributes == INVALID_FILE_ATTRIBUTES || (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0)
        fault = L"there is no such program: " + printable(tool);
    else if (fault.empty() && length > kLongestTexts)
        fault = L"the texts are too long together";
    if (!fault.empty())
        messages().writeLine(L"snapshot: " + fault + L"; nothing was started (0xC0000001)");
    return fault.empty();
}

/// `otherwise` is the remaining reason for a failure, after all that could be checked before.
int report(long status, const wchar_t* otherwise)
{
    if (isCancelled()) {
        messages().writeLine(L"snapshot: cancelled; the tool was told by the same Ctrl+C");
        return kExitCancelled;
    }
    if (status == 0) {
        messages().writeLine(L"snapshot: the tool has ended");
        return kExitDone;
    }
    messages().writeLine(status == kSnapshotNoMemory ? L"snapshot: memory is short (0xC0000017)" : otherwise);
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
    cancelEvent(); // the tool handles Ctrl+C itself; this program waits until it ends
    if (!getPassword(arguments, password))
        return kExitCancelled;
    const wchar_t* const name = operands[1].c_str();
    if (!areGood(tool, {{L"name", name, false},
                        {L"comment", comment.get(), false},
                        {L"user", user.get(), false},
                        {L"password", password.get(), false}}))
        return kExitFailed;
    const std::unique_ptr<IVRL> snapshots(DllGetVRL());
    return report(
        snapshots ? snapshots->createSnapshot(tool.c_str(), name, comment.get(), user.get(), password.get())
                  : kSnapshotNoMemory,
        kNotStarted);
}

/// What to restore, and the name or time it needs.
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
    if (!areGood(tool, {{L"user", user.get(), true},
                        {L"password", password.get(), true},
                        {L"time", mode == kSnapshotTime ? value.c_str() : nullptr, false}}))
        return kExitFailed;
    const std::unique_ptr<IVRL> snapshots(DllGetVRL());
    return report(snapshots ? snapshots->restoreSnapshot(mode, tool.c_str(), user.get(), password.get(),
                                                         value.c_str(), value.c_str())
                            : kSnapshotNoMemory,
                  mode == kSnapshotNamed ? kNotListed : kNotStarted);
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
        throw UsageError{L"create or restore?"}; // do not show what was given: it may be a password
    if (tool.empty())
        throw UsageError{L"which program? --tool PATH"};
    return what == L"create" ? create(arguments, tool) : restore(arguments, tool);
}
} // namespace

const Command kSnapshotCommand = {L"snapshot", L"run the external tool for snapshots of the system", kHelp,
                                  &run};
