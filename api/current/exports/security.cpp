#include "core/win32/utils/security/include/Security.h"
#include "core/win32/utils/security/api.h"
#include "exports/UtilityFrame.h"

using namespace utilityframe;

long PrivilegeEnable(const wchar_t* name, int* wasEnabled)
{
    return utilityFrame(
        outputs(wasEnabled), [](const wchar_t* id) { return privileges::adjust(id, true); }, name);
}

long PrivilegeDisable(const wchar_t* name)
{
    return utilityFrame(
        outputs(), [](const wchar_t* id) { privileges::adjust(id, false); }, name);
}

long PrivilegeIsHeld(const wchar_t* name, int* isHeld)
{
    return utilityFrame(outputs(isHeld), privileges::isHeld, name);
}

long TokenHasElevation(void* token, int* isElevated)
{
    return utilityFrame(outputs(isElevated), tokens::hasElevation, optional(token));
}

long TokenGetIntegrity(void* token, unsigned long* level)
{
    return utilityFrame(outputs(level), tokens::integrity, optional(token));
}

long UserIsAdministrator(int* isAdministrator)
{
    return utilityFrame(outputs(isAdministrator), tokens::isAdministrator);
}

long SessionGetActive(unsigned long* session)
{
    return utilityFrame(outputs(session), sessions::active);
}

long SessionGetUserName(unsigned long session, wchar_t** domain, wchar_t** user)
{
    return utilityFrame(outputs(domain, user), sessions::userName, session);
}

long SessionGetUserToken(unsigned long session, void** token)
{
    return utilityFrame(
        outputs(token), [](unsigned long id) { return sessions::userToken(id).release(); }, session);
}

long SessionRunAsUser(unsigned long session, const wchar_t* commandLine, int wait, unsigned long* exitCode)
{
    return utilityFrame(outputs(exitCode), sessions::runAsUser, session, commandLine, wait);
}

long SessionImpersonate(unsigned long session, void** undo)
{
    return utilityFrame(outputs(undo), sessions::impersonate, session);
}

long SessionRevert(void* undo)
{
    return utilityFrame(outputs(), sessions::revert, undo);
}

long SidFromAccount(const wchar_t* account, wchar_t** sid)
{
    return utilityFrame(outputs(sid), sids::fromAccount, account);
}

long SidToAccount(const wchar_t* sid, wchar_t** domain, wchar_t** name, unsigned long* kind)
{
    return utilityFrame(outputs(domain, name, kind), sids::toAccount, sid);
}

long SidOfCurrentUser(wchar_t** sid)
{
    return utilityFrame(outputs(sid), sids::ofCurrentUser);
}

long SidIsWellKnown(const wchar_t* sid, unsigned long kind, int* is)
{
    return utilityFrame(outputs(is), sids::isWellKnown, sid, kind);
}

long SecurityTakeOwnership(const wchar_t* path, unsigned long kind)
{
    return utilityFrame(outputs(), ownership::take, path, kind);
}

long SecurityGrantAccess(const wchar_t* path, unsigned long kind, const wchar_t* sid, unsigned long rights)
{
    return utilityFrame(outputs(), ownership::grant, path, kind, sid, rights);
}

long SecurityGetOwner(const wchar_t* path, unsigned long kind, wchar_t** sid)
{
    return utilityFrame(outputs(sid), ownership::owner, path, kind);
}
