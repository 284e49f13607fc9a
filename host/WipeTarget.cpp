#include "WipeTarget.h"

#include <algorithm>
#include <cwctype>
#include <vector>

#include "Command.h"
#include "Console.h"

namespace {
bool startsWith(std::wstring_view text, std::wstring_view prefix)
{
    return text.substr(0, prefix.size()) == prefix;
}

bool startsWithIgnoringCase(std::wstring_view text, std::wstring_view prefix)
{
    return text.size() >= prefix.size() && _wcsnicmp(text.data(), prefix.data(), prefix.size()) == 0;
}

bool isDrive(std::wstring_view text)
{
    return text.size() >= 2 && text[1] == L':' &&
           ((text[0] >= L'a' && text[0] <= L'z') || (text[0] >= L'A' && text[0] <= L'Z'));
}

std::vector<std::wstring> namesOf(std::wstring_view path)
{
    std::vector<std::wstring> names;
    for (std::size_t at = 0; at < path.size();) {
        const std::size_t end = std::min(path.find(L'\\', at), path.size());
        if (end != at)
            names.emplace_back(path.substr(at, end - at));
        at = end + 1;
    }
    return names;
}

/// The folder that a relative path is resolved against.
std::wstring baseOf(std::wstring_view relative)
{
    std::wstring folder(32768, L'\0');
    if (isDrive(relative)) // that drive's own current folder
        folder.resize(GetFullPathNameW((std::wstring(relative.substr(0, 2)) + L".").c_str(),
                                       static_cast<DWORD>(folder.size()), folder.data(), nullptr));
    else if (relative[0] == L'\\')
        folder.resize(GetFullPathNameW(L"\\", static_cast<DWORD>(folder.size()), folder.data(), nullptr));
    else
        folder.resize(GetCurrentDirectoryW(static_cast<DWORD>(folder.size()), folder.data()));
    if (folder.empty())
        throw static_cast<long>(GetLastError());
    return folder;
}

/// The absolute path without its prefix \\?\: it begins with a drive, UNC\ or Volume{.
std::wstring absoluteOf(const std::wstring& word)
{
    if (startsWith(word, L"\\\\?\\") || startsWith(word, L"\\??\\")) {
        for (const std::wstring& name : namesOf(word.substr(4)))
            if (name == L"." || name == L".." || name.find(L'/') != std::wstring::npos)
                throw UsageError{printable(word) + L": a path of this form is not resolved, so \"" +
                                 printable(name) + L"\" names nothing"};
        return word.substr(4);
    }
    std::wstring path = word;
    std::replace(path.begin(), path.end(), L'/', L'\\');
    if (startsWith(path, L"\\\\?\\") || startsWith(path, L"\\\\.\\"))
        return path.substr(4);
    if (startsWith(path, L"\\\\"))
        return L"UNC" + path.substr(1);
    if (isDrive(path) && path.size() > 2 && path[2] == L'\\')
        return path;
    if (isDrive(path) && path.size() == 2)
        throw UsageError{path + L" without a path is the root of a drive or its current folder"};
    return absoluteOf(baseOf(path) + L"\\" + path.substr(isDrive(path) ? 2 : 0));
}
} // namespace

WipeTarget::WipeTarget(const std::wstring& word)
{
    const std::wstring absolute = absoluteOf(word);
    const std::wstring shown = printable(word);
    const bool share = startsWithIgnoringCase(absolute, L"UNC\\");
    const bool volume = startsWithIgnoringCase(absolute, L"Volume{");
    if (!share && !volume && !(isDrive(absolute) && (absolute.size() == 2 || absolute[2] == L'\\')))
        throw UsageError{shown + L" is a device, not a file or folder"};
    const std::size_t root = share ? 3 : 1; // names that ".." does not remove
    std::vector<std::wstring> names;
    for (const std::wstring& name : namesOf(absolute)) {
        if (name == L"..")
            names.resize(std::max(std::min(root, names.size()), names.size() - 1));
        else if (name != L".")
            names.push_back(name);
        if (std::any_of(name.begin(), name.end(), [](wchar_t c) {
                return c < L' ' || std::wstring_view(L"*?\"<>|").find(c) != std::wstring_view::npos;
            }))
            throw UsageError{
                shown + L": \"" + printable(name) +
                L"\" is no name: wildcards are not expanded (see --filter), and a backslash before "
                L"a closing quotation mark makes it part of the name"};
    }
    if (names.size() <= root)
        throw UsageError{shown + L" is the root of a drive, a share or a volume"};
    std::wstring joined = share ? std::wstring(L"UNC") : names[0];
    for (std::size_t i = 1; i < names.size(); ++i)
        joined += L'\\' + names[i];
    m_literal = L"\\\\?\\" + joined;
    m_text = share ? L'\\' + joined.substr(3) : volume ? m_literal : joined;
}

std::wstring WipeTarget::parent() const
{
    return m_literal.substr(0, m_literal.find_last_of(L'\\') + 1);
}

std::wstring literalPath(const std::wstring& text)
{
    if (startsWith(text, L"\\\\?\\"))
        return text;
    return startsWith(text, L"\\\\") ? L"\\\\?\\UNC" + text.substr(1) : L"\\\\?\\" + text;
}

bool isLink(const std::wstring& literal)
{
    WIN32_FIND_DATAW data;
    const HANDLE search = FindFirstFileW(literal.c_str(), &data);
    if (search == INVALID_HANDLE_VALUE)
        return false;
    FindClose(search);
    return (data.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0 &&
           (data.dwReserved0 == 0 || IsReparseTagNameSurrogate(data.dwReserved0)); // 0: unknown
}
