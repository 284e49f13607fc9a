#pragma once

#include <algorithm>
#include <cstdint>
#include <list>
#include <type_traits>

#include "core/win32/utils/objectmanager/include/Raise.h"
#include "core/win32/utils/objectmanager/include/ReadWriteLock.h"
#include "core/win32/utils/objectmanager/include/WaitEvent.h"
#include "core/win32/utils/objectmanager/include/Win32Handle.h"

/// A first-in, first-out queue: many threads push items, one thread at a time consumes them.
///
/// The first push creates the event that wakes a waiting consumer. Pushing while the consumer is busy makes
/// no kernel call. The queue counts as emptied when it holds no item and none is being consumed.
template <class Item>
class ConsumerQueue
{
public:
    ConsumerQueue() = default;
    ConsumerQueue(const ConsumerQueue&) = delete;
    ConsumerQueue& operator=(const ConsumerQueue&) = delete;

    /// Appends a copy of `item`. Returns its number for withdraw. Raises the system's code as a bare long, or
    /// std::bad_alloc; the queue is unchanged then.
    std::uint64_t push(const Item& item)
    {
        std::list<Entry> added{Entry{0, item}};
        const WriteLocker locker(m_lock);
        createEvent();
        if (m_waiting && !m_signalled) {
            if (!SetEvent(m_available.get()))
                raiseLastError();
            m_signalled = true;
        }
        added.front().number = m_pushed;
        m_items.splice(m_items.end(), added);
        return m_pushed++;
    }

    /// Removes the item with that number if nobody has taken it yet. Returns whether it did.
    bool withdraw(std::uint64_t number) noexcept
    {
        std::list<Entry> dropped; // released after unlocking
        const WriteLocker locker(m_lock);
        const auto found = std::find_if(m_items.begin(), m_items.end(),
                                        [&](const Entry& entry) { return entry.number == number; });
        if (found == m_items.end())
            return false;
        dropped.splice(dropped.begin(), m_items, found);
        wakeWhenEmptied();
        return true;
    }

    /// Takes items from the front and calls `consumer` with each, outside the queue's lock. Waits when the
    /// queue is empty. Checks `cancelEvent` before each item and returns 1223 once it is signalled, or the
    /// system's code when a wait fails. What the consumer raises ends the loop and reaches the caller; its
    /// item counts as consumed. Returns 0 when a consumer that returns bool returns false.
    template <class Consumer>
    long consume(HANDLE cancelEvent, Consumer&& consumer)
    {
        while (!isSignalled(cancelEvent)) {
            if (const Taken taken(*this); taken.hasItem()) {
                if constexpr (std::is_same_v<decltype(consumer(taken.getItem())), bool>) {
                    if (!consumer(taken.getItem()))
                        return ERROR_SUCCESS;
                } else {
                    consumer(taken.getItem());
                }
                continue;
            }
            if (const long code = waitForItem(cancelEvent); code != ERROR_SUCCESS)
                return code;
        }
        return ERROR_CANCELLED;
    }

    /// Waits until the queue has been emptied, for at most `timeout` milliseconds. `released` is an earlier
    /// result of getReleased. Returns 0, 258, or 1223 when releaseWaiters has been called since.
    long waitEmptied(DWORD timeout, std::uint64_t released) noexcept
    {
        const Deadline deadline(timeout);
        const WriteLocker locker(m_lock);
        while (!isEmptied()) {
            if (m_released != released)
                return ERROR_CANCELLED;
            if (!m_lock.waitWrite(m_emptied, deadline.getLeft()) && deadline.getLeft() == 0)
                return isEmptied() ? static_cast<long>(ERROR_SUCCESS) : static_cast<long>(WAIT_TIMEOUT);
        }
        return ERROR_SUCCESS;
    }

    /// Ends all waits for the emptied queue: nobody consumes it for now.
    void releaseWaiters() noexcept
    {
        const WriteLocker locker(m_lock);
        ++m_released;
        WakeAllConditionVariable(&m_emptied);
    }

    /// How often releaseWaiters was called.
    [[nodiscard]] std::uint64_t getReleased() noexcept
    {
        const ReadLocker locker(m_lock);
        return m_released;
    }

    /// The consumer's thread has ended in the middle of an item, which counts as consumed.
    void abandonItem() noexcept
    {
        const WriteLocker locker(m_lock);
        m_consuming = 0;
        wakeWhenEmptied();
    }

    /// Whether items are waiting to be consumed.
    [[nodiscard]] bool hasItems() noexcept
    {
        const ReadLocker locker(m_lock);
        return !m_items.empty();
    }

private:
    struct Entry
    {
        std::uint64_t number; // pushed before it
        Item item;
    };

    /// An item taken from the front while it is being consumed.
    class Taken
    {
    public:
        explicit Taken(ConsumerQueue& queue) noexcept : m_queue(queue)
        {
            const WriteLocker locker(queue.m_lock);
            if (queue.m_items.empty())
                return;
            m_item.splice(m_item.begin(), queue.m_items, queue.m_items.begin());
            ++queue.m_consuming;
        }
        Taken(const Taken&) = delete;
        Taken& operator=(const Taken&) = delete;
        ~Taken()
        {
            if (!hasItem())
                return;
            const WriteLocker locker(m_queue.m_lock);
            --m_queue.m_consuming;
            m_queue.wakeWhenEmptied();
        }

        [[nodiscard]] bool hasItem() const noexcept { return !m_item.empty(); }
        [[nodiscard]] const Item& getItem() const noexcept { return m_item.front().item; }

    private:
        ConsumerQueue& m_queue;
        std::list<Entry> m_item;
    };

    void createEvent()
    {
        if (m_available.isValid())
            return;
        m_available.reset(CreateEventW(nullptr, TRUE, FALSE, nullptr));
        if (!m_available.isValid())
            raiseLastError();
    }

    // Returns 0 when there may be an item or the event is signalled, otherwise the system's code.
    long waitForItem(HANDLE cancelEvent)
    {
        HANDLE events[] = {nullptr, cancelEvent};
        {
            const WriteLocker locker(m_lock);
            if (!m_items.empty())
                return ERROR_SUCCESS;
            createEvent();
            if (m_signalled && !ResetEvent(m_available.get()))
                return lastError();
            m_signalled = false;
            m_waiting = true;
            events[0] = m_available.get();
        }
        const DWORD result = WaitForMultipleObjects(cancelEvent != nullptr ? 2 : 1, events, FALSE, INFINITE);
        const auto code = result == WAIT_FAILED ? lastError() : ERROR_SUCCESS;
        const WriteLocker locker(m_lock);
        m_waiting = false;
        return code;
    }

    [[nodiscard]] bool isEmptied() const noexcept { return m_items.empty() && m_consuming == 0; }

    void wakeWhenEmptied() noexcept
    {
        if (isEmptied())
            WakeAllConditionVariable(&m_emptied);
    }

    ReadWriteLock m_lock;
    std::list<Entry> m_items;
    Win32Handle m_available; // wakes the waiting consumer
    bool m_waiting = false;
    bool m_signalled = false;
    CONDITION_VARIABLE m_emptied = CONDITION_VARIABLE_INIT;
    std::uint64_t m_pushed = 0;   // items pushed so far
    unsigned m_consuming = 0;     // items being consumed
    std::uint64_t m_released = 0; // how often waits were ended
};
