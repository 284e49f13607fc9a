#pragma once

#include <cstddef>

// What the process manager, the objects made from its entries, and the sessions tell. The texts of a record
// stand in its list's buffer. Times are FILETIMEs as numbers: points in time since 1601, UTC, and lengths of
// time in units of 100 ns. Sizes are bytes.

/// One process of a snapshot. Its id may be given to another process as soon as it has ended; id and start
/// time together name one process.
struct ProcessEntry
{
    unsigned long id;
    unsigned long parentId; ///< as it was at the start: that process may be gone, and its id another's
    unsigned long session;
    unsigned long threadCount;
    unsigned long handleCount;
    long basePriority;
    unsigned long long startTime; ///< 0: the system does not tell
    unsigned long long kernelTime;
    unsigned long long userTime;
    unsigned long long workingSet;
    unsigned long long peakWorkingSet;
    unsigned long long privateBytes;
    const wchar_t* name; ///< of the image's file
};

/// One thread of a snapshot.
struct ThreadEntry
{
    unsigned long id;
    unsigned long processId;
    long basePriority;
    unsigned long long startTime; ///< 0: the system does not tell
    unsigned long long kernelTime;
    unsigned long long userTime;
};

/// One module that a process has loaded.
struct ModuleEntry
{
    unsigned long processId;
    unsigned long long processStartTime;
    unsigned long long base; ///< its address in that process
    unsigned long long size;
    const wchar_t* name;
    const wchar_t* path; ///< at most 259 characters of it
};

/// What one process tells. Where the system refuses a part, that part has its code, and its texts are empty.
struct ProcessDetails : ProcessEntry
{
    int hasParent; ///< whether `parentId` still is the process that started this one
    const wchar_t* path;
    long pathCode;
    const wchar_t* commandLine;
    long commandLineCode;
    const wchar_t* domain; ///< empty, as `user`, for a SID that nobody knows the name of
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
    int isConsole;         ///< whether it is the one at the console
    const wchar_t* domain; ///< empty, as `user`, while nobody is logged on
    const wchar_t* user;
    const wchar_t* clientName; ///< of the computer it is worked in from; empty for this one
};

/// A program that SessionRunProgram starts.
struct SessionProgram
{
    unsigned long session;
    unsigned long options;           ///< SessionRunOption values together
    const wchar_t* program;          ///< its whole path; no other file is taken for it
    const wchar_t* const* arguments; ///< each as the program is to get it; may be null without any
    std::size_t argumentCount;
    const wchar_t* folder; ///< its current folder; null: the user's profile
    unsigned long timeout; ///< milliseconds, for waiting; INFINITE waits without end
    void* cancelEvent;     ///< ends waiting; may be null
};
