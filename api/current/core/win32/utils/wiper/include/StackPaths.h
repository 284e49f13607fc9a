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
/// Without closing backslashes, except that of a drive's root.
[[nodiscard]] std::wstring_view withoutClosing(std::wstring_view path) noexcept;

/// The full paths of a stack's entries, resolved in the constructor. Only relative paths cost memory.
class SettledEntries
{
public:
    /// Raises the bare code of settledPath.
    explicit SettledEntries(const DirectoryStack& stack);

    /// The full path of the stack's last entry. Call it once for each entry, from the back.
    [[nodiscard]] std::wstring take(const DirectoryStack& stack);

private:
    std::vector<std::pair<std::size_t, std::wstring>> m_entries; ///< by position in the stack, from the first
};

/// Takes the entries out of a caller's stack while they are handled, so a callback cannot change them.
/// Entries not handled are put back at the end, before those that were added meanwhile.
class TakenStack
{
public:
    explicit TakenStack(DirectoryStack& given) : m_given(given) { m_entries.swap(given); }
    TakenStack(const TakenStack&) = delete;
    TakenStack& operator=(const TakenStack&) = delete;
    ~TakenStack();

    [[nodiscard]] DirectoryStack& entries() const noexcept { return m_entries; }

private:
    DirectoryStack& m_given;
    mutable DirectoryStack m_entries;
};

/// Holds the folders from a stack's root down to an entry's folder while the entry is handled: none of them,
/// including the root, can be replaced with a link then. For an entry outside the root nothing is held.
class HeldWay
{
public:
    /// `root` is absolute.
    explicit HeldWay(const std::wstring& root);

    /// Raises the failures of HeldFolders::hold. The entry itself is not held, so it can be removed.
    void hold(std::wstring_view entry);

private:
    [[nodiscard]] bool isBelowRoot(std::wstring_view folder) const noexcept;

    std::wstring m_root;
    std::optional<HeldFolders> m_held;
};
