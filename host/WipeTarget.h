#pragma once

#include <string>

#include "OwnedHandle.h"

/// A path, resolved when it is given, absolute, with its names as written: it is checked, shown, listed and
/// wiped in this one form.
class WipeTarget
{
public:
    /// Resolves a word of the command line. Relative paths and paths of the forms \\.\, //?/ and X:name are
    /// made absolute; slashes, "." and ".." are resolved. Throws UsageError for what does not clearly name a
    /// file or folder: wildcards and invalid characters, a drive without a path, a device, dots in a literal
    /// path; and for the root of a drive, a share or a volume.
    explicit WipeTarget(const std::wstring& word);

    /// For messages, and for the library, which takes each name literally: without \\?\ where a path of a
    /// drive or a share follows.
    [[nodiscard]] const std::wstring& text() const { return m_text; }
    /// For the system's calls: with \\?\.
    [[nodiscard]] const std::wstring& literal() const { return m_literal; }
    /// Its parent folder, in the same form.
    [[nodiscard]] std::wstring parent() const;

private:
    std::wstring m_text;
    std::wstring m_literal;
};

/// The literal form of a resolved path.
std::wstring literalPath(const std::wstring& text);

/// Whether a path is a symbolic link, a junction or a mount point, or something that may be one.
bool isLink(const std::wstring& literal);
