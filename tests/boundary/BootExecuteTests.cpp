#include "boundary/RegistryTest.h"
#include "core/win32/utils/wiper/api.h"

/// The value is restored after each test, which in the tests' prefix means removed. In lists given as text,
/// '|' stands for the zero.
struct BootExecuteTest : testing::Test
{
    BootExecuteTest()
    {
        RegOpenKeyW(HKEY_LOCAL_MACHINE, L"System\\CurrentControlSet\\Control\\Session Manager", &key);
    }
    ~BootExecuteTest() override
    {
        RegDeleteValueW(key, L"BootExecute");
        RegCloseKey(key);
    }

    void set(std::wstring list, DWORD type = REG_MULTI_SZ, std::size_t missing = 0) const
    {
        std::replace(list.begin(), list.end(), L'|', L'\0');
        const auto size = static_cast<DWORD>(list.size() * sizeof(wchar_t) - missing);
        ASSERT_EQ(RegSetKeyValueW(key, nullptr, L"BootExecute", type, list.data(), size), 0);
    }
    [[nodiscard]] std::wstring get() const
    {
        std::wstring list(4096, L'?');
        DWORD size = 8192;
        RegQueryValueExW(key, L"BootExecute", nullptr, nullptr, reinterpret_cast<BYTE*>(list.data()), &size);
        list.resize((size + 1) / 2);
        std::replace(list.begin(), list.end(), L'\0', L'|');
        return list;
    }

    HKEY key = nullptr;
};

// What others write while it waits for its turn is kept, and its turn lasts until its own is written.
TEST_F(BootExecuteTest, LosesNothingOfOthers)
{
    std::wstring theirs, written;
    const Polls waits(before([&](auto...) { set(theirs); }));
    Replaced<"ReleaseMutex", decltype(&ReleaseMutex)> releases(before([&](auto...) { written = get(); }));
    theirs = L"theirs||";
    EXPECT_EQ(AddBootExecute(L"ours"), 0);
    EXPECT_EQ(written, L"theirs|ours||");
    theirs = L"ours|theirs||";
    EXPECT_EQ(RemoveBootExecute(L"ours"), 0);
    EXPECT_EQ(written, L"theirs||");
}

// Any object under the mutex's name gives a clear code in time, and leaves the list unchanged.
TEST_F(BootExecuteTest, MutexesThatCannotBeHad)
{
    const wchar_t* const name = L"Global\\sysmaint.BootExecute";
    const auto expect = [&](long code) {
        set(L"x||");
        EXPECT_TRUE(AddBootExecute(L"y") == code && RemoveBootExecute(L"x") == code);
        EXPECT_EQ(get(), code == 0 ? L"y||" : L"x||");
        EXPECT_EQ(BootExecuteIsScheduled(code == 0 ? L"y" : L"x"), 1);
    };
    // What its creator grants to everybody.
    for (const auto& [access, code] :
         {std::pair(L"D:(A;;0x100001;;;WD)", 0L), {L"D:(A;;0x20000;;;WD)", ERROR_ACCESS_DENIED}}) {
        const std::shared_ptr<void> descriptor = descriptorOf(access);
        SECURITY_ATTRIBUTES security{sizeof security, descriptor.get(), FALSE};
        const Win32Handle foreign(CreateMutexW(&security, FALSE, name));
        expect(code);
    }
    {
        const Win32Handle event(CreateEventW(nullptr, FALSE, FALSE, name));
        expect(ERROR_INVALID_HANDLE);
    }
    const Win32Handle mutex(CreateMutexW(nullptr, FALSE, name));
    std::thread([&] { WaitForSingleObject(mutex.get(), INFINITE); }).join();
    expect(0); // its owner is dead

    Polls waits([](auto original, HANDLE handle, DWORD milliseconds) {
        EXPECT_LE(milliseconds, 10000U);
        return original(handle, 0);
    });
    WaitForSingleObject(mutex.get(), INFINITE);
    std::thread([&] { expect(ERROR_TIMEOUT); }).join();
    ReleaseMutex(mutex.get());
    expect(0);
    waits.failCall(kEachCall, WAIT_FAILED, ERROR_NOT_ENOUGH_QUOTA);
    expect(ERROR_NOT_ENOUGH_QUOTA);
}

TEST_F(BootExecuteTest, EditsTheListCharacterByCharacter)
{
    const std::tuple<const wchar_t*, const wchar_t*, long, const wchar_t*, const wchar_t*> rows[] = {
        // before, entry, code, after it was added, after it was removed
        {L"autocheck *||", L"wipe now", 0, L"autocheck *|wipe now||", L"autocheck *||"},
        {L"", L"wipe", 0, L"wipe||", L""},
        {L"|", L"wipe", 0, L"wipe||", L"|"},
        {L"||", L"wipe", 0, L"wipe||", L"||"},
        {L"a|WIPE|b||", L"wipe", 183, L"a|WIPE|b||", L"a|b||"},
        {L"wipe|Wipe|b|wipe||", L"wipe", 183, L"wipe|Wipe|b|wipe||", L"b||"},
        {L"wipe||", L"wipe", 183, L"wipe||", L"|"},
        {L"wipes|wip||", L"wipe", 0, L"wipes|wip|wipe||", L"wipes|wip||"},
        {L"a|b|||", L"c", 0, L"a|b|c||", L"a|b|||"}};
    for (const auto& [before, entry, code, added, removed] : rows) {
        set(before);
        EXPECT_EQ(BootExecuteIsScheduled(entry), code == 0 ? 0 : 1) << before;
        EXPECT_TRUE(AddBootExecute(entry) == code && get() == added);
        EXPECT_EQ(BootExecuteIsScheduled(entry), 1) << before;
        set(before);
        EXPECT_TRUE(RemoveBootExecute(entry) == 0 && get() == removed);
    }
    for (const wchar_t* entry : {static_cast<const wchar_t*>(nullptr), L""})
        EXPECT_EQ(BootExecuteIsScheduled(entry), 0);
}

TEST_F(BootExecuteTest, NeverTouchesAListThatIsNone)
{
    Replaced<"RegSetValueExW", decltype(&RegSetValueExW)> writes;
    const auto refuse = [](long code) {
        for (const wchar_t* entry : {L"x", L"y", L"z"}) {
            EXPECT_TRUE(AddBootExecute(entry) == code && RemoveBootExecute(entry) == code);
            EXPECT_EQ(BootExecuteIsScheduled(entry), 0);
        }
    };
    const auto refuseList = [&](const wchar_t* list, DWORD type, std::size_t missing = 0) {
        SCOPED_TRACE(testing::Message() << list << " of type " << type << " less " << missing);
        set(list, type, missing);
        refuse(ERROR_INVALID_DATA);
    };
    refuse(ERROR_FILE_NOT_FOUND);
    for (const wchar_t* list : {L"x", L"x|", L"x|y", L"x||y||", L"|x|"})
        refuseList(list, REG_MULTI_SZ);
    for (const wchar_t* list : {L"x||", L"|"})
        refuseList(list, REG_MULTI_SZ, 1);
    for (const DWORD type : {REG_SZ, REG_EXPAND_SZ, REG_BINARY, REG_DWORD})
        refuseList(L"x||", type);
    refuseList(L"", REG_SZ);
    EXPECT_EQ(writes.calls(), 0);
}
