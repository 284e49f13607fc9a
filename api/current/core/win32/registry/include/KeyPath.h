#pragma once

#include <windows.h>

#include <cstdint>
#include <string>

#include "core/win32/utils/objectmanager/include/Win32Handle.h"

/// Opening keys by paths of any length. One call of the system takes 32,767 characters at most, and may cut a
/// longer path without a word; the registry's own limit is far above that. Longer paths are gone along from
/// handle to handle.
namespace keypath {
/// Opens the key `path` below `root`; `options` go for the last key alone, links further up are followed.
/// Returns 0; 206 when a name in the path has more than 255 characters (nothing is opened then); 161 for a
/// path over 16,383 characters that is nothing but backslashes; or the system's code.
[[nodiscard]] LSTATUS open(HKEY root, const wchar_t* path, DWORD options, REGSAM access, HKEY* opened);
/// Opens a key that a walk found below the first `rootLength` characters of its path, to change it. A link
/// that was put in the place of a key on the way from there is not followed. Returns as open does; 681
/// (ERROR_STOPPED_ON_SYMLINK) when the path leads to another key than the way from key to key.
[[nodiscard]] LSTATUS openFound(HKEY root, const wchar_t* path, std::size_t rootLength, REGSAM access,
                                HKEY* opened);
/// The same as open with RegCreateKeyExW: missing keys are made.
[[nodiscard]] LSTATUS create(HKEY root, const wchar_t* path, REGSAM access, HKEY* opened);

/// Whether a code of the system's says that a key is not there.
[[nodiscard]] bool isMissing(long status) noexcept;
/// Whether opening a key below `root` gave one of the predefined handles. Some keys stand for performance
/// data, and opening them gives a handle of everybody's: it must not be closed, and what is listed, written
/// or deleted through it is not the key.
[[nodiscard]] bool isStandIn(HKEY opened, HKEY root) noexcept;
/// A handle of the one key that `key` was opened as, with the same access. The handles that the system gives
/// below HKEY_CLASSES_ROOT carry a mark, and by it show the keys of two hives as one; a copy has no mark.
/// Raises the bare code.
[[nodiscard]] RegistryKeyHandle itself(HKEY key);
/// The name that the system knows an opened key by, such as "\REGISTRY\USER\S-1-5-18"; empty when it is not
/// told. Raises std::bad_alloc.
[[nodiscard]] std::wstring nameOf(HKEY key);
} // namespace keypath
