#pragma once

#include <windows.h>

#include <memory>

#include "core/win32/utils/objectmanager/include/KeptLibrary.h"
#include "core/win32/utils/objectmanager/include/Raise.h"
#include "core/win32/utils/objectmanager/include/SharedPtr.h"
#include "core/win32/utils/objectmanager/include/Win32Handle.h"

/// Runs a member function of a shared object on a new thread. The thread holds the object and keeps the
/// library loaded, so it can be left behind when it is blocked in a system call. Raises the system's bare
/// code.
template <class Object, void (Object::*Work)() noexcept>
void startHeldThread(const SharedPtr<Object>& object)
{
    constexpr auto threadMain = [](void* held) noexcept -> DWORD {
        const HMODULE library = KeptLibrary::reference();
        {
            const std::unique_ptr<SharedPtr<Object>> own(static_cast<SharedPtr<Object>*>(held));
            ((*own).get()->*Work)();
        }
        KeptLibrary::exitThread(library, 0);
    };
    requireSuccess(KeptLibrary::hold());
    auto own = std::make_unique<SharedPtr<Object>>(object);
    const Win32Handle thread(::CreateThread(nullptr, 0, threadMain, own.get(), 0, nullptr));
    if (!thread.isValid()) {
        const long code = lastError();
        KeptLibrary::release();
        raiseCode(code);
    }
    static_cast<void>(own.release()); // owned by the thread now
}
