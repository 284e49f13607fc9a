#include "core/win32/registry/offline/include/HiveCells.h"

namespace offline {
namespace {
using namespace layout;

constexpr std::size_t kBinsAtOnce = 8;

bool isInUse(const std::byte* cell) noexcept
{
    return load<std::int32_t>(cell) < 0;
}
} // namespace

/// Returns 0 when there is no bin.
std::uint32_t HiveCells::binSize(std::uint32_t offset) const noexcept
{
    const std::byte* const header = m_bins.data() + offset;
    const std::uint32_t size = load32(header + bin::kSize);
    const bool isRight = load32(header) == bin::kSignature && load32(header + bin::kOwnOffset) == offset &&
                         size != 0 && size % kPage == 0 && size <= m_bins.size() - offset;
    return isRight ? size : 0;
}

void HiveCells::scan(std::span<const std::byte> bins, bool isFast,
                     const std::function<void(std::uint32_t)>& onDamage)
{
    m_bins = bins;
    const auto end = static_cast<std::uint32_t>(bins.size());
    m_untaken.resize((end / kUnit + kBitsPerWord - 1) / kBitsPerWord);
    m_left = end;
    const std::size_t atOnce = isFast ? kBinsAtOnce : 1;
    std::vector<Span> waiting;
    bool isTold = false;
    for (std::uint32_t offset = 0; offset != end;) {
        const std::uint32_t size = binSize(offset);
        if (size == 0 && !isTold) // adjacent ones are recorded once
            onDamage(offset);
        isTold = size == 0;
        if (size == 0)
            markRough(offset, offset + kPage);
        else
            waiting.push_back({offset + bin::kHeader, offset + size});
        if (waiting.size() == atOnce) {
            scanCells(waiting, onDamage);
            waiting.clear();
        }
        offset += size == 0 ? kPage : size;
    }
    scanCells(waiting, onDamage);
}

/// Each cell says where the next one is, so the processor waits for memory in each bin. It does so in all of
/// these at once.
void HiveCells::scanCells(std::span<Span> spans, const std::function<void(std::uint32_t)>& onDamage)
{
    const std::byte* const bins = m_bins.data();
    std::uint64_t* const untaken = m_untaken.data();
    std::size_t keys = 0;
    std::size_t values = 0;
    for (bool isDone = false; !isDone;) {
        isDone = true;
        for (auto& [begin, end] : spans) {
            if (begin == end)
                continue;
            isDone = false;
            const std::uint32_t offset = begin;
            const bool isUsed = isInUse(bins + offset);
            const std::uint32_t size = isUsed ? sizeOf(bins + offset) : load32(bins + offset);
            if (size == 0 || size % kUnit != 0 || size > end - offset) {
                onDamage(offset);
                markRough(offset, end);
                begin = end;
                continue;
            }
            begin += size;
            // Without branches: what kind the next cell is cannot be predicted.
            const std::uint16_t kind = load16(bins + offset + kCellHeader);
            untaken[offset / kUnit / kBitsPerWord] |= std::uint64_t{isUsed}
                                                      << (offset / kUnit % kBitsPerWord);
            keys += static_cast<std::size_t>(isUsed & (kind == nk::kSignature) & (size > nk::kName));
            values += static_cast<std::size_t>(isUsed & (kind == vk::kSignature) & (size > vk::kName));
        }
    }
    m_keyCount += keys;
    m_valueCount += values;
}

/// Where the chain of cells is broken, a cell may begin anywhere.
void HiveCells::markRough(std::uint32_t begin, std::uint32_t end)
{
    m_isRough = true;
    for (std::uint32_t unit = begin / kUnit; unit != end / kUnit; ++unit)
        m_untaken[unit / kBitsPerWord] |= 1ULL << (unit % kBitsPerWord);
}

/// In rough bins nothing was checked before. Cells may overlap there, but only up to a limit.
bool HiveCells::isRoughCell(std::uint32_t offset) const noexcept
{
    const std::byte* const cell = m_bins.data() + offset;
    const std::uint32_t size = sizeOf(cell);
    return isInUse(cell) && size % kUnit == 0 && size <= m_bins.size() - offset && size <= m_left;
}
} // namespace offline
