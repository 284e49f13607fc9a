#pragma once

#include <array>
#include <list>
#include <vector>

#include "core/win32/utils/lookup/include/HVKItem.h"

/// The request for one batch of files, as it goes over the wire:
///
///     offset 0  1 byte   first header byte
///            1  4        request id: three zero bytes and a random one
///            5  1        how many hashes, 1 to 255
///            6  1        second header byte
///            7  2        1, 0
///            9  20 each  the hashes, in the order of the items
class HVKRequest
{
public:
    static constexpr std::size_t kMostItems = 255;
    static constexpr std::size_t kHashLength = std::tuple_size_v<HVKItem::Hash>;
    static constexpr std::size_t kHeaderLength = 9;
    using Id = std::array<unsigned char, 4>;

    void setHeader(unsigned char first, unsigned char second) noexcept { m_first = first, m_second = second; }
    void addItem(const HVKItem& item) { m_items.push_back(item.getHash()); }
    /// Draws the id, and writes the buffer; the items are taken out as they are written. No items, or more
    /// than 255, give no buffer and the size 0, and stay.
    void build();

    [[nodiscard]] const std::vector<unsigned char>& getBuffer() const noexcept { return m_buffer; }
    [[nodiscard]] const Id& getId() const noexcept { return m_id; }
    /// How many hashes are in the buffer.
    [[nodiscard]] std::size_t getCount() const noexcept { return m_count; }

private:
    std::list<HVKItem::Hash> m_items; // not written yet
    std::size_t m_count = 0;
    unsigned char m_first = 0;
    unsigned char m_second = 0;
    Id m_id{};
    std::vector<unsigned char> m_buffer;
};
