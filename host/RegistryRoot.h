#pragma once

#include <windows.h>

#include <optional>
#include <string>

#include "core/win32/registry/api.h"

/// A registry key as a user names it.
struct RegistryRoot
{
    HKEY root;
    std::wstring subKey;
};

/// Takes "HKLM\Software" or "HKEY_LOCAL_MACHINE\Software" apart, without regard to case; nothing for a text
/// that does not begin with a root's name.
std::optional<RegistryRoot> parseRegistryRoot(const std::wstring& text);

/// "REG_SZ", or the number of a type without a name.
std::wstring typeName(unsigned long type);

/// A value's data in one short line: text in part and without control characters, numbers as such, anything
/// else as the first of its bytes.
std::wstring shortData(IRegistryValue& value);
