#include <gtest/gtest.h>
#include <windows.h>

#include <shlwapi.h>

#include <random>
#include <string>

#include "core/win32/utils/scanengine/include/File.h"
#include "core/win32/utils/scanengine/include/ScanRule.h"
#include "core/win32/utils/scanengine/include/WildcardMatcher.h"
#include "core/win32/utils/strings/include/CaseFolding.h"

namespace {
std::string narrow(const wchar_t* text)
{
    std::string result;
    for (; *text != 0; ++text)
        result += *text < 0x80 ? static_cast<char>(*text) : '?';
    return result;
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
