#pragma once

#include <atomic>
#include <functional>
#include <map>

#include "core/win32/utils/connections/include/OverlappedCall.h"
#include "core/win32/utils/lookup/include/HVKGateway.h"
#include "core/win32/utils/objectmanager/include/ObjectTable.h"
#include "core/win32/utils/objectmanager/include/SmartHandle.h"
#include "core/win32/utils/threadpool/include/ThreadPool.h"

/// One kind of a queue's background work: an object that a pool runs, in a category of one thread.
class HVKWork final : public ITHPWorkItem
{
public:
    using Run = std::function<void(HANDLE cancelEvent)>;

    /// Opens or creates the pool. Raises its code.
    HVKWork(const wchar_t* pool, const wchar_t* category, Run run);

    // These are called with the queue's lock held.

    /// Whether the caller is to queue a run: none is queued or under way that will still look for work.
    [[nodiscard]] bool claim();
    /// For the run itself, and for who could not queue it: it looks for work no more.
    void leave() noexcept { m_started = false; }
    /// Tells the runs that are queued or under way to end.
    void cancel() noexcept;

    // These are called without it: threads begin and end, which needs the loader.

    /// Queues the run that was claimed. Returns 0 or the pool's code.
    [[nodiscard]] long queue() noexcept;
    /// Waits for all runs, for at most `timeout` milliseconds.
    void wait(DWORD timeout) noexcept;

    long operator()(IThreadContext& context, void* cancelEvent) override;

private:
    [[nodiscard]] bool isLost() noexcept;

    std::wstring m_category;
    Run m_run;
    PoolOpening m_pool;
    std::atomic<void*> m_instance{nullptr}; // of the run that was queued last
    std::atomic<bool> m_begun{false};       // it has begun
    std::atomic<bool> m_started{false};
};

/// A queue of files to be looked up: unique by path, those of the highest priority first, in the order of
/// adding among equals. One worker hashes them, another sends them in batches of up to 255, one request at a
/// time: while one is under way the files for the next gather. The operations raise bare codes.
class HVKQueue
{
public:
    static constexpr const char* kClassName = "HVKQueue";

    HVKQueue(const wchar_t* name, std::uint32_t messageId);
    HVKQueue(const HVKQueue&) = delete;
    HVKQueue& operator=(const HVKQueue&) = delete;
    ~HVKQueue() { close(); }

    void addPath(const wchar_t* path, long priority);
    void setServer(HVKServer server);
    /// Waits until every file has an answer or a reason why not. Returns the reason of the first, or 0.
    long wait(const WaitLimits& limits);
    void cancel();
    /// The files without an answer, in the order in which that became known; they are forgotten.
    [[nodiscard]] std::vector<std::pair<std::wstring, long>> takeUnanswered();
    /// Ends the work and waits for it, in the loader lock for 5 seconds at most.
    void close() noexcept;

private:
    using Place = std::pair<long, std::uint64_t>; // by priority, then by number
    /// What a thread has claimed under the lock and starts after it.
    struct Claimed
    {
        bool hashing = false;
        bool asking = false;
    };

    void hashFiles(HANDLE cancelEvent);
    void askServer(HANDLE cancelEvent);
    bool takeNext(HVKItem& item, Place& place, HANDLE cancelEvent);
    bool takeBatch(std::vector<HVKItem>& batch, HVKServer& server, HANDLE cancelEvent);
    void hashed(const HVKItem& item, const Place& place, long code);
    // These are called with the lock held.
    void account(const std::wstring& path, long code);
    void enqueue(HVKItem item);
    [[nodiscard]] Claimed claimWork();
    void noteDrained() noexcept;
    // Called without it. What cannot be started has no answer.
    void startWork(Claimed claimed);

    std::uint32_t m_messageId;
    ReadWriteLock m_lock;
    HVKServer m_server;
    std::map<Place, HVKItem> m_waiting;
    std::map<std::wstring, Place> m_places; // of what no request has been sent for yet, by its key
    std::vector<HVKItem> m_ready;           // hashed, for the next request
    std::vector<std::pair<std::wstring, long>> m_unanswered;
    std::uint64_t m_added = 0;
    std::size_t m_inHand = 0; // being hashed or asked for
    bool m_closed = false;
    Win32Handle m_drained = makeEvent();
    HVKWork m_hashing;
    HVKWork m_asking;
};
using HVKQueuePtr = SharedPtr<HVKQueue>;

/// The table of all lookup queues.
extern ObjectTable<HVKQueuePtr> hvkQueues;

/// Gives a handle back; the last one ends the queue. Returns 0 for a handle that is not open.
int closeHVKQueue(void* handle) noexcept;
