// What a cancel event costs.

#include "c/Calls.h"
#include "core/win32/utils/scanengine/api.h"
#include "core/win32/utils/wiper/api.h"
#include "support/KernelCalls.h"

namespace {
struct Ignoring final : INotifyHandler
{
    void onNotify(const Notification&, const SharedPtr<ScanItem>&) override {}
};
} // namespace

TEST(CCancelEvent, CostsTheKernelCallsThatItCostsInCpp)
{
    const Folder folder;
    const std::wstring victim = folder.file(L"victim", 9);
    Ignoring handler;
    void* const engine = CreateFileScanEngine(L"c counted");
    FSEngineAddPath(engine, folder.path(), 0);
    FSEngineRegisterHandler(engine, handler, kLeafFound, 0, 0);
    const SharedPtr<IScanValidator> all(DllGetScanValidator());
    const SharedPtr<IWiper> wiper(DllGetWiper());
    sysmaint_scan* cScan = nullptr;
    sysmaint_wiper* cWiper = nullptr;
    EXPECT_EQ(sysmaint_wiper_create(&cWiper) + sysmaint_scan_create(SYSMAINT_SCAN_FOLDERS, &cScan), 0);
    EXPECT_EQ(sysmaint_scan_add_folder(cScan, folder.path(), 0), 0);
    const sysmaint_wipe_options zeros{sizeof zeros, SYSMAINT_WIPE_ZEROS, 1, 0, 0};
    const auto ignore = [](void*, const sysmaint_found*) { return 0; };
    using Call = std::function<long(void*)>;
    const std::pair<Call, Call> pairs[] = {
        {[&](void* cancel) { return FSEngineScan(engine, cancel, all, ScanOptions()); },
         [&](void* cancel) { return sysmaint_scan_run(cScan, nullptr, nullptr, cancel, ignore, nullptr); }},
        {[&](void* cancel) {
             return wiper->Wipe(nullptr, nullptr, kWipeFile, victim.c_str(), nullptr, nullptr, kWipeZeros, 1,
                                cancel);
         },
         [&](void* cancel) {
             return sysmaint_wiper_wipe(cWiper, SYSMAINT_WIPE_FILE, victim.c_str(), &zeros, nullptr, cancel,
                                        nullptr, nullptr);
         }}};
    const Win32Handle event(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    KernelCalls calls(sysmaintModule());
    calls.countThisThread();
    const auto costOf = [&](const Call& call, void* cancel) {
        folder.file(L"victim", 9);
        calls.reset();
        EXPECT_EQ(call(cancel), 0);
        return calls.total();
    };
    for (const auto& [cpp, c] : pairs) {
        const long polls = costOf(cpp, event.get()) - costOf(cpp, nullptr);
        EXPECT_GT(polls, 0);
        EXPECT_EQ(costOf(c, event.get()) - costOf(c, nullptr), polls);
        EXPECT_LE(costOf(c, nullptr), costOf(cpp, nullptr));
    }
    sysmaint_wiper_close(cWiper);
    sysmaint_scan_close(cScan);
    CloseFileScanEngine(engine);
}
