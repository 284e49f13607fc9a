#pragma once

#include <cstdint>

/// The key of a category or of work: a number, or a name compared without regard to case.
struct ITHPIdentifier
{
    static constexpr std::uint32_t kNumber = 0;
    static constexpr std::uint32_t kName = 1;

    virtual ~ITHPIdentifier() = default;
    /// kName or kNumber.
    [[nodiscard]] virtual std::uint32_t getIDType() const noexcept = 0;
    /// The name; null for a number. Owned by the key.
    [[nodiscard]] virtual const wchar_t* getName() const noexcept = 0;
    /// The number; 0 for a name.
    [[nodiscard]] virtual std::uint32_t getID() const noexcept = 0;
};
