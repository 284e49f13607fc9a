#pragma once

#include <atomic>
#include <vector>

#include "core/win32/utils/objectmanager/include/ReadWriteLock.h"
#include "core/win32/utils/objectmanager/include/Win32Handle.h"
#include "core/win32/utils/threadpool/include/THPIdentifier.h"
#include "win32/threadpool/include/IThreadContext.h"

inline constexpr char kTHPWorkItemHeader[] = "core\\win32\\utils\\threadpool\\include\\THPWorkItem.h";

/// What to run: a caller's function or object.
struct THPWorkCall
{
    static constexpr std::uint32_t kFunction = 0;
    static constexpr std::uint32_t kObject = 1;

    THPWorkCall(THPWorkFunction workFunction) noexcept // NOLINT: converts on purpose
        : kind(kFunction), function(workFunction)
    {
    }
    THPWorkCall(ITHPWorkItem& workObject) noexcept // NOLINT: converts on purpose
        : kind(kObject), object(&workObject)
    {
    }

    std::uint32_t kind;
    THPWorkFunction function = nullptr;
    ITHPWorkItem* object = nullptr;
};

/// Events that finished work returns for reuse.
class EventCache
{
public:
    EventCache() { m_events.reserve(kKept); }

    /// An unsignalled manual-reset event. Empty on failure, with the last error set.
    [[nodiscard]] Win32Handle take() noexcept;
    void giveBack(Win32Handle event) noexcept;

private:
    static constexpr std::size_t kKept = 16;

    ReadWriteLock m_lock;
    std::vector<Win32Handle> m_events;
};

/// Sets an event that other threads depend on; a failing call is retried before it counts. Returns whether it
/// is set.
bool signalEvent(HANDLE event) noexcept;

/// One queued unit of work. Its category's lock guards everything that changes, and only the category changes
/// it.
class THPWorkItem final : public ITHPWorkItem
{
public:
    enum class State : std::uint32_t
    {
        Queued = 0,
        Running = 1,
        Finished = 2,
        Cancelled = 3
    };

    /// Raises an Exception with 87 for a null function or any other kind than function and object.
    THPWorkItem(const THPWorkKey& key, const THPWorkCall& call, const HashMessageW& arguments,
                ScheduleOption option, const SharedPtr<EventCache>& events);
    THPWorkItem(const THPWorkItem&) = delete;
    THPWorkItem& operator=(const THPWorkItem&) = delete;
    ~THPWorkItem() override;

    [[nodiscard]] std::uint32_t getIDType() const override { return m_work.getIDType(); }
    [[nodiscard]] const wchar_t* getName() const override { return m_work.getName(); }
    [[nodiscard]] std::uint32_t getID() const override { return m_work.getID(); }
    [[nodiscard]] void* getUserData() const override;
    /// Runs the function or the object.
    long operator()(IThreadContext& context, void* cancelEvent) override;

    [[nodiscard]] const HashMessageW& getArguments() const noexcept { return m_arguments; }
    [[nodiscard]] ScheduleOption getScheduleOption() const noexcept { return m_option; }
    /// The number, as a pointer, that identifies this item among all that were ever queued.
    [[nodiscard]] void* getInstance() const noexcept { return m_instance; }
    [[nodiscard]] bool matches(const THPWorkKey& key) const noexcept
    {
        return (!key.work || *key.work == m_work) && (key.instance == nullptr || key.instance == m_instance);
    }
    [[nodiscard]] bool isSameWork(const THPWorkItem& other) const noexcept { return m_work == other.m_work; }

    void setRunning() noexcept { m_state = State::Running; }
    void setThread(DWORD thread) noexcept { m_thread = thread; }
    /// The thread that has begun it; 0 before that and after its end.
    [[nodiscard]] const std::atomic<DWORD>& getThread() const noexcept { return m_thread; }
    void requestCancel() noexcept { m_cancelRequested = true; }
    [[nodiscard]] bool isCancelRequested() const noexcept { return m_cancelRequested; }
    /// Releases the arguments, whose destructors may be the caller's code: never under a lock, and not while
    /// the item can still run.
    void releaseArguments() noexcept;
    /// Ends the item: sets the state and wakes those who wait for it.
    void complete(State state, long status) noexcept;
    [[nodiscard]] bool isComplete() const noexcept { return m_state >= State::Finished; }
    /// How it ended: 1223 when it was cancelled, otherwise the status of the run.
    [[nodiscard]] long getOutcome() const noexcept
    {
        return m_state == State::Cancelled ? static_cast<long>(ERROR_CANCELLED) : m_status;
    }
    [[nodiscard]] bool isCancelled() const noexcept { return m_state == State::Cancelled; }
    /// A later run of the same work ended well: from now on only queries for this instance get its outcome.
    void supersede() noexcept { m_superseded = true; }
    [[nodiscard]] bool isSuperseded() const noexcept { return m_superseded; }
    /// The event that is signalled at the end. Null on failure, with the last error set.
    [[nodiscard]] HANDLE getDoneEvent() noexcept;

private:
    THPIdentifier m_work;
    THPWorkCall m_call;
    mutable HashMessageW m_arguments; // a function may change its own copy through the user data
    ScheduleOption m_option;
    void* m_instance;
    SharedPtr<EventCache> m_events;
    State m_state = State::Queued;
    std::atomic<DWORD> m_thread{0};
    bool m_cancelRequested = false;
    bool m_superseded = false;
    long m_status = ERROR_SUCCESS;
    Win32Handle m_done; // taken when someone waits
};
