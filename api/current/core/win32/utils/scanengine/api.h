#pragma once

// Scan items, the scan validator and the scan engines.
//
// On failure, functions that return a handle return the invalid handle (all bits set) and functions that
// return an object return null; the thread's last error then holds the code. Status functions return the
// code. Each lists its own codes. In addition, 8 means that memory ran out; functions that take a handle
// return 6 for one that is null, unknown or closed, and 487 for one whose object is gone.

#include <windows.h>

#include "core/win32/utils/objectmanager/include/Api.h"
#include "win32/scanengine/include/IFile.h"
#include "win32/scanengine/include/IScanEngine.h"
#include "win32/scanengine/include/IScanPath.h"
#include "win32/scanengine/include/IScanValidator.h"

// ---- Items without a handle. The caller deletes the returned object through the interface.

/// An empty file item, to be loaded from a stream.
SYSMAINT_API IFile* DllGetFile();
/// The file with that path; with `expand` nonzero its folder macros are expanded (IPathValidatorW). Codes: 87
/// null path, or the expander's.
SYSMAINT_API IFile* DllGetFile(const wchar_t* path, int expand);
/// The file stored in `stream`, written with the same code (StateCodes.h). Codes: 30, and 13 for an item of
/// another type.
SYSMAINT_API IFile* DllGetFile(unsigned long loadCode, IInputByteStream& stream);
/// The folder with that path, as above.
SYSMAINT_API IDirectory* DllGetDirectory(const wchar_t* path, int expand);
/// The folder stored in `stream`, as above.
SYSMAINT_API IDirectory* DllGetDirectory(unsigned long loadCode, IInputByteStream& stream);

// ---- Items with a handle. An item is registered under `name`, a backslash and its identifier text, which is
// its path. Creating one that is registered already opens it. It fails with 183 when the registered item is
// of another kind or level, when its path meant another place when it was given, or when setPath or load has
// made it another item since. Codes for the names and paths: 87 when null.

/// Registers a caller's item. Codes: 87 null name, 487 a pointer without an item.
SYSMAINT_API void* CreateScanItem(const wchar_t* name, SharedPtr<ScanItem>& item);
/// Opens the item registered under `name` with that identifier text. Codes: 87, 1168 no such item, or setPath
/// or load has made it another one since.
SYSMAINT_API void* OpenScanItem(const wchar_t* name, const wchar_t* identifier);
/// The item behind a handle.
SYSMAINT_API long GetScanItemByHandle(void* handle, SharedPtr<ScanItem>& item);
/// Registers a file item. Not to be confused with the system's function of the same name, which has seven
/// parameters.
SYSMAINT_API void* CreateFileW(const wchar_t* name, const wchar_t* path, int expand);
/// Registers a folder that can be walked (IScanPath). `level` is the level that its scans count from: 0 for a
/// root.
SYSMAINT_API void* CreateFilePath(const wchar_t* name, const wchar_t* path, int expand, unsigned long level);
/// Sets `exists` to 1 or 0: whether the item's path exists. Codes: 87 null `exists`, or the system's when it
/// cannot tell.
SYSMAINT_API long ScanItemExists(void* handle, int* exists);
/// Closes the handle. Returns nonzero, or 0 for a handle that is not open.
SYSMAINT_API int CloseScanItem(void* handle);

// ---- Validator. The caller deletes it through the interface, or leaves that to SharedPtr<IScanValidator>.

/// A validator without rules, which accepts everything.
SYSMAINT_API IScanValidator* DllGetScanValidator();
/// A validator built from two texts; when either is null it has no rules. A text is a list of entries
/// separated by ","; empty entries are skipped. An entry is a wildcard for the names of leaves, or a pattern
/// followed by ":" and three digits for mode, target and kind: "*.tmp,*.log:011,Temp:110". Codes: 87 for
/// anything but three digits after the first ":" of an entry. So a path with a drive cannot be an entry,
/// because its colon comes first (use addFilter and addIgnore of IScanValidator). Blanks around a "," are
/// part of the patterns.
SYSMAINT_API IScanValidator* DllGetScanValidator(const wchar_t* filters, const wchar_t* ignores);

// ---- File scan engine.

/// Creates the engine with that name, or opens it. Codes: 87 null name.
SYSMAINT_API void* CreateFileScanEngine(const wchar_t* name);
/// Opens the engine with that name. Codes: 87, 1168 no such engine.
SYSMAINT_API void* OpenFileScanEngine(const wchar_t* name);
/// Appends a root folder, which need not exist yet. It is registered as a scan item under the engine's name
/// and its path, so OpenScanItem reaches it and its results. A path that is added twice is scanned twice.
/// Codes: 87 null or empty path, the expander's, 183 when another kind of item is registered there.
SYSMAINT_API long FSEngineAddPath(void* engine, const wchar_t* path, int expand);
/// Registers a handler under the key `first`: 1 for folders, 0 for files, 2 for folders that cannot be listed
/// (kListingFailed). Each notification returns `second` and `value`. The handler must outlive its
/// registration.
SYSMAINT_API long FSEngineRegisterHandler(void* engine, INotifyHandler& handler, unsigned long first,
                                          unsigned long second, unsigned long long value);
/// Copies all registrations of a provider, with `first` and `second` instead of their own numbers unless
/// these are INotifyProvider::kKeepNumber.
SYSMAINT_API long FSEngineRegisterHandlers(void* engine, INotifyProvider& provider, unsigned long first,
                                           unsigned long second);
/// Walks every root on the calling thread, in the order added, and reports what the validator accepts to the
/// handlers, as described at IScanPath::scan. A root's own handlers are called, too. Pass
/// DllGetScanValidator() to accept everything; a null event never cancels, a handle that cannot be polled
/// does. It must be an event, which is not checked: a mutex would be taken.
///
/// Returns 0; 487 for a pointer without a validator; 1223 when `cancelEvent` ended it; 1168 when an item was
/// found for whose key no handler is registered; 6 when a root was removed meanwhile; the system's code at
/// once for a root that cannot be opened; when all roots have been walked, the system's code for the first
/// sub-folder that could not be opened or the first listing that broke off; or the code of what a handler
/// raised (574 when that has none, or 0).
SYSMAINT_API long FSEngineScan(void* engine, void* cancelEvent, const SharedPtr<IScanValidator>& validator,
                               ScanOptions options);
/// Removes all registrations of the engine and of its paths; a running scan then finds no handler (1168).
SYSMAINT_API long FSEngineClearHandlers(void* engine);
/// Removes all paths.
SYSMAINT_API long FSEngineClear(void* engine);
/// Closes the handle. Returns nonzero, or 0 for a handle that is not open. Running scans continue.
SYSMAINT_API int CloseFileScanEngine(void* engine);

// ---- Registry scan engine: the same for registry keys, reported under key 1, and their values, reported
// under key 0. A key's values come before its sub-keys. Registry symbolic links are reported and never
// followed, unless a root is one; the value that holds a link's target is not reported. Keys and values that
// come or go during the walk do not end it and are never reported twice. One whose name contains a zero,
// which Win32 cannot name, is skipped, and the scan returns 123 at the end.

/// An engine without a handle. The caller deletes it through the interface, whose operations raise an
/// Exception.
SYSMAINT_API IRegistryScanEngine* DllGetRegistryScanEngine();
SYSMAINT_API void* CreateRegistryScanEngine(const wchar_t* name);
SYSMAINT_API void* OpenRegistryScanEngine(const wchar_t* name);
/// Appends a root key, with options word 0. `path` may be empty: the whole root. Codes: 87 null root or path,
/// 183 when another kind of item is registered there.
SYSMAINT_API long RSEngineAddPath(void* engine, HKEY root, const wchar_t* path);
/// The same with an options word (RegistryOption), which also applies to all keys and values found below.
SYSMAINT_API long RSEngineAddPath(void* engine, HKEY root, const wchar_t* path, unsigned long options);
SYSMAINT_API long RSEngineRegisterHandler(void* engine, INotifyHandler& handler, unsigned long first,
                                          unsigned long second, unsigned long long value);
SYSMAINT_API long RSEngineRegisterHandlers(void* engine, INotifyProvider& provider, unsigned long first,
                                           unsigned long second);
SYSMAINT_API long RSEngineScan(void* engine, void* cancelEvent, const SharedPtr<IScanValidator>& validator,
                               ScanOptions options);
SYSMAINT_API long RSEngineClearHandlers(void* engine);
SYSMAINT_API long RSEngineClear(void* engine);
SYSMAINT_API int CloseRegistryScanEngine(void* engine);
