#include "core/win32/utils/strings/include/Unicode.h"

#include <windows.h>

#include <limits>

#include "core/win32/utils/objectmanager/include/Raise.h"

namespace {
constexpr char32_t kFirstSurrogate = 0xD800;
constexpr char32_t kFirstLowSurrogate = 0xDC00;
constexpr char32_t kBehindSurrogates = 0xE000;
constexpr char32_t kFirstSupplementary = 0x10000;
constexpr char32_t kLast = 0x10FFFF;

bool isSurrogate(char32_t c) noexcept
{
    return c >= kFirstSurrogate && c < kBehindSurrogates;
}

void append(std::wstring& text, char32_t c)
{
    if (c >= kFirstSupplementary) {
        c -= kFirstSupplementary;
        text += static_cast<wchar_t>(kFirstSurrogate + (c >> 10U));
        c = kFirstLowSurrogate + (c & 0x3FFU);
    }
    text += static_cast<wchar_t>(c);
}

void append(std::string& text, char32_t c)
{
    const int more = c < 0x80 ? 0 : c < 0x800 ? 1 : c < kFirstSupplementary ? 2 : 3;
    constexpr unsigned kLead[] = {0, 0xC0, 0xE0, 0xF0};
    text += static_cast<char>(kLead[more] | (c >> (6U * static_cast<unsigned>(more))));
    for (int i = more - 1; i >= 0; --i)
        text += static_cast<char>(0x80U | ((c >> (6U * static_cast<unsigned>(i))) & 0x3FU));
}

/// Removes the character at the front of `rest`, which begins with its lead byte.
char32_t takeCharacter(std::string_view& rest)
{
    const auto lead = static_cast<unsigned char>(rest.front());
    const std::size_t length = lead < 0x80 ? 1 : lead < 0xC2 ? 0 : lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
    constexpr unsigned char kBits[] = {0, 0x7F, 0x1F, 0x0F, 0x07};
    constexpr char32_t kLeast[] = {0, 0, 0x80, 0x800, kFirstSupplementary};
    if (length == 0 || lead > 0xF4 || rest.size() < length)
        raiseCode(ERROR_NO_UNICODE_TRANSLATION);
    char32_t c = lead & kBits[length];
    for (std::size_t i = 1; i < length; ++i) {
        const auto byte = static_cast<unsigned char>(rest[i]);
        if ((byte & 0xC0U) != 0x80)
            raiseCode(ERROR_NO_UNICODE_TRANSLATION);
        c = (c << 6U) | (byte & 0x3FU);
    }
    if (c < kLeast[length] || c > kLast || isSurrogate(c))
        raiseCode(ERROR_NO_UNICODE_TRANSLATION);
    rest.remove_prefix(length);
    return c;
}

/// The system's lengths are of type int.
int systemLength(std::size_t length)
{
    if (length > static_cast<std::size_t>(std::numeric_limits<int>::max()))
        raiseCode(ERROR_ARITHMETIC_OVERFLOW);
    return static_cast<int>(length);
}

/// Calls a system conversion for the length and then for the text. Some code pages refuse flags.
template <class Text, class Convert>
Text converted(DWORD flags, Convert&& convert)
{
    int length = convert(flags, nullptr, 0);
    if (length == 0 && GetLastError() == ERROR_INVALID_FLAGS)
        length = convert(flags = 0, nullptr, 0);
    if (length == 0)
        raiseLastError();
    Text text(static_cast<std::size_t>(length), 0);
    if (convert(flags, text.data(), length) == 0)
        raiseLastError();
    return text;
}
} // namespace

char32_t unicode::nextCharacter(std::wstring_view& rest) noexcept
{
    char32_t c = rest.front();
    rest.remove_prefix(1);
    if (c >= kFirstSurrogate && c < kFirstLowSurrogate && !rest.empty() &&
        rest.front() >= kFirstLowSurrogate && rest.front() < kBehindSurrogates) {
        c = kFirstSupplementary + ((c - kFirstSurrogate) << 10U) + (rest.front() - kFirstLowSurrogate);
        rest.remove_prefix(1);
    }
    return c;
}

std::wstring unicode::wideFromUtf8(std::string_view text)
{
    std::wstring wide;
    wide.reserve(text.size());
    while (!text.empty())
        append(wide, takeCharacter(text));
    return wide;
}

std::string unicode::utf8FromWide(std::wstring_view text)
{
    std::string utf8;
    utf8.reserve(text.size());
    while (!text.empty()) {
        const char32_t c = nextCharacter(text);
        if (isSurrogate(c))
            raiseCode(ERROR_NO_UNICODE_TRANSLATION);
        append(utf8, c);
    }
    return utf8;
}

std::tuple<std::string, bool> unicode::ansiFromWide(std::wstring_view text, unsigned codePage)
{
    if (codePage == CP_UTF8)
        return {utf8FromWide(text), false};
    if (text.empty())
        return {std::string(), false};
    const int length = systemLength(text.size());
    std::string narrow =
        converted<std::string>(WC_NO_BEST_FIT_CHARS, [&](DWORD flags, char* target, int size) {
            return WideCharToMultiByte(codePage, flags, text.data(), length, target, size, nullptr, nullptr);
        });
    bool lossy = false;
    try { // not every code page reports that something was lost
        lossy = wideFromAnsi(narrow, codePage) != text;
    } catch (long) {
        lossy = true;
    }
    return {std::move(narrow), lossy};
}

std::wstring unicode::wideFromAnsi(std::string_view text, unsigned codePage)
{
    if (codePage == CP_UTF8)
        return wideFromUtf8(text);
    if (text.empty())
        return {};
    const int length = systemLength(text.size());
    return converted<std::wstring>(MB_ERR_INVALID_CHARS, [&](DWORD flags, wchar_t* target, int size) {
        return MultiByteToWideChar(codePage, flags, text.data(), length, target, size);
    });
}
