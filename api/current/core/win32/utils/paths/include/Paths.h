#pragma once

#include <string>
#include <string_view>
#include <tuple>
#include <vector>

/// Implementations of the exported path functions; see api.h. They raise bare codes.
namespace paths {
[[nodiscard]] std::wstring combineParts(std::wstring_view folder, std::wstring_view name, bool strict);
[[nodiscard]] std::wstring normalize(std::wstring_view path);
[[nodiscard]] std::wstring toLongForm(std::wstring_view path);
[[nodiscard]] std::wstring toExtendedForm(const wchar_t* path);
[[nodiscard]] std::wstring parent(std::wstring_view path);
/// The normalised path as \\?\..., whatever its names: two of them can be compared.
[[nodiscard]] std::wstring literalForm(std::wstring_view path);
[[nodiscard]] bool isInside(std::wstring_view path, std::wstring_view folder);
[[nodiscard]] std::wstring fromNative(std::wstring_view path);
[[nodiscard]] std::wstring toNative(std::wstring_view path);
/// Program and arguments.
[[nodiscard]] std::tuple<std::wstring, std::wstring> extractFromCommand(std::wstring_view command);
[[nodiscard]] std::wstring compactForDisplay(std::wstring_view path, std::size_t characters);
/// Whether it is one, and its tag.
[[nodiscard]] std::tuple<bool, unsigned long> isReparsePoint(const wchar_t* path);
[[nodiscard]] std::wstring readLinkTarget(const wchar_t* path);
[[nodiscard]] bool isProtected(std::wstring_view path);
[[nodiscard]] std::wstring makeUnique(std::wstring_view folder, std::wstring_view stem,
                                      std::wstring_view extension);
/// The names between backslashes, in their order.
[[nodiscard]] std::vector<std::wstring> namesOf(std::wstring_view path);
/// The path without closing separators, except a root's.
[[nodiscard]] std::wstring_view withoutClosing(std::wstring_view path) noexcept;
[[nodiscard]] bool isValidFileName(std::wstring_view name) noexcept;

/// The last part of a path, and its extension, as pointers into the path; the path's end when there is none.
template <class Char>
[[nodiscard]] const Char* fileName(const Char* path) noexcept
{
    const Char* name = path;
    for (const Char* at = path; *at != Char(); ++at)
        if (*at == Char('\\') || *at == Char('/') || (*at == Char(':') && at == path + 1))
            name = at + 1;
    return name;
}
template <class Char>
[[nodiscard]] const Char* extension(const Char* path) noexcept
{
    const Char* const name = fileName(path);
    const Char* dot = nullptr;
    const Char* end = name;
    for (; *end != Char(); ++end)
        if (*end == Char('.') && end != name)
            dot = end;
    const bool isParent = name[0] == Char('.') && name[1] == Char('.') && name[2] == Char();
    return dot != nullptr && !isParent ? dot : end;
}
} // namespace paths
