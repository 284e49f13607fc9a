#include "core/win32/utils/listeners/include/ThreadGroup.h"

#include <algorithm>
#include <vector>

#include "core/win32/utils/objectmanager/include/Boundary.h"
#include "core/win32/utils/objectmanager/include/KeptLibrary.h"
#include "core/win32/utils/objectmanager/include/ThreadScope.h"
#include "core/win32/utils/objectmanager/include/Win32Handle.h"
#include "core/win32/utils/threadpool/include/WaitingThread.h"

bool tellToStop(HANDLE event) noexcept
{
    constexpr DWORD kTelling = 5000; // milliseconds
    const Deadline deadline(kTelling);
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
    // New ones come at the end, and the position survives, since what it stands at is waited for.
    for (auto at = threads.begin(); at != threads.end() && !isProcessEnding();) {
        const Thread thread = *at;
        const auto isThere = [&] {
            return std::find(threads.begin(), threads.end(), thread) != threads.end();
        };
        m_shared->lock.unlockWrite();
        {
            const WaitingThread waiting(*thread);
            const bool isAwaited = *thread != GetCurrentThreadId() && !waiting.closesCircle();
            m_shared->lock.lockWrite();
            while (isAwaited && isThere() && deadline.getLeft() != 0)
                m_shared->lock.waitWrite(m_shared->ended, deadline.getLeft());
        }
        if (deadline.getLeft() == 0)
            return;
        at = isThere() ? std::next(std::find(threads.begin(), threads.end(), thread)) : threads.begin();
    }
}
