#pragma once

#include <windows.h>

#include <string>

/// A shell folder by its number (CSIDL). It is the folder of the user of `token`; without a token, of the
/// user that the calling thread impersonates, otherwise of the current user (SetCurrentUserSession). Raises
/// the bare code, 3 for a folder that does not exist.
[[nodiscard]] std::wstring shellFolder(int number, HANDLE token = nullptr);
