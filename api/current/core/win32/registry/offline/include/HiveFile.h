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

/// Registry hive files ("regf", versions 1.3 to 1.6) as bytes in and bytes out. Source of the format: M.
/// Suhanov's description of Windows registry files (github.com/msuhanov/regf).
///
/// Everything in a file may be a lie: whatever the bytes, reading ends in a hive or in a code, takes time and
/// memory in proportion to their number, and reads nothing outside them.
namespace offline {
/// The codes that the engine raises, as bare longs; std::bad_alloc without memory.
inline constexpr long kBadDatabase = 1009; ///< no hive: too short, another format, a base block that is wrong
inline constexpr long kDamagedHive = 1015; ///< a hive whose bins, cells, lists or keys are wrong
inline constexpr long kTooDeep = 206;      ///< a key of more than 512 levels, or a name that is too long
inline constexpr long kTooLarge = 223;    ///< what was to be written is above 2 GiB, the most a hive can hold
inline constexpr long kInvalidName = 123; ///< an empty key name, or one with a backslash
inline constexpr long kNotPossible = 50;  ///< the root deleted, a value below a key that stands for a handle

using KeyId = std::uint32_t;
using ValueId = std::uint32_t;

/// The number of 100 ns since 1601, in UTC.
using HiveTime = std::uint64_t;

/// What a salvage had to leave out.
enum class LossKind
{
    kBaseBlock, ///< the base block is wrong; what it says was not used where something else could tell
    kBin,       ///< a bin's header, or the cells in it
    kKey,       ///< a sub-key with all that is below it
    kKeyList,   ///< sub-keys of the key
    kValue,     ///< a value of the key
    kValueList, ///< values of the key
    kData,      ///< a value's data: the value is left out
    kClass,     ///< the class name of the key
    kSecurity   ///< the security descriptor: the key has the one of the key above it
};

struct Loss
{
    LossKind kind;
    KeyId key;            ///< the key that it belongs to; the root also for what belongs to the whole file
    std::uint32_t offset; ///< in the file, of the cell, list entry or bin that is wrong
};

/// A hive: its keys and values as a tree that can be read and changed, and its writer. What came from bytes
/// stays where it is in them. Not safe for several threads at once, but for reading.
///
/// Keys and values are known by numbers, which are valid until the key or value is deleted. Sub-keys are in
/// the system's order, values in that of the file.
class Hive
{
public:
    /// The most levels of keys, the root's included.
    static constexpr std::size_t kMostLevels = 512;
    static constexpr std::size_t kLongestKeyName = 255;     ///< in UTF-16 code units
    static constexpr std::size_t kLongestValueName = 16383; ///< likewise
    static constexpr std::uint32_t kNone = 0xFFFFFFFF;

    /// Reads a hive. `bytes` must stay as they are for as long as the hive lives. One that was not closed
    /// (isClean) is read as it stands, without its logs. Raises kBadDatabase, kDamagedHive.
    [[nodiscard]] static Hive parse(std::span<const std::byte> bytes);
    /// The same; the hive keeps the bytes.
    [[nodiscard]] static Hive parse(std::vector<std::byte>&& bytes);
    /// Reads what can still be reached of a damaged hive, and tells what it had to leave out; nothing for a
    /// hive that parse takes. Raises kBadDatabase when there is not even a root key.
    [[nodiscard]] static Hive salvage(std::span<const std::byte> bytes, std::vector<Loss>& losses);
    [[nodiscard]] static Hive salvage(std::vector<std::byte>&& bytes, std::vector<Loss>& losses);
    /// A hive of version 1.5 with an empty root key, which the system's account and administrators may use.
    [[nodiscard]] static Hive create(HiveTime now);

    Hive(Hive&&) noexcept = default;
    Hive& operator=(Hive&&) noexcept = default;
    Hive(const Hive&) = delete;
    Hive& operator=(const Hive&) = delete;
    ~Hive() = default;

    /// The hive as a new file: without deleted or free room, each key's cells together, lists sorted and
    /// hashed, security descriptors shared. Version, names, time stamps, flags and security are kept. The
    /// same tree always gives the same bytes. Raises kTooLarge.
    [[nodiscard]] std::vector<std::byte> compact() const;

    /// Whether whoever wrote the file had finished: its two sequence numbers are equal.
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
    /// Valid until a sub-key is made or deleted anywhere.
    [[nodiscard]] std::span<const KeyId> subKeys(KeyId key) const noexcept
    {
        return listed(m_keys[key].subKeys);
    }
    /// Valid until a value is made or deleted anywhere.
    [[nodiscard]] std::span<const ValueId> values(KeyId key) const noexcept
    {
        return listed(m_keys[key].values);
    }
    /// The sub-key of that name.
    [[nodiscard]] std::optional<KeyId> findKey(KeyId key, std::u16string_view name) const noexcept;
    /// The key at `path` below `key`, names with a backslash between them; an empty one is `key` itself.
    [[nodiscard]] std::optional<KeyId> findPath(KeyId key, std::u16string_view path) const noexcept;
    /// The names from below the root down to the key, with a backslash between them.
    [[nodiscard]] std::u16string path(KeyId key) const;

    /// Empty for the default value.
    [[nodiscard]] NameView valueName(ValueId value) const noexcept { return nameOf(m_values[value]); }
    [[nodiscard]] std::uint32_t type(ValueId value) const noexcept { return m_values[value].type; }
    [[nodiscard]] std::size_t dataSize(ValueId value) const noexcept { return m_values[value].size; }
    [[nodiscard]] std::vector<std::byte> data(ValueId value) const;
    /// Calls `take` for each stretch of the data, in order.
    template <class Take>
    void forEachPart(ValueId value, Take&& take) const;
    [[nodiscard]] std::optional<ValueId> findValue(KeyId key, std::u16string_view name) const noexcept;

    /// Makes a sub-key with the security of `key`, or returns the one that has the name. Raises kTooDeep,
    /// kInvalidName.
    KeyId createKey(KeyId key, std::u16string_view name, HiveTime now);
    /// Makes the key at `path` with all that are missing above it, or none; see findPath and createKey.
    /// `firstMade` takes the topmost one that was made, or kNone.
    KeyId createPath(KeyId key, std::u16string_view path, HiveTime now, KeyId* firstMade = nullptr);
    /// Deletes the key with all that is below it. Raises kNotPossible for the root.
    void deleteKey(KeyId key, HiveTime now);
    /// Raises kTooDeep for more than 32,767 characters.
    void setClassName(KeyId key, std::u16string_view text);
    /// Sets type and data of the value, which is made when it is missing. Raises kTooDeep for its name,
    /// kTooLarge for more than 1 GiB.
    ValueId setValue(KeyId key, std::u16string_view name, std::uint32_t type, std::span<const std::byte> data,
                     HiveTime now);
    /// Returns whether it was there.
    bool deleteValue(KeyId key, std::u16string_view name, HiveTime now);

private:
    friend class HiveReader;
    friend class HiveWriter;

    /// Numbers of keys or values, one after the other in m_lists.
    struct List
    {
        std::uint32_t begin = 0;
        std::uint32_t count = 0;
        std::uint32_t capacity = 0;
    };
    /// Where bytes are: an offset in the bins, or with kOwned... among a record's bits the number of a blob.
    using Place = std::uint32_t;

    enum RecordBits : std::uint16_t
    {
        kOwnedName = 1,
        kOwnedData = 2, ///< also of a class name
        kLatin1 = 4,
        kSegments = 8, ///< the data is in segments; the place is that of the segments' list
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

    Hive() = default;
    /// For the system's account and administrators.
    [[nodiscard]] static std::span<const std::byte> defaultSecurity() noexcept;

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
    /// Where the first sub-key stands whose name is not before this one.
    [[nodiscard]] std::size_t lowerBound(KeyId key, const NameView& name) const noexcept;
    /// The segment's payload in the bins; a checked one.
    [[nodiscard]] std::span<const std::byte> segment(const Value& value, std::size_t index) const noexcept;
    Place keepBlob(Blob&& blob);
    void dropBlob(Place place) noexcept;
    /// Makes room for one more.
    void grow(List& list);
    /// Needs that room.
    void insert(List& list, std::size_t index, std::uint32_t number) noexcept;
    void erase(List& list, std::size_t index) noexcept;
    void dropList(List& list) noexcept;
    void dropKey(KeyId key) noexcept;
    void dropValue(ValueId value) noexcept;

    std::vector<std::byte> m_ownBytes;      ///< where the hive keeps them
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
    std::array<std::vector<std::uint32_t>, 32> m_freeLists; ///< by the power of two that they have room for
    std::vector<std::span<const std::byte>> m_security;     ///< each descriptor once
    std::map<KeyId, std::uint32_t> m_predefined;            ///< keys that stand for a predefined handle
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
