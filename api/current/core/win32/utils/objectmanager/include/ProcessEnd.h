#pragma once

#include <windows.h>

/// Whether the process is ending and its other threads are gone. They may have left any lock behind and will
/// never end what they were doing, so there is nothing to wait for. A handle may still be closed then, by
/// the static object of a module that is unloaded before this one.
inline bool isProcessEnding() noexcept
{
    using Query = BOOLEAN(NTAPI*)();
    const HMODULE system = GetModuleHandleW(L"ntdll.dll");
    const FARPROC query = system != nullptr ? GetProcAddress(system, "RtlDllShutdownInProgress") : nullptr;
    return query != nullptr && reinterpret_cast<Query>(reinterpret_cast<void*>(query))() != 0;
}
