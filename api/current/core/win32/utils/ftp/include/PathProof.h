#pragma once

#include <cstddef>
#include <string>

/// Which folders may be listed by their path, as LIST's argument after an option. That saves entering them,
/// but no standard says what a server does with it: one that ignores the path or a part of it lists another
/// folder. So a path is used only as far as the server has shown to heed it, in depth and in length, and only
/// one that no server takes for an option or a pattern.
class PathProof
{
public:
    /// Whether the server has shown that it heeds such a path.
    [[nodiscard]] bool covers(const std::string& folder) const noexcept
    {
        const std::size_t depth = depthOf(folder);
        return depth != 0 && depth <= m_depth && folder.size() <= m_length;
    }
    /// Whether it is to be shown with this folder. After two attempts in a row that have shown nothing there
    /// are no more.
    [[nodiscard]] bool begin(const std::string& folder) noexcept;
    [[nodiscard]] bool hasAny() const noexcept { return m_depth != 0; }
    /// The attempt has succeeded.
    void confirm(const std::string& folder) noexcept;
    /// The server cannot be trusted with paths at all.
    void refute() noexcept;

private:
    /// 0 for a path that is not harmless.
    [[nodiscard]] static std::size_t depthOf(const std::string& folder) noexcept;

    std::size_t m_depth = 0;
    std::size_t m_length = 0;
    unsigned m_attempts = 0; // without success
};
