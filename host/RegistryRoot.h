#pragma once

#include <windows.h>

#include <optional>
#include <string>

/// A registry key as a user names it.
struct RegistryRoot
{
    HKEY root;
    std::wstring subKey;
};

/// Takes "HKLM\Software" or "HKEY_LOCAL_MACHINE\Software" apart, without regard to case; nothing for a text
/// that does not begin with a root's name.
std::optional<RegistryRoot> parseRegistryRoot(const std::wstring& text);
