#include "core/win32/utils/scanengine/include/File.h"
#include "core/win32/utils/scanengine/include/ScanValidator.h"
#include "core/win32/utils/strings/include/WildcardMatcher.h"
#include "support/ImportReplacement.h"
#include "support/Threads.h"

#include <shlwapi.h>

namespace {
using casefolding::FoldedText;
using testing::PrintToString;

/// An item of any type, also of types without a class.
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

/// Random rules and items of few letters, so that many match.
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
        const std::wstring_view letters = (*this)(3) == 0   ? L"aAbB.\\xyXY\u0080äÄ"
                                          : (*this)(3) == 0 ? L"aAbB.\\*?[]!-"
                                                            : L"aAbBcC.\\xX\u0080äÄ**?";
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

const std::wstring kLongText = std::wstring(40000, L'Ä') + L".log";
using Texts = std::vector<const wchar_t*>;
const std::tuple<const wchar_t*, Texts, Texts> kWildcardRows[] = {
    // what matches a pattern, what does not
    // Ordinary characters, without regard to case; the whole of both must be used up.
    {L"", {L""}, {L"a"}},
    {L"a", {}, {L""}},
    {L"abc", {L"aBc"}, {L"abcd"}},
    {L"abcd", {}, {L"abc"}},
    {L"ÄÖ", {L"äö"}, {}},
    {L"жук", {L"ЖУК"}, {}},
    {L"]", {L"]"}, {}},
    {L"!", {L"!"}, {}},
    // ?
    {L"?", {L"a"}, {L"", L"ab"}},
    {L"a?c", {L"aXc"}, {}},
    {L"??", {L"ab"}, {}},
    // * at the end takes everything, at once.
    {L"*", {L"", L"anything"}, {}},
    {L"a*", {L"a", L"abc"}, {L"ba"}},
    // * anchors on the last place of what follows it. Without one, that counts as standing before the
    // first character ("tmp"), and an empty text has the end following on both sides.
    {L"*.tmp", {L"x.tmp", L"x.TMP", L"x.tmp.tmp", L".tmp", L"tmp"}, {L"atmp"}},
    {L"a*b", {L"aXbYb", L"ab"}, {L"abX"}},
    {L"*b", {L"b", L""}, {L"xyz"}},
    {L"a*bc", {L"abXbc"}, {}},
    {L"*ab", {L"aab"}, {}},
    {L"*ba", {}, {L"bab"}}, // the last b is followed by the end, and there is none further on
    {L"*ab*", {L"xabx"}, {}},
    {L"*a?", {L"a?"}, {L"ab"}}, // the character after the anchor must be there as it stands: "?" is none
    // The search for the anchor goes through the whole text, also what was matched already.
    {L"a*a", {L"a"}, {}},
    {L"ab*ab", {L"ab"}, {}},
    {L"b*a", {L"ba"}, {}},
    {L"a*bx", {}, {L"ax"}}, // without the anchor matching begins before the first character
    {L"*bx", {L"x"}, {L"xx"}},
    {L"*bxy", {L"xy"}, {}},
    // Before a second star the next character is taken as it comes, unless the text is at its end.
    {L"*b*", {L"xyz", L"bx"}, {L"b", L"xb", L""}},
    {L"*a*b*", {L"xyz"}, {}},
    {L"*a*b", {L"xxb"}, {}},
    // A star after a star is what is looked for.
    {L"**", {L"", L"a*"}, {L"x"}},
    {L"***", {L"x"}, {L""}},
    // Sets.
    {L"[abc]", {L"B"}, {L"d", L"", L"ab"}},
    {L"[a-c]*", {L"Beta"}, {L"delta"}},
    {L"[a-c]", {L"a", L"C"}, {L"-"}},
    {L"[a-cx]", {}, {L"x"}}, // what follows a range does not count
    {L"[a-]", {L"-"}, {}},   // no end of a range, so a list
    {L"[c-a]", {}, {L"b"}},
    {L"x[12]y", {L"x2y"}, {}},
    {L"[]", {}, {L"]", L""}},
    {L"[]a]", {}, {L"a"}},
    {L"[?]", {}, {L"x"}},
    {L"[*]", {L"*"}, {}},
    // Without a "]" to come "[" is an ordinary character.
    {L"[abc", {L"[abc"}, {L"a"}},
    {L"a]b[", {L"a]b["}, {}},
    // Negated sets go on as ordinary characters.
    {L"[!xy]", {L"]"}, {L"a", L"y", L"x", L""}},
    {L"[!]y]", {L"]y]"}, {}}, // the first "]" ends the set
    {L"[!x]]", {L"]]"}, {}},
    {L"[!a]]", {}, {L"]"}},
    {L"[!a-c]", {L"d", L"D"}, {L"b", L"", L"!a-c]"}},
    {L"[!a-c]x", {L"dx"}, {}},
    {L"[! -~]", {L"! -~]"}, {L"!"}}, // inside: "!" matches, and then the rest must
    {L"ää*.LOG", {kLongText.c_str()}, {}},
    {L"a*.LOG", {}, {kLongText.c_str()}}};
} // namespace

TEST(Matcher, Rules)
{
    for (const auto& row : kWildcardRows)
        for (const Texts* texts : {&std::get<1>(row), &std::get<2>(row)})
            for (const wchar_t* text : *texts)
                EXPECT_EQ(matchesWildcard(FoldedText(text).view(), FoldedText(std::get<0>(row)).view()),
                          texts == &std::get<1>(row))
                    << "'" << PrintToString(std::get<0>(row)) << "' '" << PrintToString(text) << "'";
}

TEST(Matcher, NamesAreWhatTheSystemCutsOut)
{
    std::mt19937 random(1);
    for (int turn = 0; turn < 20000; ++turn) {
        std::wstring path(random() % 9, L' ');
        for (wchar_t& c : path)
            c = L"A.\\/:"[random() % 5];
        const File file(path.c_str(), 0);
        EXPECT_EQ(RuleSubject(file).name(), PathFindFileNameW(path.c_str())) << PrintToString(path);
    }
}

TEST(PatternGroup, SaysWhatTheMatcherSays)
{
    const std::vector<std::wstring> texts = allTexts(L"AB]*", 4);
    std::wstring before;
    for (const std::wstring& pattern : allTexts(L"AB*?[]!-", 5)) {
        const PatternGroup wildcard({{pattern, false}});
        const PatternGroup substring({{pattern, true}});
        const PatternGroup both({{before, false}, {pattern, false}, {before, true}});
        for (const std::wstring& text : texts) {
            ASSERT_EQ(wildcard.matches(text), matchesWildcard(text, pattern))
                << "'" << PrintToString(pattern) << "' '" << PrintToString(text) << "'";
            ASSERT_EQ(substring.matches(text), text.find(pattern) != std::wstring::npos)
                << "'" << PrintToString(pattern) << "' in '" << PrintToString(text) << "'";
            ASSERT_EQ(both.matches(text), wildcard.matches(text) || matchesWildcard(text, before) ||
                                              text.find(before) != std::wstring::npos)
                << "'" << PrintToString(before) << "', '" << PrintToString(pattern) << "' '"
                << PrintToString(text) << "'";
        }
        before = pattern;
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
            const AnyItem item(static_cast<std::uint32_t>(1 + dice(6)),
                               dice.text(L"aAbBcC.\\]xX\u0080äÄ*!", 14));
            RuleSubject subject(item);
            const bool expected = verdictOneByOne(filters, ignores, subject);
            accepted += expected ? 1 : 0;
            ASSERT_EQ(compiled.validate(subject), expected)
                << item.getType() << " '" << PrintToString(item.getPath()) << "' by " << filters.size()
                << " and " << ignores.size() << " rules";
        }
    }
    EXPECT_GT(accepted, kCases / 5);
    EXPECT_LT(accepted, kCases * 4 / 5);
}

TEST(ScanValidator, CompilesAnewAfterEachChange)
{
    ScanValidator validator(L"a?1,a?2,a?3,a?4,a?5,a?6,a?7,a?8", L"");
    const File file(L"C:\\Cache\\some.tmp", 0);
    EXPECT_FALSE(validator.validate(file));
    MemoryOutputByteStream bytes;
    validator.dump(0, bytes);
    validator.addFilter(L"*.tmp", kMatchWildcard, kMatchName, kLeafItems);
    EXPECT_TRUE(validator.validate(file));
    validator.addIgnore(L"\\cache\\", kMatchSubstring, kMatchPath, kLeafItems);
    EXPECT_FALSE(validator.validate(file));
    validator.clear();
    EXPECT_TRUE(validator.validate(file));
    MemoryInputByteStream input(bytes.getData(), bytes.getSize());
    validator.load(0, input);
    EXPECT_FALSE(validator.validate(file));
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
    Replaced<"malloc", void*(WINAPI*)(std::size_t)> allocations;
    for (long failing = 1, reached = 1; failing <= reached; ++failing) {
        ScanValidator validator(filters.c_str(), L"*.keep,q*");
        allocations.failCall(failing, nullptr, ERROR_NOT_ENOUGH_MEMORY);
        const bool right = validator.validate(accepted) && !validator.validate(refused);
        reached = allocations.calls();
        allocations.failCall(0, nullptr, 0);
        ASSERT_TRUE(right) << "without allocation " << failing;
        // After the first query no more memory is needed.
        ASSERT_TRUE(validator.validate(accepted) && !validator.validate(refused));
        ASSERT_EQ(allocations.calls(), 0);
        // A change triggers another attempt.
        validator.addIgnore(L"*.z", kMatchWildcard, kMatchName, kLeafItems);
        allocations.reset();
        ASSERT_TRUE(validator.validate(accepted) && !validator.validate(refused));
        ASSERT_GT(allocations.calls(), 10);
    }
    // A rule that only needs the path may be evaluated before one that lacks memory for a long name.
    const ScanValidator paths(L"s:101,1,2,3,4,5,6,7,8,9", L"");
    const File longName((L"C:\\" + std::wstring(300, L's')).c_str(), 0);
    ASSERT_TRUE(paths.validate(longName));
    allocations.failCall(1, nullptr, ERROR_NOT_ENOUGH_MEMORY);
    EXPECT_TRUE(paths.validate(longName));
    EXPECT_GT(allocations.calls(), 1);
    allocations.failCall(0, nullptr, 0);
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
