#include "core/win32/utils/restoremanager/include/ComLibrary.h"

#include <array>
#include <cwchar>
#include <new>

#include "core/win32/utils/objectmanager/include/Boundary.h"

constexpr char kComLibraryHeader[] = "core\\win32\\utils\\restoremanager\\include\\ComLibrary.h";

namespace {
constexpr DWORD kExecuteLocally = 1 | 2; // COM_RIGHTS_EXECUTE, COM_RIGHTS_EXECUTE_LOCAL

ModuleHandle loadForGood(const wchar_t* name)
{
    ModuleHandle module = loadSystemModule(name);
    HMODULE pinned = nullptr;
    if (!module.isValid() ||
        !GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_PIN | GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS,
                            reinterpret_cast<const wchar_t*>(module.get()), &pinned))
        throw Exception(PLACE(kComLibraryHeader, "ComLibrary::ComLibrary", __LINE__));
    return module;
}

class WellKnownSid
{
public:
    explicit WellKnownSid(WELL_KNOWN_SID_TYPE type)
    {
        DWORD size = sizeof m_bytes;
        if (!CreateWellKnownSid(type, nullptr, m_bytes, &size))
            throw Exception(PLACE(kComLibraryHeader, "allowSystemCallbacks", __LINE__));
    }
    [[nodiscard]] PSID get() noexcept { return m_bytes; }

private:
    alignas(SID) BYTE m_bytes[SECURITY_MAX_SID_SIZE]{};
};

/// The process keeps what it has set already: the system accepts one setting per process.
void requireSecurity(HRESULT result)
{
    if (result != RPC_E_TOO_LATE)
        requireComSuccess(PLACE(kComLibraryHeader, "CoInitializeSecurity", __LINE__), result);
}
} // namespace

ComLibrary::ComLibrary() : m_ole(loadForGood(L"ole32.dll")), m_automation(loadForGood(L"oleaut32.dll"))
{
    const auto find = [](auto& function, const ModuleHandle& module, const char* name) {
        function = requireFunction<std::remove_pointer_t<std::remove_reference_t<decltype(function)>>>(
            PLACE(kComLibraryHeader, "ComLibrary::ComLibrary", __LINE__), module.get(), name);
    };
    find(initialize, m_ole, "CoInitializeEx");
    find(uninitialize, m_ole, "CoUninitialize");
    find(initializeSecurity, m_ole, "CoInitializeSecurity");
    find(createInstance, m_ole, "CoCreateInstance");
    find(setProxyBlanket, m_ole, "CoSetProxyBlanket");
    find(allocString, m_automation, "SysAllocString");
    find(freeString, m_automation, "SysFreeString");
    find(clearVariant, m_automation, "VariantClear");
}

void requireComSuccess(const char* place, HRESULT result)
{
    if (SUCCEEDED(result))
        return;
    const DWORD code = static_cast<DWORD>(result) & 0xFFFFU;
    throw Exception(place, code != 0 ? code : static_cast<DWORD>(boundary::kUnhandledException));
}

ComApartment::ComApartment(const ComLibrary& com, DWORD kind) : m_com(com)
{
    const HRESULT result = com.initialize(nullptr, kind);
    m_isOurs = result != RPC_E_CHANGED_MODE;
    if (m_isOurs)
        requireComSuccess(PLACE(kComLibraryHeader, "ComApartment::ComApartment", __LINE__), result);
}

ComApartment::~ComApartment()
{
    if (!m_isOurs)
        return;
    const DWORD lastError = GetLastError();
    m_com.uninitialize();
    SetLastError(lastError);
}

void allowSystemCallbacks(const ComLibrary& com)
{
    std::array<WellKnownSid, 5> callers{WellKnownSid(WinBuiltinAdministratorsSid),
                                        WellKnownSid(WinLocalServiceSid), WellKnownSid(WinNetworkServiceSid),
                                        WellKnownSid(WinSelfSid), WellKnownSid(WinLocalSystemSid)};
    alignas(ACL) BYTE memory[sizeof(ACL) + 5 * (sizeof(ACCESS_ALLOWED_ACE) + SECURITY_MAX_SID_SIZE)];
    auto* const list = reinterpret_cast<ACL*>(memory);
    bool done = InitializeAcl(list, sizeof memory, ACL_REVISION) != FALSE;
    for (WellKnownSid& caller : callers)
        done = done && AddAccessAllowedAce(list, ACL_REVISION, kExecuteLocally, caller.get());
    SECURITY_DESCRIPTOR security;
    done = done && InitializeSecurityDescriptor(&security, SECURITY_DESCRIPTOR_REVISION) &&
           SetSecurityDescriptorOwner(&security, callers[0].get(), FALSE) &&
           SetSecurityDescriptorGroup(&security, callers[0].get(), FALSE) &&
           SetSecurityDescriptorDacl(&security, TRUE, list, FALSE);
    if (!done)
        throw Exception(PLACE(kComLibraryHeader, "allowSystemCallbacks", __LINE__));
    requireSecurity(com.initializeSecurity(&security, -1, nullptr, nullptr, RPC_C_AUTHN_LEVEL_PKT_PRIVACY,
                                           RPC_C_IMP_LEVEL_IDENTIFY, nullptr, EOAC_NONE, nullptr));
}

void allowImpersonation(const ComLibrary& com)
{
    requireSecurity(com.initializeSecurity(nullptr, -1, nullptr, nullptr, RPC_C_AUTHN_LEVEL_CONNECT,
                                           RPC_C_IMP_LEVEL_IMPERSONATE, nullptr, EOAC_NONE, nullptr));
}

ComText::ComText(const ComLibrary& com, const wchar_t* text) : m_com(com), m_text(com.allocString(text))
{
    if (m_text == nullptr)
        throw std::bad_alloc();
}

unsigned long ComValue::getNumber() const
{
    if (m_value.vt != VT_I4 && m_value.vt != VT_UI4)
        raiseCode(ERROR_INVALID_DATA);
    return static_cast<unsigned long>(m_value.lVal);
}

std::wstring ComValue::getText() const
{
    if (m_value.vt != VT_BSTR || m_value.bstrVal == nullptr)
        raiseCode(ERROR_INVALID_DATA);
    return m_value.bstrVal;
}

bool ComValue::isOtherText(const wchar_t* text) const noexcept
{
    return m_value.vt == VT_BSTR && m_value.bstrVal != nullptr && *m_value.bstrVal != L'\0' &&
           std::wcscmp(m_value.bstrVal, text) != 0;
}
