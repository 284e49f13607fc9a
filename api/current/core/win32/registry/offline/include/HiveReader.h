#pragma once

#include <unordered_map>

#include "core/win32/registry/offline/include/HiveFile.h"

namespace offline {
/// Reads a hive's bytes into its tree in one pass from the root down.
///
/// A scan of all bins first finds where cells begin. Each cell is used only once, so loops, shared cells and
/// cells within cells are impossible. Only security descriptors are meant to be shared; they are looked up
/// among those read before.
class HiveReader
{
public:
    /// With `losses`, errors are recorded there and their place is omitted; without it they are raised.
    HiveReader(std::span<const std::byte> bytes, std::vector<Loss>* losses) noexcept
        : m_bytes(bytes), m_losses(losses)
    {
    }

    /// Once.
    [[nodiscard]] Hive read();

private:
    using Cell = std::span<const std::byte>; ///< a payload; empty: there is none

    /// A key whose sub-keys are being read. Its list holds the offsets of those to come and the numbers of
    /// those read.
    struct Step
    {
        KeyId key;
        std::uint32_t offset; ///< of its cell
        std::uint32_t next;
        std::uint32_t kept;
    };

    /// Cells still to be scanned.
    struct Span
    {
        std::uint32_t begin;
        std::uint32_t end;
    };

    void readBaseBlock();
    [[nodiscard]] bool isBaseBlockRight() const noexcept;
    void scanBins();
    [[nodiscard]] std::uint32_t binSize(std::uint32_t offset) const noexcept;
    void scanCells(std::span<Span> spans);
    void markRough(std::uint32_t begin, std::uint32_t end);

    [[nodiscard]] bool isUntaken(std::uint32_t offset) const noexcept;
    [[nodiscard]] bool isRoughCell(std::uint32_t offset) const noexcept;
    /// The cell there if it is in use and nothing has taken it yet.
    [[nodiscard]] Cell peek(std::uint32_t offset) const noexcept;
    /// The same if it is such a record.
    [[nodiscard]] Cell peekRecord(std::uint32_t offset, std::uint16_t signature,
                                  std::size_t size) const noexcept;
    /// Takes a cell that was peeked at, and returns it.
    Cell taken(std::uint32_t offset, Cell cell) noexcept;
    [[nodiscard]] Cell take(std::uint32_t offset) noexcept { return taken(offset, peek(offset)); }
    [[nodiscard]] Cell takeRecord(std::uint32_t offset, std::uint16_t signature, std::size_t size) noexcept
    {
        return taken(offset, peekRecord(offset, signature, size));
    }
    /// In the bins.
    [[nodiscard]] std::uint32_t placeOf(const std::byte* at) const noexcept
    {
        return static_cast<std::uint32_t>(at - m_hive.m_bins.data());
    }

    [[nodiscard]] bool findRoot();
    void readTree(const Step& top);
    void adoptKeys();
    bool readKey(std::uint32_t offset, KeyId parent, std::uint32_t parentOffset);
    void readClass(Hive::Key& key, KeyId id, Cell record);
    void readSecurity(Hive::Key& key, KeyId id, std::uint32_t offset);
    void readSubKeyLists(KeyId id, Cell record);
    [[nodiscard]] bool readLeaf(Cell leaf);
    void sortSubKeys(KeyId id);
    void readValues(KeyId id, Cell record);
    [[nodiscard]] std::uint32_t countValues(Cell list) const noexcept;
    [[nodiscard]] bool mayRepeatAName(std::span<const ValueId> values) const noexcept;
    void dropSecondValues(KeyId id);
    void readValue(KeyId id, std::uint32_t offset);
    [[nodiscard]] bool readData(Hive::Value& value, Cell record);
    [[nodiscard]] bool readSegments(Hive::Value& value, Cell record);
    /// Raises, or records what is omitted; `offset` counts in the bins.
    void lose(LossKind kind, KeyId key, std::uint32_t offset);

    std::span<const std::byte> m_bytes;
    std::vector<Loss>* m_losses;
    Hive m_hive;
    std::uint32_t m_root = 0;
    std::vector<std::uint64_t> m_untaken; ///< a bit for each place where an allocated cell begins
    std::size_t m_keyCount = 0;           ///< cells that look like keys; likewise for values
    std::size_t m_valueCount = 0;
    bool m_isRough = false;   ///< some of these bits only mark where a cell may begin
    std::uint64_t m_left = 0; ///< in that case the bytes that cells may still take
    std::unordered_map<std::uint32_t, std::uint32_t> m_securityAt;
    std::unordered_map<std::string_view, std::uint32_t> m_securityLike;
    std::optional<std::uint32_t> m_lastSecurity; ///< the last offset looked up, and its result
    std::uint32_t m_lastSecurityIndex = 0;
    std::vector<Step> m_steps;
};
} // namespace offline
