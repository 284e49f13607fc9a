#include <winsock2.h>

#include <windows.h>

#include <atomic>

#include <boost/asio/post.hpp>
#include <boost/asio/thread_pool.hpp>

#include "Bench.h"
#include "core/win32/utils/threadpool/api.h"

// Every side creates a pool of so many threads, queues the items one by one from one thread, waits in its own
// way until all have run, and closes the pool.
namespace {
constexpr unsigned kThreads = 4;

std::atomic<long> g_done{0};

void countItem() noexcept
{
    g_done.fetch_add(1, std::memory_order_relaxed);
}

void ourPool(long items)
{
    g_done = 0;
    void* pool = THPCreateThreadPool(L"bench");
    const THPCategoryOptions options(kThreads, THPCategoryOptions::kRunning, 0, 0);
    require(THPCreateCategory(pool, 1, options) == ERROR_SUCCESS, "no category");
    const THPWorkFunction work = [](IThreadContext&, void*) -> long {
        countItem();
        return ERROR_SUCCESS;
    };
    const HashMessageW arguments{};
    for (long i = 0; i < items; ++i)
        require(THPQueueWork(pool, 1, 1, work, arguments, ITHPWorkItem::ScheduleOption::AtEnd, nullptr) ==
                    ERROR_SUCCESS,
                "an item was refused");
    require(THPWait(pool, 1UL, INFINITE, nullptr) == ERROR_SUCCESS, "waiting failed");
    THPCloseThreadpool(pool);
    require(g_done == items, "not every item was run");
}

void systemPool(long items)
{
    g_done = 0;
    const PTP_POOL pool = CreateThreadpool(nullptr);
    require(pool != nullptr, "the system has no pool");
    SetThreadpoolThreadMaximum(pool, kThreads);
    TP_CALLBACK_ENVIRON environment;
    InitializeThreadpoolEnvironment(&environment);
    SetThreadpoolCallbackPool(&environment, pool);
    const PTP_WORK work = CreateThreadpoolWork([](PTP_CALLBACK_INSTANCE, void*, PTP_WORK) { countItem(); },
                                               nullptr, &environment);
    require(work != nullptr, "the system has no work item");
    for (long i = 0; i < items; ++i)
        SubmitThreadpoolWork(work);
    WaitForThreadpoolWorkCallbacks(work, FALSE);
    CloseThreadpoolWork(work);
    CloseThreadpool(pool);
    require(g_done == items, "the system did not run every item");
}

void asioPool(long items)
{
    g_done = 0;
    boost::asio::thread_pool pool(kThreads);
    for (long i = 0; i < items; ++i)
        boost::asio::post(pool, countItem);
    pool.join();
    require(g_done == items, "Asio did not run every item");
}
} // namespace

BenchRows workRows(BenchScale scale)
{
    const long items = scale(20000);
    const auto operations = static_cast<double>(items);
    const std::string name = "queue and run an empty work item";
    const auto ours = [=] { ourPool(items); };
    BenchRows rows;
    rows.timed = {{name, "the system's thread pool", 0, operations, ours, [=] { systemPool(items); }},
                  {name, "Boost.Asio's thread pool", 0, operations, ours, [=] { asioPool(items); }}};
    rows.timed.back().peerCounted = true;
    return rows;
}
