#pragma once

#include "core/win32/utils/objectmanager/include/Raise.h"
#include "core/win32/utils/objectmanager/include/Win32Handle.h"

/// A system library that is loaded on demand: most programs that load ours never need it. Raises the bare
/// code when the library or the function is missing.
class SystemLibrary
{
public:
    explicit SystemLibrary(const wchar_t* name) : m_module(loadSystemModule(name))
    {
        if (!m_module.isValid())
            raiseLastError();
    }

    /// `lib.function<decltype(&VerQueryValueW)>("VerQueryValueW")(...)`; valid as long as this object exists.
    template <class Function>
    [[nodiscard]] Function function(const char* name) const
    {
        const FARPROC found = GetProcAddress(m_module.get(), name);
        if (found == nullptr)
            raiseLastError();
        return reinterpret_cast<Function>(reinterpret_cast<void*>(found));
    }
    /// Keeps the library loaded for good, if it leaves something behind in the thread or the process.
    void keep() noexcept { static_cast<void>(m_module.release()); }

private:
    ModuleHandle m_module;
};
