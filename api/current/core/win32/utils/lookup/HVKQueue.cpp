#include "core/win32/utils/lookup/include/HVKQueue.h"

#include <algorithm>

constexpr char kHVKQueueHeader[] = "core\\win32\\utils\\lookup\\include\\HVKQueue.h";

namespace {
constexpr std::uint32_t kWork = 0; // one work in each category
constexpr DWORD kLook = 1000;      // milliseconds until work that somebody took out of its pool is missed
} // namespace

// Queues hold pools.
ObjectTable<HVKQueuePtr> hvkQueues(30);

// One thread: a run that was cancelled and the next never look for work at once.
HVKWork::HVKWork(const wchar_t* pool, const wchar_t* category, Run run)
    : m_category(category), m_run(std::move(run)),
      m_pool(PLACE(kHVKQueueHeader, "HVKWork::HVKWork", __LINE__), pool)
{
    requireSuccess(m_pool.requireCategory(THPIdentifier(category), THPCategoryOptions(1, 0, 0, 0)));
}

// The pool is everybody's who knows its name: work that has not begun may have been cancelled there.
bool HVKWork::isLost() noexcept
{
    void* instance = m_instance;
    if (m_begun || instance == nullptr)
        return false;
    bool running = true;
    m_pool.with([&](ThreadPool& pool) {
        running = pool.isRunning({THPIdentifier(m_category.c_str()), THPIdentifier(kWork), instance});
        return ERROR_SUCCESS;
    });
    return !running && !m_begun;
}

bool HVKWork::claim()
{
    if (m_started && !isLost())
        return false;
    m_started = true;
    m_begun = false;
    m_instance = nullptr;
    return true;
}

long HVKWork::queue() noexcept
{
    void* instance = nullptr;
    const long code = m_pool.with([&](ThreadPool& pool) {
        return pool.queueWork({THPIdentifier(m_category.c_str()), THPIdentifier(kWork)}, *this,
                              HashMessageW(), ScheduleOption::AtEnd, &instance);
    });
    if (code == ERROR_SUCCESS)
        m_instance = instance;
    return code;
}

void HVKWork::cancel() noexcept
{
    m_pool.with([&](ThreadPool& pool) {
        return pool.cancelWork({THPIdentifier(m_category.c_str()), THPIdentifier(kWork)},
                               IThreadPool::OperationType::CancelAndReturn);
    });
}

void HVKWork::wait(DWORD timeout) noexcept
{
    m_pool.with([&](ThreadPool& pool) {
        return pool.wait({THPIdentifier(m_category.c_str()), THPIdentifier(kWork)}, timeout, nullptr);
    });
}

long HVKWork::operator()(IThreadContext&, void* cancelEvent)
{
    const InsideLibrary inside;
    m_begun = true;
    try {
        m_run(cancelEvent);
    } catch (...) {
        leave(); // without memory: the next that is added begins it again
        throw;
    }
    return isCancelled(cancelEvent) ? ERROR_CANCELLED : ERROR_SUCCESS;
}

HVKQueue::HVKQueue(const wchar_t* name, std::uint32_t messageId)
    : m_messageId(messageId),
      m_hashing(L"HVKQueueThreadPool", name, [this](HANDLE cancelEvent) { hashFiles(cancelEvent); }),
      m_asking(L"HVKThreadPool", name, [this](HANDLE cancelEvent) { askServer(cancelEvent); })
{
    SetEvent(m_drained.get());
}

// Without memory all is as before.
void HVKQueue::enqueue(HVKItem item)
{
    const Place place(-item.getPriority(), m_added);
    const auto known = m_places.find(item.getKey());
    if (known == m_places.end()) {
        const auto added = m_waiting.emplace(place, std::move(item)).first;
        try {
            m_places.emplace(added->second.getKey(), place);
        } catch (...) {
            m_waiting.erase(added);
            throw;
        }
    } else {
        auto waiting = known->second.first <= place.first ? decltype(m_waiting)::node_type()
                                                          : m_waiting.extract(known->second);
        if (waiting.empty())
            return; // it is being hashed, is hashed, or its turn comes no later
        waiting.key() = place;
        m_waiting.insert(std::move(waiting));
        known->second = place;
    }
    ++m_added;
}

void HVKQueue::addPath(const wchar_t* path, long priority)
{
    if (path == nullptr || *path == L'\0' || priority == LONG_MIN)
        raiseCode(ERROR_INVALID_PARAMETER);
    HVKItem item(path, priority);
    Claimed claimed;
    {
        const WriteLocker locker(m_lock);
        if (m_closed)
            raiseCode(ERROR_INVALID_ADDRESS);
        enqueue(std::move(item));
        ResetEvent(m_drained.get());
        noteDrained();
        claimed = claimWork();
    }
    startWork(claimed);
}

void HVKQueue::setServer(HVKServer server)
{
    const WriteLocker locker(m_lock);
    m_server = std::move(server);
}

void HVKQueue::account(const std::wstring& path, long code)
{
    m_unanswered.emplace_back(path, code);
}

void HVKQueue::noteDrained() noexcept
{
    if (m_closed || (m_waiting.empty() && m_ready.empty() && m_inHand == 0))
        SetEvent(m_drained.get());
}

HVKQueue::Claimed HVKQueue::claimWork()
{
    if (m_closed)
        return {};
    const bool canHash = !m_waiting.empty() && m_ready.size() < HVKRequest::kMostItems;
    return {canHash && m_hashing.claim(), !m_ready.empty() && m_asking.claim()};
}

void HVKQueue::startWork(Claimed claimed)
{
    const long hashing = claimed.hashing ? m_hashing.queue() : ERROR_SUCCESS;
    const long asking = claimed.asking ? m_asking.queue() : ERROR_SUCCESS;
    if (hashing == ERROR_SUCCESS && asking == ERROR_SUCCESS)
        return;
    const WriteLocker locker(m_lock);
    if (hashing != ERROR_SUCCESS) {
        m_hashing.leave();
        for (const auto& [place, item] : m_waiting)
            account(item.getPath(), hashing);
        m_waiting.clear();
        m_places.clear();
    }
    if (asking != ERROR_SUCCESS) {
        m_asking.leave();
        for (const HVKItem& item : m_ready)
            account(item.getPath(), asking);
        m_ready.clear();
    }
    noteDrained();
}

// The run that finds nothing to do, or is cancelled, leaves. Hashing also leaves while a batch is full: the
// run that takes the batch begins it again.
bool HVKQueue::takeNext(HVKItem& item, Place& place, HANDLE cancelEvent)
{
    Claimed claimed;
    {
        const WriteLocker locker(m_lock);
        const bool full = m_ready.size() >= HVKRequest::kMostItems;
        if (!m_waiting.empty() && !full && !m_closed && !isCancelled(cancelEvent)) {
            m_ready.reserve(HVKRequest::kMostItems);
            const auto first = m_waiting.begin();
            place = first->first;
            item = first->second;
            m_waiting.erase(first);
            ++m_inHand;
            return true;
        }
        m_hashing.leave();
        claimed = claimWork();
    }
    startWork(claimed);
    return false;
}

void HVKQueue::hashed(const HVKItem& item, const Place& place, long code)
{
    Claimed claimed;
    {
        const WriteLocker locker(m_lock);
        --m_inHand;
        const auto known = m_places.find(item.getKey());
        const bool isCurrent = known != m_places.end() && known->second == place; // or cancelled meanwhile
        if (code == ERROR_SUCCESS && isCurrent) {
            m_ready.push_back(item);
        } else {
            if (isCurrent)
                m_places.erase(known);
            account(item.getPath(), code != ERROR_SUCCESS ? code : long{ERROR_CANCELLED});
        }
        claimed = claimWork();
        noteDrained();
    }
    startWork(claimed);
}

void HVKQueue::hashFiles(HANDLE cancelEvent)
{
    Place place;
    for (HVKItem item(L"x", 0); takeNext(item, place, cancelEvent);)
        hashed(item, place, boundary::statusOf([&]() -> long {
                   item.computeHash(cancelEvent);
                   return ERROR_SUCCESS;
               }));
}

bool HVKQueue::takeBatch(std::vector<HVKItem>& batch, HVKServer& server, HANDLE cancelEvent)
{
    Claimed claimed;
    bool taken = false;
    {
        const WriteLocker locker(m_lock);
        batch.clear();
        taken = !m_ready.empty() && !m_closed && !isCancelled(cancelEvent);
        if (taken) {
            server = m_server;
            batch.swap(m_ready);
            for (const HVKItem& item : batch)
                m_places.erase(item.getKey());
            m_inHand += batch.size();
        } else {
            m_asking.leave();
        }
        claimed = claimWork();
    }
    startWork(claimed);
    return taken;
}

void HVKQueue::askServer(HANDLE cancelEvent)
{
    std::vector<HVKItem> batch;
    for (HVKServer server; takeBatch(batch, server, cancelEvent);) {
        HVKGateway gateway(server, m_messageId);
        const long code = boundary::statusOf([&]() -> long {
            for (const HVKItem& item : batch)
                gateway.addItem(item);
            gateway.queryServer(cancelEvent);
            return ERROR_SUCCESS;
        });
        const WriteLocker locker(m_lock);
        m_inHand -= batch.size();
        // The server may have answered for fewer than it was asked about.
        for (const std::wstring& path : gateway.getPaths())
            account(path, code != ERROR_SUCCESS ? code : long{ERROR_NO_MORE_ITEMS});
        noteDrained();
    }
}

long HVKQueue::wait(const WaitLimits& limits)
{
    for (;;) {
        const long code = limits.wait(m_drained.get(), kLook);
        Claimed claimed;
        {
            const WriteLocker locker(m_lock);
            if (m_closed)
                return ERROR_INVALID_ADDRESS;
            if (code == ERROR_SUCCESS)
                return m_unanswered.empty() ? ERROR_SUCCESS : m_unanswered.front().second;
            if (code != WAIT_TIMEOUT || limits.deadline.getLeft() == 0)
                return code;
            noteDrained(); // a run that ended without memory may not have
            claimed = claimWork();
        }
        startWork(claimed);
    }
}

void HVKQueue::cancel()
{
    const WriteLocker locker(m_lock);
    for (const HVKItem& item : m_ready)
        account(item.getPath(), ERROR_CANCELLED);
    for (const auto& [place, item] : m_waiting)
        account(item.getPath(), ERROR_CANCELLED);
    m_ready.clear();
    m_waiting.clear();
    m_places.clear();
    m_hashing.cancel();
    m_asking.cancel();
    noteDrained();
}

std::vector<std::pair<std::wstring, long>> HVKQueue::takeUnanswered()
{
    const WriteLocker locker(m_lock);
    return std::exchange(m_unanswered, {});
}

void HVKQueue::close() noexcept
{
    if (isProcessEnding())
        return;
    {
        const WriteLocker locker(m_lock);
        m_closed = true;
        noteDrained();
        m_hashing.cancel();
        m_asking.cancel();
    }
    const DWORD limit = waitLimit(INFINITE);
    m_hashing.wait(limit);
    m_asking.wait(limit);
}

int closeHVKQueue(void* handle) noexcept
{
    return hvkQueues().close(handle, [](HVKQueue& queue) { queue.close(); });
}
