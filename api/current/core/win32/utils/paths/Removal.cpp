#include "core/win32/utils/paths/include/Removal.h"

#include <optional>
#include <string>

#include "core/win32/utils/objectmanager/include/Raise.h"
#include "core/win32/utils/paths/include/FileIdentity.h"
#include "core/win32/utils/paths/include/OpenedItself.h"
#include "core/win32/utils/paths/include/Patience.h"
#include "core/win32/utils/paths/include/Win32Path.h"

namespace {
bool isMissing(long code) noexcept
{
    return code == ERROR_FILE_NOT_FOUND || code == ERROR_PATH_NOT_FOUND;
}

bool isBeingDeleted(long code) noexcept
{
    return code == ERROR_ACCESS_DENIED || code == kDeletePending;
}

/// Whether a folder contains only items that are marked for deletion and cannot be opened any more.
bool isBeingEmptied(const wchar_t* folder)
{
    const std::wstring mask(joinPath(folder, L"*"));
    WIN32_FIND_DATAW entry;
    const FindHandle search(FindFirstFileW(Win32Path(mask.c_str()), &entry));
    if (!search.isValid())
        return false;
    do {
        const std::wstring_view name(entry.cFileName);
        const std::wstring path(joinPath(folder, name));
        if (name != L"." && name != L".." &&
            (GetFileAttributesW(Win32Path(path.c_str())) != INVALID_FILE_ATTRIBUTES ||
             !isBeingDeleted(static_cast<long>(GetLastError()))))
            return false;
    } while (FindNextFileW(search.get(), &entry));
    return true;
}

/// What stands under a name; nothing when nothing does, or when it cannot be opened, not even for this.
std::optional<FileIdentity> identityAt(const wchar_t* target)
{
    try {
        return FileIdentity::of(OpenedItself(target).get());
    } catch (long) { // NOLINT(bugprone-empty-catch): the removal itself says what is wrong
        return std::nullopt;
    }
}

/// What became of a removed name: 0 when it is gone, otherwise the code that tells why not.
long stateOf(const wchar_t* target, const std::function<bool(HANDLE)>& isSame, long stillThere)
{
    if (GetFileAttributesW(target) == INVALID_FILE_ATTRIBUTES && isMissing(static_cast<long>(GetLastError())))
        return ERROR_SUCCESS;
    try {
        return isSame(OpenedItself(target).get()) ? stillThere : ERROR_SUCCESS;
    } catch (long code) {
        return isMissing(code) ? ERROR_SUCCESS : isBeingDeleted(code) ? kDeletePending : code;
    }
}
} // namespace

void removal::removeByName(const wchar_t* target, bool isFolder, HANDLE cancelEvent,
                           const std::function<void()>& lookAgain, const std::function<bool(HANDLE)>& isSame,
                           long stillThere)
{
    std::optional<FileIdentity> held;
    for (Patience patience(cancelEvent); !(isFolder ? RemoveDirectoryW(target) : DeleteFileW(target));) {
        const DWORD code = GetLastError();
        if (!held)
            held = identityAt(target);
        if ((code == ERROR_DIR_NOT_EMPTY && !isBeingEmptied(target)) || !patience.isWorthAnotherTry(code))
            raiseCode(static_cast<long>(code));
        lookAgain();
        // While it was waited for, somebody may have put another file there.
        if (const std::optional<FileIdentity> now = identityAt(target); held && now && *now != *held)
            raiseCode(kAnotherFile);
    }
    const auto isHeld = [&](HANDLE opened) { return FileIdentity::of(opened) == *held; };
    requireGone(target, cancelEvent, held ? isHeld : isSame, stillThere);
}

void removal::requireGone(const wchar_t* target, HANDLE cancelEvent,
                          const std::function<bool(HANDLE)>& isSame, long stillThere)
{
    Patience patience(cancelEvent);
    for (;;) {
        const long code = stateOf(target, isSame, stillThere);
        if (code == ERROR_SUCCESS)
            return;
        const DWORD patient = code == stillThere ? ERROR_ACCESS_DENIED : static_cast<DWORD>(code);
        if (!patience.isWorthAnotherTry(patient))
            raiseCode(code);
    }
}
