// What happens to running threads when the library is unloaded and when the process ends. This program does
// not link the library, so it can unload it.

#include "c/sysmaint.h"
#include "support/Process.h"
#include "win32/communication/include/IMessageHandler.h"
#include "win32/threadpool/include/IThreadContext.h"

extern "C" LONG NTAPI LdrLockLoaderLock(ULONG, ULONG*, ULONG_PTR*);
extern "C" LONG NTAPI LdrUnlockLoaderLock(ULONG, ULONG_PTR);

namespace {
constexpr int kGood = 42; // the exit code of a child in which all went well

bool workHeedsCancel = false;
bool workLoads = false;
const TestEvent* handlerIsInside; // its thread has started, which needs the loader lock
const TestEvent* workStarted;
const TestEvent* workMayEnd;

long work(IThreadContext&, void* cancelEvent)
{
    ULONG_PTR cookie = 0;
    if (workLoads && handlerIsInside->wait())
        LdrLockLoaderLock(0, nullptr, &cookie);
    workStarted->set();
    if (workLoads) {
        Sleep(200); // it is suspended now, or as soon as it is out of the loader
        LdrUnlockLoaderLock(0, cookie);
    }
    const HANDLE either[] = {workMayEnd->get(), workHeedsCancel ? cancelEvent : workMayEnd->get()};
    return WaitForMultipleObjects(2, either, FALSE, 60000) != WAIT_TIMEOUT ? ERROR_SUCCESS : ERROR_TIMEOUT;
}

struct StayingHandler : IMessageHandler
{
    using IMessageHandler::onMessage;
    void onMessage(const MessageW&, MessageW&, void*) override
    {
        inside.set();
        static_cast<void>(mayEnd.wait());
    }
    TestEvent inside, mayEnd;
};

template <class Function>
Function functionOf(HMODULE library, const char* name)
{
    return reinterpret_cast<Function>(reinterpret_cast<void*>(GetProcAddress(library, name)));
}

/// The library under test, with its user, loaded for a scope.
struct Library
{
    Library() = default;
    Library(Library&&) = delete;
    ~Library() { FreeLibrary(user); }
    template <class... Arguments>
    long call(const char* name, Arguments... arguments) const
    {
        return functionOf<long (*)(Arguments...)>(user, name)(arguments...);
    }
    const HMODULE user = LoadLibraryW(L"pool_user.dll");
};

const auto isLoaded = []() { return GetModuleHandleW(L"sysmaint.dll") != nullptr; };

/// Work of the C interface closes its pool and unloads the library, and returns to it.
int unloadFromWork()
{
    static HMODULE library = LoadLibraryW(L"sysmaint.dll");
    static sysmaint_pool* pool = nullptr;
    const auto create = functionOf<decltype(&sysmaint_pool_create)>(library, "sysmaint_pool_create");
    const auto queue = functionOf<decltype(&sysmaint_pool_queue)>(library, "sysmaint_pool_queue");
    static const auto close = functionOf<decltype(&sysmaint_pool_close)>(library, "sysmaint_pool_close");
    const sysmaint_work_key key{sizeof key, SYSMAINT_SCOPE_WORK, L"c", L"c", 0, 0, nullptr};
    const auto work = [](void*, const sysmaint_work*) { return close(pool) + FreeLibrary(library); };
    if (create(L"unload", &pool) != 0 || queue(pool, &key, work, nullptr, nullptr, 0, nullptr) != 0)
        return 1;
    return comesTrue([] { return !isLoaded(); }) ? kGood : 2;
}

/// Unloads the library, or ends, while a pool and a topic are both in the middle of their work.
int runChild(const std::string& mode)
{
    const auto is = [&](const char* part) { return mode.find(part) != std::string::npos; };
    if (is("work"))
        return unloadFromWork();
    const TestEvent started, mayEnd;
    StayingHandler handler;
    workStarted = &started;
    workMayEnd = &mayEnd;
    handlerIsInside = &handler.inside;
    workHeedsCancel = is("static");
    workLoads = is("suspended");
    {
        const Library library;
        const auto suspend = functionOf<long (*)()>(library.user, "suspend"); // before the loader is locked
        if (library.call("begin", &work, &handler) != 0 || !started.wait() || !handler.inside.wait())
            return 1;
        if (is("forgotten"))
            library.call("forget");
        if (is("static") || is("idle"))
            handler.mayEnd.set();
        if (is("idle"))
            mayEnd.set();
        if (is("suspended") && suspend() != 0)
            return 5;
        if (is("exit"))
            ExitProcess(kGood);
    }
    if (is("static"))
        return comesTrue([] { return !isLoaded(); }) ? kGood : 2;
    if (!isLoaded())
        return 3;
    mayEnd.set();
    handler.mayEnd.set();
    Sleep(200); // the threads return from the work to code that must still be loaded
    return isLoaded() ? kGood : 4;
}
} // namespace

TEST(Unload, GivesEverythingBackOnceAllPoolsAreClosed)
{
    const TestEvent started, mayEnd;
    workStarted = &started;
    workMayEnd = &mayEnd;
    mayEnd.set();
    ProcessCounts limit;
    for (int round = -1; round < 6; ++round) { // first what the process creates once and keeps
        {
            const Library library;
            EXPECT_TRUE(isLoaded());
            EXPECT_EQ(library.call("runOnce", round % 2 == 0 ? nullptr : &work), ERROR_SUCCESS);
        }
        EXPECT_TRUE(comesTrue([] { return !isLoaded(); }));
        limit = round < 0 ? ProcessCounts::now() : limit;
        limit.handles += round < 0 ? 0 : 4; // the compiler's runtime loses them with each load
        EXPECT_TRUE(limit.isReachedAgain());
    }
}

TEST(Unload, InTheMiddleOfWork)
{
    const wchar_t* modes[] = {
        // The threads of a pool that is still open keep their code loaded.
        L"forgotten-busy", L"forgotten-idle",
        // The process ends in the middle of everything.
        L"exit", L"exit-forgotten", L"exit-suspended",
        // A client library's static objects unsubscribe, wait, and close its pools and topics in the loader
        // lock. Waiting for what needs that lock to begin or end is impossible.
        L"static-idle", L"static-busy",
        // Without a client library, by a callback.
        L"work"};
    for (const wchar_t* mode : modes)
        EXPECT_EQ(exitCodeOf(startSelf({mode})), static_cast<DWORD>(kGood)) << mode;
}

int main(int argc, char** argv)
{
    if (argc > 1 && argv[1][0] != '-')
        return runChild(argv[1]);
    testing::InitGoogleTest(&argc, argv);
    const int result = RUN_ALL_TESTS();
    return testing::UnitTest::GetInstance()->test_to_run_count() == 0 ? 1 : result;
}
