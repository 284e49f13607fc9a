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
    kWipeFreeSpace = 6       ///< what deleted files left in the free space of a volume
};

/// What data is overwritten with.
enum WipeMethod : std::uint32_t
{
    kWipeZeros = 1, ///< zeros
    /// UTF-16 text of ASCII letters and digits, the same in every chunk of one call. It comes from rand(),
    /// whose state is each thread's own and which this library never seeds: every thread that has not drawn
    /// from it begins with the same text.
    kWipeRandomText = 2,
    /// The 35 passes of Peter Gutmann, "Secure Deletion of Data from Magnetic and Solid-State Memory", 6th
    /// USENIX Security Symposium, 1996, all over one chunk before the next is touched.
    kWipeGutmann = 3,
    /// To be added to one of these: also files whose content is elsewhere, which the system fetches first.
    kWipeCloudFiles = 0x100
};

/// The caller's record of how far a call has come.
struct WipeProgress
{
    /// Bytes overwritten so far; the wiper adds to it, chunk by chunk. Each byte counts once for each of the
    /// caller's `passes`, and the 35 passes of kWipeGutmann are one of these: whoever shows what the medium
    /// has to take multiplies by 35. A chunk is counted when all of it is overwritten and flushed. So after a
    /// cancel or a failure this is what is surely overwritten, in order from the file's beginning; the chunk
    /// that was in hand is not counted, whatever part of it was written.
    std::uint64_t done = 0;
    std::uint64_t total = 0; ///< bytes expected in all; the caller fills it in, the wiper corrects it
};

/// Called on the wiping thread after every chunk.
using WipeCallback = void (*)(WipeProgress* progress);

/// One file or folder to destroy.
struct DirectoryStackEntry
{
    HeapStringW path;      ///< a folder's full path; a file's name
    HeapStringW directory; ///< the full path of a file's folder; of no meaning for a folder
    bool isDirectory = false;
    bool skip = false; ///< only taken off the stack: what it names stays
};

/// What a tree is made of. The wiper works from the back, so a folder comes before its content. On the
/// process heap: the caller fills it, the wiper empties it.
using DirectoryStack = std::deque<DirectoryStackEntry, ProcessHeapAllocator<DirectoryStackEntry>>;

/// Overwrites data before it is given back to the file system. One thread at a time; may be used again and
/// again. Data is written in chunks of 1 MiB, each flushed to the medium before the next.
///
/// What is destroyed is the data, and that means for
/// - a link (symbolic link, junction): the link is removed, what it leads to is not touched. What may be a
///   link and cannot be told is left;
/// - a file with several names (hard links): ALL ITS NAMES SHARE THE DATA, so it is overwritten and cut to
///   nothing under each of them, wherever they are; only the name given is removed. Whoever does not want
///   that asks first (nNumberOfLinks of GetFileInformationByHandle);
/// - a file with alternate data streams: these are overwritten first, and their sizes added to the progress;
///   so are those of a folder;
/// - a file that is open elsewhere: nothing but its other streams can be overwritten (32), it goes on the
///   boot-time list;
/// - a sparse file: its holes are passed over, and leave the progress's total;
/// - a file whose content is elsewhere (FILE_ATTRIBUTE_RECALL_ON_OPEN, FILE_ATTRIBUTE_RECALL_ON_DATA_ACCESS:
/// the
///   cloud): 4350, and it is not touched, unless kWipeCloudFiles has it fetched to be overwritten;
/// - a file whose wipe is cancelled or fails once it is open: it is deleted, whatever part was overwritten
///   (WipeProgress tells how much); wipe the free space to reach the rest;
/// - a path of any length, and names that end in a dot or a blank: as everywhere in the library.
///
/// What overwriting in place does not reach:
/// - shadow copies (restore points, "previous versions"): the old content is copied there before it is
///   overwritten;
/// - volumes that write elsewhere or hold equal data once (ReFS, deduplication), compressed and encrypted
/// files,
///   and those that the system has compressed for itself (compact /exe): the old bytes become free space;
/// - flash drives, which spread their writes and keep spare blocks;
/// - the journals of the file system and of whatever else has copied the content.
/// Of these, what becomes free space is reached by kWipeFreeSpace afterwards.
///
/// Files that others hold for a moment (5, 32, 33; for folders 145, while everything in them is on its way
/// out) are looked at and tried again for about a second; the event is polled in between. Where all rights
/// are refused (5), which include taking the file over, reading, writing and deleting are asked for. A file
/// that others have open without being in the way is deleted in the POSIX way where the system has that, at
/// the cost of one call; elsewhere its name is looked at afterwards, one call more. What is overwritten and
/// marked, and has its name still after about a second, is 303 (ERROR_DELETE_PENDING): it goes when the
/// others close it, and not on the boot-time list.
///
/// Of this, the POSIX deletion, less than all rights, cloud and sparse files and all that concerns real
/// volumes (kWipePartition, files that end at 4 GiB) were proven with Windows' answers simulated.
///
/// What paths mean is settled when `Wipe` is called: relative ones, those of a stack too, go by the folder
/// that is current then. Each file and folder is looked at, opened as itself, right before it is opened to be
/// overwritten, and what was opened is compared with what was looked at (volume and file number): when it is
/// another file, nothing is overwritten and it stays (1006). The folders between a stack's root and an entry
/// are held open while the entry is handled, so nobody can rename them or put links in their places; one that
/// is a link by then ends the call with 681, and so does a root that is one while an entry below it is
/// handled. What remains:
/// - file systems that do not keep to sharing let others rename what is held here;
/// - systems before Windows 10 cannot take back that an opened file is to be deleted. Another file that is
///   opened so keeps its data under a second name "name.kept", which then gets the first one back; it is gone
///   where the file system knows no second names;
/// - where files have no numbers (some network systems) they all look the same;
/// - a single file's folders, and those above a stack's root, are not held: the comparison alone guards it;
/// - a link or a folder is removed by its name right after it was looked at, and the filler of the free space
///   right after it was opened: an empty folder, or another file, that takes the name in between goes
///   instead;
/// - a file or folder that was exchanged for another real one before it was looked at is what its path names.
///
/// The boot-time list is "ForceDelete.txt" in the Windows folder: a program that runs when the machine starts
/// overwrites and deletes the files on it. Any number of threads and processes append to it, each line whole.
/// Only what that program can find again goes there: files by their plain path below the root of a drive or
/// volume of this machine; of a drive's letter that stands for a folder in this session alone, by that
/// folder's own path. Left off are links and folders, roots and devices, streams, paths with wildcards or
/// characters below 0x20, what is on the network by whatever name, drives that cannot be told, what cannot be
/// looked at, what is not there (2, 3, 303, a file that was deleted before all of it was overwritten: whoever
/// has its name by then is another), and the list itself. So is a path that was found changed (681, 1006).
/// The machine has to be restarted: with Fast Startup "Shut down" does not run the program. On a Remote
/// Desktop host the list is found only if the calling program is marked as aware of terminal servers
/// (/TSAWARE). A last line that was not written to its end is ended by "?" and a line end before another one
/// is appended, so that it is neither taken for a whole one nor spoils that one.
struct IWiper
{
    virtual ~IWiper() = default;

    /// Destroys what `kind` says. Any other kind does nothing and returns 0.
    ///
    /// kWipeFile: the file `path` is overwritten `passes` times, cut to nothing and deleted; with `passes` 0
    /// it is only cut and deleted. When that fails, other than by the event, it goes on the boot-time list.
    /// A file that the validator refuses is left alone (0).
    ///
    /// kWipeDirectoryStack: takes the last entry of `stack`, handles it and takes it off, until none is left.
    /// Files are overwritten and deleted as above, but never put on the boot-time list; folders are removed
    /// and must be empty by then. The root of a local disk is not removed and ends the walk. An entry that
    /// fails ends the walk and stays at the back; mark it with `skip` to go on after it. The validator is not
    /// asked: whoever fills the stack has asked it. While the call runs the stack is empty; what it did not
    /// handle is put back in the end, before entries that a callback pushed meanwhile.
    ///
    /// kWipeFreeSpace: fills the volume of `path`, a folder with its closing backslash such as "D:\", with a
    /// hidden file "FreeSpaceFile.qmx" until nothing is free, and deletes that again, `passes` times. The
    /// file goes in every case: also when the call is cancelled or fails; where it cannot be removed, it is
    /// put on the boot-time list. One that is there already is taken for what an earlier run left when it is
    /// hidden: it is filled on and removed. Any other is left alone (183): whoever knows that it is no use to
    /// anybody, say on a file system that cannot hide files, deletes it first. When the volume is full before
    /// all its free bytes are taken, the rest is filled in ever smaller pieces; less than 1 MiB that is left
    /// then is the end, more is a failure (112). Where files cannot be as large as the free space (FAT32: 4
    /// GiB), further ones follow, "FreeSpaceFile2.qmx" and so on; names that belong to others are passed
    /// over, and those that an earlier run left beside the first are filled on and removed too. By nature it
    /// does not reach what is not free space: the names of deleted files in the file table and in the folders
    /// where they stood, the contents of files so small that they were kept in the table (NTFS: some 700
    /// bytes; WipeFileTable reaches what is in the table), the journals of the file system, the ends of other
    /// files' last clusters, shadow copies, and what the medium keeps aside.
    ///
    /// kWipePartition: overwrites the volume whose letter and colon `path` begins with, `passes` times, from
    /// its first byte to the last that the file system counts, and on to the end that the device tells
    /// (IOCTL_DISK_GET_LENGTH_INFO), which raises the total; where it tells none, that is all. The volume is
    /// locked and its file system dismounted first: nothing may be open on it, or the code of the lock is
    /// returned (5) and nothing written.
    ///
    /// @param callback     called after every chunk if `progress` is given too; may be null
    /// @param progress     counts the bytes; not used without a callback; may be null
    /// @param kind         WipeKind
    /// @param path         the file, or the volume, as `kind` needs it; for a stack the folder that it is of:
    ///                     entries below it are guarded against links on the way, others stand alone
    /// @param stack        the entries to destroy, for kWipeDirectoryStack alone; otherwise may be null
    /// @param validator    lets single files and volumes through or not; null lets everything through
    /// @param method       WipeMethod
    /// @param passes       how often everything is overwritten
    /// @param cancelEvent  signalled means stop: polled before a file is opened, before every chunk, before
    ///                     every pass of kWipeGutmann and after every repetition; null never cancels
    /// @return 0; 170 (called from a callback of the same object); 1223 (cancelled: a file that was open is
    /// deleted then, whatever part was overwritten; one
    ///         whose streams were being overwritten is left); 87 (null path, empty path for the free space,
    ///         null stack for a tree, or an unknown method; nothing is touched); 8; 1627 (no NtClose in
    ///         ntdll.dll); 0x80070057 (a volume path of less than three characters, or without letter and
    ///         colon); 681 (a folder on the way to an entry, or the filler's name, is a link now); 1006 (what
    ///         was opened is another file than what was looked at; it stays); 303 (deleted, and others have
    ///         it open still); 4350 (its content is elsewhere); 5 (a folder where a file was to be); 267 (a
    ///         file where a folder was to be); 183 (the filler's name is that of a file that is not hidden,
    ///         or a second name of a file); 29 (the system wrote nothing and gave no reason); what the
    ///         callback raises, 574 if it is nothing with a code; otherwise the system's code of the call
    ///         that failed
    virtual long Wipe(WipeCallback callback, WipeProgress* progress, std::uint32_t kind, const wchar_t* path,
                      DirectoryStack* stack, const IScanValidator* validator, std::uint32_t method,
                      std::uint32_t passes, HANDLE cancelEvent) = 0;
    /// 1 once something was to go on the boot-time list, also if that could not be written, or a volume could
    /// not be wiped, until it is set back. Whether the line stands is told by ForceDeleteIsScheduled
    /// (core/win32/utils/wiper/api.h). What is left off the list does not change it.
    [[nodiscard]] virtual std::uint32_t getNeedsReboot() const = 0;
    virtual void setNeedsReboot(std::uint32_t value) = 0;
};
