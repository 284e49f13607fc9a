// Reading and walking a hive file natively, against the two libraries that others use for it, and compacting
// it against walking it. Prints rows for the table of scripts/bench, and ends with 1 when a goal is not
// reached:
//   hives [--quick]

#include <fcntl.h>
#include <hivex.h>
#include <libregf.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <string>

#include "core/win32/registry/offline/include/HiveFile.h"

namespace {
using offline::Hive;

void require(bool condition, const char* what)
{
    if (condition)
        return;
    std::fprintf(stderr, "hives: %s\n", what);
    std::exit(1);
}

/// The result of a walk: every character of a name and every byte of data is read.
struct Seen
{
    std::size_t keys = 0, values = 0, names = 0, data = 0;
    unsigned sum = 0;

    void addName(const char* text)
    {
        for (; *text != '\0'; ++text, ++names)
            sum += static_cast<unsigned char>(*text);
    }
    void addData(const void* bytes, std::size_t size)
    {
        const auto* at = static_cast<const unsigned char*>(bytes);
        for (std::size_t i = 0; i < size; ++i)
            sum += at[i];
        data += size;
    }
    bool operator==(const Seen&) const = default;
};

struct Free
{
    void operator()(void* memory) const { std::free(memory); }
};
template <class T>
using Owned = std::unique_ptr<T, Free>;

/// As hivex has it.
class MappedFile
{
public:
    explicit MappedFile(const char* path)
    {
        const int file = open(path, O_RDONLY | O_CLOEXEC);
        struct stat status = {};
        require(file != -1 && fstat(file, &status) == 0, "the file cannot be opened");
        m_size = static_cast<std::size_t>(status.st_size);
        m_bytes = mmap(nullptr, m_size, PROT_READ, MAP_PRIVATE, file, 0);
        require(m_bytes != MAP_FAILED, "the file cannot be mapped");
        close(file);
    }
    MappedFile(const MappedFile&) = delete;
    MappedFile& operator=(const MappedFile&) = delete;
    ~MappedFile() { munmap(m_bytes, m_size); }
    [[nodiscard]] std::span<const std::byte> bytes() const
    {
        return {static_cast<const std::byte*>(m_bytes), m_size};
    }

private:
    void* m_bytes;
    std::size_t m_size;
};

Seen walkOurs(const char* path)
{
    const MappedFile file(path);
    const Hive hive = Hive::parse(file.bytes());
    Seen seen;
    const auto addName = [&seen](const offline::NameView& name) {
        for (std::size_t i = 0; i < name.size(); ++i)
            seen.sum += name[i];
        seen.names += name.size();
    };
    std::vector<offline::KeyId> waiting{Hive::root()};
    while (!waiting.empty()) {
        const offline::KeyId key = waiting.back();
        waiting.pop_back();
        ++seen.keys;
        addName(hive.name(key));
        for (const offline::ValueId value : hive.values(key)) {
            ++seen.values;
            addName(hive.valueName(value));
            hive.forEachPart(value, [&](auto part) { seen.addData(part.data(), part.size()); });
        }
        const auto keys = hive.subKeys(key);
        waiting.insert(waiting.end(), keys.begin(), keys.end());
    }
    return seen;
}

Seen walkHivex(const char* path)
{
    hive_h* const hive = hivex_open(path, 0);
    require(hive != nullptr, "hivex does not take the file");
    Seen seen;
    std::vector<hive_node_h> waiting{hivex_root(hive)};
    while (!waiting.empty()) {
        const hive_node_h key = waiting.back();
        waiting.pop_back();
        ++seen.keys;
        seen.addName(Owned<char>(hivex_node_name(hive, key)).get());
        const Owned<hive_value_h> values(hivex_node_values(hive, key));
        for (const hive_value_h* value = values.get(); *value != 0; ++value) {
            ++seen.values;
            seen.addName(Owned<char>(hivex_value_key(hive, *value)).get());
            hive_type type = {};
            std::size_t size = 0;
            const Owned<char> data(hivex_value_value(hive, *value, &type, &size));
            seen.addData(data.get(), size);
        }
        const Owned<hive_node_h> keys(hivex_node_children(hive, key));
        for (const hive_node_h* each = keys.get(); *each != 0; ++each)
            waiting.push_back(*each);
    }
    hivex_close(hive);
    return seen;
}

template <class Item, class Size, class Text>
void addName(Seen& seen, Item* item, Size&& sizeOf, Text&& textOf)
{
    std::size_t size = 0;
    sizeOf(item, &size, nullptr);
    std::string text(size + 1, '\0');
    if (size > 1)
        textOf(item, reinterpret_cast<unsigned char*>(text.data()), size, nullptr);
    seen.addName(text.c_str());
}

Seen walkLibregf(const char* path)
{
    libregf_file_t* file = nullptr;
    libregf_key_t* root = nullptr;
    require(libregf_file_initialize(&file, nullptr) == 1 &&
                libregf_file_open(file, path, LIBREGF_OPEN_READ, nullptr) == 1 &&
                libregf_file_get_root_key(file, &root, nullptr) == 1,
            "libregf does not take the file");
    Seen seen;
    std::vector<libregf_key_t*> waiting{root};
    std::vector<unsigned char> data;
    while (!waiting.empty()) {
        libregf_key_t* key = waiting.back();
        waiting.pop_back();
        ++seen.keys;
        addName(seen, key, libregf_key_get_utf8_name_size, libregf_key_get_utf8_name);
        int count = 0;
        libregf_key_get_number_of_values(key, &count, nullptr);
        for (int i = 0; i < count; ++i) {
            libregf_value_t* value = nullptr;
            require(libregf_key_get_value(key, i, &value, nullptr) == 1, "libregf lacks a value");
            ++seen.values;
            addName(seen, value, libregf_value_get_utf8_name_size, libregf_value_get_utf8_name);
            std::size_t size = 0;
            libregf_value_get_value_data_size(value, &size, nullptr);
            data.resize(std::max(data.size(), size));
            libregf_value_get_value_data(value, data.data(), size, nullptr);
            seen.addData(data.data(), size);
            libregf_value_free(&value, nullptr);
        }
        libregf_key_get_number_of_sub_keys(key, &count, nullptr);
        for (int i = 0; i < count; ++i) {
            libregf_key_t* each = nullptr;
            require(libregf_key_get_sub_key(key, i, &each, nullptr) == 1, "libregf lacks a key");
            waiting.push_back(each);
        }
        libregf_key_free(&key, nullptr);
    }
    libregf_file_free(&file, nullptr);
    return seen;
}

/// 200,000 keys in 30 MB, in the layout of a hive that has just been saved.
void makeHive(const char* path, std::size_t groups)
{
    Hive hive = Hive::create(130000000000000000);
    std::u16string longPath(48, u'd');
    longPath.back() = u'\0';
    const std::span<const std::byte> data = std::as_bytes(std::span(longPath));
    for (std::size_t group = 0; group < groups; ++group) {
        const auto text = [](const char16_t* name, std::size_t number) {
            std::u16string result(name);
            for (std::size_t place = 1000; place != 0; place /= 10)
                result += static_cast<char16_t>(u'0' + number / place % 10);
            return result;
        };
        const offline::KeyId above = hive.createKey(Hive::root(), text(u"Group ", group), 1);
        for (std::size_t number = 0; number < 100; ++number) {
            const offline::KeyId key = hive.createKey(above, text(u"Key of the group ", number), 2);
            if (number % 4 == 0) {
                hive.setValue(key, u"Path", 1, data, 3);
                hive.setValue(key, u"Count", 4, data.first(4), 4);
            }
        }
    }
    const std::vector<std::byte> bytes = hive.compact();
    std::FILE* file = std::fopen(path, "wb");
    require(file != nullptr && std::fwrite(bytes.data(), 1, bytes.size(), file) == bytes.size(), "no room");
    std::fclose(file);
    std::printf("| a hive of %zu keys, %zu bytes\n", hive.keyCount(), bytes.size());
}

double milliseconds(const std::function<void()>& work)
{
    const auto begin = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - begin).count();
}

double median(std::vector<double>& turns)
{
    std::sort(turns.begin(), turns.end());
    return turns[turns.size() / 2];
}
} // namespace

int main(int argc, char** argv)
{
    const bool isQuick = argc > 1 && std::strcmp(argv[1], "--quick") == 0;
    char path[] = "/tmp/sysmaint-hives-XXXXXX";
    require(mkstemp(path) != -1, "there is no temporary file");
    makeHive(path, isQuick ? 20 : 2000);
    const Seen seen = walkOurs(path);
    require(seen == walkHivex(path) && seen == walkLibregf(path), "the readers do not see the same");

    std::vector<double> times[4];
    for (int turn = 0; turn < (isQuick ? 1 : 15); ++turn) {
        times[0].push_back(milliseconds([&] { walkOurs(path); }));
        times[1].push_back(milliseconds([&] { walkHivex(path); }));
        if (turn % 5 == 0) // it takes ten times as long
            times[2].push_back(milliseconds([&] { walkLibregf(path); }));
        times[3].push_back(milliseconds([&] {
            const MappedFile file(path);
            require(Hive::parse(file.bytes()).compact().size() > 4096, "nothing was written");
        }));
    }
    std::remove(path);
    const double ours = median(times[0]);
    const double faster = std::min(median(times[1]), median(times[2]));
    const double compacting = median(times[3]);
    std::printf(
        "| read and walk a hive: ours %.1f ms, hivex %.1f ms, libregf %.1f ms: %.1f times the faster (2)\n",
        ours, median(times[1]), median(times[2]), faster / ours);
    std::printf("| read and compact it: %.1f ms, %.2f times reading and walking it (3 at most)\n", compacting,
                compacting / ours);
    return isQuick || (faster >= 2 * ours && compacting <= 3 * ours) ? 0 : 1;
}
