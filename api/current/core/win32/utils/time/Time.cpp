#include "core/win32/utils/time/include/Time.h"

#include <cwchar>

#include "core/win32/utils/objectmanager/include/Raise.h"

namespace {
constexpr unsigned long long kSecond = 10000000;           // in units of 100 ns
constexpr unsigned long long kUnixBegin = 11644473600;     // in seconds since 1601
constexpr unsigned long long kLatest = 0x7FFFFFFFFFFFFFFF; // the latest time that the system accepts
constexpr std::size_t kFractionDigits = 7;
} // namespace

namespace timetext {
unsigned long long fromUnix(long long seconds)
{
    const unsigned long long since1601 = static_cast<unsigned long long>(seconds) + kUnixBegin;
    if (seconds < -static_cast<long long>(kUnixBegin) || since1601 > kLatest / kSecond)
        raiseCode(ERROR_ARITHMETIC_OVERFLOW);
    return since1601 * kSecond;
}

long long toUnix(unsigned long long time)
{
    if (time > kLatest)
        raiseCode(ERROR_INVALID_PARAMETER);
    return static_cast<long long>(time / kSecond) - static_cast<long long>(kUnixBegin);
}

SYSTEMTIME fields(unsigned long long time)
{
    const FILETIME file = fileTime(time);
    SYSTEMTIME result;
    if (time > kLatest || !FileTimeToSystemTime(&file, &result))
        raiseCode(ERROR_INVALID_PARAMETER);
    return result;
}

std::wstring toText(unsigned long long time)
{
    constexpr WORD kLastYear = 9999; // of four digits
    const SYSTEMTIME at = fields(time);
    if (at.wYear > kLastYear)
        raiseCode(ERROR_INVALID_PARAMETER);
    wchar_t text[48];
    const int length =
        std::swprintf(text, sizeof text / sizeof *text, L"%04u-%02u-%02uT%02u:%02u:%02u.%07lluZ", at.wYear,
                      at.wMonth, at.wDay, at.wHour, at.wMinute, at.wSecond, time % kSecond);
    return std::wstring(text, static_cast<std::size_t>(length));
}

unsigned long long fromText(std::wstring_view text)
{
    // A "d" in the pattern stands for a digit, everything else for itself.
    constexpr std::wstring_view kPattern = L"dddd-dd-ddTdd:dd:dd";
    if (text.size() < kPattern.size() + 1 || text.back() != L'Z')
        raiseCode(ERROR_INVALID_PARAMETER);
    WORD numbers[6] = {};
    std::size_t field = 0;
    for (std::size_t i = 0; i < kPattern.size(); ++i) {
        const bool digit = text[i] >= L'0' && text[i] <= L'9';
        if (kPattern[i] == L'd' ? !digit : text[i] != kPattern[i])
            raiseCode(ERROR_INVALID_PARAMETER);
        if (digit)
            numbers[field] = static_cast<WORD>(numbers[field] * 10 + (text[i] - L'0'));
        else
            ++field;
    }
    std::wstring_view rest = text.substr(kPattern.size(), text.size() - kPattern.size() - 1);
    unsigned long long fraction = 0;
    if (!rest.empty()) {
        if (rest.front() != L'.' || rest.size() == 1 || rest.size() > kFractionDigits + 1)
            raiseCode(ERROR_INVALID_PARAMETER);
        rest.remove_prefix(1);
        for (std::size_t i = 0; i < kFractionDigits; ++i) {
            const wchar_t c = i < rest.size() ? rest[i] : L'0';
            if (c < L'0' || c > L'9')
                raiseCode(ERROR_INVALID_PARAMETER);
            fraction = fraction * 10 + static_cast<unsigned>(c - L'0');
        }
    }
    const SYSTEMTIME at = {numbers[0], numbers[1], 0, numbers[2], numbers[3], numbers[4], numbers[5], 0};
    FILETIME file;
    if (!SystemTimeToFileTime(&at, &file))
        raiseCode(ERROR_INVALID_PARAMETER);
    // Not every system refuses days that do not exist.
    const SYSTEMTIME back = fields(number(file));
    if (back.wYear != at.wYear || back.wMonth != at.wMonth || back.wDay != at.wDay ||
        back.wHour != at.wHour || back.wMinute != at.wMinute || back.wSecond != at.wSecond)
        raiseCode(ERROR_INVALID_PARAMETER);
    return number(file) + fraction;
}
} // namespace timetext
