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
    kWipeZeros = 1,      ///< zeros
    kWipeRandomText = 2, ///< UTF-16 text of ASCII letters and digits, the same in every chunk of one call
    /// The 35 passes of Peter Gutmann, "Secure Deletion of Data from Magnetic and Solid-State Memory", 6th
    /// USENIX Security Symposium, 1996, all over one chunk before the next is touched.
    kWipeGutmann = 3
};

/// The caller's record of how far a call has come.
struct WipeProgress
{
    std::uint64_t done = 0;  ///< bytes written so far, each counted once per pass; the wiper adds to it
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
/// - a link (symbolic link, junction): the link is removed, what it leads to is not touched. That is looked
///   at before the file is opened: who may write in its folder can put a link there in between;
/// - a file with several names (hard links): all of them share the data, so it is overwritten and cut to
///   nothing under each; only the name given is removed;
/// - a file with alternate data streams: these are overwritten first, and their sizes added to the progress;
///   so are those of a folder;
/// - a file that is open elsewhere: nothing but its other streams can be overwritten (32), it goes on the
///   boot-time list;
/// - a compressed, sparse or encrypted file, and any file on a medium that spreads its writes: it is
///   overwritten through the file system, which may put the new bytes elsewhere; wipe the free space
///   afterwards;
/// - a path of any length, and names that end in a dot or a blank: as everywhere in the library.
///
/// The boot-time list is "ForceDelete.txt" in the Windows folder: a program that runs when the machine starts
/// overwrites and deletes the files on it.
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
    /// asked: whoever fills the stack has asked it.
    ///
    /// kWipeFreeSpace: fills the volume of `path`, a folder with its closing backslash such as "D:\", with a
    /// hidden file "FreeSpaceFile.qmx" until nothing is free, and deletes that again, `passes` times. The
    /// file goes in every case: also when the call is cancelled or fails; where it cannot be removed, it is
    /// put on the boot-time list. When the volume is full before all its free bytes are taken, the rest is
    /// filled in ever smaller pieces before the call fails with 112. So does a file system whose files cannot
    /// be as large as its free space (FAT32: 4 GiB).
    ///
    /// kWipePartition: overwrites the volume whose letter and colon `path` begins with, `passes` times, from
    /// its first byte to the last that the file system counts. Nothing may be open on it.
    ///
    /// @param callback     called after every chunk if `progress` is given too; may be null
    /// @param progress     counts the bytes; not used without a callback; may be null
    /// @param kind         WipeKind
    /// @param path         the file, or the volume, as `kind` needs it; for a stack the folder that it is of
    /// @param stack        the entries to destroy, for kWipeDirectoryStack alone; otherwise may be null
    /// @param validator    lets single files and volumes through or not; null lets everything through
    /// @param method       WipeMethod
    /// @param passes       how often everything is overwritten
    /// @param cancelEvent  signalled means stop: polled before a file is opened, before every chunk, before
    ///                     every pass of kWipeGutmann and after every repetition; null never cancels
    /// @return 0; 1223 (cancelled: a file that was open is deleted then, whatever part was overwritten; one
    ///         whose streams were being overwritten is left); 87 (null path, null stack for a tree, or an
    ///         unknown method; nothing is touched); 8; 1627 (no NtClose in ntdll.dll); 0x80070057 (a volume
    ///         path of less than three characters); 183 (the filler's name is a second name of a file); 29
    ///         (the system wrote nothing and gave no reason); what the callback raises, 574 if it is nothing
    ///         with a code; otherwise the system's code of the call that failed
    virtual long Wipe(WipeCallback callback, WipeProgress* progress, std::uint32_t kind, const wchar_t* path,
                      DirectoryStack* stack, const IScanValidator* validator, std::uint32_t method,
                      std::uint32_t passes, HANDLE cancelEvent) = 0;
    /// 1 once something was to go on the boot-time list, also if that could not be written, or a volume could
    /// not be wiped, until it is set back.
    [[nodiscard]] virtual std::uint32_t getNeedsReboot() const = 0;
    virtual void setNeedsReboot(std::uint32_t value) = 0;
};
