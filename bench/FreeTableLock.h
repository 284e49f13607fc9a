#pragma once

#include <windows.h>

#include "support/ImportReplacement.h"

/// While it lives the two kernel calls of a table's lock do nothing: they cost more here than all the rest,
/// and a hundredth of that on Windows. Waits with a time-out, like the writer's, are not affected. The table
/// must not change meanwhile.
class FreeTableLock
{
public:
    FreeTableLock()
        : m_wait(GetModuleHandleW(nullptr), "WaitForSingleObject", reinterpret_cast<void*>(&wait)),
          m_release(GetModuleHandleW(nullptr), "ReleaseMutex", reinterpret_cast<void*>(&release))
    {
    }

private:
    static DWORD WINAPI wait(HANDLE handle, DWORD timeout)
    {
        return timeout == INFINITE ? WAIT_OBJECT_0 : WaitForSingleObjectEx(handle, timeout, FALSE);
    }
    static BOOL WINAPI release(HANDLE) { return TRUE; }

    ImportReplacement m_wait;
    ImportReplacement m_release;
};
