#include "core/win32/utils/formatting/api.h"

#include "core/win32/utils/time/api.h"
#include "core/win32/utils/versions/api.h"
#include "support/ImportReplacement.h"
#include "support/Utilities.h"

namespace {
constexpr unsigned long long kMost = ~0ULL;
std::wstring size(unsigned long long bytes, unsigned decimals)
{
    return wideOf([&](wchar_t** r) { return FormatByteSize(bytes, decimals, r); });
}
std::wstring count(unsigned long long number)
{
    return wideOf([&](wchar_t** r) { return FormatCount(number, r); });
}
std::wstring duration(unsigned long long time)
{
    return wideOf([&](wchar_t** r) { return FormatDuration(time, r); });
}
std::wstring percent(unsigned long long part, unsigned long long whole)
{
    return wideOf([&](wchar_t** r) { return FormatPercent(part, whole, r); });
}
std::wstring error(unsigned long code)
{
    return wideOf([&](wchar_t** r) { return FormatSystemError(code, r); });
}
std::wstring text(unsigned long long time)
{
    return wideOf([&](wchar_t** r) { return TimeToText(time, r); });
}
std::wstring number(const wchar_t* time)
{
    return std::to_wstring(
        numberOf<unsigned long long>([&](unsigned long long* t) { return TimeFromText(time, t); }));
}
std::wstring unix(long long seconds)
{
    return std::to_wstring(
        numberOf<unsigned long long>([&](unsigned long long* t) { return TimeFromUnix(seconds, t); }));
}
std::wstring toUnix(unsigned long long time)
{
    return std::to_wstring(numberOf<long long>([&](long long* s) { return TimeToUnix(time, s); }));
}
std::wstring order(const wchar_t* first, const wchar_t* second)
{
    return std::to_wstring(flagOf([&](int* o) { return VersionCompare(first, second, o); }));
}
} // namespace

TEST(Formatting, DoesWhatItPromises)
{
    std::wstring separators; // of the test's locale
    CountedImport<"GetLocaleInfoEx", decltype(&GetLocaleInfoEx)> locale(sysmaintModule());
    std::wstring grouping = L"3;0";
    locale.setHook([&](auto, const wchar_t*, LCTYPE kind, wchar_t* target, int) {
        return static_cast<int>(wcslen(wcscpy(target, kind == LOCALE_SDECIMAL    ? L","
                                                      : kind == LOCALE_STHOUSAND ? L"."
                                                                                 : grouping.c_str())));
    });
    const struct
    {
        std::wstring actual, expected;
    } rows[] = {
        {size(0, 2), L"0 bytes"},
        {size(1, 2), L"1 byte"},
        {size(1023, 0), L"1.023 bytes"},
        {size(1024, 1), L"1,0 KiB"},
        {size(1048575, 3), L"1.023,999 KiB"},
        {size(1048576 * 3 / 2, 0), L"1 MiB"},
        {size(kMost, 3), L"15,999 EiB"},
        {size(1, 4), L"code 87"},
        {count(999), L"999"},
        {count(kMost), L"18.446.744.073.709.551.615"},
        {duration(0), L"0,0 s"},
        {duration(59999), L"59,9 s"},
        {duration(60000), L"1 min 00 s"},
        {duration(3599999), L"59 min 59 s"},
        {duration(3600000), L"1 h 00 min"},
        {duration(90000000), L"1 d 01 h"},
        {duration(kMost), L"213.503.982.334 d 14 h"},
        {percent(1, 3), L"33,3%"},
        {percent(999999, 1000000), L"99,9%"},
        {percent(kMost - 1, kMost), L"99,9%"},
        {percent(kMost, kMost), L"100,0%"},
        {percent(3, 2), L"150,0%"},
        {percent(kMost, 1), L"code 534"},
        {percent(0, 0), L"code 87"},
        {error(5).substr(0, 6), L"Access"},
        {error(0x20000005), L"code 317"},
        {text(0), L"1601-01-01T00:00:00.0000000Z"},
        {text(116444736000000001), L"1970-01-01T00:00:00.0000001Z"},
        {text(1ULL << 63U), L"code 87"},
        {text(2650467743999999999), L"9999-12-31T23:59:59.9999999Z"},
        {text(2650467744000000000), L"code 87"},
        {number(L"9999-12-31T23:59:59.9999999Z"), L"2650467743999999999"},
        {number(L"1600-12-31T23:59:59Z"), L"-87"},
        {number(L"2024-13-01T00:00:00Z"), L"-87"},
        {number(L"2024-00-01T00:00:00Z"), L"-87"},
        {toUnix(1ULL << 63U), L"-87"},
        {number(L"1970-01-01T00:00:00.0000001Z"), L"116444736000000001"},
        {number(L"1970-01-01T00:00:00Z"), L"116444736000000000"},
        {number(L"1970-01-01T00:00:00.5Z"), L"116444736005000000"},
        {number(L"2024-02-29T12:00:00Z"), L"133536816000000000"},
        {number(L"2023-02-29T12:00:00Z"), L"-87"},
        {number(L"2024-02-28T24:00:00Z"), L"-87"},
        {number(L"1970-01-01 00:00:00Z"), L"-87"},
        {number(L"1970-01-01T00:00:00"), L"-87"},
        {number(L"1970-01-01T00:00:00.Z"), L"-87"},
        {number(L"1970-01-01T00:00:00.00000000Z"), L"-87"},
        {number(L""), L"-87"},
        {unix(0), L"116444736000000000"},
        {unix(-11644473600), L"0"},
        {unix(-11644473601), L"-534"},
        {unix(9223372036854775807), L"-534"},
        {toUnix(0), L"-11644473600"},
        {toUnix(116444736000000000 - 1), L"-1"},
        {order(L"1.10", L"1.9"), L"1"},
        {order(L"1.2", L"1.2.0"), L"0"},
        {order(L"1.02", L"1.2"), L"0"},
        {order(L"99999999999999999999", L"99999999999999999998"), L"1"},
        {order(L"1.2.3", L"1.3"), L"-1"},
        {order(L"1.2", L"1.3.x"), L"-87"},
        {order(L"", L"1"), L"-87"},
        {order(L"1.", L"1"), L"-87"},
        {order(L"1..2", L"1"), L"-87"},
    };
    for (const auto& row : rows)
        EXPECT_EQ(row.actual, row.expected) << &row - rows;
    grouping = L"3;2;0"; // as in India
    EXPECT_EQ(count(123456789), L"12.34.56.789");
    grouping = L"3";
    EXPECT_EQ(count(123456789), L"123456.789");
    EXPECT_EQ(error(5).find_first_of(L"\r\n"), std::wstring::npos);
}

TEST(Formatting, LocalTimeAndVersions)
{
    // Daylight saving by the rules of that day: the system is asked for the zone's rules, not for today's
    // difference.
    CountedImport<"SystemTimeToTzSpecificLocalTime", decltype(&SystemTimeToTzSpecificLocalTime)> zone(
        sysmaintModule());
    zone.setHook([](auto, const TIME_ZONE_INFORMATION* given, const SYSTEMTIME* utc, SYSTEMTIME* local) {
        EXPECT_EQ(given, nullptr);
        *local = *utc;
        local->wHour = 7;
        return TRUE;
    });
    const std::wstring date = wideOf([](wchar_t** r) { return FormatDateTime(133536816000000000, 0, r); });
    EXPECT_NE(date.find(L"7:00"), std::wstring::npos);
    EXPECT_NE(date.find(L"29"), std::wstring::npos);
    const std::wstring longDate =
        wideOf([](wchar_t** r) { return FormatDateTime(133536816000000000, 1, r); });
    EXPECT_NE(longDate.find(L"2024"), std::wstring::npos);
    EXPECT_NE(longDate.find(L"7:00:00"), std::wstring::npos);

    unsigned long long version = 0;
    Given<wchar_t> text;
    constexpr wchar_t kLibrary[] = L"C:\\windows\\system32\\kernel32.dll";
    EXPECT_EQ(VersionGetFileVersion(kLibrary, &version, &text), 0);
    std::wstring expected;
    for (int shift = 48; shift >= 0; shift -= 16)
        expected +=
            std::to_wstring(version >> static_cast<unsigned>(shift) & 0xFFFFU) + (shift != 0 ? L"." : L"");
    EXPECT_EQ(text.get(), expected);
    EXPECT_EQ(wideOf([&](wchar_t** r) { return VersionGetString(kLibrary, L"CompanyName", r); }).substr(0, 9),
              L"Microsoft");
    EXPECT_EQ(wideOf([&](wchar_t** r) { return VersionGetString(kLibrary, L"NoSuchName", r); }),
              L"code 1814");
    EXPECT_EQ(wideOf([](wchar_t** r) {
                  return VersionGetString(L"C:\\windows\\win.ini", L"CompanyName", r);
              }).substr(0, 5),
              L"code ");
    unsigned long major = 0, minor = 0, build = 0;
    int server = 7;
    EXPECT_EQ(SystemGetVersion(&major, &minor, &build, &server), 0);
    EXPECT_GE(major, 6U);
    EXPECT_EQ(server, 0);
}
