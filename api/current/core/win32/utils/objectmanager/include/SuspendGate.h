#pragma once

#include <windows.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstddef>
#include <iterator>
#include <new>
#include <span>

#include "core/win32/utils/objectmanager/include/ProcessEnd.h"
#include "core/win32/utils/objectmanager/include/Raise.h"

/// Where a suspended thread stands in the system's lowest module, which has the loader and the locks.
namespace systemcode {
/// The functions in which the caller's own work waits, and that hold no lock of the system's meanwhile. What
/// waits for a kernel object calls the kernel directly.
inline constexpr std::array kWaitNames{"RtlEnterCriticalSection",
                                       "RtlAcquireSRWLockExclusive",
                                       "RtlAcquireSRWLockShared",
                                       "RtlSleepConditionVariableCS",
                                       "RtlSleepConditionVariableSRW",
                                       "RtlWaitOnAddress",
                                       "RtlRunOnceBeginInitialize",
                                       "RtlRunOnceExecuteOnce",
                                       "RtlBarrier",
                                       "TpWaitForWork",
                                       "TpWaitForTimer",
                                       "TpWaitForWait",
                                       "TpWaitForIoCompletion"};

/// The range of its code and data, the table of its functions, and the places of those that wait (0 for what
/// a system lacks).
struct Module
{
    DWORD64 begin = 0;
    DWORD64 end = 0;
    std::span<const RUNTIME_FUNCTION> functions;
    std::array<DWORD64, kWaitNames.size()> waits{};
};
inline const Module module = [] {
    Module found;
    if (const auto* base = reinterpret_cast<const std::byte*>(GetModuleHandleW(L"ntdll.dll"))) {
        const auto* dos = reinterpret_cast<const IMAGE_DOS_HEADER*>(base);
        const auto* headers = reinterpret_cast<const IMAGE_NT_HEADERS*>(base + dos->e_lfanew);
        const auto& table = headers->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_EXCEPTION];
        found.begin = reinterpret_cast<DWORD64>(base);
        found.end = found.begin + headers->OptionalHeader.SizeOfImage;
        found.functions = {reinterpret_cast<const RUNTIME_FUNCTION*>(base + table.VirtualAddress),
                           table.Size / sizeof(RUNTIME_FUNCTION)};
        std::transform(kWaitNames.begin(), kWaitNames.end(), found.waits.begin(), [](const char* name) {
            return reinterpret_cast<DWORD64>(processend::systemFunction<void (*)()>(name));
        });
    }
    return found;
}();

inline bool isInModule(DWORD64 instruction) noexcept
{
    return instruction >= module.begin && instruction < module.end;
}
/// Whether the instruction follows a call of the kernel: the thread is in the kernel, mostly in a wait.
inline bool isKernelCall(DWORD64 instruction) noexcept
{
    constexpr std::array<unsigned char, 2> kSyscall{0x0F, 0x05};
    constexpr std::array<unsigned char, 2> kInterrupt{0xCD, 0x2E}; // where a hypervisor asks for it
    const auto* code =
        reinterpret_cast<const unsigned char*>(instruction); // NOLINT(performance-no-int-to-ptr)
    const std::array<unsigned char, 2> before{code[-2], code[-1]};
    return before == kSyscall || before == kInterrupt;
}
/// Null for a function that leaves the stack as it is, such as one that only calls the kernel.
inline const RUNTIME_FUNCTION* functionAt(DWORD64 instruction) noexcept
{
    const auto offset = static_cast<DWORD>(instruction - module.begin);
    const auto next = std::upper_bound(
        module.functions.begin(), module.functions.end(), offset,
        [](DWORD sought, const RUNTIME_FUNCTION& each) { return sought < each.BeginAddress; });
    return next == module.functions.begin() || offset >= std::prev(next)->EndAddress ? nullptr
                                                                                     : &*std::prev(next);
}

/// Whether a thread that stands still there, and has no heap's lock, may hold no other lock of the module: it
/// runs code of others, or waits in the kernel and came there directly or through a function that waits for
/// the caller. Anything else may hold one: the loader waits for a heap with locks of its own, say. Reads the
/// thread's stack, and takes no lock.
inline bool isBesideLocks(CONTEXT context) noexcept
{
    if (!isInModule(context.Rip))
        return true;
    if (!isKernelCall(context.Rip))
        return false;
    constexpr int kMostFrames = 64; // no wait is that deep
    DWORD64 called = 0;             // by the code of others; 0: the kernel
    for (int frame = 0; frame < kMostFrames && isInModule(context.Rip); ++frame) {
        const RUNTIME_FUNCTION* const function = functionAt(context.Rip);
        if (function == nullptr) {
            context.Rip = *reinterpret_cast<const DWORD64*>(context.Rsp); // NOLINT(performance-no-int-to-ptr)
            context.Rsp += sizeof(DWORD64);
            continue;
        }
        called = module.begin + function->BeginAddress;
        RUNTIME_FUNCTION description = *function;
        void* handlerData = nullptr;
        DWORD64 establisher = 0;
        RtlVirtualUnwind(UNW_FLAG_NHANDLER, module.begin, context.Rip, &description, &context, &handlerData,
                         &establisher, nullptr);
    }
    return !isInModule(context.Rip) &&
           (called == 0 || std::find(module.waits.begin(), module.waits.end(), called) != module.waits.end());
}
} // namespace systemcode

/// Decides when a worker thread may be suspended: only while it runs the caller's work, never inside the
/// library, where it may hold a lock that the resuming thread needs. A thread that is to be suspended while
/// inside stops when it goes out to the work.
///
/// The worker calls enter and leave; any thread, one at a time, calls suspend and resume.
class SuspendGate
{
public:
    /// The worker returns from the caller's work. A thread that is just being suspended here stays here until
    /// it is resumed.
    void enter() noexcept
    {
        for (Place place = Place::Outside; !m_place.compare_exchange_strong(place, Place::Inside);
             place = Place::Outside)
            SwitchToThread();
    }

    /// The worker continues with the caller's work; if it is to be suspended, only after it has been resumed.
    void leave() noexcept
    {
        for (Place place = Place::Inside; !m_place.compare_exchange_strong(place, Place::Outside);
             place = Place::Inside)
            waitUntilResumed();
    }

    /// The worker stays inside, and waits here while it is to be suspended.
    void waitUntilResumed() noexcept
    {
        AcquireSRWLockExclusive(&m_lock);
        while (m_place.load() == Place::Stopping)
            SleepConditionVariableSRW(&m_resumed, &m_lock, INFINITE, 0);
        ReleaseSRWLockExclusive(&m_lock);
    }

    /// Suspends a thread that is inside: it stops before it goes out. One that is outside is left alone.
    void stopInside() noexcept
    {
        Place place = Place::Inside;
        m_place.compare_exchange_strong(place, Place::Stopping);
    }

    [[nodiscard]] bool isSuspended() const noexcept
    {
        const Place place = m_place.load();
        return place == Place::Suspended || place == Place::Stopping;
    }

    /// Suspends the thread now or before its next work; a suspended thread stays suspended. Returns 0; 170
    /// while the thread may hold a lock of the system's, such as the loader's; 8, or the system's code.
    long suspend(HANDLE thread, DWORD id) noexcept
    {
        for (;;) {
            Place place = m_place.load();
            if (place == Place::Suspended || place == Place::Stopping)
                return ERROR_SUCCESS;
            if (place == Place::Inside) {
                if (!m_place.compare_exchange_strong(place, Place::Stopping))
                    continue;
                if (!holdsLoaderLock(id)) // a thread that calls from the start of a module does
                    return ERROR_SUCCESS;
                resume(thread);
                return ERROR_BUSY;
            }
            if (m_place.compare_exchange_strong(place, Place::Suspended)) {
                const long code = suspendOutsideLocks(thread, id);
                if (code != ERROR_SUCCESS)
                    m_place = Place::Outside;
                return code;
            }
        }
    }

    /// Resumes the thread; one that is not suspended is left alone. Takes no lock that a suspended thread
    /// could hold. Returns 0 or the system's code.
    long resume(HANDLE thread) noexcept
    {
        if (m_place.load() == Place::Suspended) {
            if (ResumeThread(thread) == static_cast<DWORD>(-1))
                return lastError();
            m_place = Place::Outside;
        } else if (m_place.load() == Place::Stopping) {
            AcquireSRWLockExclusive(&m_lock);
            m_place = Place::Inside;
            ReleaseSRWLockExclusive(&m_lock);
            WakeAllConditionVariable(&m_resumed);
        }
        return ERROR_SUCCESS;
    }

private:
    enum class Place
    {
        Inside,  // in the library
        Outside, // in the caller's work
        Suspended,
        Stopping, // inside, and will stop before it goes outside
    };

    /// Holds the locks of all heaps of the process: the process's own, the language runtime's, and those that
    /// modules have created. One thread at a time, because two would deadlock.
    class HeapLocks
    {
    public:
        HeapLocks() noexcept
        {
            AcquireSRWLockExclusive(&s_one);
            for (DWORD room = 32; !m_complete; room = m_count + 32) {
                delete[] m_heaps;
                m_heaps = new (std::nothrow) HANDLE[room];
                if (m_heaps == nullptr)
                    return;
                // While this lock is held, the system's list of heaps stays unchanged, on systems where this
                // lock guards it.
                HeapLock(GetProcessHeap());
                m_count = GetProcessHeaps(room, m_heaps);
                m_complete = m_count <= room;
                if (!m_complete)
                    HeapUnlock(GetProcessHeap());
            }
            for (DWORD i = 0; i < m_count; ++i) {
                if (m_heaps[i] == GetProcessHeap() || !HeapLock(m_heaps[i]))
                    m_heaps[i] = nullptr; // locked already, or without a lock
            }
        }
        HeapLocks(const HeapLocks&) = delete;
        HeapLocks& operator=(const HeapLocks&) = delete;
        ~HeapLocks()
        {
            if (m_complete) {
                for (DWORD i = m_count; i-- > 0;) {
                    if (m_heaps[i] != nullptr)
                        HeapUnlock(m_heaps[i]);
                }
                HeapUnlock(GetProcessHeap());
            }
            delete[] m_heaps;
            ReleaseSRWLockExclusive(&s_one);
        }

        [[nodiscard]] bool areHeld() const noexcept { return m_complete; }

    private:
        static inline SRWLOCK s_one = SRWLOCK_INIT;
        HANDLE* m_heaps = nullptr;
        DWORD m_count = 0;
        bool m_complete = false;
    };

    // A thread suspended while holding a heap's lock would stop every other thread, including the one that is
    // to resume it. So it is suspended while we hold these locks. The loader's locks must not be taken, since
    // whoever holds them may wait for us: a thread that may be using one goes on. Not all of them can be
    // looked at. So a thread also goes on that stands in the system's own code: it may wait for a heap that
    // we hold, or be on its way back from one, and hold a lock of the loader meanwhile.
    static long suspendOutsideLocks(HANDLE thread, DWORD id) noexcept
    {
        const HeapLocks locks;
        if (!locks.areHeld())
            return ERROR_NOT_ENOUGH_MEMORY;
        if (SuspendThread(thread) == static_cast<DWORD>(-1))
            return lastError();
        // The system suspends a thread some time after the call; getting its context waits for that moment.
        CONTEXT context{};
        context.ContextFlags = CONTEXT_FULL;
        if (GetThreadContext(thread, &context) && !mayBlockProcessEnd(id) &&
            systemcode::isBesideLocks(context))
            return ERROR_SUCCESS;
        // One that the system refuses to resume is suspended.
        return ResumeThread(thread) == static_cast<DWORD>(-1) ? ERROR_SUCCESS : ERROR_BUSY;
    }

    std::atomic<Place> m_place{Place::Inside};
    SRWLOCK m_lock = SRWLOCK_INIT;
    CONDITION_VARIABLE m_resumed = CONDITION_VARIABLE_INIT;
};
