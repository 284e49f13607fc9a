#pragma once

#include <windows.h>

#include <functional>

/// Removes items by name and covers what Windows leaves open: its calls report success as soon as an item is
/// marked, and its name stays until the last handle to it is closed.
namespace removal {
/// Removes a folder (RemoveDirectoryW) or anything else (DeleteFileW). While somebody holds it, retries for
/// about a second, but only what stood there at the first failure (otherwise 1006); `lookAgain` is called
/// before each retry and raises when the item is no longer to go. A folder that is not empty is waited for
/// only while everything in it is being deleted. Then calls `requireGone`. Raises the bare code, 1223 too.
void removeByName(const wchar_t* target, bool isFolder, HANDLE cancelEvent,
                  const std::function<void()>& lookAgain, const std::function<bool(HANDLE)>& isSame,
                  long stillThere = ERROR_ACCESS_DENIED);

/// Returns when the name is gone, or belongs to an item that `isSame` does not recognise as the removed one.
/// Needs one call if it is gone at once. After about a second raises 303 when others still have it open, and
/// `stillThere` when what exists cannot be distinguished from the removed item. Raises 1223, or the code of a
/// failed check, at once.
void requireGone(const wchar_t* target, HANDLE cancelEvent, const std::function<bool(HANDLE)>& isSame,
                 long stillThere = ERROR_ACCESS_DENIED);
} // namespace removal
