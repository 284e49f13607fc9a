#pragma once

#include <windows.h>

#include <functional>

/// Removing by name, and what Windows leaves open there: the calls say that something is removed as soon as
/// it is marked, and its name stays until the last who has it open has closed it.
namespace removal {
/// Removes a folder (RemoveDirectoryW) or anything else (DeleteFileW). While somebody holds it, tries again
/// for about a second; `lookAgain` is called before each new try and raises when it is not the same any more.
/// A folder that is not empty is waited for as long as everything in it is on its way out, and no longer.
/// Then `requireGone`. Raises the bare code, 1223 too.
void removeByName(const wchar_t* target, bool isFolder, HANDLE cancelEvent,
                  const std::function<void()>& lookAgain, const std::function<bool(HANDLE)>& isSame);

/// Returns when the name is gone, or belongs to what `isSame` does not take for the one that was removed. One
/// call where it is gone at once. Raises after about a second 303 when others have it open still, 5 when it
/// is there as if nothing had been said; at once 1223, or the code with which it cannot be told.
void requireGone(const wchar_t* target, HANDLE cancelEvent, const std::function<bool(HANDLE)>& isSame);
} // namespace removal
