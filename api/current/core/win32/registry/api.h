#pragma once

// Registry keys and values as scan items. Failures as in core/win32/utils/scanengine/api.h.

#include <windows.h>

#include "core/win32/utils/objectmanager/include/Api.h"
#include "win32/registry/include/IRegistryKey.h"

// ---- Items without a handle. The caller deletes the returned object through the interface.

/// An empty key item, to be loaded from a stream.
SYSMAINT_API IRegistryKey* DllGetRegistryKey();
/// The key `subKey` (may be empty) below `root`: a predefined handle, or one that the caller opened and keeps
/// open. Codes: 87 for a null root or path.
SYSMAINT_API IRegistryKey* DllGetRegistryKey(HKEY root, const wchar_t* subKey);
/// The key that `stream` holds, written with the same code (StateCodes.h). Codes: 30, and 13 for an item of
/// another type, an unknown root or both views at once.
SYSMAINT_API IRegistryKey* DllGetRegistryKey(unsigned long loadCode, IInputByteStream& stream);
/// An empty value item, to be loaded from a stream.
SYSMAINT_API IRegistryValue* DllGetRegistryValue();
/// The value `name` (empty: the default value) of a key as above. Codes: 87 for a null root, path or name.
SYSMAINT_API IRegistryValue* DllGetRegistryValue(HKEY root, const wchar_t* subKey, const wchar_t* name);
/// The same, with `text` as its initial data of type REG_SZ, which create writes. Codes: 87 also for a null
/// text.
SYSMAINT_API IRegistryValue* DllGetRegistryValue(HKEY root, const wchar_t* subKey, const wchar_t* name,
                                                 const wchar_t* text);
/// The value that `stream` holds, as above.
SYSMAINT_API IRegistryValue* DllGetRegistryValue(unsigned long loadCode, IInputByteStream& stream);

// ---- Items with a handle, filed under `name`, a backslash and their full path; CloseScanItem gives the
// handle back. `options` is a combination of RegistryOption bits. Codes: 87 for a null name, root, path or
// value name, or both views at once; 183 when another item is filed there: a value under a key's path,
// another root, view or kind.

SYSMAINT_API void* CreateRegistryKey(const wchar_t* name, HKEY root, const wchar_t* subKey,
                                     unsigned long options);
SYSMAINT_API void* CreateRegistryValue(const wchar_t* name, HKEY root, const wchar_t* subKey,
                                       const wchar_t* valueName, unsigned long options);
/// A key that can be walked (IScanPath).
SYSMAINT_API void* CreateRegistryPath(const wchar_t* name, HKEY root, const wchar_t* subKey,
                                      unsigned long options);

/// Makes the calling thread the user who is logged on at the active console session, until it calls
/// RevertToSelf. Only the system's own account may ask for another session's user; to a process of any other
/// account the user is itself, and it impersonates itself.
///
/// Returns 0, or a code, and then the thread is as it was: 1312 when there is no console session at the
/// moment; 1008 when nobody is logged on at it; 1314 to a process of the system account without the privilege
/// to ask (SeTcbPrivilege); 126 or 127
/// without wtsapi32.dll or its function; another of WTSQueryUserToken, ImpersonateSelf or
/// ImpersonateLoggedOnUser.
SYSMAINT_API long ImpersonateCurrentUser();
