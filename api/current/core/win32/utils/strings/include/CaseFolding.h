#pragma once

#include <array>
#include <string>
#include <string_view>

/// Single-character case folding to upper case, the same for every locale and thread.
namespace casefolding {
/// The folded form of all 65,536 UTF-16 code units; built on first use. Never fails.
[[nodiscard]] const wchar_t* table() noexcept;

/// Folds one character; plain ASCII needs no table.
[[nodiscard]] inline wchar_t fold(wchar_t c) noexcept
{
    if (c < 0x80)
        return c >= L'a' && c <= L'z' ? static_cast<wchar_t>(c - (L'a' - L'A')) : c;
    return table()[c];
}

/// A text folded once, to be compared with many patterns. Short texts allocate nothing; long ones may raise
/// std::bad_alloc.
class FoldedText
{
public:
    explicit FoldedText(std::wstring_view text)
    {
        wchar_t* target = m_short.data();
        if (text.size() >= m_short.size()) {
            m_long.resize(text.size());
            target = m_long.data();
        }
        // Without a branch, so compilers fold several characters at once. Most texts are plain ASCII.
        unsigned bits = 0;
        for (std::size_t i = 0; i < text.size(); ++i) {
            const unsigned c = text[i];
            bits |= c;
            target[i] = static_cast<wchar_t>(c - (c - L'a' <= L'z' - L'a' ? L'a' - L'A' : 0));
        }
        for (std::size_t i = 0; bits >= 0x80 && i < text.size(); ++i)
            target[i] = fold(text[i]);
        m_view = std::wstring_view(target, text.size());
    }
    FoldedText(const FoldedText&) = delete;
    FoldedText& operator=(const FoldedText&) = delete;

    [[nodiscard]] std::wstring_view view() const noexcept { return m_view; }

private:
    std::array<wchar_t, 264> m_short; // NOLINT: only what is used is ever written
    std::wstring m_long;
    std::wstring_view m_view;
};
} // namespace casefolding
