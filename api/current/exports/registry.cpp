// The exported functions of registry items.

#include "core/win32/registry/api.h"
#include "core/win32/registry/include/RegistryPath.h"
#include "core/win32/registry/include/RegistryValue.h"
#include "core/win32/utils/paths/include/UserSession.h"
#include "core/win32/utils/scanengine/include/ScanItems.h"
#include "exports/Frames.h"

namespace {
constexpr char kRegistryApi[] = "core\\win32\\registry\\api.h";
} // namespace

IRegistryKey* DllGetRegistryKey()
{
    return frames::makeObject<IRegistryKey, RegistryKey>();
}

IRegistryKey* DllGetRegistryKey(HKEY root, const wchar_t* subKey)
{
    return frames::makeObject<IRegistryKey, RegistryKey>(root, subKey, 0UL);
}

IRegistryKey* DllGetRegistryKey(unsigned long loadCode, IInputByteStream& stream)
{
    return frames::loadObject<IRegistryKey, RegistryKey>(loadCode, stream);
}

IRegistryValue* DllGetRegistryValue()
{
    return frames::makeObject<IRegistryValue, RegistryValue>();
}

IRegistryValue* DllGetRegistryValue(HKEY root, const wchar_t* subKey, const wchar_t* name)
{
    return frames::makeObject<IRegistryValue, RegistryValue>(root, subKey, name, 0UL);
}

IRegistryValue* DllGetRegistryValue(HKEY root, const wchar_t* subKey, const wchar_t* name,
                                    const wchar_t* text)
{
    return frames::makeObject<IRegistryValue, RegistryValue>(root, subKey, name, text);
}

IRegistryValue* DllGetRegistryValue(unsigned long loadCode, IInputByteStream& stream)
{
    return frames::loadObject<IRegistryValue, RegistryValue>(loadCode, stream);
}

void* CreateRegistryKey(const wchar_t* name, HKEY root, const wchar_t* subKey, unsigned long options)
{
    return createItem(PLACE(kRegistryApi, "CreateRegistryKey", __LINE__), name, true,
                      [&] { return makeShared<ScanItem, RegistryKey>(root, subKey, options); });
}

void* CreateRegistryValue(const wchar_t* name, HKEY root, const wchar_t* subKey, const wchar_t* valueName,
                          unsigned long options)
{
    return createItem(PLACE(kRegistryApi, "CreateRegistryValue", __LINE__), name, true,
                      [&] { return makeShared<ScanItem, RegistryValue>(root, subKey, valueName, options); });
}

void* CreateRegistryPath(const wchar_t* name, HKEY root, const wchar_t* subKey, unsigned long options)
{
    return createItem(PLACE(kRegistryApi, "CreateRegistryPath", __LINE__), name, true,
                      [&] { return makeShared<ScanItem, RegistryPath>(root, subKey, options); });
}

long ImpersonateCurrentUser()
{
    return impersonateLoggedOnUser();
}

long SetCurrentUserSession(unsigned long session)
{
    usersession::choose(session);
    return ERROR_SUCCESS;
}
