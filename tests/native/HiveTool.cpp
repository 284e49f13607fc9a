// The comparison of the engine with other readers calls this:
//   hive_tool list FILE | compact FILE NEW | check FILE | make NEW
// make writes what the other programs cannot: large data in segments, class names. Ends with 1, and prints
// the code, when the engine refuses.

#include <cstdio>
#include <fstream>
#include <iterator>

#include "HiveChecker.h"
#include "Listing.h"

namespace {
std::vector<std::byte> read(const char* path)
{
    std::ifstream file(path, std::ios::binary);
    if (!file)
        throw std::runtime_error(path);
    const std::vector<char> text((std::istreambuf_iterator<char>(file)), {});
    const auto bytes = std::as_bytes(std::span(text));
    return {bytes.begin(), bytes.end()};
}

void write(const char* path, std::span<const std::byte> bytes)
{
    std::ofstream file(path, std::ios::binary);
    if (!file.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size())))
        throw std::runtime_error(path);
}

std::vector<std::byte> made()
{
    offline::Hive hive = offline::Hive::create(130000000000000000);
    const offline::KeyId key = hive.createPath(offline::Hive::root(), u"data\\\u65E5\u672C", 1);
    hive.setClassName(key, u"class \u03A9");
    std::vector<std::byte> data(1U << 20U);
    for (std::size_t i = 0; i < data.size(); ++i)
        data[i] = static_cast<std::byte>(i * 2654435761U >> 24U);
    for (const std::size_t size : {4U, 16344U, 16345U, 16348U, 16349U, 32688U, 32689U, 100001U, 1U << 20U})
        hive.setValue(key, std::u16string(size % 255 + 1, u'v'), 3, std::span(data).first(size), 2);
    return hive.compact();
}

void run(const std::string& command, char** paths)
{
    if (command == "make")
        return write(paths[0], made());
    const std::vector<std::byte> bytes = read(paths[0]);
    if (command == "check") {
        const HiveChecker checker(bytes);
    } else if (command == "list") {
        std::fputs(listing(offline::Hive::parse(bytes)).c_str(), stdout);
    } else if (command == "compact") {
        write(paths[1], offline::Hive::parse(bytes).compact());
    } else {
        throw std::runtime_error("unknown command");
    }
}
} // namespace

int main(int argc, char** argv)
{
    try {
        const std::string command = argc > 1 ? argv[1] : "";
        if (argc != (command == "compact" ? 4 : 3))
            throw std::runtime_error("arguments");
        run(command, argv + 2);
        return 0;
    } catch (const long code) {
        std::fprintf(stderr, "code %ld\n", code);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "%s\n", error.what());
    }
    return 1;
}
