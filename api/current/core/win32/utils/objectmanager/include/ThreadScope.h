#pragma once

#include <windows.h>

#include "core/win32/utils/objectmanager/include/ProcessEnd.h"

/// A scope in which the calling thread runs the caller's code and that other threads know of. If that code
/// ends the thread (ExitThread), no destructor runs; the system's notice of the thread's end calls `abandon`
/// instead, on the same thread and while its stack is still there, for the innermost scope first.
class ThreadScope
{
public:
    ThreadScope(const ThreadScope&) = delete;
    ThreadScope& operator=(const ThreadScope&) = delete;

    /// Whether the calling thread is in any such scope.
    [[nodiscard]] static bool isInOne() noexcept { return s_slot.get() != nullptr; }

protected:
    ThreadScope() noexcept : m_outer(s_slot.get()) { s_slot.set(this); }
    virtual ~ThreadScope() { s_slot.set(m_outer); }

    /// The destructor does not run any more, and neither do those of the scope's members.
    virtual void abandon() noexcept = 0;

private:
    /// Fiber-local, like the stack that the scopes are on.
    class Slot
    {
    public:
        Slot() noexcept : m_index(FlsAlloc(&onThreadEnd)) {}
        Slot(const Slot&) = delete;
        Slot& operator=(const Slot&) = delete;
        ~Slot()
        {
            if (!isProcessEnding())
                FlsFree(m_index);
        }

        void set(ThreadScope* innermost) const noexcept { FlsSetValue(m_index, innermost); }
        [[nodiscard]] ThreadScope* get() const noexcept
        {
            const DWORD lastError = GetLastError();
            auto* innermost = static_cast<ThreadScope*>(FlsGetValue(m_index));
            SetLastError(lastError); // the call clears it
            return innermost;
        }

    private:
        DWORD m_index;
    };

    static void WINAPI onThreadEnd(void* innermost) noexcept
    {
        if (isProcessEnding())
            return;
        s_slot.set(nullptr);
        for (auto* scope = static_cast<ThreadScope*>(innermost); scope != nullptr;) {
            ThreadScope* const outer = scope->m_outer; // the scope may destroy what holds it
            scope->abandon();
            scope = outer;
        }
    }

    static const Slot s_slot;

    ThreadScope* const m_outer;
};
inline const ThreadScope::Slot ThreadScope::s_slot;
