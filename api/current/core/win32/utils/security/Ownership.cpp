// SIDs, owners and access lists.

#include <windows.h>

#include <aclapi.h>
#include <sddl.h>

#include <memory>
#include <vector>

#include "core/win32/utils/objectmanager/include/Raise.h"
#include "core/win32/utils/paths/include/Win32Path.h"
#include "core/win32/utils/registry/include/Registry.h"
#include "core/win32/utils/security/include/Security.h"
#include "core/win32/utils/services/include/Services.h"

namespace {
struct LocalMemory
{
    void operator()(void* memory) const noexcept { LocalFree(memory); }
};
using LocalOwner = std::unique_ptr<void, LocalMemory>;

LocalOwner parsed(const wchar_t* sid)
{
    PSID result = nullptr;
    if (!ConvertStringSidToSidW(sid, &result))
        raiseLastError();
    return LocalOwner(result);
}

/// An object of one of the kinds, opened without following links.
class OpenedObject
{
public:
    OpenedObject(const wchar_t* path, unsigned long kind, DWORD access)
    {
        switch (kind) {
        case 0:
            m_file.reset(CreateFileW(
                Win32Path(path), access, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS | FILE_FLAG_OPEN_REPARSE_POINT, nullptr));
            if (!m_file.isValid())
                raiseLastError();
            handle = m_file.get();
            type = SE_FILE_OBJECT;
            break;
        case 1: {
            const auto [root, key] = registry::parsePath(path);
            m_key = registry::openItself(root, key.c_str(), 0, access);
            handle = m_key.get();
            type = SE_REGISTRY_KEY;
            break;
        }
        case 2: {
            const Win32Owner<ServiceHandleTraits> manager(
                OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT));
            if (manager.isValid())
                m_service.reset(OpenServiceW(manager.get(), path, access));
            if (!m_service.isValid())
                raiseLastError();
            handle = m_service.get();
            type = SE_SERVICE;
            break;
        }
        default:
            raiseCode(ERROR_INVALID_PARAMETER);
        }
    }

    HANDLE handle = nullptr;
    SE_OBJECT_TYPE type = SE_UNKNOWN_OBJECT_TYPE;

private:
    Win32Handle m_file;
    RegistryKeyHandle m_key;
    Win32Owner<ServiceHandleTraits> m_service;
};

/// Enables a privilege while it lives, if the token has it.
class PrivilegeScope
{
public:
    explicit PrivilegeScope(const wchar_t* name) : m_name(name)
    {
        try {
            m_isOurs = !privileges::adjust(name, true);
        } catch (long) {
            m_isOurs = false; // it may not be needed; otherwise the operation itself fails
        }
    }
    PrivilegeScope(const PrivilegeScope&) = delete;
    PrivilegeScope& operator=(const PrivilegeScope&) = delete;
    ~PrivilegeScope()
    {
        try {
            if (m_isOurs)
                privileges::adjust(m_name, false);
        } catch (...) { // NOLINT: there is nobody to tell
        }
    }

private:
    const wchar_t* m_name;
    bool m_isOurs = false;
};
} // namespace

namespace sids {
std::wstring text(PSID sid)
{
    wchar_t* result = nullptr;
    if (!ConvertSidToStringSidW(sid, &result))
        raiseLastError();
    const LocalOwner owner(result);
    return result;
}

std::wstring fromAccount(const wchar_t* account)
{
    if (*account == L'\0') // the system would take it for the machine's domain
        raiseCode(ERROR_INVALID_PARAMETER);
    std::vector<unsigned char> sid(SECURITY_MAX_SID_SIZE);
    std::wstring domain(256, L'\0');
    for (;;) {
        auto size = static_cast<DWORD>(sid.size());
        auto length = static_cast<DWORD>(domain.size());
        SID_NAME_USE kind;
        if (LookupAccountNameW(nullptr, account, sid.data(), &size, domain.data(), &length, &kind))
            return text(sid.data());
        if (GetLastError() != ERROR_INSUFFICIENT_BUFFER || (size <= sid.size() && length <= domain.size()))
            raiseLastError();
        sid.resize(std::max<std::size_t>(size, sid.size()));
        domain.resize(std::max<std::size_t>(length, domain.size()));
    }
}

std::tuple<std::wstring, std::wstring, unsigned long> toAccount(const wchar_t* sid)
{
    const LocalOwner owner = parsed(sid);
    std::wstring name(256, L'\0');
    std::wstring domain(256, L'\0');
    for (;;) {
        auto nameLength = static_cast<DWORD>(name.size());
        auto domainLength = static_cast<DWORD>(domain.size());
        SID_NAME_USE kind;
        if (LookupAccountSidW(nullptr, owner.get(), name.data(), &nameLength, domain.data(), &domainLength,
                              &kind)) {
            name.resize(nameLength);
            domain.resize(domainLength);
            return {domain, name, static_cast<unsigned long>(kind)};
        }
        if (GetLastError() != ERROR_INSUFFICIENT_BUFFER ||
            (nameLength <= name.size() && domainLength <= domain.size()))
            raiseLastError();
        name.resize(std::max<std::size_t>(nameLength, name.size()));
        domain.resize(std::max<std::size_t>(domainLength, domain.size()));
    }
}

bool isWellKnown(const wchar_t* sid, unsigned long kind)
{
    constexpr unsigned long kLast = 119; // WinBuiltinDeviceOwnersSid; older headers end before it
    if (kind > kLast)
        raiseCode(ERROR_INVALID_PARAMETER);
    return IsWellKnownSid(parsed(sid).get(), static_cast<WELL_KNOWN_SID_TYPE>(kind)) != FALSE;
}
} // namespace sids

namespace ownership {
void take(const wchar_t* path, unsigned long kind)
{
    const PrivilegeScope privilege(L"SeTakeOwnershipPrivilege");
    const OpenedObject object(path, kind, WRITE_OWNER);
    const LocalOwner self = parsed(sids::ofCurrentUser().c_str());
    requireSuccess(static_cast<long>(SetSecurityInfo(object.handle, object.type, OWNER_SECURITY_INFORMATION,
                                                     self.get(), nullptr, nullptr, nullptr)));
}

void grant(const wchar_t* path, unsigned long kind, const wchar_t* sid, unsigned long rights)
{
    const LocalOwner user = parsed(sid);
    const OpenedObject object(path, kind, READ_CONTROL | WRITE_DAC);
    ACL* old = nullptr;
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    requireSuccess(static_cast<long>(GetSecurityInfo(object.handle, object.type, DACL_SECURITY_INFORMATION,
                                                     nullptr, nullptr, &old, nullptr, &descriptor)));
    const LocalOwner owner(descriptor);
    if (old == nullptr)
        return; // a list with one entry would take away everybody's full access
    EXPLICIT_ACCESSW entry{};
    entry.grfAccessPermissions = rights;
    entry.grfAccessMode = GRANT_ACCESS;
    entry.grfInheritance = kind == 2 ? NO_INHERITANCE : SUB_CONTAINERS_AND_OBJECTS_INHERIT;
    entry.Trustee.TrusteeForm = TRUSTEE_IS_SID;
    entry.Trustee.ptstrName = static_cast<wchar_t*>(user.get());
    ACL* made = nullptr;
    requireSuccess(static_cast<long>(SetEntriesInAclW(1, &entry, old, &made)));
    const LocalOwner list(made);
    requireSuccess(static_cast<long>(SetSecurityInfo(object.handle, object.type, DACL_SECURITY_INFORMATION,
                                                     nullptr, nullptr, made, nullptr)));
}

std::wstring owner(const wchar_t* path, unsigned long kind)
{
    const OpenedObject object(path, kind, READ_CONTROL);
    PSID sid = nullptr;
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    requireSuccess(static_cast<long>(GetSecurityInfo(object.handle, object.type, OWNER_SECURITY_INFORMATION,
                                                     &sid, nullptr, nullptr, nullptr, &descriptor)));
    const LocalOwner memory(descriptor);
    if (sid == nullptr)
        raiseCode(ERROR_INVALID_OWNER);
    return sids::text(sid);
}
} // namespace ownership
