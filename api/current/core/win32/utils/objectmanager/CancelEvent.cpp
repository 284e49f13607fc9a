#include <windows.h>

#include <winternl.h>

#include <string_view>

#include "core/win32/utils/objectmanager/include/Raise.h"

/// As the system tells it. No header of the platform has it.
struct EventState
{
    LONG resetsItself; // when a wait has seen it
    LONG isSignalled;
};
extern "C" NTSTATUS NTAPI NtQueryEvent(HANDLE event, int what, void* state, ULONG size, ULONG* written);

namespace {
bool isEvent(HANDLE handle) noexcept
{
    constexpr auto kTypeQuestion = static_cast<OBJECT_INFORMATION_CLASS>(2);
    struct
    {
        UNICODE_STRING name;
        ULONG reserved[22];
        wchar_t characters[64];
    } type{};
    return NtQueryObject(handle, kTypeQuestion, &type, sizeof type, nullptr) >= 0 &&
           std::wstring_view(type.name.Buffer, type.name.Length / sizeof(wchar_t)) == L"Event";
}
} // namespace

void requireEvent(HANDLE cancelEvent)
{
    if (cancelEvent == nullptr)
        return;
    if (!isEvent(cancelEvent))
        raiseCode(ERROR_INVALID_HANDLE);
    if (isCancelled(cancelEvent))
        raiseCode(codeOfCancelled(cancelEvent));
}

bool isCancelled(HANDLE cancelEvent) noexcept
{
    if (cancelEvent == nullptr)
        return false;
    const DWORD answer = WaitForSingleObject(cancelEvent, 0);
    if (answer == WAIT_OBJECT_0 || answer == WAIT_ABANDONED)
        giveBackTaken(cancelEvent);
    return answer != WAIT_TIMEOUT;
}

void giveBackTaken(HANDLE cancelEvent) noexcept
{
    EventState state{};
    if (!isEvent(cancelEvent)) {
        if (!ReleaseMutex(cancelEvent))
            ReleaseSemaphore(cancelEvent, 1, nullptr);
    } else if (NtQueryEvent(cancelEvent, 0, &state, sizeof state, nullptr) >= 0 && state.resetsItself != 0) {
        SetEvent(cancelEvent);
    }
}

long codeOfCancelled(HANDLE cancelEvent) noexcept
{
    const DWORD answer = WaitForSingleObject(cancelEvent, 0);
    if (answer == WAIT_FAILED)
        return lastError();
    if (answer != WAIT_TIMEOUT)
        giveBackTaken(cancelEvent);
    return isEvent(cancelEvent) ? ERROR_CANCELLED : ERROR_INVALID_HANDLE;
}
