#pragma once

#include <windows.h>

#include "core/win32/utils/objectmanager/include/Raise.h"
#include "core/win32/utils/objectmanager/include/Win32Handle.h"

/// "Somebody has it open, and it disappears when that ends": ERROR_DELETE_PENDING, which not every platform
/// header names.
inline constexpr long kDeletePending = 303;

/// How long to retry when somebody else holds an item briefly. Scanners and indexers open what is new or has
/// changed; until they close it, it can be neither opened nor removed.
class Patience
{
public:
    explicit Patience(HANDLE cancelEvent = nullptr) noexcept : m_cancelEvent(cancelEvent) {}

    /// Whether a call that failed with `code` is worth another try: for 5, 32, 33, 145 and 303, during about
    /// a second in all. Pauses before returning true. Keeps the last error. Raises a bare 1223 when the event
    /// is signalled by then.
    [[nodiscard]] bool isWorthAnotherTry(DWORD code)
    {
        const bool isHeld = code == ERROR_ACCESS_DENIED || code == ERROR_SHARING_VIOLATION ||
                            code == ERROR_LOCK_VIOLATION || code == ERROR_DIR_NOT_EMPTY ||
                            code == DWORD{kDeletePending};
        if (!isHeld || m_waited >= kLongest)
            return false;
        const DWORD lastError = GetLastError();
        Sleep(m_pause);
        m_waited += m_pause;
        m_pause = m_pause < kLongestPause ? m_pause * 2 : m_pause;
        if (isCancelled(m_cancelEvent))
            raiseCode(codeOfCancelled(m_cancelEvent));
        SetLastError(lastError);
        return true;
    }

private:
    static constexpr DWORD kLongest = 1000; // milliseconds, as the next
    static constexpr DWORD kLongestPause = 64;

    HANDLE m_cancelEvent;
    DWORD m_pause = 1;
    DWORD m_waited = 0;
};
