// What happens to running threads when the library is unloaded and when the process ends. This program does
// not link the library, so it can let go of it.

#include <gtest/gtest.h>

#include <string>

#include "support/Process.h"
#include "win32/communication/include/IMessageHandler.h"
#include "win32/threadpool/include/IThreadContext.h"

namespace {
bool workHeedsCancel = false;
TestEvent* workStarted;
TestEvent* workMayEnd;

long work(IThreadContext&, void* cancelEvent)
{
    workStarted->set();
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
    TestEvent inside;
    TestEvent mayEnd;
};

/// The library under test, with its user, loaded for the length of a scope.
class Library
{
public:
    Library() : m_user(LoadLibraryW(L"pool_user.dll")) {}
    Library(const Library&) = delete;
    Library& operator=(const Library&) = delete;
    ~Library() { FreeLibrary(m_user); }

    template <class Function>
    auto get(const char* name) const
    {
        return reinterpret_cast<Function>(reinterpret_cast<void*>(GetProcAddress(m_user, name)));
    }
    void* createPool() const { return get<void* (*)()>("createPool")(); }
    long queue(void* pool) const { return get<long (*)(void*, THPWorkFunction)>("queue")(pool, &work); }
    long wait(void* pool) const { return get<long (*)(void*)>("wait")(pool); }
    int closePool(void* pool) const { return get<int (*)(void*)>("closePool")(pool); }
    long openAndPost(IMessageHandler& handler) const
    {
        return get<long (*)(IMessageHandler*)>("openAndPost")(&handler);
    }

private:
    HMODULE m_user;
};

bool isLoaded()
{
    return GetModuleHandleW(L"sysmaint.dll") != nullptr;
}

bool isUnloadedInTime()
{
    for (int attempt = 0; isLoaded() && attempt < 600; ++attempt)
        Sleep(50);
    return !isLoaded();
}

/// The exit code of this program, run to its end with `argument`.
DWORD runSelf(const wchar_t* argument)
{
    wchar_t path[MAX_PATH];
    GetModuleFileNameW(nullptr, path, MAX_PATH);
    std::wstring line = L"\"" + std::wstring(path) + L"\" " + argument;
    STARTUPINFOW startup{};
    startup.cb = sizeof startup;
    PROCESS_INFORMATION process{};
    if (!CreateProcessW(nullptr, line.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup,
                        &process))
        return GetLastError();
    DWORD code = WAIT_TIMEOUT;
    if (WaitForSingleObject(process.hProcess, 120000) == WAIT_OBJECT_0)
        GetExitCodeProcess(process.hProcess, &code);
    else
        TerminateProcess(process.hProcess, WAIT_TIMEOUT);
    CloseHandle(process.hThread);
    CloseHandle(process.hProcess);
    return code;
}

/// Starts a pool and a topic that are both in the middle of their work.
void startEverything(const Library& library, StayingHandler& handler)
{
    static TestEvent started;
    static TestEvent mayEnd;
    workStarted = &started;
    workMayEnd = &mayEnd;
    void* pool = library.createPool();
    if (library.queue(pool) != 0 || library.openAndPost(handler) != 0 || !started.wait() ||
        !handler.inside.wait())
        ExitProcess(1);
    library.get<void (*)(void*)>("keepPool")(pool);
}
} // namespace

TEST(Unload, GivesEverythingBackOnceAllPoolsAreClosed)
{
    const TestEvent started;
    TestEvent mayEnd;
    workStarted = const_cast<TestEvent*>(&started);
    workMayEnd = &mayEnd;
    mayEnd.set();
    {
        const Library library; // what the process makes once and keeps
        EXPECT_TRUE(isLoaded());
    }
    ASSERT_TRUE(isUnloadedInTime());
    const ProcessCounts before = ProcessCounts::now();
    for (int round = 0; round < 5; ++round) {
        {
            const Library library;
            void* pool = library.createPool();
            EXPECT_EQ(library.queue(pool), ERROR_SUCCESS);
            EXPECT_EQ(library.wait(pool), ERROR_SUCCESS);
            EXPECT_NE(library.closePool(pool), 0);
        }
        EXPECT_TRUE(isUnloadedInTime());
    }
    {
        const Library library;
        library.createPool(); // open, but without a thread
    }
    EXPECT_TRUE(isUnloadedInTime());
    ProcessCounts limit = before;
    limit.handles += 4 * 6; // the compiler's runtime loses 4 with each load of a library in which is thrown
    EXPECT_TRUE(limit.isReachedAgain()) << limit.describe() << ", now " << ProcessCounts::now().describe();
}

// The threads of a pool that is still open keep the code that they run.
TEST(Unload, KeepsTheLibraryWhileThreadsLive)
{
    EXPECT_EQ(runSelf(L"--unload-busy"), 42U);
    EXPECT_EQ(runSelf(L"--unload-idle"), 42U);
}

TEST(Unload, EndsTheProcessInTheMiddleOfWork)
{
    EXPECT_EQ(runSelf(L"--exit"), 42U);
    EXPECT_EQ(runSelf(L"--exit-forgotten"), 42U);
}

// A client library's static objects unsubscribe, wait, and close its pools and topics in the loader lock.
// What needs that lock to begin or to end cannot be waited for.
TEST(Unload, ClosesFromStaticDestructors)
{
    EXPECT_EQ(runSelf(L"--static-idle"), 42U);
    EXPECT_EQ(runSelf(L"--static-busy"), 42U);
}

int main(int argc, char** argv)
{
    const std::string mode = argc > 1 ? argv[1] : "";
    StayingHandler handler;
    if (mode == "--static-idle" || mode == "--static-busy") {
        workHeedsCancel = true;
        {
            const Library library;
            startEverything(library, handler);
            handler.mayEnd.set();
            if (mode == "--static-idle")
                workMayEnd->set();
        }
        return isUnloadedInTime() ? 42 : 2;
    }
    if (mode == "--unload-busy" || mode == "--unload-idle") {
        {
            const Library library;
            startEverything(library, handler);
            library.get<void (*)()>("forget")();
            if (mode == "--unload-idle") {
                workMayEnd->set();
                handler.mayEnd.set();
            }
        }
        if (!isLoaded())
            return 2;
        workMayEnd->set();
        handler.mayEnd.set();
        Sleep(200); // the threads come back from the work to code that must still be there
        return isLoaded() ? 42 : 3;
    }
    if (mode == "--exit" || mode == "--exit-forgotten") {
        auto* library = new Library; // never let go of
        startEverything(*library, handler);
        if (mode == "--exit-forgotten")
            library->get<void (*)()>("forget")();
        ExitProcess(42);
    }
    testing::InitGoogleTest(&argc, argv);
    const int result = RUN_ALL_TESTS();
    return testing::UnitTest::GetInstance()->test_to_run_count() == 0 ? 1 : result;
}
