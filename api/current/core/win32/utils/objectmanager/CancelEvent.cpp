#include <windows.h>

#include <winternl.h>

#include <string_view>

#include "core/win32/utils/objectmanager/include/Raise.h"

void requireEvent(HANDLE cancelEvent)
{
    if (cancelEvent == nullptr)
        return;
    constexpr auto kTypeQuestion = static_cast<OBJECT_INFORMATION_CLASS>(2);
    struct
    {
        UNICODE_STRING name;
        ULONG reserved[22];
        wchar_t characters[64];
    } type{};
    if (NtQueryObject(cancelEvent, kTypeQuestion, &type, sizeof type, nullptr) < 0 ||
        std::wstring_view(type.name.Buffer, type.name.Length / sizeof(wchar_t)) != L"Event")
        raiseCode(ERROR_INVALID_HANDLE);
    const DWORD answer = WaitForSingleObject(cancelEvent, 0);
    if (answer == WAIT_FAILED)
        raiseLastError();
    if (answer == WAIT_OBJECT_0)
        raiseCode(ERROR_CANCELLED);
}
