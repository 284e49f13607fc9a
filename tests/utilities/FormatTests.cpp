#include "support/ImportReplacement.h"
#include "support/Utilities.h"

constexpr unsigned long long kMost = ~0ULL;
const auto size = asText(FormatByteSize);
const auto count = asText(FormatCount);
const auto duration = asText(FormatDuration);
const auto percent = asText(FormatPercent);
const auto error = asText(FormatSystemError);
const auto text = asText(TimeToText);
const auto number = asNumber(TimeFromText);
const auto unix = asNumber(TimeFromUnix);
const auto toUnix = asNumber(TimeToUnix);
const auto order = asNumber(VersionCompare);
const auto resource = asText(VersionGetString);

TEST(Formatting, OfNumbersIsTheLocales)
{
    Replaced<"GetLocaleInfoEx", decltype(&GetLocaleInfoEx)> locale;
    std::wstring grouping = L"3;0";
    locale.setHook([&](auto, const wchar_t*, LCTYPE kind, wchar_t* target, int) {
        return static_cast<int>(wcslen(wcscpy(target, kind == LOCALE_SDECIMAL    ? L","
                                                      : kind == LOCALE_STHOUSAND ? L"."
                                                                                 : grouping.c_str())));
    });
    EXPECT_EQ((Texts{size(0, 2), size(1, 2), size(1023, 0), size(1024, 1), size(1048575, 3),
                     size(1048576 * 3 / 2, 0), size(kMost, 3)}),
              (Texts{L"0 bytes", L"1 byte", L"1.023 bytes", L"1,0 KiB", L"1.023,999 KiB", L"1 MiB",
                     L"15,999 EiB"}));
    EXPECT_EQ((Texts{count(999), count(kMost)}), (Texts{L"999", L"18.446.744.073.709.551.615"}));
    EXPECT_EQ((Texts{duration(0), duration(59999), duration(60000), duration(3599999), duration(3600000),
                     duration(90000000), duration(kMost)}),
              (Texts{L"0,0 s", L"59,9 s", L"1 min 00 s", L"59 min 59 s", L"1 h 00 min", L"1 d 01 h",
                     L"213.503.982.334 d 14 h"}));
    EXPECT_EQ(
        (Texts{percent(1, 3), percent(999999, 1000000), percent(kMost - 1, kMost), percent(kMost, kMost),
               percent(3, 2), percent(kMost, 1), percent(0, 0), size(1, 4)}),
        (Texts{L"33,3%", L"99,9%", L"99,9%", L"100,0%", L"150,0%", L"code 534", L"code 87", L"code 87"}));
    grouping = L"3;2;0"; // as in India
    EXPECT_EQ(count(123456789), L"12.34.56.789");
    grouping = L"3";
    EXPECT_EQ(count(123456789), L"123456.789");
    EXPECT_EQ(error(5).substr(0, 6), L"Access");
    EXPECT_EQ(error(5).find_first_of(L"\r\n"), std::wstring::npos);
    EXPECT_EQ(error(0x20000005), L"code 317");
}

TEST(Formatting, OfTimesAndVersionsIsReadBack)
{
    for (const auto& [time, shown] : {std::pair(0ULL, L"1601-01-01T00:00:00.0000000Z"),
                                      {116444736000000001ULL, L"1970-01-01T00:00:00.0000001Z"},
                                      {2650467743999999999ULL, L"9999-12-31T23:59:59.9999999Z"}}) {
        EXPECT_EQ(text(time), shown);
        EXPECT_EQ(number(shown), static_cast<long long>(time));
    }
    for (const unsigned long long never : {1ULL << 63U, 2650467744000000000ULL})
        EXPECT_EQ(text(never), L"code 87");
    EXPECT_EQ((Numbers{number(L"1970-01-01T00:00:00Z"), number(L"1970-01-01T00:00:00.5Z"),
                       number(L"2024-02-29T12:00:00Z")}),
              (Numbers{116444736000000000, 116444736005000000, 133536816000000000}));
    for (const wchar_t* wrong :
         {L"1600-12-31T23:59:59Z", L"2024-13-01T00:00:00Z", L"2024-00-01T00:00:00Z", L"2023-02-29T12:00:00Z",
          L"2024-02-28T24:00:00Z", L"1970-01-01 00:00:00Z", L"1970-01-01T00:00:00", L"1970-01-01T00:00:00.Z",
          L"1970-01-01T00:00:00.00000000Z", L""})
        EXPECT_EQ(number(wrong), -87) << utf8(wrong);
    EXPECT_EQ((Numbers{unix(0), unix(-11644473600), unix(-11644473601), unix(9223372036854775807)}),
              (Numbers{116444736000000000, 0, -534, -534}));
    EXPECT_EQ((Numbers{toUnix(0), toUnix(116444736000000000 - 1), toUnix(1ULL << 63U)}),
              (Numbers{-11644473600, -1, -87}));
    EXPECT_EQ((Numbers{order(L"1.10", L"1.9"), order(L"1.2", L"1.2.0"), order(L"1.02", L"1.2"),
                       order(L"99999999999999999999", L"99999999999999999998"), order(L"1.2.3", L"1.3"),
                       order(L"1.2", L"1.3.x")}),
              (Numbers{1, 0, 0, 1, -1, -87}));
    for (const wchar_t* wrong : {L"", L"1.", L"1..2"})
        EXPECT_EQ(order(wrong, L"1"), -87) << utf8(wrong);
}

TEST(Formatting, LocalTimeAndVersions)
{
    // Summer time by the rules of that day: the system is asked for the zone's, not for today's difference.
    Replaced<"SystemTimeToTzSpecificLocalTime", decltype(&SystemTimeToTzSpecificLocalTime)> zone(
        [](auto, const TIME_ZONE_INFORMATION* given, const SYSTEMTIME* utc, SYSTEMTIME* local) {
            EXPECT_EQ(given, nullptr);
            *local = *utc;
            local->wHour = 7;
            return TRUE;
        });
    for (const auto& [isLong, part] : {std::pair(0, L"7:00"), {0, L"29"}, {1, L"2024"}, {1, L"7:00:00"}})
        EXPECT_NE(asText(FormatDateTime)(133536816000000000, isLong).find(part), std::wstring::npos);

    unsigned long long version = 0;
    Given<wchar_t> told;
    constexpr wchar_t kLibrary[] = L"C:\\windows\\system32\\kernel32.dll";
    EXPECT_EQ(VersionGetFileVersion(kLibrary, &version, &told), 0);
    std::wstring expected;
    for (const unsigned shift : {48U, 32U, 16U, 0U})
        expected += std::to_wstring(version >> shift & 0xFFFFU) + (shift != 0 ? L"." : L"");
    EXPECT_EQ(told.get(), expected);
    EXPECT_EQ(resource(kLibrary, L"CompanyName").substr(0, 9), L"Microsoft");
    EXPECT_EQ(resource(kLibrary, L"NoSuchName"), L"code 1814");
    EXPECT_EQ(resource(L"C:\\windows\\win.ini", L"CompanyName").substr(0, 5), L"code ");
    unsigned long major = 0, minor = 0, build = 0;
    int server = 7;
    EXPECT_EQ(SystemGetVersion(&major, &minor, &build, &server), 0);
    EXPECT_GE(major, 6U);
    EXPECT_EQ(server, 0);
}
