#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "core/win32/utils/paths/include/OpenedItself.h"
#include "core/win32/utils/paths/include/Win32Path.h"

/// What the path of a file-system item names, kept beside its text. It is settled once, when the caller gives
/// the path, so that changing the current folder later changes nothing. The items that a walk finds share the
/// origin of the walk's root: their text is the root's and what follows.
class PathOrigin
{
public:
    PathOrigin() noexcept = default;
    /// Of an item that a caller names. Raises the bare code.
    explicit PathOrigin(std::wstring_view path);
    /// Of what a walk finds below `root`, a path of this origin that a caller names.
    [[nodiscard]] PathOrigin ofItemsBelow(std::wstring_view root) const;
    /// The same for a root that was seen to be no link: it must not become one later.
    [[nodiscard]] PathOrigin ofItemsBelowFolder() const;

    /// Whether a walk found the item of that path.
    [[nodiscard]] bool isFound(std::wstring_view path) const noexcept
    {
        return m_root && path.size() > m_root->length;
    }
    /// The settled form of a path of this origin; empty when the text is settled itself.
    [[nodiscard]] std::wstring settled(std::wstring_view path) const;
    /// Holds the folders from the walk's root down to `folder`. Raises HeldFolders::hold's codes.
    void hold(HeldFolders& held, std::wstring_view folder) const;
    /// Holds the folders above an item that a walk found. What a caller named has none that could be told.
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

/// The path of an item as the Win32 calls get it.
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

/// What stands under a name now, links not followed.
struct ItemLook
{
    DWORD attributes = INVALID_FILE_ATTRIBUTES; ///< so when nothing stands there
    bool isLink = false;

    /// Raises the bare code when the system cannot tell.
    [[nodiscard]] static ItemLook at(const wchar_t* target);

    [[nodiscard]] bool exists() const noexcept { return attributes != INVALID_FILE_ATTRIBUTES; }
    [[nodiscard]] bool isFolder() const noexcept { return (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0; }
};

/// Whether what has these attributes would be fetched from elsewhere by being listed or read:
/// FILE_ATTRIBUTE_RECALL_ON_OPEN or FILE_ATTRIBUTE_RECALL_ON_DATA_ACCESS.
[[nodiscard]] inline bool isFetchedOnAccess(DWORD attributes) noexcept
{
    return (attributes & (0x00040000U | 0x00400000U)) != 0;
}
