#pragma once

#include <windows.h>

#include <cstdint>
#include <deque>

#include "core/win32/utils/objectmanager/include/ProcessHeap.h"
#include "win32/scanengine/include/IScanValidator.h"

/// What a call destroys.
enum WipeKind : std::uint32_t
{
    kWipePartition = 2,      ///< a whole volume: everything on it is lost
    kWipeDirectoryStack = 4, ///< files and folders that the caller lists
    kWipeFile = 5,           ///< one file
    kWipeFreeSpace = 6       ///< the remains of deleted files in the free space of a volume
};

/// What data is overwritten with.
enum WipeMethod : std::uint32_t
{
    kWipeZeros = 1, ///< zeros
    /// UTF-16 text of ASCII letters and digits, the same in every chunk of one call. It comes from rand(),
    /// which keeps its state per thread and which this library never seeds: every thread that has not yet
    /// called it starts with the same text.
    kWipeRandomText = 2,
    /// The 35 passes of Peter Gutmann, "Secure Deletion of Data from Magnetic and Solid-State Memory", 6th
    /// USENIX Security Symposium, 1996. One chunk gets all passes before the next chunk is touched.
    kWipeGutmann = 3,
    /// Added to one of these: also wipes files whose content is elsewhere, which the system fetches first.
    kWipeCloudFiles = 0x100
};

/// The caller's record of how far a call has come.
struct WipeProgress
{
    /// Bytes overwritten so far; the wiper adds to it chunk by chunk. Each byte counts once for each of the
    /// caller's `passes`. The 35 passes of kWipeGutmann count as one of these: multiply by 35 for what is
    /// written to the medium. A chunk is counted when it is completely overwritten and flushed. So after a
    /// cancel or a failure this many bytes are surely overwritten, in order from the file's beginning; the
    /// chunk in progress is not counted, however much of it was written.
    std::uint64_t done = 0;
    std::uint64_t total = 0; ///< bytes expected in all; the caller fills it in, the wiper corrects it
};

/// Called on the wiping thread after every chunk.
using WipeCallback = void (*)(WipeProgress* progress);

/// One file or folder to destroy.
struct DirectoryStackEntry
{
    HeapStringW path;      ///< a folder's full path; a file's name
    HeapStringW directory; ///< the full path of a file's folder; ignored for a folder
    bool isDirectory = false;
    bool skip = false; ///< removes the entry from the stack only: what it names stays
};

/// The contents of a tree. The wiper works from the back, so a folder comes before its content. Allocated on
/// the process heap; the caller fills it, the wiper empties it.
using DirectoryStack = std::deque<DirectoryStackEntry, ProcessHeapAllocator<DirectoryStackEntry>>;

/// Overwrites data before it is given back to the file system. An object serves one thread at a time and may
/// be reused. Data is written in chunks of 1 MiB, each flushed to the medium before the next.
///
/// The wiper destroys data. For each kind of file this means:
/// - a link (symbolic link, junction): the link is removed, its target is not touched. Something that might
///   be a link, but cannot be identified, is left alone;
/// - a file with several names (hard links): ALL ITS NAMES SHARE THE DATA, so it is overwritten and truncated
///   under each of them, wherever they are; only the given name is removed. To avoid that, check first
///   (nNumberOfLinks of GetFileInformationByHandle);
/// - a file with alternate data streams: these are overwritten first, and their sizes are added to the
///   progress. The same goes for a folder's streams;
/// - a file that is open elsewhere: only its other streams can be overwritten (32); it goes on the boot-time
///   list;
/// - a sparse file: its holes are skipped and subtracted from the progress's total;
/// - a file whose content is elsewhere (FILE_ATTRIBUTE_RECALL_ON_OPEN, FILE_ATTRIBUTE_RECALL_ON_DATA_ACCESS:
///   the cloud): 4350 and it stays untouched, unless kWipeCloudFiles has it fetched to be overwritten;
/// - a file whose wipe is cancelled or fails once it is open: it is deleted, however much of it was
///   overwritten (WipeProgress tells how much); wipe the free space to reach the rest;
/// - a path of any length, and names that end in a dot or a blank: supported as everywhere in the library.
///
/// What overwriting in place does not reach:
/// - shadow copies (restore points, "previous versions"): the old content is copied there before it is
///   overwritten;
/// - volumes that write elsewhere or store equal data once (ReFS, deduplication), compressed and encrypted
///   files, and those that the system itself has compressed (compact /exe): the old bytes become free space;
/// - flash drives, which spread their writes and keep spare blocks;
/// - the journals of the file system and of anything else that has copied the content.
///
/// What becomes free space can be reached with kWipeFreeSpace afterwards.
///
/// Files that others hold briefly (5, 32, 33; for folders 145, while everything in them is being deleted) are
/// retried for about a second, from the first look on, with a check of the name each time; the event is
/// polled in between. Where full access is refused (5), which includes taking the file over, only reading,
/// writing and deleting are requested. A file that others have open without blocking the wipe is deleted with
/// POSIX semantics where the system supports them, at the cost of one call; elsewhere its name is checked
/// afterwards, one more call. A file that was overwritten and marked for deletion but still has its name
/// after about a second returns 303 (ERROR_DELETE_PENDING): it disappears when the others close it, and does
/// not go on the boot-time list. When a file that cannot be distinguished from the deleted one stands under
/// its name, 1006 is returned: it may be a new one that was given the same number, so it does not go on the
/// list either.
///
/// Of this, the following were proven with Windows' answers simulated: POSIX deletion, opening with less than
/// full access, cloud and sparse files, and everything about real volumes (kWipePartition, files that end at
/// 4 GiB).
///
/// Paths get their meaning when `Wipe` is called: relative ones, including those of a stack, are resolved
/// against the folder that is current then. Each file and folder is checked without following links right
/// before it is opened to be overwritten, and what was opened is compared with what was checked (volume and
/// file number): when it is another file, nothing is overwritten and it stays (1006). The folders between a
/// stack's root and an entry are held open while the entry is handled, so nobody can rename them or replace
/// them with links. The call ends with 681 when one of them has already become a link, and also when the root
/// has while an entry below it is handled. Not protected:
/// - file systems that ignore share modes let others rename what is held here;
/// - systems before Windows 10 cannot undo marking an open file for deletion. A wrong file opened there keeps
///   its data under a second name "name.kept", which then gets the first one back; it is lost where the file
///   system has no second names;
/// - where files have no numbers (some network systems) they all look the same;
/// - a single file's folders, and those above a stack's root, are not held: only the comparison protects the
///   file;
/// - a link or a folder is removed by its name right after it was checked, and the filler of the free space
///   right after it was opened: an empty folder, or another file, that takes the name in between is removed
///   instead;
/// - a file or folder that was exchanged for another real one before the check is what its path names.
///
/// The boot-time list is "ForceDelete.txt" in the Windows folder: a program that runs when the machine starts
/// overwrites and deletes the files on it. Any number of threads and processes may append to it; each line is
/// written whole. It takes only what that program can find again: files by their plain path below the root of
/// a drive or volume of this machine. For a drive letter that stands for a folder in this session only, that
/// folder's own path is used. The list does not take links and folders, roots and devices, streams, paths
/// with wildcards or characters below 0x20, anything on the network under any name, drives that cannot be
/// identified, what cannot be checked, what does not exist (2, 3, 303, a file that was deleted before all of
/// it was overwritten: by then the name may be another file's), and the list itself. Nor does it take a path
/// found to have changed (681, 1006). The machine has to be restarted: with Fast Startup "Shut down" does not
/// run the program. On a Remote Desktop host the list is found only if the calling program is marked as aware
/// of terminal servers (/TSAWARE). A last line that was written only in part is ended by "?" and a line end
/// before another one is appended, so it neither passes for a whole line nor spoils the next.
struct IWiper
{
    virtual ~IWiper() = default;

    /// Destroys what `kind` selects. Any other kind does nothing and returns 0.
    ///
    /// kWipeFile: the file `path` is overwritten `passes` times, truncated and deleted; with `passes` 0 it is
    /// only truncated and deleted. When that fails, other than through the event, the file goes on the
    /// boot-time list. A file that the validator refuses is left alone (0).
    ///
    /// kWipeDirectoryStack: handles the last entry of `stack` and removes it from the stack, until none is
    /// left. Files are overwritten and deleted as above, but never put on the boot-time list; folders are
    /// removed and must be empty by then. The root of a local disk is not removed and ends the walk. An entry
    /// that fails ends the walk and stays at the back; mark it with `skip` to continue after it. The
    /// validator is not called: the caller has applied it while filling the stack. The stack is empty while
    /// the call runs; entries not handled are put back at the end, before entries that a callback pushed
    /// meanwhile.
    ///
    /// kWipeFreeSpace: fills the volume of `path`, a folder with its closing backslash such as "D:\", with a
    /// hidden file "FreeSpaceFile.qmx" until nothing is free, and deletes the file again, `passes` times. The
    /// file is always removed, also after a cancel or a failure. One that cannot be truncated first is
    /// deleted all the same, which is no failure; what cannot be deleted goes on the boot-time list. A hidden
    /// file that already has the name counts as left by an earlier run: it is filled further and removed. Any
    /// other is left alone (183): if it is useless, say on a file system that cannot hide files, delete it
    /// first. When the volume is full before all its free bytes are taken, the rest is filled in ever smaller
    /// pieces. The call succeeds when less than 1 MiB is left then; more is a failure (112), and so is a
    /// volume without room to create the file. Where files cannot be as large as the free space (FAT32: 4
    /// GiB), further ones follow, "FreeSpaceFile2.qmx" and so on; names that belong to others are skipped,
    /// and files that an earlier run left beside the first are filled further and removed too. It cannot
    /// reach what is not free space: the names of deleted files in the file table and in the folders that
    /// held them, the contents of files small enough to be kept in the table (NTFS: some 700 bytes;
    /// WipeFileTable reaches what is in the table), the journals of the file system, the ends of other files'
    /// last clusters, shadow copies, and the medium's spare blocks.
    ///
    /// kWipePartition: overwrites the volume whose letter and colon `path` begins with, `passes` times, from
    /// its first byte to the last that the file system counts, and on to the end that the device reports
    /// (IOCTL_DISK_GET_LENGTH_INFO), which raises the total; if it reports none, the wipe ends with the file
    /// system. The volume is locked and its file system dismounted first: if anything is open on it, the
    /// lock's code is returned (5) and nothing is written. Only a device that supports neither locking nor
    /// unlocking is written without a lock.
    ///
    /// @param callback     called after every chunk if `progress` is given too; may be null
    /// @param progress     counts the bytes; ignored without a callback; may be null
    /// @param kind         WipeKind
    /// @param path         the file, or the volume, as `kind` needs it; for a stack its root folder: entries
    ///                     below it are protected against links on the way, all others are not
    /// @param stack        the entries to destroy, only for kWipeDirectoryStack; otherwise may be null
    /// @param validator    accepts or refuses single files and volumes; null accepts everything
    /// @param method       WipeMethod
    /// @param passes       how often everything is overwritten
    /// @param cancelEvent  signalled to stop: polled before a file is opened, before every chunk, before
    ///                     every pass of kWipeGutmann and after every repetition; null never cancels, a
    ///                     handle that cannot be polled does; not checked to be an event, and a mutex would
    ///                     be taken
    /// @return 0; 170 (called from a callback of the same object); 1223 (cancelled: a file that was open is
    ///         deleted, however much of it was overwritten; one whose streams were being overwritten is
    ///         left); 87 (null path, empty path for the free space, null stack for a tree, or an unknown
    ///         method; nothing is touched); 8; 1627 (no NtClose in ntdll.dll); 0x80070057 (a volume path of
    ///         less than three characters, or without letter and colon); 681 (a folder on the way to an
    ///         entry, or the filler's name, has become a link); 1006 (the opened file is not the one that was
    ///         checked; it stays); 303 (deleted, but others still have it open); 4350 (its content is
    ///         elsewhere); 5 (a folder where a file was expected); 267 (a file where a folder was expected);
    ///         183 (the filler's name belongs to a file that is not hidden, or is a second name of a file);
    ///         29 (the system wrote nothing and gave no reason); what the callback raises, 574 if it carries
    ///         no code; otherwise the system's code of the call that failed
    virtual long Wipe(WipeCallback callback, WipeProgress* progress, std::uint32_t kind, const wchar_t* path,
                      DirectoryStack* stack, const IScanValidator* validator, std::uint32_t method,
                      std::uint32_t passes, HANDLE cancelEvent) = 0;
    /// 1 once something was meant for the boot-time list, even if that could not be written, or a volume
    /// could not be wiped; stays until it is reset. ForceDeleteIsScheduled tells whether the line is there
    /// (core/win32/utils/wiper/api.h). What the list does not take leaves this unchanged.
    [[nodiscard]] virtual std::uint32_t getNeedsReboot() const = 0;
    virtual void setNeedsReboot(std::uint32_t value) = 0;
};
