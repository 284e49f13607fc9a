#pragma once

#include "win32/threadpool/include/IThreadContext.h"
#include "win32/threadpool/include/THPCategoryOptions.h"

struct THPWorkKey;
struct THPWorkCall;

/// A pool of worker threads. The exported functions THP... document each operation. The operations raise
/// their failures or return them as codes.
struct IThreadPool
{
    /// How work is cancelled. In each case work that is still queued is removed and ends as cancelled.
    enum class OperationType : std::uint32_t
    {
        CancelAndReturn = 0, ///< signals the cancel event of running work and does not wait for it
        CancelAndWait = 1,   ///< the same, and waits indefinitely until it has ended
        DropQueued = 2       ///< leaves running work alone
    };

    virtual ~IThreadPool() = default;
    virtual void createCategory(const THPWorkKey& key, const THPCategoryOptions& options) = 0;
    virtual long queueWork(const THPWorkKey& key, const THPWorkCall& call, const HashMessageW& arguments,
                           ITHPWorkItem::ScheduleOption option, void** instance) = 0;
    virtual long suspendWork(const THPWorkKey& key) = 0;
    virtual long resumeWork(const THPWorkKey& key) = 0;
    virtual long cancelWork() = 0;
    virtual long cancelWork(const THPWorkKey& key, OperationType operation) = 0;
    virtual long wait(const THPWorkKey& key, std::uint32_t timeout, void* extraHandle) = 0;
    virtual bool isRunning(const THPWorkKey& key) = 0;
    virtual long getResult(const THPWorkKey& key, long& result) = 0;
};
