#include "c/Calls.h"

TEST(CLibrary, TellsItsVersionAndTheLastFailureOfEachThread)
{
    const std::uint32_t version = sysmaint_version();
    EXPECT_EQ(std::to_wstring(version / 1000000) + L'.' + std::to_wstring(version / 1000 % 1000) + L'.' +
                  std::to_wstring(version % 1000),
              sysmaint_version_text());

    std::thread([] { // whose first call fails
        sysmaint_failure failure{sizeof failure, 1, "?", nullptr};
        const auto textOf = [&](std::int32_t code, const char* function) {
            EXPECT_EQ(sysmaint_last_failure(&failure), 0);
            EXPECT_EQ(failure.code, code);
            EXPECT_STREQ(failure.function, function);
            return std::wstring(failure.text);
        };
        EXPECT_EQ(textOf(0, nullptr), L"");
        // Raised as an exception deep inside: the text says where. A code alone has the system's text.
        const char* const create = "sysmaint_validator_create";
        sysmaint_validator* validator = nullptr;
        EXPECT_EQ(sysmaint_validator_create(L"*.tmp:9", nullptr, &validator), 87);
        EXPECT_NE(textOf(87, create).find(L"ScanValidator"), std::wstring::npos) << failure.text;
        EXPECT_EQ(sysmaint_validator_create(L"*", nullptr, nullptr), 87); // the same code
        EXPECT_EQ(textOf(87, create).find(L"ScanValidator"), std::wstring::npos) << failure.text;
        EXPECT_EQ(sysmaint_validator_close(nullptr), 6);
        std::thread([] { EXPECT_EQ(sysmaint_validator_clear(nullptr), 6); }).join();
        EXPECT_EQ(textOf(6, "sysmaint_validator_close").find(L"ScanValidator"), std::wstring::npos);

        for (const std::uint32_t size : {0U, 31U, 33U, 0xFFFFFFFFU}) {
            failure.size = size;
            failure.code = 1;
            EXPECT_EQ(sysmaint_last_failure(&failure), ERROR_INVALID_PARAMETER) << size;
            EXPECT_EQ(failure.code, 1);
        }
        EXPECT_EQ(sysmaint_last_failure(nullptr), ERROR_INVALID_PARAMETER);
    })
        .join();
}
