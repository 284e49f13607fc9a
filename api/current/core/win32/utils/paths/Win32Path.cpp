#include "core/win32/utils/paths/include/Win32Path.h"

#include <windows.h>

#include <algorithm>
#include <iterator>
#include <vector>

#include "core/win32/utils/objectmanager/include/SystemText.h"
#include "core/win32/utils/strings/include/CaseFolding.h"
#include "win32/communication/include/Primitives.h"

namespace {
// Folders must leave room for an 8.3 name within MAX_PATH, so their plain form ends here.
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

/// Win32 passes on only these two forms unchanged, and only if they are exact.
bool isLiteral(std::wstring_view path) noexcept
{
    return path.substr(0, 4) == LR"(\\?\)" || path.substr(0, 4) == LR"(\??\)";
}

/// \\.\ and \\?\ with any separators: the name of a device, or a path that begins with one.
bool isDevicePath(std::wstring_view path) noexcept
{
    return path.size() >= 4 && isSeparator(path[0]) && isSeparator(path[1]) &&
           (path[2] == L'?' || path[2] == L'.') && isSeparator(path[3]);
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

std::wstring currentFolder()
{
    return systemText([](wchar_t* text, DWORD capacity) { return GetCurrentDirectoryW(capacity, text); });
}

/// The system's absolute form of "\" or of a drive's letter and colon.
std::wstring fullPath(const wchar_t* path)
{
    return systemText(
        [&](wchar_t* text, DWORD capacity) { return GetFullPathNameW(path, capacity, text, nullptr); });
}

std::wstring absolutePath(std::wstring_view path)
{
    if (isAbsoluteDrivePath(path) || isNetworkPath(path) || isDevicePath(path))
        return std::wstring(path);
    if (isDrivePath(path)) { // below the current folder of that drive
        const wchar_t drive[] = {path[0], L':', L'\0'};
        std::wstring folder = fullPath(drive);
        if (folder.size() > 3 && isSeparator(folder.back())) // systems differ in this
            folder.pop_back();
        return path.size() == 2 ? folder : std::wstring(joinPath(folder, path.substr(2)));
    }
    if (isSeparator(path.front())) // below the root of the current drive or share
        return std::wstring(joinPath(fullPath(L"\\"), path.substr(1)));
    return std::wstring(joinPath(currentFolder(), path));
}

/// Resolves "." and ".." and puts the path behind \\?\, leaving every other name unchanged.
std::wstring literalPath(std::wstring_view absolute)
{
    const bool device = isDevicePath(absolute) || isLiteral(absolute);
    if (device)
        absolute.remove_prefix(4);
    const bool network = !device && !isDrivePath(absolute);
    std::vector<std::wstring_view> names;
    // ".." never removes a drive or device, nor a network path's server and share.
    std::size_t roots = network ? 2 : 1;
    anyName(absolute, [&](std::wstring_view name) {
        if (device && names.empty() && name.size() == 3 && _wcsnicmp(name.data(), L"UNC", 3) == 0)
            roots = 3;
        if (name == L"..") {
            if (names.size() > roots)
                names.pop_back();
        } else if (name != L".") {
            names.push_back(name);
        }
        return false;
    });
    std::wstring result = network ? L"\\\\?\\UNC" : L"\\\\?\\";
    for (std::size_t i = 0; i < names.size(); ++i) {
        if (network || i != 0)
            result += L'\\';
        result += names[i];
    }
    // \\.\C: is the drive's device, C:\ its root.
    const bool closed = !absolute.empty() && isSeparator(absolute.back());
    if (!names.empty() && (closed || (!network && !device && names.size() == 1)))
        result += L'\\';
    return result;
}
} // namespace

bool isDeviceName(std::wstring_view name) noexcept
{
    // The part before the first dot decides; blanks before it are ignored.
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

bool hasAlteredName(std::wstring_view path)
{
    return anyName(path, [](std::wstring_view name) {
        if (name == L"." || name == L"..")
            return false;
        return name.back() == L'.' || name.back() == L' ' || isDeviceName(name);
    });
}

bool isAlteredPath(std::wstring_view path)
{
    return !isLiteral(path) && hasAlteredName(path);
}

std::wstring settledPath(std::wstring_view path)
{
    if (path.empty() || isLiteral(path))
        return std::wstring(path);
    return literalPath(absolutePath(path));
}

bool isSettled(std::wstring_view path) noexcept
{
    if (path.empty() || isLiteral(path))
        return true;
    if (isDevicePath(path) || path.find(L'/') != std::wstring_view::npos)
        return false;
    return isAbsoluteDrivePath(path) || isNetworkPath(path);
}

Win32Path::Win32Path(const wchar_t* path) : m_plain(path)
{
    const std::wstring_view text(path);
    if (text.empty() || isLiteral(text))
        return;
    if (isSettled(text) && text.size() < kLongPath && !hasAlteredName(text))
        return;
    primitives::placedStep(
        PLACE("core\\win32\\utils\\paths\\include\\Win32Path.h", "Win32Path::Win32Path", __LINE__),
        [&] { m_extended = settledPath(text); });
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
