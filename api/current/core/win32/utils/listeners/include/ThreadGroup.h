#pragma once

#include <windows.h>

#include <atomic>
#include <functional>
#include <list>
#include <memory>

#include "core/win32/utils/objectmanager/include/ReadWriteLock.h"

/// Signals an event that threads wait for. A system that refuses is asked again for 5 seconds. Returns
/// whether it was signalled.
[[nodiscard]] bool signalSurely(HANDLE event) noexcept;

/// Threads that work for one object, which can wait until they are done with it. Each keeps the library
/// loaded while it runs.
class ThreadGroup
{
public:
    ThreadGroup() : m_shared(std::make_shared<Shared>()) {}
    ThreadGroup(const ThreadGroup&) = delete;
    ThreadGroup& operator=(const ThreadGroup&) = delete;

    /// Starts a thread that runs `body` and destroys it, also when code that it calls ends the thread. Raises
    /// the system's code as a bare long, or std::bad_alloc; `body` is destroyed then.
    void start(std::function<void()> body);
    /// Waits until the other threads of the group are done. It does not wait for one that waits for the
    /// calling thread, and in the loader lock for 5 seconds at most.
    void wait() noexcept;

private:
    using Thread = std::shared_ptr<std::atomic<DWORD>>; // its id, 0 until it has begun
    struct Shared
    {
        ReadWriteLock lock;
        std::list<Thread> threads;
        CONDITION_VARIABLE ended = CONDITION_VARIABLE_INIT;
    };
    class Running;
    struct Start;

    static DWORD WINAPI run(void* start) noexcept;

    std::shared_ptr<Shared> m_shared;
};
