#include "core/win32/registry/offline/include/HiveReader.h"

#include <algorithm>
#include <compare>

#include "core/win32/registry/offline/include/HiveLayout.h"

namespace offline {
namespace {
using namespace layout;

constexpr std::uint32_t kBitsPerWord = 64;
constexpr std::size_t kBinsAtOnce = 8;

std::uint32_t cellSize(const std::byte* cell) noexcept
{
    // Negative: allocated. The lowest number has no positive counterpart, but is far too large anyway.
    return 0U - load32(cell);
}

bool isInUse(const std::byte* cell) noexcept
{
    return load<std::int32_t>(cell) < 0;
}

/// Whether it is the signature of a list of keys, not of lists.
bool isLeaf(std::uint16_t kind) noexcept
{
    return kind == list::kPlain || kind == list::kHinted || kind == list::kHashed;
}

bool isList(std::span<const std::byte> cell) noexcept
{
    return cell.size() >= list::kEntries &&
           (isLeaf(load16(cell.data())) || load16(cell.data()) == list::kLists);
}
} // namespace

Hive HiveReader::read()
{
    if (m_bytes.size() < kPage)
        throw long{kBadDatabase};
    readBaseBlock();
    scanBins();
    // The scan's counts of keys and values are nearly always right. Growing would cost more than reading.
    m_hive.m_keys.reserve(m_keyCount);
    m_hive.m_values.reserve(m_valueCount);
    m_hive.m_lists.reserve(m_keyCount + m_valueCount);
    if (!readKey(m_root, Hive::kNone, kNoOffset) && !findRoot())
        throw long{kBadDatabase};
    readTree({Hive::root(), m_root, 0, 0});
    if (m_losses != nullptr)
        adoptKeys();
    return std::move(m_hive);
}

void HiveReader::lose(LossKind kind, KeyId key, std::uint32_t offset)
{
    if (m_losses == nullptr)
        throw long{kDamagedHive};
    m_losses->push_back({kind, key, offset == kNoOffset ? offset : offset + kPage});
}

bool HiveReader::isBaseBlockRight() const noexcept
{
    const std::byte* const block = m_bytes.data();
    const std::uint32_t minor = load32(block + base::kMinor);
    const std::uint32_t size = load32(block + base::kBinsSize);
    return load32(block) == base::kSignature && load32(block + base::kChecksum) == checksum(block) &&
           load32(block + base::kMajor) == 1 && minor >= base::kOldest && minor <= base::kNewest &&
           load32(block + base::kType) == 0 && load32(block + base::kFormat) == 1 && size != 0 &&
           size % kPage == 0 && size <= kMostBins;
}

void HiveReader::readBaseBlock()
{
    const std::byte* const block = m_bytes.data();
    const std::size_t there = std::min<std::size_t>((m_bytes.size() - kPage) / kPage * kPage, kMostBins);
    const bool isRight = isBaseBlockRight();
    if (!isRight && m_losses == nullptr)
        throw long{kBadDatabase};

    std::size_t size = isRight ? load32(block + base::kBinsSize) : there;
    m_hive.m_bins = m_bytes.subspan(kPage, std::min(size, there));
    if (!isRight)
        m_losses->push_back({LossKind::kBaseBlock, Hive::root(), 0});
    else if (size > there)
        lose(LossKind::kBin, Hive::root(), static_cast<std::uint32_t>(there));
    m_root = load32(block + base::kRoot);
    m_hive.m_sequence = load32(block + base::kPrimary);
    m_hive.m_isClean = m_hive.m_sequence == load32(block + base::kSecondary);
    m_hive.m_time = load<HiveTime>(block + base::kTime);
    if (isRight)
        m_hive.m_minor = load32(block + base::kMinor);
    std::copy_n(block + base::kName, m_hive.m_fileName.size(), m_hive.m_fileName.begin());
}

/// Returns 0 when there is no bin.
std::uint32_t HiveReader::binSize(std::uint32_t offset) const noexcept
{
    const std::byte* const header = m_hive.m_bins.data() + offset;
    const std::uint32_t size = load32(header + bin::kSize);
    const bool isRight = load32(header) == bin::kSignature && load32(header + bin::kOwnOffset) == offset &&
                         size != 0 && size % kPage == 0 && size <= m_hive.m_bins.size() - offset;
    return isRight ? size : 0;
}

void HiveReader::scanBins()
{
    const auto end = static_cast<std::uint32_t>(m_hive.m_bins.size());
    m_untaken.resize((end / kUnit + kBitsPerWord - 1) / kBitsPerWord);
    m_left = end;
    // A salvage records errors in the order of the file.
    const std::size_t atOnce = m_losses == nullptr ? kBinsAtOnce : 1;
    std::vector<Span> waiting;
    bool isTold = false;
    for (std::uint32_t offset = 0; offset != end;) {
        const std::uint32_t size = binSize(offset);
        if (size == 0 && !isTold) // adjacent ones are recorded once
            lose(LossKind::kBin, Hive::root(), offset);
        isTold = size == 0;
        if (size == 0)
            markRough(offset, offset + kPage);
        else
            waiting.push_back({offset + bin::kHeader, offset + size});
        if (waiting.size() == atOnce) {
            scanCells(waiting);
            waiting.clear();
        }
        offset += size == 0 ? kPage : size;
    }
    scanCells(waiting);
}

/// Each cell says where the next one is, so the processor waits for memory in each bin. It does so in all of
/// these at once.
void HiveReader::scanCells(std::span<Span> spans)
{
    const std::byte* const bins = m_hive.m_bins.data();
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
            const std::uint32_t size = isUsed ? cellSize(bins + offset) : load32(bins + offset);
            if (size == 0 || size % kUnit != 0 || size > end - offset) {
                lose(LossKind::kBin, Hive::root(), offset);
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
void HiveReader::markRough(std::uint32_t begin, std::uint32_t end)
{
    m_isRough = true;
    for (std::uint32_t unit = begin / kUnit; unit != end / kUnit; ++unit)
        m_untaken[unit / kBitsPerWord] |= 1ULL << (unit % kBitsPerWord);
}

inline bool HiveReader::isUntaken(std::uint32_t offset) const noexcept
{
    return offset % kUnit == 0 && offset < m_hive.m_bins.size() &&
           (m_untaken[offset / kUnit / kBitsPerWord] >> (offset / kUnit % kBitsPerWord) & 1U) != 0;
}

/// In rough bins nothing was checked before. Cells may overlap there, but only up to a limit.
bool HiveReader::isRoughCell(std::uint32_t offset) const noexcept
{
    const std::byte* const cell = m_hive.m_bins.data() + offset;
    const std::uint32_t size = cellSize(cell);
    return isInUse(cell) && size % kUnit == 0 && size <= m_hive.m_bins.size() - offset && size <= m_left;
}

inline HiveReader::Cell HiveReader::peek(std::uint32_t offset) const noexcept
{
    if (!isUntaken(offset) || (m_isRough && !isRoughCell(offset)))
        return {};
    const std::byte* const cell = m_hive.m_bins.data() + offset;
    return {cell + kCellHeader, cellSize(cell) - kCellHeader};
}

inline HiveReader::Cell HiveReader::peekRecord(std::uint32_t offset, std::uint16_t signature,
                                               std::size_t size) const noexcept
{
    const Cell cell = peek(offset);
    return cell.size() >= size && load16(cell.data()) == signature ? cell : Cell{};
}

inline HiveReader::Cell HiveReader::taken(std::uint32_t offset, Cell cell) noexcept
{
    if (cell.empty())
        return cell;
    m_untaken[offset / kUnit / kBitsPerWord] &= ~(1ULL << (offset / kUnit % kBitsPerWord));
    if (m_isRough)
        m_left -= cell.size() + kCellHeader;
    return cell;
}

/// The first key marked as a root, for when the base block does not point to one.
bool HiveReader::findRoot()
{
    for (std::uint32_t offset = bin::kHeader; offset < m_hive.m_bins.size(); offset += kUnit) {
        const std::byte* const cell = m_hive.m_bins.data() + offset;
        if (!isUntaken(offset) || m_hive.m_bins.size() - offset < kCellHeader + nk::kName)
            continue;
        if (load16(cell + kCellHeader) == nk::kSignature &&
            (load16(cell + kCellHeader + nk::kFlags) & nk::kRootKey) != 0 &&
            readKey(offset, Hive::kNone, kNoOffset)) {
            m_root = offset;
            return true;
        }
    }
    return false;
}

void HiveReader::readTree(const Step& top)
{
    m_steps.push_back(top);
    while (!m_steps.empty()) {
        Step& step = m_steps.back();
        Hive::List& list = m_hive.m_keys[step.key].subKeys;
        if (step.next == list.count) {
            list.count = step.kept;
            sortSubKeys(step.key);
            m_steps.pop_back();
            continue;
        }
        const auto id = static_cast<KeyId>(m_hive.m_keys.size());
        const std::uint32_t offset = m_hive.m_lists[list.begin + step.next++];
        if (!readKey(offset, step.key, step.offset))
            continue;
        m_hive.m_lists[m_hive.m_keys[step.key].subKeys.begin + step.kept++] = id;
        if (m_hive.m_keys[id].subKeys.count != 0)
            m_steps.push_back({id, offset, 0, 0});
    }
}

/// Keys that name another parent were left for that one to list. Those that it does not list, or that name
/// none, belong where they were listed: only the name of their parent is wrong.
void HiveReader::adoptKeys()
{
    std::vector<KeyId> parents; // each is sorted once: a hostile file can have many keys for one
    for (std::size_t i = 0; i != m_losses->size(); ++i) {
        const Loss loss = (*m_losses)[i];
        const std::uint32_t offset = loss.offset - kPage;
        const Cell record = peekRecord(offset, nk::kSignature, nk::kName);
        const Hive::List& list = m_hive.m_keys[loss.key].subKeys; // empty when it was omitted itself
        if (loss.kind != LossKind::kKey || record.empty() || list.count == list.capacity)
            continue;
        const auto id = static_cast<KeyId>(m_hive.m_keys.size());
        if (!readKey(offset, loss.key, load32(record.data() + nk::kParent))) {
            m_losses->pop_back(); // it is recorded already
            continue;
        }
        (*m_losses)[i].kind = LossKind::kParent;
        Hive::List& siblings = m_hive.m_keys[loss.key].subKeys;
        m_hive.m_lists[siblings.begin + siblings.count++] = id;
        parents.push_back(loss.key);
        readTree({id, offset, 0, 0});
    }
    std::sort(parents.begin(), parents.end());
    parents.erase(std::unique(parents.begin(), parents.end()), parents.end());
    for (const KeyId parent : parents)
        sortSubKeys(parent);
}

/// Returns whether it is a key; its wrong parts are omitted one by one.
bool HiveReader::readKey(std::uint32_t offset, KeyId parent, std::uint32_t parentOffset)
{
    const Cell record = peekRecord(offset, nk::kSignature, nk::kName);
    const std::size_t level = parent == Hive::kNone ? 1 : m_hive.m_keys[parent].level + 1U;
    std::uint16_t flags = 0;
    std::uint16_t nameLength = 0;
    bool isLatin1 = false;
    bool isRight = !record.empty() && level <= Hive::kMostLevels &&
                   (parent == Hive::kNone || load32(record.data() + nk::kParent) == parentOffset);
    if (isRight) {
        taken(offset, record);
        flags = load16(record.data() + nk::kFlags);
        nameLength = load16(record.data() + nk::kNameLength);
        isLatin1 = (flags & nk::kLatin1Name) != 0;
        const std::size_t length = isLatin1 ? nameLength : nameLength / 2;
        isRight = nameLength <= record.size() - nk::kName && (isLatin1 || nameLength % 2 == 0) &&
                  length <= Hive::kLongestKeyName && (length != 0 || parent == Hive::kNone);
    }
    if (!isRight) {
        lose(LossKind::kKey, parent == Hive::kNone ? Hive::root() : parent, offset);
        return false;
    }
    const auto id = static_cast<KeyId>(m_hive.m_keys.size());
    // Filled in place: the processor cannot copy at once what was just written in parts.
    Hive::Key& key = m_hive.m_keys.emplace_back();
    key.flags = flags;
    key.nameLength = nameLength;
    key.bits = isLatin1 ? Hive::kLatin1 : 0;
    key.time = load<HiveTime>(record.data() + nk::kTime);
    key.access = load32(record.data() + nk::kAccess);
    key.userFlags = load16(record.data() + nk::kUserFlags);
    key.parent = parent;
    key.name = placeOf(record.data() + nk::kName);
    key.level = static_cast<std::uint16_t>(level);
    ++m_hive.m_keyCount;
    readSecurity(key, id, load32(record.data() + nk::kSecurity));
    readClass(key, id, record);
    readValues(id, record);
    readSubKeyLists(id, record);
    return true;
}

void HiveReader::readClass(Hive::Key& key, KeyId id, Cell record)
{
    const std::uint16_t length = load16(record.data() + nk::kClassLength);
    const std::uint32_t offset = load32(record.data() + nk::kClass);
    if (length == 0 || offset == kNoOffset)
        return;
    const Cell cell = take(offset);
    if (cell.size() < length || length % 2 != 0) {
        lose(LossKind::kClass, id, offset);
        return;
    }
    key.className = placeOf(cell.data());
    key.classLength = length;
}

void HiveReader::readSecurity(Hive::Key& key, KeyId id, std::uint32_t offset)
{
    if (offset == m_lastSecurity) {
        key.security = m_lastSecurityIndex;
        return;
    }
    const auto known = m_securityAt.find(offset);
    if (known != m_securityAt.end()) {
        key.security = known->second;
    } else {
        const Cell record = takeRecord(offset, sk::kSignature, sk::kDescriptor);
        const std::uint32_t length = record.empty() ? 0 : load32(record.data() + sk::kLength);
        if (length == 0 || length > record.size() - sk::kDescriptor) {
            lose(LossKind::kSecurity, id, offset);
            if (key.parent != Hive::kNone)
                key.security = m_hive.m_keys[key.parent].security;
            else
                m_hive.m_security.push_back(Hive::defaultSecurity());
            return;
        }
        const Cell descriptor = record.subspan(sk::kDescriptor, length);
        const auto number = static_cast<std::uint32_t>(m_hive.m_security.size());
        const std::string_view text(reinterpret_cast<const char*>(descriptor.data()), descriptor.size());
        const auto [like, isNew] = m_securityLike.emplace(text, number);
        if (isNew)
            m_hive.m_security.push_back(descriptor);
        key.security = like->second;
        m_securityAt.emplace(offset, key.security);
    }
    m_lastSecurity = offset;
    m_lastSecurityIndex = key.security;
}

void HiveReader::readSubKeyLists(KeyId id, Cell record)
{
    const std::uint32_t count = load32(record.data() + nk::kSubKeys);
    const std::uint32_t offset = load32(record.data() + nk::kSubKeyList);
    if (count == 0) {
        // Who deletes the last one also frees the list.
        const Cell there = peek(offset);
        if (there.empty())
            return;
        lose(LossKind::kCount, id, offset);
        if (!isList(there))
            return;
    }
    const std::size_t begin = m_hive.m_lists.size();
    const Cell top = take(offset);
    bool isRight = true;
    if (top.size() < list::kEntries || load16(top.data()) != list::kLists) {
        isRight = readLeaf(top);
    } else {
        const std::size_t lists = load16(top.data() + list::kCount);
        const std::size_t fitting = (top.size() - list::kEntries) / sizeof(std::uint32_t);
        isRight = lists <= fitting;
        for (std::size_t i = 0; i < std::min(lists, fitting); ++i)
            isRight &= readLeaf(take(load32(top.data() + list::kEntries + i * sizeof(std::uint32_t))));
    }
    const std::size_t found = m_hive.m_lists.size() - begin;
    if (!isRight || (found != count && count != 0))
        lose(LossKind::kKeyList, id, offset);
    m_hive.m_keys[id].subKeys = {static_cast<std::uint32_t>(begin), static_cast<std::uint32_t>(found),
                                 static_cast<std::uint32_t>(found)};
}

/// Returns whether the whole list could be read.
bool HiveReader::readLeaf(Cell leaf)
{
    if (leaf.size() < list::kEntries)
        return false;
    const std::uint16_t kind = load16(leaf.data());
    if (!isLeaf(kind))
        return false;
    const std::size_t entry = kind == list::kPlain ? sizeof(std::uint32_t) : list::kWideEntry;
    const std::size_t count = load16(leaf.data() + list::kCount);
    const std::size_t fitting = (leaf.size() - list::kEntries) / entry;
    const std::size_t begin = m_hive.m_lists.size();
    const std::size_t found = std::min(count, fitting);
    m_hive.m_lists.resize(begin + found);
    for (std::size_t i = 0; i < found; ++i)
        m_hive.m_lists[begin + i] = load32(leaf.data() + list::kEntries + i * entry);
    return count <= fitting;
}

void HiveReader::sortSubKeys(KeyId id)
{
    Hive::List& list = m_hive.m_keys[id].subKeys;
    const auto begin = m_hive.m_lists.begin() + list.begin;
    const auto isBefore = [this](KeyId left, KeyId right) {
        return std::is_lt(m_hive.name(left).compare(m_hive.name(right)));
    };
    const auto isNotBefore = [&](KeyId left, KeyId right) { return !isBefore(left, right); };
    if (std::adjacent_find(begin, begin + list.count, isNotBefore) == begin + list.count)
        return;
    std::stable_sort(begin, begin + list.count, isBefore);
    // Of two with the same name only the first could be found.
    std::uint32_t kept = 0;
    for (std::uint32_t i = 0; i != list.count; ++i) {
        const KeyId key = m_hive.m_lists[list.begin + i];
        if (kept == 0 || isBefore(m_hive.m_lists[list.begin + kept - 1], key)) {
            m_hive.m_lists[list.begin + kept++] = key;
            continue;
        }
        lose(LossKind::kKey, id, m_hive.m_keys[key].name - nk::kName - kCellHeader);
        m_hive.dropTree(key);
    }
    list.count = kept;
}

void HiveReader::readValues(KeyId id, Cell record)
{
    std::uint32_t count = load32(record.data() + nk::kValues);
    const std::uint32_t offset = load32(record.data() + nk::kValueList);
    const Cell there = peek(offset);
    Hive::Key& key = m_hive.m_keys[id];
    bool isTold = false;
    if ((key.flags & nk::kPredefined) != 0) {
        if (there.empty() && (count == 0 || count >> nk::kHandleBits == nk::kHandles)) {
            m_hive.m_predefined.emplace(id, count);
            return;
        }
        lose(LossKind::kCount, id, offset); // an ordinary key: no handle, or values beside it
        key.flags &= static_cast<std::uint16_t>(~nk::kPredefined);
        isTold = true;
    }
    if (count == 0 && there.empty())
        return;
    if (count == 0 || (isTold && count > there.size() / sizeof count)) {
        if (!isTold)
            lose(LossKind::kCount, id, offset);
        count = countValues(there);
        if (count == 0)
            return;
    }
    const Cell cell = take(offset);
    if (count > cell.size() / sizeof count) {
        lose(LossKind::kValueList, id, offset);
        count = static_cast<std::uint32_t>(cell.size() / sizeof count);
    }
    const auto begin = static_cast<std::uint32_t>(m_hive.m_lists.size());
    for (std::uint32_t i = 0; i != count; ++i)
        readValue(id, load32(cell.data() + i * sizeof count));
    const auto found = static_cast<std::uint32_t>(m_hive.m_lists.size()) - begin;
    m_hive.m_keys[id].values = {begin, found, found};
    if (found > 1)
        dropSecondValues(id);
}

/// How many values a list holds whose count is wrong: it ends at what cannot be one.
std::uint32_t HiveReader::countValues(Cell list) const noexcept
{
    std::uint32_t count = 0;
    while (count < list.size() / sizeof count) {
        const Cell value = peek(load32(list.data() + count * sizeof count));
        if (value.size() < vk::kName || load16(value.data()) != vk::kSignature)
            break;
        ++count;
    }
    return count;
}

/// Few values are compared each with each, which needs no memory; of more it says yes.
bool HiveReader::mayRepeatAName(std::span<const ValueId> values) const noexcept
{
    constexpr std::size_t kFew = 16;
    if (values.size() > kFew)
        return true;
    for (std::size_t i = 1; i < values.size(); ++i)
        for (std::size_t other = 0; other != i; ++other)
            if (m_hive.valueName(values[i]).equals(m_hive.valueName(values[other])))
                return true;
    return false;
}

/// Of two values with the same name only the first could be found.
void HiveReader::dropSecondValues(KeyId id)
{
    Hive::List& list = m_hive.m_keys[id].values;
    const std::span<const std::uint32_t> all = m_hive.values(id);
    if (!mayRepeatAName(all))
        return;
    std::vector<ValueId> sorted(all.begin(), all.end());
    // By name, then in the order of the list.
    std::sort(sorted.begin(), sorted.end(), [this](ValueId left, ValueId right) {
        const auto order = m_hive.valueName(left).compare(m_hive.valueName(right));
        return order == std::strong_ordering::equal ? left < right : std::is_lt(order);
    });
    std::vector<ValueId> seconds;
    for (std::size_t i = 1; i != sorted.size(); ++i)
        if (m_hive.valueName(sorted[i - 1]).equals(m_hive.valueName(sorted[i])))
            seconds.push_back(sorted[i]);
    if (seconds.empty())
        return;
    std::sort(seconds.begin(), seconds.end());
    for (const ValueId second : seconds)
        lose(LossKind::kValue, id, m_hive.m_values[second].name - vk::kName - kCellHeader);
    const auto begin = m_hive.m_lists.begin() + list.begin;
    const auto end = std::remove_if(begin, begin + list.count, [&](ValueId value) {
        return std::binary_search(seconds.begin(), seconds.end(), value);
    });
    list.count = static_cast<std::uint32_t>(end - begin);
}

void HiveReader::readValue(KeyId id, std::uint32_t offset)
{
    const Cell record = takeRecord(offset, vk::kSignature, vk::kName);
    std::uint16_t flags = 0;
    std::uint16_t nameLength = 0;
    bool isLatin1 = false;
    bool isRight = !record.empty();
    if (isRight) {
        flags = load16(record.data() + vk::kFlags);
        nameLength = load16(record.data() + vk::kNameLength);
        isLatin1 = (flags & vk::kLatin1Name) != 0;
        isRight = nameLength <= record.size() - vk::kName && (isLatin1 || nameLength % 2 == 0) &&
                  nameLength <= Hive::kLongestValueName * (isLatin1 ? 1U : 2U);
    }
    if (!isRight) {
        lose(LossKind::kValue, id, offset);
        return;
    }
    const auto number = static_cast<ValueId>(m_hive.m_values.size());
    Hive::Value& value = m_hive.m_values.emplace_back(); // in place, as a key
    value.flags = flags;
    value.nameLength = nameLength;
    value.bits = isLatin1 ? Hive::kLatin1 : 0;
    value.name = placeOf(record.data() + vk::kName);
    value.type = load32(record.data() + vk::kType);
    if (readData(value, record)) {
        m_hive.m_lists.push_back(number);
        return;
    }
    m_hive.m_values.pop_back();
    lose(LossKind::kData, id, offset);
}

bool HiveReader::readData(Hive::Value& value, Cell record)
{
    const std::uint32_t size = load32(record.data() + vk::kDataSize);
    const std::byte* const inside = record.data() + vk::kData;
    value.size = size & ~vk::kInside;
    value.data = placeOf(inside);
    if ((size & vk::kInside) != 0)
        return value.size <= vk::kMostInside;
    if (size == 0)
        return true;
    const Cell cell = take(load32(inside));
    value.data = placeOf(cell.data());
    // Some writers put large data into one large cell in every version.
    return cell.size() >= size || readSegments(value, cell);
}

bool HiveReader::readSegments(Hive::Value& value, Cell record)
{
    if (m_hive.m_minor < db::kOldest || value.size <= db::kSegment || record.size() < db::kRecord ||
        load16(record.data()) != db::kSignature)
        return false;
    const std::uint32_t count = load16(record.data() + db::kCount);
    const Cell list = take(load32(record.data() + db::kList));
    if (count != (value.size + db::kSegment - 1) / db::kSegment || list.size() < count * sizeof count)
        return false;
    std::uint32_t left = value.size;
    for (std::uint32_t i = 0; i != count; ++i) {
        const std::uint32_t part = std::min(left, db::kSegment);
        if (take(load32(list.data() + i * sizeof count)).size() < part)
            return false;
        left -= part;
    }
    value.bits |= Hive::kSegments;
    value.data = placeOf(list.data());
    return true;
}
} // namespace offline
