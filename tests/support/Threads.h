#pragma once

#include "support/Test.h"

/// Runs `work` with its number on so many threads, which all begin together, and waits for them.
template <class Work>
void onThreadsAtOnce(int count, Work&& work)
{
    std::atomic<int> waiting{count};
    std::vector<std::thread> threads;
    for (int number = 0; number < count; ++number)
        threads.emplace_back([&, number] {
            for (--waiting; waiting != 0;)
                std::this_thread::yield();
            work(number);
        });
    for (std::thread& thread : threads)
        thread.join();
}

/// Whether a condition comes true within half a minute.
template <class Condition>
bool comesTrue(Condition&& condition)
{
    for (int attempt = 0; attempt < 3000; ++attempt, Sleep(10))
        if (condition())
            return true;
    return false;
}
