#include <gtest/gtest.h>

#include <random>

#include "HiveChecker.h"
#include "Listing.h"

#include "core/win32/registry/offline/include/HiveLayout.h"

using namespace offline;

namespace {
using Bytes = std::vector<std::byte>;

constexpr std::uint32_t kNowhere = 0x00FFFFF8;

Bytes bytesOf(std::string_view text)
{
    const auto bytes = std::as_bytes(std::span(text));
    return {bytes.begin(), bytes.end()};
}

/// Keys "a" (with a class, two values and "below"), "b" and "c", with every cell in the order of writing.
Bytes smallHive(std::uint32_t segments = 0)
{
    Hive hive = Hive::create(7);
    const KeyId a = hive.createKey(Hive::root(), u"a", 8);
    hive.createKey(a, u"below", 9);
    hive.setClassName(a, u"class");
    hive.setValue(a, u"one", 1, bytesOf("12345"), 10);
    hive.setValue(a, u"two", 4, bytesOf("1234"), 11);
    if (segments != 0)
        hive.setValue(a, u"big", 3, Bytes(std::size_t{segments} * layout::db::kSegment), 12);
    for (const char16_t* name : {u"b", u"c"})
        hive.createKey(Hive::root(), name, 13);
    return hive.compact();
}

std::uint32_t word(const Bytes& bytes, std::uint32_t cell, std::size_t place)
{
    return layout::load32(bytes.data() + layout::kPage + cell + layout::kCellHeader + place);
}

void put(Bytes& bytes, std::uint32_t cell, std::size_t place, auto number)
{
    layout::store(bytes.data() + layout::kPage + cell + layout::kCellHeader + place, number);
}
/// Makes the checksum true again.
void seal(Bytes& bytes)
{
    layout::store(bytes.data() + layout::base::kChecksum, layout::checksum(bytes.data()));
}
long codeOf(auto&& step)
{
    try {
        step();
    } catch (const long code) {
        return code;
    }
    return 0;
}

/// The cells of smallHive.
struct Cells
{
    explicit Cells(const Bytes& bytes)
        : root(layout::load32(bytes.data() + layout::base::kRoot)),
          list(word(bytes, root, layout::nk::kSubKeyList)), a(word(bytes, list, 4)), b(word(bytes, list, 12)),
          values(word(bytes, a, layout::nk::kValueList)), one(word(bytes, values, 0)),
          two(word(bytes, values, 4)), below(word(bytes, a, layout::nk::kSubKeyList)),
          security(word(bytes, root, layout::nk::kSecurity))
    {
    }
    std::uint32_t root, list, a, b, values, one, two, below, security;
};

struct Damage
{
    const char* what;
    std::uint32_t Cells::*cell; ///< none: the place is in the file
    std::size_t place;
    std::uint32_t value;
    int width; ///< of the value, in bytes
    long code;
    LossKind loss;    ///< the first one that a salvage records
    std::size_t left; ///< keys that it recovers
};

using enum LossKind;
const Damage kDamages[] = {
    {"signature", nullptr, 0, 0x66676572 + 1, 4, kBadDatabase, kBaseBlock, 5},
    {"major", nullptr, 20, 2, 4, kBadDatabase, kBaseBlock, 5},
    {"minor, old", nullptr, 24, 2, 4, kBadDatabase, kBaseBlock, 5},
    {"minor, new", nullptr, 24, 7, 4, kBadDatabase, kBaseBlock, 5},
    {"a log", nullptr, 28, 6, 4, kBadDatabase, kBaseBlock, 5},
    {"format", nullptr, 32, 0, 4, kBadDatabase, kBaseBlock, 5},
    {"bins odd", nullptr, 40, 4097, 4, kBadDatabase, kBaseBlock, 5},
    {"no bins", nullptr, 40, 0, 4, kBadDatabase, kBaseBlock, 5},
    {"bins beyond the file", nullptr, 40, 8192, 4, kDamagedHive, kBin, 5},
    {"root outside", nullptr, 36, kNowhere, 4, kDamagedHive, kKey, 5},
    {"root between cells", nullptr, 36, 0x24, 4, kDamagedHive, kKey, 5},
    {"bin signature", nullptr, 4096, 0, 4, kDamagedHive, kBin, 5},
    {"bin offset", nullptr, 4100, 4096, 4, kDamagedHive, kBin, 5},
    {"bin size", nullptr, 4104, 8192, 4, kDamagedHive, kBin, 5},
    {"cell of no size", &Cells::b, std::size_t(0) - 4, 0, 4, kDamagedHive, kBin, 4},
    {"cell beyond its bin", &Cells::b, std::size_t(0) - 4, 0U - 8192, 4, kDamagedHive, kBin, 4},
    {"cell odd", &Cells::b, std::size_t(0) - 4, 0U - 84, 4, kDamagedHive, kBin, 4},
    {"cell free", &Cells::b, std::size_t(0) - 4, 88, 4, kDamagedHive, kKey, 4},
    {"not a key", &Cells::b, 0, 0x6B76, 2, kDamagedHive, kKey, 4},
    {"key name long", &Cells::b, 72, 100, 2, kDamagedHive, kKey, 4},
    {"key name none", &Cells::b, 72, 0, 2, kDamagedHive, kKey, 4},
    {"key name half a character", &Cells::b, 2, 0, 2, kDamagedHive, kKey, 4},
    {"no descriptor", &Cells::b, 44, 0xFFFFFFFF, 4, kDamagedHive, kSecurity, 5},
    {"descriptor long", &Cells::security, 16, 200, 4, kDamagedHive, kSecurity, 5},
    {"descriptor empty", &Cells::security, 16, 0, 4, kDamagedHive, kSecurity, 5},
    {"class outside", &Cells::a, 48, kNowhere, 4, kDamagedHive, kClass, 5},
    {"class long", &Cells::a, 74, 100, 2, kDamagedHive, kClass, 5},
    {"class is the list of values", &Cells::a, 48, 0, 0, 0, kValueList, 5},
    {"number of keys", &Cells::root, 20, 4, 4, kDamagedHive, kKeyList, 5},
    {"no list of keys", &Cells::root, 28, 0xFFFFFFFF, 4, kDamagedHive, kKeyList, 1},
    {"list of another kind", &Cells::list, 0, 0x7878, 2, kDamagedHive, kKeyList, 1},
    {"list of lists with a key in it", &Cells::list, 0, 0x6972, 2, kDamagedHive, kKeyList, 1},
    {"list long", &Cells::list, 2, 1000, 2, kDamagedHive, kKeyList, 5},
    {"list short", &Cells::list, 2, 2, 2, kDamagedHive, kKeyList, 4},
    {"a key twice", &Cells::list, 12, 0, 0, 0, kKey, 4},
    {"number of values", &Cells::a, 36, 3, 4, kDamagedHive, kValue, 5},
    {"number of values, far more", &Cells::a, 36, 0x40000000, 4, kDamagedHive, kValueList, 5},
    {"no list of values", &Cells::a, 40, 0xFFFFFFFF, 4, kDamagedHive, kValueList, 5},
    {"value twice", &Cells::values, 4, 0, 0, 0, kValue, 5},
    {"not a value", &Cells::one, 0, 0x6B6E, 2, kDamagedHive, kValue, 5},
    {"value name long", &Cells::one, 2, 100, 2, kDamagedHive, kValue, 5},
    {"data long", &Cells::one, 4, 100, 4, kDamagedHive, kData, 5},
    {"data outside", &Cells::one, 8, kNowhere, 4, kDamagedHive, kData, 5},
    {"data inside long", &Cells::one, 4, 0x80000005, 4, kDamagedHive, kData, 5},
    {"no keys beside their list", &Cells::root, 20, 0, 4, kDamagedHive, kCount, 5},
    {"no values beside their list", &Cells::a, 36, 0, 4, kDamagedHive, kCount, 5},
    {"a handle beside values", &Cells::a, 2, 0x60, 2, kDamagedHive, kCount, 5},
    {"another parent", &Cells::b, 16, 0x28, 4, kDamagedHive, kParent, 5},
    {"another parent of a key with one below", &Cells::a, 16, 0xFFFFFFFF, 4, kDamagedHive, kParent, 5},
    {"a key of another's", &Cells::below, 4, 1, 0, 0, kKey, 4},
    {"a key's name twice", &Cells::b, 76, 'A', 1, kDamagedHive, kKey, 4},
    {"a value's name twice", &Cells::two, 20, 'N' << 8 | 'O' | 'E' << 16, 3, kDamagedHive, kValue, 5},
    {"a loop", &Cells::below, 4, 0x20, 4, kDamagedHive, kKey, 4}};
} // namespace

TEST(HostileHives, AreRefusedAndSalvaged)
{
    for (Damage row : kDamages) {
        SCOPED_TRACE(row.what);
        Bytes bytes = smallHive();
        const Cells cells(bytes);
        if (row.width == 0) { // unknown to the row: a cell that is already in use
            row.value = row.place == 48   ? cells.values
                        : row.value == 1  ? cells.b
                        : row.place == 12 ? cells.a
                                          : cells.one;
            row.width = 4;
            row.code = kDamagedHive;
        }
        const auto cell = row.cell == nullptr ? 0 : layout::kPage + cells.*row.cell + layout::kCellHeader;
        std::memcpy(bytes.data() + cell + row.place, &row.value, static_cast<std::size_t>(row.width));
        if (row.place != 0 || row.cell != nullptr)
            seal(bytes);
        EXPECT_EQ(codeOf([&] { static_cast<void>(Hive::parse(Bytes(bytes))); }), row.code);
        std::vector<Loss> losses;
        const Hive saved = Hive::salvage(std::span<const std::byte>(bytes), losses);
        ASSERT_FALSE(losses.empty());
        EXPECT_EQ(losses.front().kind, row.loss);
        EXPECT_TRUE(losses.front().offset <= bytes.size() || losses.front().offset == Hive::kNone);
        EXPECT_EQ(saved.keyCount(), row.left);
        EXPECT_EQ(saved.findPath(Hive::root(), u"a\\b"), std::nullopt) << "another's";
        if (row.loss == LossKind::kCount) { // the list is read as if the count were right
            EXPECT_EQ(losses.size(), 1U);
            EXPECT_EQ(saved.values(*saved.findPath(Hive::root(), u"a")).size(), 2U);
        }
        const HiveChecker checker(saved.compact());
    }
    Bytes bytes = smallHive();
    layout::store(bytes.data() + layout::base::kChecksum, 5U);
    EXPECT_THROW(static_cast<void>(Hive::parse(std::span<const std::byte>(bytes))), long);
    for (const std::size_t size : {0U, 100U, 4096U, 8191U}) {
        std::vector<Loss> losses;
        Bytes cut = smallHive();
        cut.resize(size);
        EXPECT_THROW(static_cast<void>(Hive::parse(Bytes(cut))), long) << size;
        EXPECT_THROW(static_cast<void>(Hive::salvage(Bytes(cut), losses)), long) << size;
    }
}

/// Found in the order of the file, whatever order the bins are scanned in.
TEST(HostileHives, HaveWrongCellsInSeveralPlaces)
{
    Bytes odd = smallHive(); // two cells whose sizes are wrong alone and right together
    const std::uint32_t b = Cells(odd).b;
    put(odd, b, std::size_t(0) - 4, 0U - 84);
    put(odd, b, 80, 4U);
    EXPECT_EQ(codeOf([&] { static_cast<void>(Hive::parse(Bytes(odd))); }), kDamagedHive);

    Bytes bytes = smallHive(4); // each segment's cell is the first in a bin of its own
    std::vector<std::uint32_t> wrong;
    for (std::uint32_t bin = 0; bin != bytes.size() - layout::kPage;
         bin += layout::load32(&bytes[layout::kPage + bin + 8])) {
        std::uint32_t cell = bin + layout::bin::kHeader;
        if (wrong.empty()) // the second one in the first bin: it is reached later than the others
            cell += 0U - layout::load32(&bytes[layout::kPage + cell]);
        put(bytes, cell, std::size_t(0) - 4, 0U);
        wrong.push_back(cell + layout::kPage);
    }
    std::vector<Loss> losses;
    const Hive read = Hive::salvage(Bytes(bytes), losses);
    ASSERT_GT(wrong.size(), 3U);
    for (std::size_t i = 0; i != wrong.size(); ++i)
        EXPECT_EQ(losses.at(i).offset, wrong[i]);
}

TEST(HostileHives, LieInTheirSegments)
{
    const Bytes good = smallHive(3);
    const std::uint32_t value = word(good, Cells(good).values, 8);
    const std::uint32_t record = word(good, value, 8);
    const std::uint32_t list = word(good, record, 4);
    const std::tuple<std::uint32_t, std::size_t, std::uint32_t> rows[] = {
        {record, 0, 0x00027864},           {record, 4, kNowhere}, {list, 4, word(good, list, 0)},
        {record, 0, 0x00046264},           {list, 8, kNowhere},   {value, 4, 4 * layout::db::kSegment},
        {word(good, list, 0), ~3ULL, 0x20}};
    for (const auto& [cell, place, number] : rows) {
        Bytes bytes = good;
        put(bytes, cell, place, number);
        std::vector<Loss> losses;
        EXPECT_THROW(static_cast<void>(Hive::parse(std::span<const std::byte>(bytes))), long);
        EXPECT_EQ(Hive::salvage(std::span<const std::byte>(bytes), losses).keyCount(), 5U);
        EXPECT_TRUE(losses.back().kind == LossKind::kData || losses.front().kind == LossKind::kBin);
    }
}

TEST(HiveTree, KeepsWhatAFileSays)
{
    Bytes bytes = smallHive();
    const Cells cells(bytes);
    put(bytes, cells.b, 2, std::uint16_t{0x30});    // a symbolic link
    put(bytes, cells.b, 12, 0x12345678U);           // access
    put(bytes, cells.b, 54, std::uint16_t{0xABCD}); // flags of the user's
    put(bytes, cells.two, 16, std::uint16_t{3});
    layout::store(bytes.data() + layout::base::kPrimary, 9U);
    layout::store(bytes.data() + layout::base::kName, 0x00410042U);
    seal(bytes);
    const Hive hive = Hive::parse(Bytes(bytes));
    EXPECT_FALSE(hive.isClean());
    EXPECT_EQ(hive.className(*hive.findPath(Hive::root(), u"A")), u"class");
    EXPECT_EQ(hive.lastWriteTime(*hive.findPath(Hive::root(), u"a\\BELOW")), 9U);

    const Bytes written = hive.compact();
    EXPECT_TRUE(Hive::parse(std::span<const std::byte>(written)).isClean());
    layout::store(bytes.data() + layout::base::kSecondary, 9U);
    seal(bytes);
    EXPECT_EQ(written, bytes); // it was written by us in the first place
}

TEST(HiveTree, TakesManyKeysAndLevels)
{
    for (const std::size_t count : {1U, 507U, 508U, 2000U}) {
        Hive hive = Hive::create(1);
        for (std::size_t i = count; i-- > 0;)
            hive.createKey(Hive::root(), std::u16string(1, static_cast<char16_t>(u'\u4E00' + i)), 2);
        const Bytes bytes = hive.compact();
        const HiveChecker checker(bytes);
        EXPECT_EQ(listing(Hive::parse(std::span<const std::byte>(bytes))), listing(hive)) << count;
    }
    Hive hive = Hive::create(1);
    KeyId key = Hive::root();
    for (std::size_t level = 1; level < Hive::kMostLevels; ++level)
        key = hive.createKey(key, u"down", 2);
    EXPECT_THROW(hive.createKey(key, u"down", 2), long);
    Bytes bytes = hive.compact();
    EXPECT_EQ(Hive::parse(Bytes(bytes)).keyCount(), Hive::kMostLevels);
    // The deepest key's neighbour, hung below it, is one level too deep.
    hive.createKey(hive.parent(key), u"e", 2);
    bytes = hive.compact();
    std::uint32_t cell = layout::load32(bytes.data() + layout::base::kRoot);
    for (std::size_t level = 2; level < Hive::kMostLevels; ++level)
        cell = word(bytes, word(bytes, cell, layout::nk::kSubKeyList), 4);
    const std::uint32_t list = word(bytes, cell, layout::nk::kSubKeyList);
    put(bytes, word(bytes, list, 4), layout::nk::kSubKeys, 1);
    EXPECT_THROW(static_cast<void>(Hive::parse(Bytes(bytes))), long);
}

TEST(HiveTree, IsWhatWasMadeOfIt)
{
    const std::u16string names[] = {u"a", u"B", u"\u00E4", u"\u03A9x", u"\u65E5", u"A b"};
    const std::u16string others[] = {u"A", u"b", u"\u00C4", u"\u03C9X", u"\u65E5", u"a B"};
    const auto valueName = [](const std::u16string(&all)[6], unsigned number) { // of a value: one of 300
        return all[number % 6] + static_cast<char16_t>(u'\u4E00' + number / 6);
    };
    std::mt19937 random(5);
    Hive hive = Hive::parse(smallHive());
    for (const char16_t* name : {u"a", u"b", u"c"})
        hive.deleteKey(*hive.findKey(Hive::root(), name), 1);
    // The same in maps: keys with their values, identified by the number of the name.
    std::map<std::vector<unsigned>, std::map<unsigned, Bytes>> model{{{}, {}}};
    for (int round = 0; round < 20000; ++round) {
        std::vector<unsigned> way;
        KeyId key = Hive::root();
        for (unsigned depth = random() % 3; depth != 0; --depth) {
            way.push_back(random() % 6);
            key = hive.createKey(key, (random() % 2 == 0 ? names : others)[way.back()], 3);
            model.try_emplace(way);
        }
        const unsigned name = random() % 300;
        if (random() % 3 != 0) {
            const Bytes data(random() % 200 == 0 ? 40000 : random() % 9, static_cast<std::byte>(round));
            hive.setValue(key, valueName(names, name), 3, data, 4);
            model[way][name] = data;
        } else if (random() % 4 != 0 || way.empty()) {
            EXPECT_EQ(hive.deleteValue(key, valueName(others, name), 5), model[way].erase(name) != 0);
        } else {
            hive.deleteKey(key, 6);
            std::erase_if(model, [&](const auto& each) {
                return each.first.size() >= way.size() &&
                       std::equal(way.begin(), way.end(), each.first.begin());
            });
        }
        if (round % 4000 == 3999)
            hive = Hive::parse(hive.compact());
    }
    EXPECT_EQ(hive.keyCount(), model.size());
    for (const auto& [way, values] : model) {
        KeyId key = Hive::root();
        for (const unsigned name : way)
            key = hive.findKey(key, others[name]).value();
        EXPECT_EQ(hive.values(key).size(), values.size());
        for (const auto& [name, data] : values)
            EXPECT_EQ(hive.data(hive.findValue(key, valueName(others, name)).value()), data);
    }
    const HiveChecker checker(hive.compact());
}

TEST(HiveTree, FindsNoValueOfADeletedKeyInTheNextOne)
{
    Hive hive = Hive::parse(smallHive());
    const KeyId many = hive.createKey(Hive::root(), u"many", 3);
    for (char16_t name = u'\u4E00'; name < u'\u4E00' + 100; ++name)
        hive.setValue(many, std::u16string(1, name), 3, {}, 4);
    hive.deleteKey(many, 6);
    EXPECT_EQ(hive.createKey(Hive::root(), u"next", 3), many);
    EXPECT_EQ(hive.findValue(many, u"\u4E00"), std::nullopt);
}

TEST(HiveTree, HoldsTheLongestNamesAndNothingLonger)
{
    Hive hive = Hive::create(1);
    const KeyId longest = hive.createKey(Hive::root(), std::u16string(255, u'\u65E5'), 2);
    hive.setValue(longest, std::u16string(16383, u'\u65E5'), 0xFFFFFFFF, {}, 2);
    hive.setClassName(longest, std::u16string(32767, u'c'));
    const std::string before = listing(hive);
    EXPECT_EQ(codeOf([&] { hive.setClassName(longest, std::u16string(32768, u'c')); }), kTooDeep);
    for (const char16_t* wrong : {u"", u"a\\b"})
        EXPECT_EQ(codeOf([&] { hive.createKey(Hive::root(), wrong, 2); }), kInvalidName);
    EXPECT_TRUE(listing(hive) == before && listing(Hive::parse(hive.compact())) == before);
}

/// No path leads to a key with a backslash in its name, which no program makes.
TEST(HostileHives, HaveKeysThatNoPathNames)
{
    Hive hive = Hive::create(1);
    hive.createPath(Hive::root(), u"a~b\\c", 2);
    Bytes bytes = hive.compact();
    std::ranges::replace(bytes, std::byte{'~'}, std::byte{'\\'});
    const Hive read = Hive::parse(std::move(bytes));
    const KeyId named = read.subKeys(Hive::root())[0];
    EXPECT_EQ(read.path(read.subKeys(named)[0]), u"") << "the nearest key with a path";
}

// Of the sanitizer, which has no header here.
extern "C" std::size_t __sanitizer_get_current_allocated_bytes();
extern "C" int __sanitizer_install_malloc_and_free_hooks(void (*)(const volatile void*, std::size_t),
                                                         void (*)(const volatile void*));
/// What an open hive needs beside its bytes, in proportion to them, also where most of them are wrong.
TEST(HiveTree, NeedsLittleMemory)
{
    static std::size_t most = 0; // bytes in use
    Hive hive = Hive::create(1);
    for (int group = 0; group < 20; ++group)
        for (int number = 0; number < 500; ++number) {
            const std::u16string name{static_cast<char16_t>(u'a' + group), u'\\',
                                      static_cast<char16_t>(u'\u4E00' + number)};
            hive.setValue(hive.createPath(Hive::root(), name, 2), u"v", 4, bytesOf("1234"), 3);
        }
    const Bytes good = hive.compact();
    ASSERT_NE(__sanitizer_install_malloc_and_free_hooks(
                  [](const volatile void*, std::size_t) {
                      most = std::max(most, __sanitizer_get_current_allocated_bytes());
                  },
                  [](const volatile void*) {}),
              0);
    std::mt19937 random(3);
    for (int round = 0; round < 30; ++round) {
        Bytes bytes = good;
        for (int place = 0; place < round * 1000; ++place)
            bytes[layout::kPage + random() % (bytes.size() - layout::kPage)] = std::byte(random());
        const std::size_t before = most = __sanitizer_get_current_allocated_bytes();
        std::vector<Loss> losses;
        const Hive read = Hive::salvage(std::span<const std::byte>(bytes), losses);
        EXPECT_TRUE(most > before && most - before <= bytes.size()) << round << " " << read.keyCount();
    }
}
