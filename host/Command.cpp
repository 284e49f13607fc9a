#include "Command.h"

#include <algorithm>
#include <cwchar>
#include <cwctype>

#include "Console.h"

namespace {
/// "-y", but not "-" or "- text": those are operands.
bool looksLikeOption(const std::wstring& word)
{
    return word.size() >= 2 && word[0] == L'-' && (word[1] == L'-' || std::iswalpha(word[1]) != 0);
}
} // namespace

Arguments::Arguments(const std::vector<std::wstring>& words, const std::vector<OptionRule>& rules)
{
    bool optionsEnded = false;
    for (std::size_t i = 0; i < words.size(); ++i) {
        const std::wstring& word = words[i];
        if (optionsEnded || !looksLikeOption(word)) {
            if (word.empty())
                throw UsageError{L"an argument is empty; is a variable not set?"};
            m_operands.push_back(word);
            continue;
        }
        if (word == L"--help")
            throw HelpRequest{};
        if (word == L"--") {
            optionsEnded = true;
            continue;
        }
        const auto rule = std::find_if(rules.begin(), rules.end(),
                                       [&](const OptionRule& known) { return word == known.name; });
        if (rule == rules.end())
            throw UsageError{L"unknown option " + printable(word) +
                             L"; what follows -- is taken as it stands"};
        if (has(word.c_str()))
            throw UsageError{word + L" is given twice"};
        if (rule->takesValue && i + 1 == words.size())
            throw UsageError{word + L" needs a value"};
        m_options[word] = rule->takesValue ? words[++i] : L"";
    }
}

bool Arguments::has(const wchar_t* option) const
{
    return m_options.count(option) != 0;
}

std::wstring Arguments::value(const wchar_t* option, const wchar_t* otherwise) const
{
    const auto found = m_options.find(option);
    if (found != m_options.end() && found->second.empty())
        throw UsageError{std::wstring(option) + L" is empty; is a variable not set?"};
    return found != m_options.end() ? found->second : otherwise;
}

std::optional<unsigned long> Arguments::number(const wchar_t* option, unsigned long least,
                                               unsigned long most) const
{
    const auto found = m_options.find(option);
    if (found == m_options.end())
        return std::nullopt;
    const std::wstring& text = found->second;
    const bool digits =
        !text.empty() && text.size() <= 9 && text.find_first_not_of(L"0123456789") == std::wstring::npos;
    const unsigned long number = digits ? std::wcstoul(text.c_str(), nullptr, 10) : 0;
    if (!digits || number < least || number > most)
        throw UsageError{std::wstring(option) + L" takes a number from " + std::to_wstring(least) + L" to " +
                         std::to_wstring(most)};
    return number;
}

std::wstring requireDrive(const std::wstring& word)
{
    const bool drive = (word.size() == 2 || (word.size() == 3 && word[2] == L'\\')) && word[1] == L':' &&
                       word[0] < 0x80 && std::iswalpha(word[0]) != 0;
    if (!drive)
        throw UsageError{printable(word) + L" is not a drive such as D:"};
    return word.substr(0, 2) + L"\\";
}
