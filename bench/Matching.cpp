#include <windows.h>

#include <shlwapi.h>

#include <algorithm>
#include <memory>
#include <string>

#include "Bench.h"
#include "RuleTexts.h"
#include "core/win32/utils/scanengine/include/File.h"
#include "core/win32/utils/scanengine/include/ScanValidator.h"
#include "core/win32/utils/strings/api.h"
#include "core/win32/utils/strings/include/CaseFolding.h"
#include "core/win32/utils/strings/include/WildcardMatcher.h"

namespace {
/// Both sides must find the same, or they are not doing the same work.
template <class Matches>
void requireFound(const std::vector<std::wstring>& texts, unsigned long long expected, Matches&& matches)
{
    unsigned long long found = 0;
    for (const std::wstring& text : texts)
        found += matches(text) ? 1 : 0;
    require(found == expected, "the texts that match are not those that should");
}

/// So many rules like a cleaner's, and files of which a few match the last of them.
class RuleBook
{
public:
    explicit RuleBook(int count) : m_count(count) {}

    void make()
    {
        if (!m_files.empty())
            return;
        addTo(m_validator);
        for (const std::string& path : ruleFiles())
            m_files.push_back(std::make_unique<File>(wide(path).c_str(), 0));
    }
    void addTo(ScanValidator& validator)
    {
        m_names.clear();
        m_paths.clear();
        for (const RuleText& rule : ruleTexts(m_count)) {
            const std::wstring pattern = wide(rule.pattern);
            validator.addFilter(pattern.c_str(), rule.isSubstring ? kMatchSubstring : kMatchWildcard,
                                rule.isPath ? kMatchPath : kMatchName, kLeafItems);
            (rule.isPath ? m_paths : m_names).push_back(rule.isSubstring ? L"*" + pattern + L"*" : pattern);
        }
    }

    /// Queries the first files repeatedly.
    template <class Accepts>
    void ask(long times, Accepts&& accepts) const
    {
        long accepted = 0;
        for (long i = 0; i < times; ++i)
            accepted += accepts(*m_files[static_cast<std::size_t>(i) % m_files.size()]) ? 1 : 0;
        require(accepted == (times + 9) / 10, "the files that are accepted are not those that should");
    }
    void askFirst(const ScanValidator& validator) const
    {
        ask(1, [&](const File& file) { return validator.validate(file); });
    }
    void askAtOnce(long times) const
    {
        ask(times, [&](const File& file) { return m_validator.validate(file); });
    }
    void askOneByOne(long times) const
    {
        ask(times, [&](const File& file) { return m_validator.validateOneByOne(file); });
    }
    void askSystem(long times) const
    {
        ask(times, [&](const File& file) {
            const wchar_t* path = file.getPath();
            const auto matches = [](const wchar_t* text, const std::vector<std::wstring>& patterns) {
                return std::any_of(patterns.begin(), patterns.end(), [&](const std::wstring& pattern) {
                    return PathMatchSpecW(text, pattern.c_str()) != 0;
                });
            };
            return matches(PathFindFileNameW(path), m_names) || matches(path, m_paths);
        });
    }

private:
    static std::wstring wide(const std::string& text) { return {text.begin(), text.end()}; }

    int m_count;
    ScanValidator m_validator;
    std::vector<std::unique_ptr<File>> m_files;
    std::vector<std::wstring> m_names;
    std::vector<std::wstring> m_paths;
};

/// Searches the system folder as often as necessary.
void searchFiles(long count)
{
    wchar_t folder[MAX_PATH];
    GetSystemDirectoryW(folder, MAX_PATH);
    while (count > 0) {
        WIN32_FIND_DATAW entry;
        const HANDLE search = FindFirstFileW((folder + std::wstring(L"\\*")).c_str(), &entry);
        require(search != INVALID_HANDLE_VALUE, "the system's folder cannot be listed");
        while (--count > 0 && FindNextFileW(search, &entry))
            continue;
        FindClose(search);
    }
}

void addRuleRows(BenchRows& rows, BenchScale scale)
{
    const auto few = std::make_shared<RuleBook>(40);
    const auto most = std::make_shared<RuleBook>(4000);
    const auto row = [&](const std::string& name, const std::string& peer, double goal, long times,
                         const auto& book, auto&& ours, auto&& theirs) {
        const long asked = scale(times);
        rows.timed.push_back({name, peer, goal, static_cast<double>(asked), [=] { ours(*book, asked); },
                              [=] { theirs(*book, asked); },
                              [=] {
                                  book->make();
                                  few->make();
                              }});
    };
    const auto atOnce = [](const RuleBook& book, long times) { book.askAtOnce(times); };
    const auto oneByOne = [](const RuleBook& book, long times) { book.askOneByOne(times); };
    const auto system = [](const RuleBook& book, long times) { book.askSystem(times); };
    const auto of = [](int count) { return std::make_shared<RuleBook>(count); };
    row("ask 1 rule about a file", "one rule after the other", 0.95, 400000, of(1), atOnce, oneByOne);
    row("ask 8 rules about a file", "one rule after the other", 0.95, 100000, of(8), atOnce, oneByOne);
    row("ask 40 rules about a file", "one rule after the other", 3, 100000, few, atOnce, oneByOne);
    row("ask 40 rules about a file", "PathMatchSpecW per rule", 10, 2000, few, atOnce, system);
    row("ask 400 rules about a file", "one rule after the other", 3, 10000, of(400), atOnce, oneByOne);
    row("ask 4,000 rules about a file", "one rule after the other", 3, 1000, most, atOnce, oneByOne);
    row("ask 4,000 rules about a file", "PathMatchSpecW per rule", 10, 100, most, atOnce, system);
    row("ask 4,000 rules about a file", "itself with 40", 0.25, 10000, most, atOnce,
        [=](const RuleBook&, long times) { few->askAtOnce(times); });
    const auto fresh = std::make_shared<ScanValidator>();
    rows.timed.push_back({"compile 4,000 rules (op: 2 of them)", "search of 2,000 files", 1, 2000,
                          [=] { most->askFirst(*fresh); }, [] { searchFiles(2000); },
                          [=] {
                              most->make();
                              fresh->clear();
                              most->addTo(*fresh);
                          }});
}

/// Paths of which every other one has the wanted extension.
struct PathTexts
{
    std::vector<std::wstring> all;
    unsigned long long withEight = 0;

    void make(long count)
    {
        for (long i = static_cast<long>(all.size()); i < count; ++i) {
            const std::wstring& text =
                all.emplace_back(L"C:\\Users\\somebody\\AppData\\Local\\Vendor\\Cache\\File " +
                                 std::to_wstring(i * 7919LL) + (i % 2 == 0 ? L".Tmp" : L".Log"));
            withEight += text.find(L"8.Tmp") != std::wstring::npos ? 1 : 0;
        }
        require(withEight != 0 && withEight != all.size(),
                "a text of which all or none are found tells little");
    }
};
} // namespace

BenchRows matchingRows(BenchScale scale)
{
    const auto texts = std::make_shared<PathTexts>();
    const long count = scale(1000000);
    const auto prepare = [=] { texts->make(count); };
    const unsigned long long half = static_cast<unsigned long long>((count + 1) / 2);
    const std::wstring name = L"*.tmp";
    const std::wstring part = L"8.tMP";
    const auto folded = [](std::wstring pattern) {
        std::transform(pattern.begin(), pattern.end(), pattern.begin(), casefolding::fold);
        return pattern;
    };
    const std::wstring foldedName = folded(name);
    const std::wstring foldedPart = folded(part);

    BenchRows rows;
    rows.timed = {
        {"wildcard match", "PathMatchSpecW", 5.0, static_cast<double>(count),
         [=] {
             requireFound(texts->all, half, [&](const std::wstring& text) {
                 return matchesWildcard(casefolding::FoldedText(text).view(), foldedName);
             });
         },
         [=] {
             requireFound(texts->all, half, [&](const std::wstring& text) {
                 return PathMatchSpecW(text.c_str(), name.c_str()) != 0;
             });
         },
         prepare},
        {"substring rule, case-insensitive", "StrStrIW", 2.0, static_cast<double>(count),
         [=] {
             requireFound(texts->all, texts->withEight, [&](const std::wstring& text) {
                 return casefolding::FoldedText(text).view().find(foldedPart) != std::wstring_view::npos;
             });
         },
         [=] {
             requireFound(texts->all, texts->withEight, [&](const std::wstring& text) {
                 return StrStrIW(text.c_str(), part.c_str()) != nullptr;
             });
         },
         prepare},
    };
    addRuleRows(rows, scale);
    return rows;
}
