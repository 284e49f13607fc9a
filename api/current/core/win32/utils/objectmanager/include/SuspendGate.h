#pragma once

#include <windows.h>

#include <array>
#include <atomic>
#include <cstddef>
#include <new>
#include <optional>

#include "core/win32/utils/objectmanager/include/ProcessEnd.h"
#include "core/win32/utils/objectmanager/include/Raise.h"

/// Where a suspended thread stands in the system's lowest module, which has the loader and the locks.
namespace systemcode {
/// The range of its code and data, and its entries for waits for locks and for ending such a wait (null on
/// systems that wait otherwise).
struct Range
{
    DWORD64 begin = 0;
    DWORD64 end = 0;
    DWORD64 lockWait = 0;
    DWORD64 lockWake = 0;
};
inline const Range range = [] {
    Range found;
    if (const auto* base = reinterpret_cast<const std::byte*>(GetModuleHandleW(L"ntdll.dll"))) {
        const auto* dos = reinterpret_cast<const IMAGE_DOS_HEADER*>(base);
        const auto* headers = reinterpret_cast<const IMAGE_NT_HEADERS*>(base + dos->e_lfanew);
        found.begin = reinterpret_cast<DWORD64>(base);
        found.end = found.begin + headers->OptionalHeader.SizeOfImage;
        found.lockWait = reinterpret_cast<DWORD64>(
            processend::systemFunction<LONG(NTAPI*)(void*, LARGE_INTEGER*)>("NtWaitForAlertByThreadId"));
        found.lockWake = reinterpret_cast<DWORD64>(
            processend::systemFunction<LONG(NTAPI*)(HANDLE)>("NtAlertThreadByThreadId"));
    }
    return found;
}();

inline bool isInModule(DWORD64 instruction) noexcept
{
    return instruction >= range.begin && instruction < range.end;
}
/// Whether the instruction follows a call of the kernel: the thread is in the kernel, mostly in a wait.
inline bool isKernelCall(DWORD64 instruction) noexcept
{
    constexpr std::array<unsigned char, 2> kSyscall{0x0F, 0x05};
    constexpr std::array<unsigned char, 2> kInterrupt{0xCD, 0x2E}; // where a hypervisor asks for it
    if (!isInModule(instruction))
        return false;
    const auto* code =
        reinterpret_cast<const unsigned char*>(instruction); // NOLINT(performance-no-int-to-ptr)
    const std::array<unsigned char, 2> before{code[-2], code[-1]};
    return before == kSyscall || before == kInterrupt;
}
inline bool isInEntry(DWORD64 instruction, DWORD64 entry) noexcept
{
    constexpr DWORD64 kLength = 32; // of an entry
    return entry != 0 && instruction >= entry && instruction < entry + kLength;
}
/// Whether it is in the call in which locks, and condition variables, are waited for.
inline bool isLockWait(DWORD64 instruction) noexcept
{
    return isInEntry(instruction, range.lockWait);
}
/// Whether it is in the module and not in a call of the kernel. Who wakes the next one that waits for a lock
/// goes on in the module at once: a thread that has released a heap may be on its way back to the loader.
inline bool isInside(DWORD64 instruction) noexcept
{
    return isInModule(instruction) && (!isKernelCall(instruction) || isInEntry(instruction, range.lockWake));
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

    /// Where a thread stood still.
    struct Stand
    {
        DWORD64 instruction;
        DWORD64 stack;
    };

    // The system suspends a thread some time after the call; getting its context waits for that moment.
    static long stop(HANDLE thread, Stand& stand) noexcept
    {
        if (SuspendThread(thread) == static_cast<DWORD>(-1))
            return lastError();
        CONTEXT context{};
        context.ContextFlags = CONTEXT_CONTROL;
        GetThreadContext(thread, &context);
        stand = {context.Rip, context.Rsp};
        return ERROR_SUCCESS;
    }

    enum class Seen
    {
        There,
        Elsewhere,
        Suspended, // and the system has refused to resume it
    };

    // Whether the thread stays in the wait where it stood, while nobody suspends it with heaps locked. Then
    // it waits for something of the caller's, not for a lock that we held.
    static Seen watch(HANDLE thread, const Stand& first) noexcept
    {
        constexpr int kLooks = 3;
        for (int look = 0; look < kLooks; ++look) {
            Sleep(1);
            Stand now{};
            if (stop(thread, now) != ERROR_SUCCESS)
                return Seen::Elsewhere;
            if (ResumeThread(thread) == static_cast<DWORD>(-1))
                return Seen::Suspended;
            if (now.instruction != first.instruction || now.stack != first.stack)
                return Seen::Elsewhere;
        }
        return Seen::There;
    }

    // A thread suspended while holding a heap's lock would stop every other thread, including the one that is
    // to resume it. So it is suspended while we hold these locks. The loader's locks must not be taken, since
    // whoever holds them may wait for us: a thread that may be using one goes on. Not all of them can be
    // looked at. So a thread also goes on that stands in the system's own code, or in a wait for a lock: it
    // may wait for a heap that we hold, and hold a lock of the loader meanwhile.
    static long suspendOutsideLocks(HANDLE thread, DWORD id) noexcept
    {
        std::optional<Stand> lasting;
        for (;;) {
            Stand stand{};
            {
                const HeapLocks locks;
                if (!locks.areHeld())
                    return ERROR_NOT_ENOUGH_MEMORY;
                if (const long code = stop(thread, stand); code != ERROR_SUCCESS)
                    return code;
                const bool awaitsLock = systemcode::isLockWait(stand.instruction);
                const bool isOwnWait =
                    lasting && lasting->instruction == stand.instruction && lasting->stack == stand.stack;
                if (!mayBlockProcessEnd(id) && !systemcode::isInside(stand.instruction) &&
                    (!awaitsLock || isOwnWait))
                    return ERROR_SUCCESS;
                if (ResumeThread(thread) == static_cast<DWORD>(-1))
                    return ERROR_SUCCESS;
                if (!awaitsLock || lasting)
                    return ERROR_BUSY;
            }
            const Seen seen = watch(thread, stand);
            if (seen != Seen::There)
                return seen == Seen::Suspended ? ERROR_SUCCESS : ERROR_BUSY;
            lasting = stand;
        }
    }

    std::atomic<Place> m_place{Place::Inside};
    SRWLOCK m_lock = SRWLOCK_INIT;
    CONDITION_VARIABLE m_resumed = CONDITION_VARIABLE_INIT;
};
