// The exported functions of registry items.

#include "core/win32/utils/registry/include/Registry.h"
#include "core/win32/registry/api.h"
#include "core/win32/registry/include/RegistryPath.h"
#include "core/win32/registry/include/RegistryValue.h"
#include "core/win32/utils/paths/include/UserSession.h"
#include "core/win32/utils/registry/api.h"
#include "core/win32/utils/scanengine/include/ScanItems.h"
#include "core/win32/utils/security/include/Security.h"
#include "exports/Frames.h"
#include "exports/UtilityFrame.h"

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

// ---- Utilities

using namespace utilityframe;

long RegistryReadString(HKEY root, const wchar_t* key, const wchar_t* name, unsigned int view, int expand,
                        wchar_t** text)
{
    return utilityFrame(outputs(text), registry::readString, root, key, name, view, expand);
}

long RegistryReadMultiString(HKEY root, const wchar_t* key, const wchar_t* name, unsigned int view,
                             wchar_t** list, size_t* count)
{
    return utilityFrame(outputs(list, count), registry::readMultiString, root, key, name, view);
}

long RegistryReadDword(HKEY root, const wchar_t* key, const wchar_t* name, unsigned int view,
                       unsigned long* value)
{
    return utilityFrame(outputs(value), registry::readDword, root, key, name, view);
}

long RegistryReadQword(HKEY root, const wchar_t* key, const wchar_t* name, unsigned int view,
                       unsigned long long* value)
{
    return utilityFrame(outputs(value), registry::readQword, root, key, name, view);
}

long RegistryReadBinary(HKEY root, const wchar_t* key, const wchar_t* name, unsigned int view,
                        unsigned char** bytes, size_t* size, unsigned long* type)
{
    return utilityFrame(outputs(counted(bytes, size), type), registry::readBinary, root, key, name, view);
}

long RegistryWriteString(HKEY root, const wchar_t* key, const wchar_t* name, unsigned int view,
                         const wchar_t* text, unsigned long type)
{
    return utilityFrame(outputs(), registry::writeString, root, key, name, view, text, type);
}

long RegistryWriteDword(HKEY root, const wchar_t* key, const wchar_t* name, unsigned int view,
                        unsigned long value)
{
    return utilityFrame(
        outputs(),
        [&](HKEY parent, const wchar_t* path, const wchar_t* id) {
            registry::write(parent, path, id, view, REG_DWORD,
                            {reinterpret_cast<const unsigned char*>(&value), sizeof value});
        },
        root, key, name);
}

long RegistryWriteBinary(HKEY root, const wchar_t* key, const wchar_t* name, unsigned int view,
                         const void* bytes, size_t size, unsigned long type)
{
    return utilityFrame(outputs(), registry::write, root, key, name, view, type, Bytes{bytes, size});
}

long RegistryKeyExists(HKEY root, const wchar_t* key, unsigned int view, int* exists)
{
    return utilityFrame(outputs(exists), registry::keyExists, root, key, view);
}

long RegistryValueExists(HKEY root, const wchar_t* key, const wchar_t* name, unsigned int view, int* exists)
{
    return utilityFrame(outputs(exists), registry::valueExists, root, key, name, view);
}

long RegistryDeleteTree(HKEY root, const wchar_t* key, unsigned int view)
{
    return utilityFrame(outputs(), registry::deleteTree, root, key, view);
}

long RegistryDeleteValueIfPresent(HKEY root, const wchar_t* key, const wchar_t* name, unsigned int view)
{
    return utilityFrame(outputs(), registry::deleteValue, root, key, name, view);
}

long RegistryCopyTree(HKEY sourceRoot, const wchar_t* source, HKEY targetRoot, const wchar_t* target,
                      unsigned int view)
{
    return utilityFrame(outputs(), registry::copyTree, sourceRoot, source, targetRoot, target, view);
}

long RegistryParsePath(const wchar_t* text, HKEY* root, wchar_t** key)
{
    return utilityFrame(outputs(root, key), registry::parsePath, text);
}

long RegistryFormatPath(HKEY root, const wchar_t* key, wchar_t** text)
{
    return utilityFrame(outputs(text), registry::formatPath, root, key);
}

long RegistryExportText(HKEY root, const wchar_t* key, unsigned int view, const wchar_t* file)
{
    return utilityFrame(outputs(), registry::exportText, root, key, view, file);
}

long RegistryImportText(const wchar_t* file, unsigned int view)
{
    return utilityFrame(outputs(), registry::importText, file, view);
}

long RegistryOpenUserHive(unsigned long session, HKEY* hive)
{
    return utilityFrame(outputs(hive), sessions::userHive, session);
}

long RegistryGetLastWrite(HKEY root, const wchar_t* key, unsigned int view, unsigned long long* time)
{
    return utilityFrame(outputs(time), registry::lastWrite, root, key, view);
}

long RegistryTypeName(unsigned long type, wchar_t** name)
{
    return utilityFrame(outputs(name), registry::typeName, type);
}
