#pragma once

// Thread pools: named pools of worker threads, divided into categories, each with its own threads, options
// and queue. Work is queued into a category and identified by the key that it was queued under.
//
// Categories and work have a name, compared without regard to case, or a number; a name never equals a
// number. Any number of queued items may share one key. Each also has an instance, the value that
// THPQueueWork stores, which is never reused.
//
// Status functions return a Win32 code. Besides their own codes: 8 when memory runs out, 6 for a pool handle
// that was never given out, 487 for one that has been closed, 87 for a null name, 1168 for an unknown
// category, or the code of a failed system call. A failing call queues, runs and cancels nothing, unless
// stated otherwise.
//
// Work begins at once on an idle thread of the category, or else on a new thread while the category has fewer
// than its options allow; otherwise the schedule option decides. A thread that finishes its work takes the
// next from the front of the queue, so within one thread work runs in queue order.
//
// While a thread of a pool exists, it holds a reference to this library: FreeLibrary with pools that have
// threads returns at once, and the library stays loaded until these pools are closed. Work that ends its own
// thread (ExitThread) ends with 574 and keeps the library loaded for good.
//
// At the end of the process, when the other threads are gone, nothing is waited for: the status functions do
// nothing and return 1115. In a thread that holds the loader lock, in the start or the end of a module, each
// call waits at most 5 seconds in all, whatever timeout it passes: work may need that lock to end. Work that
// is still running then goes on, even if the module that its code belongs to is unloaded next: end it before.

#include <windows.h>

#include "core/win32/utils/objectmanager/include/Api.h"
#include "win32/threadpool/include/IThreadPool.h"

// ---- Pools

/// Creates the pool with that name, or opens it. Returns the handle, or the invalid handle with the last
/// error 87 (null name) or 8.
SYSMAINT_API void* THPCreateThreadPool(const wchar_t* name);
/// Opens the pool with that name. Returns the invalid handle with the last error 87, 1168 (no such pool) or
/// 8.
SYSMAINT_API void* THPOpenThreadPool(const wchar_t* name);
/// Closes the handle; nonzero on success, 0 for a handle that is not open. Closing the last handle closes the
/// pool, even while calls are in progress: all its work is cancelled, suspended work is resumed, the threads
/// end, and the call waits indefinitely until no work is running, so work must watch its cancel event. Two
/// kinds of work are not waited for: the work that makes the call, and work that itself waits for the calling
/// thread, in a close or without a limit.
///
/// If the system refuses to signal the event of running work or of a thread, or to resume a thread, the call
/// tries again for 5 seconds. Then it returns 0 with the system's code as the last error: the pool is closed,
/// but that work may still be running, and the thread that could not be told may stay.
SYSMAINT_API int THPCloseThreadpool(void* pool);

/// Creates a category. Codes: 183 it exists. The options are checked only when a thread is created.
SYSMAINT_API long THPCreateCategory(void* pool, const wchar_t* category, const THPCategoryOptions& options);
SYSMAINT_API long THPCreateCategory(void* pool, unsigned long category, const THPCategoryOptions& options);

// ---- Queueing. A category that does not exist is created, with no limit on threads. The arguments are
// copied; an object must live until its run has ended. `instance` may be null; it receives the item's
// instance before the work begins, and is unchanged on failure.
//
// Codes: 87 a null function or an unknown option; 1003 all threads are in use and the option is OnlyIfFree;
// 5023 the category's creation flags are not 0 or 4; the system's for a thread, an event or a priority that
// was refused.

SYSMAINT_API long THPQueueWork(void* pool, const wchar_t* category, const wchar_t* work,
                               THPWorkFunction function, const HashMessageW& arguments,
                               ITHPWorkItem::ScheduleOption option, void** instance);
SYSMAINT_API long THPQueueWork(void* pool, const wchar_t* category, const wchar_t* work, ITHPWorkItem& object,
                               const HashMessageW& arguments, ITHPWorkItem::ScheduleOption option,
                               void** instance);
SYSMAINT_API long THPQueueWork(void* pool, unsigned long category, unsigned long work,
                               THPWorkFunction function, const HashMessageW& arguments,
                               ITHPWorkItem::ScheduleOption option, void** instance);
SYSMAINT_API long THPQueueWork(void* pool, unsigned long category, unsigned long work, ITHPWorkItem& object,
                               const HashMessageW& arguments, ITHPWorkItem::ScheduleOption option,
                               void** instance);

// ---- Suspending and resuming. Threads are suspended in the caller's work, never inside the library. A
// thread that is inside, even in a call made by its own work, stops when it leaves, or when the library calls
// a handler of the caller's. A suspended thread holds no lock of the library or of a heap, but keeps the
// caller's and the system's, so resume it before you wait for anything that it may hold. Of the system's it
// never holds the loader's and the one of the process, which the end of the process needs: a thread that may
// hold one of them is suspended as soon as it does not, and the call waits for that.
//
// A suspended category begins no work: what is queued into it later, or follows when other work ends or is
// cancelled, also stops before it begins. Resuming work by its key lets that work alone go on. Cancelling
// work resumes it if it has begun, and closing the pool does too; a wait for suspended work lasts until
// somebody resumes it.
//
// Codes: 1168 no thread runs work with that key, even if it is queued; 5023 for suspending what is already
// suspended; 170 a thread could not be suspended for 5 seconds, because it, or another thread that others
// wait for, is loading or unloading a module. If suspending fails, what the call has suspended is resumed.
// Resuming what is not suspended has no effect.

SYSMAINT_API long THPSuspendWork(void* pool, const wchar_t* category);
SYSMAINT_API long THPSuspendWork(void* pool, unsigned long category);
SYSMAINT_API long THPSuspendWork(void* pool, const wchar_t* category, const wchar_t* work);
SYSMAINT_API long THPSuspendWork(void* pool, unsigned long category, unsigned long work);
SYSMAINT_API long THPResumeWork(void* pool, const wchar_t* category);
SYSMAINT_API long THPResumeWork(void* pool, unsigned long category);
SYSMAINT_API long THPResumeWork(void* pool, const wchar_t* category, const wchar_t* work);
SYSMAINT_API long THPResumeWork(void* pool, unsigned long category, unsigned long work);

// ---- Cancelling. Queued work is removed and ends as cancelled; the operation decides what happens to
// running work (IThreadPool::OperationType). Work that was given to a thread but has not begun, suspended or
// not, counts as queued and does not begin. A call that matches no work succeeds. Work that cancels itself
// and waits does not wait for itself. If one thread cannot be signalled, the others still are, and the code
// reports it. Codes: 87 an unknown operation, or a null instance; 1131 the work is cancelled, but is not
// waited for, because it waits for the calling work.

/// All work of the pool, with CancelAndReturn.
SYSMAINT_API long THPCancelWork(void* pool);
SYSMAINT_API long THPCancelWork(void* pool, const wchar_t* category, IThreadPool::OperationType operation);
SYSMAINT_API long THPCancelWork(void* pool, unsigned long category, IThreadPool::OperationType operation);
SYSMAINT_API long THPCancelWork(void* pool, const wchar_t* category, const wchar_t* work,
                                IThreadPool::OperationType operation);
SYSMAINT_API long THPCancelWork(void* pool, unsigned long category, unsigned long work,
                                IThreadPool::OperationType operation);
SYSMAINT_API long THPCancelWork(void* pool, const wchar_t* category, const wchar_t* work, void* instance,
                                IThreadPool::OperationType operation);
SYSMAINT_API long THPCancelWork(void* pool, unsigned long category, unsigned long work, void* instance,
                                IThreadPool::OperationType operation);

// ---- Waiting, for at most `timeout` milliseconds (INFINITE: indefinitely), for the work that is queued or
// running at the time of the call. `extraHandle` may be null; when it is signalled the wait ends early, and
// takes what every wait of the system takes: a mutex, a count of a semaphore, the signal of an event that
// resets itself. The calling work itself is never waited for.
//
// Returns 0 when all of it has finished; 1223 when some of it ended cancelled, or when `extraHandle` ended
// the wait; 258 when the time is over; 87 for a null instance; 1131 when work or a handler waits, without a
// limit and an `extraHandle`, for work that in the same way waits for the calling thread, directly or through
// others, or that closes what the calling thread runs. Work that waits for other work which is queued behind
// it, in a category without a free thread, is not detected and waits forever. THPGetWorkResult tells how
// finished work ended. For named work that has already ended: 1223 if its latest run was cancelled and is
// among the last 64 of its category that did not end with 0; otherwise 0.

SYSMAINT_API long THPWait(void* pool, const wchar_t* category, unsigned long timeout, void* extraHandle);
SYSMAINT_API long THPWait(void* pool, unsigned long category, unsigned long timeout, void* extraHandle);
SYSMAINT_API long THPWait(void* pool, const wchar_t* category, const wchar_t* work, unsigned long timeout,
                          void* extraHandle);
SYSMAINT_API long THPWait(void* pool, unsigned long category, unsigned long work, unsigned long timeout,
                          void* extraHandle);
SYSMAINT_API long THPWait(void* pool, void* instance, const wchar_t* category, const wchar_t* work,
                          unsigned long timeout, void* extraHandle);
SYSMAINT_API long THPWait(void* pool, void* instance, unsigned long category, unsigned long work,
                          unsigned long timeout, void* extraHandle);

// ---- The work's own code. `result` receives how the latest run of the work, or the run of one instance,
// ended: what the work returned or raised, 1223 if it was cancelled, the system's code if no thread could be
// created for it after it was queued. Results are kept for the last 64 items of a category that did not end
// with 0; unknown work counts as ended with 0.
//
// Codes: 170 such work is queued or running, and `result` is unchanged; 87 for a null instance.

SYSMAINT_API long THPGetWorkResult(void* pool, const wchar_t* category, const wchar_t* work, long& result);
SYSMAINT_API long THPGetWorkResult(void* pool, unsigned long category, unsigned long work, long& result);
SYSMAINT_API long THPGetWorkResult(void* pool, const wchar_t* category, const wchar_t* work, void* instance,
                                   long& result);
SYSMAINT_API long THPGetWorkResult(void* pool, unsigned long category, unsigned long work, void* instance,
                                   long& result);

// ---- Querying. `running` is set to 1 when such work is queued or running, suspended or not, otherwise to 0;
// on failure it is unchanged. Codes: 87 a null instance.

SYSMAINT_API long THPIsRunning(void* pool, const wchar_t* category, int& running);
SYSMAINT_API long THPIsRunning(void* pool, unsigned long category, int& running);
SYSMAINT_API long THPIsRunning(void* pool, const wchar_t* category, const wchar_t* work, int& running);
SYSMAINT_API long THPIsRunning(void* pool, unsigned long category, unsigned long work, int& running);
SYSMAINT_API long THPIsRunning(void* pool, const wchar_t* category, const wchar_t* work, void* instance,
                               int& running);
SYSMAINT_API long THPIsRunning(void* pool, unsigned long category, unsigned long work, void* instance,
                               int& running);
