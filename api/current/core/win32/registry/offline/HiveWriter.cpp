#include "core/win32/registry/offline/include/HiveWriter.h"

#include <algorithm>

#include "core/win32/registry/offline/include/HiveLayout.h"

namespace offline {
namespace {
using namespace layout;

constexpr std::size_t kHintLength = 4;

/// The hint stored with a key in "lf" lists: its first characters, or nothing when they do not fit.
std::uint32_t hint(const NameView& name) noexcept
{
    std::uint32_t hint = 0;
    for (std::size_t i = 0; i < std::min(name.size(), kHintLength); ++i) {
        if (name[i] > 0xFF)
            return 0;
        hint |= static_cast<std::uint32_t>(name[i]) << 8U * i;
    }
    return hint;
}

template <class Number>
constexpr Number roundUp(Number number, Number unit) noexcept
{
    return (number + unit - 1) / unit * unit;
}

/// In UTF-16, also for a Latin-1 name.
std::uint32_t wideBytes(const NameView& name) noexcept
{
    return static_cast<std::uint32_t>(name.size() * 2);
}
} // namespace

HiveWriter::HiveWriter(const Hive& hive) : m_hive(hive), m_security(hive.m_security.size())
{
    m_bytes.reserve(hive.m_bins.size() + std::size_t{2} * kPage);
    m_bytes.resize(kPage);
}

std::vector<std::byte> HiveWriter::write()
{
    std::vector<Step> steps;
    steps.push_back(writeKey(Hive::root(), kNoOffset));
    const std::uint32_t root = steps.back().offset;
    while (!steps.empty()) {
        Step& step = steps.back();
        const std::span<const KeyId> keys = m_hive.subKeys(step.key);
        if (step.next == keys.size()) {
            steps.pop_back();
            continue;
        }
        const std::uint32_t index = step.next++;
        const Step child = writeKey(keys[index], step.offset);
        enter(step, index, child.key, child.offset);
        if (!m_hive.subKeys(child.key).empty())
            steps.push_back(child);
    }
    closeBin();
    linkSecurity();
    writeBaseBlock(root);
    return std::move(m_bytes);
}

std::byte* HiveWriter::payload(std::uint32_t offset) noexcept
{
    return m_bytes.data() + kPage + offset + kCellHeader;
}

std::uint32_t HiveWriter::allocate(std::size_t size)
{
    if (size > kMostBins - kPage)
        throw long{kTooLarge};
    const std::uint32_t whole = roundUp(static_cast<std::uint32_t>(size) + kCellHeader, kUnit);
    std::uint32_t offset = m_cursor;
    if (whole <= m_limit - m_cursor)
        m_cursor += whole;
    else
        offset = newBin(whole);
    store(payload(offset) - kCellHeader, 0U - whole);
    return offset;
}

/// Begins a bin with a cell of that size in it. Of the two bins, the one with more space left is filled
/// further.
std::uint32_t HiveWriter::newBin(std::uint32_t size)
{
    const std::uint32_t binSize = roundUp(bin::kHeader + size, kPage);
    const auto begin = static_cast<std::uint32_t>(m_bytes.size() - kPage);
    if (binSize > kMostBins - begin)
        throw long{kTooLarge};
    m_bytes.resize(m_bytes.size() + binSize);
    std::byte* const header = m_bytes.data() + kPage + begin;
    store(header, bin::kSignature);
    store(header + bin::kOwnOffset, begin);
    store(header + bin::kSize, binSize);
    if (begin == 0)
        store(header + bin::kTime, m_hive.m_time);

    const std::uint32_t offset = begin + bin::kHeader;
    std::uint32_t cursor = offset + size;
    std::uint32_t limit = begin + binSize;
    if (limit - cursor > m_limit - m_cursor) {
        std::swap(cursor, m_cursor);
        std::swap(limit, m_limit);
    }
    if (cursor != limit)
        store(m_bytes.data() + kPage + cursor, limit - cursor);
    return offset;
}

void HiveWriter::closeBin()
{
    if (m_cursor != m_limit)
        store(m_bytes.data() + kPage + m_cursor, m_limit - m_cursor);
    m_cursor = m_limit;
}

HiveWriter::Step HiveWriter::writeKey(KeyId id, std::uint32_t parent)
{
    const Hive::Key& key = m_hive.m_keys[id];
    const NameView name = m_hive.name(id);
    const std::uint32_t offset = allocate(nk::kName + name.byteLength());
    constexpr unsigned kRewritten = nk::kVolatileKey | nk::kMountPoint | nk::kRootKey | nk::kLatin1Name;
    const unsigned flags = (key.flags & ~kRewritten) | (name.isLatin1() ? nk::kLatin1Name : 0U) |
                           (key.parent == Hive::kNone ? nk::kRootKey : 0U);

    std::uint32_t largestName = 0;
    std::uint32_t largestClass = 0;
    for (const KeyId each : m_hive.subKeys(id)) {
        largestName = std::max(largestName, wideBytes(m_hive.name(each)));
        largestClass = std::max<std::uint32_t>(largestClass, m_hive.m_keys[each].classLength);
    }
    std::byte* const record = payload(offset);
    store(record, nk::kSignature);
    store(record + nk::kFlags, static_cast<std::uint16_t>(flags));
    store(record + nk::kTime, key.time);
    store(record + nk::kAccess, key.access);
    store(record + nk::kParent, parent);
    store(record + nk::kSubKeys, key.subKeys.count);
    store(record + nk::kSubKeyList, kNoOffset);
    store(record + nk::kVolatileList, kNoOffset);
    store(record + nk::kValueList, kNoOffset);
    store(record + nk::kClass, kNoOffset);
    store(record + nk::kLargestName, largestName);
    store(record + nk::kUserFlags, key.userFlags);
    store(record + nk::kLargestClass, largestClass);
    store(record + nk::kNameLength, key.nameLength);
    store(record + nk::kClassLength, key.classLength);
    std::copy_n(name.bytes(), name.byteLength(), record + nk::kName);

    writeSecurity(key, offset);
    writeClass(key, offset);
    writeValues(id, offset);
    return {id, offset, writeLists(id, offset), 0};
}

void HiveWriter::writeSecurity(const Hive::Key& key, std::uint32_t record)
{
    Security& security = m_security[key.security];
    if (security.references++ == 0) {
        const std::span<const std::byte> descriptor = m_hive.m_security[key.security];
        security.offset = allocate(sk::kDescriptor + descriptor.size());
        std::byte* const cell = payload(security.offset);
        store(cell, sk::kSignature);
        store(cell + sk::kLength, static_cast<std::uint32_t>(descriptor.size()));
        std::copy(descriptor.begin(), descriptor.end(), cell + sk::kDescriptor);
        m_ring.push_back(key.security);
    }
    store(payload(record) + nk::kSecurity, security.offset);
}

void HiveWriter::writeClass(const Hive::Key& key, std::uint32_t record)
{
    if (key.classLength == 0)
        return;
    const std::uint32_t offset = allocate(key.classLength);
    std::copy_n(m_hive.at(key.className, (key.bits & Hive::kOwnedData) != 0), key.classLength,
                payload(offset));
    store(payload(record) + nk::kClass, offset);
}

void HiveWriter::writeValues(KeyId id, std::uint32_t record)
{
    if (const auto predefined = m_hive.m_predefined.find(id); predefined != m_hive.m_predefined.end()) {
        store(payload(record) + nk::kValues, predefined->second);
        return;
    }
    const std::span<const ValueId> values = m_hive.values(id);
    if (values.empty())
        return;
    const std::uint32_t list = allocate(values.size() * sizeof(std::uint32_t));
    std::uint32_t largestName = 0;
    std::uint32_t largestData = 0;
    for (std::size_t i = 0; i < values.size(); ++i) {
        const std::uint32_t offset = writeValue(values[i]);
        store(payload(list) + i * sizeof offset, offset);
        largestName = std::max(largestName, wideBytes(m_hive.valueName(values[i])));
        largestData = std::max(largestData, m_hive.m_values[values[i]].size);
    }
    std::byte* const key = payload(record);
    store(key + nk::kValues, static_cast<std::uint32_t>(values.size()));
    store(key + nk::kValueList, list);
    store(key + nk::kLargestValueName, largestName);
    store(key + nk::kLargestData, largestData);
}

std::uint32_t HiveWriter::writeValue(ValueId id)
{
    const Hive::Value& value = m_hive.m_values[id];
    const NameView name = m_hive.valueName(id);
    const std::uint32_t offset = allocate(vk::kName + name.byteLength());
    std::byte* record = payload(offset);
    store(record, vk::kSignature);
    store(record + vk::kNameLength, value.nameLength);
    store(record + vk::kType, value.type);
    const unsigned flags =
        (value.flags & ~unsigned{vk::kLatin1Name}) | (name.isLatin1() ? vk::kLatin1Name : 0U);
    store(record + vk::kFlags, static_cast<std::uint16_t>(flags));
    std::copy_n(name.bytes(), name.byteLength(), record + vk::kName);
    if (value.size > vk::kMostInside) {
        store(record + vk::kDataSize, value.size);
        const std::uint32_t data = writeData(id);
        store(payload(offset) + vk::kData, data);
        return offset;
    }
    store(record + vk::kDataSize, value.size | vk::kInside);
    m_hive.forEachPart(id, [&](std::span<const std::byte> part) {
        std::copy(part.begin(), part.end(), record + vk::kData);
    });
    return offset;
}

std::uint32_t HiveWriter::writeData(ValueId id)
{
    const std::uint32_t size = m_hive.m_values[id].size;
    if (size > db::kSegment && m_hive.m_minor >= db::kOldest)
        return writeSegments(id);
    const std::uint32_t offset = allocate(size);
    std::byte* target = payload(offset);
    m_hive.forEachPart(
        id, [&](std::span<const std::byte> part) { target = std::copy(part.begin(), part.end(), target); });
    return offset;
}

std::uint32_t HiveWriter::writeSegments(ValueId id)
{
    const std::uint32_t size = m_hive.m_values[id].size;
    const std::uint32_t count = (size + db::kSegment - 1) / db::kSegment;
    if (count > 0xFFFF)
        throw long{kTooLarge};
    const std::uint32_t offset = allocate(db::kRecord);
    const std::uint32_t list = allocate(count * sizeof count);
    store(payload(offset), db::kSignature);
    store(payload(offset) + db::kCount, static_cast<std::uint16_t>(count));
    store(payload(offset) + db::kList, list);
    std::uint32_t index = 0;
    m_hive.forEachPart(id, [&](std::span<const std::byte> part) {
        // Segmented data has segments of the same size as ours.
        for (; !part.empty(); ++index) {
            const std::size_t length = std::min<std::size_t>(part.size(), db::kSegment);
            const std::uint32_t segment = allocate(length + db::kPadding);
            std::copy_n(part.begin(), length, payload(segment));
            store(payload(list) + index * sizeof segment, segment);
            part = part.subspan(length);
        }
    });
    return offset;
}

std::uint32_t HiveWriter::writeLeaf(std::size_t count)
{
    const std::uint32_t leaf = allocate(list::kEntries + count * list::kWideEntry);
    store(payload(leaf), m_hive.m_minor >= 5 ? list::kHashed : list::kHinted);
    store(payload(leaf) + list::kCount, static_cast<std::uint16_t>(count));
    return leaf;
}

/// The lists are written before their keys, which are entered one by one.
std::uint32_t HiveWriter::writeLists(KeyId id, std::uint32_t record)
{
    const std::size_t count = m_hive.subKeys(id).size();
    if (count == 0)
        return kNoOffset;
    std::uint32_t top = 0;
    if (count <= list::kMostWide) {
        top = writeLeaf(count);
    } else {
        const std::size_t leaves = (count + list::kMostWide - 1) / list::kMostWide;
        if (leaves > 0xFFFF)
            throw long{kTooLarge};
        top = allocate(list::kEntries + leaves * sizeof top);
        store(payload(top), list::kLists);
        store(payload(top) + list::kCount, static_cast<std::uint16_t>(leaves));
        for (std::size_t i = 0; i < leaves; ++i) {
            const std::uint32_t leaf = writeLeaf(std::min(list::kMostWide, count - i * list::kMostWide));
            store(payload(top) + list::kEntries + i * sizeof leaf, leaf);
        }
    }
    store(payload(record) + nk::kSubKeyList, top);
    return top;
}

void HiveWriter::enter(const Step& step, std::uint32_t index, KeyId child, std::uint32_t offset) noexcept
{
    std::uint32_t leaf = step.lists;
    if (m_hive.subKeys(step.key).size() > list::kMostWide) {
        leaf = load32(payload(leaf) + list::kEntries + index / list::kMostWide * sizeof leaf);
        index %= list::kMostWide;
    }
    std::byte* const entry = payload(leaf) + list::kEntries + index * list::kWideEntry;
    const NameView name = m_hive.name(child);
    store(entry, offset);
    store(entry + list::kHint, m_hive.m_minor >= 5 ? name.hash() : hint(name));
}

void HiveWriter::linkSecurity() noexcept
{
    for (std::size_t i = 0; i < m_ring.size(); ++i) {
        const Security& security = m_security[m_ring[i]];
        std::byte* const cell = payload(security.offset);
        store(cell + sk::kNext, m_security[m_ring[(i + 1) % m_ring.size()]].offset);
        store(cell + sk::kPrevious, m_security[m_ring[(i + m_ring.size() - 1) % m_ring.size()]].offset);
        store(cell + sk::kReferences, security.references);
    }
}

void HiveWriter::writeBaseBlock(std::uint32_t root) noexcept
{
    std::byte* const block = m_bytes.data();
    store(block, base::kSignature);
    store(block + base::kPrimary, m_hive.m_sequence);
    store(block + base::kSecondary, m_hive.m_sequence);
    store(block + base::kTime, m_hive.m_time);
    store(block + base::kMajor, std::uint32_t{1});
    store(block + base::kMinor, m_hive.m_minor);
    store(block + base::kFormat, std::uint32_t{1});
    store(block + base::kRoot, root);
    store(block + base::kBinsSize, static_cast<std::uint32_t>(m_bytes.size() - kPage));
    store(block + base::kClustering, std::uint32_t{1});
    std::copy(m_hive.m_fileName.begin(), m_hive.m_fileName.end(), block + base::kName);
    store(block + base::kChecksum, checksum(block));
}
} // namespace offline
