#pragma once

#include <string>
#include <string_view>

/// Decides from a path's text alone whether the boot-time list takes it.
namespace bootlist {
/// The list's own path, always with two backslashes before the name. Raises the bare code.
[[nodiscard]] std::wstring filePath();
/// The path as it stands in a line of the list; empty when its text is refused. See forcedelete::listedPath.
[[nodiscard]] std::wstring plainPath(std::wstring_view path);
} // namespace bootlist
