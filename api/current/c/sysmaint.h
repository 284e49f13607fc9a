#pragma once

// The C interface: everything the library does, for C99, for any C++ compiler, and for every language that
// can call C. What the families do is described at their C++ headers; what differs, or has to be known here,
// is said here.
//
// Contents: each title stands after "// ---- " below.
//
//   The library                        sysmaint_version, sysmaint_last_failure
//   Folder macros in paths             sysmaint_path_...
//   Validators                         sysmaint_validator_...
//   Items                              sysmaint_item_..., sysmaint_ftp_...
//   Scans                              sysmaint_scan_...
//   Wiping                             sysmaint_wiper_..., sysmaint_wipe_file_table
//   Messages                           sysmaint_message_...
//   Thread pools                       sysmaint_pool_...
//   Topics                             sysmaint_topic_...
//   Analysis of hives                  sysmaint_hive_..., RegistryDefragmenter...
//   Hive files that are not loaded     sysmaint_offline_..., HiveFileSalvage
//   Restore points and snapshots       sysmaint_restore_..., sysmaint_snapshot_..., RestorePoint...
//   Processes                          sysmaint_process_..., PM..., Process..., Thread..., Session...
//   The lookup client                  sysmaint_lookup_add, HVK...
//   Connections to other processes     sysmaint_connection_..., Connection...
//   Listeners and reporters            sysmaint_listener_..., sysmaint_reporter_..., Listener...
//   Functions that are plain C themselves: settings, the logger, the boot-time lists, checksums, and the
//                                      utility functions for paths, files, volumes, the registry, services,
//                                      security, processes, the shell, text, time and versions
//
// Conventions
//
// - Functions and types begin with sysmaint_, macros with SYSMAINT_. Functions that are plain C
//   themselves, those of the logger, of the boot-time lists and the utility functions, keep their
//   names, and their headers are included at the end. They use long and unsigned long, which have 32
//   bits on this platform.
// - Pools, topics and items (sysmaint_item_share) are shared with C++ code by their names, as is whatever has
//   a C++ handle.
// - Left to C++, because here it would add nothing: engines and FTP connections with names (hand on the scan,
//   the connection; the roots of a C++ engine are found as shared items); handlers by key (a scan has one
//   callback: the key is `kind`, and the handler's own numbers go into its context); results that a scan
//   keeps (the callback keeps what it wants); changing the path of an item (make another); dumps of parts of
//   an object (a dump is whole: what C++ code dumps with kStateAll, messages with kStateNone). Only C++ code
//   can send, receive and load messages with elements of a class of its own.
// - Numbers have fixed widths. Text is UTF-16 in wchar_t, which has 16 bits here whatever the compiler;
//   it ends with a zero. A handle of the system, an event say, is a void*, and so is a root key (HKEY).
// - A status is 0 or a Win32 code, as int32_t. Every function that returns one may also return 8 (no
//   memory), 6 (a handle that is null, was never given out or has been closed) and 87 (an argument that
//   must not be null). It lists the others. A call that fails changes none of its outputs. Of each kind of
//   handle 16,777,215 can be open at a time; one more is 8.
//   sysmaint_last_failure tells more.
// - Handles are opaque. Each belongs to the caller until the close function of its type is called once.
//   A closed handle is not used again, so a stale one gives 6. Closing a handle while a call uses it is
//   safe: the call keeps the object until it is done. That includes a callback that closes what calls
//   it.
// - A struct begins with its own size in bytes. A struct may grow at its end in later versions. A
//   function accepts the size of the struct in the version of the library that first had it, and any
//   size from there to its current one; fields beyond a caller's size are taken as zero. Any other
//   size, above the current one too, gives 87: ask sysmaint_version before you use what is new. In a
//   struct that the library hands to a callback the size says how much is there. Set reserved fields to
//   0; other values give 87.
// - A callback gets the `context` that was given with it and runs on the calling thread unless stated
//   otherwise, with no lock of the library held: it may call any function. A result other than 0 stops
//   what calls it and becomes its result: use a Win32 code, 1223 for "cancelled". A callback must
//   return: no longjmp, and no exceptions of another compiler. What it gets a pointer to lives until it
//   returns, unless stated otherwise.
// - Memory that a function allocates for the caller is released with utilsFreeMemory. Pointers into an
//   object are marked as such.
// - `cancel_event` is a manual-reset event of the caller's, polled while the call works; when it is
//   signalled the call ends with 1223, before anything is changed when it is signalled already. Null never
//   cancels. A handle that cannot be polled ends the call in the same way: with 6 when it is closed, with 5
//   when it must not be waited for. So does, with 6, a handle of anything but an event when a poll finds it
//   signalled. What a poll takes of a mutex, a semaphore or an event that resets itself is given back, if
//   the handle has the right to do so. The event must stay open until the call returns.
// - Timeouts are milliseconds; SYSMAINT_INFINITE is without end.
// - No C++ class and no exception crosses this interface. Any number of threads may use it.
// - A program that unloads the library itself (FreeLibrary) does so when none of its threads is in a call,
//   nor in a callback of one: a call does not keep the library loaded, since that would cost the lock of the
//   loader each time. The library's own threads keep it until they have ended, so a callback that one of
//   them makes, of a pool or a topic, may even unload it. Objects that are still open then are lost.

#include <stdint.h>

#include "core/win32/utils/objectmanager/include/Export.h"

SYSMAINT_C_BEGIN

/// Fails to compile where wchar_t is not UTF-16 (-fno-short-wchar).
typedef char sysmaint_wchar_has_16_bits[sizeof(wchar_t) == 2 ? 1 : -1];

#define SYSMAINT_INFINITE 0xFFFFFFFFu

// ---- The library

/// Its version as one number: 1,000,000 times the first part, 1,000 times the second, plus the third.
SYSMAINT_API uint32_t sysmaint_version(void);
/// The same as text, "1.2.3". Owned by the library.
SYSMAINT_API const wchar_t* sysmaint_version_text(void);

/// What is known of a failure.
typedef struct sysmaint_failure
{
    uint32_t size;
    int32_t code;         ///< the status that was returned; 0: no call has failed
    const char* function; ///< the function of this interface that returned it; null: no call has failed
    const wchar_t* text;  ///< where the failure was raised, and the system's text for the code
} sysmaint_failure;

/// What the last function of this interface that failed on this thread has to say. Functions that keep their
/// C++ names do not count. The texts are valid until the next call fails on this thread.
///
/// @param failure  set its size first; receives the failure
/// @return 0, 87 (also another size), 8 (no memory for the text; the code is in the failure all the same)
SYSMAINT_API int32_t sysmaint_last_failure(sysmaint_failure* failure);

// ---- Folder macros in paths, such as "%temp%\cache": win32/paths/include/IPathValidatorW.h has their names
// and values. core/win32/utils/paths/plain.h has everything else about paths.

/// The path with its macros and environment variables expanded.
///
/// @param expanded  receives a copy, to be released with utilsFreeMemory
/// @return 0, 8, 87, 1168 (it holds no known macro: use the path as it is), or the system's code for a folder
///         that cannot be determined, as IPathValidatorW::validate
SYSMAINT_API int32_t sysmaint_path_expand(const wchar_t* path, wchar_t** expanded);
/// The same for UTF-8.
///
/// @param expanded  receives a copy, to be released with utilsFreeMemory
/// @return as sysmaint_path_expand; 1113 (no valid UTF-8)
SYSMAINT_API int32_t sysmaint_path_expand_utf8(const char* path, char** expanded);

// ---- Validators: rules that decide which items are reported or wiped. win32/scanengine/include/
// IScanValidator.h describes them. A validator that is used by a running call cannot be changed (170).

typedef struct sysmaint_validator sysmaint_validator;

#define SYSMAINT_LIST_FILTERS 0u ///< an item must match one of these, if there are any for its kind
#define SYSMAINT_LIST_IGNORES 1u ///< and none of these
#define SYSMAINT_MATCH_WILDCARD 0u
#define SYSMAINT_MATCH_SUBSTRING 1u
#define SYSMAINT_TARGET_PATH 0u
#define SYSMAINT_TARGET_NAME 1u
#define SYSMAINT_ITEMS_CONTAINERS 0u ///< folders and registry keys
#define SYSMAINT_ITEMS_LEAVES 1u     ///< files and registry values

/// Creates a validator from two texts: lists of entries separated by ",", each a wildcard for the names of
/// leaves, or a pattern followed by ":" and three digits for mode, target and kind:
/// "*.tmp,*.log:011,Temp:110".
///
/// @param filters    may be null: none
/// @param ignores    may be null: none
/// @param validator  receives the handle; close it with sysmaint_validator_close
/// @return 0, 87 (also for anything but three digits after the first ":" of an entry), 8
SYSMAINT_API int32_t sysmaint_validator_create(const wchar_t* filters, const wchar_t* ignores,
                                               sysmaint_validator** validator);
/// Appends a rule.
///
/// @param list     SYSMAINT_LIST_...
/// @param pattern  is copied
/// @param mode     SYSMAINT_MATCH_...
/// @param target   SYSMAINT_TARGET_...
/// @param kind     SYSMAINT_ITEMS_...
/// @return 0, 6, 8, 87 (also for a number that is none of these), 170
SYSMAINT_API int32_t sysmaint_validator_add(sysmaint_validator* validator, uint32_t list,
                                            const wchar_t* pattern, uint32_t mode, uint32_t target,
                                            uint32_t kind);
/// Removes all rules.
///
/// @return 0, 6, 170
SYSMAINT_API int32_t sysmaint_validator_clear(sysmaint_validator* validator);
/// The number of rules in a list.
///
/// @return 0, 6, 87 (also for another list)
SYSMAINT_API int32_t sysmaint_validator_count(sysmaint_validator* validator, uint32_t list, uint32_t* count);
/// A rule's pattern, as a copy to be released with utilsFreeMemory.
///
/// @param index  from 0
/// @return 0, 6, 8, 87 (also for another list, and for an index beyond it)
SYSMAINT_API int32_t sysmaint_validator_pattern(sysmaint_validator* validator, uint32_t list, uint32_t index,
                                                wchar_t** pattern);
/// What a rule compares, and with which items.
typedef struct sysmaint_rule
{
    uint32_t size;
    uint32_t mode;   ///< SYSMAINT_MATCH_...; another number, from a text or a stream, never matches
    uint32_t target; ///< SYSMAINT_TARGET_...; in the same way
    uint32_t kind;   ///< SYSMAINT_ITEMS_...; another number: containers and leaves
} sysmaint_rule;

/// The same for the rest of a rule.
///
/// @param index  from 0
/// @param rule   set its size first
/// @return 0, 6, 87 (also for another list, an index beyond it, and another size)
SYSMAINT_API int32_t sysmaint_validator_rule(sysmaint_validator* validator, uint32_t list, uint32_t index,
                                             sysmaint_rule* rule);
/// The rules of both lists in serialized form, as a buffer to be released with utilsFreeMemory.
///
/// @param bytes  receives the buffer
/// @param size   receives how many bytes
/// @return 0, 6, 8, 87
SYSMAINT_API int32_t sysmaint_validator_dump(sysmaint_validator* validator, void** bytes, uint64_t* size);
/// Appends the rules that sysmaint_validator_dump has written: all of them, or none when it fails.
///
/// @param bytes  `size` bytes, which are not trusted
/// @return 0, 6, 8, 13 (more bytes than the rules have), 30 (too few bytes), 87, 170
SYSMAINT_API int32_t sysmaint_validator_load(sysmaint_validator* validator, const void* bytes, uint64_t size);
/// Closes the handle. Calls that use the validator go on with it.
///
/// @return 0, 6
SYSMAINT_API int32_t sysmaint_validator_close(sysmaint_validator* validator);

// ---- Items: one file, folder, registry key, registry value or file on an FTP server. Scans hand them to
// their callback; the functions below make one of what the caller names. Items that were found know by which
// path and as what kind: an operation on one is refused when a link leads its path elsewhere by now, or when
// it is a folder instead of a file. Another file under the same path is not told apart
// (win32/scanengine/include/IFile.h, win32/registry/include/IRegistryKey.h, win32/ftp/include/IFtpFile.h
// have the codes of each operation). Functions that do not fit the item's type return 120.

typedef struct sysmaint_item sysmaint_item;
typedef struct sysmaint_shared_item sysmaint_shared_item;

#define SYSMAINT_ITEM_FOLDER 1u
#define SYSMAINT_ITEM_FILE 2u
#define SYSMAINT_ITEM_FTP_FILE 3u
#define SYSMAINT_ITEM_REGISTRY_KEY 5u
#define SYSMAINT_ITEM_REGISTRY_VALUE 6u

#define SYSMAINT_REGISTRY_READ_ONLY 0x0001u ///< nothing is changed through the item (5)
#define SYSMAINT_REGISTRY_VIEW_64 0x0100u   ///< the 64-bit view of the registry
#define SYSMAINT_REGISTRY_VIEW_32 0x0200u   ///< the 32-bit view

/// An account at an FTP server. Nothing is encrypted, the password neither.
typedef struct sysmaint_ftp_account
{
    uint32_t size;
    uint32_t port; ///< 0 is 21
    const wchar_t* server;
    const wchar_t* user;     ///< null or empty: anonymous
    const wchar_t* password; ///< null: none
    uint32_t timeout;        ///< for each step; 0 is 30,000 milliseconds
    uint32_t reserved;
} sysmaint_ftp_account;

/// A connection to an FTP server for any number of items; threads take turns.
typedef struct sysmaint_ftp sysmaint_ftp;

/// Creates a connection. Nothing is sent yet: it connects when it is first needed, and again after a failure.
///
/// @param account  is copied; the password is kept in memory until the connection and its items are gone
/// @param ftp      receives the handle; close it with sysmaint_ftp_close
/// @return 0, 8, 87 (also control characters)
SYSMAINT_API int32_t sysmaint_ftp_create(const sysmaint_ftp_account* account, sysmaint_ftp** ftp);
/// Connects and logs in, if it has not yet.
///
/// @param cancel_event  may be null
/// @return 0, 6, 8, 1223, 1326, or a code of core/win32/utils/ftp/api.h
SYSMAINT_API int32_t sysmaint_ftp_connect(sysmaint_ftp* ftp, void* cancel_event);
/// Changes the time-out for each step, from the next operation on.
///
/// @param timeout  in milliseconds
/// @return 0, 6
SYSMAINT_API int32_t sysmaint_ftp_set_timeout(sysmaint_ftp* ftp, uint32_t timeout);
/// Closes the connection. What its items wait for ends, and they cannot be used any more (2250).
///
/// @return 0, 6
SYSMAINT_API int32_t sysmaint_ftp_close(sysmaint_ftp* ftp);

/// The file of that path. It need not exist.
///
/// @param expand  not 0: folder macros in the path are expanded
/// @param item    receives the handle; close it with sysmaint_item_close
/// @return 0, 8, 87, the expander's
SYSMAINT_API int32_t sysmaint_item_file(const wchar_t* path, int32_t expand, sysmaint_item** item);
/// The folder of that path, in the same way.
///
/// @param expand  not 0: folder macros in the path are expanded
/// @param item    receives the handle
/// @return 0, 8, 87, the expander's
SYSMAINT_API int32_t sysmaint_item_folder(const wchar_t* path, int32_t expand, sysmaint_item** item);
/// The registry key below a root.
///
/// @param root     an HKEY: a root key or an open key
/// @param key      path below it
/// @param options  SYSMAINT_REGISTRY_...
/// @param item     receives the handle
/// @return 0, 8, 87
SYSMAINT_API int32_t sysmaint_item_registry_key(void* root, const wchar_t* key, uint32_t options,
                                                sysmaint_item** item);
/// The value of a registry key.
///
/// @param root     an HKEY: a root key or an open key
/// @param key      path below it
/// @param name     the value's; empty: the key's unnamed value
/// @param options  SYSMAINT_REGISTRY_...
/// @param item     receives the handle
/// @return 0, 8, 87
SYSMAINT_API int32_t sysmaint_item_registry_value(void* root, const wchar_t* key, const wchar_t* name,
                                                  uint32_t options, sysmaint_item** item);
/// A file on an FTP server. Nothing is sent before the item is used.
///
/// @param ftp   stays open while the item is used
/// @param path  from the server's root, with slashes
/// @param item  receives the handle; close it with sysmaint_item_close
/// @return 0, 6, 8, 87 (also a path that is empty, ends in a slash, or has "." or "..", a backslash or a
///         control character)
SYSMAINT_API int32_t sysmaint_item_ftp_file(sysmaint_ftp* ftp, const wchar_t* path, sysmaint_item** item);
/// The item that sysmaint_item_dump has written. Items on FTP servers are not connected then (2250).
///
/// @param bytes  `size` bytes, which are not trusted
/// @param item   receives the handle
/// @return 0, 8, 13 (bytes of no item), 30 (too few bytes), 87
SYSMAINT_API int32_t sysmaint_item_load(const void* bytes, uint64_t size, sysmaint_item** item);
/// Another handle of the same item, which outlives the callback that got the first.
///
/// @param kept  receives the handle; close it with sysmaint_item_close
/// @return 0, 6, 8, 87
SYSMAINT_API int32_t sysmaint_item_keep(sysmaint_item* item, sysmaint_item** kept);
/// Shares an item with C++ code (OpenScanItem) and others that know the name, until the sharing ends. What is
/// shared under the name and the item's path already stays, and is shared once more instead.
///
/// @param name    any; a path of the form "name\path" finds the item
/// @param shared  receives the handle; end it with sysmaint_item_unshare
/// @return 0, 6, 8, 87, 183 (another kind of item is shared as that, or one that means something else by now)
SYSMAINT_API int32_t sysmaint_item_share(sysmaint_item* item, const wchar_t* name,
                                         sysmaint_shared_item** shared);
/// The item that is shared under the name with that path: by sysmaint_item_share, by the C++ functions that
/// register items, or as a root of a C++ scan engine under the engine's name.
///
/// @param path  as the item's path is; of registry values with their names
/// @param item  receives the handle; close it with sysmaint_item_close. It outlives the sharing
/// @return 0, 6, 8, 87, 1168 (no such item)
SYSMAINT_API int32_t sysmaint_item_find(const wchar_t* name, const wchar_t* path, sysmaint_item** item);
/// Ends the sharing. The item stays found as long as somebody else shares it.
///
/// @return 0, 6
SYSMAINT_API int32_t sysmaint_item_unshare(sysmaint_shared_item* shared);
/// Closes the handle. The handle that a callback gets is closed for it: at the latest when
/// it is called again, or its scan ends.
///
/// @return 0, 6
SYSMAINT_API int32_t sysmaint_item_close(sysmaint_item* item);

/// The item's type.
///
/// @param type  receives SYSMAINT_ITEM_...
/// @return 0, 6, 87
SYSMAINT_API int32_t sysmaint_item_type(sysmaint_item* item, uint32_t* type);
/// The item's path: as it was given, or of what a scan found.
///
/// @param path  receives the text; owned by the item, valid until its last handle is closed
/// @return 0, 6, 87, 8
SYSMAINT_API int32_t sysmaint_item_path(sysmaint_item* item, const wchar_t** path);
/// How far below the root of its scan a folder or key was found: 1 for what is in the root, 0 for an item
/// that was made of a name.
///
/// @param level  receives it
/// @return 0, 6, 87, 120
SYSMAINT_API int32_t sysmaint_item_level(sysmaint_item* item, uint32_t* level);
/// The HKEY that a registry item is opened under: its root, or for HKEY_CURRENT_USER the hive of the current
/// user, whom SetCurrentUserSession determines.
///
/// @param root  receives it; owned by the item, valid until its last handle is closed
/// @return 0, 6, 87, 120, or the system's code
SYSMAINT_API int32_t sysmaint_item_root(sysmaint_item* item, void** root);
/// Whether the server lists a file as a link. Downloading follows it, deleting does not.
///
/// @param is  receives 0 or 1; 0 for an item that was made of a name
/// @return 0, 6, 87, 120 (no file on an FTP server)
SYSMAINT_API int32_t sysmaint_item_is_link(sysmaint_item* item, int32_t* is);
/// The name of a registry value.
///
/// @param name  receives the text; owned by the item, valid until its last handle is closed
/// @return 0, 6, 87, 120
SYSMAINT_API int32_t sysmaint_item_value_name(sysmaint_item* item, const wchar_t** name);
/// The type of a registry value, REG_SZ and the like.
///
/// @return 0, 6, 87, 120, or the system's code
SYSMAINT_API int32_t sysmaint_item_value_type(sysmaint_item* item, uint32_t* type);
/// The size of a file as the scan has seen it, otherwise as it is now; of a registry value's data.
///
/// @param bytes  receives it
/// @return 0, 6, 87, 120, or the system's or the server's code
SYSMAINT_API int32_t sysmaint_item_size(sysmaint_item* item, uint64_t* bytes);
/// Whether the item exists.
///
/// @param exists  receives 0 or 1
/// @return 0, 6, 87, or the system's or the server's code
SYSMAINT_API int32_t sysmaint_item_exists(sysmaint_item* item, int32_t* exists);
/// Whether a folder has folders, or a key has keys, that are no links.
///
/// @param has  receives 0 or 1
/// @return 0, 6, 87, 120, 1223, or the system's or the server's code
SYSMAINT_API int32_t sysmaint_item_has_containers(sysmaint_item* item, void* cancel_event, int32_t* has);
/// Whether a validator accepts the item.
///
/// @param accepts  receives 0 or 1
/// @return 0, 6 (either handle), 87
SYSMAINT_API int32_t sysmaint_item_matches(sysmaint_item* item, sysmaint_validator* validator,
                                           int32_t* accepts);
/// The content of a file or of a registry value, as a copy to be released with utilsFreeMemory. It is read at
/// the first call and kept by the item. A file that is missing is created, empty: ask sysmaint_item_exists
/// first where that matters.
///
/// @param bytes  receives the buffer
/// @param size   receives how many bytes
/// @return 0, 6, 8, 87, 120, or the system's code
SYSMAINT_API int32_t sysmaint_item_read(sysmaint_item* item, void** bytes, uint64_t* size);
/// Writes the content of a file or of a registry value: creates it, or replaces what is there. It is what
/// sysmaint_item_read returns from then on; after a failure that returns what it would have without.
///
/// @param value_type  the type of a registry value, REG_SZ and the like; 0 for a file
/// @param bytes       may be null when `size` is 0
/// @return 0, 5, 6, 8, 87, 120, 206, or the system's code
SYSMAINT_API int32_t sysmaint_item_write(sysmaint_item* item, uint32_t value_type, const void* bytes,
                                         uint64_t size);
/// Creates a folder, or a key with its parents. Nothing happens to a key that exists; a folder gives 183.
///
/// @return 0, 6, 8, 120, or the system's code
SYSMAINT_API int32_t sysmaint_item_create(sysmaint_item* item);
/// DELETES the item from the system: a file, an empty folder, a registry value, a registry key with all that
/// is below it, a file from its server. Of a link only the link.
///
/// @param cancel_event  polled once before, and during the call for files on FTP servers only; may be null
/// @return 0, 6, 8, 1223, or the system's or the server's code
SYSMAINT_API int32_t sysmaint_item_delete(sysmaint_item* item, void* cancel_event);
/// Copies a file from its FTP server into a local one.
///
/// @param local_path  a new file; or with `go_on` not 0 one that an earlier download has left
/// @return 0, 6, 8, 13, 80, 87, 120, 681, 1223, 2250, or a code of core/win32/utils/ftp/api.h
SYSMAINT_API int32_t sysmaint_item_download(sysmaint_item* item, const wchar_t* local_path, int32_t go_on,
                                            void* cancel_event);
/// Replaces a file on its FTP server by the content of a local one.
///
/// @return 0, 6, 8, 87, 120, 1223, 2250, or a code of core/win32/utils/ftp/api.h
SYSMAINT_API int32_t sysmaint_item_upload(sysmaint_item* item, const wchar_t* local_path, void* cancel_event);
/// The item in serialized form, as a buffer to be released with utilsFreeMemory.
///
/// @param bytes  receives the buffer
/// @param size   receives how many bytes
/// @return 0, 6, 8, 87
SYSMAINT_API int32_t sysmaint_item_dump(sysmaint_item* item, void** bytes, uint64_t* size);

// ---- Scans: folders, registry keys, or folders on FTP servers as roots, walked breadth-first on the calling
// thread. win32/scanengine/include/IScanPath.h and the engines in core/win32/utils/scanengine/api.h and
// core/win32/utils/ftp/api.h describe the walk. A scan has no name, and C++ code cannot reach it.

typedef struct sysmaint_scan sysmaint_scan;

#define SYSMAINT_SCAN_FOLDERS 1u
#define SYSMAINT_SCAN_REGISTRY 2u
#define SYSMAINT_SCAN_FTP 3u

#define SYSMAINT_FOUND_LEAF 0u      ///< a file or a registry value
#define SYSMAINT_FOUND_CONTAINER 1u ///< a folder or a registry key
#define SYSMAINT_FOUND_UNLISTED 2u ///< a container that could not be listed completely, for the reason `code`

/// How far a scan goes.
typedef struct sysmaint_scan_options
{
    uint32_t size;
    uint32_t depth; ///< levels to list: 1 only the roots; 0 all, down to 65,535
} sysmaint_scan_options;

/// What a scan has found.
typedef struct sysmaint_found
{
    uint32_t size;
    uint32_t kind; ///< SYSMAINT_FOUND_...
    uint32_t type; ///< SYSMAINT_ITEM_...
    int32_t code;  ///< why it could not be listed; otherwise 0
    const wchar_t* path;
    sysmaint_item* item; ///< for the functions above; sysmaint_item_keep makes it last
} sysmaint_found;

/// Called for each item that the validator accepts, and for each container that cannot be listed.
typedef int32_t (*sysmaint_scan_callback)(void* context, const sysmaint_found* found);

/// Creates a scan without roots.
///
/// @param kind  SYSMAINT_SCAN_...: what its roots will be
/// @param scan  receives the handle; close it with sysmaint_scan_close
/// @return 0, 8, 87 (also another kind)
SYSMAINT_API int32_t sysmaint_scan_create(uint32_t kind, sysmaint_scan** scan);
/// Appends a root folder, which need not exist yet. A folder that is added twice is walked twice.
///
/// @param expand  not 0: folder macros in the path are expanded
/// @return 0, 6, 8, 87 (also an empty path), 120 (a scan of another kind), the expander's
SYSMAINT_API int32_t sysmaint_scan_add_folder(sysmaint_scan* scan, const wchar_t* path, int32_t expand);
/// Appends a root key.
///
/// @param root     an HKEY: a root key, or a key that stays open
/// @param key      path below it, may be empty
/// @param options  SYSMAINT_REGISTRY_..., also for all that is found below
/// @return 0, 6, 8, 87, 120 (a scan of another kind)
SYSMAINT_API int32_t sysmaint_scan_add_key(sysmaint_scan* scan, void* root, const wchar_t* key,
                                           uint32_t options);
/// Appends a folder on an FTP server. Nothing is sent before the scan.
///
/// @param account  is copied
/// @param path     from the server's root, with slashes
/// @return 0, 6, 8, 87, 120 (a scan of another kind)
SYSMAINT_API int32_t sysmaint_scan_add_ftp_folder(sysmaint_scan* scan, const sysmaint_ftp_account* account,
                                                  const wchar_t* path);
/// Removes all roots.
///
/// @return 0, 6, 8
SYSMAINT_API int32_t sysmaint_scan_clear(sysmaint_scan* scan);
/// Walks every root in the order added, on the calling thread.
///
/// @param options       null: all levels
/// @param validator     null accepts everything
/// @param cancel_event  polled before each container, each entry and each call of the callback
/// @param callback      must not be null. It may delete what it is told of, change and close the scan, and
///                      run others; its scan goes on with the roots that it began with
/// @param context       for the callback
/// @return 0; 6 (also when a root was removed meanwhile); 8; 87; 170 (the scan is running, perhaps as the
///         caller of this callback); 1223; the callback's result; the system's code at once for a root that
///         cannot be opened; or, when all was walked, that of the first container that could not be listed
SYSMAINT_API int32_t sysmaint_scan_run(sysmaint_scan* scan, const sysmaint_scan_options* options,
                                       sysmaint_validator* validator, void* cancel_event,
                                       sysmaint_scan_callback callback, void* context);
/// Closes the handle. A run in progress goes on.
///
/// @return 0, 6
SYSMAINT_API int32_t sysmaint_scan_close(sysmaint_scan* scan);

// ---- Wiping. THIS DESTROYS DATA. win32/wiper/include/IWiper.h describes what is overwritten, what is not
// reached, and how links and files with several names are treated.

typedef struct sysmaint_wiper sysmaint_wiper;

#define SYSMAINT_WIPE_VOLUME 2u     ///< a whole volume: everything on it is lost
#define SYSMAINT_WIPE_FILE 5u       ///< one file
#define SYSMAINT_WIPE_FREE_SPACE 6u ///< the remains of deleted files in the free space of a volume

#define SYSMAINT_WIPE_ZEROS 1u
#define SYSMAINT_WIPE_RANDOM_TEXT 2u
#define SYSMAINT_WIPE_GUTMANN 3u         ///< 35 passes
#define SYSMAINT_WIPE_CLOUD_FILES 0x100u ///< added: also files whose content is elsewhere, which is fetched

/// How a wiper overwrites.
typedef struct sysmaint_wipe_options
{
    uint32_t size;
    uint32_t method; ///< SYSMAINT_WIPE_ZEROS and the like
    uint32_t passes; ///< how often everything is overwritten; 0: files are only truncated and deleted
    uint32_t reserved;
    uint64_t total; ///< bytes expected in all, for the callback; the call corrects it
} sysmaint_wipe_options;

/// How far a wiper is.
typedef struct sysmaint_wipe_progress
{
    uint32_t size;
    uint32_t reserved;
    uint64_t done;  ///< bytes that are overwritten and flushed; see WipeProgress
    uint64_t total; ///< bytes expected in all
} sysmaint_wipe_progress;

/// Called after every chunk of 1 MiB. A result other than 0 ends the call as the cancel event does: a file
/// that is open is deleted, however much of it was overwritten, and goes on no list.
typedef int32_t (*sysmaint_wipe_callback)(void* context, const sysmaint_wipe_progress* progress);

/// An entry of a tree to be wiped.
typedef struct sysmaint_wipe_entry
{
    uint32_t size;
    uint32_t is_folder;    ///< 0 or 1
    const wchar_t* path;   ///< a folder's full path; a file's name
    const wchar_t* folder; ///< the full path of a file's folder; ignored for a folder, may be null then
} sysmaint_wipe_entry;

/// Creates a wiper. It serves one call at a time and may be used again.
///
/// @param wiper  receives the handle; close it with sysmaint_wiper_close
/// @return 0, 8, 87
SYSMAINT_API int32_t sysmaint_wiper_create(sysmaint_wiper** wiper);
/// Destroys one thing.
///
/// @param kind          SYSMAINT_WIPE_FILE, SYSMAINT_WIPE_FREE_SPACE or SYSMAINT_WIPE_VOLUME
/// @param path          the file; a folder or a volume with its closing backslash ("D:\")
/// @param options       must not be null
/// @param validator     a file or volume that it refuses is left alone (0); null accepts everything
/// @param cancel_event  may be null
/// @param callback      may be null
/// @param context       for the callback
/// @return 0; 87 (also another kind, method or size of a struct); 170 (the wiper is in a call, which may be
///         the caller of this callback); 1223; the callback's result; otherwise a code of IWiper::Wipe
SYSMAINT_API int32_t sysmaint_wiper_wipe(sysmaint_wiper* wiper, uint32_t kind, const wchar_t* path,
                                         const sysmaint_wipe_options* options, sysmaint_validator* validator,
                                         void* cancel_event, sysmaint_wipe_callback callback, void* context);
/// Destroys the files and folders that the caller lists, the last entry first: so a folder stands before what
/// is in it. Folders must be empty by then. Nothing goes on the boot-time list. Ends at the first entry that
/// fails.
///
/// @param root     entries below this folder are protected against links on the way; see IWiper
/// @param entries  `count` structs; may be null when `count` is 0
/// @param left     receives how many entries were not handled: the first ones of the array, the last of which
///                 failed; may be null. It is set whenever the call has begun to wipe, also when it fails;
///                 set it to `count` before
/// @return as sysmaint_wiper_wipe
SYSMAINT_API int32_t sysmaint_wiper_wipe_entries(sysmaint_wiper* wiper, const wchar_t* root,
                                                 const sysmaint_wipe_entry* entries, uint64_t count,
                                                 const sysmaint_wipe_options* options, void* cancel_event,
                                                 sysmaint_wipe_callback callback, void* context,
                                                 uint64_t* left);
/// Whether something was meant for the boot-time list, or a volume could not be wiped, since the wiper was
/// created or `sysmaint_wiper_clear_needs_restart` was called.
///
/// @param needs  receives 0 or 1
/// @return 0, 6, 87
SYSMAINT_API int32_t sysmaint_wiper_needs_restart(sysmaint_wiper* wiper, int32_t* needs);
/// Forgets that.
///
/// @return 0, 6
SYSMAINT_API int32_t sysmaint_wiper_clear_needs_restart(sysmaint_wiper* wiper);
/// Closes the handle. A call in progress goes on.
///
/// @return 0, 6
SYSMAINT_API int32_t sysmaint_wiper_close(sysmaint_wiper* wiper);

/// Overwrites what deleted files left in a volume's file table; see WipeFileTable
/// (core/win32/utils/wiper/api.h), whose codes are returned.
///
/// @param volume        a folder with its closing backslash, such as "D:\"
/// @param cancel_event  may be null
/// @param callback      called after every 256 files; may be null
/// @param context       for the callback
/// @return as WipeFileTable; or the callback's result
SYSMAINT_API int32_t sysmaint_wipe_file_table(const wchar_t* volume, void* cancel_event,
                                              sysmaint_wipe_callback callback, void* context);

// ---- Messages: a topic, a number that the sender chooses, and content. A message is used by one thread at a
// time.

typedef struct sysmaint_message sysmaint_message;

#define SYSMAINT_MESSAGE_PLAIN 0u      ///< without content
#define SYSMAINT_MESSAGE_DATA 1u       ///< with bytes
#define SYSMAINT_MESSAGE_ARRAY 2u      ///< with a list of elements, each of bytes
#define SYSMAINT_MESSAGE_PARAMETERS 3u ///< with named parameters, each of bytes

/// What every message has.
typedef struct sysmaint_message_info
{
    uint32_t size;
    uint32_t kind;         ///< SYSMAINT_MESSAGE_...
    uint32_t id;           ///< the sender's number
    uint32_t topic_number; ///< of a numbered topic; otherwise 0
    const wchar_t* topic;  ///< its name, owned by the message; null for a numbered topic, and without a name
} sysmaint_message_info;

/// Creates an empty message. Topics deliver what they are given, whatever topic the message names.
///
/// @param kind     SYSMAINT_MESSAGE_...
/// @param topic    is copied; may be null
/// @param id       the sender's number
/// @param message  receives the handle; close it with sysmaint_message_close
/// @return 0, 8, 87 (also another kind)
SYSMAINT_API int32_t sysmaint_message_create(uint32_t kind, const wchar_t* topic, uint32_t id,
                                             sysmaint_message** message);
/// The same for a topic that is known by its number.
///
/// @return 0, 8, 87
SYSMAINT_API int32_t sysmaint_message_create_numbered(uint32_t kind, uint32_t topic, uint32_t id,
                                                      sysmaint_message** message);
/// A copy of a message, also of one that a callback has got.
///
/// @param copy  receives the handle; close it with sysmaint_message_close
/// @return 0, 6, 8, 87
SYSMAINT_API int32_t sysmaint_message_copy(sysmaint_message* message, sysmaint_message** copy);
/// The message that sysmaint_message_dump has written.
///
/// @param kind     the message's: the bytes do not say it
/// @param bytes    `size` bytes, which are not trusted
/// @param message  receives the handle; close it with sysmaint_message_close
/// @return 0, 8, 13 (more bytes than the message has), 30 (no such message), 87
SYSMAINT_API int32_t sysmaint_message_load(uint32_t kind, const void* bytes, uint64_t size,
                                           sysmaint_message** message);
/// The message in serialized form, as a buffer to be released with utilsFreeMemory.
///
/// @param bytes  receives the buffer
/// @param size   receives how many bytes
/// @return 0, 6, 8, 87, 487 (C++ code has put an empty element into an array)
SYSMAINT_API int32_t sysmaint_message_dump(sysmaint_message* message, void** bytes, uint64_t* size);
/// Kind, number and topic of a message.
///
/// @param info  set its size first
/// @return 0, 6, 87 (also another size)
SYSMAINT_API int32_t sysmaint_message_get_info(sysmaint_message* message, sysmaint_message_info* info);
/// Changes the number of a message, that of a reply for example.
///
/// @return 0, 6
SYSMAINT_API int32_t sysmaint_message_set_id(sysmaint_message* message, uint32_t id);
/// Replaces the bytes of a message with bytes.
///
/// @param bytes  are copied; may be null when `size` is 0
/// @return 0, 6, 8, 87, 120 (another kind)
SYSMAINT_API int32_t sysmaint_message_set_data(sysmaint_message* message, const void* bytes, uint64_t size);
/// The bytes of a message with bytes.
///
/// @param bytes  receives them; owned by the message, valid until it is changed or closed; null without any
/// @param size   receives how many bytes
/// @return 0, 6, 87, 120 (another kind)
SYSMAINT_API int32_t sysmaint_message_data(sysmaint_message* message, const void** bytes, uint64_t* size);
/// Appends an element to a message with elements.
///
/// @param bytes  are copied; must not be null
/// @return 0, 6, 8, 87, 120 (another kind)
SYSMAINT_API int32_t sysmaint_message_add_element(sysmaint_message* message, const void* bytes,
                                                  uint64_t size);
/// An element of a message.
///
/// @param index  from 0
/// @param bytes  receives them; owned by the message, valid until it is closed
/// @param size   receives how many bytes
/// @return 0, 6, 87, 120 (another kind, or an element of C++ code that is more than bytes), 259 (no more)
SYSMAINT_API int32_t sysmaint_message_element(sysmaint_message* message, uint64_t index, const void** bytes,
                                              uint64_t* size);
/// Sets a parameter, replacing one of that name.
///
/// @param name   is copied; compared exactly
/// @param bytes  are copied; must not be null
/// @return 0, 6, 8, 87, 120 (another kind)
SYSMAINT_API int32_t sysmaint_message_set_parameter(sysmaint_message* message, const wchar_t* name,
                                                    const void* bytes, uint64_t size);
/// Sets a parameter to the 4 bytes of a number.
///
/// @return 0, 6, 8, 87, 120 (another kind)
SYSMAINT_API int32_t sysmaint_message_set_number(sysmaint_message* message, const wchar_t* name,
                                                 uint32_t number);
/// Sets a parameter to a text with its terminator.
///
/// @return 0, 6, 8, 87, 120 (another kind)
SYSMAINT_API int32_t sysmaint_message_set_text(sysmaint_message* message, const wchar_t* name,
                                               const wchar_t* text);
/// The bytes of a parameter.
///
/// @param bytes  receives them; owned by the message, valid until the parameter is set again or the message
///               is closed
/// @param size   receives how many bytes
/// @return 0, 6, 87, 120 (another kind), 1168 (no such parameter)
SYSMAINT_API int32_t sysmaint_message_parameter(sysmaint_message* message, const wchar_t* name,
                                                const void** bytes, uint64_t* size);
/// A parameter that is a number.
///
/// @return 0, 6, 87 (also a parameter that is not 4 bytes long), 120 (another kind), 1168 (no such parameter)
SYSMAINT_API int32_t sysmaint_message_number(sysmaint_message* message, const wchar_t* name,
                                             uint32_t* number);
/// A parameter that is a text.
///
/// @param text  receives it; owned by the message, as above
/// @return 0, 6, 87 (also a parameter that is no text), 120 (another kind), 1168 (no such parameter)
SYSMAINT_API int32_t sysmaint_message_text(sysmaint_message* message, const wchar_t* name,
                                           const wchar_t** text);
/// The parameters one by one, in the order of their names.
///
/// @param index  from 0
/// @param name   receives the name; owned by the message, valid until its parameters change
/// @param bytes  receives the value, as above
/// @param size   receives how many bytes
/// @return 0, 6, 87, 120 (another kind), 259 (no more)
SYSMAINT_API int32_t sysmaint_message_parameter_at(sysmaint_message* message, uint64_t index,
                                                   const wchar_t** name, const void** bytes, uint64_t* size);
/// Removes bytes, elements or parameters.
///
/// @return 0, 6
SYSMAINT_API int32_t sysmaint_message_clear(sysmaint_message* message);
/// Closes the handle. The handles that a callback gets are closed for it when it returns.
///
/// @return 0, 6
SYSMAINT_API int32_t sysmaint_message_close(sysmaint_message* message);

// ---- Thread pools, shared with C++ code by their names. core/win32/utils/threadpool/api.h describes them.

typedef struct sysmaint_pool sysmaint_pool;

#define SYSMAINT_SCOPE_CATEGORY 0u ///< a whole category
#define SYSMAINT_SCOPE_WORK 1u     ///< all work with a key
#define SYSMAINT_SCOPE_INSTANCE 2u ///< one queued item

/// What an operation of a pool is about.
typedef struct sysmaint_work_key
{
    uint32_t size;
    uint32_t scope;           ///< SYSMAINT_SCOPE_...
    const wchar_t* category;  ///< its name; null: the two numbers count and not the names
    const wchar_t* work;      ///< its name
    uint32_t category_number; ///< only without a name
    uint32_t work_number;     ///< only without names
    void* instance;           ///< as sysmaint_pool_queue returned it
} sysmaint_work_key;

/// The threads of a category.
typedef struct sysmaint_category_options
{
    uint32_t size;
    uint32_t maximum_threads; ///< 0xFFFFFFFF: no limit; 0: none, nothing runs
    uint32_t is_suspended;    ///< 1: its work begins only when it is resumed
    int32_t priority;         ///< a Win32 thread priority
    uint64_t stack_size;      ///< in bytes; 0 is the system's
} sysmaint_category_options;

#define SYSMAINT_QUEUE_AT_END 0u
#define SYSMAINT_QUEUE_AT_FRONT 1u
#define SYSMAINT_QUEUE_ONLY_IF_FREE 2u ///< not at all (1003) when no thread is free

#define SYSMAINT_CANCEL_AND_RETURN 0u
#define SYSMAINT_CANCEL_AND_WAIT 1u
#define SYSMAINT_DROP_QUEUED 2u ///< leaves running work alone

/// What running work knows of itself.
typedef struct sysmaint_work
{
    uint32_t size;
    uint32_t number;             ///< its key, if that is no name
    const wchar_t* name;         ///< its key, if that is a name; otherwise null
    void* cancel_event;          ///< poll it and return early when it is signalled; do not close it
    sysmaint_message* arguments; ///< its own copy of the parameters that it was queued with
} sysmaint_work;

/// Work, on a thread of the pool. The result is the work's own code (sysmaint_pool_result).
typedef int32_t (*sysmaint_work_callback)(void* context, const sysmaint_work* work);

/// Creates the pool of that name, or opens it.
///
/// @param pool  receives the handle; close it with sysmaint_pool_close
/// @return 0, 8, 87
SYSMAINT_API int32_t sysmaint_pool_create(const wchar_t* name, sysmaint_pool** pool);
/// Opens the pool of that name.
///
/// @param pool  receives the handle; close it with sysmaint_pool_close
/// @return 0, 8, 87, 1168 (no such pool)
SYSMAINT_API int32_t sysmaint_pool_open(const wchar_t* name, sysmaint_pool** pool);
/// Closes the handle. The last one cancels the pool's work and waits for it, except for the work that makes
/// the call; see THPCloseThreadpool.
///
/// @return 0, 6, or the system's code when work could not be told
SYSMAINT_API int32_t sysmaint_pool_close(sysmaint_pool* pool);
/// Creates a category.
///
/// @param key      scope SYSMAINT_SCOPE_CATEGORY
/// @param options  must not be null
/// @return 0, 6, 8, 87, 183 (it exists), 1115
SYSMAINT_API int32_t sysmaint_pool_create_category(sysmaint_pool* pool, const sysmaint_work_key* key,
                                                   const sysmaint_category_options* options);
/// Queues work. A category that does not exist is created, without a limit on threads.
///
/// @param key        scope SYSMAINT_SCOPE_WORK
/// @param callback   is called once, unless the work is cancelled before
/// @param context    for the callback; it must live until the work has ended
/// @param arguments  a message with parameters, which is copied; may be null
/// @param option     SYSMAINT_QUEUE_...
/// @param instance   receives what identifies this work, before it begins; may be null
/// @return 0, 6 (either handle), 8, 87, 120 (a message of another kind), 1003, 1115, or a code of
///         THPQueueWork
SYSMAINT_API int32_t sysmaint_pool_queue(sysmaint_pool* pool, const sysmaint_work_key* key,
                                         sysmaint_work_callback callback, void* context,
                                         sysmaint_message* arguments, uint32_t option, void** instance);
/// Suspends a category, or work that is running.
///
/// @param key  scope SYSMAINT_SCOPE_CATEGORY or SYSMAINT_SCOPE_WORK
/// @return 0, 6, 8, 87, 170, 1115, 1168, 5023; see THPSuspendWork
SYSMAINT_API int32_t sysmaint_pool_suspend(sysmaint_pool* pool, const sysmaint_work_key* key);
/// Resumes it.
///
/// @param key  scope SYSMAINT_SCOPE_CATEGORY or SYSMAINT_SCOPE_WORK
/// @return 0, 6, 8, 87, 1115, 1168
SYSMAINT_API int32_t sysmaint_pool_resume(sysmaint_pool* pool, const sysmaint_work_key* key);
/// Cancels work.
///
/// @param key        of any scope; null: all work of the pool, which is not waited for
/// @param operation  SYSMAINT_CANCEL_... or SYSMAINT_DROP_QUEUED; without a key 0
/// @return 0, 6, 8, 87, 1115, 1131, 1168; see THPCancelWork
SYSMAINT_API int32_t sysmaint_pool_cancel(sysmaint_pool* pool, const sysmaint_work_key* key,
                                          uint32_t operation);
/// Waits for the work that is queued or running now.
///
/// @param key    of any scope
/// @param extra  a handle of the system's that ends the wait (1223); may be null
/// @return 0, 6, 8, 87, 258 (timeout), 1115, 1131, 1168, 1223 (some of it was cancelled); see THPWait
SYSMAINT_API int32_t sysmaint_pool_wait(sysmaint_pool* pool, const sysmaint_work_key* key, uint32_t timeout,
                                        void* extra);
/// How the latest run of the work, or the run of an instance, ended.
///
/// @param key     scope SYSMAINT_SCOPE_WORK or SYSMAINT_SCOPE_INSTANCE
/// @param result  receives the callback's result, or 1223 when it was cancelled
/// @return 0, 6, 8, 87, 170 (it has not ended), 1115, 1168
SYSMAINT_API int32_t sysmaint_pool_result(sysmaint_pool* pool, const sysmaint_work_key* key, int32_t* result);
/// Whether such work is queued or running.
///
/// @param key      of any scope
/// @param running  receives 0 or 1
/// @return 0, 6, 8, 87, 1115, 1168
SYSMAINT_API int32_t sysmaint_pool_is_running(sysmaint_pool* pool, const sysmaint_work_key* key,
                                              int32_t* running);

// ---- Topics: named channels for messages inside the process, shared with C++ code. core/win32/utils/
// communication/api.h describes them.

typedef struct sysmaint_topic sysmaint_topic;
typedef struct sysmaint_subscription sysmaint_subscription;

#define SYSMAINT_ROLE_HANDLER 0u
#define SYSMAINT_ROLE_FILTER 1u ///< sees each message before the handlers do and may refuse it

/// A message as it reaches a subscriber.
typedef struct sysmaint_delivery
{
    uint32_t size;
    uint32_t has_value; ///< 1: a value travels with the message
    uint32_t value;
    uint32_t reserved;
    sysmaint_message* message; ///< a copy
    sysmaint_message* reply;   ///< of the message's kind; the sender gets what it holds at the return
    void* sender_context;      ///< the sender's, untouched; null for posted messages
} sysmaint_delivery;

/// Called for each message: on the sender's thread, or for posted messages on that of the topic's consumer. A
/// result other than 0 ends the delivery, and is what the sender's call returns.
typedef int32_t (*sysmaint_message_callback)(void* context, const sysmaint_delivery* delivery);

/// Creates the topic of that name, or opens it. A topic known by a number has the name "#" and its digits.
///
/// @param topic  receives the handle; close it with sysmaint_topic_close
/// @return 0, 8, 87
SYSMAINT_API int32_t sysmaint_topic_create(const wchar_t* name, sysmaint_topic** topic);
/// Opens the topic of that name.
///
/// @param topic  receives the handle; close it with sysmaint_topic_close
/// @return 0, 8, 87, 1168 (no such topic)
SYSMAINT_API int32_t sysmaint_topic_open(const wchar_t* name, sysmaint_topic** topic);
/// The topic's name.
///
/// @param name  receives the text; owned by the topic, valid until the handle is closed
/// @return 0, 6, 87
SYSMAINT_API int32_t sysmaint_topic_name(sysmaint_topic* topic, const wchar_t** name);
/// Closes the handle. Subscriptions of this interface keep their topic open. The last handle or subscription
/// closes the topic; see CloseMessageTopic.
///
/// @return 0, 6, or the system's code when the consumer could not be told
SYSMAINT_API int32_t sysmaint_topic_close(sysmaint_topic* topic);
/// Subscribes a callback.
///
/// @param role          SYSMAINT_ROLE_...
/// @param callback      must not be null
/// @param context       for the callback
/// @param subscription  receives the handle; end it with sysmaint_topic_unsubscribe
/// @return 0, 6, 8, 87, 1115
SYSMAINT_API int32_t sysmaint_topic_subscribe(sysmaint_topic* topic, uint32_t role,
                                              sysmaint_message_callback callback, void* context,
                                              sysmaint_subscription** subscription);
/// Ends a subscription. After the return the callback is not called any more and its context may go, unless
/// the call comes from inside a delivery of the topic: then other threads may just be calling it. The topic's
/// consumer is stopped for it and begins again with the next post.
///
/// @return 0; 6; 258 or 1131 (it is still called, see TopicUnsubscribe; the subscription goes on); 1115; or
///         the pool's code
SYSMAINT_API int32_t sysmaint_topic_unsubscribe(sysmaint_subscription* subscription, uint32_t timeout);
/// Delivers a message at once, on the calling thread.
///
/// @param message  any message
/// @param reply    of the same kind; subscribers find it as it is, and may change it; may be null
/// @param value    travels with the message; null: none. 0xFFFFFFFF counts as none
/// @param context  for the subscribers
/// @return 0, 6 (any handle), 8, 87, 120 (a reply of another kind), 1115, or what a subscriber returned or
///         raised
SYSMAINT_API int32_t sysmaint_topic_send(sysmaint_topic* topic, sysmaint_message* message,
                                         sysmaint_message* reply, const uint32_t* value, void* context);
/// Queues a copy of a message; the topic's consumer delivers it.
///
/// @param value  travels with the message; null: none
/// @return 0, 6 (either handle), 8, 1115, or a code of TopicPostMessage
SYSMAINT_API int32_t sysmaint_topic_post(sysmaint_topic* topic, sysmaint_message* message,
                                         const uint32_t* value);
/// Waits until every queued message has been delivered.
///
/// @return 0, 6, 258, 1115, 1131, 1223; see TopicConsumeAll
SYSMAINT_API int32_t sysmaint_topic_consume_all(sysmaint_topic* topic, uint32_t timeout);
/// Stops the consumer after the delivery in progress, without waiting for it.
///
/// @return 0, 6, 1115, or the pool's code
SYSMAINT_API int32_t sysmaint_topic_stop_consumer(sysmaint_topic* topic);

// ---- The families below have C++ handles, because most of their functions are plain C; see the end of this
// file. Such a handle is a void*, or the invalid handle (INVALID_HANDLE_VALUE) where a function that keeps
// its C++ name has failed, with its code as the system's last error. Named objects are shared with C++ code,
// and opening one again gives the same handle. The number of a closed handle is given out again.

// ---- Analysis of hives: how much each loaded registry hive would shrink if it were rewritten compactly.
// core/win32/registry/defragmenter/plain.h describes it, and has CreateRegistryDefragmenter and
// CloseRegistryDefragmenter. `defragmenter` is that handle.

/// A loaded hive, and what is known of it.
typedef struct sysmaint_hive
{
    uint32_t size;
    int32_t code;              ///< why it could not be measured; 0 when it was, and in the list
    const wchar_t* mount_name; ///< the key that it is loaded as, such as "\REGISTRY\MACHINE\SOFTWARE"
    const wchar_t* path;       ///< its file; without a drive letter in the system's form
    const wchar_t* report;     ///< with a code: where and why, for a log; otherwise empty
    uint64_t old_size;         ///< bytes of the live hive, in whole clusters; 0 in the list and with a code
    uint64_t new_size;         ///< bytes of the compacted hive
} sysmaint_hive;

typedef int32_t (*sysmaint_hive_callback)(void* context, const sysmaint_hive* hive);

/// Lists the loaded hives that have a file, in the system's order.
///
/// @param callback  called for each
/// @param context   for the callback
/// @return 0, 8, 87, 2 (the system has no list), the callback's result, or the system's code
SYSMAINT_API int32_t sysmaint_hive_list(sysmaint_hive_callback callback, void* context);
/// The same list in the form that DumpHiveList in core/win32/registry/defragmenter/api.h describes, as a
/// buffer to be released with utilsFreeMemory.
///
/// @param bytes  receives the buffer
/// @param size   receives how many bytes
/// @return 0, 8, 87, 2 (the system has no list), or the system's code
SYSMAINT_API int32_t sysmaint_hive_list_dump(void** bytes, uint64_t* size);
/// Analyzes all loaded hives; see RegistryDefragmenterAnalyze in core/win32/registry/defragmenter/api.h.
///
/// @param stop_event  a manual-reset event that ends the analysis, also in the middle of a hive; may be null
/// @param callback    called after each hive, on the pool's thread, which has idle priority, while this call
///                    waits; may be null. A result other than 0 ends the analysis before the next hive. The
///                    callback may close the defragmenter
/// @param context     for the callback
/// @return 0, 2, 6, 8, 170, 487, 1223, or the system's code, all as RegistryDefragmenterAnalyze; the
///         callback's result. When every hive was tried, the code of the first that failed
SYSMAINT_API int32_t sysmaint_hive_analyze(void* defragmenter, void* stop_event,
                                           sysmaint_hive_callback callback, void* context);
/// The results of the last analysis, even if it failed; while one is running, its results so far.
///
/// @param callback  called for each measured hive, then for each that failed
/// @param context   for the callback
/// @return 0, 6, 8, 87, 487, the callback's result
SYSMAINT_API int32_t sysmaint_hive_results(void* defragmenter, sysmaint_hive_callback callback,
                                           void* context);
/// The same results in serialized form, as a buffer to be released with utilsFreeMemory.
///
/// @param bytes  receives the buffer
/// @param size   receives how many bytes
/// @return 0, 6, 8, 87, 487
SYSMAINT_API int32_t sysmaint_hive_results_dump(void* defragmenter, void** bytes, uint64_t* size);
/// Replaces the results by those that sysmaint_hive_results_dump has written. On failure they stay.
///
/// @param bytes  `size` bytes, which are not trusted
/// @return 0, 6, 8, 13 (more bytes than the results have), 30 (too few bytes), 87, 170 (an analysis is
///         running), 487
SYSMAINT_API int32_t sysmaint_hive_results_load(void* defragmenter, const void* bytes, uint64_t size);

// ---- Hive files that are not loaded, as keys with values. win32/registry/include/IOfflineRegistryKey.h
// describes them. All keys that come from one sysmaint_offline_open share the hive, which stays in memory
// while one of their handles is open; only sysmaint_offline_save writes it to a file. A key's handle need not
// stand for a key that exists. Besides their own codes the functions return 123 and 206 for impossible names,
// and the codes of the system's library where that is used. The functions for settings, which are hives too,
// and HiveFileSalvage are plain C; see the end of this file.

typedef struct sysmaint_offline_key sysmaint_offline_key;

#define SYSMAINT_OFFLINE_ANY 0u     ///< the system's library if there is one, otherwise the engine
#define SYSMAINT_OFFLINE_LIBRARY 1u ///< the system's offreg.dll, from the system folder only
#define SYSMAINT_OFFLINE_ENGINE 2u  ///< the built-in engine

/// Reads a hive file. It is not kept open.
///
/// @param hive_file  null: a new, empty hive
/// @param path       of the key in it; empty: the root
/// @param way        SYSMAINT_OFFLINE_...
/// @param key        receives the handle; close it with sysmaint_offline_close
/// @return 0, 8, 87 (also another way), 126 and 127 (no library), 223 (too large), 1009 (not a hive), 1015 (a
///         damaged hive), or the system's code
SYSMAINT_API int32_t sysmaint_offline_open(const wchar_t* hive_file, const wchar_t* path, uint32_t way,
                                           sysmaint_offline_key** key);
/// A key below another one, of the same hive.
///
/// @param path   below `key`; empty: the same key
/// @param below  receives the handle; close it with sysmaint_offline_close
/// @return 0, 6, 8, 87
SYSMAINT_API int32_t sysmaint_offline_open_below(sysmaint_offline_key* key, const wchar_t* path,
                                                 sysmaint_offline_key** below);
/// The key's path below the root.
///
/// @param path  receives the text; owned by the key, valid until the handle is closed
/// @return 0, 6, 87
SYSMAINT_API int32_t sysmaint_offline_path(sysmaint_offline_key* key, const wchar_t** path);
/// The way in which the hive is served.
///
/// @param way  receives SYSMAINT_OFFLINE_LIBRARY or SYSMAINT_OFFLINE_ENGINE
/// @return 0, 6, 87
SYSMAINT_API int32_t sysmaint_offline_way(sysmaint_offline_key* key, uint32_t* way);
/// Whether the key exists.
///
/// @param exists  receives 0 or 1
/// @return 0, 6, 87
SYSMAINT_API int32_t sysmaint_offline_exists(sysmaint_offline_key* key, int32_t* exists);
/// Creates the key and its missing parents. An existing key stays as it is.
///
/// @param class_name  may be null
/// @return 0, 6, 8, 123, 206
SYSMAINT_API int32_t sysmaint_offline_create(sysmaint_offline_key* key, const wchar_t* class_name);
/// Deletes the key and everything below it from the hive in memory.
///
/// @return 0, 2, 6, 50 (the root)
SYSMAINT_API int32_t sysmaint_offline_delete(sysmaint_offline_key* key);
/// When the key was last written, and its class name.
///
/// @param last_write_time  receives a FILETIME as a number
/// @param class_name       receives a copy, usually empty, to be released with utilsFreeMemory
/// @return 0, 2, 6, 8, 87
SYSMAINT_API int32_t sysmaint_offline_information(sysmaint_offline_key* key, uint64_t* last_write_time,
                                                  wchar_t** class_name);
/// How much there is, with what cannot be listed because its name contains a zero, and the unnamed value.
///
/// @param sub_keys    receives the number of the key's own sub-keys
/// @param values      receives that of its values
/// @param keys_below  receives that of the keys below it at any depth
/// @return 0, 2, 6, 8, 87
SYSMAINT_API int32_t sysmaint_offline_counts(sysmaint_offline_key* key, uint64_t* sub_keys, uint64_t* values,
                                             uint64_t* keys_below);
/// The names of the sub-keys in the system's order, each terminated, with an empty one at the end.
///
/// @param names  receives the list, to be released with utilsFreeMemory
/// @param count  receives how many names
/// @return 0, 2, 6, 8, 87
SYSMAINT_API int32_t sysmaint_offline_sub_keys(sysmaint_offline_key* key, wchar_t** names, uint64_t* count);
/// The names of the values in the order of the file, in the same way, without the unnamed value.
///
/// @param names  receives the list, to be released with utilsFreeMemory
/// @param count  receives how many names
/// @return 0, 2, 6, 8, 87
SYSMAINT_API int32_t sysmaint_offline_values(sysmaint_offline_key* key, wchar_t** names, uint64_t* count);
/// Whether the key has a value.
///
/// @param name    empty: the unnamed value
/// @param exists  receives 0 or 1; 0 also when the key does not exist
/// @return 0, 6, 8, 87, 206
SYSMAINT_API int32_t sysmaint_offline_value_exists(sysmaint_offline_key* key, const wchar_t* name,
                                                   int32_t* exists);
/// Reads a value.
///
/// @param type  receives REG_SZ and the like
/// @param data  receives a copy, to be released with utilsFreeMemory
/// @param size  receives how many bytes
/// @return 0, 2, 6, 8, 87, 206
SYSMAINT_API int32_t sysmaint_offline_value_get(sysmaint_offline_key* key, const wchar_t* name,
                                                uint32_t* type, void** data, uint64_t* size);
/// Creates or replaces a value of a key that exists.
///
/// @param data  may be null when `size` is 0
/// @return 0, 2, 6, 8, 87, 206, 223 (more than about 1 GB)
SYSMAINT_API int32_t sysmaint_offline_value_set(sysmaint_offline_key* key, const wchar_t* name, uint32_t type,
                                                const void* data, uint64_t size);
/// Deletes a value.
///
/// @return 0, 2, 6, 8, 87, 206
SYSMAINT_API int32_t sysmaint_offline_value_delete(sysmaint_offline_key* key, const wchar_t* name);
/// Writes the whole hive to a new file, compactly, and flushes it. On failure no new file is left.
///
/// @return 0, 6, 8, 87, 161 (a path that can be no file's on a disk), 183 (the file exists), 223 (above
///         2 GiB), or the system's code
SYSMAINT_API int32_t sysmaint_offline_save(sysmaint_offline_key* key, const wchar_t* new_file);
/// Closes the handle. What was not saved is lost with the last key of the hive.
///
/// @return 0, 6
SYSMAINT_API int32_t sysmaint_offline_close(sysmaint_offline_key* key);

// ---- Restore points and snapshots: core/win32/utils/restoremanager/plain.h, whose handle is `manager`; and
// snapshots of the whole system, made by an external tool: win32/restoremanager/include/IVRL.h.

/// The number of the manager's last restore point.
///
/// @param number  receives it; 0: none
/// @return 0, 6, 87, 487
SYSMAINT_API int32_t sysmaint_restore_point_number(void* manager, int64_t* number);

#define SYSMAINT_SNAPSHOT_CURRENT 0u  ///< the current snapshot
#define SYSMAINT_SNAPSHOT_BASELINE 1u ///< the baseline
#define SYSMAINT_SNAPSHOT_TIME 2u     ///< the snapshot taken at a time
#define SYSMAINT_SNAPSHOT_NAMED 3u    ///< the snapshot with a name

/// Runs the tool to take a snapshot, and waits until it has ended. 0 means that it ran: its own result is not
/// examined.
///
/// @param tool      the path of the program
/// @param name      of the snapshot
/// @param comment   null: none
/// @param user      null: none
/// @param password  null: none; other programs of the user can read it while the tool runs
/// @return 0; 87; 8; 31 (a value that could become another argument of the tool is refused and nothing
///         started; or the tool could not be started)
SYSMAINT_API int32_t sysmaint_snapshot_create(const wchar_t* tool, const wchar_t* name,
                                              const wchar_t* comment, const wchar_t* user,
                                              const wchar_t* password);
/// Runs the tool to restore a snapshot, in the same way.
///
/// @param mode      SYSMAINT_SNAPSHOT_...
/// @param user      null: none
/// @param password  null: none
/// @param name      of the snapshot, for SYSMAINT_SNAPSHOT_NAMED: its time is looked up in the tool's list
/// @param time      for SYSMAINT_SNAPSHOT_TIME
/// @return 0; 87 (also another mode, or no name or time for it); 8; 31 (as above; or the list has no time, or
///         several, for the name)
SYSMAINT_API int32_t sysmaint_snapshot_restore(uint32_t mode, const wchar_t* tool, const wchar_t* user,
                                               const wchar_t* password, const wchar_t* name,
                                               const wchar_t* time);

// ---- Processes, their threads and modules. core/win32/utils/processmanager/plain.h has the lists, what can
// be done with the handles that these functions give, and sessions. Each process, thread or module is one
// object, which is opened again under the name that it has already.

struct ProcessEntry;
struct ThreadEntry;
struct ModuleEntry;

/// Opens a process of a list.
///
/// @param entry    only its id and start time are used: a process that reuses the id is never touched
/// @param name     of the object; null: one made of id and start time
/// @param process  receives the handle; give it back with CloseProcess
/// @return 0, 8, 87 (also the name that another process has without one)
SYSMAINT_API int32_t sysmaint_process_create(const struct ProcessEntry* entry, const wchar_t* name,
                                             void** process);
/// Opens the object of that name.
///
/// @param process  receives the handle; give it back with CloseProcess
/// @return 0, 8, 87, 1168 (there is none)
SYSMAINT_API int32_t sysmaint_process_open(const wchar_t* name, void** process);
/// Opens a thread of a list, in the same way.
///
/// @param thread  receives the handle; give it back with CloseThread
/// @return 0, 8, 87
SYSMAINT_API int32_t sysmaint_thread_create(const struct ThreadEntry* entry, void** thread);
/// Opens the object of that name.
///
/// @param thread  receives the handle; give it back with CloseThread
/// @return 0, 8, 87, 1168
SYSMAINT_API int32_t sysmaint_thread_open(const wchar_t* name, void** thread);
/// Opens a module of a list, in the same way.
///
/// @param module  receives the handle; give it back with CloseModule
/// @return 0, 8, 87
SYSMAINT_API int32_t sysmaint_module_create(const struct ModuleEntry* entry, void** module);

// ---- The lookup client: core/win32/utils/lookup/plain.h, whose handle is `hvk`. Answers are posted to
// the topic "HVKResponses": sysmaint_topic_create and sysmaint_topic_subscribe bring them to a callback, and
// sysmaint_message_text and sysmaint_message_number read them.

/// Adds a file to be looked up; see HVKAddPath in core/win32/utils/lookup/api.h.
///
/// @param priority  files of higher priority come first; usually 0
/// @return 0, 6, 8, 87 (also an empty path, and the lowest number of all as priority), 487, or the system's
///         code for a path that names nothing
SYSMAINT_API int32_t sysmaint_lookup_add(void* hvk, const wchar_t* path, int32_t priority);

// ---- Connections to other processes. core/win32/utils/connections/plain.h describes them, and has what can
// be done with the handles that these functions give.

#define SYSMAINT_CONNECTION_CLIENT 0u ///< connects to a server
#define SYSMAINT_CONNECTION_SERVER 1u ///< listens and accepts clients

// Kinds of messages that come over connections only; sysmaint_message_load makes messages of the other ones.
#define SYSMAINT_MESSAGE_NARROW 4u            ///< without content, its topic's name in bytes
#define SYSMAINT_MESSAGE_NARROW_PARAMETERS 5u ///< with named parameters, their names in bytes

/// One end of a named pipe of this machine; see CreatePipeConnection in core/win32/utils/connections/api.h.
///
/// @param role        SYSMAINT_CONNECTION_...
/// @param connection  receives the handle; give it back with CloseConnection
/// @return 0, 8, 87 (also another role, or a name that is no pipe's)
SYSMAINT_API int32_t sysmaint_connection_pipe(const wchar_t* name, uint32_t role, void** connection);
/// One end of a TCP connection; see CreateSocketConnection there.
///
/// @param name        the object's name
/// @param role        SYSMAINT_CONNECTION_...
/// @param host        client: the server; server: the address to listen on, or "*" for all of this machine
/// @param port        1 to 65535; 0 for a server lets the system choose one
/// @param connection  receives the handle; give it back with CloseConnection
/// @return 0, 8, 87, or the system's code when it has no socket library
SYSMAINT_API int32_t sysmaint_connection_socket(const wchar_t* name, uint32_t role, const wchar_t* host,
                                                uint32_t port, void** connection);
/// Sends a message.
///
/// @param kind   SYSMAINT_MESSAGE_...
/// @param bytes  the message in its serialized form
/// @return 0; 6, 8, 87, 109, 170, 258, 487, 1223, 2250 or the socket layer's code, as ConnectionWrite; 13
///         (another class, or bytes that are no such message) and 4336 (more than ConnectionSetMessageLimit
///         allows): nothing has been sent then
SYSMAINT_API int32_t sysmaint_connection_send(void* connection, uint32_t kind, const void* bytes,
                                              uint64_t size, uint32_t timeout, void* cancel_event);
/// Receives a message. A call that ends before anything has come leaves the connection as it was; all other
/// failures end it. Without memory for the copy the message is lost.
///
/// @param kind   receives SYSMAINT_MESSAGE_...
/// @param bytes  receives its serialized form, to be released with utilsFreeMemory
/// @param size   receives how many bytes
/// @return 0; 6, 8, 87, 109, 170, 258, 487, 1223, 2250 or the socket layer's code, as ConnectionRead; 13 and
///         4336 (the peer sends what is no message, or too large a one)
SYSMAINT_API int32_t sysmaint_connection_receive(void* connection, uint32_t timeout, void* cancel_event,
                                                 uint32_t* kind, void** bytes, uint64_t* size);

// ---- Listeners and reporters: topics that reach across processes. core/win32/utils/listeners/plain.h
// describes them. A listener's handle is a void*, given back with CloseMessageListener.

/// A listener's limits.
typedef struct sysmaint_listener_options
{
    uint32_t size;
    uint32_t most_clients; ///< at once; further ones are disconnected as they come. 0 is 64
    uint32_t timeout;      ///< for a greeting, for a message that has begun, and for an answer; 0 is 60,000
    uint32_t reserved;
    uint64_t most_waiting; ///< bytes of the messages that may wait for their delivery; 0 is 64 MiB
} sysmaint_listener_options;

/// What a listener has done so far.
typedef struct sysmaint_listener_state
{
    uint32_t size;
    int32_t code; ///< why no client can be accepted at the moment; 0: they can
    uint32_t clients;
    uint32_t reserved;
    uint64_t posted;       ///< messages posted to the topic
    uint64_t sent;         ///< messages whose delivery has ended, whatever its code
    uint64_t disconnected; ///< clients beyond the limit, and those that broke a rule
} sysmaint_listener_state;

/// Listens on a server's connection, and delivers what its clients send to the topic.
///
/// @param name        a listener that has it already is opened, whatever the other arguments say
/// @param connection  may be closed afterwards, as may the topic
/// @param options     null: as for zeros
/// @param listener    receives the handle
/// @return 0, 1 (a client's connection), 6, 8, 87, 170 (it has another listener), 487, a code of
/// ConnectionListen, or the system's code
SYSMAINT_API int32_t sysmaint_listener_create(const wchar_t* name, void* connection, sysmaint_topic* topic,
                                              const sysmaint_listener_options* options, void** listener);
/// What a listener does and has done.
///
/// @param state  set its size first
/// @return 0, 6, 87, 487
SYSMAINT_API int32_t sysmaint_listener_get_state(void* listener, sysmaint_listener_state* state);

typedef struct sysmaint_reporter sysmaint_reporter;

#define SYSMAINT_REPORT_QUEUE 0u ///< queues what is delivered; a thread of the reporter forwards it
#define SYSMAINT_REPORT_SEND 1u  ///< forwards it at once, and waits for the peer's answer, the reply

/// How a reporter forwards.
typedef struct sysmaint_reporter_options
{
    uint32_t size;
    uint32_t mode;    ///< SYSMAINT_REPORT_...
    uint32_t timeout; ///< for one message; 0 is 30,000
    uint32_t reserved;
    uint64_t most_waiting; ///< bytes of the messages that may wait in the queue; 0 is 16 MiB
} sysmaint_reporter_options;

/// Each message that has reached the reporter is in one of the three counts.
typedef struct sysmaint_reporter_state
{
    uint32_t size;
    int32_t refusal; ///< the code of the latest message that was refused
    uint64_t delivered;
    uint64_t waiting;
    uint64_t refused;
    int32_t connection; ///< why forwarding does not succeed at the moment; 0: it does, or idles
    uint32_t reserved;
} sysmaint_reporter_state;

/// Forwards what the topic delivers from now on over a client's connection, which it alone uses from then on.
///
/// @param connection  may be closed afterwards, as may the topic
/// @param options     null: as for zeros
/// @param reporter    receives the handle; close it with sysmaint_reporter_close
/// @return 0, 1 (no client's connection), 6, 8, 87, 170 (it has another reporter), 487, 1115, or the system's
/// code
SYSMAINT_API int32_t sysmaint_reporter_create(void* connection, sysmaint_topic* topic,
                                              const sysmaint_reporter_options* options,
                                              sysmaint_reporter** reporter);
/// Waits until nothing is queued.
///
/// @param cancel_event  may be null
/// @return 0, 6, 8, 258 (the time is over), 1223 (cancelled; or the reporter was stopped, and messages are
///         left)
SYSMAINT_API int32_t sysmaint_reporter_flush(sysmaint_reporter* reporter, uint32_t timeout,
                                             void* cancel_event);
/// What has become of its messages.
///
/// @param state  set its size first
/// @return 0, 6, 87
SYSMAINT_API int32_t sysmaint_reporter_get_state(sysmaint_reporter* reporter, sysmaint_reporter_state* state);
/// Ends forwarding at once, for good. What is queued is not forwarded any more, and further messages are
/// refused with 1223.
///
/// @return 0, 6
SYSMAINT_API int32_t sysmaint_reporter_stop(sysmaint_reporter* reporter);
/// Stops it, takes it out of its topic, and closes the handle.
///
/// @param timeout  for deliveries that are just calling it
/// @return as sysmaint_topic_unsubscribe; when it fails the handle stays open
SYSMAINT_API int32_t sysmaint_reporter_close(sysmaint_reporter* reporter, uint32_t timeout);

SYSMAINT_C_END

// ---- Functions that are plain C themselves, each in the header of its family.

// The families above.
#include "core/win32/registry/defragmenter/plain.h"
#include "core/win32/registry/offline/plain.h"    // HiveFileSalvage
#include "core/win32/registry/plain.h"            // whose registry HKEY_CURRENT_USER is
#include "core/win32/utils/communication/plain.h" // ServeObjectRequests
#include "core/win32/utils/connections/plain.h"
#include "core/win32/utils/listeners/plain.h"
#include "core/win32/utils/lookup/plain.h"
#include "core/win32/utils/processmanager/plain.h" // and sessions, and the monitor
#include "core/win32/utils/restoremanager/plain.h"
#include "core/win32/utils/wiper/plain.h" // the boot-time lists
// Settings in hives of their own, and logs.
#include "core/win32/registry/settingshive/api.h"
#include "core/win32/utils/logger/api.h"
// Utility functions.
#include "core/win32/utils/checksums/api.h"
#include "core/win32/utils/files/api.h"
#include "core/win32/utils/formatting/api.h"
#include "core/win32/utils/memory/api.h" // utilsFreeMemory
#include "core/win32/utils/paths/plain.h"
#include "core/win32/utils/processes/api.h"
#include "core/win32/utils/registry/api.h"
#include "core/win32/utils/security/api.h"
#include "core/win32/utils/services/api.h"
#include "core/win32/utils/shell/api.h"
#include "core/win32/utils/strings/api.h"
#include "core/win32/utils/system/api.h"
#include "core/win32/utils/time/api.h"
#include "core/win32/utils/versions/api.h"
#include "core/win32/utils/volumes/api.h"
