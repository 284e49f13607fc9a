#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "core/win32/utils/paths/include/OpenedItself.h"
#include "win32/wiper/include/IWiper.h"

/// Without the prefix of a literal path.
[[nodiscard]] std::wstring_view plainText(std::wstring_view path) noexcept;
/// Without closing backslashes, save that of a drive's root.
[[nodiscard]] std::wstring_view withoutClosing(std::wstring_view path) noexcept;

/// The full paths of a stack's entries, settled when this is made. Only what is not settled yet costs memory.
class SettledEntries
{
public:
    /// Raises the bare code of settledPath.
    explicit SettledEntries(const DirectoryStack& stack);

    /// The full path of the stack's last entry. To be asked once for each, from the back on.
    [[nodiscard]] std::wstring take(const DirectoryStack& stack);

private:
    std::vector<std::pair<std::size_t, std::wstring>> m_entries; ///< by place in the stack, from the first on
};

/// Has the entries of a caller's stack while they are handled, so that a callback that changes the stack
/// changes nothing of that. What is left goes back in the end, before what was put there meanwhile.
class TakenStack
{
public:
    explicit TakenStack(DirectoryStack& given) noexcept : m_given(given) { m_entries.swap(given); }
    TakenStack(const TakenStack&) = delete;
    TakenStack& operator=(const TakenStack&) = delete;
    ~TakenStack();

    [[nodiscard]] DirectoryStack& entries() const noexcept { return m_entries; }

private:
    DirectoryStack& m_given;
    mutable DirectoryStack m_entries;
};

/// Holds the folders from a stack's root to that of an entry, while the entry is handled: none of them can be
/// swapped for a link then, the root neither. An entry that does not lie below the root stands alone.
class HeldWay
{
public:
    /// `root` is settled.
    explicit HeldWay(const std::wstring& root);

    /// Raises the failures of HeldFolders::hold. The entry itself is not held, so it can be removed.
    void hold(std::wstring_view entry);

private:
    [[nodiscard]] bool isBelowRoot(std::wstring_view folder) const noexcept;

    std::wstring m_root;
    std::optional<HeldFolders> m_held;
};
