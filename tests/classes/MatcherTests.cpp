#include <gtest/gtest.h>
#include <windows.h>

#include <shlwapi.h>

#include <atomic>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#include "core/win32/utils/scanengine/include/CompiledRules.h"
#include "core/win32/utils/scanengine/include/File.h"
#include "core/win32/utils/scanengine/include/PatternGroup.h"
#include "core/win32/utils/scanengine/include/ScanRule.h"
#include "core/win32/utils/scanengine/include/ScanValidator.h"
#include "core/win32/utils/scanengine/include/WildcardMatcher.h"
#include "core/win32/utils/strings/include/CaseFolding.h"
#include "support/ImportReplacement.h"
#include "support/Threads.h"

namespace {
std::string narrow(const wchar_t* text)
{
    std::string result;
    for (; *text != 0; ++text)
        result += *text < 0x80 ? static_cast<char>(*text) : '?';
    return result;
}

/// An item of any type, also of those that no class has.
struct AnyItem final : ScanItem
{
    AnyItem(std::uint32_t type, const std::wstring& path) : ScanItem(type) { setPath(path.c_str(), 0); }
    [[nodiscard]] int exists() const override { return 0; }
};

/// All texts of up to `length` of the letters.
std::vector<std::wstring> allTexts(std::wstring_view letters, std::size_t length)
{
    std::vector<std::wstring> texts(1);
    for (std::size_t i = 0; texts[i].size() < length; ++i)
        for (const wchar_t letter : letters)
            texts.push_back(texts[i] + letter);
    return texts;
}

/// Random rules and items of few letters, so that much of it meets.
class Dice
{
public:
    std::size_t operator()(std::size_t below) { return m_random() % below; }
    std::wstring text(std::wstring_view letters, std::size_t length)
    {
        std::wstring text((*this)(length + 1), L' ');
        for (wchar_t& c : text)
            c = letters[(*this)(letters.size())];
        return text;
    }
    /// Up to 150 rules, mostly few, of one kind or of any.
    template <class Rule>
    std::vector<Rule> rules()
    {
        const std::size_t count = (*this)(150 >> (*this)(6));
        const std::size_t length = 2 + (*this)(10);
        const std::size_t kinds = (*this)(4);
        const std::wstring_view letters = (*this)(3) == 0   ? L"aAbB.\\xyXYäÄ"
                                          : (*this)(3) == 0 ? L"aAbB.\\*?[]!-"
                                                            : L"aAbBcC.\\xXäÄ**?";
        std::vector<Rule> rules;
        for (std::size_t i = 0; i < count; ++i)
            rules.emplace_back(text(letters, length).c_str(), static_cast<std::uint32_t>((*this)(9) / 4),
                               static_cast<std::uint32_t>((*this)(9) / 4),
                               static_cast<std::uint32_t>(kinds == 3 ? (*this)(3) : kinds));
        return rules;
    }

private:
    std::mt19937 m_random{static_cast<unsigned>(testing::UnitTest::GetInstance()->random_seed())};
};

bool verdictOneByOne(const std::vector<ScanFilter>& filters, const std::vector<ScanIgnore>& ignores,
                     RuleSubject& subject)
{
    bool accepted = filters.empty();
    for (const ScanFilter& filter : filters)
        accepted = accepted || filter.isInapplicable(subject) || filter.matches(subject);
    for (const ScanIgnore& ignore : ignores)
        accepted = accepted && (ignore.isInapplicable(subject) || !ignore.matches(subject));
    return accepted;
}
} // namespace

TEST(Matcher, Rules)
{
    const struct
    {
        const wchar_t* pattern;
        const wchar_t* text;
        bool matches;
    } rows[] = {
        // Ordinary characters, without regard to case; the whole of both must be used up.
        {L"", L"", true},
        {L"", L"a", false},
        {L"a", L"", false},
        {L"abc", L"aBc", true},
        {L"abc", L"abcd", false},
        {L"abcd", L"abc", false},
        {L"ÄÖ", L"äö", true},
        {L"жук", L"ЖУК", true},
        {L"]", L"]", true},
        {L"!", L"!", true},
        // ?
        {L"?", L"a", true},
        {L"?", L"", false},
        {L"?", L"ab", false},
        {L"a?c", L"aXc", true},
        {L"??", L"ab", true},
        // * at the end takes everything, at once.
        {L"*", L"", true},
        {L"*", L"anything", true},
        {L"a*", L"a", true},
        {L"a*", L"abc", true},
        {L"a*", L"ba", false},
        // * anchors on the last place of what follows it.
        {L"*.tmp", L"x.tmp", true},
        {L"*.tmp", L"x.TMP", true},
        {L"*.tmp", L"x.tmp.tmp", true},
        {L"*.tmp", L".tmp", true},
        {L"*.tmp", L"tmp", true}, // no anchor: it counts as standing before the first character
        {L"*.tmp", L"atmp", false},
        {L"a*b", L"aXbYb", true},
        {L"a*b", L"abX", false},
        {L"*b", L"xyz", false},
        {L"*b", L"b", true},
        {L"*b", L"", true}, // the same, with the end following on both sides
        {L"a*bc", L"abXbc", true},
        {L"*ab", L"aab", true},
        {L"*ba", L"bab", false}, // the last b is followed by the end, and there is none further on
        {L"*ab*", L"xabx", true},
        {L"*a?", L"ab", false}, // the character after the anchor must be there as it stands: "?" is none
        {L"*a?", L"a?", true},
        // The search for the anchor goes through the whole text, also what was matched already.
        {L"a*a", L"a", true},
        {L"ab*ab", L"ab", true},
        {L"a*b", L"ab", true},
        {L"b*a", L"ba", true},
        {L"a*bx", L"ax", false}, // without the anchor matching begins before the first character
        {L"*bx", L"x", true},
        {L"*bxy", L"xy", true},
        {L"*bx", L"xx", false},
        // Before a second star the next character is taken as it comes, unless the text is at its end.
        {L"*b*", L"xyz", true},
        {L"*b*", L"b", false},
        {L"*b*", L"bx", true},
        {L"*b*", L"xb", false},
        {L"*b*", L"", false},
        {L"*a*b*", L"xyz", true},
        {L"*a*b", L"xxb", true},
        // A star after a star is what is looked for.
        {L"**", L"x", false},
        {L"**", L"", true},
        {L"**", L"a*", true},
        {L"***", L"x", true},
        {L"***", L"", false},
        // Sets.
        {L"[abc]", L"B", true},
        {L"[abc]", L"d", false},
        {L"[abc]", L"", false},
        {L"[abc]", L"ab", false},
        {L"[a-c]*", L"Beta", true},
        {L"[a-c]*", L"delta", false},
        {L"[a-c]", L"a", true},
        {L"[a-c]", L"C", true},
        {L"[a-c]", L"-", false},
        {L"[a-cx]", L"x", false}, // what follows a range does not count
        {L"[a-]", L"-", true},    // no end of a range, so a list
        {L"[c-a]", L"b", false},
        {L"x[12]y", L"x2y", true},
        {L"[]", L"]", false},
        {L"[]", L"", false},
        {L"[]a]", L"a", false},
        {L"[?]", L"x", false},
        {L"[*]", L"*", true},
        // Without a "]" to come "[" is an ordinary character.
        {L"[abc", L"[abc", true},
        {L"[abc", L"a", false},
        {L"a]b[", L"a]b[", true},
        // Negated sets go on as ordinary characters.
        {L"[!xy]", L"a", false},
        {L"[!xy]", L"]", true},
        {L"[!xy]", L"y", false},
        {L"[!xy]", L"x", false},
        {L"[!xy]", L"", false},
        {L"[!]y]", L"]y]", true}, // the first "]" ends the set
        {L"[!x]]", L"]]", true},
        {L"[!a]]", L"]", false},
        {L"[!a-c]", L"d", true},
        {L"[!a-c]", L"D", true},
        {L"[!a-c]", L"b", false},
        {L"[!a-c]", L"", false},
        {L"[!a-c]x", L"dx", true},
        {L"[! -~]", L"!", false}, // inside: "!" matches, and then the rest must
        {L"[! -~]", L"! -~]", true},
        {L"[!a-c]", L"!a-c]", false},
    };
    static_assert(std::size(rows) >= 60);
    for (const auto& row : rows)
        EXPECT_EQ(matchesWildcard(casefolding::FoldedText(row.text).view(),
                                  casefolding::FoldedText(row.pattern).view()),
                  row.matches)
            << "'" << narrow(row.pattern) << "' '" << narrow(row.text) << "'";
}

TEST(Matcher, LongTexts)
{
    const std::wstring text = std::wstring(40000, L'Ä') + L".log";
    EXPECT_TRUE(
        matchesWildcard(casefolding::FoldedText(text).view(), casefolding::FoldedText(L"ää*.LOG").view()));
    EXPECT_FALSE(
        matchesWildcard(casefolding::FoldedText(text).view(), casefolding::FoldedText(L"a*.LOG").view()));
}

TEST(Matcher, NamesAreWhatTheSystemCutsOut)
{
    std::mt19937 random(1);
    for (int turn = 0; turn < 20000; ++turn) {
        std::wstring path(random() % 9, L' ');
        for (wchar_t& c : path)
            c = L"A.\\/:"[random() % 5];
        const File file(path.c_str(), 0);
        EXPECT_EQ(RuleSubject(file).name(), PathFindFileNameW(path.c_str())) << narrow(path.c_str());
    }
}

TEST(PatternGroup, SaysWhatTheMatcherSays)
{
    const std::vector<std::wstring> texts = allTexts(L"AB]*", 4);
    for (const std::wstring& pattern : allTexts(L"AB*?[]!-", 5)) {
        const PatternGroup wildcard({{pattern, false}});
        const PatternGroup substring({{pattern, true}});
        for (const std::wstring& text : texts) {
            ASSERT_EQ(wildcard.matches(text), matchesWildcard(text, pattern))
                << "'" << narrow(pattern.c_str()) << "' '" << narrow(text.c_str()) << "'";
            ASSERT_EQ(substring.matches(text), text.find(pattern) != std::wstring::npos)
                << "'" << narrow(pattern.c_str()) << "' in '" << narrow(text.c_str()) << "'";
        }
    }
}

// With --gtest_shuffle --gtest_repeat=N these are N million different cases.
TEST(CompiledRules, GiveTheVerdictOfOneRuleAfterTheOther)
{
    Dice dice;
    int accepted = 0;
    constexpr int kCases = 1000000;
    for (int cases = 0; cases < kCases;) {
        const auto filters = dice.rules<ScanFilter>();
        const auto ignores = dice.rules<ScanIgnore>();
        const CompiledRules compiled(filters, ignores);
        for (int turn = 0; turn < 100; ++turn, ++cases) {
            const AnyItem item(static_cast<std::uint32_t>(1 + dice(6)), dice.text(L"aAbBcC.\\]xXäÄ*!", 14));
            RuleSubject subject(item);
            const bool expected = verdictOneByOne(filters, ignores, subject);
            accepted += expected ? 1 : 0;
            ASSERT_EQ(compiled.validate(subject), expected)
                << item.getType() << " '" << narrow(item.getPath()) << "' by " << filters.size() << " and "
                << ignores.size() << " rules";
        }
    }
    EXPECT_GT(accepted, kCases / 5);
    EXPECT_LT(accepted, kCases * 4 / 5);
}

TEST(ScanValidator, CompilesAnewAfterEachChange)
{
    ScanValidator validator;
    const File file(L"C:\\Cache\\some.tmp", 0);
    for (int i = 0; i < 20; ++i)
        validator.addFilter((std::to_wstring(i) + L"x*.log").c_str(), kMatchWildcard, kMatchName, kLeafItems);
    EXPECT_FALSE(validator.validate(file));
    validator.addFilter(L"*.tmp", kMatchWildcard, kMatchName, kLeafItems);
    EXPECT_TRUE(validator.validate(file));
    validator.addIgnore(L"\\cache\\", kMatchSubstring, kMatchPath, kLeafItems);
    EXPECT_FALSE(validator.validate(file));
    validator.clear();
    EXPECT_TRUE(validator.validate(file));

    ScanValidator other(L"a?1,a?2,a?3,a?4,a?5,a?6,a?7,a?8", L"");
    ASSERT_FALSE(other.validate(file));
    MemoryOutputByteStream bytes;
    ScanValidator(L"s*.tmp", L"").dump(0, bytes);
    MemoryInputByteStream input(bytes.getData(), bytes.getSize());
    other.load(0, input);
    EXPECT_TRUE(other.validate(file));
}

TEST(ScanValidator, AnswersManyThreadsAtOnceAndWithoutMemory)
{
    std::wstring filters;
    for (const wchar_t* shape : {L"*.e", L"n", L"b*", L"p*q", L"s[0-9]", L"u"})
        for (int i = 0; i < 30; ++i)
            filters += shape + std::to_wstring(i) +
                       (*shape == L'u'   ? L":111,"
                        : *shape == L's' ? L"*:001,"
                                         : L",");
    const File accepted(L"C:\\folder\\N29", 0);
    const File refused((L"C:\\" + std::wstring(90, L's') + L"\\name.x").c_str(), 0);
    CountedImport<"malloc", void*(WINAPI*)(std::size_t)> allocations(GetModuleHandleW(nullptr));
    for (long failing = 1, reached = 1; failing <= reached; ++failing) {
        ScanValidator validator(filters.c_str(), L"*.keep,q*");
        allocations.failCall(failing, nullptr, ERROR_NOT_ENOUGH_MEMORY);
        const bool right = validator.validate(accepted) && !validator.validate(refused);
        reached = allocations.calls();
        allocations.failCall(0, nullptr, 0);
        ASSERT_TRUE(right) << "without allocation " << failing;
        // Once asked, no more memory is needed.
        ASSERT_TRUE(validator.validate(accepted) && !validator.validate(refused));
        ASSERT_EQ(allocations.calls(), 0);
        // A change is the time to try again.
        validator.addIgnore(L"*.z", kMatchWildcard, kMatchName, kLeafItems);
        allocations.reset();
        ASSERT_TRUE(validator.validate(accepted) && !validator.validate(refused));
        ASSERT_GT(allocations.calls(), 10);
    }
    // A rule that needs no more than the path may be asked before one that has no memory for a long name.
    const ScanValidator paths(L"s:101,1,2,3,4,5,6,7,8,9", L"");
    const File longName((L"C:\\" + std::wstring(300, L's')).c_str(), 0);
    ASSERT_TRUE(paths.validate(longName));
    allocations.failCall(1, nullptr, ERROR_NOT_ENOUGH_MEMORY);
    const bool right = paths.validate(longName);
    EXPECT_GT(allocations.calls(), 1);
    allocations.failCall(0, nullptr, 0);
    EXPECT_TRUE(right);
    for (int turn = 0; turn < 50; ++turn) {
        const ScanValidator validator(filters.c_str(), L"");
        std::atomic<int> wrong{0};
        onThreadsAtOnce(4, [&](int) {
            for (int i = 0; i < 20; ++i)
                wrong += validator.validate(accepted) && !validator.validate(refused) ? 0 : 1;
        });
        ASSERT_EQ(wrong, 0);
    }
}
