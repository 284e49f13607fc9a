#include "support/HangReport.h"

int main(int argc, char** argv)
{
    testing::InitGoogleTest(&argc, argv);
    // GoogleTest keeps a thread and a handle of it from a thread's first trace on: not to be counted as
    // leaks.
    {
        const testing::ScopedTrace first(__FILE__, __LINE__, "");
    }
    testing::UnitTest::GetInstance()->listeners().Append(new HangReport); // which GoogleTest owns
    const int result = RUN_ALL_TESTS();
    // A program whose tests are all filtered out or missing has proven nothing.
    return testing::UnitTest::GetInstance()->test_to_run_count() == 0 ? 1 : result;
}
