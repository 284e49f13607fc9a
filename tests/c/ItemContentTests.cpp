#include <atomic>
#include <thread>

#include "c/Calls.h"

namespace {
/// What the item's content is; "?" when it cannot be read.
std::string contentOf(sysmaint_item* item)
{
    void* bytes = nullptr;
    std::uint64_t size = 0;
    if (sysmaint_item_read(item, &bytes, &size) != 0)
        return "?";
    std::string content(static_cast<char*>(bytes), size);
    utilsFreeMemory(bytes);
    return content;
}
} // namespace

// Any number of threads may use an item: each reads what one of them has written as a whole. What could not
// be written is not read.
TEST(CItemContent, IsReadAndWrittenByThreadsAtOnce)
{
    const Folder folder;
    const std::wstring path = folder.file(L"shared", 1);
    sysmaint_item* file = nullptr;
    EXPECT_EQ(sysmaint_item_file(path.c_str(), 0, &file), 0);
    std::atomic<int> writing{2}, torn{0};
    const auto write = [&](char letter) {
        for (std::size_t round = 0; round < 40; ++round) {
            const std::string written((1U << 20U) + letter * round, letter);
            sysmaint_item_write(file, 0, written.data(), written.size());
        }
        --writing;
    };
    const auto read = [&] {
        while (writing != 0) {
            const std::string content = contentOf(file);
            torn += content.find_first_not_of(content[0]) != std::string::npos ? 1 : 0;
        }
    };
    std::thread threads[] = {std::thread(write, 'a'), std::thread(write, 'b'), std::thread(read),
                             std::thread(read)};
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(torn, 0);

    EXPECT_EQ(sysmaint_item_write(file, 0, "kept", 4), 0);
    SetFileAttributesW(path.c_str(), FILE_ATTRIBUTE_READONLY);
    EXPECT_EQ(sysmaint_item_write(file, 0, "other", 5), ERROR_ACCESS_DENIED);
    EXPECT_EQ(sysmaint_item_write(file, 0, "other", ~std::uint64_t{0}), ERROR_NOT_ENOUGH_MEMORY);
    EXPECT_EQ(contentOf(file), "kept");
    SetFileAttributesW(path.c_str(), FILE_ATTRIBUTE_NORMAL);
    EXPECT_EQ(sysmaint_item_close(file), 0);
}
