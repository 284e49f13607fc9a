#pragma once

#include <compare>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

/// Names in registry hive files: Latin-1 or UTF-16, compared without regard to case. The hive engine includes
/// no Windows header: the same files are built, tested and fuzzed on other systems.
namespace offline {
/// The upper-case form of all 65,536 UTF-16 code units. The system finds keys by binary search in its own
/// order, so each program with the engine defines this function; the library asks the system
/// (SystemUpperCase.cpp).
[[nodiscard]] const char16_t* upperCaseTable() noexcept;

/// A view of a name, in a hive's bytes or elsewhere.
class NameView
{
public:
    NameView() noexcept = default;
    /// `length` in bytes; even for a UTF-16 name, which need not be aligned.
    NameView(const std::byte* bytes, std::size_t length, bool isLatin1) noexcept
        : m_bytes(bytes), m_length(length), m_isLatin1(isLatin1)
    {
    }
    explicit NameView(std::u16string_view text) noexcept
        : NameView(reinterpret_cast<const std::byte*>(text.data()), text.size() * 2, false)
    {
    }

    /// In UTF-16 code units.
    [[nodiscard]] std::size_t size() const noexcept { return m_isLatin1 ? m_length : m_length / 2; }
    [[nodiscard]] char16_t operator[](std::size_t index) const noexcept
    {
        if (m_isLatin1)
            return static_cast<char16_t>(m_bytes[index]);
        const unsigned low = static_cast<unsigned>(m_bytes[2 * index]);
        const unsigned high = static_cast<unsigned>(m_bytes[2 * index + 1]);
        return static_cast<char16_t>(low | high << 8U);
    }
    [[nodiscard]] std::u16string text() const;
    /// Whether it can be part of a path: it contains neither a backslash nor a zero, as hostile names do.
    [[nodiscard]] bool isOfPaths() const noexcept;
    [[nodiscard]] const std::byte* bytes() const noexcept { return m_bytes; }
    [[nodiscard]] std::size_t byteLength() const noexcept { return m_length; }
    [[nodiscard]] bool isLatin1() const noexcept { return m_isLatin1; }

    /// The system's order of keys: by upper-case code units, the shorter one first.
    [[nodiscard]] std::strong_ordering compare(const NameView& other) const noexcept;
    [[nodiscard]] bool equals(const NameView& other) const noexcept
    {
        return size() == other.size() && compare(other) == std::strong_ordering::equal;
    }
    /// The hash stored with a key in "lh" lists: h = 37 * h + upper-case code unit, in 32 bits.
    [[nodiscard]] std::uint32_t hash() const noexcept;

private:
    const std::byte* m_bytes = nullptr;
    std::size_t m_length = 0;
    bool m_isLatin1 = true;
};
} // namespace offline
