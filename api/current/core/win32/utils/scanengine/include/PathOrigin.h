#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "core/win32/utils/paths/include/OpenedItself.h"
#include "core/win32/utils/paths/include/Win32Path.h"

/// What the path of a file-system item names, kept beside its text. It is determined once, when the caller
/// gives the path, so changing the current folder later has no effect. The items found by a walk share the
/// origin of the walk's root: their text is the root's plus what follows.
class PathOrigin
{
public:
    PathOrigin() noexcept = default;
    /// For an item named by a caller. Raises the bare code.
    explicit PathOrigin(std::wstring_view path);
    /// For what a walk finds below `root`, a path of this origin named by a caller.
    [[nodiscard]] PathOrigin ofItemsBelow(std::wstring_view root) const;
    /// The same for a root that was seen not to be a link: it must not become one later.
    [[nodiscard]] PathOrigin ofItemsBelowFolder() const;

    /// Whether a walk found the item of that path.
    [[nodiscard]] bool isFound(std::wstring_view path) const noexcept
    {
        return m_root && path.size() > m_root->length;
    }
    /// The settled (absolute) form of a path of this origin; empty when the text itself is settled.
    [[nodiscard]] std::wstring settled(std::wstring_view path) const;
    /// Holds the folders from the walk's root down to `folder`. Raises the codes of HeldFolders::hold.
    void hold(HeldFolders& held, std::wstring_view folder) const;
    /// Holds the folders above an item found by a walk. For an item named by a caller they are not known.
    void holdParents(HeldFolders& held, std::wstring_view path) const;

private:
    struct Root
    {
        std::size_t length;   ///< of its text
        std::wstring settled; ///< empty when the text is
        bool mayBeLink = true;
    };
    [[nodiscard]] std::wstring settledOrText(std::wstring_view path) const;

    std::shared_ptr<const Root> m_root; ///< none for an item that a caller named by a settled path
};

/// The path of an item as it is passed to Win32 calls.
class ItemTarget
{
public:
    /// `text` must outlive this object. Raises Win32Path's failures.
    ItemTarget(const wchar_t* text, const PathOrigin& origin)
        : m_settled(origin.settled(text)), m_target(m_settled.empty() ? text : m_settled.c_str())
    {
    }
    ItemTarget(const ItemTarget&) = delete;
    ItemTarget& operator=(const ItemTarget&) = delete;

    [[nodiscard]] const wchar_t* get() const noexcept { return m_target.get(); }
    operator const wchar_t*() const noexcept { return get(); } // NOLINT: it stands for the text

private:
    std::wstring m_settled;
    Win32Path m_target;
};

/// What a name refers to now, without following links.
struct ItemLook
{
    DWORD attributes = INVALID_FILE_ATTRIBUTES; ///< this value when nothing exists
    bool isLink = false;

    /// Raises the bare code when the system cannot tell.
    [[nodiscard]] static ItemLook at(const wchar_t* target);

    [[nodiscard]] bool exists() const noexcept { return attributes != INVALID_FILE_ATTRIBUTES; }
    [[nodiscard]] bool isFolder() const noexcept { return (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0; }
};

/// Whether listing or reading an item with these attributes would fetch it from elsewhere:
/// FILE_ATTRIBUTE_RECALL_ON_OPEN or FILE_ATTRIBUTE_RECALL_ON_DATA_ACCESS.
[[nodiscard]] inline bool isFetchedOnAccess(DWORD attributes) noexcept
{
    return (attributes & (0x00040000U | 0x00400000U)) != 0;
}
