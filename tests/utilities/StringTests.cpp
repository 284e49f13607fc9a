#include "core/win32/utils/strings/api.h"

#include "support/Utilities.h"
#include "win32/paths/include/IPathValidatorA.h"

namespace {
constexpr wchar_t kLone[] = L"a\xD83D";

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
    int result = 7;
    int back = 7;
    EXPECT_EQ(StringCompareNaturalW(first, second, &result), 0);
    EXPECT_EQ(StringCompareNaturalW(second, first, &back), 0);
    EXPECT_EQ(result, -back) << first << L" and " << second;
    return result < 0 ? L"<" : result > 0 ? L">" : L"=";
}
std::wstring flag(long (*call)(const wchar_t*, const wchar_t*, int, int*), const wchar_t* a, const wchar_t* b,
                  int fold)
{
    return std::to_wstring(flagOf([&](int* f) { return call(a, b, fold, f); }));
}
std::wstring number(const wchar_t* text, int base)
{
    return std::to_wstring(numberOf<long long>([&](long long* v) { return StringToInt64W(text, base, v); }));
}
std::wstring trim(const wchar_t* text, const wchar_t* set)
{
    return wideOf([&](wchar_t** r) { return StringTrimW(text, set, r); });
}
std::wstring replace(const wchar_t* text, const wchar_t* from, const wchar_t* to, int fold)
{
    return wideOf([&](wchar_t** r) { return StringReplaceAllW(text, from, to, fold, r); });
}
std::wstring quote(const wchar_t* text)
{
    return wideOf([&](wchar_t** r) { return StringQuoteArgumentW(text, r); });
}
std::wstring join(const wchar_t* list)
{
    return wideOf([&](wchar_t** r) { return StringJoinW(list, L", ", r); });
}
std::wstring matches(const wchar_t* text, const wchar_t* pattern)
{
    return std::to_wstring(flagOf([&](int* f) { return StringMatchesPatternW(text, pattern, f); }));
}
} // namespace

TEST(Strings, DoWhatTheyPromise)
{
    const std::wstring million(1000000, L'x');
    const struct
    {
        std::wstring actual, expected;
    } rows[] = {
        {trim(L"  a b\t", L" \t"), L"a b"},
        {trim(L"", L" "), L""},
        {trim(L"   ", L" "), L""},
        {trim(L" a ", L""), L" a "},
        {trim(L"\U0001F600x\U0001F601", L"\U0001F600"), L"x\U0001F601"}, // one half of it is in the set
        {trim(kLone, L"\U0001F600"), kLone},
        {trim((L" " + million).c_str(), L" "), million},
        {replace(L"aaa", L"aa", L"b", 0), L"ba"},
        {replace(L"aAa", L"a", L"aa", 0), L"aaAaa"},
        {replace(L"aÄa", L"ä", L"", 1), L"aa"},
        {replace(L"aÄa", L"ä", L"", 0), L"aÄa"},
        {replace(L"a", L"", L"b", 0), L"code 87"},
        {split(L";a;;b", L";", 0), L"a|b|"},
        {split(L";a;;b", L";", 1), L"|a||b|"},
        {split(L"", L";", 0), L""},
        {split(L"", L";", 1), L"|"},
        {split(L"a,b;c", L",;", 1), L"a|b|c|"},
        {split(L"\U0001F600a\U0001F601b", L"\U0001F601", 0), L"\U0001F600a|b|"},
        {join(L"a\0b\0"), L"a, b"},
        {join(L"\0"), L""},
        {flag(StringStartsWithW, L"Größe", L"GRÖ", 1), L"1"},
        {flag(StringStartsWithW, L"Größe", L"GRÖ", 0), L"0"},
        {flag(StringStartsWithW, L"a", L"ab", 1), L"0"},
        {flag(StringStartsWithW, L"a", L"", 0), L"1"},
        {flag(StringEndsWithW, L"x.TMP", L".tmp", 1), L"1"},
        {flag(StringEndsWithW, L"tmp", L".tmp", 1), L"0"},
        {flag(StringContainsW, L"abC", L"Bc", 1), L"1"},
        {flag(StringContainsW, L"abC", L"Bc", 0), L"0"},
        {flag(StringContainsW, L"a", L"", 0), L"1"},
        {order(L"file9", L"file10"), L"<"},
        {order(L"file18446744073709551616", L"file18446744073709551615"), L">"},
        {order(L"a01", L"a1"), L">"},
        {order(L"a01b", L"a1c"), L"<"},
        {order(L"A", L"a"), L"<"},
        {order(L"Ab", L"aC"), L"<"},
        {order(L"a", L"a0"), L"<"},
        {order(L"x2y", L"x2y"), L"="},
        {matches(L"Photo.JPG", L"*.jpg"), L"1"},
        {matches(L"ab", L"?"), L"0"},
        {wideOf([](wchar_t** r) { return StringToUpperW(L"straße ÿ", r); }), L"STRAßE Ÿ"},
        {wideOf([](wchar_t** r) { return StringToLowerW(L"ÄI\U00010400", r); }), L"äi\U00010400"},
        {wideOf([](wchar_t** r) { return StringDuplicateW(kLone, r); }), kLone},
        {number(L"9223372036854775807", 10), L"9223372036854775807"},
        {number(L"-9223372036854775808", 10), L"-9223372036854775808"},
        {number(L"9223372036854775808", 10), L"-534"},
        {number(L"-9223372036854775809", 0), L"-534"},
        {number(L"99999999999999999999x", 10), L"-87"}, // wrong rather than too large
        {number(L"0x7f", 0), L"127"},
        {number(L"-0X10", 16), L"-16"},
        {number(L"z", 36), L"35"},
        {number(L"010", 0), L"10"},
        {number(L"0x", 16), L"-87"},
        {number(L"", 10), L"-87"},
        {number(L"+", 10), L"-87"},
        {number(L" 1", 10), L"-87"},
        {number(L"12", 2), L"-87"},
        {number(L"1", 1), L"-87"},
        {number(L"1", 37), L"-87"},
        {wideOf([](wchar_t** r) { return StringFormatHexW("\x00\xff\x1a", 3, r); }), L"00ff1a"},
        {wideOf([](wchar_t** r) { return StringFormatHexW("", static_cast<size_t>(-1), r); }), L"code 87"},
        {quote(L"plain\\"), L"plain\\"},
        {quote(L""), L"\"\""},
        {quote(L"a b\\"), L"\"a b\\\\\""},
        {quote(L"a\\\\b\"c"), LR"("a\\b\"c")"},
        {quote(L"\\\""), LR"("\\\"")"},
    };
    for (const auto& row : rows)
        EXPECT_EQ(row.actual, row.expected) << &row - rows;
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
            const std::size_t expected = words[i].find(pattern);
            const wchar_t* found = _wcsistr(words[i].c_str(), pattern.c_str());
            ASSERT_EQ(found == nullptr ? std::wstring::npos
                                       : static_cast<std::size_t>(found - words[i].c_str()),
                      expected)
                << pattern << L" in " << words[i];
        }
    const std::wstring text(400000, L'a');
    const std::wstring part(200000, L'A');
    const ULONGLONG begin = GetTickCount64();
    EXPECT_EQ(_wcsistr(text.c_str(), (part + L'b').c_str()), nullptr);
    EXPECT_EQ(flag(StringContainsW, text.c_str(), (L'b' + part).c_str(), 1), L"0");
    EXPECT_EQ(replace((text + L'b').c_str(), (part + L'b').c_str(), L"c", 1),
              std::wstring(200000, L'a') + L'c');
    EXPECT_EQ(split(text.c_str(), (std::wstring(20000, L'\x3b1') + L'\x3b2').c_str(), 0).size(),
              text.size() + 1);
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
    const auto replaced = [](const char* text, const char* from) {
        return narrowOf([&](char** r) { return StringReplaceAllA(text, from, "-", 1, r); });
    };
    EXPECT_EQ(replaced(umlaut.c_str(), utf8(L"\U0001F600").c_str()), utf8(L"Größe -"));
    for (const char* invalid : {"\xff", "\xc0\x80", "\xe0\x80\x80", "\xed\xa0\x80", "\xf4\x90\x80\x80",
                                "\xc3", "\x80", "\xf0\x80\x80\x80", "\xc3("})
        EXPECT_EQ(replaced(invalid, "a"), "code 1113") << invalid;
    EXPECT_EQ(narrowOf([&](char** r) { return StringToUpperA(umlaut.c_str(), r); }),
              utf8(L"GRÖßE \U0001F600"));
    EXPECT_EQ(StringSplitA(utf8(L"aß;b").c_str(), utf8(L"ß").c_str(), 0, &list, &count), 0);
    EXPECT_EQ(bars(list.get(), count), "a|;b|");
    EXPECT_EQ(narrowOf([&](char** r) { return StringJoinA(list.get(), "+", r); }), "a+;b");
    EXPECT_EQ(StringParseHexA("0aFf", &bytes, &length), 0);
    EXPECT_EQ(std::string(reinterpret_cast<char*>(bytes.get()), length), "\n\xff");
    for (const char* wrong : {"0", "0g", " 0", "0x"})
        EXPECT_EQ(StringParseHexA(wrong, &bytes, &length), 87) << wrong;
    EXPECT_EQ(GetTokenA(umlaut.c_str(), " ", 0, token, 7, &needed),
              234); // in bytes: it has 7 without its end
    EXPECT_EQ(std::string(token) + std::to_string(needed), "+++++++7");
    EXPECT_EQ(GetTokenA(umlaut.c_str(), " ", 0, token, 8, &needed), 0);
    EXPECT_EQ(token, utf8(L"Größe"));
    EXPECT_EQ(GetTokenA("a", " ", 1, token, 8, &needed), 1168);
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
    EXPECT_EQ(utf8Of(kZeroInside, static_cast<size_t>(-1)), "a");
    EXPECT_EQ(utf8Of(L"\x7f\x80\x7ff\x800\xffff\U00010000\U0010FFFF", static_cast<size_t>(-1)),
              "\x7f\xc2\x80\xdf\xbf\xe0\xa0\x80\xef\xbf\xbf\xf0\x90\x80\x80\xf4\x8f\xbf\xbf");
    for (const wchar_t* lone : {L"\xD800", L"\xDC00", L"\xD800x", L"\xDC00\xD800"})
        EXPECT_EQ(utf8Of(lone, static_cast<size_t>(-1)), "code 1113");
    Given<wchar_t> wide;
    size_t size = 0;
    EXPECT_EQ(StringUtf8ToWide(zero.data(), 3, &wide, &size), 0);
    EXPECT_EQ(std::wstring(wide.get(), size), std::wstring(L"a\0b", 3));
    const struct
    {
        const wchar_t* text;
        unsigned codePage;
        const char* narrow;
        int lossy;
    } rows[] = {{L"ä€", 1252, "\xe4\x80", 0},
                {L"日", 1252, "?", 1},
                {L"＂", 1252, "?", 1}, // no quotation mark
                {L"日", 932, "\x93\xfa", 0},
                {L"ä", CP_UTF8, "\xc3\xa4", 0},
                {L"", 1252, "", 0}};
    for (const auto& row : rows) {
        Given<char> narrow;
        Given<wchar_t> back;
        int lossy = 7;
        EXPECT_EQ(StringWideToAnsi(row.text, row.codePage, &narrow, &lossy), 0);
        EXPECT_EQ(std::string(narrow.get()), row.narrow);
        EXPECT_EQ(lossy, row.lossy) << row.narrow;
        EXPECT_EQ(StringAnsiToWide(narrow.get(), row.codePage, &back), 0);
        EXPECT_EQ(std::wstring(back.get()) == row.text, lossy == 0);
    }
    Given<char> none;
    int lossy = 0;
    EXPECT_EQ(StringWideToAnsi(L"a", 54321, &none, &lossy), 87);
    EXPECT_EQ(wideOf([](wchar_t** r) { return StringAnsiToWide("\x81", 932, r); }), L"code 1113");
}
