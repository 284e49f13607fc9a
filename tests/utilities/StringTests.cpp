#include "support/Utilities.h"

namespace {
constexpr wchar_t kLone[] = L"a\xD83D";
constexpr auto kWhole = static_cast<size_t>(-1); // up to the text's end

const auto trim = asText(StringTrimW);
const auto replace = asText(StringReplaceAllW);
const auto quote = asText(StringQuoteArgumentW);
const auto starts = asNumber(StringStartsWithW);
const auto ends = asNumber(StringEndsWithW);
const auto contains = asNumber(StringContainsW);
const auto matches = asNumber(StringMatchesPatternW);
const auto number = asNumber(StringToInt64W);

/// A list as a text, with a bar after each entry.
template <class Char>
std::basic_string<Char> bars(const Char* list, std::size_t count)
{
    std::basic_string<Char> text;
    for (; count != 0; --count, list += std::char_traits<Char>::length(list) + 1)
        text += std::basic_string<Char>(list) + Char('|');
    EXPECT_EQ(*list, Char()) << "the list's end";
    return text;
}
std::wstring split(const wchar_t* text, const wchar_t* separators, int keep)
{
    Given<wchar_t> list;
    size_t count = 99;
    return StringSplitW(text, separators, keep, &list, &count) == 0 ? bars(list.get(), count) : L"?";
}
std::wstring order(const wchar_t* first, const wchar_t* second)
{
    int result = 7, back = 7;
    EXPECT_EQ(StringCompareNaturalW(first, second, &result) + StringCompareNaturalW(second, first, &back), 0);
    EXPECT_EQ(result, -back) << first << L" and " << second;
    return result < 0 ? L"<" : result > 0 ? L">" : L"=";
}
} // namespace

TEST(Strings, AreTrimmedReplacedSplitAndJoined)
{
    const std::wstring million(1000000, L'x');
    EXPECT_EQ((Texts{trim(L"  a b\t", L" \t"), trim(L"", L" "), trim(L"   ", L" "), trim(L" a ", L"")}),
              (Texts{L"a b", L"", L"", L" a "}));
    EXPECT_EQ(trim(L"\U0001F600x\U0001F601", L"\U0001F600"), L"x\U0001F601"); // one half of it is in the set
    EXPECT_EQ(trim(kLone, L"\U0001F600"), kLone);
    EXPECT_EQ(trim((L" " + million).c_str(), L" "), million);
    EXPECT_EQ(
        (Texts{replace(L"aaa", L"aa", L"b", 0), replace(L"aAa", L"a", L"aa", 0),
               replace(L"aÄa", L"ä", L"", 1), replace(L"aÄa", L"ä", L"", 0), replace(L"a", L"", L"b", 0)}),
        (Texts{L"ba", L"aaAaa", L"aa", L"aÄa", L"code 87"}));
    EXPECT_EQ(
        (Texts{split(L";a;;b", L";", 0), split(L";a;;b", L";", 1), split(L"", L";", 0), split(L"", L";", 1),
               split(L"a,b;c", L",;", 1), split(L"\U0001F600a\U0001F601b", L"\U0001F601", 0)}),
        (Texts{L"a|b|", L"|a||b|", L"", L"|", L"a|b|c|", L"\U0001F600a|b|"}));
    constexpr wchar_t kTwo[] = {L'a', 0, L'b', 0, 0};
    constexpr wchar_t kNone[2] = {};
    EXPECT_EQ(asText(StringJoinW)(&kTwo[0], L", "), L"a, b");
    EXPECT_EQ(asText(StringJoinW)(&kNone[0], L", "), L"");
    EXPECT_EQ(asText(StringToUpperW)(L"straße ÿ"), L"STRAßE Ÿ");
    EXPECT_EQ(asText(StringToLowerW)(L"ÄI\U00010400"), L"äi\U00010400");
    EXPECT_EQ(asText(StringDuplicateW)(kLone), kLone);
}

TEST(Strings, AreComparedAndSearched)
{
    for (const long long yes :
         {starts(L"Größe", L"GRÖ", 1), starts(L"a", L"", 0), ends(L"x.TMP", L".tmp", 1),
          contains(L"abC", L"Bc", 1), contains(L"a", L"", 0), matches(L"Photo.JPG", L"*.jpg")})
        EXPECT_EQ(yes, 1);
    for (const long long no : {starts(L"Größe", L"GRÖ", 0), starts(L"a", L"ab", 1), ends(L"tmp", L".tmp", 1),
                               contains(L"abC", L"Bc", 0), matches(L"ab", L"?")})
        EXPECT_EQ(no, 0);
    const wchar_t* const text = L"The Größe of thE thing";
    for (const auto& [part, at] : {std::pair(L"THE", 0), {L"the t", 13}, {L"GRÖ", 4}})
        EXPECT_EQ(_wcsistr(text, part), text + at) << part;
    for (const auto& [first, second] : {std::pair(L"file9", L"file10"),
                                        {L"file18446744073709551615", L"file18446744073709551616"},
                                        {L"a1", L"a01"},
                                        {L"a01b", L"a1c"},
                                        {L"A", L"a"},
                                        {L"Ab", L"aC"},
                                        {L"a", L"a0"}})
        EXPECT_EQ(order(first, second), L"<") << utf8(first);
    EXPECT_EQ(order(L"x2y", L"x2y"), L"=");
}

TEST(Strings, BecomeNumbersHexAndArguments)
{
    EXPECT_EQ((Numbers{number(L"9223372036854775807", 10), number(L"-9223372036854775808", 10),
                       number(L"9223372036854775808", 10), number(L"-9223372036854775809", 0),
                       number(L"0x7f", 0), number(L"-0X10", 16), number(L"z", 36), number(L"010", 0)}),
              (Numbers{9223372036854775807, -9223372036854775807 - 1, -534, -534, 127, -16, 35, 10}));
    for (const long long wrong : // the first one rather than too large
         {number(L"99999999999999999999x", 10), number(L"0x", 16), number(L"", 10), number(L"+", 10),
          number(L" 1", 10), number(L"12", 2), number(L"1", 1), number(L"1", 37)})
        EXPECT_EQ(wrong, -87);
    constexpr char kBytes[] = {0, '\xff', '\x1a'};
    EXPECT_EQ(asText(StringFormatHexW)(&kBytes[0], 3), L"00ff1a");
    EXPECT_EQ(asText(StringFormatHexW)("", kWhole), L"code 87");
    EXPECT_EQ((Texts{quote(L"plain\\"), quote(L""), quote(L"a b\\"), quote(L"a\\\\b\"c"), quote(L"\\\"")}),
              (Texts{L"plain\\", L"\"\"", L"\"a b\\\\\"", LR"("a\\b\"c")", LR"("\\\"")"}));
}

// Finds what the standard library finds, for every short text and pattern; and in linear time where every
// position matches up to its end.
TEST(Strings, SearchIsExactAndLinear)
{
    std::vector<std::wstring> words = {L""};
    for (std::size_t i = 0; words[i].size() < 9; ++i)
        for (const wchar_t c : {L'a', L'b'})
            words.push_back(words[i] + c);
    for (const std::wstring& pattern : words)
        for (std::size_t i = 0; pattern.size() < 7 && i < words.size(); ++i) {
            const wchar_t* found = _wcsistr(words[i].c_str(), pattern.c_str());
            ASSERT_EQ(found == nullptr ? std::wstring::npos
                                       : static_cast<std::size_t>(found - words[i].c_str()),
                      words[i].find(pattern))
                << pattern << L" in " << words[i];
        }
    const std::wstring text(400000, L'a');
    const std::wstring part(200000, L'A');
    const ULONGLONG begin = GetTickCount64();
    EXPECT_EQ(_wcsistr(text.c_str(), (part + L'b').c_str()), nullptr);
    EXPECT_EQ(contains(text.c_str(), (L'b' + part).c_str(), 1), 0);
    EXPECT_EQ(replace((text + L'b').c_str(), (part + L'b').c_str(), L"c", 1), text.substr(200000) + L'c');
    EXPECT_EQ(split(text.c_str(), (std::wstring(20000, L'\x3b1') + L'\x3b2').c_str(), 0), text + L'|');
    EXPECT_LT(GetTickCount64() - begin, 3000U);
}

TEST(Strings, NarrowTwinsAreUtf8)
{
    const std::string umlaut = utf8(L"Größe \U0001F600");
    char token[8] = "+++++++";
    unsigned long needed = 0;
    Given<char> list;
    size_t count = 0;
    Given<unsigned char> bytes;
    size_t length = 0;
    const auto replaced = asText(StringReplaceAllA);
    EXPECT_EQ(replaced(umlaut.c_str(), utf8(L"\U0001F600").c_str(), "-", 1), utf8(L"Größe -"));
    for (const char* invalid : {"\xff", "\xc0\x80", "\xe0\x80\x80", "\xed\xa0\x80", "\xf4\x90\x80\x80",
                                "\xc3", "\x80", "\xf0\x80\x80\x80", "\xc3("})
        EXPECT_EQ(replaced(invalid, "a", "-", 1), "code 1113") << invalid;
    EXPECT_EQ(asText(StringToUpperA)(umlaut.c_str()), utf8(L"GRÖßE \U0001F600"));
    EXPECT_EQ(StringSplitA(utf8(L"aß;b").c_str(), utf8(L"ß").c_str(), 0, &list, &count), 0);
    EXPECT_EQ(bars(list.get(), count), "a|;b|");
    EXPECT_EQ(asText(StringJoinA)(list.get(), "+"), "a+;b");
    EXPECT_EQ(StringParseHexA("0aFf", &bytes, &length), 0);
    EXPECT_EQ(std::string(reinterpret_cast<char*>(bytes.get()), length), "\n\xff");
    for (const char* wrong : {"0", "0g", " 0", "0x"})
        EXPECT_EQ(StringParseHexA(wrong, &bytes, &length), 87) << wrong;
    // In bytes: it has 7 without its end.
    EXPECT_EQ(GetTokenA(umlaut.c_str(), " ", 0, token, 7, &needed), 234);
    EXPECT_EQ(std::string(token) + std::to_string(needed), "+++++++7");
    EXPECT_EQ(GetTokenA(umlaut.c_str(), " ", 0, token, 8, &needed), 0);
    EXPECT_EQ(token, utf8(L"Größe"));
    EXPECT_EQ(GetTokenA("a", " ", 1, token, 8, &needed), 1168);
    wchar_t wide[4] = L"...";
    EXPECT_EQ(GetTokenW(L"abcd", L",", 0, wide, 4, &needed), 234);
    EXPECT_EQ(wide + std::to_wstring(needed), L"...4");
    for (const auto& [index, expected] : {std::pair(0UL, L"ab"), {1, L"c"}}) {
        EXPECT_EQ(GetTokenW(L",,ab;c,", L",;", index, wide, 4, nullptr), 0);
        EXPECT_STREQ(wide, expected);
    }
    EXPECT_EQ(GetTokenW(L",,ab;c,", L",;", 2, wide, 4, nullptr), 1168);
    EXPECT_EQ(SetFirstCharW(&wide[0], L'c', L'\0'), &wide[0]);
    EXPECT_STREQ(wide, L"");
    EXPECT_EQ(_stristr(umlaut.c_str(), utf8(L"SSE").c_str()), nullptr);
    EXPECT_EQ(_stristr(umlaut.c_str(), utf8(L"ßE").c_str()), umlaut.c_str() + 4);
    EXPECT_EQ(_stristr("\xff", "a"), nullptr);
    std::string text = umlaut;
    EXPECT_EQ(SetFirstCharA(text.data(), '\xc3', '-'), nullptr); // half a character
    EXPECT_EQ(SetFirstCharA(text.data(), 'e', '-') - text.data(), 6);
}

TEST(Strings, Conversions)
{
    const auto utf8Of = [](const wchar_t* text, size_t length) {
        Given<char> result;
        size_t size = 0;
        const long code = StringWideToUtf8(text, length, &result, &size);
        return code != 0 ? "code " + std::to_string(code) : std::string(result.get(), size);
    };
    const std::string zero("a\0b", 3);
    constexpr wchar_t kZeroInside[] = {L'a', L'\0', L'b', L'\0'};
    EXPECT_EQ(utf8Of(kZeroInside, 3), zero);
    EXPECT_EQ(utf8Of(kZeroInside, kWhole), "a");
    EXPECT_EQ(utf8Of(L"\x7f\x80\x7ff\x800\xffff\U00010000\U0010FFFF", kWhole),
              "\x7f\xc2\x80\xdf\xbf\xe0\xa0\x80\xef\xbf\xbf\xf0\x90\x80\x80\xf4\x8f\xbf\xbf");
    for (const wchar_t* lone : {L"\xD800", L"\xDC00", L"\xD800x", L"\xDC00\xD800"})
        EXPECT_EQ(utf8Of(lone, kWhole), "code 1113");
    Given<wchar_t> wide;
    size_t size = 0;
    EXPECT_EQ(StringUtf8ToWide(zero.data(), 3, &wide, &size), 0);
    EXPECT_EQ(std::wstring(wide.get(), size), std::wstring(L"a\0b", 3));
    const std::tuple<const wchar_t*, unsigned, const char*, int> rows[] = {
        {L"ä€", 1252, "\xe4\x80", 0},
        {L"日", 1252, "?", 1},
        {L"＂", 1252, "?", 1}, // no quotation mark
        {L"日", 932, "\x93\xfa", 0},
        {L"ä", CP_UTF8, "\xc3\xa4", 0},
        {L"", 1252, "", 0}};
    const auto back = asText(StringAnsiToWide);
    int lossy = 7;
    for (const auto& [text, codePage, narrow, isLossy] : rows) {
        Given<char> given;
        EXPECT_EQ(StringWideToAnsi(text, codePage, &given, &lossy), 0);
        EXPECT_STREQ(given.get(), narrow);
        EXPECT_EQ(lossy, isLossy) << narrow;
        EXPECT_EQ(back(given.get(), codePage) == text, lossy == 0);
    }
    Given<char> none;
    EXPECT_EQ(StringWideToAnsi(L"a", 54321, &none, &lossy), 87);
    EXPECT_EQ(back("\x81", 932), L"code 1113");
}
