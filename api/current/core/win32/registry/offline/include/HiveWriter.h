#pragma once

#include "core/win32/registry/offline/include/HiveFile.h"

namespace offline {
/// Writes a hive's tree as a new file, from the root down: a key's record, then its class name, its values
/// and the lists of its sub-keys, then the sub-keys. A bin is one page, or as large as its largest cell
/// needs.
class HiveWriter
{
public:
    explicit HiveWriter(const Hive& hive);

    /// Once. Raises kTooLarge.
    [[nodiscard]] std::vector<std::byte> write();

private:
    /// A key whose sub-keys are being written.
    struct Step
    {
        KeyId key;
        std::uint32_t offset;
        std::uint32_t lists; ///< offset of its list of sub-keys, or of the list of lists
        std::uint32_t next;
    };

    /// Allocates a zeroed payload. Returns the cell's offset.
    [[nodiscard]] std::uint32_t allocate(std::size_t size);
    [[nodiscard]] std::uint32_t newBin(std::uint32_t size);
    /// Closes the bin that is being filled.
    void closeBin();
    [[nodiscard]] std::byte* payload(std::uint32_t offset) noexcept;

    [[nodiscard]] Step writeKey(KeyId id, std::uint32_t parent);
    void writeClass(const Hive::Key& key, std::uint32_t record);
    void writeSecurity(const Hive::Key& key, std::uint32_t record);
    void writeValues(KeyId id, std::uint32_t record);
    [[nodiscard]] std::uint32_t writeValue(ValueId id);
    [[nodiscard]] std::uint32_t writeData(ValueId id);
    [[nodiscard]] std::uint32_t writeSegments(ValueId id);
    [[nodiscard]] std::uint32_t writeLists(KeyId id, std::uint32_t record);
    [[nodiscard]] std::uint32_t writeLeaf(std::size_t count);
    void enter(const Step& step, std::uint32_t index, KeyId child, std::uint32_t offset) noexcept;
    void linkSecurity() noexcept;
    void writeBaseBlock(std::uint32_t root) noexcept;

    struct Security
    {
        std::uint32_t offset = 0xFFFFFFFF;
        std::uint32_t references = 0;
    };

    const Hive& m_hive;
    std::vector<std::byte> m_bytes;
    std::uint32_t m_cursor = 0; ///< of the bin that is being filled, like the next
    std::uint32_t m_limit = 0;
    std::vector<Security> m_security;  ///< as the hive numbers them
    std::vector<std::uint32_t> m_ring; ///< the written ones, in order
};
} // namespace offline
