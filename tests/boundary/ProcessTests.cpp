#include "ProcessTest.h"

#include <psapi.h>
#include <restartmanager.h>

namespace {
std::map<DWORD, std::wstring> toolhelp()
{
    std::map<DWORD, std::wstring> found;
    const HANDLE list = CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0);
    PROCESSENTRY32W entry{};
    entry.dwSize = sizeof entry;
    for (BOOL more = Process32FirstW(list, &entry); more; more = Process32NextW(list, &entry))
        found[entry.th32ProcessID] = std::to_wstring(entry.th32ParentProcessID) + L" " + entry.szExeFile;
    CloseHandle(list);
    return found;
}
} // namespace

TEST_F(Processes, AreListedOnceAsTheSystemSaysThem)
{
    const Child child, other;
    ASSERT_NE(child.entry().id * other.entry().id, 0U);
    std::map<DWORD, std::wstring> theirs, ours;
    ASSERT_TRUE(comesTrue([&] {
        theirs = toolhelp();
        return PMRefresh() == 0 && toolhelp() == theirs;
    })) << "no quiet moment";
    for (const ProcessEntry& each : Listed<ProcessEntry>(PMListProcesses)) {
        EXPECT_TRUE(ours.emplace(each.id, std::to_wstring(each.parentId) + L" " + each.name).second);
        if (const HANDLE process = OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, each.id)) {
            FILETIME times[4];
            EXPECT_TRUE(GetProcessTimes(process, &times[0], &times[1], &times[2], &times[3]));
            EXPECT_EQ(std::memcmp(&times[0], &each.startTime, sizeof(FILETIME)), 0);
            CloseHandle(process);
        }
        DWORD session = 0;
        EXPECT_TRUE(ProcessIdToSessionId(each.id, &session) && session == each.session);
    }
    EXPECT_EQ(ours, theirs);

    const ProcessEntry entry = child.entry();
    PROCESS_MEMORY_COUNTERS memory{};
    K32GetProcessMemoryInfo(child.handle, &memory, sizeof memory);
    EXPECT_EQ(entry.workingSet, memory.WorkingSetSize);
    EXPECT_TRUE(entry.peakWorkingSet == memory.PeakWorkingSetSize && entry.threadCount == 1U);
    const auto isOfChild = [&](const ThreadEntry& each) { return each.processId == child.id; };
    const Listed<ThreadEntry> ofChild(PMListThreads, child.id), all(PMListThreads, kAllProcesses);
    EXPECT_TRUE(ofChild.size() == 1 && isOfChild(ofChild[0]) && std::ranges::count_if(all, isOfChild) == 1);
}

TEST_F(Processes, AreFoundByWhatTheyAreAndWhoStartedThem)
{
    const Child tree(L"tree 2 3"), outside;
    const std::wstring path = besideTests(L"process_child.exe");
    std::wstring upper = path;
    CharUpperBuffW(upper.data(), static_cast<DWORD>(upper.size()));
    ASSERT_TRUE(areRunning(8));
    EXPECT_EQ(found(PMFindByPath, upper.c_str()).size(), 8U);
    EXPECT_TRUE(found(PMFindByPath, L"C:\\process_child.exe").empty()) << "another file of that name";
    EXPECT_TRUE(found(PMFindByName, L"process_child").empty());
    const ProcessEntry entry = tree.entry();
    EXPECT_GE(found(PMFindBySession, entry.session).size(), 8U);
    EXPECT_TRUE(found(PMFindBySession, 77UL).empty());

    const auto members = found(PMGetTree, tree.id);
    ASSERT_EQ(members.size(), 7U);
    EXPECT_EQ(members[0], tree.id);
    EXPECT_EQ(found(PMGetTree, outside.id), std::vector<DWORD>{outside.id});
    const auto parents = found(PMGetParents, members[6]);
    ASSERT_GE(parents.size(), 3U);
    EXPECT_TRUE(parents[0] == members[1] || parents[0] == members[2]) << "parents come before children";
    EXPECT_TRUE(parents[1] == tree.id && parents[2] == GetCurrentProcessId());

    EXPECT_EQ(_wcsicmp(Listed<ModuleEntry>(PMListModules, tree.id)[0].path, path.c_str()), 0);
    const auto users = found(PMFindUsers, path.c_str());
    EXPECT_EQ(std::set<DWORD>(users.begin(), users.end()).size(), 8U) << "each once";
    EXPECT_TRUE(found(PMFindUsers, L"C:\\windows\\no such file").empty());
    size_t count = 0;
    Given<ProcessEntry> none;
    Given<ModuleEntry> modules;
    EXPECT_EQ((std::vector{PMFindById(77777, &none), PMGetTree(77777, &none, &count),
                           PMGetParents(77777, &none, &count), PMListModules(77777, &modules, &count),
                           PMFindByName(nullptr, &none, &count), PMListProcesses(&none, nullptr),
                           PMFindUsers(L"", &none, &count)}),
              (std::vector{1168L, 1168L, 1168L, 1168L, 87L, 87L, 123L}));
}

TEST_F(Processes, TellWhatTheSystemTellsOfThem)
{
    const Child child(L"sleep \"a b\"");
    const ProcessEntry entry = child.entry();
    const ProcessHandle process(CreateProcessW(entry)), named(CreateProcessW(entry, L"mine"));
    EXPECT_EQ(process.get(), ProcessHandle(CreateProcessW(entry)).get());
    const wchar_t* name = nullptr;
    EXPECT_EQ(ProcessGetNameByHandle(process.get(), &name), 0);
    EXPECT_EQ(ProcessHandle(OpenProcess(name)).get(), process.get());
    EXPECT_EQ(ProcessHandle(OpenProcess(L"mine")).get(), named.get());
    EXPECT_TRUE(refusalOf(OpenProcess(L"none")) == 1168 && refusalOf(CreateProcessW(entry, nullptr)) == 87);

    EXPECT_EQ(ProcessSetPriority(process.get(), BELOW_NORMAL_PRIORITY_CLASS), 0);
    EXPECT_EQ(ProcessSetPriority(process.get(), 77), 87);
    Given<ProcessDetails> details;
    ASSERT_EQ(ProcessGetDetails(process.get(), &details), 0);
    const ProcessDetails& told = details[0];
    wchar_t user[256];
    DWORD size = 256;
    GetUserNameW(user, &size);
    EXPECT_EQ(_wcsicmp(told.path, besideTests(L"process_child.exe").c_str()), 0);
    using Texts = std::array<std::wstring, 4>;
    EXPECT_EQ(
        (Texts{told.name, told.commandLine, told.user, told.sid}),
        (Texts{L"process_child.exe", L"process_child sleep \"a b\"", user, asText(SidOfCurrentUser)()}));
    EXPECT_TRUE(told.integrity == 0x3000U && told.isElevated && told.hasParent && !told.is32Bit);
    EXPECT_EQ(std::tuple(told.pathCode + told.commandLineCode + told.userCode + told.accessCode,
                         told.parentId, told.priorityClass, told.startTime),
              std::tuple(0, GetCurrentProcessId(), BELOW_NORMAL_PRIORITY_CLASS, entry.startTime));

    // A part that is refused has its code, and the rest stands.
    Replaced<"OpenProcessToken", decltype(&OpenProcessToken)> token(1, FALSE, ERROR_ACCESS_DENIED);
    Replaced<"QueryFullProcessImageNameW", decltype(&QueryFullProcessImageNameW)> path(1, FALSE, 31);
    ASSERT_EQ(ProcessGetDetails(process.get(), &details), 0);
    EXPECT_EQ(details[0].userCode * 100 + details[0].pathCode, 531);
    EXPECT_TRUE(*details[0].sid == 0 && *details[0].path == 0 && *details[0].commandLine != 0);
}

TEST_F(Processes, AreLeftAloneOnceTheirIdIsAnothers)
{
    const Child child, other;
    const ProcessHandle process = child.object();
    { // nobody takes the name that the other one gets by itself
        const ProcessHandle automatic = other.object();
        const wchar_t* name = nullptr;
        EXPECT_EQ(ProcessGetNameByHandle(automatic.get(), &name), 0);
        EXPECT_EQ(refusalOf(CreateProcessW(child.entry(), name)), 87U);
        EXPECT_EQ(CreateProcessW(child.entry(), L"7@8"), INVALID_HANDLE_VALUE);
        EXPECT_EQ(ProcessHandle(CreateProcessW(other.entry(), name)).get(), automatic.get());
        for (const wchar_t* const usual : {L"7@", L"@7", L"7@8x", L"x7@8", L"78"})
            EXPECT_TRUE(ProcessHandle(CreateProcessW(child.entry(), usual)).isValid()) << usual;
    }
    const Terminating terminating([](auto...) { return TRUE; });
    {
        Replaced<"GetProcessTimes", decltype(&GetProcessTimes)> times(
            after([](BOOL, HANDLE, FILETIME* created, auto...) { ++created->dwLowDateTime; }));
        EXPECT_EQ(codesOf(process.get()), Codes({1168}, 0));
        times.failCall(kEachCall, FALSE, ERROR_GEN_FAILURE);
        EXPECT_EQ(codesOf(process.get()), Codes({5}, -5)) << "neither gone nor ended";
    }
    {
        Opening opening([&](auto open, DWORD access, BOOL, DWORD) { return open(access, FALSE, other.id); });
        EXPECT_EQ(codesOf(process.get()), Codes({1168}, 0));
        opening.failCall(kEachCall, nullptr, ERROR_ACCESS_DENIED);
        EXPECT_EQ(codesOf(process.get()), Codes({5}, -5));
    }
    EXPECT_EQ(terminating.calls(), 0);
    child.end();
    EXPECT_EQ(codesOf(process.get()), Codes({1168}, 0));
    EXPECT_EQ(codesOf(reinterpret_cast<void*>(7777)), Codes({6}, -6));
}

TEST_F(Processes, AreNamedByTheRestartManager)
{
    static ProcessEntry users[2];
    static DWORD failing;
    failing = 0;
    const Child child, other;
    users[0] = child.entry(), users[1] = other.entry();
    ++users[1].startTime; // somebody that had its id before
    const LookedUp manager(
        {{"RmGetList", address(+[](DWORD, UINT* needed, UINT* count, RM_PROCESS_INFO* list, DWORD*) -> DWORD {
              constexpr UINT kCount = 20; // more than a first guess takes
              if (failing != 0 || *count < kCount)
                  return *needed = kCount, failing != 0 ? failing : DWORD{ERROR_MORE_DATA};
              for (UINT i = 0; i < kCount; ++i) {
                  list[i].Process.dwProcessId = users[i % 2].id;
                  std::memcpy(&list[i].Process.ProcessStartTime, &users[i % 2].startTime, sizeof(FILETIME));
              }
              return *count = kCount, 0;
          })}});
    EXPECT_EQ(found(PMFindUsers, L"C:\\some file"), std::vector<DWORD>{child.id});
    failing = ERROR_SEM_TIMEOUT;
    Given<ProcessEntry> none;
    size_t count = 0;
    EXPECT_EQ(PMFindUsers(L"C:\\some file", &none, &count), 121) << "nobody can tell that it is free";
}

TEST_F(Processes, AndTheirThreadsAreSuspendedAndWaitedFor)
{
    const Child child;
    const ProcessHandle process = child.object();
    const ThreadEntry entry = Listed<ThreadEntry>(PMListThreads, child.id)[0];
    const ThreadHandle thread(CreateThread(entry));
    const std::wstring name = std::to_wstring(entry.id) + L"@" + std::to_wstring(entry.startTime);
    EXPECT_EQ(ThreadHandle(OpenThread(name.c_str())).get(), thread.get());
    const auto suspend = asNumber(ThreadSuspend), resume = asNumber(ThreadResume);
    EXPECT_EQ(ProcessSuspend(process.get()), 0);
    EXPECT_TRUE(suspend(thread.get()) == 1 && resume(thread.get()) == 2);
    EXPECT_TRUE(ProcessResume(process.get()) == 0 && resume(thread.get()) == 0);
    ThreadEntry now{};
    EXPECT_EQ(ThreadSetPriority(thread.get(), THREAD_PRIORITY_LOWEST), 0);
    EXPECT_TRUE(ThreadGetDetails(thread.get(), &now) == 0 && now.startTime == entry.startTime);
    ThreadEntry moved = entry;
    ++moved.startTime;
    EXPECT_EQ(asNumber(ThreadIsRunning)(ThreadHandle(CreateThread(moved)).get()), 0);
    moved = {GetCurrentThreadId(), GetCurrentProcessId(), 0, 0, 0, 0};
    FILETIME any;
    GetThreadTimes(GetCurrentThread(), reinterpret_cast<FILETIME*>(&moved.startTime), &any, &any, &any);
    EXPECT_EQ(suspend(ThreadHandle(CreateThread(moved)).get()), -50) << "the caller";
    const TestEvent cancel;
    unsigned long count = 7;
    EXPECT_EQ(ThreadWait(thread.get(), 20, nullptr), 1460);
    EXPECT_EQ(ProcessWait(process.get(), 20, cancel.get(), &count), 1460);
    cancel.set();
    EXPECT_EQ(ProcessWait(process.get(), INFINITE, cancel.get(), &count), 1223);
    const Win32Handle semaphore(CreateSemaphoreW(nullptr, 1, 1, nullptr));
    EXPECT_EQ(ProcessWait(process.get(), INFINITE, semaphore.get(), &count), 6);
    EXPECT_EQ(ThreadWait(thread.get(), INFINITE, semaphore.get()), 6);
    child.end();
    EXPECT_EQ(ThreadWait(thread.get(), 0, nullptr), 1168);
}

// Its windows, as a desktop would have them: one that shows, one that does not, and somebody else's.
TEST_F(Processes, AreAskedToClose)
{
    static DWORD owner;
    static long posted;
    const Child child;
    owner = child.id;
    posted = 0;
    const LookedUp desktop(
        {{"EnumWindows", address(+[](WNDENUMPROC tell, LPARAM value) -> BOOL {
              for (const std::uintptr_t window : {1U, 2U, 3U})
                  tell(reinterpret_cast<HWND>(window), value);
              return TRUE;
          })},
         {"GetWindowThreadProcessId", address(+[](std::uintptr_t window, DWORD* id) -> DWORD {
              return *id = window < 3 ? owner : GetCurrentProcessId();
          })},
         {"IsWindowVisible", address(+[](std::uintptr_t window) -> BOOL { return window != 2; })},
         {"PostMessageW", address(+[](std::uintptr_t window, UINT message, WPARAM, LPARAM) -> BOOL {
              return posted = posted * 100 + static_cast<long>(window + message), TRUE;
          })}});
    EXPECT_EQ(asNumber(ProcessCloseWindows)(child.object().get()), 1);
    EXPECT_EQ(posted, 1 + WM_CLOSE);
}

TEST_F(Processes, KnowWhetherAModuleIsStillThere)
{
    const Child child;
    Given<ModuleEntry> list, details;
    size_t count = 0;
    ASSERT_TRUE(comesTrue(
        [&] { return PMRefresh() == 0 && PMListModules(child.id, &list, &count) == 0 && count != 0; }));
    const SmartHandle<CloseModule> module(CreateModule(list[0]));
    ModuleEntry moved = list[0];
    moved.base += 4096;
    const auto isLoaded = asNumber(ModuleIsLoaded);
    EXPECT_EQ(isLoaded(module.get()), 1);
    EXPECT_EQ(isLoaded(SmartHandle<CloseModule>(CreateModule(moved)).get()), 0);
    EXPECT_EQ(ModuleGetDetails(module.get(), &details), 0);
    EXPECT_STREQ(details[0].path, list[0].path);
    child.end();
    EXPECT_TRUE(isLoaded(module.get()) == 0 && OpenModule(L"none") == INVALID_HANDLE_VALUE);
}

TEST_F(Processes, ComeAndGoWhileOthersList)
{
    constexpr int kListers = 8;
    const auto run = [&](int children) {
        std::atomic<int> starting{2};
        onThreadsAtOnce(kListers + 2, [&](int number) {
            for (int i = 0; number < 2 && i < children / 2; ++i) {
                const Child child(i % 2 == 0 ? L"exit 0" : L"sleep"); // the former may end unseen
                EXPECT_TRUE(i % 2 == 0 || child.entry().id == child.id);
            }
            starting -= number < 2 ? 1 : 0;
            for (; starting != 0; Sleep(10)) {
                EXPECT_EQ(PMRefresh(), 0);
                DWORD last = 0;
                for (const ProcessEntry& each : Listed<ProcessEntry>(PMListProcesses)) {
                    EXPECT_TRUE(each.startTime != 0 && each.threadCount != 0 && each.id > last);
                    last = each.id;
                    EXPECT_TRUE(std::wstring_view(each.name) != L"process_child.exe" ||
                                each.parentId == GetCurrentProcessId());
                }
            }
        });
    };
    run(50);               // the first wait for a lock leaves its event for good
    CloseProcessManager(); // its snapshot grows with the number of processes
    const ProcessCounts before = ProcessCounts::now();
    EXPECT_EQ(CreateProcessManager(), 0);
    run(250);
    CloseProcessManager();
    EXPECT_TRUE(before.isReachedAgain(100));
    EXPECT_EQ(CreateProcessManager(), 0);
}

TEST(ProcessManager, IsOneForAllAndEndsWithItsLastOpening)
{
    size_t count = 0;
    Given<ProcessEntry> buffer;
    EXPECT_TRUE(PMListProcesses(&buffer, &count) == 6 && OpenProcessManager() == 1168);
    EXPECT_TRUE(CloseProcessManager() == 0 && CreateProcessManager() == 0);
    EXPECT_TRUE(CreateProcessManager() == 0 && OpenProcessManager() == 0);
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(PMRefresh(), 0);
        EXPECT_NE(CloseProcessManager(), 0);
    }
    EXPECT_TRUE(PMRefresh() == 6 && CloseProcessManager() == 0);
    Asking asking;
    asking.failCall(1, static_cast<NTSTATUS>(0xC0000022), 0);
    EXPECT_EQ(CreateProcessManager(), 5);
    EXPECT_EQ(OpenProcessManager(), 1168) << "nothing is left of it";
}
