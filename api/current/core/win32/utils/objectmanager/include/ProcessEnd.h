#pragma once

#include <windows.h>

#include <algorithm>
#include <cstddef>

/// The obstacles to waiting for a thread: the end of the process and the loader lock.
namespace processend {
/// Looked up when the module is loaded: a later lookup might wait for the loader lock.
template <class Function>
Function systemFunction(const char* name) noexcept
{
    const HMODULE system = GetModuleHandleW(L"ntdll.dll");
    const FARPROC found = system != nullptr ? GetProcAddress(system, name) : nullptr;
    return reinterpret_cast<Function>(reinterpret_cast<void*>(found));
}
inline const auto queryShutdown = systemFunction<BOOLEAN(NTAPI*)()>("RtlDllShutdownInProgress");
inline const auto processBlock = systemFunction<const std::byte*(NTAPI*)()>("RtlGetCurrentPeb");

/// The longest wait, in milliseconds, of a thread that holds the loader lock.
inline constexpr DWORD kLoaderLockWait = 5000;

/// Where the process's environment block has its two locks. The system takes both to end the process.
inline constexpr std::size_t kProcessLock = 0x38;
inline constexpr std::size_t kLoaderLock = 0x110;

inline const volatile CRITICAL_SECTION* lockAt(std::size_t offset) noexcept
{
    if (processBlock == nullptr)
        return nullptr;
    return *reinterpret_cast<const volatile CRITICAL_SECTION* const*>(processBlock() + offset);
}

inline DWORD ownerOf(const volatile CRITICAL_SECTION& lock) noexcept
{
    return static_cast<DWORD>(reinterpret_cast<std::size_t>(lock.OwningThread));
}

/// Whether `thread`, which is not running, may hold the lock or wait for it. Some systems give a lock that is
/// released to a thread that waits, even if that is suspended.
inline bool mayUse(const volatile CRITICAL_SECTION* lock, DWORD thread) noexcept
{
    constexpr LONG kFree = -1;
    constexpr LONG kHeld = -2; // and nobody waits; older systems count how often it is held
    if (lock == nullptr)
        return false;
    const LONG count = lock->LockCount;
    if (count == kFree)
        return false;
    const DWORD owner = ownerOf(*lock);
    const bool hasWaiters = count != kHeld && count != lock->RecursionCount - 1;
    return owner == 0 || owner == thread || hasWaiters || count != lock->LockCount;
}
} // namespace processend

/// Whether the process is ending and its other threads are gone. They may have left any lock behind and will
/// never finish what they were doing, so waiting is pointless. The static object of a module that is unloaded
/// before this one may still close a handle then.
inline bool isProcessEnding() noexcept
{
    return processend::queryShutdown != nullptr && processend::queryShutdown() != 0;
}

/// Whether a thread, the calling one by default, holds the loader lock: it runs the start or the end of a
/// module, so threads can neither begin nor end, and a thread that loads something waits for this one.
inline bool holdsLoaderLock(DWORD thread = GetCurrentThreadId()) noexcept
{
    const auto* lock = processend::lockAt(processend::kLoaderLock);
    return lock != nullptr && thread != 0 && processend::ownerOf(*lock) == thread;
}

/// Whether a thread that has been suspended may keep the process from ending: it may hold the loader's lock
/// or the process's, or wait for one of them.
inline bool mayBlockProcessEnd(DWORD thread) noexcept
{
    return processend::mayUse(processend::lockAt(processend::kLoaderLock), thread) ||
           processend::mayUse(processend::lockAt(processend::kProcessLock), thread);
}

/// How long the calling thread may wait for other threads if it asks for `timeout` milliseconds: at most 5
/// seconds while it holds the loader lock, which those threads may need.
inline DWORD waitLimit(DWORD timeout) noexcept
{
    return holdsLoaderLock() ? std::min(timeout, processend::kLoaderLockWait) : timeout;
}
