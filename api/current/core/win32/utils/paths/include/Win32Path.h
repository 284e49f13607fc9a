#pragma once

#include <string>
#include <string_view>

#include "core/win32/utils/objectmanager/include/ProcessHeap.h"

/// A path in the form that Win32 calls take literally.
///
/// The text of an item stays what the caller gave. It gets the \\?\ form only for the call, and only when the
/// plain form would fail or mean another file: from 248 characters on; with a name that ends in a dot or a
/// blank (the plain form drops them, and "report." would delete "report"), or with the name of a device such
/// as "nul"; and when it is not absolute (isSettled). Everything else is passed on unchanged, without a copy
/// and without a system call.
class Win32Path
{
public:
    /// `path` must outlive this object. Raises an Exception when the current folder is needed and cannot be
    /// determined.
    explicit Win32Path(const wchar_t* path);

    [[nodiscard]] const wchar_t* get() const noexcept
    {
        return m_extended.empty() ? m_plain : m_extended.c_str();
    }
    operator const wchar_t*() const noexcept { return get(); } // NOLINT: it stands for the text

private:
    const wchar_t* m_plain;
    std::wstring m_extended; // empty when the plain form suffices
};

/// The absolute literal form of a path: from now on what it names does not depend on the current folder.
/// Exact \\?\ and \??\ paths are returned unchanged. Everything else (relative, below a drive's current
/// folder as Z:name, \name, \\.\Z:\..., //?/Z:/..., slashes, \\server\share\...) becomes \\?\..., with "."
/// and ".." resolved and every other name unchanged: "report." stays "report.". An empty path stays empty.
/// Raises the bare code when the current folder is needed and cannot be determined.
[[nodiscard]] std::wstring settledPath(std::wstring_view path);

/// Whether Win32 already treats this form as absolute, so that at most the \\?\ prefix is missing: a path
/// from a drive's root or a share with backslashes, or a literal one.
[[nodiscard]] bool isSettled(std::wstring_view path) noexcept;

/// Whether Win32 takes a name for a device ("nul", "com1.txt") in any folder.
[[nodiscard]] bool isDeviceName(std::wstring_view name) noexcept;

/// Whether Win32 would change a name in the path: one that ends in a dot or a blank, or is a device's.
[[nodiscard]] bool hasAlteredName(std::wstring_view path);

/// The same for a whole path as it stands: Win32 changes no name in a literal one.
[[nodiscard]] bool isAlteredPath(std::wstring_view path);

/// Joins a folder and a name with one backslash.
[[nodiscard]] HeapStringW joinPath(std::wstring_view folder, std::wstring_view name);
