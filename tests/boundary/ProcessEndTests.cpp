#include "ProcessTest.h"

TEST_F(Processes, EndAsATreeFromBelow)
{
    const Child tree(L"tree 2 6");
    ASSERT_TRUE(comesTrue([&] { return PMRefresh() == 0 && found(PMGetTree, tree.id).size() == 63; }));
    const ProcessHandle process = tree.object();
    std::map<DWORD, DWORD> parents;
    for (const ProcessEntry& each : Listed<ProcessEntry>(PMGetTree, tree.id))
        parents[each.id] = each.parentId;
    { // one of them refuses: nothing has ended
        const Terminating none([](auto...) { return TRUE; });
        const DWORD refusing = parents.rbegin()->first;
        const Opening opening(failing(HANDLE{}, ERROR_ACCESS_DENIED, [&](DWORD access, BOOL, DWORD id) {
            return id == refusing && (access & PROCESS_TERMINATE) != 0;
        }));
        EXPECT_TRUE(ProcessEnd(process.get(), kEndTree, 5000) == 5 && none.calls() == 0);
    }
    std::set<DWORD> ended;
    HANDLE late = nullptr; // is ending by itself when it is told to: the system refuses
    Terminating terminating([&](auto original, HANDLE handle, UINT code) {
        if (late != nullptr)
            original(std::exchange(late, nullptr), code);
        const DWORD id = GetProcessId(handle);
        for (const auto& [child, parent] : parents)
            EXPECT_TRUE(parent != id || ended.contains(child)) << "a parent ended before its child";
        ended.insert(id);
        if (ended.size() != 2)
            return original(handle, code);
        late = handle;
        return SetLastError(ERROR_ACCESS_DENIED), FALSE;
    });
    bool hasFailed = false; // the last look, when all have been told to end
    const Asking asking([&](auto original, auto... all) -> NTSTATUS {
        const bool fails = ended.size() == 63 && !std::exchange(hasFailed, ended.size() == 63);
        return fails ? static_cast<NTSTATUS>(0xC0000017UL) : original(all...);
    });
    EXPECT_TRUE(ProcessEnd(process.get(), kEndTree, 60000) == 0 && hasFailed && ended.size() == 63U);
    DWORD code = 0;
    GetExitCodeProcess(tree.handle, &code);
    EXPECT_TRUE(code == 1067U && PMRefresh() == 0 && found(PMFindByName, L"process_child.exe").empty());
}

TEST_F(Processes, EndOnlyWhatTheyTrulyStarted)
{
    const Child older, child(L"tree 1 2"), own(L"tree 1 2");
    const auto below = [](const Child& top) { return found(PMGetTree, top.id).size() - 1; };
    ASSERT_TRUE(comesTrue([&] { return PMRefresh() == 0 && below(own) == 1 && below(child) == 1; }));
    const ProcessHandle process = child.object(), alone = own.object();
    const DWORD left = found(PMGetTree, own.id)[1];
    {
        // The system reports an older process as the child's child: its parent's id was reused.
        const Asking asking(after([&](NTSTATUS status, SYSTEM_INFORMATION_CLASS, void* buffer, auto...) {
            constexpr std::size_t kId = 0x50, kParent = 0x58;
            ULONG next = status < 0 ? 0 : 1;
            for (auto* at = static_cast<BYTE*>(buffer); next != 0; at += next) {
                const ULONG_PTR parent = child.id; // unaligned
                if (std::memcmp(at + kId, &older.id, sizeof older.id) == 0)
                    std::memcpy(at + kParent, &parent, sizeof parent);
                std::memcpy(&next, at, sizeof next);
            }
        }));
        EXPECT_TRUE(PMRefresh() == 0 && found(PMGetParents, older.id).empty());
        EXPECT_EQ(found(PMGetTree, child.id).size(), 2U);
        EXPECT_EQ(ProcessEnd(process.get(), kEndTree, 60000), 0);
    }
    EXPECT_TRUE(older.isRunning() && !child.isRunning() && ProcessEnd(alone.get(), 0, 60000) == 0);
    EXPECT_EQ(PMRefresh(), 0);
    EXPECT_EQ(found(PMGetTree, left).size(), 1U) << "without the flag the process alone";
    EXPECT_TRUE(found(PMGetParents, left).empty()) << "its parent is gone";
}

TEST_F(Processes, RefuseToEndWhatTheSystemOrTheCallerNeeds)
{
    const Terminating terminating([](auto...) { return TRUE; }); // ends nobody
    const Child child;
    const ProcessHandle process = child.object();
    const auto end = [](unsigned long options, auto... what) {
        const Listed<ProcessEntry> found(what...);
        return ProcessEnd(ProcessHandle(CreateProcessW(found[0])).get(), options, 50);
    };
    EXPECT_EQ(end(kEndTree | kEndServices, PMGetTree, GetCurrentProcessId()), 50);
    EXPECT_EQ(end(kEndServices, PMFindByName, L"services.exe"), 50);
    EXPECT_EQ(end(kEndServices | kEndNothing, PMFindByName, L"services.exe"), 50);
    for (const unsigned long options : {0UL, kEndTree + 0UL})
        EXPECT_EQ(ProcessEnd(process.get(), options | kEndNothing, 50), 0);
    EXPECT_TRUE(end(0, PMFindByName, L"plugplay.exe") == 1052 && terminating.calls() == 0);
    EXPECT_EQ(end(kEndServices, PMFindByName, L"plugplay.exe"), 1460) << "told, and not gone yet";
    Replaced<"OpenSCManagerW", decltype(&OpenSCManagerW)> services(1, nullptr, ERROR_GEN_FAILURE);
    EXPECT_EQ(ProcessEnd(process.get(), 0, 50), 31) << "whether it is a service cannot be told";
    EXPECT_EQ(ProcessEnd(process.get(), 8, 50), 87);
    EXPECT_EQ(terminating.calls(), 1);
}

TEST_F(Processes, OfUnknownImportanceForTheSystemDoNotEnd)
{
    const Terminating terminating([](auto...) { return TRUE; }); // ends nobody
    const Child child;
    const ProcessHandle process = child.object();
    unsigned long answer = 0;
    DWORD asked = 0, enough = 0; // older systems tell it only with more access
    const Opening opening(before([&](DWORD access, auto...) { asked = access; }));
    Replaced<"NtQueryInformationProcess", decltype(&NtQueryInformationProcess)> asking(
        [&](auto original, HANDLE handle, PROCESSINFOCLASS kind, void* buffer, auto... rest) -> NTSTATUS {
            if (kind != 29)
                return original(handle, kind, buffer, rest...);
            *static_cast<ULONG*>(buffer) = answer == 0 ? 1 : 0;
            return asked == enough ? 0 : static_cast<long>(answer);
        });
    EXPECT_TRUE(ProcessEnd(process.get(), 0, 50) == 50 && ProcessSuspend(process.get()) == 50);
    for (const unsigned long status : {0xC0000022UL, 0xC0000017UL, 0xC000009AUL, 0xC0000008UL}) {
        answer = status;
        EXPECT_EQ(ProcessEnd(process.get(), 0, 50), 5) << status;
        EXPECT_EQ(ProcessEnd(process.get(), kEndTree, 50), 5) << status;
    }
    EXPECT_EQ(terminating.calls(), 0);
    for (const unsigned long status : {0xC0000002UL, 0xC0000003UL, 0xC0000022UL}) {
        answer = status; // no system that knows of such processes, or an older one
        enough = status == 0xC0000022UL ? PROCESS_QUERY_INFORMATION : 0;
        EXPECT_EQ(ProcessEnd(process.get(), 0, 50), 1460) << status;
    }
    EXPECT_EQ(terminating.calls(), 3);
}

TEST_F(Processes, OfTheSystemAreKnownByTheirFileToo)
{
    const std::wstring path = testPath(L"LSASS.exe");
    ASSERT_TRUE(CopyFileW(besideTests(L"process_child.exe").c_str(), path.c_str(), FALSE));
    {
        const Child child(L"sleep", path);
        const ProcessHandle process = child.object();
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
    EXPECT_EQ(ProcessEnd(child.object().get(), 0, 60000), 0) << "a user's own file of that name";
    EXPECT_TRUE(DeleteFileW(path.c_str()));
}
