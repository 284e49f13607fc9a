#include "core/win32/utils/wiper/include/BootExecute.h"

#include <windows.h>

#include <sddl.h>

#include <cwchar>
#include <string>

#include "core/win32/registry/include/ValueData.h"
#include "core/win32/utils/objectmanager/include/Exception.h"
#include "core/win32/utils/objectmanager/include/Win32Handle.h"

constexpr char kBootExecuteHeader[] = "core\\win32\\utils\\wiper\\include\\BootExecute.h";

namespace {
constexpr wchar_t kValue[] = L"BootExecute";
constexpr wchar_t kMutex[] = L"Global\\sysmaint.BootExecute";
// Full access for the system and for administrators, whichever of them created it; nobody else may edit the
// value.
constexpr wchar_t kMutexSecurity[] = L"D:(A;;0x1F0001;;;SY)(A;;0x1F0001;;;BA)";
constexpr DWORD kLongestWait = 10000; // milliseconds

/// Keeps all others on this machine from editing the value while it lives.
class EditLock
{
public:
    EditLock()
    {
        PSECURITY_DESCRIPTOR descriptor = nullptr;
        if (!ConvertStringSecurityDescriptorToSecurityDescriptorW(kMutexSecurity, SDDL_REVISION_1,
                                                                  &descriptor, nullptr))
            requireSuccess(PLACE(kBootExecuteHeader, "EditLock::EditLock", __LINE__), lastError());
        SECURITY_ATTRIBUTES security{sizeof security, descriptor, FALSE};
        // Not full access: a mutex that somebody else created may allow no more than this.
        m_mutex.reset(CreateMutexExW(&security, kMutex, 0, SYNCHRONIZE | MUTEX_MODIFY_STATE));
        const long code = m_mutex.isValid() ? ERROR_SUCCESS : lastError();
        LocalFree(descriptor);
        requireSuccess(PLACE(kBootExecuteHeader, "EditLock::EditLock", __LINE__), code);
        // An owner that died has written the whole value or nothing.
        const DWORD wait = WaitForSingleObject(m_mutex.get(), kLongestWait);
        if (wait != WAIT_OBJECT_0 && wait != WAIT_ABANDONED)
            requireSuccess(PLACE(kBootExecuteHeader, "EditLock::EditLock", __LINE__),
                           wait == WAIT_TIMEOUT ? ERROR_TIMEOUT : lastError());
    }
    EditLock(const EditLock&) = delete;
    EditLock& operator=(const EditLock&) = delete;
    ~EditLock() { ReleaseMutex(m_mutex.get()); }

private:
    Win32Handle m_mutex;
};

RegistryKeyHandle openKey(REGSAM access)
{
    HKEY key = nullptr;
    requireSuccess(PLACE(kBootExecuteHeader, "openKey", __LINE__),
                   RegOpenKeyExW(HKEY_LOCAL_MACHINE, L"System\\CurrentControlSet\\Control\\Session Manager",
                                 0, access, &key));
    return RegistryKeyHandle(key);
}

/// The position of the closing empty string, or npos when the text is not a list: every entry ends with a
/// zero, and only zeros follow the closing empty string. An empty text is a list without entries.
std::size_t closingPosition(std::wstring_view list)
{
    std::size_t at = 0;
    if (list.empty())
        return at;
    while (at < list.size() && list[at] != L'\0') {
        at = list.find(L'\0', at);
        if (at == std::wstring_view::npos)
            return at;
        ++at;
    }
    if (at >= list.size() || list.find_first_not_of(L'\0', at) != std::wstring_view::npos)
        return std::wstring_view::npos;
    return at;
}

/// Reads and checks the value. A malformed one is never touched, because it can stop a machine from starting.
std::wstring readList(HKEY key)
{
    DWORD type = REG_NONE;
    DWORD size = 0;
    std::wstring list;
    requireSuccess(PLACE(kBootExecuteHeader, "readList", __LINE__),
                   valuedata::query(key, kValue, type, size, [&](std::size_t capacity) -> void* {
                       list.resize(capacity / sizeof(wchar_t) + 1);
                       return list.data();
                   }));
    list.resize(size / sizeof(wchar_t));
    if (type != REG_MULTI_SZ || size % sizeof(wchar_t) != 0 || closingPosition(list) == std::wstring::npos)
        throw Exception(PLACE(kBootExecuteHeader, "readList", __LINE__), ERROR_INVALID_DATA);
    return list;
}

void writeList(HKEY key, const std::wstring& list)
{
    requireSuccess(PLACE(kBootExecuteHeader, "writeList", __LINE__),
                   RegSetValueExW(key, kValue, 0, REG_MULTI_SZ, reinterpret_cast<const BYTE*>(list.data()),
                                  static_cast<DWORD>(list.size() * sizeof(wchar_t))));
}

/// The position of the first entry from `at` on that equals `entry`, or npos.
std::size_t findEntry(const std::wstring& list, const wchar_t* entry, std::size_t at = 0)
{
    for (; list[at] != L'\0'; at += std::wcslen(&list[at]) + 1)
        if (_wcsicmp(&list[at], entry) == 0)
            return at;
    return std::wstring::npos;
}

void requireEntry(const wchar_t* entry, const char* place)
{
    // An empty entry would end the list early.
    if (entry == nullptr || *entry == L'\0')
        throw Exception(place, ERROR_INVALID_PARAMETER);
}
} // namespace

long bootexecute::add(const wchar_t* entry)
{
    requireEntry(entry, PLACE(kBootExecuteHeader, "bootexecute::add", __LINE__));
    const EditLock lock;
    const RegistryKeyHandle key = openKey(KEY_QUERY_VALUE | KEY_SET_VALUE);
    std::wstring list = readList(key.get());
    if (findEntry(list, entry) != std::wstring::npos)
        throw Exception(PLACE(kBootExecuteHeader, "bootexecute::add", __LINE__), ERROR_ALREADY_EXISTS);
    list.resize(closingPosition(list));
    list += entry;
    list.append(2, L'\0');
    writeList(key.get(), list);
    return ERROR_SUCCESS;
}

long bootexecute::remove(const wchar_t* entry)
{
    requireEntry(entry, PLACE(kBootExecuteHeader, "bootexecute::remove", __LINE__));
    const EditLock lock;
    const RegistryKeyHandle key = openKey(KEY_QUERY_VALUE | KEY_SET_VALUE);
    std::wstring list = readList(key.get());
    for (std::size_t at = findEntry(list, entry); at != std::wstring::npos; at = findEntry(list, entry, at))
        list.erase(at, std::wcslen(entry) + 1);
    writeList(key.get(), list);
    return ERROR_SUCCESS;
}

bool bootexecute::isScheduled(const wchar_t* entry)
{
    requireEntry(entry, PLACE(kBootExecuteHeader, "bootexecute::isScheduled", __LINE__));
    const RegistryKeyHandle key = openKey(KEY_QUERY_VALUE);
    return findEntry(readList(key.get()), entry) != std::wstring::npos;
}
