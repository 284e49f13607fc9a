#pragma once

// Scan items, the scan validator and the scan engines.
//
// Functions that return a handle return the invalid handle (all bits set) on failure, functions that return
// an object return null; the code is then the thread's last error. Status functions return the code. Each
// says which codes are its own; besides, 8 stands for memory that ran out, and for functions that take a
// handle 6 for one that is null, unknown or closed, and 487 for one whose object is gone.

#include <windows.h>

#include "core/win32/utils/objectmanager/include/Api.h"
#include "win32/scanengine/include/IFile.h"
#include "win32/scanengine/include/IScanEngine.h"
#include "win32/scanengine/include/IScanPath.h"
#include "win32/scanengine/include/IScanValidator.h"

// ---- Items without a handle. The caller deletes the returned object through the interface.

/// An empty file item, to be loaded from a stream.
SYSMAINT_API IFile* DllGetFile();
/// The file of that path; with `expand` nonzero its folder macros are expanded (IPathValidatorW). Codes: 87
/// null path, or the expander's.
SYSMAINT_API IFile* DllGetFile(const wchar_t* path, int expand);
/// The file that `stream` holds, written with the same code (StateCodes.h). Codes: 30, and 13 for an item of
/// another type.
SYSMAINT_API IFile* DllGetFile(unsigned long loadCode, IInputByteStream& stream);
/// The folder of that path, as above.
SYSMAINT_API IDirectory* DllGetDirectory(const wchar_t* path, int expand);
/// The folder that `stream` holds, as above.
SYSMAINT_API IDirectory* DllGetDirectory(unsigned long loadCode, IInputByteStream& stream);

// ---- Items with a handle. An item is filed under `name`, a backslash and its identifier text, which is its
// path; to create one that is filed already opens it, or fails with 183 when that is of another kind or
// level, its path meant another place when it was given, or setPath or load has made it another since. Codes
// for the names and paths: 87 when null.

/// Files an item of the caller's. Codes: 87 null name, 487 a pointer without an item.
SYSMAINT_API void* CreateScanItem(const wchar_t* name, SharedPtr<ScanItem>& item);
/// Opens the item that was filed under `name` with that identifier text. Codes: 87, 1168 no such item, or one
/// that setPath or load has made another since.
SYSMAINT_API void* OpenScanItem(const wchar_t* name, const wchar_t* identifier);
/// The item behind a handle.
SYSMAINT_API long GetScanItemByHandle(void* handle, SharedPtr<ScanItem>& item);
/// Files a file item. Not to be mixed up with the system's function of the same name, which has seven
/// parameters.
SYSMAINT_API void* CreateFileW(const wchar_t* name, const wchar_t* path, int expand);
/// Files a folder that can be walked (IScanPath). `level` is the level that its scans count from: 0 for a
/// root.
SYSMAINT_API void* CreateFilePath(const wchar_t* name, const wchar_t* path, int expand, unsigned long level);
/// Sets `exists` to 1 or 0: whether something is there under the item's path. Codes: 87 null `exists`, or the
/// system's when it cannot tell.
SYSMAINT_API long ScanItemExists(void* handle, int* exists);
/// Gives the handle back. Returns nonzero, or 0 for a handle that is not open.
SYSMAINT_API int CloseScanItem(void* handle);

// ---- Validator. The caller deletes it through the interface, or leaves that to SharedPtr<IScanValidator>.

/// A validator without rules: it accepts everything.
SYSMAINT_API IScanValidator* DllGetScanValidator();
/// A validator made of two texts; when either is null it has no rules. A text is a list of entries separated
/// by
/// ",", empty ones passed over. An entry is a wildcard for the names of leaves, or a pattern followed by ":"
/// and three digits for mode, target and kind: "*.tmp,*.log:011,Temp:110". Codes: 87 for anything but three
/// digits after the first ":" of an entry. So a path with a drive cannot be an entry: its colon is the first
/// (use addFilter and addIgnore of IScanValidator). Blanks around a "," belong to the patterns.
SYSMAINT_API IScanValidator* DllGetScanValidator(const wchar_t* filters, const wchar_t* ignores);

// ---- File scan engine.

/// Creates the engine of that name, or opens it. Codes: 87 null name.
SYSMAINT_API void* CreateFileScanEngine(const wchar_t* name);
/// Opens the engine of that name. Codes: 87, 1168 no such engine.
SYSMAINT_API void* OpenFileScanEngine(const wchar_t* name);
/// Appends a root folder, which need not exist yet. It is filed as a scan item under the engine's name and
/// its path, so OpenScanItem reaches it and its results. The same path may be added again and is then scanned
/// again. Codes: 87 null or empty path, the expander's, 183 when another kind of item is filed there.
SYSMAINT_API long FSEngineAddPath(void* engine, const wchar_t* path, int expand);
/// Registers a handler under the key `first`: 1 for folders, 0 for files, 2 for folders that
/// cannot be listed (kListingFailed). `second` and `value` are handed
/// back with each notification. The handler must outlive its registration.
SYSMAINT_API long FSEngineRegisterHandler(void* engine, INotifyHandler& handler, unsigned long first,
                                          unsigned long second, unsigned long long value);
/// Copies all registrations of a provider, with `first` and `second` in place of their own numbers unless
/// these are INotifyProvider::kKeepNumber.
SYSMAINT_API long FSEngineRegisterHandlers(void* engine, INotifyProvider& provider, unsigned long first,
                                           unsigned long second);
/// Walks every root on the calling thread, in the order added, and reports what the validator accepts to the
/// handlers; IScanPath::scan says how. A root's own handlers are called, too. For everything pass
/// DllGetScanValidator(); a null event never cancels.
///
/// Returns 0; 487 for a pointer without a validator; 1223 when `cancelEvent` ended it; 1168 when an item was
/// found for whose key no handler is registered; 6 when a root was dropped meanwhile; the system's code for a
/// root that cannot be opened, at once, or for the first sub-folder that cannot or the first listing that
/// broke off, when all roots are walked; or the code of what a handler raised (574 when that has none, or 0).
SYSMAINT_API long FSEngineScan(void* engine, void* cancelEvent, const SharedPtr<IScanValidator>& validator,
                               ScanOptions options);
/// Drops all registrations of the engine and of its paths; a scan that goes on finds no handler (1168).
SYSMAINT_API long FSEngineClearHandlers(void* engine);
/// Drops all paths.
SYSMAINT_API long FSEngineClear(void* engine);
/// Gives the handle back. Returns nonzero, or 0 for a handle that is not open. Scans that run go on.
SYSMAINT_API int CloseFileScanEngine(void* engine);

// ---- Registry scan engine: the same for registry keys, which are reported under key 1, and their values,
// under key 0. A key's values come before its sub-keys. Registry symbolic links are reported and never
// followed, unless a root is one; the value that says where a link leads is not reported. Keys and values
// that come or go during the walk neither end it nor are reported twice. One whose name holds a zero, which
// Win32 cannot name, is passed over, and the scan returns 123 in the end.

/// An engine without a handle. The caller deletes it through the interface, whose operations raise an
/// Exception.
SYSMAINT_API IRegistryScanEngine* DllGetRegistryScanEngine();
SYSMAINT_API void* CreateRegistryScanEngine(const wchar_t* name);
SYSMAINT_API void* OpenRegistryScanEngine(const wchar_t* name);
/// Appends a root key, with options word 0. `path` may be empty: the whole root. Codes: 87 null root or path,
/// 183 when another kind of item is filed there.
SYSMAINT_API long RSEngineAddPath(void* engine, HKEY root, const wchar_t* path);
/// The same with an options word (RegistryOption), which all keys and values found below have too.
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
