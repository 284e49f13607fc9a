#include "core/win32/utils/restoremanager/include/RestoreManager.h"

#include <srrestoreptapi.h>

#include <cwchar>
#include <iterator>
#include <limits>

#include "core/win32/utils/restoremanager/include/WindowsVersion.h"
#include "core/win32/utils/restoremanager/include/WmiNamespace.h"

extern "C" NTSYSAPI LONG NTAPI RtlGetVersion(PRTL_OSVERSIONINFOW version);

constexpr char kRestoreManagerHeader[] = "core\\win32\\utils\\restoremanager\\include\\RestoreManager.h";

namespace {
constexpr wchar_t kClient[] = L"srclient.dll";

/// Copies the description into the request, cut to its field but never splitting a surrogate pair.
void copyDescription(const std::wstring& description, RESTOREPOINTINFOW& request)
{
    constexpr std::size_t kMost = std::size(RESTOREPOINTINFOW{}.szDescription) - 1;
    std::size_t length = description.copy(request.szDescription, kMost);
    if (length < description.size() && IS_HIGH_SURROGATE(request.szDescription[length - 1]))
        --length;
    request.szDescription[length] = L'\0';
}

/// The restore client usually stores the reason of a failure in its record, and sometimes only there.
[[noreturn]] void throwClientFailure(const char* place, DWORD otherwise)
{
    const DWORD lastError = GetLastError();
    throw Exception(place, lastError != ERROR_SUCCESS   ? lastError
                           : otherwise != ERROR_SUCCESS ? otherwise
                                                        : DWORD{ERROR_CAN_NOT_COMPLETE});
}

void callClient(decltype(&SRSetRestorePointW) setRestorePoint, RESTOREPOINTINFOW& request,
                STATEMGRSTATUS& status)
{
    status = {};
    SetLastError(ERROR_SUCCESS);
    if (!setRestorePoint(&request, &status))
        throwClientFailure(PLACE(kRestoreManagerHeader, "RestoreManager::createRestorePoint", __LINE__),
                           status.nStatus);
}

/// Whether the system lists the restore point under another description; false when that is unknown.
bool isAnothers(const ComLibrary& com, std::int64_t sequenceNumber, const wchar_t* description)
{
    try {
        wchar_t query[96];
        std::swprintf(query, std::size(query), L"SELECT * FROM SystemRestore WHERE SequenceNumber = %lld",
                      static_cast<long long>(sequenceNumber));
        const WmiNamespace wmi(com);
        const ComPtr<IWbemClassObject> point = wmi.findFirst(query);
        ComValue listed(com);
        return point.get() != nullptr &&
               SUCCEEDED(point->Get(L"Description", 0, listed.receive(), nullptr, nullptr)) &&
               listed.isOtherText(description);
    } catch (...) { // the restore point exists, and its number must not be lost
        return false;
    }
}

bool isEnabledInRegistry()
{
    constexpr wchar_t kKey[] = L"Software\\Microsoft\\Windows NT\\CurrentVersion\\SystemRestore";
    HKEY opened = nullptr;
    LSTATUS code = RegOpenKeyExW(HKEY_LOCAL_MACHINE, kKey, 0, KEY_READ, &opened);
    const RegistryKeyHandle key(opened);
    if (code == ERROR_FILE_NOT_FOUND)
        return true;
    DWORD disabled = 0;
    DWORD size = sizeof disabled;
    if (code == ERROR_SUCCESS)
        code = RegGetValueW(key.get(), nullptr, L"DisableSR", RRF_RT_REG_DWORD, nullptr, &disabled, &size);
    if (code != ERROR_SUCCESS)
        throw Exception(PLACE(kRestoreManagerHeader, "RestoreManager::isSystemRestoreEnabled", __LINE__),
                        static_cast<DWORD>(code));
    return disabled == 0;
}

bool isEnabledInWmi()
{
    const ComLibrary com;
    const ComApartment apartment(com, COINIT_MULTITHREADED);
    allowImpersonation(com);
    const WmiNamespace wmi(com);
    const ComPtr<IWbemClassObject> row = wmi.findFirst(L"SELECT * FROM SystemRestoreConfig");
    if (row.get() == nullptr)
        throw Exception(PLACE(kRestoreManagerHeader, "RestoreManager::isSystemRestoreEnabled", __LINE__),
                        ERROR_NOT_FOUND);
    ComValue interval(com);
    requireComSuccess(PLACE(kRestoreManagerHeader, "RestoreManager::isSystemRestoreEnabled", __LINE__),
                      row->Get(L"RPSessionInterval", 0, interval.receive(), nullptr, nullptr));
    return interval.getNumber() != 0;
}
} // namespace

ObjectTable<SharedPtr<RestoreManager>> restoreManagers(20);

WindowsVersion WindowsVersion::current() noexcept
{
    RTL_OSVERSIONINFOW version{};
    version.dwOSVersionInfoSize = sizeof version;
    RtlGetVersion(&version); // never fails
    return {version.dwMajorVersion, version.dwMinorVersion};
}

RestoreManager::RestoreManager(const wchar_t* name) : m_description(name)
{
    SYSTEMTIME local;
    GetLocalTime(&local);
    wchar_t stamp[64];
    std::swprintf(stamp, std::size(stamp), L"_%02d.%02d.%04d %02d:%02d:%02d", local.wDay, local.wMonth,
                  local.wYear, local.wHour, local.wMinute, local.wSecond);
    m_description += stamp;
}

void RestoreManager::createRestorePoint()
{
    ModuleHandle client; // unloaded after COM is uninitialised on this thread
    const ComLibrary com;
    const ComApartment apartment(com, COINIT_APARTMENTTHREADED);
    allowSystemCallbacks(com);
    RESTOREPOINTINFOW request{};
    request.dwEventType = BEGIN_SYSTEM_CHANGE;
    request.dwRestorePtType = MODIFY_SETTINGS;
    copyDescription(m_description, request);
    client = loadSystemModule(kClient);
    if (!client.isValid())
        throw Exception(PLACE(kRestoreManagerHeader, "RestoreManager::createRestorePoint", __LINE__));
    auto* const setRestorePoint = requireFunction<decltype(SRSetRestorePointW)>(
        PLACE(kRestoreManagerHeader, "RestoreManager::createRestorePoint", __LINE__), client.get(),
        "SRSetRestorePointW");

    STATEMGRSTATUS status;
    callClient(setRestorePoint, request, status);
    const std::int64_t sequenceNumber = status.llSequenceNumber;
    request.llSequenceNumber = sequenceNumber;
    request.dwEventType = END_SYSTEM_CHANGE;
    callClient(setRestorePoint, request, status);

    // Success without a new restore point: the number belongs to an older one, which is not ours to remove.
    const bool isOld = sequenceNumber == 0 || sequenceNumber == m_sequenceNumber ||
                       (WindowsVersion::current().limitsRestorePoints() &&
                        isAnothers(com, sequenceNumber, request.szDescription));
    if (isOld)
        throw Exception(PLACE(kRestoreManagerHeader, "RestoreManager::createRestorePoint", __LINE__),
                        ERROR_ALREADY_EXISTS);
    m_sequenceNumber = sequenceNumber;
}

void RestoreManager::deleteRestorePoint(std::int64_t sequenceNumber)
{
    m_sequenceNumber = 0;
    // The system's numbers have 32 bits. Truncated, this one would name another restore point.
    if (sequenceNumber < 0 || sequenceNumber > std::numeric_limits<std::uint32_t>::max())
        throw Exception(PLACE(kRestoreManagerHeader, "RestoreManager::deleteRestorePoint", __LINE__),
                        ERROR_INVALID_PARAMETER);
    ModuleHandle client;
    const ComLibrary com;
    const ComApartment apartment(com, COINIT_MULTITHREADED);
    allowSystemCallbacks(com);
    client = loadSystemModule(kClient);
    if (!client.isValid())
        throw Exception(PLACE(kRestoreManagerHeader, "RestoreManager::deleteRestorePoint", __LINE__));
    auto* const removeRestorePoint = requireFunction<decltype(SRRemoveRestorePoint)>(
        PLACE(kRestoreManagerHeader, "RestoreManager::deleteRestorePoint", __LINE__), client.get(),
        "SRRemoveRestorePoint");
    SetLastError(ERROR_SUCCESS);
    const DWORD result = removeRestorePoint(static_cast<DWORD>(sequenceNumber));
    if (result != ERROR_SUCCESS)
        throwClientFailure(PLACE(kRestoreManagerHeader, "RestoreManager::deleteRestorePoint", __LINE__),
                           result);
}

void RestoreManager::enableSystemRestore(const wchar_t* drive)
{
    // To the system an empty text means all drives.
    if (drive == nullptr || *drive == L'\0')
        throw Exception(PLACE(kRestoreManagerHeader, "RestoreManager::enableSystemRestore", __LINE__),
                        ERROR_INVALID_PARAMETER);
    const ComLibrary com;
    const ComApartment apartment(com, COINIT_MULTITHREADED);
    allowImpersonation(com);
    const WmiNamespace wmi(com);
    const unsigned long result = wmi.callMethod(L"SystemRestore", L"Enable", L"Drive", drive);
    if (result != ERROR_SUCCESS)
        throw Exception(PLACE(kRestoreManagerHeader, "RestoreManager::enableSystemRestore", __LINE__),
                        result);
}

void RestoreManager::isSystemRestoreEnabled(int* enabled)
{
    if (enabled == nullptr)
        throw Exception(PLACE(kRestoreManagerHeader, "RestoreManager::isSystemRestoreEnabled", __LINE__),
                        ERROR_INVALID_PARAMETER);
    const WindowsVersion version = WindowsVersion::current();
    if (version.isSwitchInRegistry())
        *enabled = isEnabledInRegistry() ? 1 : 0;
    else if (version.isSwitchInWmi())
        *enabled = isEnabledInWmi() ? 1 : 0;
}

void RestoreManager::copyRestorePointName(wchar_t* buffer, std::uint64_t* size) const
{
    if (buffer == nullptr || size == nullptr)
        throw Exception(PLACE(kRestoreManagerHeader, "RestoreManager::getRestorePointName", __LINE__),
                        ERROR_INVALID_PARAMETER);
    const std::uint64_t needed = m_description.size() + 1;
    if (*size < needed) {
        *size = needed;
        throw Exception(PLACE(kRestoreManagerHeader, "RestoreManager::getRestorePointName", __LINE__),
                        ERROR_MORE_DATA);
    }
    std::wmemcpy(buffer, m_description.c_str(), needed);
}
