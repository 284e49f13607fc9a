#pragma once

#include <windows.h>

#include <string>

/// A folder of the shell's by its number (CSIDL), of the user of `token`, or without one of the
/// user that the calling thread impersonates, else of the current user (SetCurrentUserSession). Raises the
/// bare code, 3 for a folder that is not there.
[[nodiscard]] std::wstring shellFolder(int number, HANDLE token = nullptr);
