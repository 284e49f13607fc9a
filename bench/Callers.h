#pragma once

#include <functional>
#include <thread>
#include <vector>

#include "core/win32/utils/objectmanager/include/ReadWriteLock.h"

/// Threads that are ready to run the same work at once, so their creation is not measured.
class Callers
{
public:
    explicit Callers(int threads) : m_count(static_cast<std::size_t>(threads)) {}
    Callers(const Callers&) = delete;
    Callers& operator=(const Callers&) = delete;
    ~Callers()
    {
        if (!m_threads.empty())
            begin({});
        for (std::thread& thread : m_threads)
            thread.join();
    }

    /// Every thread runs `work` once; returns when the last is done.
    void run(const std::function<void()>& work)
    {
        while (m_threads.size() < m_count) // in the first turn, which is not measured
            m_threads.emplace_back([this] { loop(); });
        begin(work);
        const WriteLocker locker(m_lock);
        while (m_busy != 0)
            m_lock.waitWrite(m_done, INFINITE);
    }

private:
    void begin(const std::function<void()>& work)
    {
        const WriteLocker locker(m_lock);
        m_work = work;
        m_busy = m_threads.size();
        ++m_turn;
        WakeAllConditionVariable(&m_begun);
    }

    void loop()
    {
        for (unsigned turn = 0;; ++turn) {
            std::function<void()> work;
            {
                const WriteLocker locker(m_lock);
                while (m_turn == turn)
                    m_lock.waitWrite(m_begun, INFINITE);
                work = m_work;
            }
            if (!work)
                return;
            work();
            const WriteLocker locker(m_lock);
            if (--m_busy == 0)
                WakeAllConditionVariable(&m_done);
        }
    }

    ReadWriteLock m_lock; // and no standard mutex, whose kernel calls would be counted with the row's
    CONDITION_VARIABLE m_begun = CONDITION_VARIABLE_INIT;
    CONDITION_VARIABLE m_done = CONDITION_VARIABLE_INIT;
    std::function<void()> m_work;
    std::size_t m_count;
    std::size_t m_busy = 0;
    unsigned m_turn = 0;
    std::vector<std::thread> m_threads;
};
