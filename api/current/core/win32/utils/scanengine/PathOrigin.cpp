#include "core/win32/utils/scanengine/include/PathOrigin.h"

#include <algorithm>

PathOrigin::PathOrigin(std::wstring_view path)
{
    if (!isSettled(path))
        m_root = std::make_shared<const Root>(Root{path.size(), settledPath(path), true});
}

PathOrigin PathOrigin::ofItemsBelow(std::wstring_view root) const
{
    PathOrigin origin(*this);
    if (!m_root || m_root->length != root.size())
        origin.m_root = std::make_shared<const Root>(Root{root.size(), settled(root), true});
    return origin;
}

PathOrigin PathOrigin::ofItemsBelowFolder() const
{
    PathOrigin origin;
    origin.m_root = std::make_shared<const Root>(Root{m_root->length, m_root->settled, false});
    return origin;
}

std::wstring PathOrigin::settled(std::wstring_view path) const
{
    if (!m_root || m_root->settled.empty())
        return {};
    std::wstring_view rest = path.substr(m_root->length);
    if (rest.empty())
        return m_root->settled;
    if (rest.front() == L'\\')
        rest.remove_prefix(1);
    return std::wstring(joinPath(m_root->settled, rest));
}

std::wstring PathOrigin::settledOrText(std::wstring_view path) const
{
    std::wstring text = settled(path);
    return text.empty() ? std::wstring(path) : text;
}

void PathOrigin::hold(HeldFolders& held, std::wstring_view folder) const
{
    const std::size_t length = m_root ? std::min(m_root->length, folder.size()) : folder.size();
    held.hold(settledOrText(folder.substr(0, length)), settledOrText(folder), !m_root || m_root->mayBeLink);
}

void PathOrigin::holdParents(HeldFolders& held, std::wstring_view path) const
{
    if (!isFound(path))
        return;
    // What a walk adds to the root's text uses backslashes; the root's text uses what the caller gave.
    const std::size_t separator = path.find_last_of(L'\\');
    const bool below = separator != std::wstring_view::npos && separator > m_root->length;
    hold(held, path.substr(0, below ? separator : m_root->length));
}

ItemLook ItemLook::at(const wchar_t* target)
{
    ItemLook look;
    look.attributes = GetFileAttributesW(target);
    if (!look.exists()) {
        const DWORD code = GetLastError();
        if (code != ERROR_FILE_NOT_FOUND && code != ERROR_PATH_NOT_FOUND)
            raiseCode(code);
    } else if ((look.attributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0) {
        look.isLink = OpenedItself(target).isLink(); // its tag decides
    }
    return look;
}
