#pragma once

#include "engine/Text.h"

/// One line of the list, without its end.
struct ListLine
{
    Text text;
    std::size_t offset = 0; // in characters from the list's beginning
    bool isWhole = true;    // false when its end is missing
    bool isGlued = false;   // to a line whose end is missing
};

/// Takes the text of a list apart. Its header and a byte-order mark are no lines, and neither are empty lines
/// and dashed ones, which are done with. A line that was written in part, without an end, is a line of its
/// own: the next one begins with its tag, which cannot be part of a path.
class ListLines
{
public:
    explicit ListLines(Text all) : m_all(all) {}

    /// False behind the last one.
    bool next(ListLine& line);

private:
    Text m_all;
    std::size_t m_next = 0;
    bool m_isTorn = false; // the line before
};

/// Whether a line was taken off: overwritten by dashes.
[[nodiscard]] bool isDashed(Text line);
