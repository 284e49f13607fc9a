#include "core/win32/utils/formatting/include/Formatting.h"

#include <windows.h>

#include <iterator>
#include <memory>

#include "core/win32/utils/objectmanager/include/Raise.h"
#include "core/win32/utils/time/include/Time.h"

namespace {
/// A short text from the calling user's locale.
std::wstring localeText(LCTYPE kind, const wchar_t* otherwise)
{
    wchar_t text[16];
    return GetLocaleInfoEx(LOCALE_NAME_USER_DEFAULT, kind, text, static_cast<int>(std::size(text))) != 0
               ? text
               : otherwise;
}

std::wstring twoDigits(unsigned long long number)
{
    return (number < 10 ? L"0" : L"") + std::to_wstring(number);
}

/// The next digit of `rest` out of `unit`, in base 10; `rest` becomes what is left. Never overflows 64 bits.
unsigned nextDigit(unsigned long long& rest, unsigned long long unit) noexcept
{
    unsigned digit = 0;
    unsigned long long left = 0;
    for (int i = 0; i < 10; ++i) {
        if (left >= unit - rest) {
            left -= unit - rest;
            ++digit;
        } else {
            left += rest;
        }
    }
    rest = left;
    return digit;
}

/// The whole part and, after the locale's decimal point, `decimals` digits of the `rest` out of `unit`, cut
/// off.
std::wstring decimalText(unsigned long long whole, unsigned long long rest, unsigned long long unit,
                         unsigned decimals)
{
    std::wstring text = formatting::count(whole);
    if (decimals == 0)
        return text;
    text += localeText(LOCALE_SDECIMAL, L".");
    for (; decimals != 0; --decimals)
        text += static_cast<wchar_t>(L'0' + nextDigit(rest, unit));
    return text;
}

struct LocalMemory
{
    void operator()(wchar_t* memory) const noexcept { LocalFree(memory); }
};
} // namespace

namespace formatting {
std::wstring byteSize(unsigned long long bytes, unsigned decimals)
{
    constexpr const wchar_t* kUnits[] = {L"bytes", L"KiB", L"MiB", L"GiB", L"TiB", L"PiB", L"EiB"};
    constexpr unsigned kMostDecimals = 3;
    if (decimals > kMostDecimals)
        raiseCode(ERROR_INVALID_PARAMETER);
    std::size_t unit = 0;
    unsigned long long size = 1;
    while (bytes / size >= 1024 && unit + 1 < std::size(kUnits)) {
        size *= 1024;
        ++unit;
    }
    return decimalText(bytes / size, bytes % size, size, unit == 0 ? 0 : decimals) + L" " +
           (bytes == 1 ? L"byte" : kUnits[unit]);
}

std::wstring count(unsigned long long number)
{
    std::wstring digits = std::to_wstring(number);
    const std::wstring separator = localeText(LOCALE_STHOUSAND, L",");
    // "3;0": groups of three; "3;2;0": one of three, then twos; "3": one of three only.
    const std::wstring grouping = localeText(LOCALE_SGROUPING, L"3;0");
    std::size_t end = digits.size();
    for (std::size_t at = 0; at < grouping.size();) {
        const auto size = static_cast<std::size_t>(grouping[at] - L'0');
        if (size == 0 || size > 9 || end <= size)
            break;
        end -= size;
        digits.insert(end, separator);
        if (grouping.compare(at + 1, std::wstring::npos, L";0") != 0)
            at += 2;
    }
    return digits;
}

std::wstring duration(unsigned long long milliseconds)
{
    constexpr unsigned long long kSecond = 1000;
    constexpr unsigned long long kMinute = 60 * kSecond;
    constexpr unsigned long long kHour = 60 * kMinute;
    constexpr unsigned long long kDay = 24 * kHour;
    if (milliseconds < kMinute)
        return decimalText(milliseconds / kSecond, milliseconds % kSecond, kSecond, 1) + L" s";
    if (milliseconds < kHour)
        return std::to_wstring(milliseconds / kMinute) + L" min " +
               twoDigits(milliseconds % kMinute / kSecond) + L" s";
    if (milliseconds < kDay)
        return std::to_wstring(milliseconds / kHour) + L" h " + twoDigits(milliseconds % kHour / kMinute) +
               L" min";
    return count(milliseconds / kDay) + L" d " + twoDigits(milliseconds % kDay / kHour) + L" h";
}

std::wstring percent(unsigned long long part, unsigned long long whole)
{
    if (whole == 0)
        raiseCode(ERROR_INVALID_PARAMETER);
    unsigned long long rest = part % whole;
    const unsigned tens = nextDigit(rest, whole);
    const unsigned hundredths = tens * 10 + nextDigit(rest, whole); // a hundred times the part may overflow
    const unsigned long long times = part / whole;
    if (times > (~0ULL - hundredths) / 100)
        raiseCode(ERROR_ARITHMETIC_OVERFLOW);
    return decimalText(times * 100 + hundredths, rest, whole, 1) + L"%";
}

std::wstring dateTime(unsigned long long time, bool longForm)
{
    const SYSTEMTIME utc = timetext::fields(time);
    SYSTEMTIME local;
    if (!SystemTimeToTzSpecificLocalTime(nullptr, &utc, &local)) // by the rules of that day, not of today
        raiseLastError();
    wchar_t date[128];
    wchar_t clock[128];
    if (GetDateFormatEx(LOCALE_NAME_USER_DEFAULT, longForm ? DATE_LONGDATE : DATE_SHORTDATE, &local, nullptr,
                        date, static_cast<int>(std::size(date)), nullptr) == 0 ||
        GetTimeFormatEx(LOCALE_NAME_USER_DEFAULT, longForm ? 0 : TIME_NOSECONDS, &local, nullptr, clock,
                        static_cast<int>(std::size(clock))) == 0)
        raiseLastError();
    return std::wstring(date) + L" " + clock;
}

std::wstring systemError(unsigned long code)
{
    wchar_t* allocated = nullptr;
    const DWORD length = FormatMessageW(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS |
                                            FORMAT_MESSAGE_ALLOCATE_BUFFER,
                                        nullptr, code, 0, reinterpret_cast<wchar_t*>(&allocated), 0, nullptr);
    if (length == 0)
        raiseLastError();
    const std::unique_ptr<wchar_t, LocalMemory> owner(allocated);
    std::wstring text;
    for (DWORD i = 0; i < length; ++i) // one line: line ends become one blank
        if (allocated[i] > L' ')
            text += allocated[i];
        else if (!text.empty() && text.back() != L' ')
            text += L' ';
    while (!text.empty() && text.back() == L' ')
        text.pop_back();
    if (text.empty())
        raiseCode(ERROR_MR_MID_NOT_FOUND);
    return text;
}
} // namespace formatting
