#include "core/win32/utils/paths/include/Paths.h"

#include <windows.h>

#include <algorithm>

#include "core/win32/utils/objectmanager/include/Raise.h"
#include "core/win32/utils/objectmanager/include/SystemText.h"
#include "core/win32/utils/paths/include/OpenedItself.h"
#include "core/win32/utils/paths/include/Variables.h"
#include "core/win32/utils/paths/include/Win32Path.h"
#include "core/win32/utils/strings/include/Strings.h"

namespace {
constexpr std::size_t kPrefix = 4; // of a literal path
constexpr std::wstring_view kSeparators = LR"(\/)";

bool isSeparator(wchar_t c) noexcept
{
    return c == L'\\' || c == L'/';
}

bool isDriveAt(std::wstring_view path, std::size_t at) noexcept
{
    return path.size() >= at + 2 && path[at + 1] == L':' && strings::digitValue(path[at]) >= 10 &&
           strings::digitValue(path[at]) < 36;
}

/// Calls `visit` with each name until it returns true.
template <class Visit>
bool anyPart(std::wstring_view path, std::wstring_view separators, Visit&& visit)
{
    while (!path.empty()) {
        const std::wstring_view part = path.substr(0, path.find_first_of(separators));
        if (!part.empty() && visit(part))
            return true;
        path.remove_prefix(std::min(part.size() + 1, path.size()));
    }
    return false;
}

/// The length of a path's root, with its closing separator: "C:\", "C:", "\\server\share\", "\", "\\?\C:\".
std::size_t rootLength(std::wstring_view path) noexcept
{
    const auto behind = [&](std::size_t at, int names) {
        for (; names != 0; --names)
            at = std::min(std::min(path.find_first_of(kSeparators, at), path.size()) + 1, path.size());
        return at;
    };
    if (path.size() >= kPrefix && isSeparator(path[0]) && isSeparator(path[3]) &&
        (isSeparator(path[1]) || path[1] == L'?') && (path[2] == L'?' || path[2] == L'.'))
        return behind(kPrefix, strings::startsWith(path.substr(kPrefix), LR"(UNC\)", true) ? 3 : 1);
    if (path.size() >= 2 && isSeparator(path[0]) && isSeparator(path[1]))
        return behind(2, 2);
    if (isDriveAt(path, 0))
        return path.size() > 2 && isSeparator(path[2]) ? 3 : 2;
    return !path.empty() && isSeparator(path[0]) ? 1 : 0;
}

/// The first device that a name stands for.
std::wstring deviceOf(const std::wstring& name)
{
    std::wstring devices = systemText([&](wchar_t* text, DWORD size) -> DWORD {
        const DWORD length = QueryDosDeviceW(name.c_str(), text, size);
        return length == 0 && GetLastError() == ERROR_INSUFFICIENT_BUFFER ? size * 2 : length;
    });
    return devices.substr(0, devices.find(L'\0'));
}

std::wstring windowsFolder()
{
    return systemText([](wchar_t* text, DWORD size) { return GetSystemWindowsDirectoryW(text, size); });
}

/// The plain form of a literal path, if it means the same.
std::wstring plainForm(std::wstring literal)
{
    if (literal.size() < kPrefix ||
        (literal.compare(0, kPrefix, LR"(\\?\)") != 0 && literal.compare(0, kPrefix, LR"(\??\)") != 0))
        return literal;
    const std::wstring_view rest = std::wstring_view(literal).substr(kPrefix);
    const bool strange =
        hasAlteredName(rest) || rest.find(L'/') != std::wstring_view::npos ||
        anyPart(rest, L"\\", [](std::wstring_view name) { return name == L"." || name == L".."; });
    if (strange)
        return literal;
    if (isDriveAt(rest, 0) && rest.size() > 2 && rest[2] == L'\\')
        return std::wstring(rest);
    if (strings::startsWith(rest, LR"(UNC\)", true))
        return L"\\" + std::wstring(rest.substr(3));
    return literal;
}

bool exists(const std::wstring& path)
{
    const DWORD attributes = GetFileAttributesW(Win32Path(path.c_str()));
    return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) == 0;
}
} // namespace

namespace paths {
std::vector<std::wstring> namesOf(std::wstring_view path)
{
    std::vector<std::wstring> names;
    anyPart(path, L"\\", [&](std::wstring_view name) {
        names.emplace_back(name);
        return false;
    });
    return names;
}

std::wstring_view withoutClosing(std::wstring_view path) noexcept
{
    const std::size_t root = rootLength(path);
    while (path.size() > root && isSeparator(path.back()))
        path.remove_suffix(1);
    return path;
}

std::wstring combineParts(std::wstring_view folder, std::wstring_view name, bool strict)
{
    if (rootLength(name) != 0 || folder.empty())
        raiseCode(ERROR_INVALID_NAME);
    if (strict && (name.empty() ||
                   anyPart(name, kSeparators, [](std::wstring_view part) { return !isValidFileName(part); })))
        raiseCode(ERROR_INVALID_NAME);
    return std::wstring(joinPath(folder, name));
}

std::wstring normalize(std::wstring_view path)
{
    if (path.empty())
        raiseCode(ERROR_INVALID_NAME);
    return plainForm(settledPath(path));
}

std::wstring literalForm(std::wstring_view path)
{
    if (path.empty())
        raiseCode(ERROR_INVALID_NAME);
    std::wstring literal = settledPath(path);
    if (literal.compare(0, kPrefix, LR"(\??\)") == 0)
        literal[1] = L'\\';
    return literal;
}

std::wstring toLongForm(std::wstring_view path)
{
    const std::wstring target = toExtendedForm(normalize(path).c_str());
    return plainForm(
        systemText([&](wchar_t* text, DWORD size) { return GetLongPathNameW(target.c_str(), text, size); }));
}

std::wstring toExtendedForm(const wchar_t* path)
{
    return Win32Path(path).get();
}

std::wstring parent(std::wstring_view path)
{
    path = withoutClosing(path);
    const std::size_t root = rootLength(path);
    if (path.size() <= root)
        raiseCode(ERROR_NO_MORE_FILES);
    while (path.size() > root && !isSeparator(path.back()))
        path.remove_suffix(1);
    if (path.empty())
        raiseCode(ERROR_NO_MORE_FILES);
    return std::wstring(withoutClosing(path));
}

bool isInside(std::wstring_view path, std::wstring_view folder)
{
    const std::wstring inner = literalForm(path);
    const std::wstring outer = literalForm(folder);
    const std::wstring_view end = withoutClosing(outer);
    if (!strings::startsWith(inner, end, true))
        return false;
    const std::wstring_view rest = std::wstring_view(inner).substr(end.size());
    return rest.empty() || isSeparator(rest.front()) || isSeparator(end.back());
}

std::wstring fromNative(std::wstring_view path)
{
    const auto behind = [&](std::wstring_view prefix) { return strings::startsWith(path, prefix, true); };
    for (const std::wstring_view prefix : {LR"(\??\)", LR"(\DosDevices\)"})
        if (behind(prefix))
            return plainForm(LR"(\\?\)" + std::wstring(path.substr(prefix.size())));
    for (const std::wstring_view prefix : {LR"(\Device\Mup\)", LR"(\Device\LanmanRedirector\)"})
        if (behind(prefix))
            return LR"(\\)" + std::wstring(path.substr(prefix.size()));
    constexpr std::wstring_view kSystemRoot = LR"(\SystemRoot)";
    if (behind(kSystemRoot) && (path.size() == kSystemRoot.size() || path[kSystemRoot.size()] == L'\\'))
        return windowsFolder() + std::wstring(path.substr(kSystemRoot.size()));
    if (!behind(LR"(\Device\)"))
        raiseCode(ERROR_BAD_PATHNAME);
    const DWORD drives = GetLogicalDrives();
    for (wchar_t letter = L'A'; letter <= L'Z'; ++letter) {
        if ((drives >> (letter - L'A') & 1U) == 0)
            continue;
        const std::wstring drive = {letter, L':'};
        const std::wstring device = deviceOf(drive);
        if (behind(device) && (path.size() == device.size() || path[device.size()] == L'\\'))
            return drive + (path.size() == device.size() ? L"\\" : std::wstring(path.substr(device.size())));
    }
    raiseCode(ERROR_INVALID_DRIVE);
}

std::wstring toNative(std::wstring_view path)
{
    std::wstring plain = normalize(path);
    for (int links = 0; links < 8; ++links) { // a drive may stand for a folder of another one
        const bool literal = plain.compare(0, kPrefix, LR"(\\?\)") == 0;
        if (!literal && plain.compare(0, 2, LR"(\\)") == 0)
            return LR"(\Device\Mup)" + plain.substr(1);
        const std::size_t begin = literal ? kPrefix : 0;
        const std::size_t end = std::min(plain.find(L'\\', begin), plain.size());
        std::wstring target = deviceOf(plain.substr(begin, end - begin)).append(plain, end);
        if (target.compare(0, kPrefix, LR"(\??\)") != 0)
            return target;
        plain = plainForm(std::move(target));
    }
    raiseCode(ERROR_INVALID_DRIVE);
}

std::tuple<std::wstring, std::wstring> extractFromCommand(std::wstring_view command)
{
    constexpr std::size_t kLongestPath = 32767;
    const std::wstring whole = strings::trim(variables::expand(command), L" \t");
    std::wstring program;
    std::size_t end = whole.size();
    if (!whole.empty() && whole.front() == L'"') {
        end = std::min(whole.find(L'"', 1), whole.size());
        program = whole.substr(1, end - 1);
        end = std::min(end + 1, whole.size());
    } else {
        // Like CreateProcess: the shortest prefix that is a file.
        const auto resolved = [](std::wstring name) {
            if (!name.empty() && name.front() == L'\\' && name.compare(0, 2, LR"(\\)") != 0)
                name = fromNative(name);
            else if (strings::startsWith(name, LR"(system32\)", true))
                name = windowsFolder() + L"\\" + name;
            return name;
        };
        std::size_t first = std::min(whole.find_first_of(L" \t"), whole.size());
        for (end = first;; end = std::min(whole.find_first_of(L" \t", end + 1), whole.size())) {
            program = resolved(whole.substr(0, end));
            if (exists(program) || (exists(program + L".exe") && (program += L".exe", true)))
                break;
            if (end == whole.size() || end > kLongestPath) {
                end = first;
                program = resolved(whole.substr(0, end));
                break;
            }
        }
    }
    if (program.empty())
        raiseCode(ERROR_INVALID_PARAMETER);
    if (program.find_first_of(L"\\/:") == std::wstring::npos &&
        SearchPathW(nullptr, program.c_str(), L".exe", 0, nullptr, nullptr) != 0)
        program = systemText([&](wchar_t* text, DWORD size) {
            return SearchPathW(nullptr, program.c_str(), L".exe", size, text, nullptr);
        });
    return {program, strings::trim(std::wstring_view(whole).substr(end), L" \t")};
}

std::wstring compactForDisplay(std::wstring_view path, std::size_t characters)
{
    constexpr std::wstring_view kDots = L"...";
    if (path.size() <= characters)
        return std::wstring(path);
    if (characters <= kDots.size())
        raiseCode(ERROR_INVALID_PARAMETER);
    const auto cut = [](std::wstring_view text,
                        std::size_t length) { // never between two halves of a character
        if (length != 0 && length < text.size() && IS_HIGH_SURROGATE(text[length - 1]))
            --length;
        return std::wstring(text.substr(0, length));
    };
    const std::size_t end = std::min(path.find_last_of(kSeparators), path.size());
    const std::wstring_view name = path.substr(end); // with its separator
    if (end == path.size() || name.size() + kDots.size() >= characters) {
        const std::wstring_view alone = end == path.size() ? path : name.substr(1);
        return alone.size() <= characters ? std::wstring(alone)
                                          : cut(alone, characters - kDots.size()).append(kDots);
    }
    return cut(path, characters - kDots.size() - name.size()).append(kDots).append(name);
}

std::wstring makeUnique(std::wstring_view folder, std::wstring_view stem, std::wstring_view extension)
{
    constexpr int kMost = 10000;
    const std::wstring end =
        (extension.empty() || extension.front() == L'.' ? L"" : L".") + std::wstring(extension);
    for (int number = 1; number <= kMost; ++number) {
        std::wstring name(stem);
        if (number > 1)
            name += L" (" + std::to_wstring(number) + L")";
        name += end;
        if (!isValidFileName(name))
            raiseCode(ERROR_INVALID_NAME);
        std::wstring path = combineParts(folder, name, true);
        if (GetFileAttributesW(Win32Path(path.c_str())) != INVALID_FILE_ATTRIBUTES)
            continue;
        if (GetLastError() != ERROR_FILE_NOT_FOUND)
            raiseLastError();
        return path;
    }
    raiseCode(ERROR_ALREADY_EXISTS);
}

bool isValidFileName(std::wstring_view name) noexcept
{
    constexpr std::size_t kLongest = 255;
    return !name.empty() && name.size() <= kLongest && name.back() != L'.' && name.back() != L' ' &&
           name.find_first_of(LR"(\/:*?"<>|)") == std::wstring_view::npos &&
           std::none_of(name.begin(), name.end(), [](wchar_t c) { return c < L' '; }) && !isDeviceName(name);
}
} // namespace paths
