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

// A poll that takes of a semaphore gives it back; what a callback ends took nothing.
TEST(CCancelEvent, OfAnotherKindKeepsItsCountWhateverEndsTheCall)
{
    const Folder folder;
    const std::wstring victim = folder.at(L"victim");
    const Win32Handle semaphore(CreateSemaphoreW(nullptr, 0, 9, nullptr));
    LONG released = 0;
    std::int32_t result = 0;
    const auto answer = [&](const auto&) {
        EXPECT_TRUE(released == 0 || ReleaseSemaphore(semaphore.get(), released, nullptr));
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
        [&] { return sysmaint_scan_run(scan, nullptr, nullptr, semaphore.get(), &find.call, &find); },
        [&] {
            return sysmaint_wiper_wipe(wiper, SYSMAINT_WIPE_FILE, victim.c_str(), &zeros, nullptr,
                                       semaphore.get(), &wiped.call, &wiped);
        },
        [&] {
            return sysmaint_wiper_wipe_entries(wiper, folder.path(), &entry, 1, &zeros, semaphore.get(),
                                               &wiped.call, &wiped, nullptr);
        },
        [&] {
            return sysmaint_wipe_file_table(folder.at(L"").c_str(), semaphore.get(), &wiped.call, &wiped);
        }};
    for (const auto& call : calls)
        for (const auto& [count, returned, code] :
             {std::tuple(0L, 1223, 1223), {2L, 4711, 4711}, {2L, 0, 6}}) {
            SCOPED_TRACE(testing::Message() << &call - calls << ' ' << count << ' ' << returned);
            folder.file(L"victim", 3000000);
            folder.file(L"victor", 1);
            released = count;
            result = returned;
            if (&call == std::end(calls) - 1 && returned == 0)
                continue; // this table is full after the first batch: nothing polls any more
            EXPECT_EQ(call(), code);
            LONG left = 0;
            while (WaitForSingleObject(semaphore.get(), 0) == WAIT_OBJECT_0)
                ++left;
            EXPECT_EQ(left, count);
        }
    sysmaint_scan_close(scan);
    sysmaint_wiper_close(wiper);
}
