#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "core/win32/registry/offline/include/HiveNames.h"

/// Reads and writes registry hive files ("regf", versions 1.3 to 1.6) in memory. Source of the format: M.
/// Suhanov's description of Windows registry files (github.com/msuhanov/regf).
///
/// Files are not trusted: for any bytes, reading ends in a hive or in a code, takes time and memory in
/// proportion to their number, and reads nothing outside them.
namespace offline {
/// The codes that the engine raises, as bare longs; std::bad_alloc when memory runs out.
inline constexpr long kBadDatabase = 1009; ///< not a hive: too short, another format, a wrong base block
inline constexpr long kDamagedHive = 1015; ///< a hive with wrong bins, cells, lists or keys
inline constexpr long kTooDeep = 206;      ///< a key of more than 512 levels, or too long a name
inline constexpr long kTooLarge = 223;     ///< the hive would exceed 2 GiB, the limit of the format
inline constexpr long kInvalidName = 123;  ///< an empty key name, or one with a backslash
inline constexpr long kNotPossible = 50;   ///< deleting the root, a value in a key that stands for a handle

using KeyId = std::uint32_t;
using ValueId = std::uint32_t;

/// The number of 100 ns since 1601, in UTC.
using HiveTime = std::uint64_t;

/// What a salvage omitted.
enum class LossKind
{
    kBaseBlock, ///< the base block is wrong; other sources were used instead where there were any
    kBin,       ///< a bin's header, or the cells in it
    kKey,       ///< a sub-key with everything below it; also one that another parent has, or that has the
                ///< name of one before it
    kKeyList,   ///< sub-keys of the key
    kValue,     ///< a value of the key; also one that has the name of one before it
    kValueList, ///< values of the key
    kData,      ///< a value's data: the value is omitted
    kClass,     ///< the class name of the key
    kSecurity,  ///< the security descriptor: the key got that of its parent
    kCount,     ///< a count of sub-keys or values that is wrong beside its list, which was read
    kParent     ///< only the parent that a sub-key names: it was read where it is listed
};

struct Loss
{
    LossKind kind;
    KeyId key;            ///< the key that it belongs to; the root also for the whole file
    std::uint32_t offset; ///< in the file, of the wrong cell, list entry or bin
};

/// A hive: its keys and values as a tree that can be read, changed and written. Data that was parsed stays in
/// the original bytes. Several threads may only read at once.
///
/// Keys and values are identified by numbers, which are valid until the key or value is deleted. Sub-keys are
/// in the system's order, values in the file's order.
class Hive
{
public:
    /// The maximum depth of keys, including the root.
    static constexpr std::size_t kMostLevels = 512;
    static constexpr std::size_t kLongestKeyName = 255;     ///< in UTF-16 code units
    static constexpr std::size_t kLongestValueName = 16383; ///< likewise
    static constexpr std::uint32_t kNone = 0xFFFFFFFF;

    /// Reads a hive. `bytes` must stay unchanged while the hive lives. A hive that was not closed (isClean)
    /// is read without its logs. Raises kBadDatabase, kDamagedHive.
    [[nodiscard]] static Hive parse(std::span<const std::byte> bytes);
    /// The same; the hive keeps the bytes.
    [[nodiscard]] static Hive parse(std::vector<std::byte>&& bytes);
    /// Reads what can still be reached in a damaged hive, and tells what it omitted: nothing for a hive that
    /// parse accepts. Raises kBadDatabase when not even a root key is found.
    [[nodiscard]] static Hive salvage(std::span<const std::byte> bytes, std::vector<Loss>& losses);
    [[nodiscard]] static Hive salvage(std::vector<std::byte>&& bytes, std::vector<Loss>& losses);
    /// A hive of version 1.5 with an empty root key, accessible to the system's account and administrators.
    [[nodiscard]] static Hive create(HiveTime now);

    Hive(Hive&&) noexcept = default;
    Hive& operator=(Hive&&) noexcept = default;
    Hive(const Hive&) = delete;
    Hive& operator=(const Hive&) = delete;
    ~Hive() = default;

    /// The hive as a new file: without deleted or free space, each key's cells together, lists sorted and
    /// hashed, security descriptors shared. Version, names, time stamps, flags and security are kept. The
    /// same tree always gives the same bytes. Raises kTooLarge.
    [[nodiscard]] std::vector<std::byte> compact() const;

    /// Whether writing the file was completed: its two sequence numbers are equal.
    [[nodiscard]] bool isClean() const noexcept { return m_isClean; }
    /// 3 to 6, of version 1.x.
    [[nodiscard]] std::uint32_t minorVersion() const noexcept { return m_minor; }
    [[nodiscard]] std::size_t keyCount() const noexcept { return m_keyCount; }

    [[nodiscard]] static constexpr KeyId root() noexcept { return 0; }
    /// kNone for the root.
    [[nodiscard]] KeyId parent(KeyId key) const noexcept { return m_keys[key].parent; }
    [[nodiscard]] NameView name(KeyId key) const noexcept { return nameOf(m_keys[key]); }
    [[nodiscard]] HiveTime lastWriteTime(KeyId key) const noexcept { return m_keys[key].time; }
    [[nodiscard]] std::u16string className(KeyId key) const;
    /// The self-relative security descriptor.
    [[nodiscard]] std::span<const std::byte> security(KeyId key) const noexcept
    {
        return m_security[m_keys[key].security];
    }
    /// Valid until any sub-key is created or deleted.
    [[nodiscard]] std::span<const KeyId> subKeys(KeyId key) const noexcept
    {
        return listed(m_keys[key].subKeys);
    }
    /// Valid until any value is created or deleted.
    [[nodiscard]] std::span<const ValueId> values(KeyId key) const noexcept
    {
        return listed(m_keys[key].values);
    }
    /// The sub-key of that name.
    [[nodiscard]] std::optional<KeyId> findKey(KeyId key, std::u16string_view name) const noexcept;
    /// The key at `path` below `key`, names separated by backslashes; an empty path is `key` itself.
    [[nodiscard]] std::optional<KeyId> findPath(KeyId key, std::u16string_view path) const noexcept;
    /// The names from below the root down to the key, separated by backslashes. A key whose name contains a
    /// backslash or a zero has no path, nor has any below it: theirs is that of the nearest one above.
    [[nodiscard]] std::u16string path(KeyId key) const;

    /// Empty for the default value.
    [[nodiscard]] NameView valueName(ValueId value) const noexcept { return nameOf(m_values[value]); }
    [[nodiscard]] std::uint32_t type(ValueId value) const noexcept { return m_values[value].type; }
    [[nodiscard]] std::size_t dataSize(ValueId value) const noexcept { return m_values[value].size; }
    [[nodiscard]] std::vector<std::byte> data(ValueId value) const;
    /// Calls `take` for each part of the data, in order.
    template <class Take>
    void forEachPart(ValueId value, Take&& take) const;
    [[nodiscard]] std::optional<ValueId> findValue(KeyId key, std::u16string_view name) const noexcept;
    /// Makes findValue fast for a key with many values, until it is deleted; setting and deleting a value do
    /// so, too.
    void indexValues(KeyId key);
    /// The same for all keys.
    void indexValues();

    /// Creates a sub-key with the security of `key`, or returns the existing one. Raises kTooDeep,
    /// kInvalidName.
    KeyId createKey(KeyId key, std::u16string_view name, HiveTime now);
    /// Creates the key at `path` and its missing parents, or nothing on failure; see findPath and createKey.
    /// `firstMade` receives the topmost key created, or kNone.
    KeyId createPath(KeyId key, std::u16string_view path, HiveTime now, KeyId* firstMade = nullptr);
    /// Deletes the key and everything below it. Raises kNotPossible for the root.
    void deleteKey(KeyId key, HiveTime now);
    /// Raises kTooDeep for more than 32,767 characters.
    void setClassName(KeyId key, std::u16string_view text);
    /// Sets type and data of the value, creating it if necessary. Raises kTooDeep for its name, kTooLarge for
    /// more than 1 GiB.
    ValueId setValue(KeyId key, std::u16string_view name, std::uint32_t type, std::span<const std::byte> data,
                     HiveTime now);
    /// Returns whether it existed.
    bool deleteValue(KeyId key, std::u16string_view name, HiveTime now);

private:
    friend class HiveReader;
    friend class HiveWriter;

    /// Numbers of keys or values, consecutive in m_lists.
    struct List
    {
        std::uint32_t begin = 0;
        std::uint32_t count = 0;
        std::uint32_t capacity = 0;
    };
    /// Where bytes are: an offset in the bins, or the number of a blob when a record has a kOwned... bit.
    using Place = std::uint32_t;

    enum RecordBits : std::uint16_t
    {
        kOwnedName = 1,
        kOwnedData = 2, ///< also of a class name
        kLatin1 = 4,
        kSegments = 8, ///< the data is in segments; the place is that of their list
    };
    struct Key
    {
        HiveTime time = 0;
        KeyId parent = kNone;
        Place name = 0;
        Place className = 0;
        std::uint32_t security = 0;
        List subKeys;
        List values;
        std::uint32_t access = 0;
        std::uint16_t flags = 0; ///< as in the file
        std::uint16_t userFlags = 0;
        std::uint16_t nameLength = 0;
        std::uint16_t classLength = 0;
        std::uint16_t bits = 0;
        std::uint16_t level = 0; ///< the root's is 1
    };
    struct Value
    {
        Place name = 0;
        Place data = 0;
        std::uint32_t size = 0;
        std::uint32_t type = 0;
        std::uint16_t nameLength = 0;
        std::uint16_t bits = 0;
        std::uint16_t flags = 0; ///< as in the file
    };
    using Blob = std::vector<std::byte>;
    /// Values by indexHash of their names.
    using ValueIndex = std::multimap<std::uint32_t, ValueId>;

    Hive() = default;
    /// For the system's account and administrators.
    [[nodiscard]] static std::span<const std::byte> defaultSecurity() noexcept;
    /// From the time, to the system's finest unit.
    [[nodiscard]] static std::uint64_t newIndexBase() noexcept;

    [[nodiscard]] const std::byte* at(Place place, bool isOwned) const noexcept
    {
        return isOwned ? m_blobs[place].data() : m_bins.data() + place;
    }
    template <class Record>
    [[nodiscard]] NameView nameOf(const Record& record) const noexcept
    {
        return {at(record.name, (record.bits & kOwnedName) != 0), record.nameLength,
                (record.bits & kLatin1) != 0};
    }
    [[nodiscard]] std::span<const std::uint32_t> listed(const List& list) const noexcept
    {
        return {m_lists.data() + list.begin, list.count};
    }
    /// The position of the first sub-key whose name is not before this one.
    [[nodiscard]] std::size_t lowerBound(KeyId key, const NameView& name) const noexcept;
    /// The segment's payload in the bins, already checked.
    [[nodiscard]] std::span<const std::byte> segment(const Value& value, std::size_t index) const noexcept;
    /// Reserves space for that many more blobs.
    void reserveBlobs(std::size_t count);
    /// The space must be reserved.
    Place keepBlob(Blob&& blob) noexcept;
    void dropBlob(Place place) noexcept;
    /// Reserves space for one more.
    void grow(List& list);
    /// The space must be reserved.
    void insert(List& list, std::size_t index, std::uint32_t number) noexcept;
    void erase(List& list, std::size_t index) noexcept;
    void dropList(List& list) noexcept;
    void dropKey(KeyId key) noexcept;
    /// With everything below it; its parent's list still has it.
    void dropTree(KeyId key) noexcept;
    void dropValue(ValueId value) noexcept;
    void removeFromIndex(KeyId key, ValueId value) noexcept;
    [[nodiscard]] std::uint32_t indexHash(const NameView& name) const noexcept;

    std::vector<std::byte> m_ownBytes;      ///< when the hive keeps them
    std::span<const std::byte> m_bins;      ///< what offsets in the file count from
    std::array<std::byte, 64> m_fileName{}; ///< of the base block
    HiveTime m_time = 0;
    std::uint32_t m_sequence = 1;
    std::uint32_t m_minor = 5;
    bool m_isClean = true;
    std::size_t m_keyCount = 0;
    std::vector<Key> m_keys;
    std::vector<Value> m_values;
    std::vector<std::uint32_t> m_lists;
    std::array<std::vector<std::uint32_t>, 32> m_freeLists; ///< by capacity, a power of two
    std::vector<std::span<const std::byte>> m_security;     ///< each descriptor once
    std::map<KeyId, std::uint32_t> m_predefined;            ///< keys that stand for a predefined handle
    static constexpr std::uint64_t kIndexPrime = (1ULL << 31U) - 1;
    std::uint64_t m_indexBase = newIndexBase();
    std::map<KeyId, ValueIndex> m_indexes; ///< of keys with many values that were looked for
    std::vector<KeyId> m_freeKeys;
    std::vector<ValueId> m_freeValues;
    std::vector<Blob> m_blobs;
    std::vector<Place> m_freeBlobs;
};

template <class Take>
void Hive::forEachPart(ValueId value, Take&& take) const
{
    const Value& record = m_values[value];
    if ((record.bits & kSegments) == 0) {
        take(std::span(at(record.data, (record.bits & kOwnedData) != 0), record.size));
        return;
    }
    std::size_t left = record.size;
    for (std::size_t i = 0; left != 0; ++i) {
        const std::span<const std::byte> part = segment(record, i);
        take(part);
        left -= part.size();
    }
}
} // namespace offline
