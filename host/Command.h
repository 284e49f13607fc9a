#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

/// The program's exit codes.
enum ExitCode
{
    kExitDone = 0,
    kExitFailed = 1,
    kExitUsage = 2,
    kExitIncomplete = 3, // done, but only with a part of what was there
    kExitCancelled = 130
};

/// Wrong arguments; the text explains them.
struct UsageError
{
    std::wstring text;
};

/// The user wants the command's help: nothing else is done.
struct HelpRequest
{
};

/// One option of a command.
struct OptionRule
{
    const wchar_t* name; // with its dashes
    bool takesValue;
};

/// The parsed arguments of one command.
class Arguments
{
public:
    /// Options may stand anywhere; "--" ends them. Throws UsageError for an unknown option, an option without
    /// its value, a repeated option, or an empty operand; HelpRequest for --help.
    Arguments(const std::vector<std::wstring>& words, const std::vector<OptionRule>& rules);

    [[nodiscard]] const std::vector<std::wstring>& operands() const { return m_operands; }
    [[nodiscard]] bool has(const wchar_t* option) const;
    /// The option's value, or `otherwise`. Throws UsageError for an empty value.
    [[nodiscard]] std::wstring value(const wchar_t* option, const wchar_t* otherwise) const;
    /// The option's value as a number from `least` to `most`, if it is given. Throws UsageError.
    [[nodiscard]] std::optional<unsigned long> number(const wchar_t* option, unsigned long least,
                                                      unsigned long most) const;

private:
    std::vector<std::wstring> m_operands;
    std::map<std::wstring, std::wstring> m_options;
};

/// "D:" or "D:\" as the drive's root. Throws UsageError.
std::wstring requireDrive(const std::wstring& word);

/// One command of the program. `run` gets the words after the command's name and returns an ExitCode.
struct Command
{
    const wchar_t* name;
    const wchar_t* summary;
    const wchar_t* help;
    int (*run)(const std::vector<std::wstring>& words);
};

extern const Command kScanCommand;
extern const Command kWipeCommand;
extern const Command kBootCommand;
extern const Command kHivesCommand;
extern const Command kRestoreCommand;
extern const Command kSnapshotCommand;
extern const Command kLogCommand;
extern const Command kLookupCommand;
extern const Command kTopicCommand;
extern const Command kHiveCommand;
extern const Command kUtilCommand;
extern const Command kProcessesCommand;
extern const Command kSessionsCommand;
