#pragma once

#include <algorithm>
#include <cstddef>

/// Builds the place text that every raised Exception carries: three lines, joined at compile time.
///
///     constexpr char kMessageHeader[] = "win32\\communication\\include\\Message.h";
///     throw Exception(PLACE(kMessageHeader, "MessageW::load", 258), code);
///
/// `header` is the path of the header that declares the raising function, relative to the api\current folder;
/// `function` is its qualified name; `line` a number. Where callers or log readers rely on the line it is a
/// fixed number, everywhere else __LINE__.
#define PLACE(header, function, line) \
    (placetext::Text<placetext::Part(header), placetext::Part(function), (line)>::kText.characters)

namespace placetext {
/// Characters that can be a template argument.
template <std::size_t Size>
struct Part
{
    constexpr explicit Part(const char (&text)[Size]) noexcept { std::copy_n(text, Size, characters); }

    char characters[Size]{};
};

template <Part Header, Part Function, unsigned Line>
class Text
{
    static constexpr char kFile[] = "File: api\\current\\";
    static constexpr char kFunction[] = "\nFunction: ";
    static constexpr char kLine[] = "\nLine: ";

    static constexpr std::size_t countDigits() noexcept
    {
        std::size_t count = 1;
        for (unsigned rest = Line; rest >= 10; rest /= 10)
            ++count;
        return count;
    }

    struct Characters
    {
        char characters[sizeof kFile + sizeof Header.characters + sizeof kFunction +
                        sizeof Function.characters + sizeof kLine + countDigits() - 4];
    };

    static constexpr Characters join() noexcept
    {
        Characters joined{};
        char* end = joined.characters;
        const auto append = [&]<std::size_t Size>(const char(&text)[Size]) {
            end = std::copy_n(text, Size - 1, end);
        };
        append(kFile);
        append(Header.characters);
        append(kFunction);
        append(Function.characters);
        append(kLine);
        end += countDigits();
        *end = '\0';
        for (unsigned rest = Line, digit = 0; digit < countDigits(); ++digit, rest /= 10)
            *--end = static_cast<char>('0' + rest % 10);
        return joined;
    }

public:
    static constexpr Characters kText = join();
};
} // namespace placetext
