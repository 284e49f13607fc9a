#include <windows.h>

#include <winternl.h>

#include <string_view>

#include "core/win32/utils/objectmanager/include/Raise.h"

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
    const DWORD answer = WaitForSingleObject(cancelEvent, 0);
    if (answer == WAIT_FAILED)
        raiseLastError();
    if (answer == WAIT_OBJECT_0)
        raiseCode(ERROR_CANCELLED);
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
    if (!isEvent(cancelEvent) && !ReleaseMutex(cancelEvent))
        ReleaseSemaphore(cancelEvent, 1, nullptr);
}

long codeOfCancelled(HANDLE cancelEvent) noexcept
{
    if (!isEvent(cancelEvent))
        return ERROR_INVALID_HANDLE;
    return WaitForSingleObject(cancelEvent, 0) == WAIT_FAILED ? lastError() : ERROR_CANCELLED;
}
