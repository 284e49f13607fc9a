#pragma once

#include <functional>
#include <set>

#include "core/win32/utils/objectmanager/include/ReadWriteLock.h"

/// The subscribers of one kind, in the order of their addresses.
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
    void add(Subscriber& subscriber)
    {
        const WriteLocker locker(m_lock);
        m_subscribers.insert(&subscriber);
    }

    [[nodiscard]] bool contains(Subscriber& subscriber) noexcept
    {
        const ReadLocker locker(m_lock);
        return m_subscribers.contains(&subscriber);
    }

    /// Removes a subscriber. With `wait` it then waits until no other thread is calling it, for at most the
    /// rest of the timeout. Returns 0; 1168 when it is not there; 258, with the subscriber back in the set,
    /// but skipped by what was delivered meanwhile.
    long remove(Subscriber& subscriber, bool wait, const Deadline& deadline) noexcept
    {
        const WriteLocker locker(m_lock);
        auto node = m_subscribers.extract(&subscriber);
        if (node.empty())
            return ERROR_NOT_FOUND;
        while (wait && isBeingCalled(subscriber)) {
            if (!m_lock.waitWrite(m_returned, deadline.getLeft()) && deadline.getLeft() == 0 &&
                isBeingCalled(subscriber)) {
                m_subscribers.insert(std::move(node));
                return WAIT_TIMEOUT;
            }
        }
        return ERROR_SUCCESS;
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
    class Delivery
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
        Delivery(const Delivery&) = delete;
        Delivery& operator=(const Delivery&) = delete;
        ~Delivery()
        {
            const WriteLocker locker(m_set.m_lock);
            (m_previous != nullptr ? m_previous->m_next : m_set.m_deliveries) = m_next;
            if (m_next != nullptr)
                m_next->m_previous = m_previous;
            WakeAllConditionVariable(&m_set.m_returned);
        }

        Subscriber* next() noexcept
        {
            const WriteLocker locker(m_set.m_lock);
            const auto& subscribers = m_set.m_subscribers;
            const auto found = m_called == nullptr ? subscribers.begin() : subscribers.upper_bound(m_called);
            m_called = found != subscribers.end() ? *found : nullptr;
            WakeAllConditionVariable(&m_set.m_returned);
            return m_called;
        }

    private:
        friend SubscriberSet;
        SubscriberSet& m_set;
        const DWORD m_thread = GetCurrentThreadId();
        Subscriber* m_called = nullptr; // the last subscriber called, or the one being called
        Delivery* m_previous = nullptr;
        Delivery* m_next = nullptr;
    };

    // Called by another thread than the calling one.
    [[nodiscard]] bool isBeingCalled(const Subscriber& subscriber) const noexcept
    {
        for (const Delivery* delivery = m_deliveries; delivery != nullptr; delivery = delivery->m_next) {
            if (delivery->m_called == &subscriber && delivery->m_thread != GetCurrentThreadId())
                return true;
        }
        return false;
    }

    ReadWriteLock m_lock;
    std::set<Subscriber*, std::less<>> m_subscribers;
    Delivery* m_deliveries = nullptr;
    CONDITION_VARIABLE m_returned = CONDITION_VARIABLE_INIT; // a delivery has left a subscriber
};
