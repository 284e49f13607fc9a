#pragma once

#include "engine/Outcome.h"

/// What one whole line of the list says: a tag, the file's path behind "\??\", the wipe method and the
/// passes, each in stars and with tabs between them; the last field has no closing star.
struct ListedFile
{
    Text root; ///< "\??\" and "X:\" or "Volume{...}\"
    Text path; ///< the names below it, at least one; follows the root in memory
    std::uint32_t method = 0;
    std::uint32_t passes = 0;

    [[nodiscard]] Text whole() const { return {root.data, root.length + path.length}; }
    /// The whole path up to the end of a name that is taken from it.
    [[nodiscard]] Text upTo(Text name) const
    {
        return {root.data, static_cast<std::size_t>(name.data + name.length - root.data)};
    }
    /// Takes a line apart. kDone when it may be looked for, otherwise why not.
    [[nodiscard]] static Outcome parse(Text line, ListedFile& file);
};

/// Takes the first name off a path.
Text takeName(Text& path);
