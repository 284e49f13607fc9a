#include "core/win32/utils/paths/include/Win32Path.h"

#include <windows.h>

#include <algorithm>
#include <iterator>
#include <vector>

#include "core/win32/utils/strings/include/CaseFolding.h"
#include "win32/communication/include/Primitives.h"

namespace {
// Folders must leave room for an 8.3 name within MAX_PATH, so this is where their plain form ends.
constexpr std::size_t kLongPath = 248;

bool isSeparator(wchar_t c) noexcept
{
    return c == L'\\' || c == L'/';
}

bool isDrivePath(std::wstring_view path) noexcept
{
    return path.size() >= 2 && path[1] == L':' &&
           ((path[0] >= L'A' && path[0] <= L'Z') || (path[0] >= L'a' && path[0] <= L'z'));
}

bool isAbsoluteDrivePath(std::wstring_view path) noexcept
{
    return isDrivePath(path) && path.size() >= 3 && isSeparator(path[2]);
}

bool isNetworkPath(std::wstring_view path) noexcept
{
    return path.size() >= 3 && isSeparator(path[0]) && isSeparator(path[1]) && path[2] != L'?' &&
           path[2] != L'.';
}

/// \\?\, \\.\ and \??\ paths are taken literally already.
bool isLiteral(std::wstring_view path) noexcept
{
    if (path.size() < 4 || !isSeparator(path[3]) || !isSeparator(path[0]))
        return false;
    return (isSeparator(path[1]) && (path[2] == L'?' || path[2] == L'.')) ||
           (path[1] == L'?' && path[2] == L'?');
}

bool isDeviceName(std::wstring_view name) noexcept
{
    // What stands before the first dot decides; blanks before it are ignored.
    std::wstring_view stem = name.substr(0, name.find(L'.'));
    while (!stem.empty() && stem.back() == L' ')
        stem.remove_suffix(1);
    constexpr std::wstring_view kDevices[] = {L"CON", L"PRN", L"AUX", L"NUL", L"CONIN$", L"CONOUT$"};
    const auto equals = [&](std::wstring_view device) {
        return stem.size() == device.size() &&
               std::equal(stem.begin(), stem.end(), device.begin(),
                          [](wchar_t a, wchar_t b) { return casefolding::fold(a) == b; });
    };
    if (std::any_of(std::begin(kDevices), std::end(kDevices), equals))
        return true;
    if (stem.size() != 4 || stem[3] < L'1' ||
        (stem[3] > L'9' && stem[3] != L'\u00B9' && stem[3] != L'\u00B2' && stem[3] != L'\u00B3'))
        return false;
    stem.remove_suffix(1);
    return equals(L"COM") || equals(L"LPT");
}

/// Calls `visit` with each name of the path until it returns true.
template <class Visit>
bool anyName(std::wstring_view path, Visit&& visit)
{
    std::size_t begin = 0;
    while (begin < path.size()) {
        std::size_t end = begin;
        while (end < path.size() && !isSeparator(path[end]))
            ++end;
        if (end != begin && visit(path.substr(begin, end - begin)))
            return true;
        begin = end + 1;
    }
    return false;
}

bool hasAlteredName(std::wstring_view path)
{
    return anyName(path, [](std::wstring_view name) {
        if (name == L"." || name == L"..")
            return false;
        return name.back() == L'.' || name.back() == L' ' || isDeviceName(name);
    });
}

std::wstring currentFolder()
{
    std::wstring folder(MAX_PATH, L'\0');
    for (;;) {
        const DWORD length = GetCurrentDirectoryW(static_cast<DWORD>(folder.size()), folder.data());
        if (length == 0)
            throw static_cast<long>(GetLastError());
        const bool fits = length < folder.size();
        folder.resize(length);
        if (fits)
            return folder;
    }
}

/// The absolute form of a path that is neither literal nor relative to another drive's folder.
std::wstring absolutePath(std::wstring_view path)
{
    if (isAbsoluteDrivePath(path) || isNetworkPath(path))
        return std::wstring(path);
    if (isSeparator(path.front())) { // below the root of the current drive or share
        wchar_t root[MAX_PATH];
        const DWORD length = GetFullPathNameW(L"\\", MAX_PATH, root, nullptr);
        if (length == 0 || length >= MAX_PATH)
            throw static_cast<long>(length == 0 ? GetLastError() : ERROR_FILENAME_EXCED_RANGE);
        return std::wstring(joinPath(std::wstring_view(root, length), path.substr(1)));
    }
    const std::wstring folder = currentFolder();
    return std::wstring(joinPath(folder, path));
}

/// Resolves "." and ".." and puts the path behind \\?\, with every other name as it stands.
std::wstring literalPath(std::wstring_view absolute)
{
    const bool network = !isDrivePath(absolute);
    std::wstring result = network ? L"\\\\?\\UNC" : L"\\\\?\\";
    // A drive stays below "..", and so do a network path's server and share.
    const std::size_t roots = network ? 2 : 1;
    std::vector<std::wstring_view> names;
    anyName(absolute, [&](std::wstring_view name) {
        if (name == L"..") {
            if (names.size() > roots)
                names.pop_back();
        } else if (name != L".") {
            names.push_back(name);
        }
        return false;
    });
    for (std::size_t i = 0; i < names.size(); ++i) {
        if (network || i != 0)
            result += L'\\';
        result += names[i];
    }
    if (isSeparator(absolute.back()) || (!network && names.size() == 1))
        result += L'\\';
    return result;
}
} // namespace

Win32Path::Win32Path(const wchar_t* path) : m_plain(path)
{
    const std::wstring_view text(path);
    if (text.empty() || isLiteral(text))
        return;
    const bool absolute = isAbsoluteDrivePath(text) || isNetworkPath(text);
    if (!absolute && isDrivePath(text))
        return; // relative to another drive's current folder, which only the system knows
    if (absolute ? text.size() < kLongPath && !hasAlteredName(text)
                 : text.size() < kLongPath && currentFolder().size() + text.size() + 1 < kLongPath &&
                       !hasAlteredName(text))
        return;
    primitives::placedStep(
        PLACE("core\\win32\\utils\\paths\\include\\Win32Path.h", "Win32Path::Win32Path", __LINE__),
        [&] { m_extended = literalPath(absolutePath(text)); });
}

HeapStringW joinPath(std::wstring_view folder, std::wstring_view name)
{
    HeapStringW path;
    path.reserve(folder.size() + 1 + name.size());
    path.append(folder);
    // "C:" is the current folder of that drive, so its names follow without a backslash.
    const bool driveFolder = folder.size() == 2 && isDrivePath(folder);
    if (!path.empty() && !isSeparator(path.back()) && !driveFolder)
        path += L'\\';
    path.append(name);
    return path;
}
