#include "c/Calls.h"

TEST(CLibrary, TellsItsVersionAndTheLastFailureOfEachThread)
{
    const std::uint32_t version = sysmaint_version();
    EXPECT_EQ(std::to_wstring(version / 1000000) + L'.' + std::to_wstring(version / 1000 % 1000) + L'.' +
                  std::to_wstring(version % 1000),
              sysmaint_version_text());

    std::thread([] { // whose first call fails
        sysmaint_failure failure{sizeof failure, 1, "?", nullptr};
        EXPECT_EQ(sysmaint_last_failure(&failure), 0);
        EXPECT_EQ(failure.code, 0);
        EXPECT_EQ(failure.function, nullptr);
        EXPECT_STREQ(failure.text, L"");

        // Raised as an exception deep inside: the text says where. A code alone has the system's text.
        sysmaint_validator* validator = nullptr;
        EXPECT_EQ(sysmaint_validator_create(L"*.tmp:9", nullptr, &validator), ERROR_INVALID_PARAMETER);
        EXPECT_EQ(sysmaint_last_failure(&failure), 0);
        EXPECT_STREQ(failure.function, "sysmaint_validator_create");
        EXPECT_NE(std::wstring(failure.text).find(L"ScanValidator"), std::wstring::npos) << failure.text;
        EXPECT_EQ(sysmaint_validator_create(L"*", nullptr, nullptr),
                  ERROR_INVALID_PARAMETER); // the same code
        EXPECT_EQ(sysmaint_last_failure(&failure), 0);
        EXPECT_EQ(std::wstring(failure.text).find(L"ScanValidator"), std::wstring::npos) << failure.text;
        EXPECT_EQ(sysmaint_validator_close(nullptr), ERROR_INVALID_HANDLE);
        std::thread([] { EXPECT_EQ(sysmaint_validator_clear(nullptr), ERROR_INVALID_HANDLE); }).join();
        EXPECT_EQ(sysmaint_last_failure(&failure), 0);
        EXPECT_STREQ(failure.function, "sysmaint_validator_close");
        EXPECT_EQ(std::wstring(failure.text).find(L"ScanValidator"), std::wstring::npos) << failure.text;
    })
        .join();

    for (const std::uint32_t size : {0U, 31U, 33U, 0xFFFFFFFFU}) {
        sysmaint_failure failure{size, 1, "?", nullptr};
        EXPECT_EQ(sysmaint_last_failure(&failure), ERROR_INVALID_PARAMETER) << size;
        EXPECT_EQ(failure.code, 1);
    }
    EXPECT_EQ(sysmaint_last_failure(nullptr), ERROR_INVALID_PARAMETER);
}
