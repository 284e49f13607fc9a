// What a cancel event costs, and what is given instead of one keeps.

#include "c/Calls.h"
#include "core/win32/utils/wiper/api.h"
#include "support/KernelCalls.h"

TEST(CCancelEvent, CostsTheKernelCallsThatItCostsInCpp)
{
    const Folder folder;
    const std::wstring victim = folder.at(L"victim");
    const SharedPtr<IWiper> cppWiper(DllGetWiper());
    sysmaint_wiper* wiper = nullptr;
    EXPECT_EQ(sysmaint_wiper_create(&wiper), 0);
    const sysmaint_wipe_options zeros{sizeof zeros, SYSMAINT_WIPE_ZEROS, 1, 0, 0};
    const auto cpp = [&](void* cancel) -> long {
        return cppWiper->Wipe(nullptr, nullptr, kWipeFile, victim.c_str(), nullptr, nullptr, kWipeZeros, 1,
                              cancel);
    };
    const auto c = [&](void* cancel) -> long {
        return sysmaint_wiper_wipe(wiper, SYSMAINT_WIPE_FILE, victim.c_str(), &zeros, nullptr, cancel,
                                   nullptr, nullptr);
    };
    KernelCalls calls(sysmaintModule());
    calls.countThisThread();
    const auto costOf = [&](const auto& wipe, void* cancel) {
        folder.file(L"victim", 9);
        calls.reset();
        EXPECT_EQ(wipe(cancel), 0);
        return calls.total();
    };
    const Win32Handle event(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    EXPECT_GT(costOf(c, event.get()), costOf(c, nullptr)); // it is polled
    EXPECT_EQ(costOf(c, event.get()), costOf(cpp, event.get()));
    EXPECT_EQ(costOf(c, nullptr), costOf(cpp, nullptr));
    sysmaint_wiper_close(wiper);
}

// What a poll takes is given back, and so every poll finds the same; what a callback ends took nothing.
TEST(CCancelEvent, OfAnotherKindKeepsItsStateWhateverEndsTheCall)
{
    const Folder folder;
    const std::wstring victim = folder.at(L"victim");
    const Win32Handle semaphore(CreateSemaphoreW(nullptr, 0, 1, nullptr));
    const Win32Handle event(CreateEventW(nullptr, FALSE, FALSE, nullptr)); // which resets itself
    const Win32Handle mutex(CreateMutexW(nullptr, TRUE, nullptr));
    HANDLE copy = nullptr;
    EXPECT_TRUE(DuplicateHandle(GetCurrentProcess(), mutex.get(), GetCurrentProcess(), &copy,
                                MUTEX_MODIFY_STATE, FALSE, 0));
    const Win32Handle unwaitable(copy);
    HANDLE cancel = nullptr;
    bool signals = false;
    std::int32_t result = 0;
    const auto answer = [&](const auto&) {
        if (signals && !SetEvent(cancel))
            ReleaseSemaphore(cancel, 1, nullptr);
        return result;
    };
    Callback<sysmaint_found> find{answer};
    Callback<sysmaint_wipe_progress> wiped{answer};
    sysmaint_scan* scan = nullptr;
    sysmaint_wiper* wiper = nullptr;
    EXPECT_EQ(sysmaint_scan_create(SYSMAINT_SCAN_FOLDERS, &scan) + sysmaint_wiper_create(&wiper), 0);
    EXPECT_EQ(sysmaint_scan_add_folder(scan, folder.path(), 0), 0);
    const sysmaint_wipe_options zeros{sizeof zeros, SYSMAINT_WIPE_ZEROS, 1, 0, 0};
    const sysmaint_wipe_entry entry{sizeof entry, 0, L"victim", folder.path()};
    const std::function<std::int32_t()> calls[] = {
        [&] { return sysmaint_scan_run(scan, nullptr, nullptr, cancel, &find.call, &find); },
        [&] {
            return sysmaint_wiper_wipe(wiper, SYSMAINT_WIPE_FILE, victim.c_str(), &zeros, nullptr, cancel,
                                       &wiped.call, &wiped);
        },
        [&] {
            return sysmaint_wiper_wipe(wiper, SYSMAINT_WIPE_FREE_SPACE, folder.at(L"").c_str(), &zeros,
                                       nullptr, cancel, &wiped.call, &wiped);
        },
        [&] {
            return sysmaint_wiper_wipe_entries(wiper, folder.path(), &entry, 1, &zeros, cancel, &wiped.call,
                                               &wiped, nullptr);
        },
        [&] { return sysmaint_wipe_file_table(folder.at(L"").c_str(), cancel, &wiped.call, &wiped); }};
    const std::tuple<HANDLE, bool, std::int32_t, std::int32_t> rows[] = {
        {semaphore.get(), false, 1223, 1223}, {semaphore.get(), true, 4711, 4711},
        {semaphore.get(), true, 0, 6},        {event.get(), true, 4711, 4711},
        {event.get(), true, 0, 1223},         {unwaitable.get(), false, 0, 5}};
    for (const auto& call : calls)
        for (const auto& [handle, isSignalled, returned, code] : rows) {
            SCOPED_TRACE(testing::Message() << &call - calls << ' ' << handle << ' ' << returned);
            folder.file(L"victim", 3000000);
            folder.file(L"victor", 1);
            cancel = handle;
            signals = isSignalled;
            result = returned;
            if (&call == std::end(calls) - 1 && signals && returned == 0)
                continue; // this table is full after the first batch: nothing polls any more
            EXPECT_EQ(call(), code);
            EXPECT_EQ(WaitForSingleObject(cancel, 0) == WAIT_OBJECT_0, signals);
        }
    EXPECT_TRUE(ReleaseMutex(mutex.get())) << "nobody else has";
    sysmaint_scan_close(scan);
    sysmaint_wiper_close(wiper);
}
