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

/// Splits "HKLM\Software" or "HKEY_LOCAL_MACHINE\Software", without regard to case; empty for a text that
/// does not begin with a root's name.
std::optional<RegistryRoot> parseRegistryRoot(const std::wstring& text);
