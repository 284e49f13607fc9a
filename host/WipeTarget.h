#pragma once

#include <string>

#include "OwnedHandle.h"

/// A path as it stands at the moment when it is given, absolute, with its names as they were written: it is
/// checked, shown, listed and wiped in this one form.
class WipeTarget
{
public:
    /// Settles what a word of the command line names. Relative paths and paths of the forms \\.\, //?/ and
    /// X:name are made absolute, slashes, "." and ".." are resolved. Throws UsageError for what names no file
    /// or folder for certain: wildcards and characters that no name has, a drive without a path, a device,
    /// dots in a path that is taken literally; and for the root of a drive, a share or a volume.
    explicit WipeTarget(const std::wstring& word);

    /// For messages, and for the library, which takes each name as it stands: without \\?\ where a path of a
    /// drive or a share follows.
    [[nodiscard]] const std::wstring& text() const { return m_text; }
    /// For the system's calls: with \\?\.
    [[nodiscard]] const std::wstring& literal() const { return m_literal; }
    /// The folder that it is in, in the same form.
    [[nodiscard]] std::wstring parent() const;

private:
    std::wstring m_text;
    std::wstring m_literal;
};

/// The literal form of a path that a settled one leads to.
std::wstring literalPath(const std::wstring& text);

/// Whether a path is a symbolic link, a junction or a mount point, or something that cannot be told from one.
bool isLink(const std::wstring& literal);
