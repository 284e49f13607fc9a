#include <thread>

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

TEST(CLibrary, ExpandsFolderMacrosInBothForms)
{
    wchar_t windows[MAX_PATH];
    ASSERT_NE(GetWindowsDirectoryW(windows, MAX_PATH), 0U);
    SetEnvironmentVariableW(L"sysmaint_c", L"\x00E4");
    wchar_t* wide = nullptr;
    char* narrow = nullptr;
    expectCodes({
        {"wide", [&] { return sysmaint_path_expand(L"%WinDir%\\x", &wide); }, 0},
        {"narrow", [&] { return sysmaint_path_expand_utf8("%sysmaint_c%\xC3\xB6", &narrow); }, 0},
    });
    EXPECT_EQ(wide, std::wstring(windows) + L"\\x");
    EXPECT_STREQ(narrow, "\xC3\xA4\xC3\xB6");
    utilsFreeMemory(std::exchange(wide, nullptr));
    utilsFreeMemory(narrow);
    expectCodes({
        {"no macro", [&] { return sysmaint_path_expand(L"%sysmaint-c-none%\\x", &wide); }, 1168},
        {"no text", [&] { return sysmaint_path_expand_utf8("%windir%\xFF", &narrow); }, 1113},
    });
    EXPECT_EQ(wide, nullptr);
}

// The rules of a validator are read one by one, and as bytes that another one appends to its own.
TEST(CLibrary, TellsAndKeepsTheRulesOfValidators)
{
    sysmaint_validator *rules = nullptr, *other = nullptr;
    void* bytes = nullptr;
    std::uint64_t size = 0;
    ASSERT_EQ(sysmaint_validator_create(L"*.tmp,a:110", L"b:015", &rules), 0);
    ASSERT_EQ(sysmaint_validator_create(L"x", nullptr, &other), 0);
    const auto ruleOf = [](sysmaint_validator* of, std::uint32_t list, std::uint32_t index) {
        sysmaint_rule rule{sizeof rule, 9, 9, 9};
        wchar_t* pattern = nullptr;
        EXPECT_EQ(sysmaint_validator_rule(of, list, index, &rule), 0);
        EXPECT_EQ(sysmaint_validator_pattern(of, list, index, &pattern), 0);
        const std::wstring text = pattern;
        utilsFreeMemory(pattern);
        return text + L' ' + std::to_wstring(100 * rule.mode + 10 * rule.target + rule.kind);
    };
    EXPECT_EQ(ruleOf(rules, SYSMAINT_LIST_FILTERS, 0), L"*.tmp 11");
    EXPECT_EQ(ruleOf(rules, SYSMAINT_LIST_FILTERS, 1), L"a 110");
    EXPECT_EQ(ruleOf(rules, SYSMAINT_LIST_IGNORES, 0), L"b 15");
    ASSERT_EQ(sysmaint_validator_dump(rules, &bytes, &size), 0);
    std::string more(static_cast<char*>(bytes), size);
    more += 'x';
    std::uint32_t filters = 0, ignores = 0;
    sysmaint_rule rule{sizeof rule, 9, 9, 9};
    expectCodes({
        {"cut", [&] { return sysmaint_validator_load(other, bytes, size - 1); }, 30},
        {"more", [&] { return sysmaint_validator_load(other, more.data(), more.size()); }, 13},
        {"one left", [&] { return sysmaint_validator_rule(other, SYSMAINT_LIST_FILTERS, 1, &rule); }, 87},
        {"load", [&] { return sysmaint_validator_load(other, bytes, size); }, 0},
        {"filters", [&] { return sysmaint_validator_count(other, SYSMAINT_LIST_FILTERS, &filters); }, 0},
        {"ignores", [&] { return sysmaint_validator_count(other, SYSMAINT_LIST_IGNORES, &ignores); }, 0},
    });
    EXPECT_EQ(std::tuple(filters, ignores), std::tuple(3U, 1U));
    EXPECT_EQ(ruleOf(other, SYSMAINT_LIST_FILTERS, 2), L"a 110");
    utilsFreeMemory(bytes);
    EXPECT_EQ(sysmaint_validator_close(rules) + sysmaint_validator_close(other), 0);
}
