#pragma once

#include <cstddef>

/// How the characters of a boot-time list lie in its bytes, for the library and for the boot-time program,
/// which has no runtime library.
///
/// A writer that is interrupted in the middle of a character puts all that follows at odd bytes. So a line's
/// beginning is looked for at every byte. At an even one it proves itself, since no path has a star or a
/// question mark. At an odd one the same bytes can also be characters of a file's name that somebody chose:
/// where such a name fits, the beginning does not count, and the line that holds it names nothing for
/// certain.
class ListBytes
{
public:
    constexpr ListBytes(const unsigned char* bytes, std::size_t size) : m_bytes(bytes), m_size(size) {}

    /// The end of the text whose first character is at `begin`: the size, or where a line begins inside a
    /// character.
    [[nodiscard]] constexpr std::size_t alignedEnd(std::size_t begin) const
    {
        for (std::size_t line = begin; line < m_size;) {
            const std::size_t end = lineEnd(line);
            for (std::size_t at = line + 1; at < end; at += 2)
                if (isBegin(at) && !isPartOfName(line, at))
                    return at;
            line = end;
        }
        return m_size;
    }
    /// Whether a line may begin inside a character of this text.
    [[nodiscard]] constexpr bool hasHiddenBegin() const
    {
        for (std::size_t at = 1; at < m_size; at += 2)
            if (isBegin(at))
                return true;
        return false;
    }

    /// The bytes that `align` writes at most.
    [[nodiscard]] constexpr std::size_t room() const { return m_size + m_size / 4 + 1; }
    /// Copies the text so that every line begins at an even byte; returns the number of bytes. What stands
    /// before a line that began inside a character gets an end that no whole line has. Half a character at
    /// the end is completed, so that what is appended later cannot complete it to another one.
    constexpr std::size_t align(unsigned char* target) const
    {
        constexpr unsigned char kMissingEnd[] = {'?', 0, '\r', 0, '\n', 0};
        std::size_t length = 0;
        std::size_t at = 0;
        while (at < m_size) {
            const std::size_t end = alignedEnd(at);
            while (at < end)
                target[length++] = m_bytes[at++];
            if (length % 2 != 0) {
                const bool mayEndLine = target[length - 1] == '\n';
                target[length++] = mayEndLine ? 1 : 0;
            }
            for (std::size_t i = 0; end < m_size && i < sizeof kMissingEnd; ++i)
                target[length++] = kMissingEnd[i];
        }
        return length;
    }

private:
    static constexpr char kBegin[] = "*FileShred*\t*\\??\\";
    static constexpr std::size_t kBeginSize = 2 * (sizeof kBegin - 1);
    static constexpr std::size_t kLongestName = 510; // bytes

    [[nodiscard]] constexpr unsigned character(std::size_t at) const
    {
        return m_bytes[at] | static_cast<unsigned>(m_bytes[at + 1]) << 8U;
    }
    [[nodiscard]] constexpr bool isBegin(std::size_t at) const
    {
        if (m_size - at < kBeginSize)
            return false;
        for (std::size_t i = 0; i < kBeginSize; i += 2)
            if (character(at + i) != static_cast<unsigned char>(kBegin[i / 2]))
                return false;
        return true;
    }
    [[nodiscard]] constexpr bool isEnd(std::size_t at) const
    {
        return m_size - at >= 4 && character(at) == '\r' && character(at + 2) == '\n';
    }
    /// Behind the line's end, or where the next line begins.
    [[nodiscard]] constexpr std::size_t lineEnd(std::size_t line) const
    {
        for (std::size_t at = line; at < m_size; at += 2) {
            if (isEnd(at))
                return at + 4;
            if (at > line && isBegin(at))
                return at;
            if (m_size - at == 1)
                break;
        }
        return m_size;
    }
    [[nodiscard]] constexpr bool isOfName(std::size_t at) const
    {
        constexpr char kOthers[] = "*?<>\"|/:\\";
        const unsigned c = character(at);
        for (std::size_t i = 0; i + 1 < sizeof kOthers; ++i)
            if (c == static_cast<unsigned char>(kOthers[i]))
                return false;
        return c >= ' ';
    }
    /// The end of what a name in this line may hold. The end that was given to an interrupted line is not
    /// part of it, and neither is the character before, of which half may have been added.
    [[nodiscard]] constexpr std::size_t nameEnd(std::size_t line) const
    {
        constexpr std::size_t kMissingEnd = 6; // bytes
        const std::size_t end = lineEnd(line);
        const bool isGiven =
            end - line > kMissingEnd && isEnd(end - 4) && character(end - kMissingEnd) == '?';
        return isGiven ? end - kMissingEnd - 1 : m_size;
    }
    /// Whether the beginning at `at`, inside a character of a line, can belong to a name in the line's path:
    /// with all of the line that it begins, since only a whole one names something. What follows may have
    /// been appended to a line that was cut off inside the name.
    [[nodiscard]] constexpr bool isPartOfName(std::size_t line, std::size_t at) const
    {
        std::size_t name = at - 1;
        while (name > line && at - name < kLongestName && isOfName(name - 2))
            name -= 2;
        if (name == line || character(name - 2) != '\\')
            return false;
        const std::size_t whole = lineEnd(at);
        const std::size_t limit = nameEnd(line);
        const std::size_t end = whole < limit ? whole : limit;
        if (end - name > kLongestName)
            return false;
        for (std::size_t i = at - 1; i + 1 < end; i += 2)
            if (!isOfName(i))
                return false;
        return true;
    }

    const unsigned char* m_bytes;
    std::size_t m_size;
};
