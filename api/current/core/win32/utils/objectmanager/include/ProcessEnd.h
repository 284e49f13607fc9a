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
} // namespace processend

/// Whether the process is ending and its other threads are gone. They may have left any lock behind and will
/// never finish what they were doing, so waiting is pointless. The static object of a module that is unloaded
/// before this one may still close a handle then.
inline bool isProcessEnding() noexcept
{
    return processend::queryShutdown != nullptr && processend::queryShutdown() != 0;
}

/// Whether the calling thread holds the loader lock: it runs the start or the end of a module, so threads can
/// neither begin nor end, and a thread that loads something waits for this one.
inline bool holdsLoaderLock() noexcept
{
    constexpr std::size_t kLoaderLock = 0x110; // in the process's environment block
    if (processend::processBlock == nullptr)
        return false;
    const auto* lock = *reinterpret_cast<CRITICAL_SECTION* const*>(processend::processBlock() + kLoaderLock);
    return lock != nullptr && reinterpret_cast<std::size_t>(lock->OwningThread) == GetCurrentThreadId();
}

/// How long the calling thread may wait for other threads if it asks for `timeout` milliseconds: at most 5
/// seconds while it holds the loader lock, which those threads may need.
inline DWORD waitLimit(DWORD timeout) noexcept
{
    return holdsLoaderLock() ? std::min(timeout, processend::kLoaderLockWait) : timeout;
}
