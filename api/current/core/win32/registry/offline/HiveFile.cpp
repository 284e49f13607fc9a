#include "core/win32/registry/offline/include/HiveFile.h"

#include <algorithm>
#include <chrono>
#include <compare>
#include <new>

#include "core/win32/registry/offline/include/HiveLayout.h"
#include "core/win32/registry/offline/include/HiveReader.h"
#include "core/win32/registry/offline/include/HiveWriter.h"

namespace offline {
namespace {
using namespace layout;

constexpr std::size_t kMostData = std::size_t{0xFFFF} * db::kSegment;
constexpr std::size_t kLongestClass = 32767;
constexpr char16_t kLargestLatin1 = 0xFF;

/// A name as hives store it: in Latin-1 where possible.
struct StoredName
{
    explicit StoredName(std::u16string_view text)
        : isLatin1(std::all_of(text.begin(), text.end(), [](char16_t c) { return c <= kLargestLatin1; })),
          bytes(isLatin1 ? text.size() : text.size() * 2)
    {
        if (isLatin1)
            std::transform(text.begin(), text.end(), bytes.begin(),
                           [](char16_t c) { return static_cast<std::byte>(c); });
        else if (!text.empty())
            std::memcpy(bytes.data(), text.data(), bytes.size());
    }
    bool isLatin1;
    std::vector<std::byte> bytes;
};

/// Removes the first name from a path and returns it.
std::u16string_view takeName(std::u16string_view& path) noexcept
{
    const std::size_t end = std::min(path.find(u'\\'), path.size());
    const std::u16string_view name = path.substr(0, end);
    path.remove_prefix(std::min(end + 1, path.size()));
    return name;
}
} // namespace

std::span<const std::byte> Hive::defaultSecurity() noexcept
{
    static constexpr unsigned char kDescriptor[] = {
        1, 0, 4,  0x80, 72,   0, 0,    0, 88, 0, 0, 0,  0, 0, 0, 0,    20, 0, 0, 0, // self-relative
        2, 0, 52, 0,    2,    0, 0,    0,                                           // two entries
        0, 2, 20, 0,    0x3F, 0, 0x0F, 0, 1,  1, 0, 0,  0, 0, 0, 5,    18, 0, 0, 0, // the system
        0, 2, 24, 0,    0x3F, 0, 0x0F, 0, 1,  2, 0, 0,  0, 0, 0, 5,    32, 0, 0, 0, 0x20,
        2, 0, 0,  1,    2,    0, 0,    0, 0,  0, 5, 32, 0, 0, 0, 0x20, 2,  0, 0, // owned by administrators
        1, 1, 0,  0,    0,    0, 0,    5, 18, 0, 0, 0};
    return std::as_bytes(std::span(kDescriptor));
}

Hive Hive::parse(std::span<const std::byte> bytes)
{
    return HiveReader(bytes, nullptr).read();
}

Hive Hive::parse(std::vector<std::byte>&& bytes)
{
    std::vector<std::byte> own(std::move(bytes));
    Hive hive = HiveReader(own, nullptr).read();
    hive.m_ownBytes = std::move(own);
    return hive;
}

Hive Hive::salvage(std::span<const std::byte> bytes, std::vector<Loss>& losses)
{
    losses.clear();
    return HiveReader(bytes, &losses).read();
}

Hive Hive::salvage(std::vector<std::byte>&& bytes, std::vector<Loss>& losses)
{
    losses.clear();
    std::vector<std::byte> own(std::move(bytes));
    Hive hive = HiveReader(own, &losses).read();
    hive.m_ownBytes = std::move(own);
    return hive;
}

Hive Hive::create(HiveTime now)
{
    Hive hive;
    hive.m_time = now;
    hive.m_security.push_back(defaultSecurity());
    Key key;
    key.time = now;
    key.flags = nk::kRootKey | nk::kNoDelete;
    key.level = 1;
    const StoredName name(u"ROOT");
    key.nameLength = static_cast<std::uint16_t>(name.bytes.size());
    hive.reserveBlobs(1);
    key.name = hive.keepBlob(Blob(name.bytes));
    key.bits = kLatin1 | kOwnedName;
    hive.m_keys.push_back(key);
    hive.m_keyCount = 1;
    return hive;
}

std::vector<std::byte> Hive::compact() const
{
    return HiveWriter(*this).write();
}

std::u16string Hive::className(KeyId key) const
{
    const Key& record = m_keys[key];
    if (record.classLength == 0)
        return {};
    return NameView(at(record.className, (record.bits & kOwnedData) != 0), record.classLength, false).text();
}

std::u16string Hive::path(KeyId key) const
{
    std::vector<KeyId> way;
    for (; m_keys[key].parent != kNone; key = m_keys[key].parent) {
        way.push_back(key);
        if (!name(key).isOfPaths())
            way.clear();
    }
    std::u16string path;
    for (; !way.empty(); way.pop_back()) {
        if (!path.empty())
            path += u'\\';
        path += name(way.back()).text();
    }
    return path;
}

std::vector<std::byte> Hive::data(ValueId value) const
{
    std::vector<std::byte> data;
    data.reserve(dataSize(value));
    forEachPart(value,
                [&](std::span<const std::byte> part) { data.insert(data.end(), part.begin(), part.end()); });
    return data;
}

std::span<const std::byte> Hive::segment(const Value& value, std::size_t index) const noexcept
{
    const std::uint32_t offset = load32(m_bins.data() + value.data + index * sizeof offset);
    return m_bins.subspan(offset + kCellHeader,
                          std::min<std::size_t>(db::kSegment, value.size - index * db::kSegment));
}

std::size_t Hive::lowerBound(KeyId key, const NameView& name) const noexcept
{
    const std::span<const KeyId> keys = subKeys(key);
    const auto found =
        std::lower_bound(keys.begin(), keys.end(), name, [this](KeyId each, const NameView& sought) {
            return std::is_lt(this->name(each).compare(sought));
        });
    return static_cast<std::size_t>(found - keys.begin());
}

std::optional<KeyId> Hive::findKey(KeyId key, std::u16string_view name) const noexcept
{
    const NameView sought(name);
    const std::size_t index = lowerBound(key, sought);
    const std::span<const KeyId> keys = subKeys(key);
    if (index == keys.size() || !this->name(keys[index]).equals(sought))
        return std::nullopt;
    return keys[index];
}

std::optional<KeyId> Hive::findPath(KeyId key, std::u16string_view path) const noexcept
{
    std::optional<KeyId> found = key;
    while (found.has_value() && !path.empty())
        found = findKey(*found, takeName(path));
    return found;
}

std::optional<ValueId> Hive::findValue(KeyId key, std::u16string_view name) const noexcept
{
    const NameView sought(name);
    if (const auto index = m_indexes.find(key); index != m_indexes.end()) {
        const auto [begin, end] = index->second.equal_range(indexHash(sought));
        const auto found =
            std::find_if(begin, end, [&](const auto& each) { return valueName(each.second).equals(sought); });
        return found == end ? std::nullopt : std::optional(found->second);
    }
    for (const ValueId value : values(key))
        if (valueName(value).equals(sought))
            return value;
    return std::nullopt;
}

std::uint64_t Hive::newIndexBase() noexcept
{
    constexpr std::uint64_t kSpread = 0x9E3779B97F4A7C15U;
    const auto time = static_cast<std::uint64_t>(std::chrono::steady_clock::now().time_since_epoch().count());
    constexpr std::uint64_t kLeast = 65536; // more than any character
    return kLeast + (time * kSpread >> 32U) % (kIndexPrime - kLeast);
}

// A polynomial modulo 2^31 - 1 (Carter and Wegman): with a base that nobody knows beforehand, names cannot be
// made that share a hash.
std::uint32_t Hive::indexHash(const NameView& name) const noexcept
{
    const char16_t* const upper = upperCaseTable();
    std::uint64_t hash = 1;
    for (std::size_t i = 0; i < name.size(); ++i) {
        hash = hash * m_indexBase + upper[name[i]];
        hash = (hash & kIndexPrime) + (hash >> 31U);
        hash = (hash & kIndexPrime) + (hash >> 31U);
    }
    return static_cast<std::uint32_t>(hash % kIndexPrime);
}

void Hive::indexValues(KeyId key)
{
    constexpr std::size_t kFew = 64;
    const std::span<const ValueId> all = values(key);
    if (all.size() < kFew || m_indexes.contains(key))
        return;
    ValueIndex index;
    for (const ValueId value : all)
        index.emplace(indexHash(valueName(value)), value);
    m_indexes.emplace(key, std::move(index));
}

void Hive::indexValues()
{
    for (KeyId key = 0; key < m_keys.size(); ++key)
        indexValues(key);
}

void Hive::removeFromIndex(KeyId key, ValueId value) noexcept
{
    const auto index = m_indexes.find(key);
    if (index == m_indexes.end())
        return;
    const auto [begin, end] = index->second.equal_range(indexHash(valueName(value)));
    index->second.erase(std::find_if(begin, end, [&](const auto& each) { return each.second == value; }));
}

void Hive::reserveBlobs(std::size_t count)
{
    while (m_freeBlobs.size() < count) {
        // Reserve space for the numbers of all, so freeing one cannot fail.
        if (m_freeBlobs.capacity() <= m_blobs.size())
            m_freeBlobs.reserve(2 * m_blobs.size() + 1);
        m_blobs.emplace_back();
        m_freeBlobs.push_back(static_cast<Place>(m_blobs.size() - 1));
    }
}

Hive::Place Hive::keepBlob(Blob&& blob) noexcept
{
    const Place place = m_freeBlobs.back();
    m_freeBlobs.pop_back();
    m_blobs[place] = std::move(blob);
    return place;
}

void Hive::dropBlob(Place place) noexcept
{
    Blob().swap(m_blobs[place]);
    m_freeBlobs.push_back(place); // space for all was reserved
}

void Hive::grow(List& list)
{
    if (list.count < list.capacity)
        return;
    constexpr std::uint32_t kLeast = 4;
    const std::uint32_t capacity = std::bit_ceil(std::max(list.count + 1, kLeast));
    auto& free = m_freeLists[static_cast<std::size_t>(std::bit_width(capacity)) - 1];
    List grown = list;
    grown.capacity = capacity;
    if (free.empty()) {
        grown.begin = static_cast<std::uint32_t>(m_lists.size());
        m_lists.resize(m_lists.size() + capacity);
    } else {
        grown.begin = free.back();
        free.pop_back();
    }
    std::copy_n(m_lists.begin() + list.begin, list.count, m_lists.begin() + grown.begin);
    dropList(list);
    list = grown;
}

void Hive::insert(List& list, std::size_t index, std::uint32_t number) noexcept
{
    const auto begin = m_lists.begin() + list.begin;
    const auto place = begin + static_cast<std::ptrdiff_t>(index);
    std::copy_backward(place, begin + list.count, begin + list.count + 1);
    *place = number;
    ++list.count;
}

void Hive::erase(List& list, std::size_t index) noexcept
{
    const auto begin = m_lists.begin() + list.begin;
    const auto place = begin + static_cast<std::ptrdiff_t>(index);
    std::copy(place + 1, begin + list.count, place);
    --list.count;
}

void Hive::dropList(List& list) noexcept
{
    if (list.capacity != 0) {
        try {
            m_freeLists[static_cast<std::size_t>(std::bit_width(list.capacity)) - 1].push_back(list.begin);
        } catch (const std::bad_alloc&) { // the space is not reused then
        }
    }
    list = {};
}

KeyId Hive::createKey(KeyId key, std::u16string_view name, HiveTime now)
{
    if (const auto found = findKey(key, name); found.has_value())
        return *found;
    if (name.empty() || name.find(u'\\') != std::u16string_view::npos)
        throw long{kInvalidName};
    if (name.size() > kLongestKeyName || m_keys[key].level >= kMostLevels)
        throw long{kTooDeep};

    // First do what can fail.
    StoredName stored(name);
    reserveBlobs(1);
    grow(m_keys[key].subKeys);
    if (m_freeKeys.empty()) {
        m_freeKeys.reserve(1);
        m_keys.emplace_back();
        m_freeKeys.push_back(static_cast<KeyId>(m_keys.size() - 1));
    }
    Key made;
    made.time = now;
    made.parent = key;
    made.security = m_keys[key].security;
    made.level = static_cast<std::uint16_t>(m_keys[key].level + 1);
    made.bits = static_cast<std::uint16_t>(kOwnedName | (stored.isLatin1 ? kLatin1 : 0));
    made.nameLength = static_cast<std::uint16_t>(stored.bytes.size());
    made.name = keepBlob(std::move(stored.bytes));

    const KeyId number = m_freeKeys.back();
    m_freeKeys.pop_back();
    m_keys[number] = made;
    insert(m_keys[key].subKeys, lowerBound(key, NameView(name)), number);
    m_keys[key].time = now;
    ++m_keyCount;
    return number;
}

KeyId Hive::createPath(KeyId key, std::u16string_view path, HiveTime now, KeyId* firstMade)
{
    KeyId first = kNone;
    HiveTime timeBefore = 0; // of the parent of the first
    try {
        while (!path.empty()) {
            const std::size_t before = m_keyCount;
            const HiveTime time = m_keys[key].time;
            key = createKey(key, takeName(path), now);
            if (first == kNone && m_keyCount != before) {
                first = key;
                timeBefore = time;
            }
        }
    } catch (...) {
        if (first != kNone)
            deleteKey(first, timeBefore);
        throw;
    }
    if (firstMade != nullptr)
        *firstMade = first;
    return key;
}

void Hive::dropValue(ValueId value) noexcept
{
    const Value& record = m_values[value];
    if ((record.bits & kOwnedName) != 0)
        dropBlob(record.name);
    if ((record.bits & kOwnedData) != 0)
        dropBlob(record.data);
    try {
        m_freeValues.push_back(value);
    } catch (const std::bad_alloc&) { // the number is not reused then
    }
}

void Hive::dropKey(KeyId key) noexcept
{
    Key& record = m_keys[key];
    for (const ValueId value : values(key))
        dropValue(value);
    dropList(record.values);
    dropList(record.subKeys);
    if ((record.bits & kOwnedName) != 0)
        dropBlob(record.name);
    if ((record.bits & kOwnedData) != 0)
        dropBlob(record.className);
    m_predefined.erase(key);
    m_indexes.erase(key);
    --m_keyCount;
    try {
        m_freeKeys.push_back(key);
    } catch (const std::bad_alloc&) { // as above
    }
}

void Hive::dropTree(KeyId key) noexcept
{
    // Deepest first, without allocating memory.
    for (KeyId at = key;;) {
        if (m_keys[at].subKeys.count != 0) {
            at = subKeys(at).back();
            continue;
        }
        const KeyId above = m_keys[at].parent;
        dropKey(at);
        if (at == key)
            return;
        --m_keys[above].subKeys.count;
        at = above;
    }
}

void Hive::deleteKey(KeyId key, HiveTime now)
{
    const KeyId parent = m_keys[key].parent;
    if (parent == kNone)
        throw long{kNotPossible};
    List& siblings = m_keys[parent].subKeys;
    const std::span<const KeyId> keys = subKeys(parent);
    erase(siblings, static_cast<std::size_t>(std::find(keys.begin(), keys.end(), key) - keys.begin()));
    m_keys[parent].time = now;
    dropTree(key);
}

void Hive::setClassName(KeyId key, std::u16string_view text)
{
    if (text.size() > kLongestClass)
        throw long{kTooDeep};
    Key& record = m_keys[key];
    Blob bytes(text.size() * 2);
    if (!text.empty())
        std::memcpy(bytes.data(), text.data(), bytes.size());
    const auto length = static_cast<std::uint16_t>(bytes.size());
    reserveBlobs(1);
    const Place place = keepBlob(std::move(bytes));
    if ((record.bits & kOwnedData) != 0)
        dropBlob(record.className);
    record.className = place;
    record.classLength = length;
    record.bits |= kOwnedData;
}

ValueId Hive::setValue(KeyId key, std::u16string_view name, std::uint32_t type,
                       std::span<const std::byte> data, HiveTime now)
{
    if (name.size() > kLongestValueName)
        throw long{kTooDeep};
    if (data.size() > kMostData)
        throw long{kTooLarge};
    if (m_predefined.contains(key))
        throw long{kNotPossible};
    Blob bytes(data.begin(), data.end());
    indexValues(key);
    const auto found = findValue(key, name);
    StoredName stored(found.has_value() ? std::u16string_view() : name);
    reserveBlobs(2);
    if (!found.has_value()) {
        grow(m_keys[key].values);
        if (m_freeValues.empty()) {
            m_freeValues.reserve(1);
            m_values.emplace_back();
            m_freeValues.push_back(static_cast<ValueId>(m_values.size() - 1));
        }
        if (const auto index = m_indexes.find(key); index != m_indexes.end())
            index->second.emplace(indexHash(NameView(name)), m_freeValues.back());
    }
    const Place place = keepBlob(std::move(bytes));
    ValueId number = 0;
    if (found.has_value()) {
        number = *found;
        if ((m_values[number].bits & kOwnedData) != 0)
            dropBlob(m_values[number].data);
    } else {
        Value made;
        made.bits = static_cast<std::uint16_t>(kOwnedName | (stored.isLatin1 ? kLatin1 : 0));
        made.nameLength = static_cast<std::uint16_t>(stored.bytes.size());
        made.name = keepBlob(std::move(stored.bytes));
        number = m_freeValues.back();
        m_freeValues.pop_back();
        m_values[number] = made;
        insert(m_keys[key].values, m_keys[key].values.count, number);
    }
    Value& record = m_values[number];
    record.bits = static_cast<std::uint16_t>((record.bits & ~kSegments) | kOwnedData);
    record.data = place;
    record.size = static_cast<std::uint32_t>(data.size());
    record.type = type;
    m_keys[key].time = now;
    return number;
}

bool Hive::deleteValue(KeyId key, std::u16string_view name, HiveTime now)
{
    indexValues(key);
    const auto found = findValue(key, name);
    if (!found.has_value())
        return false;
    removeFromIndex(key, *found);
    List& list = m_keys[key].values;
    const std::span<const ValueId> all = values(key);
    erase(list, static_cast<std::size_t>(std::find(all.begin(), all.end(), *found) - all.begin()));
    dropValue(*found);
    m_keys[key].time = now;
    return true;
}
} // namespace offline
