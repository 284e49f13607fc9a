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

// Any number of threads may use an item: each reads what one of them has written as a whole.
TEST(CItemContent, IsReadAndWrittenByThreadsAtOnce)
{
    const Folder folder;
    sysmaint_item* file = nullptr;
    EXPECT_EQ(sysmaint_item_file(folder.file(L"shared", 1).c_str(), 0, &file), 0);
    std::atomic<int> writing{2}, torn{0};
    std::vector<std::thread> threads;
    for (const char letter : {'a', 'b'})
        threads.emplace_back([&, letter] {
            for (std::size_t round = 0; round < 40; ++round) {
                const std::string written((1U << 20U) + letter * round, letter);
                sysmaint_item_write(file, 0, written.data(), written.size());
            }
            --writing;
        });
    for (int reader = 0; reader < 2; ++reader)
        threads.emplace_back([&] {
            while (writing != 0) {
                const std::string read = contentOf(file);
                torn += read.find_first_not_of(read[0]) != std::string::npos ? 1 : 0;
            }
        });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(torn, 0);
    EXPECT_EQ(sysmaint_item_close(file), 0);
}

TEST(CItemContent, IsNotWhatCouldNotBeWritten)
{
    const Folder folder;
    const std::wstring path = folder.file(L"kept", 3);
    sysmaint_item* file = nullptr;
    EXPECT_EQ(sysmaint_item_file(path.c_str(), 0, &file), 0);
    SetFileAttributesW(path.c_str(), FILE_ATTRIBUTE_READONLY);
    EXPECT_EQ(sysmaint_item_write(file, 0, "other", 5), ERROR_ACCESS_DENIED);
    EXPECT_EQ(sysmaint_item_write(file, 0, "other", ~std::uint64_t{0}), ERROR_NOT_ENOUGH_MEMORY);
    EXPECT_EQ(contentOf(file), "xxx");
    SetFileAttributesW(path.c_str(), FILE_ATTRIBUTE_NORMAL);
    EXPECT_EQ(sysmaint_item_write(file, 0, "other", 5), 0);
    EXPECT_EQ(contentOf(file), "other");
    EXPECT_EQ(sysmaint_item_close(file), 0);
}
