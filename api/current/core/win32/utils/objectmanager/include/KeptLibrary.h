#pragma once

#include <windows.h>

#include "core/win32/utils/objectmanager/include/Raise.h"
#include "core/win32/utils/objectmanager/include/ReadWriteLock.h"

/// Keeps this library loaded while threads run its code.
///
/// One reference to the module stands for all threads. Each thread also holds its own, so that it can end and
/// give that back in one step. While a thread exists, starting another needs no call to the loader, whose
/// lock a suspended thread may hold.
class KeptLibrary
{
public:
    /// Called by the starter of a thread, for that thread. Returns 0 or the system's code.
    static long hold() noexcept
    {
        {
            const WriteLocker locker(s_lock);
            if (s_threads != 0) {
                ++s_threads;
                return ERROR_SUCCESS;
            }
        }
        HMODULE module = reference();
        if (module == nullptr)
            return lastError();
        {
            const WriteLocker locker(s_lock);
            if (s_threads++ == 0)
                s_module = std::exchange(module, nullptr);
        }
        if (module != nullptr)
            FreeLibrary(module); // another thread was first
        return ERROR_SUCCESS;
    }

    /// Undoes hold. The calling thread, or its caller, must have a reference of its own.
    static void release() noexcept
    {
        HMODULE module = nullptr;
        {
            const WriteLocker locker(s_lock);
            if (--s_threads == 0)
                module = std::exchange(s_module, nullptr);
        }
        if (module != nullptr)
            FreeLibrary(module);
    }

    /// A reference for the calling thread; null on failure, with the last error set.
    [[nodiscard]] static HMODULE reference() noexcept
    {
        HMODULE module = nullptr;
        GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS, reinterpret_cast<LPCWSTR>(&s_threads),
                           &module);
        return module;
    }

    /// Ends the calling thread and releases its reference and its hold. Without a reference the hold stays,
    /// and so does the library.
    [[noreturn]] static void exitThread(HMODULE own, DWORD code) noexcept
    {
        if (own == nullptr)
            ExitThread(code);
        release();
        FreeLibraryAndExitThread(own, code);
    }

private:
    static inline ReadWriteLock s_lock;
    static inline unsigned s_threads = 0;
    static inline HMODULE s_module = nullptr;
};
