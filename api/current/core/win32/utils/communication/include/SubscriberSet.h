#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <utility>

#include "core/win32/utils/objectmanager/include/ReadWriteLock.h"
#include "core/win32/utils/objectmanager/include/ThreadScope.h"
#include "core/win32/utils/threadpool/include/WaitingThread.h"

/// A reference to what owns a subscriber that nobody else can keep until the last delivery has left it. May
/// be empty.
using SubscriberHold = std::shared_ptr<void>;

/// The subscribers of one kind, in the order of their addresses. A subscriber belongs to its caller; one with
/// an owner is held while it is in the set, and while a delivery calls it.
///
/// No lock is held while a subscriber is called, so from inside it may subscribe, unsubscribe and deliver.
/// Instead each delivery records whom it is calling, and removing a subscriber waits until nobody calls it.
template <class Subscriber>
class SubscriberSet
{
public:
    SubscriberSet() = default;
    SubscriberSet(const SubscriberSet&) = delete;
    SubscriberSet& operator=(const SubscriberSet&) = delete;

    /// Adds a subscriber; one that is already there is not added again. Raises std::bad_alloc.
    void add(Subscriber& subscriber, const SubscriberHold& owner = nullptr)
    {
        const WriteLocker locker(m_lock);
        m_subscribers.try_emplace(&subscriber, owner);
    }

    [[nodiscard]] bool contains(Subscriber& subscriber) noexcept
    {
        const ReadLocker locker(m_lock);
        return m_subscribers.contains(&subscriber);
    }

    /// Removes a subscriber. With `wait` it then waits until no other thread is calling it, for at most the
    /// rest of the timeout. Returns 0; 1168 when it is not there; 258, or 1131 when the thread that calls it
    /// waits for this one, with the subscriber back in the set, but skipped by what was delivered meanwhile.
    long remove(Subscriber& subscriber, bool wait, const Deadline& deadline) noexcept
    {
        typename Subscribers::node_type node; // let go of after unlocking
        const WriteLocker locker(m_lock);
        node = m_subscribers.extract(&subscriber);
        if (node.empty())
            return ERROR_NOT_FOUND;
        long code = ERROR_SUCCESS;
        for (DWORD caller = 0; wait && code == ERROR_SUCCESS && (caller = callerOf(subscriber)) != 0;) {
            std::optional<WaitingThread> waiting;
            if (deadline.isEndless() && waiting.emplace(caller).closesCircle())
                code = ERROR_POSSIBLE_DEADLOCK;
            else if (!m_lock.waitWrite(m_returned, deadline.getLeft()) && deadline.getLeft() == 0 &&
                     callerOf(subscriber) != 0)
                code = WAIT_TIMEOUT;
        }
        if (code != ERROR_SUCCESS)
            m_subscribers.insert(std::move(node));
        return code;
    }

    /// Calls `call` with each subscriber in turn. One that is added or removed meanwhile is called or not
    /// depending on its position. What `call` raises ends the delivery and reaches the caller.
    template <class Call>
    void deliver(Call&& call)
    {
        Delivery delivery(*this);
        while (Subscriber* subscriber = delivery.next()) {
            const OutsideLibrary outside;
            call(*subscriber);
        }
    }

    /// Whether the calling thread is inside a delivery of this set.
    [[nodiscard]] bool isDelivering() noexcept
    {
        const ReadLocker locker(m_lock);
        for (const Delivery* delivery = m_deliveries; delivery != nullptr; delivery = delivery->m_next) {
            if (delivery->m_thread == GetCurrentThreadId())
                return true;
        }
        return false;
    }

private:
    /// One delivery in progress, on the stack of its thread and in the set's list.
    class Delivery final : public ThreadScope
    {
    public:
        explicit Delivery(SubscriberSet& set) noexcept : m_set(set)
        {
            const WriteLocker locker(set.m_lock);
            m_next = set.m_deliveries;
            if (m_next != nullptr)
                m_next->m_previous = this;
            set.m_deliveries = this;
        }
        ~Delivery() override { end(); }

        Subscriber* next() noexcept
        {
            SubscriberHold left; // let go of after unlocking
            const WriteLocker locker(m_set.m_lock);
            left = std::move(m_hold);
            const auto& subscribers = m_set.m_subscribers;
            const auto found = m_called == nullptr ? subscribers.begin() : subscribers.upper_bound(m_called);
            m_called = found != subscribers.end() ? found->first : nullptr;
            if (m_called != nullptr)
                m_hold = found->second;
            WakeAllConditionVariable(&m_set.m_returned);
            return m_called;
        }

    private:
        friend SubscriberSet;
        void abandon() noexcept override { end(); }
        void end() noexcept
        {
            const SubscriberHold left = std::move(m_hold); // let go of after unlocking
            const WriteLocker locker(m_set.m_lock);
            (m_previous != nullptr ? m_previous->m_next : m_set.m_deliveries) = m_next;
            if (m_next != nullptr)
                m_next->m_previous = m_previous;
            WakeAllConditionVariable(&m_set.m_returned);
        }

        SubscriberSet& m_set;
        const DWORD m_thread = GetCurrentThreadId();
        Subscriber* m_called = nullptr; // the last subscriber called, or the one being called
        SubscriberHold m_hold;          // of the one being called
        Delivery* m_previous = nullptr;
        Delivery* m_next = nullptr;
    };

    // A thread other than the calling one that is calling the subscriber, or 0.
    [[nodiscard]] DWORD callerOf(const Subscriber& subscriber) const noexcept
    {
        for (const Delivery* delivery = m_deliveries; delivery != nullptr; delivery = delivery->m_next) {
            if (delivery->m_called == &subscriber && delivery->m_thread != GetCurrentThreadId())
                return delivery->m_thread;
        }
        return 0;
    }

    using Subscribers = std::map<Subscriber*, SubscriberHold, std::less<>>;

    ReadWriteLock m_lock;
    Subscribers m_subscribers;
    Delivery* m_deliveries = nullptr;
    CONDITION_VARIABLE m_returned = CONDITION_VARIABLE_INIT; // a delivery has left a subscriber
};
