#include <gtest/gtest.h>

#include <set>

#include "exports/c/CFrames.h"

namespace {
/// A struct that has grown: its first version ended before `added`.
struct Grown
{
    std::uint32_t size;
    std::uint32_t old;
    std::uint64_t added;
};
constexpr std::size_t kFirst = offsetof(Grown, added);

long codeOf(std::uint32_t size)
{
    const Grown argument{size, 1, 2};
    return boundary::statusOf([&]() -> long {
        static_cast<void>(cframes::given(&argument, kFirst));
        return ERROR_SUCCESS;
    });
}
} // namespace

TEST(CFrames, TakesStructsOfOlderCallersAndNoneOfNewer)
{
    for (const std::uint32_t size : {8U, 12U, 16U})
        EXPECT_EQ(codeOf(size), ERROR_SUCCESS) << size;
    for (const std::uint32_t size : {0U, 4U, 7U, 17U, 24U, 0xFFFFFFFFU})
        EXPECT_EQ(codeOf(size), ERROR_INVALID_PARAMETER) << size;

    const Grown older{kFirst, 1, 2};
    EXPECT_EQ(cframes::given(&older, kFirst).old, 1U);
    EXPECT_EQ(cframes::given(&older, kFirst).added, 0U);
    EXPECT_EQ(cframes::givenOrZero<Grown>(nullptr).old, 0U);
    Grown target{kFirst, 0, 77};
    cframes::store(&target, Grown{0, 5, 6});
    EXPECT_EQ(target.size, kFirst);
    EXPECT_EQ(target.old, 5U);
    EXPECT_EQ(target.added, 77U); // beyond what the caller has
}

// Slots are used again, numbers are not; nor is a number of one table good in another.
TEST(CFrames, NeverGivesAHandleTwice)
{
    cframes::Handles<sysmaint_scan, int> handles;
    cframes::Handles<sysmaint_scan, int> others;
    std::set<sysmaint_scan*> seen;
    for (int round = 0; round < 1000; ++round) {
        sysmaint_scan* const first = handles.add(makeShared<int>(round));
        sysmaint_scan* const second = handles.add(makeShared<int>(-round));
        EXPECT_TRUE(seen.insert(first).second);
        EXPECT_TRUE(seen.insert(second).second);
        EXPECT_EQ(*handles.get(second), -round);
        EXPECT_EQ(*handles.remove(first), round);
        EXPECT_THROW(static_cast<void>(handles.get(first)), long);
        EXPECT_THROW(static_cast<void>(others.get(second)), long);
        EXPECT_FALSE(handles.removeIfOpen(first));
        EXPECT_TRUE(handles.removeIfOpen(second));
    }
    EXPECT_THROW(static_cast<void>(handles.get(nullptr)), long);
}
