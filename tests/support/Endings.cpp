// Test programs that end in every wrong way, for tests/runner.sh: none may be taken for one that has passed.

#include <gtest/gtest.h>

#include <windows.h>

#include <cstdlib>

namespace {
struct EndsBeforeTheReport : testing::Environment
{
    void TearDown() override { ExitProcess(0); }
};
struct CrashesAtTheEnd
{
    ~CrashesAtTheEnd()
    {
        if (armed)
            __builtin_trap();
    }
    bool armed = false;
} crashesAtTheEnd;
} // namespace

TEST(Endings, Passes) {}
TEST(Endings, Fails)
{
    ADD_FAILURE();
}
TEST(Endings, IsSkipped)
{
    GTEST_SKIP();
}
TEST(Endings, Crashes)
{
    *static_cast<int volatile*>(nullptr) = 0; // NOLINT: on purpose
}
TEST(Endings, Throws)
{
    throw 1;
}
TEST(Endings, Aborts)
{
    std::abort();
}
TEST(Endings, Exits)
{
    ExitProcess(0);
}
TEST(Endings, CrashesAfterThem)
{
    crashesAtTheEnd.armed = true;
}

int main(int argc, char** argv)
{
    testing::InitGoogleTest(&argc, argv);
    if (argc > 1)
        testing::AddGlobalTestEnvironment(new EndsBeforeTheReport);
    return RUN_ALL_TESTS();
}
