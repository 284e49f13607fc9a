#pragma once

// The C interface: everything the library does, for C99, for any C++ compiler, and for every language that
// can call C. What the families do is described at their C++ headers; what differs, or has to be known here,
// is said here.
//
// Conventions
//
// - Functions and types begin with sysmaint_, macros with SYSMAINT_. Functions that were plain C anyway,
// those
//   of the logger, of the boot-time lists and the utility functions, keep their names, and their headers are
//   included at the end. They use long and unsigned long, which have 32 bits on this platform.
// - Numbers have fixed widths. Text is UTF-16 in wchar_t, which has 16 bits here whatever the compiler; it
// ends
//   with a zero. A handle of the system, an event say, is a void*, and so is a root key (HKEY).
// - A status is 0 or a Win32 code, as int32_t. Every function that returns one may also return 8 (no memory),
//   6 (a handle that is null, was never given out or has been closed) and 87 (an argument that must not be
//   null). It lists the others. A call that fails changes none of its outputs. sysmaint_last_failure tells
//   more.
// - Handles are opaque. Each belongs to the caller until the close function of its type is called once.
// Numbers
//   of closed handles are not used again unless stated otherwise, so a stale handle gives 6. Closing a handle
//   while a call uses it is safe: the call keeps the object until it is done. That includes a callback that
//   closes what calls it.
// - A struct begins with its own size in bytes. A struct may grow at its end in later versions. A function
//   accepts the size of the struct in the version of the library that first had it, and any size from there
//   to its current one; fields beyond a caller's size are taken as zero. Any other size, above the current
//   one too, gives 87: ask sysmaint_version before you use what is new. In a struct that the library hands to
//   a callback the size says how much is there. Set reserved fields to 0; other values give 87.
// - A callback gets the `context` that was given with it and runs on the calling thread unless stated
//   otherwise, with no lock of the library held: it may call any function. A result other than 0 stops what
//   calls it and becomes its result: use a Win32 code, 1223 for "cancelled". A callback must return: no
//   longjmp, and no exceptions of another compiler. What it gets a pointer to lives until it returns, unless
//   stated otherwise.
// - Memory that a function allocates for the caller is released with utilsFreeMemory. Pointers into an object
//   are marked as such.
// - `cancel_event` is a manual-reset event of the caller's, polled while the call works; when it is signalled
//   the call ends with 1223. Null never cancels.
// - Timeouts are milliseconds; SYSMAINT_INFINITE is without end.
// - No C++ class and no exception crosses this interface. Any number of threads may use it. Objects that are
//   still open when the library is unloaded are lost.

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
/// Closes the handle. Calls that use the validator go on with it.
///
/// @return 0, 6
SYSMAINT_API int32_t sysmaint_validator_close(sysmaint_validator* validator);

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

typedef struct sysmaint_wipe_options
{
    uint32_t size;
    uint32_t method; ///< SYSMAINT_WIPE_ZEROS and the like
    uint32_t passes; ///< how often everything is overwritten; 0: files are only truncated and deleted
    uint32_t reserved;
    uint64_t total; ///< bytes expected in all, for the callback; the call corrects it
} sysmaint_wipe_options;

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
/// @param path          the file; a folder with its closing backslash ("D:\"); a volume ("D:")
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
///                 failed; may be null. It is set whenever the call has begun to wipe, also when it fails
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

SYSMAINT_C_END

// ---- Functions that are plain C themselves.

#include "core/win32/utils/checksums/api.h"
#include "core/win32/utils/files/api.h"
#include "core/win32/utils/formatting/api.h"
#include "core/win32/utils/logger/api.h"
#include "core/win32/utils/memory/api.h"
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
#include "core/win32/utils/wiper/plain.h"
