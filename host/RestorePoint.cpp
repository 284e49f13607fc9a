#include "RestorePoint.h"

#include <vector>

#include "Console.h"

#include "core/win32/utils/restoremanager/api.h"

RestoreManagerHandle::RestoreManagerHandle(const std::wstring& name)
    : m_handle(CreateRestoreManager(name.c_str()))
{
    if (m_handle == INVALID_HANDLE_VALUE)
        throw static_cast<long>(GetLastError());
}

RestoreManagerHandle::~RestoreManagerHandle()
{
    CloseRestoreManager(m_handle);
}

long makeRestorePoint(const std::wstring& name, RestorePoint& point)
{
    cancelEvent(); // from now on Ctrl+C does not end the program between the restore point's beginning and
                   // end
    const RestoreManagerHandle manager(name);
    long code = CreateRestorePoint(manager.get());
    if (code == ERROR_SUCCESS)
        code = GetRestorePointID(manager.get(), point.number);
    std::uint64_t size = 1;
    wchar_t none = L'\0';
    if (code == ERROR_SUCCESS)
        GetRestorePointName(manager.get(), &none, &size); // tells the size
    std::vector<wchar_t> text(size);
    if (code == ERROR_SUCCESS)
        code = GetRestorePointName(manager.get(), text.data(), &size);
    point.name = text.data();
    return code;
}

std::wstring formatRestoreCode(long code)
{
    if (code == ERROR_ALREADY_EXISTS)
        return L"the system made none, because it has one of the last 24 hours (183)";
    return formatCode(code);
}

bool makeRestorePointFirst(const std::wstring& command)
{
    messages().writeLine(L"making a restore point");
    messages().flush();
    RestorePoint point;
    const long code = makeRestorePoint(L"sysmaint " + command, point);
    if (code == ERROR_SUCCESS)
        messages().writeLine(L"restore point " + std::to_wstring(point.number) + L": " +
                             printable(point.name));
    else
        messages().writeLine(command + L": no restore point, so nothing is done: " + formatRestoreCode(code));
    return code == ERROR_SUCCESS;
}
