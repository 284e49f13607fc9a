#pragma once

#include <string>
#include <string_view>
#include <tuple>

/// Implementations of the exported version functions; see api.h. They raise bare codes.
namespace versions {
/// The four numbers, 16 bits each from the top, and their text.
[[nodiscard]] std::tuple<unsigned long long, std::wstring> ofFile(const wchar_t* path);
[[nodiscard]] std::wstring fileString(const wchar_t* path, const wchar_t* name);
[[nodiscard]] int compare(std::wstring_view first, std::wstring_view second);
/// Major, minor, build, and whether it is a server.
[[nodiscard]] std::tuple<unsigned long, unsigned long, unsigned long, bool> ofSystem();
} // namespace versions
