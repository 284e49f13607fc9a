#pragma once

#include <windows.h>

#include <cstdint>
#include <string>
#include <string_view>

#include "core/win32/utils/objectmanager/include/Win32Handle.h"

/// Opens keys by paths of any length. One system call takes at most 32,767 characters, and may truncate a
/// longer path silently; the registry's own limit is far higher. Longer paths are opened in steps, from
/// handle to handle.
namespace keypath {
/// Opens the key `path` below `root`. `options` apply to the last key only; links further up are followed.
/// Returns 0; 206 when a name in the path has more than 255 characters (nothing is opened then); 161 for a
/// path of more than 16,383 characters that consists only of backslashes; or the system's code.
[[nodiscard]] LSTATUS open(HKEY root, const wchar_t* path, DWORD options, REGSAM access, HKEY* opened);
/// Opens a key, found by a walk below the first `rootLength` characters of its path, in order to change it. A
/// link that has replaced a key on the way from there is not followed; the system's own link to a user's
/// classes is, since walks follow it. Returns as open does; 681
/// (ERROR_STOPPED_ON_SYMLINK) when the path leads to a different key than going key by key.
[[nodiscard]] LSTATUS openFound(HKEY root, const wchar_t* path, std::size_t rootLength, REGSAM access,
                                HKEY* opened);
/// Like open, with RegCreateKeyExW: missing keys are created.
[[nodiscard]] LSTATUS create(HKEY root, const wchar_t* path, REGSAM access, HKEY* opened);

/// Whether a key with this system name is "Software\Classes" in a user's hive, which on Windows is a link.
[[nodiscard]] bool isUserClassesName(std::wstring_view systemName) noexcept;
/// Whether `systemName` is that of the classes of the user whose hive has the system name `hive`.
[[nodiscard]] bool isUserClasses(const std::wstring& hive, const std::wstring& systemName);
/// Whether a system code means that a key does not exist.
[[nodiscard]] bool isMissing(long status) noexcept;
/// Whether opening a key below `root` returned one of the predefined handles. Some keys stand for performance
/// data, and opening them returns a shared handle: it must not be closed, and listing, writing or deleting
/// through it does not affect the key.
[[nodiscard]] bool isStandIn(HKEY opened, HKEY root) noexcept;
/// A handle to the one key that `key` was opened as, with the same access. Handles that the system returns
/// below HKEY_CLASSES_ROOT carry a mark that makes them show the keys of two hives as one; a copy has no
/// mark. Raises the bare code.
[[nodiscard]] RegistryKeyHandle itself(HKEY key);
/// The system's name of an opened key, such as "\REGISTRY\USER\S-1-5-18"; empty when the system does not give
/// it. Raises std::bad_alloc.
[[nodiscard]] std::wstring nameOf(HKEY key);
} // namespace keypath
