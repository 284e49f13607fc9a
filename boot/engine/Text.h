#pragma once

#include <windows.h>

#include <cstddef>
#include <cstdint>

/// A view of a text. The standard library's view needs a runtime for its failures.
struct Text
{
    const wchar_t* data = nullptr;
    std::size_t length = 0;

    static constexpr std::size_t kNone = static_cast<std::size_t>(-1);

    constexpr Text() = default;
    constexpr Text(const wchar_t* begin, std::size_t count) : data(begin), length(count) {}
    constexpr Text(const wchar_t* zeroTerminated) : data(zeroTerminated) // NOLINT(*-explicit-*)
    {
        while (data[length] != L'\0')
            ++length;
    }

    [[nodiscard]] constexpr bool isEmpty() const { return length == 0; }
    constexpr wchar_t operator[](std::size_t at) const { return data[at]; }
    [[nodiscard]] constexpr Text first(std::size_t count) const
    {
        return {data, count < length ? count : length};
    }
    [[nodiscard]] constexpr Text from(std::size_t at) const
    {
        return at < length ? Text(data + at, length - at) : Text();
    }
    [[nodiscard]] constexpr std::size_t find(wchar_t wanted) const
    {
        for (std::size_t i = 0; i < length; ++i)
            if (data[i] == wanted)
                return i;
        return kNone;
    }
    [[nodiscard]] constexpr std::size_t find(Text wanted) const
    {
        for (std::size_t i = 0; i + wanted.length <= length; ++i)
            if (from(i).startsWith(wanted))
                return i;
        return kNone;
    }
    [[nodiscard]] constexpr bool startsWith(Text wanted) const
    {
        if (wanted.length > length)
            return false;
        for (std::size_t i = 0; i < wanted.length; ++i)
            if (data[i] != wanted.data[i])
                return false;
        return true;
    }
    [[nodiscard]] constexpr bool is(Text other) const { return length == other.length && startsWith(other); }
    /// Compares like file names: without regard to case.
    [[nodiscard]] bool isName(Text other) const { return length == other.length && startsWithName(other); }
    [[nodiscard]] bool startsWithName(Text wanted) const;
    [[nodiscard]] bool endsWithName(Text wanted) const
    {
        return wanted.length <= length && from(length - wanted.length).startsWithName(wanted);
    }
};

/// Builds a text in a given buffer; what does not fit is omitted.
class TextBuilder
{
public:
    TextBuilder(wchar_t* buffer, std::size_t capacity) : m_buffer(buffer), m_capacity(capacity) {}

    TextBuilder& add(Text text)
    {
        for (std::size_t i = 0; i < text.length; ++i)
            add(text[i]);
        return *this;
    }
    TextBuilder& add(wchar_t character)
    {
        if (m_length < m_capacity)
            m_buffer[m_length++] = character;
        return *this;
    }
    /// Adds untrusted text: control characters as numbers, such as "<09>" for a tab. No path contains these
    /// brackets.
    TextBuilder& addVisible(Text text);
    /// Adds at least `digits` digits.
    TextBuilder& addNumber(std::uint64_t number, unsigned base = 10, int digits = 1);
    [[nodiscard]] Text text() const { return {m_buffer, m_length}; }

private:
    wchar_t* m_buffer;
    std::size_t m_capacity;
    std::size_t m_length = 0;
};
