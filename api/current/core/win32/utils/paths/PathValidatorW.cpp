#include "core/win32/utils/paths/include/PathValidatorW.h"

#include <windows.h>

#include <shlobj.h>

#include <algorithm>
#include <iterator>

#include "core/win32/utils/objectmanager/include/Boundary.h"
#include "core/win32/utils/objectmanager/include/SystemText.h"
#include "core/win32/utils/objectmanager/include/Win32Handle.h"
#include "core/win32/utils/paths/include/PathValidatorA.h"
#include "core/win32/utils/paths/include/ShellFolder.h"
#include "core/win32/utils/paths/include/UserSession.h"
#include "core/win32/utils/paths/include/Win32Path.h"
#include "core/win32/utils/strings/include/CaseFolding.h"
#include "core/win32/utils/strings/include/TextSearch.h"
#include "core/win32/utils/strings/include/Unicode.h"

namespace {
bool isSeparator(wchar_t c) noexcept
{
    return c == L'\\' || c == L'/';
}

/// Whether a folder without its closing backslash is the root of a drive, a volume or a share, or nothing:
/// "C:" would be the current folder of the drive, "\\?\Volume{...}" the volume's device.
bool isRoot(std::wstring_view folder) noexcept
{
    if (folder.empty() || folder.back() == L':')
        return true;
    const bool literal = folder.substr(0, 4) == LR"(\\?\)" || folder.substr(0, 4) == LR"(\\.\)";
    if (!literal && folder.substr(0, 2) != LR"(\\)")
        return false;
    const std::wstring_view names = folder.substr(literal ? 4 : 2);
    return std::count(names.begin(), names.end(), L'\\') == (literal ? 0 : 1);
}

/// A root keeps its backslash: without it the path means another folder.
std::wstring withoutBackslash(std::wstring folder)
{
    const std::size_t whole = folder.size();
    while (!folder.empty() && folder.back() == L'\\')
        folder.pop_back();
    if (folder.size() != whole && isRoot(folder))
        folder += L'\\';
    return folder;
}

std::wstring userName()
{
    wchar_t name[257]; // UNLEN and its terminator
    DWORD length = static_cast<DWORD>(std::size(name));
    if (!GetUserNameW(name, &length))
        raiseLastError();
    return name;
}

std::wstring applicationFolder()
{
    const std::wstring program =
        systemText([](wchar_t* text, DWORD size) { return GetModuleFileNameW(nullptr, text, size); });
    return program.substr(0, program.find_last_of(L'\\') + 1);
}

std::wstring userTemporaryFolder()
{
    return std::wstring(joinPath(shellFolder(CSIDL_LOCAL_APPDATA), L"Temp"));
}

/// Requires that one of the variables names the temporary folder. Without them the system would return the
/// user's profile or the Windows folder, and a relative value would mean a different folder each time: a
/// cleaner would empty it.
void requireTemporaryFolder()
{
    wchar_t text[MAX_PATH + 2];
    DWORD length = 0;
    for (const wchar_t* name : {L"TMP", L"TEMP"}) // in the system's order
        if (length == 0)
            length = GetEnvironmentVariableW(name, text, static_cast<DWORD>(std::size(text)));
    if (length == 0)
        raiseCode(ERROR_ENVVAR_NOT_FOUND);
    const bool isAbsolute = length >= std::size(text) || // too long to be read, and for a relative one
                            (length > 2 && text[1] == L':' && isSeparator(text[2])) ||
                            (length > 2 && isSeparator(text[0]) && isSeparator(text[1]));
    if (!isAbsolute)
        raiseCode(ERROR_BAD_PATHNAME);
}

/// The process's own, unless the current user is another: a service's variables are not the user's. For users
/// with long names Windows shortens names in it to 8.3.
std::wstring temporaryFolder()
{
    if (!usersession::isOwn())
        return userTemporaryFolder();
    requireTemporaryFolder();
    std::wstring folder = systemText([](wchar_t* t, DWORD n) { return GetTempPathW(n, t); });
    if (folder.find(L'~') == std::wstring::npos ||
        GetFileAttributesW(folder.c_str()) == INVALID_FILE_ATTRIBUTES)
        return folder; // a missing folder has no long name
    return systemText([&](wchar_t* t, DWORD n) { return GetLongPathNameW(folder.c_str(), t, n); });
}

struct Macro
{
    std::wstring_view name; // folded
    std::wstring (*value)();
};

const Macro kMacros[] = {
    {L"WINDIR", [] { return systemText([](wchar_t* t, DWORD n) { return GetWindowsDirectoryW(t, n); }); }},
    {L"SYSTEM", [] { return systemText([](wchar_t* t, DWORD n) { return GetSystemDirectoryW(t, n); }); }},
    {L"PROGRAMFILES", [] { return shellFolder(CSIDL_PROGRAM_FILES); }},
    {L"PROGRAMDATA", [] { return shellFolder(CSIDL_COMMON_APPDATA); }},
    {L"APPDATA", [] { return shellFolder(CSIDL_APPDATA); }},
    {L"LOCALAPPDATA", [] { return shellFolder(CSIDL_LOCAL_APPDATA); }},
    {L"TEMP", [] { return temporaryFolder(); }},
    {L"USER_TEMP", [] { return userTemporaryFolder(); }},
    {L"USERPROFILE", [] { return shellFolder(CSIDL_PROFILE); }},
    {L"DESKTOP", [] { return shellFolder(CSIDL_DESKTOPDIRECTORY); }},
    {L"DOCUMENTS", [] { return shellFolder(CSIDL_PERSONAL); }},
    {L"USERNAME", [] { return userName(); }},
    {L"CURRENT", [] { return applicationFolder(); }},
};

bool macroValue(std::wstring_view name, std::wstring& value)
{
    std::wstring folded(name);
    std::transform(folded.begin(), folded.end(), folded.begin(), casefolding::fold);
    const auto* macro = std::find_if(std::begin(kMacros), std::end(kMacros),
                                     [&](const Macro& known) { return known.name == folded; });
    if (macro != std::end(kMacros)) {
        value = withoutBackslash(macro->value());
        return true;
    }
    const DWORD size = GetEnvironmentVariableW(folded.c_str(), nullptr, 0);
    if (size == 0)
        return false;
    value.resize(size);
    const DWORD length = GetEnvironmentVariableW(folded.c_str(), value.data(), size);
    // Changed meanwhile: treat the macro as unknown rather than use half a value. An empty one would turn a
    // path below it into one below the drive's root.
    if (length == 0 || length >= size)
        return false;
    value.resize(length);
    return true;
}
} // namespace

PathValidatorW& PathValidatorW::getInstance() noexcept
{
    static PathValidatorW instance;
    return instance;
}

bool PathValidatorW::expand(std::wstring_view path, std::wstring& expanded)
{
    bool found = false;
    while (!path.empty()) {
        const std::size_t open = path.find(L'%');
        expanded.append(path.substr(0, open));
        if (open == std::wstring_view::npos)
            break;
        path.remove_prefix(open);
        const std::size_t close = path.find(L'%', 1);
        std::wstring value;
        if (close != std::wstring_view::npos && close > 1 && macroValue(path.substr(1, close - 1), value)) {
            expanded.append(value);
            path.remove_prefix(close + 1);
            // A root has its own backslash, so the one that follows is dropped: "\\" would begin a share.
            if (!value.empty() && value.back() == L'\\' && !path.empty() && isSeparator(path.front()))
                path.remove_prefix(1);
            found = true;
        } else {
            // The closing sign may open the next macro, so only this sign is skipped.
            expanded.push_back(L'%');
            path.remove_prefix(1);
        }
    }
    return found;
}

long PathValidatorA::validate(char* path, unsigned long capacity, unsigned long* needed)
{
    return boundary::statusFrame([&]() -> long {
        if (path == nullptr)
            return ERROR_INVALID_PARAMETER;
        std::wstring expanded;
        if (!PathValidatorW::expand(unicode::wideFromUtf8(path), expanded))
            return ERROR_NOT_FOUND;
        return textsearch::copyWhole<char>(unicode::utf8FromWide(expanded), path, capacity, needed);
    });
}

PathValidatorA& PathValidatorA::getInstance() noexcept
{
    static PathValidatorA instance;
    return instance;
}

long PathValidatorW::validate(wchar_t* path, unsigned long capacity, unsigned long* needed)
{
    return boundary::statusFrame([&]() -> long {
        if (path == nullptr)
            return ERROR_INVALID_PARAMETER;
        std::wstring expanded;
        if (!expand(path, expanded))
            return ERROR_NOT_FOUND;
        return textsearch::copyWhole<wchar_t>(expanded, path, capacity, needed);
    });
}
