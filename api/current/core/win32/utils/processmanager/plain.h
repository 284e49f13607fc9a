#pragma once

// Processes, threads, modules and sessions: what runs, as whom and where, and who holds a file; ending
// processes; being notified of those that start and end; starting programs as the user of a session. These
// are the functions that C takes as well.
//
// Status functions return 0 or a Win32 code. Besides their own codes they return 87 for a null pointer that
// is not optional, and 8 when memory runs out. A call that fails changes none of its outputs. Free lists,
// texts and records with utilsFreeMemory; the texts of records are in the same buffer. All functions may be
// called from any thread.
//
// An id may be reused as soon as its process has ended. So everything here identifies a process by its id and
// start time: if the start time differs by now, the process has ended (1168). If the time is unavailable, the
// process is not touched (5).

#include "core/win32/utils/memory/api.h"
#include "win32/processes/include/ProcessOptions.h"
#include "win32/processes/include/ProcessRecords.h"

struct _GUID; // the system's

SYSMAINT_C_BEGIN
// ---- The process manager: one for the process, with a snapshot of all processes and threads, which the
// system takes in one call: each process once, and complete. Processes that are still being created are not
// part of it. It does not change until PMRefresh. The modules of a process are read on request.
//
// Besides their own codes the PM functions return 6 while there is no manager.

/// Creates the manager with its first snapshot, or opens it again. Codes: the system's.
SYSMAINT_API long CreateProcessManager(void);
/// Opens the manager again. Codes: 1168 there is none.
SYSMAINT_API long OpenProcessManager(void);
/// Closes one opening; the last one destroys the manager. Returns 0 when there is none.
SYSMAINT_API int CloseProcessManager(void);

/// Takes a new snapshot. Codes: the system's; the old one stays.
SYSMAINT_API long PMRefresh(void);
/// All processes, ordered by id.
SYSMAINT_API long PMListProcesses(struct ProcessEntry** entries, size_t* count);
/// The threads of a process, or of kAllProcesses. Codes: 1168 no such process.
SYSMAINT_API long PMListThreads(unsigned long process, struct ThreadEntry** entries, size_t* count);
/// The modules of a process, or of kAllProcesses as far as they do not refuse. Codes: 1168 no such process,
/// or it has ended; 5 it refuses; the system's.
SYSMAINT_API long PMListModules(unsigned long process, struct ModuleEntry** entries, size_t* count);
/// One process. Codes: 1168 none has that id.
SYSMAINT_API long PMFindById(unsigned long id, struct ProcessEntry** entry);
/// Those whose image has this name, without regard to case. An empty list is a success.
SYSMAINT_API long PMFindByName(const wchar_t* name, struct ProcessEntry** entries, size_t* count);
/// Those that run the file of this path, without regard to case; short names match their long ones. Processes
/// whose path is unavailable are not included.
SYSMAINT_API long PMFindByPath(const wchar_t* path, struct ProcessEntry** entries, size_t* count);
/// Those of a session.
SYSMAINT_API long PMFindBySession(unsigned long session, struct ProcessEntry** entries, size_t* count);
/// The parent of this process, its parent, and so on, as far as they exist: a process that started after its
/// child merely reuses the parent's id. Codes: 1168 none has that id.
SYSMAINT_API long PMGetParents(unsigned long id, struct ProcessEntry** entries, size_t* count);
/// The process and all its descendants, parents before their children. Codes: as above.
SYSMAINT_API long PMGetTree(unsigned long id, struct ProcessEntry** entries, size_t* count);
/// Those that currently have a file open or loaded: the processes known to the system's restart manager, and
/// those with the file among their modules. Codes: the restart manager's, because a file cannot be called
/// free then.
SYSMAINT_API long PMFindUsers(const wchar_t* path, struct ProcessEntry** entries, size_t* count);

// ---- The process monitor: one for the process. It posts a HashMessageW without a value on a message topic
// for each process that starts and ends after PMStartMonitor has returned, each once, a process's start
// before its end. The message's id is kProcessStarted or kProcessEnded; its parameters are
//
//     "ProcessId", "ParentId", "SessionId"   32-bit numbers
//     "ImageName"                            text
//     "Time"                                 8 bytes, a FILETIME: of the start, or when the end was noticed
//
// It uses the system's events (WMI) where they are available, which takes an administrator, and misses
// nothing while they come. Until the first one has come, which may take a while even after the system has
// accepted the request, and where events are refused or stop coming, it compares snapshots at the chosen
// interval; a process that lives shorter than that may be missed entirely. The system may stop sending
// without a word, so after ten intervals without an event, at most a minute, one snapshot is compared; if it
// shows anything that no event told, snapshots go on until the next event. Nothing is told twice when one
// source follows the other, except that the event of a start is not told when it comes more than a minute
// late after snapshots. When an event shows that an id is in use again, the end of the former process is told
// first. It has its own thread, and a second one for the events. With the 50 and more processes of a busy
// system a snapshot costs some tenths of a millisecond.

/// Creates the monitor, stopped, or opens it again.
SYSMAINT_API long CreateProcessMonitor(void);
/// Opens the monitor again. Codes: 1168 there is none.
SYSMAINT_API long OpenProcessMonitor(void);
/// Closes one opening; the last one stops and destroys the monitor. Returns 0 when there is none.
SYSMAINT_API int CloseProcessMonitor(void);
/// Starts it.
///
/// @param topic        name of the topic, which is opened or created and held while the monitor runs
/// @param filter       image names separated by commas, with the wildcards of IScanValidator; null for all
/// @param interval     milliseconds between snapshots, 10 to 60,000
/// @param wantsEvents  0: only snapshots; COM is not loaded then
/// @return 0; 6 no monitor; 87, also an empty name in the filter; 183 it is running already; the system's
///         code
SYSMAINT_API long PMStartMonitor(const wchar_t* topic, const wchar_t* filter, unsigned long interval,
                                 int wantsEvents);
/// Stops it: nothing is posted after this returns. Messages already posted are still delivered. Takes at most
/// a second. Stopping it again has no effect. Codes: 6.
SYSMAINT_API long PMStopMonitor(void);
/// Its source, a MonitorSource. `code` receives the reason that it is not kMonitorEvents (the low 16 bits of
/// COM's code), or the last failure; 0 if none, also while it waits for an event. Codes: 6.
SYSMAINT_API long PMGetMonitorState(unsigned long* source, long* code);

// ---- Process objects, each with a handle: named, shared, destroyed when the last opening is closed.
// Creating one under an existing name opens that object. Without a name, the id and start time serve as one:
// the same process is the same object. A given name must not be the one that another process gets that way
// ("ID@TIME", in digits: 87). On failure the result is the invalid handle, with the code as the last
// error: 87, 8, and 1168 from functions that only open.
//
// The status functions return 6 and 487 for the handle, 1168 when the process has ended, and 5. Only the id
// and the start time of an entry are used.

SYSMAINT_API int CloseProcess(void* process);
SYSMAINT_API long ProcessGetNameByHandle(void* process, const wchar_t** name);

/// Whether it is still running: 0 when it has ended, even if its id is in use again.
SYSMAINT_API long ProcessIsRunning(void* process, int* isRunning);
/// Its current details; parts that the system refuses have their codes.
SYSMAINT_API long ProcessGetDetails(void* process, struct ProcessDetails** details);
/// Asks its visible top-level windows in this session to close, as their user would, and counts them. They
/// may not comply: use ProcessWait. Codes: 50 as for ProcessEnd.
SYSMAINT_API long ProcessCloseWindows(void* process, unsigned long* asked);
/// Waits until it ends. Codes: 1460; 1223, also when the event is signalled already; 6 for anything but an
/// event, 5 for one that must not be waited for.
SYSMAINT_API long ProcessWait(void* process, unsigned long timeout, void* cancelEvent,
                              unsigned long* exitCode);
/// Ends it with the exit code 1067 and waits until it is gone. It cannot save anything.
///
/// In a tree, children are ended before their parents, and only those whose parent really was that process. A
/// refusal comes before anything is ended, except for processes started during the call.
///
/// @param options  ProcessEndOption values together
/// @param timeout  milliseconds; ending a tree that keeps growing is abandoned after that time, but not
///                 before 5 seconds
/// @return besides those above: 50 it is, or its tree contains, the calling process or one whose end would
///         also end the system or the session; 1052 a service, without kEndServices; the service manager's
///         code, when it is unknown whether it is one; 1460 told to end, but not gone yet
SYSMAINT_API long ProcessEnd(void* process, unsigned long options, unsigned long timeout);
/// Suspends and resumes all its threads. The calls are counted. Codes: 50 as above.
SYSMAINT_API long ProcessSuspend(void* process);
SYSMAINT_API long ProcessResume(void* process);
/// @param priorityClass  NORMAL_PRIORITY_CLASS and the like; 87 for any other number
SYSMAINT_API long ProcessSetPriority(void* process, unsigned long priorityClass);

// ---- Thread objects, in the same way. Suspending a thread that holds a lock blocks everybody who waits for
// it.

SYSMAINT_API int CloseThread(void* thread);

SYSMAINT_API long ThreadIsRunning(void* thread, int* isRunning);
/// Its current details.
SYSMAINT_API long ThreadGetDetails(void* thread, struct ThreadEntry* details);
/// Waits until it ends. Codes as of ProcessWait.
SYSMAINT_API long ThreadWait(void* thread, unsigned long timeout, void* cancelEvent);
/// `count` receives the previous suspend count. Codes: 50 for threads of the calling process and of those
/// that ProcessEnd refuses.
SYSMAINT_API long ThreadSuspend(void* thread, unsigned long* count);
SYSMAINT_API long ThreadResume(void* thread, unsigned long* count);
/// @param priority  THREAD_PRIORITY_NORMAL and the like
SYSMAINT_API long ThreadSetPriority(void* thread, long priority);

// ---- Module objects, in the same way.

SYSMAINT_API void* OpenModule(const wchar_t* name);
SYSMAINT_API int CloseModule(void* module);

/// The entry that it was created from.
SYSMAINT_API long ModuleGetDetails(void* module, struct ModuleEntry** details);
/// Whether its process still has it loaded at that address; 0 also when the process has ended.
SYSMAINT_API long ModuleIsLoaded(void* module, int* isLoaded);

// ---- Sessions. The session at the console, names, tokens and impersonation:
// core/win32/utils/security/api.h; the user's hive: RegistryOpenUserHive. Only the system's account gets the
// token of a session's user (1314); for its own session, a user's program gets its own. 1008: nobody is
// logged on there.

/// All sessions. A system without remote sessions lists only the console's. Codes: the system's.
SYSMAINT_API long SessionEnumerate(struct SessionRecord** records, size_t* count);
/// A primary token of the session's user, to start programs with. Close it with CloseHandle.
///
/// @param elevated  not 0: with the user's full rights, where the system has split them
/// @return 0, 1314, 1008, 740 (the user has no further rights), or the system's code
SYSMAINT_API long SessionDuplicateToken(unsigned long session, int elevated, void** token);
/// @param folder  a KNOWNFOLDERID; the folder need not exist
/// @return 0, 1314, 1008, 2 (no such folder), or the system's code
SYSMAINT_API long SessionGetKnownFolder(unsigned long session, const struct _GUID* folder, wchar_t** path);
/// Starts a program as the session's user, on that desktop and with that user's environment. Each argument
/// arrives unchanged, including blanks, quotation marks and backslashes.
///
/// With kRunCapture the program has no window and no input, and `output` receives the bytes that it and its
/// children write until it ends; children that outlive it are not waited for. Otherwise `output` is empty.
/// After a time-out the program continues to run unless kRunEndOnTimeout is set; its output is lost.
///
/// @param exitCode  259 without waiting
/// @return 0; 87, also for a path that is not absolute and normalised; 6 a cancel event that is none (where
///         it is waited for); 193 not a program, or a batch file, whose arguments follow other rules; 2 and 3
///         not found; 5; 740; 1008; 1223; 1314; 1460; or the system's code
SYSMAINT_API long SessionRunProgram(const struct SessionProgram* program, unsigned long* processId,
                                    unsigned long* exitCode, char** output, size_t* size);
SYSMAINT_C_END
