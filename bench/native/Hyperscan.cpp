// The time of a regular-expression engine for many patterns at once with the rules of our rows, as a
// reference: built for this machine and not for Windows, with 8-bit texts. Prints rows for the table of
// scripts/bench.

#include <hs/hs.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "../RuleTexts.h"

namespace {
void require(bool condition, const char* what)
{
    if (condition)
        return;
    std::fprintf(stderr, "hyperscan: %s\n", what);
    std::exit(1);
}

std::string regexOf(const RuleText& rule)
{
    std::string regex = rule.isSubstring ? "" : "^";
    bool inSet = false;
    for (const char c : rule.pattern) {
        inSet = c == '[' || (inSet && c != ']');
        if (c == '*' && !rule.isSubstring)
            regex += ".*";
        else if (c == '?' && !rule.isSubstring)
            regex += '.';
        else if (c == '.' || c == '\\')
            regex += std::string("\\") + c;
        else
            regex += c;
    }
    return rule.isSubstring ? regex : regex + "$";
}

class Database
{
public:
    Database(const std::vector<RuleText>& rules, bool paths)
    {
        std::vector<std::string> texts;
        for (const RuleText& rule : rules)
            if (rule.isPath == paths)
                texts.push_back(regexOf(rule));
        std::vector<const char*> regexes;
        for (const std::string& text : texts)
            regexes.push_back(text.c_str());
        const std::vector<unsigned> flags(regexes.size(),
                                          HS_FLAG_CASELESS | HS_FLAG_SINGLEMATCH | HS_FLAG_DOTALL);
        hs_compile_error_t* error = nullptr;
        require(hs_compile_multi(regexes.data(), flags.data(), nullptr, static_cast<unsigned>(regexes.size()),
                                 HS_MODE_BLOCK, nullptr, &m_database, &error) == HS_SUCCESS,
                "the rules cannot be compiled");
        require(hs_alloc_scratch(m_database, &m_scratch) == HS_SUCCESS, "there is no memory");
    }
    Database(const Database&) = delete;
    Database& operator=(const Database&) = delete;
    ~Database()
    {
        hs_free_scratch(m_scratch);
        hs_free_database(m_database);
    }

    [[nodiscard]] bool matches(const char* text, std::size_t size) const
    {
        const auto stop = [](unsigned, unsigned long long, unsigned long long, unsigned, void*) { return 1; };
        return hs_scan(m_database, text, static_cast<unsigned>(size), 0, m_scratch, stop, nullptr) ==
               HS_SCAN_TERMINATED;
    }

private:
    hs_database_t* m_database = nullptr;
    hs_scratch_t* m_scratch = nullptr;
};

double nanosecondsPerFile(int count)
{
    const std::vector<RuleText> rules = ruleTexts(count);
    const std::vector<std::string> files = ruleFiles();
    const Database names(rules, false);
    const Database paths(rules, true);
    constexpr int kRounds = 100;
    std::vector<double> turns;
    for (int turn = 0; turn < 5; ++turn) {
        std::size_t accepted = 0;
        const auto begin = std::chrono::steady_clock::now();
        for (int round = 0; round < kRounds; ++round)
            for (const std::string& file : files) {
                const std::size_t name = file.rfind('\\') + 1;
                accepted += names.matches(file.data() + name, file.size() - name) ||
                                    paths.matches(file.data(), file.size())
                                ? 1
                                : 0;
            }
        const std::chrono::duration<double, std::nano> time = std::chrono::steady_clock::now() - begin;
        require(accepted == kRounds * files.size() / 10, "the files that match are not those that should");
        turns.push_back(time.count() / kRounds / static_cast<double>(files.size()));
    }
    std::sort(turns.begin(), turns.end());
    return turns[turns.size() / 2];
}
} // namespace

int main()
{
    for (const int count : {40, 400, 4000})
        std::printf("| ask %5d rules about a file, Hyperscan alone: %.1f ns\n", count,
                    nanosecondsPerFile(count));
}
