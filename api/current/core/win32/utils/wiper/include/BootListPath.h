#pragma once

#include <string>
#include <string_view>

/// Which paths the boot-time list takes, by their text alone.
namespace bootlist {
/// The list's own path, always with two backslashes before the name. Raises the bare code.
[[nodiscard]] std::wstring filePath();
/// The path as a line of the list gives it, or empty when its text is refused; see forcedelete::listedPath.
[[nodiscard]] std::wstring plainPath(std::wstring_view path);
} // namespace bootlist
