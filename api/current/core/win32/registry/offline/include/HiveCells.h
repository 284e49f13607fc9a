#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>
#include <vector>

#include "core/win32/registry/offline/include/HiveLayout.h"

namespace offline {
/// The allocated cells in a hive's bins. Each can be taken once, so loops, shared cells and cells within
/// cells are impossible. Offsets count in the bins.
class HiveCells
{
public:
    using Cell = std::span<const std::byte>; ///< a payload; empty: there is none

    /// Finds where the cells begin, once. `onDamage` gets the place of each wrong bin or cell; unless it
    /// throws, a cell may then begin anywhere in the rest of that bin. `isFast`: not in the order of the
    /// file.
    void scan(std::span<const std::byte> bins, bool isFast,
              const std::function<void(std::uint32_t)>& onDamage);
    /// Cells that look like keys, and like values.
    [[nodiscard]] std::size_t keyCount() const noexcept { return m_keyCount; }
    [[nodiscard]] std::size_t valueCount() const noexcept { return m_valueCount; }

    /// Whether a cell may begin there that nothing has taken yet.
    [[nodiscard]] bool isUntaken(std::uint32_t offset) const noexcept
    {
        return offset % layout::kUnit == 0 && offset < m_bins.size() &&
               (m_untaken[offset / layout::kUnit / kBitsPerWord] >> (offset / layout::kUnit % kBitsPerWord) &
                1U) != 0;
    }
    /// The cell there if it is in use and nothing has taken it yet.
    [[nodiscard]] Cell peek(std::uint32_t offset) const noexcept
    {
        if (!isUntaken(offset) || (m_isRough && !isRoughCell(offset)))
            return {};
        const std::byte* const cell = m_bins.data() + offset;
        return {cell + layout::kCellHeader, sizeOf(cell) - layout::kCellHeader};
    }
    /// The same if it is such a record.
    [[nodiscard]] Cell peekRecord(std::uint32_t offset, std::uint16_t signature,
                                  std::size_t size) const noexcept
    {
        const Cell cell = peek(offset);
        return cell.size() >= size && layout::load16(cell.data()) == signature ? cell : Cell{};
    }
    /// Takes a cell that was peeked at, and returns it.
    Cell taken(std::uint32_t offset, Cell cell) noexcept
    {
        if (cell.empty())
            return cell;
        m_untaken[offset / layout::kUnit / kBitsPerWord] &=
            ~(1ULL << (offset / layout::kUnit % kBitsPerWord));
        if (m_isRough)
            m_left -= cell.size() + layout::kCellHeader;
        return cell;
    }
    Cell take(std::uint32_t offset) noexcept { return taken(offset, peek(offset)); }
    [[nodiscard]] Cell takeRecord(std::uint32_t offset, std::uint16_t signature, std::size_t size) noexcept
    {
        return taken(offset, peekRecord(offset, signature, size));
    }

private:
    static constexpr std::uint32_t kBitsPerWord = 64;

    /// Cells still to be scanned.
    struct Span
    {
        std::uint32_t begin;
        std::uint32_t end;
    };

    [[nodiscard]] static std::uint32_t sizeOf(const std::byte* cell) noexcept
    {
        // Negative: allocated. The lowest number has no positive counterpart, but is far too large anyway.
        return 0U - layout::load32(cell);
    }
    [[nodiscard]] std::uint32_t binSize(std::uint32_t offset) const noexcept;
    void scanCells(std::span<Span> spans, const std::function<void(std::uint32_t)>& onDamage);
    void markRough(std::uint32_t begin, std::uint32_t end);
    [[nodiscard]] bool isRoughCell(std::uint32_t offset) const noexcept;

    std::span<const std::byte> m_bins;
    std::vector<std::uint64_t> m_untaken; ///< a bit for each place where an allocated cell begins
    std::size_t m_keyCount = 0;
    std::size_t m_valueCount = 0;
    bool m_isRough = false;   ///< some of these bits only mark where a cell may begin
    std::uint64_t m_left = 0; ///< in that case the bytes that cells may still take
};
} // namespace offline
