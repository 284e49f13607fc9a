#pragma once

#include "engine/Outcome.h"

/// The content of a whole line of the list: a tag, the file's path after "\??\", the wipe method and the
/// passes, each between stars and separated by tabs; the last field has no closing star.
struct ListedFile
{
    Text root; ///< "\??\" and "X:\" or "Volume{...}\"
    Text path; ///< the names below it, at least one; follows the root in memory
    std::uint32_t method = 0;
    std::uint32_t passes = 0;

    [[nodiscard]] Text whole() const { return {root.data, root.length + path.length}; }
    /// The whole path up to the end of a name in it.
    [[nodiscard]] Text upTo(Text name) const
    {
        return {root.data, static_cast<std::size_t>(name.data + name.length - root.data)};
    }
    /// Parses a line. Returns kDone when the file may be looked for, otherwise why not.
    [[nodiscard]] static Outcome parse(Text line, ListedFile& file);
};

/// Removes the first name from a path and returns it.
Text takeName(Text& path);
