#include "core/win32/utils/listeners/include/ThreadGroup.h"

#include <algorithm>
#include <vector>

#include "core/win32/utils/objectmanager/include/Boundary.h"
#include "core/win32/utils/objectmanager/include/KeptLibrary.h"
#include "core/win32/utils/objectmanager/include/ThreadScope.h"
#include "core/win32/utils/objectmanager/include/Win32Handle.h"
#include "core/win32/utils/threadpool/include/ThreadPool.h"
#include "core/win32/utils/threadpool/include/WaitingThread.h"

bool signalSurely(HANDLE event) noexcept
{
    const Deadline deadline(ThreadPool::kTelling);
    while (!SetEvent(event)) {
        if (deadline.getLeft() == 0)
            return false;
        Sleep(1);
    }
    return true;
}

/// What a new thread is given.
struct ThreadGroup::Start
{
    std::shared_ptr<Shared> shared;
    std::list<Thread>::iterator entry;
    std::function<void()> body;

    void end() noexcept
    {
        body = nullptr;
        const WriteLocker locker(shared->lock);
        shared->threads.erase(entry);
        WakeAllConditionVariable(&shared->ended);
    }
};

/// The thread at work.
class ThreadGroup::Running final : public ThreadScope
{
public:
    explicit Running(Start* start) noexcept : m_start(start) { **m_start->entry = GetCurrentThreadId(); }
    Running(const Running&) = delete;
    Running& operator=(const Running&) = delete;
    ~Running() override { end(); }

    void call() noexcept
    {
        boundary::statusOf([&]() -> long {
            m_start->body();
            return ERROR_SUCCESS;
        });
    }

private:
    void abandon() noexcept override { end(); }
    void end() noexcept
    {
        const std::unique_ptr<Start> start(m_start);
        start->end();
    }

    Start* m_start;
};

DWORD WINAPI ThreadGroup::run(void* start) noexcept
{
    const HMODULE library = KeptLibrary::reference();
    {
        Running running(static_cast<Start*>(start));
        running.call();
    }
    KeptLibrary::exitThread(library, 0);
}

void ThreadGroup::start(std::function<void()> body)
{
    auto start = std::make_unique<Start>();
    std::list<Thread> added{std::make_shared<std::atomic<DWORD>>(0)};
    start->shared = m_shared;
    start->entry = added.begin();
    start->body = std::move(body);
    {
        const WriteLocker locker(m_shared->lock);
        m_shared->threads.splice(m_shared->threads.end(), added);
    }
    long code = KeptLibrary::hold();
    if (code == ERROR_SUCCESS) {
        const Win32Handle thread(CreateThread(nullptr, 0, &run, start.get(), 0, nullptr));
        if (thread.isValid()) {
            static_cast<void>(start.release()); // the thread's
            return;
        }
        code = lastError();
        KeptLibrary::release();
    }
    start->end();
    raiseCode(code);
}

void ThreadGroup::wait() noexcept
{
    const Deadline deadline(waitLimit(INFINITE));
    const WriteLocker locker(m_shared->lock);
    auto& threads = m_shared->threads;
    // One that has ended is no longer in the list: then the rest is gone through again. The ones that are
    // passed over, because they wait for the calling thread, may have ended as well.
    for (auto at = threads.begin(); at != threads.end() && !isProcessEnding();) {
        const Thread thread = *at;
        const auto find = [&] { return std::find(threads.begin(), threads.end(), thread); };
        m_shared->lock.unlockWrite();
        {
            const WaitingThread waiting(*thread);
            m_shared->lock.lockWrite();
            while (!waiting.closesCircle() && find() != threads.end() && deadline.getLeft() != 0)
                m_shared->lock.waitWrite(m_shared->ended, deadline.getLeft());
        }
        if (deadline.getLeft() == 0)
            return;
        at = find();
        at = at != threads.end() ? std::next(at) : threads.begin();
    }
}
