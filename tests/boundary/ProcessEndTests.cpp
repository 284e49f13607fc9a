#include "ProcessTest.h"

TEST_F(Processes, EndAsATreeFromBelow)
{
    const Child tree(L"tree 2 6");
    ASSERT_TRUE(comesTrue([&] { return PMRefresh() == 0 && found(PMGetTree, tree.id).size() == 63; }));
    const ProcessHandle process = objectOf(tree);
    std::map<DWORD, DWORD> parents;
    Given<ProcessEntry> buffer;
    for (const ProcessEntry& each :
         listOf(buffer, [&](ProcessEntry**e, size_t*n) { return PMGetTree(tree.id, e, n); }))
        parents[each.id] = each.parentId;
    { // one of them refuses: nothing has ended
        const Terminating none([](auto...) { return TRUE; });
        const DWORD refusing = parents.rbegin()->first;
        const Opening opening([&](auto original, DWORD access, BOOL inherit, DWORD id) {
            const bool isRefused = id == refusing && (access & PROCESS_TERMINATE) != 0;
            return isRefused ? (SetLastError(ERROR_ACCESS_DENIED), HANDLE(nullptr))
                             : original(access, inherit, id);
        });
        EXPECT_EQ(ProcessEnd(process.get(), kEndTree, 5000), 5);
        EXPECT_EQ(none.calls(), 0);
    }
    std::set<DWORD> ended;
    Terminating terminating([&](auto original, HANDLE handle, UINT code) {
        const DWORD id = GetProcessId(handle);
        for (const auto& [child, parent] : parents)
            EXPECT_TRUE(parent != id || ended.count(child) != 0) << "a parent ended before its child";
        ended.insert(id);
        return original(handle, code);
    });
    bool hasFailed = false; // the last look, when all have been told to end
    const Asking asking([&](auto original, auto... all) -> NTSTATUS {
        const bool fails = ended.size() == 63 && !std::exchange(hasFailed, ended.size() == 63);
        return fails ? static_cast<NTSTATUS>(0xC0000017UL) : original(all...);
    });
    EXPECT_EQ(ProcessEnd(process.get(), kEndTree, 60000), 0);
    EXPECT_TRUE(hasFailed);
    EXPECT_EQ(ended.size(), 63U);
    DWORD code = 0;
    GetExitCodeProcess(tree.handle, &code);
    EXPECT_EQ(code, 1067U);
    EXPECT_EQ(PMRefresh(), 0);
    EXPECT_TRUE(found(PMFindByName, L"process_child.exe").empty());
}

TEST_F(Processes, EndOnlyWhatTheyTrulyStarted)
{
    const Child older(L"sleep");
    const Child child(L"tree 1 2");
    const Child own(L"tree 1 2");
    ASSERT_TRUE(comesTrue([&] {
        return PMRefresh() == 0 && found(PMGetTree, own.id).size() == 2 &&
               found(PMGetTree, child.id).size() == 2;
    }));
    const ProcessHandle process = objectOf(child);
    const ProcessHandle alone = objectOf(own);
    const DWORD left = found(PMGetTree, own.id)[1];
    {
        // The system reports an older process as the child's child: its parent's id was reused.
        const Asking asking(
            [&](auto original, SYSTEM_INFORMATION_CLASS kind, void* buffer, ULONG size, ULONG* needed) {
                const NTSTATUS status = original(kind, buffer, size, needed);
                constexpr std::size_t kId = 0x50, kParent = 0x58;
                ULONG next = status < 0 ? 0 : 1;
                for (auto* at = static_cast<BYTE*>(buffer); next != 0; at += next) {
                    const ULONG_PTR parent = child.id; // unaligned
                    if (std::memcmp(at + kId, &older.id, sizeof older.id) == 0)
                        std::memcpy(at + kParent, &parent, sizeof parent);
                    std::memcpy(&next, at, sizeof next);
                }
                return status;
            });
        EXPECT_EQ(PMRefresh(), 0);
        EXPECT_TRUE(found(PMGetParents, older.id).empty());
        EXPECT_EQ(found(PMGetTree, child.id).size(), 2U);
        EXPECT_EQ(ProcessEnd(process.get(), kEndTree, 60000), 0);
    }
    EXPECT_TRUE(older.isRunning() && !child.isRunning());
    EXPECT_EQ(ProcessEnd(alone.get(), 0, 60000), 0);
    EXPECT_EQ(PMRefresh(), 0);
    EXPECT_EQ(found(PMGetTree, left).size(), 1U) << "without the flag the process alone";
    EXPECT_TRUE(found(PMGetParents, left).empty()) << "its parent is gone";
}

TEST_F(Processes, RefuseToEndWhatTheSystemOrTheCallerNeeds)
{
    const Terminating terminating([](auto...) { return TRUE; }); // ends nobody
    const Child child(L"sleep");
    const ProcessHandle process = objectOf(child);
    const auto end = [](DWORD id, unsigned long options) {
        Given<ProcessEntry> entry;
        EXPECT_EQ(PMFindById(id, &entry), 0);
        return ProcessEnd(ProcessHandle(CreateProcessW(entry[0])).get(), options, 50);
    };
    EXPECT_EQ(end(GetCurrentProcessId(), kEndTree | kEndServices), 50);
    EXPECT_EQ(end(idOf(L"services.exe"), kEndServices), 50);
    EXPECT_EQ(end(idOf(L"services.exe"), kEndServices | kEndNothing), 50);
    for (const unsigned long options : {0UL, kEndTree + 0UL})
        EXPECT_EQ(ProcessEnd(process.get(), options | kEndNothing, 50), 0);
    EXPECT_EQ(end(idOf(L"plugplay.exe"), 0), 1052);
    EXPECT_EQ(terminating.calls(), 0);
    EXPECT_EQ(end(idOf(L"plugplay.exe"), kEndServices), 1460) << "told, and not gone yet";
    EXPECT_EQ(terminating.calls(), 1);
    Replaced<"OpenSCManagerW", decltype(&OpenSCManagerW)> services(1, nullptr, ERROR_GEN_FAILURE);
    EXPECT_EQ(ProcessEnd(process.get(), 0, 50), 31) << "whether it is a service cannot be told";
    EXPECT_EQ(ProcessEnd(process.get(), 8, 50), 87);
    EXPECT_EQ(terminating.calls(), 1);
}

TEST_F(Processes, OfUnknownImportanceForTheSystemDoNotEnd)
{
    const Terminating terminating([](auto...) { return TRUE; }); // ends nobody
    const Child child(L"sleep");
    const ProcessHandle process = objectOf(child);
    long answer = 0;
    Replaced<"NtQueryInformationProcess", decltype(&NtQueryInformationProcess)> asking(
        [&](auto original, HANDLE handle, PROCESSINFOCLASS kind, void* buffer, ULONG size,
            ULONG* length) -> NTSTATUS {
            if (kind != 29)
                return original(handle, kind, buffer, size, length);
            return *static_cast<ULONG*>(buffer) = answer == 0 ? 1 : 0, answer;
        });
    EXPECT_EQ(ProcessEnd(process.get(), 0, 50), 50);
    EXPECT_EQ(ProcessSuspend(process.get()), 50);
    for (const unsigned long status : {0xC0000022UL, 0xC0000017UL, 0xC000009AUL, 0xC0000008UL}) {
        answer = static_cast<long>(status);
        EXPECT_EQ(ProcessEnd(process.get(), 0, 50), 5) << status;
        EXPECT_EQ(ProcessEnd(process.get(), kEndTree, 50), 5) << status;
    }
    EXPECT_EQ(terminating.calls(), 0);
    for (const unsigned long status :
         {0xC0000002UL, 0xC0000003UL}) { // no system that knows of such processes
        answer = static_cast<long>(status);
        EXPECT_EQ(ProcessEnd(process.get(), 0, 50), 1460) << status;
    }
    // Older systems tell it only with more access.
    DWORD asked = 0;
    const Opening opening([&](auto original, DWORD access, BOOL inherit, DWORD id) {
        asked = access;
        return original(access, inherit, id);
    });
    asking.setHook([&](auto original, HANDLE handle, PROCESSINFOCLASS kind, void* buffer, ULONG size,
                       ULONG* length) -> NTSTATUS {
        if (kind != 29)
            return original(handle, kind, buffer, size, length);
        *static_cast<ULONG*>(buffer) = 0;
        return asked == PROCESS_QUERY_INFORMATION ? 0 : static_cast<long>(0xC0000022UL);
    });
    EXPECT_EQ(ProcessEnd(process.get(), 0, 50), 1460);
    EXPECT_EQ(terminating.calls(), 3);
}

TEST_F(Processes, OfTheSystemAreKnownByTheirFileToo)
{
    const std::wstring path = testPath(L"LSASS.exe");
    ASSERT_TRUE(CopyFileW(besideTests(L"process_child.exe").c_str(), path.c_str(), FALSE));
    {
        const Child child(L"sleep", path);
        const ProcessHandle process = objectOf(child);
        const Terminating terminating([](auto...) { return TRUE; });
        for (const bool isInSystem : {false, true}) {
            const Replaced<"QueryFullProcessImageNameW", decltype(&QueryFullProcessImageNameW)> asking(
                [&](auto, HANDLE, DWORD, wchar_t* text, DWORD* size) -> BOOL {
                    *size = GetSystemDirectoryW(text, *size); // or unknown
                    return isInSystem ? std::wcscat(text, L"\\x"), *size += 2, TRUE : FALSE;
                });
            EXPECT_EQ(ProcessEnd(process.get(), 0, 0), 50) << isInSystem;
        }
        EXPECT_EQ(terminating.calls(), 0);
    }
    const Child child(L"sleep", path);
    EXPECT_EQ(ProcessEnd(objectOf(child).get(), 0, 60000), 0) << "a user's own file of that name";
    EXPECT_TRUE(DeleteFileW(path.c_str()));
}
