#include "core/win32/utils/wiper/include/StackPaths.h"

#include <algorithm>

#include "core/win32/utils/paths/include/Win32Path.h"
#include "core/win32/utils/strings/include/CaseFolding.h"

namespace {
/// The folder of a file or folder; a drive's root keeps its backslash.
std::wstring_view folderOf(std::wstring_view path) noexcept
{
    path = withoutClosing(path);
    const std::size_t separator = path.find_last_of(L'\\');
    if (separator == std::wstring_view::npos || separator + 1 == path.size())
        return {};
    return path.substr(0, separator != 0 && path[separator - 1] == L':' ? separator + 1 : separator);
}

HeapStringW fullPath(const DirectoryStackEntry& entry)
{
    return entry.isDirectory ? entry.path : joinPath(entry.directory, entry.path);
}

bool isSettledEntry(const DirectoryStackEntry& entry) noexcept
{
    const HeapStringW& folder = entry.isDirectory ? entry.path : entry.directory;
    // A folder cannot be held by a name "." or "..".
    const auto hasDots = [](std::wstring_view path) {
        return path.find(L"\\.") != std::wstring_view::npos || path.substr(0, 1) == L".";
    };
    return !folder.empty() && isSettled(folder) && entry.path.find(L'/') == HeapStringW::npos &&
           !hasDots(entry.path) && !hasDots(entry.directory);
}
} // namespace

std::wstring_view plainText(std::wstring_view path) noexcept
{
    const bool literal = path.substr(0, 4) == LR"(\\?\)" || path.substr(0, 4) == LR"(\??\)";
    return literal ? path.substr(4) : path;
}

std::wstring_view withoutClosing(std::wstring_view path) noexcept
{
    while (path.size() > 1 && path.back() == L'\\' && path[path.size() - 2] != L':')
        path.remove_suffix(1);
    return path;
}

SettledEntries::SettledEntries(const DirectoryStack& stack)
{
    for (std::size_t i = 0; i < stack.size(); ++i) {
        if (!stack[i].skip && !isSettledEntry(stack[i]))
            m_entries.emplace_back(i, settledPath(fullPath(stack[i])));
    }
}

std::wstring SettledEntries::take(const DirectoryStack& stack)
{
    while (!m_entries.empty() && m_entries.back().first >= stack.size())
        m_entries.pop_back();
    if (m_entries.empty() || m_entries.back().first != stack.size() - 1)
        return std::wstring(fullPath(stack.back()));
    std::wstring path = std::move(m_entries.back().second);
    m_entries.pop_back();
    return path;
}

TakenStack::~TakenStack()
{
    m_given.swap(m_entries);
    try {
        for (DirectoryStackEntry& entry : m_entries)
            m_given.push_back(std::move(entry));
    } catch (...) { // NOLINT(bugprone-empty-catch): without memory the callback's entries are lost
    }
}

HeldWay::HeldWay(const std::wstring& root) : m_root(withoutClosing(plainText(root))) {}

void HeldWay::hold(std::wstring_view entry)
{
    const std::wstring_view folder = folderOf(entry);
    const std::wstring_view plain = plainText(folder);
    if (!isBelowRoot(plain)) {
        m_held.reset(); // the root itself is removed last
        return;
    }
    if (!m_held)
        m_held.emplace();
    m_held->hold(folder.substr(0, folder.size() - plain.size() + m_root.size()), folder, false);
}

bool HeldWay::isBelowRoot(std::wstring_view folder) const noexcept
{
    const auto isSame = [](wchar_t a, wchar_t b) { return casefolding::fold(a) == casefolding::fold(b); };
    return !m_root.empty() && folder.size() >= m_root.size() &&
           std::equal(m_root.begin(), m_root.end(), folder.begin(), isSame) &&
           (folder.size() == m_root.size() || m_root.back() == L'\\' || folder[m_root.size()] == L'\\');
}
