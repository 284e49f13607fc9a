#include <windows.h>

#include <winternl.h>

#include <string>

#include "core/win32/utils/objectmanager/include/Raise.h"

namespace {
/// The name of an object's type, as far as it is short; empty when the handle is none.
class TypeName
{
public:
    explicit TypeName(HANDLE object) noexcept
    {
        constexpr auto kTypeQuestion = static_cast<OBJECT_INFORMATION_CLASS>(2);
        if (NtQueryObject(object, kTypeQuestion, &m_type, sizeof m_type, nullptr) < 0)
            m_type.name = {};
    }
    [[nodiscard]] bool operator==(std::wstring_view name) const noexcept
    {
        return std::wstring_view(m_type.name.Buffer, m_type.name.Length / sizeof(wchar_t)) == name;
    }

private:
    struct
    {
        UNICODE_STRING name;
        ULONG reserved[22];
        wchar_t characters[64];
    } m_type{};
};
} // namespace

void requireEvent(HANDLE cancelEvent)
{
    if (cancelEvent == nullptr)
        return;
    if (!(TypeName(cancelEvent) == L"Event"))
        raiseCode(ERROR_INVALID_HANDLE);
    const DWORD answer = WaitForSingleObject(cancelEvent, 0);
    if (answer != WAIT_TIMEOUT)
        raiseCode(cancelCodeOf(cancelEvent, answer));
}

long cancelCodeOf(HANDLE cancelEvent, DWORD answer) noexcept
{
    if (answer == WAIT_FAILED)
        return lastError();
    const TypeName type(cancelEvent);
    if (type == L"Event")
        return ERROR_CANCELLED;
    if (type == L"Mutant")
        ReleaseMutex(cancelEvent);
    else if (type == L"Semaphore")
        ReleaseSemaphore(cancelEvent, 1, nullptr);
    return ERROR_INVALID_HANDLE;
}
