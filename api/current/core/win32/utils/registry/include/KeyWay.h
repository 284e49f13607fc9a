#pragma once

#include <windows.h>

#include <string>
#include <string_view>
#include <vector>

#include "core/win32/utils/objectmanager/include/Win32Handle.h"

/// The keys on the way from a root to a key, each opened from the one above. Links are not followed, except
/// those of the system itself (CurrentControlSet, the user's Software\Classes, and those between the two
/// views). Keys that the next path shares with the last stay open, so a tree costs two or three calls per
/// key.
class KeyWay
{
public:
    /// `view` is the bit for RegOpenKeyExW.
    KeyWay(HKEY root, REGSAM view) noexcept : m_root(root), m_view(view) {}

    /// The key `path` below the root, which stays open until the next call. Raises the bare code: the
    /// system's, 681 (ERROR_STOPPED_ON_SYMLINK) for a link, 50 for a key that stands for performance data,
    /// 206 for a name of more than 255 characters.
    [[nodiscard]] HKEY open(std::wstring_view path) { return go(path, false); }
    /// The same; missing keys are created.
    [[nodiscard]] HKEY make(std::wstring_view path) { return go(path, true); }

private:
    struct Step
    {
        std::wstring name;
        RegistryKeyHandle key;
    };
    HKEY go(std::wstring_view path, bool makes);
    [[nodiscard]] HKEY last() const noexcept { return m_steps.empty() ? m_root : m_steps.back().key.get(); }
    [[nodiscard]] RegistryKeyHandle step(HKEY above, const std::wstring& name, bool makes) const;

    HKEY m_root;
    REGSAM m_view;
    std::vector<Step> m_steps;
};

namespace keyway {
inline constexpr std::size_t kLongestName = 255;

/// Whether a key that was opened without following links is a link. Raises the bare code when that is
/// unknown.
[[nodiscard]] bool isLink(HKEY opened);
} // namespace keyway
