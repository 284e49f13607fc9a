// What a cancel event costs, and what is none.

#include "c/Calls.h"
#include "core/win32/utils/scanengine/api.h"
#include "core/win32/utils/wiper/api.h"
#include "support/Connections.h"
#include "support/KernelCalls.h"

namespace {
struct Ignoring final : INotifyHandler
{
    void onNotify(const Notification&, const SharedPtr<ScanItem>&) override {}
};

class CCancelEvent : public testing::Test
{
protected:
    CCancelEvent()
    {
        folder.file(L"one", 3);
        EXPECT_EQ(sysmaint_scan_create(SYSMAINT_SCAN_FOLDERS, &scan), 0);
        EXPECT_EQ(sysmaint_scan_add_folder(scan, folder.path(), 0), 0);
    }
    ~CCancelEvent() override { sysmaint_scan_close(scan); }

    std::int32_t run(
        void* event, sysmaint_scan_callback callback = [](void*, const sysmaint_found*) { return 0; })
    {
        return sysmaint_scan_run(scan, nullptr, nullptr, event, callback, event);
    }

    const Folder folder;
    sysmaint_scan* scan = nullptr;
    const Win32Handle event{CreateEventW(nullptr, TRUE, FALSE, nullptr)};
};
} // namespace

TEST_F(CCancelEvent, CostsTheKernelCallsThatItCostsInCpp)
{
    Ignoring handler;
    void* const engine = CreateFileScanEngine(L"c counted");
    EXPECT_EQ(FSEngineAddPath(engine, folder.path(), 0), 0);
    EXPECT_EQ(FSEngineRegisterHandler(engine, handler, kLeafFound, 0, 0), 0);
    const SharedPtr<IScanValidator> all(DllGetScanValidator());
    const SharedPtr<IWiper> wiper(DllGetWiper());
    sysmaint_wiper* cWiper = nullptr;
    EXPECT_EQ(sysmaint_wiper_create(&cWiper), 0);
    const sysmaint_wipe_options zeros{sizeof zeros, SYSMAINT_WIPE_ZEROS, 1, 0, 0};
    const Connected ends(false);
    const MessageW message(L"topic", 1);
    MemoryOutputByteStream bytes;
    message.dump(0, bytes);
    std::uint32_t kind = 9;
    void* received = nullptr;
    std::uint64_t size = 0;
    AnyMessage any;

    struct Pair
    {
        const char* name;
        std::function<long(void*)> cpp, c;
    };
    const Pair pairs[] = {
        {"scan", [&](void* cancel) { return FSEngineScan(engine, cancel, all, ScanOptions()); },
         [&](void* cancel) { return run(cancel); }},
        {"wipe",
         [&](void* cancel) {
             return wiper->Wipe(nullptr, nullptr, kWipeFile, folder.file(L"victim", 9).c_str(), nullptr,
                                nullptr, kWipeZeros, 1, cancel);
         },
         [&](void* cancel) {
             return sysmaint_wiper_wipe(cWiper, SYSMAINT_WIPE_FILE, folder.file(L"victim", 9).c_str(), &zeros,
                                        nullptr, cancel, nullptr, nullptr);
         }},
        {"send",
         [&](void* cancel) { return ConnectionSendMessage(ends.client.get(), message, 60000, cancel); },
         [&](void* cancel) {
             return sysmaint_connection_send(ends.client.get(), 0, bytes.getData(), bytes.getSize(), 60000,
                                             cancel);
         }},
        {"receive",
         [&](void* cancel) {
             return ConnectionReceiveMessage(ends.accepted.get(), any, nullptr, 60000, cancel);
         },
         [&](void* cancel) {
             const long code =
                 sysmaint_connection_receive(ends.accepted.get(), 60000, cancel, &kind, &received, &size);
             utilsFreeMemory(received);
             return code;
         }},
    };
    KernelCalls calls(sysmaintModule());
    calls.countThisThread();
    const auto costOf = [&](const std::function<long(void*)>& call, void* cancel) {
        calls.reset();
        EXPECT_EQ(call(cancel), 0);
        return calls.total();
    };
    for (const Pair& pair : pairs) {
        SCOPED_TRACE(pair.name);
        const long cpp = costOf(pair.cpp, event.get());
        const long c = costOf(pair.c, event.get());
        EXPECT_LE(c, cpp);
        EXPECT_EQ(c - costOf(pair.c, nullptr), cpp - costOf(pair.cpp, nullptr));
    }
    sysmaint_wiper_close(cWiper);
    CloseFileScanEngine(engine);
}

TEST_F(CCancelEvent, IsSeenToBeNoneAndGivenBack)
{
    const Win32Handle mutex(CreateMutexW(nullptr, FALSE, nullptr));
    const Win32Handle semaphore(CreateSemaphoreW(nullptr, 1, 1, nullptr));
    EXPECT_EQ(run(INVALID_HANDLE_VALUE), ERROR_INVALID_HANDLE);
    EXPECT_EQ(run(mutex.get()), ERROR_INVALID_HANDLE);
    EXPECT_FALSE(ReleaseMutex(mutex.get())); // nobody has it
    EXPECT_EQ(run(semaphore.get()), ERROR_INVALID_HANDLE);
    EXPECT_EQ(WaitForSingleObject(semaphore.get(), 0), WAIT_OBJECT_0);
    EXPECT_EQ(run(semaphore.get()), 0); // not signalled
    // Closed in the middle.
    HANDLE copy = nullptr;
    DuplicateHandle(GetCurrentProcess(), event.get(), GetCurrentProcess(), &copy, SYNCHRONIZE, FALSE, 0);
    folder.file(L"two", 3);
    EXPECT_EQ(run(copy, [](void* closed, const sysmaint_found*) { return CloseHandle(closed) ? 0 : 4711; }),
              ERROR_INVALID_HANDLE);
    // Without the right to wait.
    DuplicateHandle(GetCurrentProcess(), event.get(), GetCurrentProcess(), &copy, EVENT_MODIFY_STATE, FALSE,
                    0);
    EXPECT_EQ(run(copy), ERROR_ACCESS_DENIED);
    CloseHandle(copy);
}
