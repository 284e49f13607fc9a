#pragma once

// Processes, threads, modules and sessions: who runs, who holds a file, as whom and where; ending what must
// end; hearing of what starts; starting programs as the user of a session.
//
// The handles of objects can be owned by a SmartHandle, as in SmartHandle<CloseProcess>.
//
// Status functions return 0 or a Win32 code. Besides their own: 87 for a null pointer that is not said to be
// optional, 8 without memory. A call that fails changes none of its outputs. Lists, texts and records are
// buffers that utilsFreeMemory gives back; the texts of records stand in the same buffer. All functions may
// be called from any thread.
//
// An id may be given to another process as soon as its process has ended. So everything here goes by the id
// and the start time together: what has another start time by now is gone (1168). Where the time cannot be
// had a process is neither taken for gone nor touched (5).

#include <windows.h>

#include "core/win32/utils/memory/api.h"
#include "core/win32/utils/objectmanager/include/SmartHandle.h"
#include "core/win32/utils/security/api.h"
#include "win32/processes/include/ProcessOptions.h"
#include "win32/processes/include/ProcessRecords.h"

// ---- The process manager: one for the process, with one snapshot of all processes and threads, which the
// system gives in one piece: each process once, and complete. Processes that are just being made are no part
// of it yet. It stays as it is until PMRefresh. The modules of a process are read when they are asked for.
//
// Besides their own codes the PM functions return 6 while there is no manager.

/// Makes the manager with its first snapshot, or opens it once more. Codes: the system's.
SYSMAINT_API long CreateProcessManager();
/// Opens the manager once more. Codes: 1168 there is none.
SYSMAINT_API long OpenProcessManager();
/// Gives one opening back, the last one with the manager. 0 when there is none.
SYSMAINT_API int CloseProcessManager();

/// Takes a new snapshot. Codes: the system's; the old one stays.
SYSMAINT_API long PMRefresh();
/// All processes, ordered by id.
SYSMAINT_API long PMListProcesses(ProcessEntry** entries, size_t* count);
/// The threads of a process, or of kAllProcesses. Codes: 1168 no such process.
SYSMAINT_API long PMListThreads(unsigned long process, ThreadEntry** entries, size_t* count);
/// The modules of a process, or of kAllProcesses as far as they do not refuse. Codes: 1168 no such process,
/// or it has ended; 5 it refuses; the system's.
SYSMAINT_API long PMListModules(unsigned long process, ModuleEntry** entries, size_t* count);
/// One process. Codes: 1168 none has that id.
SYSMAINT_API long PMFindById(unsigned long id, ProcessEntry** entry);
/// Those whose image has this name, without regard to case. None is no failure.
SYSMAINT_API long PMFindByName(const wchar_t* name, ProcessEntry** entries, size_t* count);
/// Those that run the file of this path, without regard to case; short names count as the long ones that they
/// stand for. Processes that do not tell their path are not among them.
SYSMAINT_API long PMFindByPath(const wchar_t* path, ProcessEntry** entries, size_t* count);
/// Those of a session.
SYSMAINT_API long PMFindBySession(unsigned long session, ProcessEntry** entries, size_t* count);
/// The process that started this one, the one that started that, and so on, as far as they are there: what
/// started later than its child merely has its parent's id. Codes: 1168 none has that id.
SYSMAINT_API long PMGetParents(unsigned long id, ProcessEntry** entries, size_t* count);
/// The process and all below it, parents before their children. Codes: as above.
SYSMAINT_API long PMGetTree(unsigned long id, ProcessEntry** entries, size_t* count);
/// Those that have a file open or loaded, now: what the system's restart manager knows, and those among whose
/// modules it is. Codes: the restart manager's, for then nobody could tell that a file is free.
SYSMAINT_API long PMFindUsers(const wchar_t* path, ProcessEntry** entries, size_t* count);

// ---- The process monitor: one for the process. It posts a HashMessageW without a value on a message topic
// for each process that starts and ends from the return of PMStartMonitor on, each once, a process's start
// before its end. The message's id is kProcessStarted or kProcessEnded; its parameters are
//
//     "ProcessId", "ParentId", "SessionId"   32-bit numbers
//     "ImageName"                            text
//     "Time"                                 8 bytes, a FILETIME: of the start, or when the end was noticed
//
// It lives on the system's events (WMI) where these are to be had, which takes an administrator, and misses
// nothing once they come. What happened while it asked for them is told by one comparison of snapshots then: a
// process that started and ended in between is missed. Where events are refused or stop coming, snapshots are
// compared at the chosen interval, and a process that lives shorter than that may be missed as a whole. Its
// thread is its own. The 50 and more processes of a busy system cost a look some tenths of a millisecond.

/// Makes the monitor, which is stopped, or opens it once more.
SYSMAINT_API long CreateProcessMonitor();
/// Opens the monitor once more. Codes: 1168 there is none.
SYSMAINT_API long OpenProcessMonitor();
/// Gives one opening back, the last one with the monitor, which is stopped. 0 when there is none.
SYSMAINT_API int CloseProcessMonitor();
/// Starts it.
///
/// @param topic        name of the topic, which is opened or created and held while the monitor runs
/// @param filter       image names separated by commas, with the wildcards of IScanValidator; null for all
/// @param interval     milliseconds between snapshots, 10 to 60,000
/// @param wantsEvents  0: snapshots alone; nothing of COM is loaded then
/// @return 0; 6 no monitor; 87, also an empty name in the filter; 183 it runs already; the system's code
SYSMAINT_API long PMStartMonitor(const wchar_t* topic, const wchar_t* filter, unsigned long interval,
                                 int wantsEvents);
/// Stops it: when this returns nothing is posted any more. What was posted is still delivered. Takes a second
/// at most. To stop it again has no effect. Codes: 6.
SYSMAINT_API long PMStopMonitor();
/// What it lives on, a MonitorSource. `code` receives why that is not kMonitorEvents (the low 16 bits of
/// COM's code), or what went wrong last; 0 if nothing. Codes: 6.
SYSMAINT_API long PMGetMonitorState(unsigned long* source, long* code);

// ---- Process objects, with handles of their own: named, shared, closed with the last opening. A name that
// is given already opens that object. Without a name it has the id and start time for one: the same process
// is the same object. Failure is the invalid handle, with the code as the last error: 87, 8, and for the
// functions that only open 1168.
//
// The status functions return 6 and 487 for the handle, 1168 when the process has ended, and 5. Only id and
// start time of an entry are looked at.

SYSMAINT_API void* CreateProcessW(const ProcessEntry& entry);
SYSMAINT_API void* CreateProcessW(const ProcessEntry& entry, const wchar_t* name);
SYSMAINT_API void* OpenProcess(const wchar_t* name);
SYSMAINT_API int CloseProcess(void* process);
SYSMAINT_API long ProcessGetNameByHandle(void* process, const wchar_t** name);

/// Whether it still runs: 0 when it has ended, whoever has its id.
SYSMAINT_API long ProcessIsRunning(void* process, int* isRunning);
/// All that it tells, as it is now; parts that are refused have their codes.
SYSMAINT_API long ProcessGetDetails(void* process, ProcessDetails** details);
/// Asks its visible top-level windows of this session to close, as their user would. How many were asked is
/// no promise that they do: wait. Codes: 50 as for ProcessEnd.
SYSMAINT_API long ProcessCloseWindows(void* process, unsigned long* asked);
/// Waits for its end. Codes: 1460, 1223.
SYSMAINT_API long ProcessWait(void* process, unsigned long timeout, void* cancelEvent,
                              unsigned long* exitCode);
/// Ends it, with the exit code 1067, and waits until it is gone. It cannot save anything.
///
/// Of a tree the children end before their parents: only those whose parent truly was that process. All that
/// is refused is refused before anything ends, except for what is started while this runs.
///
/// @param options  ProcessEndOption values together
/// @param timeout  milliseconds; a tree that goes on growing is given up after that time, but not before 5
///                 seconds
/// @return besides those above: 50 the calling process, the system's (which would take the system or the
///         session with them), or one of these among them; 1052 a service, without kEndServices; the service
///         manager's code, when that cannot be told; 1460 told to end, and not gone yet
SYSMAINT_API long ProcessEnd(void* process, unsigned long options, unsigned long timeout);
/// Stops all its threads, and lets them go on. Each counts. Codes: 50 as above.
SYSMAINT_API long ProcessSuspend(void* process);
SYSMAINT_API long ProcessResume(void* process);
/// @param priorityClass  NORMAL_PRIORITY_CLASS and the like; 87 for any other number
SYSMAINT_API long ProcessSetPriority(void* process, unsigned long priorityClass);

// ---- Thread objects, in the same way. Suspending a thread that holds a lock stops whoever wants it.

SYSMAINT_API void* CreateThread(const ThreadEntry& entry);
SYSMAINT_API void* OpenThread(const wchar_t* name);
SYSMAINT_API int CloseThread(void* thread);

SYSMAINT_API long ThreadIsRunning(void* thread, int* isRunning);
/// As it is now.
SYSMAINT_API long ThreadGetDetails(void* thread, ThreadEntry* details);
/// Waits for its end. Codes: 1460, 1223.
SYSMAINT_API long ThreadWait(void* thread, unsigned long timeout, void* cancelEvent);
/// `count` receives how often it was suspended before. Codes: 50, for threads of the calling process and of
/// those that ProcessEnd refuses.
SYSMAINT_API long ThreadSuspend(void* thread, unsigned long* count);
SYSMAINT_API long ThreadResume(void* thread, unsigned long* count);
/// @param priority  THREAD_PRIORITY_NORMAL and the like
SYSMAINT_API long ThreadSetPriority(void* thread, long priority);

// ---- Module objects, in the same way.

SYSMAINT_API void* CreateModule(const ModuleEntry& entry);
SYSMAINT_API void* OpenModule(const wchar_t* name);
SYSMAINT_API int CloseModule(void* module);

/// The entry that it was made from.
SYSMAINT_API long ModuleGetDetails(void* module, ModuleEntry** details);
/// Whether its process still has it at that address: 0 also when the process has ended.
SYSMAINT_API long ModuleIsLoaded(void* module, int* isLoaded);

// ---- Sessions. The session at the console, names, tokens and impersonation:
// core/win32/utils/security/api.h; the user's hive: RegistryOpenUserHive. The token of a session's user is
// for the system's account alone (1314); a program of the user's own takes its own for its own session. 1008:
// nobody is logged on there.

/// All sessions. A system without remote sessions lists the console's alone. Codes: the system's.
SYSMAINT_API long SessionEnumerate(SessionRecord** records, size_t* count);
/// A primary token of the session's user, to start programs with. Close it with CloseHandle.
///
/// @param elevated  not 0: with all of the user's rights, where the system has split them
/// @return 0, 1314, 1008, 740 (the user has no further rights), or the system's code
SYSMAINT_API long SessionDuplicateToken(unsigned long session, int elevated, void** token);
/// @param folder  a KNOWNFOLDERID; the folder need not be there
/// @return 0, 1314, 1008, 2 (no such folder), or the system's code
SYSMAINT_API long SessionGetKnownFolder(unsigned long session, const GUID* folder, wchar_t** path);
/// Starts a program as the session's user, on that desktop and with that user's environment. Each argument
/// arrives as it stands, whatever blanks, quotation marks and backslashes it has.
///
/// With kRunCapture the program has no window and nothing to read, and `output` receives the bytes that it,
/// and what it starts, write until it ends; programs that live on are not waited for. Otherwise `output` is
/// empty. A program that was waited for in vain runs on without kRunEndOnTimeout, and its output is lost.
///
/// @param exitCode  259 without waiting
/// @return 0; 87, also for a path that is not whole; 193 no program, or a batch file, whose arguments follow
///         other rules; 2 and 3 not there; 5; 740; 1008; 1223; 1314; 1460; or the system's code
SYSMAINT_API long SessionRunProgram(const SessionProgram* program, unsigned long* processId,
                                    unsigned long* exitCode, char** output, size_t* size);

/// The calling thread is a session's user while one of these lives, and afterwards again what it was before,
/// whichever way the scope is left. To be made and destroyed by the same thread.
class SessionImpersonation
{
public:
    /// See SessionImpersonate; `getCode` says whether it worked.
    explicit SessionImpersonation(unsigned long session) : m_code(SessionImpersonate(session, &m_undo)) {}
    SessionImpersonation(const SessionImpersonation&) = delete;
    SessionImpersonation& operator=(const SessionImpersonation&) = delete;
    ~SessionImpersonation()
    {
        // To be nobody but oneself is better than to stay somebody else.
        if (m_code == ERROR_SUCCESS && SessionRevert(m_undo) != ERROR_SUCCESS)
            RevertToSelf();
    }

    /// 0, or why the thread is what it was before.
    [[nodiscard]] long getCode() const noexcept { return m_code; }

private:
    void* m_undo = nullptr;
    long m_code;
};
