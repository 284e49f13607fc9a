#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>

/// Variables between percent signs, in texts of any length: the system's own call takes and gives 32,766
/// characters at most, and cuts what is longer without a word. What names no variable stays as it is.
namespace variables {
using Lookup = std::function<std::optional<std::wstring>(const std::wstring& name)>;

/// Replaces what `lookup` knows the value of.
[[nodiscard]] std::wstring expand(std::wstring_view text, const Lookup& lookup);
/// The same with this process's variables. Raises the bare code.
[[nodiscard]] std::wstring expand(std::wstring_view text);
/// A variable of this process's. Raises the bare code.
[[nodiscard]] std::optional<std::wstring> ofProcess(const std::wstring& name);
} // namespace variables
