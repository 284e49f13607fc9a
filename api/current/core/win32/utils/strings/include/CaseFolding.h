#pragma once

/// Single-character case folding to upper case, the same for every locale and thread.
namespace casefolding {
/// The folded form of all 65,536 UTF-16 code units; made on first use, never fails.
[[nodiscard]] const wchar_t* table() noexcept;

/// Folds one character; plain ASCII needs no table.
[[nodiscard]] inline wchar_t fold(wchar_t c) noexcept
{
    if (c < 0x80)
        return c >= L'a' && c <= L'z' ? static_cast<wchar_t>(c - (L'a' - L'A')) : c;
    return table()[c];
}
} // namespace casefolding
