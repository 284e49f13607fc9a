#pragma once

// Processes, threads, modules and sessions: plain.h has what C takes as well, and describes all of it. Here
// are the functions that create and open the objects.
//
// The handles of objects can be owned by a SmartHandle, as in SmartHandle<CloseProcess>.

#include <windows.h>

#include "core/win32/utils/objectmanager/include/Api.h"
#include "core/win32/utils/objectmanager/include/SmartHandle.h"
#include "core/win32/utils/processmanager/plain.h"
#include "core/win32/utils/security/api.h"

SYSMAINT_API void* CreateProcessW(const ProcessEntry& entry);
SYSMAINT_API void* CreateProcessW(const ProcessEntry& entry, const wchar_t* name);
SYSMAINT_API void* OpenProcess(const wchar_t* name);

SYSMAINT_API void* CreateThread(const ThreadEntry& entry);
SYSMAINT_API void* OpenThread(const wchar_t* name);

SYSMAINT_API void* CreateModule(const ModuleEntry& entry);

/// Lets the calling thread impersonate a session's user while it lives, and restores the thread however the
/// scope is left. Create and destroy it on the same thread.
class SessionImpersonation
{
public:
    /// See SessionImpersonate; `getCode` tells whether it worked.
    explicit SessionImpersonation(unsigned long session) : m_code(SessionImpersonate(session, &m_undo)) {}
    SessionImpersonation(const SessionImpersonation&) = delete;
    SessionImpersonation& operator=(const SessionImpersonation&) = delete;
    ~SessionImpersonation()
    {
        // If that fails, the process's own identity is safer than the user's.
        if (m_code == ERROR_SUCCESS && SessionRevert(m_undo) != ERROR_SUCCESS)
            RevertToSelf();
    }

    /// 0, or why the thread does not impersonate.
    [[nodiscard]] long getCode() const noexcept { return m_code; }

private:
    void* m_undo = nullptr;
    long m_code;
};
