#pragma once

#include "engine/Text.h"

/// One line of the list, without its end.
struct ListLine
{
    Text text;
    std::size_t offset = 0;  // in characters from the list's beginning
    bool isWhole = true;     // false when its end is missing
    bool isGlued = false;    // to a line whose end is missing
    bool isDoubtful = false; // another line may begin inside one of its characters
};

/// Splits the text of a list into lines. Skips its header, a byte-order mark, empty lines and dashed ones,
/// which are finished. A line that was written only in part, without an end, is a separate line: the next one
/// begins with its tag, which cannot be part of a path. The text is one that `alignList` has made.
class ListLines
{
public:
    explicit ListLines(Text all) : m_all(all) {}

    /// False after the last one.
    bool next(ListLine& line);

private:
    Text m_all;
    std::size_t m_next = 0;
    bool m_isTorn = false; // the line before
};

/// How many bytes `alignList` writes at most.
[[nodiscard]] std::size_t alignedRoom(std::size_t size);
/// Copies the bytes of a list so that the lines that began at odd bytes begin at even ones; what stands
/// before them ends like every line that was written only in part. Half a character at the end is completed.
/// Returns the number of bytes.
std::size_t alignList(const void* list, std::size_t size, void* target);
/// Whether a list has no such lines.
[[nodiscard]] bool isListAligned(const void* list, std::size_t size);

/// Whether a line was removed, that is, overwritten with dashes.
[[nodiscard]] bool isDashed(Text line);
