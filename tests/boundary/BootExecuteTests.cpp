#include "support/Wipe.h"

#include <sddl.h>

#include <algorithm>
#include <cstring>

#include "support/Process.h"
#include "support/Threads.h"

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

constexpr int kEdits = 60;

/// Adds entries of one's own and takes every second one off again.
void editAs(const std::wstring& name)
{
    for (int i = 0; i < kEdits; ++i) {
        const std::wstring entry = name + L" " + std::to_wstring(i);
        EXPECT_EQ(AddBootExecute(entry.c_str()), 0);
        EXPECT_EQ(AddBootExecute(entry.c_str()), ERROR_ALREADY_EXISTS);
        EXPECT_EQ(i % 2 != 0 ? 0 : RemoveBootExecute(entry.c_str()), 0);
    }
}

/// This program once more, which runs nothing but BootExecuteChild.
HANDLE startChild(int number)
{
    wchar_t program[1024];
    GetModuleFileNameW(nullptr, program, 1024);
    std::wstring line = L"\"" + std::wstring(program) +
                        L"\" --gtest_filter=BootExecuteChild.* --gtest_also_run_disabled_tests";
    SetEnvironmentVariableW(L"SYSMAINT_TEST_CHILD", (L"child" + std::to_wstring(number)).c_str());
    STARTUPINFOW startup{};
    startup.cb = sizeof startup;
    PROCESS_INFORMATION child{};
    EXPECT_TRUE(
        CreateProcessW(nullptr, line.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup, &child));
    CloseHandle(child.hThread);
    return child.hProcess;
}

Win32Handle readySemaphore()
{
    return Win32Handle(CreateSemaphoreW(nullptr, 0, 9, L"sysmaint-test-ready"));
}

Win32Handle startEvent()
{
    return Win32Handle(CreateEventW(nullptr, TRUE, FALSE, L"sysmaint-test-start"));
}
} // namespace

/// Only for the processes that the next test starts.
TEST(BootExecuteChild, DISABLED_EditsBesideItsParent)
{
    wchar_t name[64]{};
    ASSERT_NE(GetEnvironmentVariableW(L"SYSMAINT_TEST_CHILD", name, 64), 0U);
    const Win32Handle start = startEvent();
    ReleaseSemaphore(readySemaphore().get(), 1, nullptr);
    ASSERT_EQ(WaitForSingleObject(start.get(), 60000), WAIT_OBJECT_0);
    editAs(name);
}

TEST_F(BootExecuteTest, ThreadsAndProcessesLoseNothingOfEachOthers)
{
    set(text("autocheck autochk *||"));
    const Win32Handle ready = readySemaphore();
    const Win32Handle start = startEvent();
    const Win32Handle children[] = {Win32Handle(startChild(0)), Win32Handle(startChild(1))};
    for (int i = 0; i < 2; ++i)
        ASSERT_EQ(WaitForSingleObject(ready.get(), 60000), WAIT_OBJECT_0);
    SetEvent(start.get());
    onThreadsAtOnce(2, [](int number) { editAs(L"thread" + std::to_wstring(number)); });
    for (const Win32Handle& child : children) {
        EXPECT_EQ(WaitForSingleObject(child.get(), 60000), WAIT_OBJECT_0);
        DWORD code = 1;
        EXPECT_TRUE(GetExitCodeProcess(child.get(), &code));
        EXPECT_EQ(code, 0U);
    }
    EXPECT_EQ(BootExecuteIsScheduled(L"autocheck autochk *"), 1);
    for (const wchar_t* name : {L"thread0 ", L"thread1 ", L"child0 ", L"child1 "})
        for (int i = 0; i < kEdits; ++i)
            EXPECT_EQ(BootExecuteIsScheduled((name + std::to_wstring(i)).c_str()), i % 2) << name << i;
}

// Whatever stands under the mutex's name: a clear code within a limit, and the list as it was.
TEST_F(BootExecuteTest, MutexesThatCannotBeHad)
{
    const wchar_t* const name = L"Global\\sysmaint.BootExecute";
    const auto expect = [&](long code) {
        set(text("x||"));
        EXPECT_EQ(AddBootExecute(L"y"), code);
        EXPECT_EQ(RemoveBootExecute(L"x"), code);
        EXPECT_EQ(get(), text(code == 0 ? "y||" : "x||"));
        EXPECT_EQ(BootExecuteIsScheduled(code == 0 ? L"y" : L"x"), 1);
    };
    const struct
    {
        const wchar_t* access; // what its maker grants to all
        long code;
    } rows[] = {{L"D:(A;;0x100001;;;WD)", 0}, {L"D:(A;;0x20000;;;WD)", ERROR_ACCESS_DENIED}};
    for (const auto& row : rows) {
        PSECURITY_DESCRIPTOR descriptor = nullptr;
        ASSERT_TRUE(ConvertStringSecurityDescriptorToSecurityDescriptorW(row.access, SDDL_REVISION_1,
                                                                         &descriptor, nullptr));
        SECURITY_ATTRIBUTES security{sizeof security, descriptor, FALSE};
        const Win32Handle foreign(CreateMutexW(&security, FALSE, name));
        LocalFree(descriptor);
        expect(row.code);
    }
    {
        const Win32Handle event(CreateEventW(nullptr, FALSE, FALSE, name));
        expect(ERROR_INVALID_HANDLE);
    }
    const Win32Handle mutex(CreateMutexW(nullptr, FALSE, name));
    std::thread([&] { WaitForSingleObject(mutex.get(), INFINITE); }).join();
    expect(0); // its owner is dead

    CountedImport<"WaitForSingleObject", decltype(&WaitForSingleObject)> waits(sysmaintModule());
    waits.setHook([](auto original, HANDLE handle, DWORD milliseconds) {
        EXPECT_LE(milliseconds, 10000U);
        return original(handle, 0);
    });
    const TestEvent taken;
    const TestEvent done;
    std::thread holder([&] {
        WaitForSingleObject(mutex.get(), INFINITE);
        taken.set();
        EXPECT_TRUE(done.wait());
        ReleaseMutex(mutex.get());
    });
    EXPECT_TRUE(taken.wait());
    expect(ERROR_TIMEOUT);
    done.set();
    holder.join();
    expect(0);
    waits.setHook([](auto, HANDLE, DWORD) {
        SetLastError(ERROR_NOT_ENOUGH_QUOTA);
        return WAIT_FAILED;
    });
    expect(ERROR_NOT_ENOUGH_QUOTA);
}

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
        {"", "wipe", 0, "wipe||", "", 0},
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
    const Case cases[] = {{"", REG_SZ, 0},
                          {"x", REG_MULTI_SZ, 0},
                          {"x|", REG_MULTI_SZ, 0},
                          {"x|y", REG_MULTI_SZ, 0},
                          {"x||", REG_MULTI_SZ, 1},
                          {"|", REG_MULTI_SZ, 1},
                          {"x||y||", REG_MULTI_SZ, 0},
                          {"|x|", REG_MULTI_SZ, 0},
                          {"x||", REG_SZ, 0},
                          {"x||", REG_EXPAND_SZ, 0},
                          {"x||", REG_BINARY, 0},
                          {"xx", REG_DWORD, 0}};
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
