#include <windows.h>

#include "core/win32/utils/files/include/Files.h"
#include "core/win32/utils/objectmanager/include/Raise.h"
#include "core/win32/utils/objectmanager/include/Win32Handle.h"
#include "core/win32/utils/paths/include/OpenedItself.h"
#include "core/win32/utils/paths/include/Paths.h"
#include "core/win32/utils/paths/include/Patience.h"
#include "core/win32/utils/paths/include/Win32Path.h"

namespace {
struct Entry
{
    std::wstring name;
    DWORD attributes;
    bool isLink;
    unsigned long long size;
};

/// Calls `visit` with each entry of a folder until it returns false.
template <class Visit>
void eachEntry(const std::wstring& folder, Visit&& visit)
{
    WIN32_FIND_DATAW found;
    const FindHandle search(FindFirstFileExW(std::wstring(joinPath(folder, L"*")).c_str(), FindExInfoBasic,
                                             &found, FindExSearchNameMatch, nullptr,
                                             FIND_FIRST_EX_LARGE_FETCH));
    if (!search.isValid()) {
        if (GetLastError() != ERROR_FILE_NOT_FOUND) // the root of a drive may be empty
            raiseLastError();
        return;
    }
    do {
        const std::wstring_view name(found.cFileName);
        if (name == L"." || name == L"..")
            continue;
        const bool isLink =
            (found.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0 && isLinkTag(found.dwReserved0);
        if (!visit(Entry{std::wstring(name), found.dwFileAttributes, isLink,
                         (static_cast<unsigned long long>(found.nFileSizeHigh) << 32U) | found.nFileSizeLow}))
            return;
    } while (FindNextFileW(search.get(), &found));
    if (GetLastError() != ERROR_NO_MORE_FILES)
        raiseLastError();
}

/// The absolute path without a closing backslash, which would follow a link.
std::wstring rootOf(const wchar_t* path)
{
    const std::wstring settled = settledPath(path);
    return std::wstring(paths::withoutClosing(settled));
}

std::wstring parentOf(const std::wstring& folder)
{
    try {
        return paths::parent(folder);
    } catch (long) {
        raiseCode(ERROR_PATH_NOT_FOUND); // not even the drive exists
    }
}

void requireFolder(const std::wstring& settled)
{
    const OpenedItself root(Win32Path(settled.c_str()));
    if (!root.isFolder())
        raiseCode(ERROR_DIRECTORY);
    if (root.isLink())
        raiseCode(kStoppedOnSymlink);
}

bool isGone(long code) noexcept
{
    return code == ERROR_FILE_NOT_FOUND || code == ERROR_PATH_NOT_FOUND;
}

/// Holds a folder of a tree and those above it. Returns false when it was deleted after it was listed.
bool isHeld(HeldFolders& held, const std::wstring& root, const std::wstring& folder, Patience& patience)
{
    for (;;) {
        try {
            held.hold(root, folder, false);
            return true;
        } catch (long code) {
            if (folder != root && isGone(code))
                return false;
            if (!patience.isWorthAnotherTry(static_cast<DWORD>(code)))
                throw;
        }
    }
}

/// Walks a folder that is not a link, deepest first. Every folder on the way is held while it is listed and
/// while `onEntry` gets its files and links. `onLeave` gets each folder after its content; it is no longer
/// held then, but its parent is. Raises the bare code.
template <class OnEntry, class OnLeave>
void walkTree(const std::wstring& root, HANDLE cancelEvent, Patience& patience, OnEntry&& onEntry,
              OnLeave&& onLeave)
{
    struct Step
    {
        std::wstring folder;
        bool isListed;
    };
    std::vector<Step> pending = {{root, false}};
    HeldFolders held;
    while (!pending.empty()) {
        if (isCancelled(cancelEvent))
            raiseCode(codeOfCancelled(cancelEvent));
        if (pending.back().isListed) {
            const std::wstring folder = std::move(pending.back().folder);
            pending.pop_back();
            if (folder == root)
                held = HeldFolders();
            else if (!isHeld(held, root, paths::parent(folder), patience))
                continue;
            onLeave(folder);
            continue;
        }
        pending.back().isListed = true;
        const std::wstring folder = pending.back().folder;
        if (!isHeld(held, root, folder, patience)) {
            pending.pop_back();
            continue;
        }
        std::vector<Entry> entries; // list all first: deleting during a search may confuse it
        eachEntry(folder, [&](Entry&& entry) {
            entries.push_back(std::move(entry));
            return true;
        });
        for (const Entry& entry : entries) {
            std::wstring path(joinPath(folder, entry.name));
            if ((entry.attributes & FILE_ATTRIBUTE_DIRECTORY) != 0 && !entry.isLink)
                pending.push_back({std::move(path), false});
            else if (isCancelled(cancelEvent))
                raiseCode(codeOfCancelled(cancelEvent));
            else
                onEntry(path, entry);
        }
    }
}

/// Removes a file, a link or an empty folder. One that others hold is retried as long as the patience of the
/// whole call lasts.
long removeEntry(const std::wstring& path, DWORD attributes, bool isLink, Patience& patience)
{
    const bool folder = (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
    const auto remove = [&] { return folder ? RemoveDirectoryW(path.c_str()) : DeleteFileW(path.c_str()); };
    long code = ERROR_SUCCESS;
    do {
        if (remove())
            return ERROR_SUCCESS;
        code = lastError();
    } while ((code != ERROR_ACCESS_DENIED || (attributes & FILE_ATTRIBUTE_READONLY) == 0) &&
             patience.isWorthAnotherTry(static_cast<DWORD>(code)));
    if (isGone(code))
        return ERROR_SUCCESS; // somebody else has deleted it
    if (code != ERROR_ACCESS_DENIED || isLink || (attributes & FILE_ATTRIBUTE_READONLY) == 0 ||
        !SetFileAttributesW(path.c_str(), attributes & ~static_cast<DWORD>(FILE_ATTRIBUTE_READONLY)))
        return code;
    if (remove())
        return ERROR_SUCCESS;
    const long second = lastError();
    SetFileAttributesW(path.c_str(), attributes);
    return second;
}
} // namespace

namespace folders {
void createTree(const wchar_t* path)
{
    // Upwards to the first that exists, then down again.
    std::vector<std::wstring> missing;
    for (std::wstring folder = rootOf(path);; folder = parentOf(folder)) {
        const DWORD attributes = GetFileAttributesW(folder.c_str());
        if (attributes != INVALID_FILE_ATTRIBUTES) {
            if ((attributes & FILE_ATTRIBUTE_DIRECTORY) == 0)
                raiseCode(ERROR_DIRECTORY);
            break;
        }
        if (GetLastError() != ERROR_FILE_NOT_FOUND && GetLastError() != ERROR_PATH_NOT_FOUND)
            raiseLastError();
        missing.push_back(folder);
    }
    for (; !missing.empty(); missing.pop_back())
        if (!CreateDirectoryW(missing.back().c_str(), nullptr) && GetLastError() != ERROR_ALREADY_EXISTS)
            raiseLastError();
}

void deleteTree(const wchar_t* path, HANDLE cancelEvent)
{
    const std::wstring root = rootOf(path);
    if (paths::isProtected(root))
        raiseCode(ERROR_NOT_SUPPORTED);
    requireFolder(root);
    requireEvent(cancelEvent);
    Patience patience(cancelEvent); // also covers a second call for the same folder
    long failed = ERROR_SUCCESS;
    const auto note = [&](long code) { failed = failed == ERROR_SUCCESS ? code : failed; };
    walkTree(
        root, cancelEvent, patience,
        [&](const std::wstring& entry, const Entry& found) {
            note(removeEntry(entry, found.attributes, found.isLink, patience));
        },
        [&](const std::wstring& folder) {
            // The first failure inside says more than "not empty".
            const DWORD attributes = GetFileAttributesW(folder.c_str());
            const bool isLink = (attributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0;
            note(removeEntry(folder, attributes | FILE_ATTRIBUTE_DIRECTORY, isLink, patience));
        });
    requireSuccess(failed);
}

std::tuple<unsigned long long, unsigned long long, unsigned long long> size(const wchar_t* path,
                                                                            HANDLE cancelEvent)
{
    const std::wstring root = rootOf(path);
    requireFolder(root);
    requireEvent(cancelEvent);
    unsigned long long bytes = 0;
    unsigned long long files = 0;
    unsigned long long folders = 0;
    Patience patience(cancelEvent);
    walkTree(
        root, cancelEvent, patience,
        [&](const std::wstring&, const Entry& found) {
            if (found.isLink)
                return;
            bytes += found.size;
            ++files;
        },
        [&](const std::wstring&) { ++folders; });
    return {bytes, files, folders - 1};
}

bool isEmpty(const wchar_t* path)
{
    bool empty = true;
    eachEntry(rootOf(path), [&](const Entry&) { return empty = false; });
    return empty;
}
} // namespace folders
