// For any bytes: a hive is read or refused; what was read can be walked, changed and written; what was
// written is valid and reads the same; and a salvaged hive is such a hive. scripts/fuzz runs this.

#include <cstdlib>

#include "HiveChecker.h"
#include "Listing.h"

#include "core/win32/registry/offline/include/HiveLayout.h"

using namespace offline;

namespace {
void require(bool condition, const char* what)
{
    if (condition)
        return;
    std::fprintf(stderr, "fuzz: %s\n", what);
    std::abort();
}

/// A written hive has the same content, is valid, and is written identically a second time.
void checkWriting(const Hive& hive)
{
    const std::vector<std::byte> first = hive.compact();
    const HiveChecker checker(first);
    const Hive again = Hive::parse(std::span(first));
    require(listing(again) == listing(hive), "what was written reads differently");
    require(again.compact() == first, "a second time gives other bytes");
}

/// Makes changes that the bytes select.
void change(Hive& hive, std::span<const std::byte> bytes)
{
    KeyId key = Hive::root();
    for (std::size_t i = 0; i + 2 < bytes.size() && i < 600; i += 3) {
        const auto what = std::to_integer<unsigned>(bytes[i]);
        const std::u16string name(std::to_integer<std::size_t>(bytes[i + 1]) % 8, u'a' + (what & 3U) * 0x80);
        const auto keys = hive.subKeys(key);
        try {
            if (what % 7 == 0)
                key = hive.createKey(key, name, i);
            else if (what % 7 == 1 && !keys.empty())
                hive.deleteKey(keys[what % keys.size()], i);
            else if (what % 7 == 2 && !keys.empty())
                key = keys[what % keys.size()];
            else if (what % 7 == 3)
                hive.deleteValue(key, name, i);
            else if (what % 7 == 4 && hive.parent(key) != Hive::kNone)
                key = hive.parent(key);
            else if (what % 7 == 5)
                hive.setClassName(key, name);
            else
                hive.setValue(key, name, what, bytes.first(std::min<std::size_t>(bytes.size(), what * what)),
                              i);
        } catch (const long code) {
            require(code == kTooDeep || code == kInvalidName || code == kNotPossible, "another code");
        }
    }
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) // NOLINT: its name
{
    std::vector<std::byte> bytes(size);
    if (size != 0)
        std::memcpy(bytes.data(), data, size);
    if (size >= layout::kPage) // the fuzzer would not guess it
        layout::store(bytes.data() + layout::base::kChecksum, layout::checksum(bytes.data()));
    bool isWhole = false;
    try {
        Hive hive = Hive::parse(std::span<const std::byte>(bytes));
        isWhole = true;
        checkWriting(hive);
        change(hive, std::span(bytes).last(std::min<std::size_t>(size, 600)));
        checkWriting(hive);
    } catch (const long code) {
        require(!isWhole && (code == kBadDatabase || code == kDamagedHive), "a code of another kind");
    }
    std::vector<Loss> losses;
    try {
        const Hive hive = Hive::salvage(std::span<const std::byte>(bytes), losses);
        require(losses.empty() == isWhole, "what is lost of a whole hive");
        checkWriting(hive);
    } catch (const long code) {
        require(!isWhole && code == kBadDatabase, "a code of another kind");
    }
    return 0;
}
