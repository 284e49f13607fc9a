#pragma once

#include <atomic>
#include <thread>
#include <vector>

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
