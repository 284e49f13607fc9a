// A test program that ends in every wrong way, for tests/runner.sh: none may pass for a success.

#include "support/HangReport.h"

#include <cstdlib>
#include <map>

namespace {
const std::map<std::string, void (*)()> kEndings{
    {"Passes", [] {}},
    {"Fails", [] { ADD_FAILURE(); }},
    {"IsSkipped", [] { GTEST_SKIP(); }},
    {"Crashes", [] { *static_cast<int volatile*>(nullptr) = 0; }}, // NOLINT: on purpose
    {"Throws", [] { throw 1; }},
    {"Aborts", [] { std::abort(); }},
    {"Exits", [] { ExitProcess(0); }},
    {"ExitsBeforeTheReport", [] {}},
    {"Hangs", [] { Sleep(INFINITE); }},
    {"CrashesAfterIt", [] { std::atexit([] { __builtin_trap(); }); }}};
std::string ending;

struct Endings : testing::Test
{
    static void TearDownTestSuite()
    {
        if (ending == "ExitsBeforeTheReport")
            ExitProcess(0);
    }
};
} // namespace

TEST_F(Endings, IsGood) {}
TEST_F(Endings, IsTheOneAskedFor)
{
    kEndings.at(ending)();
}

int main(int argc, char** argv)
{
    testing::InitGoogleTest(&argc, argv);
    ending = argv[1];
    testing::UnitTest::GetInstance()->listeners().Append(new HangReport(1000));
    return RUN_ALL_TESTS();
}
