// What a cancel event costs.

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
