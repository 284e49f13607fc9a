#pragma once

#include <cstddef>
#include <cstdint>

namespace crc {
/// Updates the register with bytes; it is not inverted before or after.
using Take = std::uint32_t(std::uint32_t value, const unsigned char* bytes, std::size_t size) noexcept;

/// Eight bytes at a time through tables.
Take takePortably;
/// By carry-less multiplication, as in Gopal, Ozturk, Guilford and others, "Fast CRC Computation for Generic
/// Polynomials Using PCLMULQDQ Instruction", Intel, 2009. Only where processor::features().clmul.
Take takeWithExtensions;
/// The same, twice as wide. Only where processor::features().wideClmul.
Take takeWithWideExtensions;
/// The fastest of these that this processor supports.
[[nodiscard]] Take& fastestTake() noexcept;
} // namespace crc

/// CRC-32 with the polynomial of Ethernet, ZIP and PNG (reflected 0xEDB88320). No operation can fail.
class CRC32
{
public:
    using Digest = std::uint32_t;

    /// Continues from `start`, the checksum of the preceding bytes.
    explicit CRC32(Digest start = 0, crc::Take& take = crc::fastestTake()) noexcept
        : m_take(&take), m_value(~start)
    {
    }

    void update(const void* data, std::size_t size) noexcept
    {
        m_value = m_take(m_value, static_cast<const unsigned char*>(data), size);
    }
    [[nodiscard]] Digest finish() const noexcept { return ~m_value; }

private:
    crc::Take* m_take;
    std::uint32_t m_value;
};
