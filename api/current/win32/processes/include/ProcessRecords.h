#pragma once

#include <stddef.h>
#include <stdint.h>

// The records of the process manager, of the objects created from its entries, and of sessions. The texts of
// a record are in its list's buffer. Times are FILETIMEs as numbers: points in time since 1601, UTC, and
// durations in units of 100 ns. Sizes are bytes.

/// One process of a snapshot. Its id may be reused as soon as it has ended; id and start time together
/// identify a process.
struct ProcessEntry
{
    unsigned long id;
    unsigned long parentId; ///< at its start: that process may have ended, and its id may have been reused
    unsigned long session;
    unsigned long threadCount;
    unsigned long handleCount;
    long basePriority;
    uint64_t startTime; ///< 0: unknown
    uint64_t kernelTime;
    uint64_t userTime;
    uint64_t workingSet;
    uint64_t peakWorkingSet;
    uint64_t privateBytes;
    const wchar_t* name; ///< of the image's file
};

/// One thread of a snapshot.
struct ThreadEntry
{
    unsigned long id;
    unsigned long processId;
    long basePriority;
    uint64_t startTime; ///< 0: unknown
    uint64_t kernelTime;
    uint64_t userTime;
};

/// One module that a process has loaded.
struct ModuleEntry
{
    unsigned long processId;
    uint64_t processStartTime;
    uint64_t base; ///< its address in that process
    uint64_t size;
    const wchar_t* name;
    const wchar_t* path; ///< cut to 259 characters
};

/// The details of one process. A part that the system refuses has its code, and its texts are empty.
#if defined(__cplusplus)
struct ProcessDetails : ProcessEntry
{
#else
struct ProcessDetails
{
    struct ProcessEntry entry; ///< what the process's entry would be now
#endif
    int hasParent; ///< whether `parentId` is still the process that started this one
    const wchar_t* path;
    long pathCode;
    const wchar_t* commandLine;
    long commandLineCode;
    const wchar_t* domain; ///< empty, like `user`, for a SID without a known name
    const wchar_t* user;
    const wchar_t* sid;
    unsigned long integrity; ///< SECURITY_MANDATORY_MEDIUM_RID (0x2000) and the like
    int isElevated;
    long userCode; ///< of the five above
    int is32Bit;
    unsigned long priorityClass; ///< NORMAL_PRIORITY_CLASS and the like
    long accessCode;             ///< of the two above
};

/// One session.
struct SessionRecord
{
    unsigned long id;
    unsigned long state;   ///< WTSActive (0), WTSDisconnected (4) and the like
    int isConsole;         ///< whether it is the session at the console
    const wchar_t* domain; ///< empty, like `user`, while nobody is logged on
    const wchar_t* user;
    const wchar_t* clientName; ///< the computer that it is used from; empty for this one
};

/// A program that SessionRunProgram starts.
struct SessionProgram
{
    unsigned long session;
    unsigned long options;           ///< SessionRunOption values together
    const wchar_t* program;          ///< its absolute path; no other file is ever started
    const wchar_t* const* arguments; ///< each as the program will receive it; may be null if there are none
    size_t argumentCount;
    const wchar_t* folder; ///< its current folder; null: the user's profile
    unsigned long timeout; ///< milliseconds, for waiting; INFINITE waits indefinitely
    void* cancelEvent;     ///< ends the wait; may be null
};
