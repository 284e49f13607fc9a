#include "support/Wipe.h"

#include <algorithm>
#include <cstring>

namespace {
constexpr wchar_t kKey[] = L"System\\CurrentControlSet\\Control\\Session Manager";

/// The value before and after a test is as it was, which in the tests' prefix means: not there.
class BootExecuteTest : public testing::Test
{
protected:
    BootExecuteTest() { RegOpenKeyExW(HKEY_LOCAL_MACHINE, kKey, 0, KEY_ALL_ACCESS, &key); }
    ~BootExecuteTest() override
    {
        RegDeleteValueW(key, L"BootExecute");
        RegCloseKey(key);
    }

    void set(const std::wstring& list, DWORD type = REG_MULTI_SZ, std::size_t missing = 0) const
    {
        ASSERT_EQ(RegSetValueExW(key, L"BootExecute", 0, type, reinterpret_cast<const BYTE*>(list.data()),
                                 static_cast<DWORD>(list.size() * sizeof(wchar_t) - missing)),
                  0);
    }
    [[nodiscard]] std::wstring get() const
    {
        std::wstring list(4096, L'?');
        DWORD type = 0;
        DWORD size = 8192;
        RegQueryValueExW(key, L"BootExecute", nullptr, &type, reinterpret_cast<BYTE*>(list.data()), &size);
        list.resize((size + 1) / 2);
        return list;
    }

    HKEY key = nullptr;
};

std::wstring text(const char* list) // '|' stands for the zero
{
    std::wstring wide(list, list + std::strlen(list));
    std::replace(wide.begin(), wide.end(), L'|', L'\0');
    return wide;
}
} // namespace

TEST_F(BootExecuteTest, EditsTheListCharacterByCharacter)
{
    struct Case
    {
        const char* before;
        const char* entry;
        long added;
        const char* afterAdd;
        const char* afterRemove;
        int scheduled;
    };
    const Case cases[] = {
        {"autocheck autochk *||", "wipe now", 0, "autocheck autochk *|wipe now||", "autocheck autochk *||",
         0},
        {"|", "wipe", 0, "wipe||", "|", 0},
        {"||", "wipe", 0, "wipe||", "||", 0},
        {"a|WIPE|b||", "wipe", 183, "a|WIPE|b||", "a|b||", 1},
        {"wipe|Wipe|b|wipe||", "wipe", 183, "wipe|Wipe|b|wipe||", "b||", 1},
        {"wipe||", "wipe", 183, "wipe||", "|", 1},
        {"wipes|wip||", "wipe", 0, "wipes|wip|wipe||", "wipes|wip||", 0},
        {"a|b|||", "c", 0, "a|b|c||", "a|b|||", 0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.before);
        const std::wstring entry = text(c.entry);
        set(text(c.before));
        EXPECT_EQ(BootExecuteIsScheduled(entry.c_str()), c.scheduled);
        EXPECT_EQ(AddBootExecute(entry.c_str()), c.added);
        EXPECT_EQ(get(), text(c.afterAdd));
        EXPECT_EQ(BootExecuteIsScheduled(entry.c_str()), 1);
        set(text(c.before));
        EXPECT_EQ(RemoveBootExecute(entry.c_str()), 0);
        EXPECT_EQ(get(), text(c.afterRemove));
    }
}

TEST_F(BootExecuteTest, NeverTouchesAListThatIsNone)
{
    EXPECT_EQ(AddBootExecute(L"x"), ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(RemoveBootExecute(L"x"), ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(BootExecuteIsScheduled(L"x"), 0);
    struct Case
    {
        const char* list;
        DWORD type;
        std::size_t missing;
    };
    const Case cases[] = {{"", REG_MULTI_SZ, 0},       {"x", REG_MULTI_SZ, 0},   {"x|", REG_MULTI_SZ, 0},
                          {"x|y", REG_MULTI_SZ, 0},    {"x||", REG_MULTI_SZ, 1}, {"|", REG_MULTI_SZ, 1},
                          {"x||y||", REG_MULTI_SZ, 0}, {"|x|", REG_MULTI_SZ, 0}, {"x||", REG_SZ, 0},
                          {"x||", REG_EXPAND_SZ, 0},   {"x||", REG_BINARY, 0},   {"xx", REG_DWORD, 0}};
    CountedImport<"RegSetValueExW", decltype(&RegSetValueExW)> writes(sysmaintModule());
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << c.list << " of type " << c.type << " less " << c.missing);
        set(text(c.list), c.type, c.missing);
        for (const wchar_t* entry : {L"x", L"y", L"z"}) {
            EXPECT_EQ(AddBootExecute(entry), ERROR_INVALID_DATA);
            EXPECT_EQ(RemoveBootExecute(entry), ERROR_INVALID_DATA);
            EXPECT_EQ(BootExecuteIsScheduled(entry), 0);
        }
    }
    set(text("x||"));
    for (const wchar_t* entry : {static_cast<const wchar_t*>(nullptr), L""}) {
        EXPECT_EQ(AddBootExecute(entry), ERROR_INVALID_PARAMETER);
        EXPECT_EQ(RemoveBootExecute(entry), ERROR_INVALID_PARAMETER);
        EXPECT_EQ(BootExecuteIsScheduled(entry), 0);
    }
    EXPECT_EQ(writes.calls(), 0);
}

TEST_F(BootExecuteTest, ReportsTheRegistrysCodeAndClosesTheKey)
{
    set(text("x||"));
    CountedImport<"RegOpenKeyExW", decltype(&RegOpenKeyExW)> opens(sysmaintModule());
    CountedImport<"RegQueryValueExW", decltype(&RegQueryValueExW)> reads(sysmaintModule());
    CountedImport<"RegSetValueExW", decltype(&RegSetValueExW)> writes(sysmaintModule());
    CountedImport<"RegCloseKey", decltype(&RegCloseKey)> closes(sysmaintModule());
    const auto expect = [&](long code, int scheduled) {
        EXPECT_EQ(AddBootExecute(L"y"), code);
        EXPECT_EQ(get(), text("x||"));
        EXPECT_EQ(BootExecuteIsScheduled(L"x"), scheduled);
    };
    opens.failCall(1, ERROR_ACCESS_DENIED, 0);
    EXPECT_EQ(AddBootExecute(L"y"), ERROR_ACCESS_DENIED);
    opens.failCall(1, ERROR_ACCESS_DENIED, 0);
    EXPECT_EQ(BootExecuteIsScheduled(L"x"), 0);
    opens.failCall(0, 0, 0);
    closes.reset();
    for (const long call : {1L, 2L}) {
        reads.failCall(call, ERROR_KEY_DELETED, 0);
        expect(ERROR_KEY_DELETED, 1);
    }
    writes.failCall(1, ERROR_REGISTRY_IO_FAILED, 0);
    expect(ERROR_REGISTRY_IO_FAILED, 1);
    EXPECT_EQ(closes.calls(), 6);
}
