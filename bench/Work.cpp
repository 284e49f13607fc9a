#include <winsock2.h>

#include <windows.h>

#include <boost/asio/post.hpp>
#include <boost/asio/thread_pool.hpp>

#include <atomic>

#include "Bench.h"
#include "core/win32/utils/threadpool/api.h"

namespace {
constexpr unsigned kThreads = 4;

std::atomic<long> done{0};

long emptyWork(IThreadContext&, void*)
{
    done.fetch_add(1, std::memory_order_relaxed);
    return ERROR_SUCCESS;
}

void ourPool(long items)
{
    done = 0;
    void* pool = THPCreateThreadPool(L"bench");
    const THPCategoryOptions options(kThreads, THPCategoryOptions::kRunning, 0, 0);
    require(THPCreateCategory(pool, 1, options) == ERROR_SUCCESS, "no category");
    const HashMessageW arguments{};
    for (long i = 0; i < items; ++i)
        require(THPQueueWork(pool, 1, 1, &emptyWork, arguments, ITHPWorkItem::ScheduleOption::AtEnd,
                             nullptr) == ERROR_SUCCESS,
                "queueing failed");
    require(THPWait(pool, 1UL, INFINITE, nullptr) == ERROR_SUCCESS, "waiting failed");
    THPCloseThreadpool(pool);
    require(done == items, "not every item was run");
}

void systemPool(long items)
{
    done = 0;
    const PTP_POOL pool = CreateThreadpool(nullptr);
    SetThreadpoolThreadMaximum(pool, kThreads);
    TP_CALLBACK_ENVIRON environment;
    InitializeThreadpoolEnvironment(&environment);
    SetThreadpoolCallbackPool(&environment, pool);
    const PTP_WORK work = CreateThreadpoolWork(
        [](PTP_CALLBACK_INSTANCE, void*, PTP_WORK) { done.fetch_add(1, std::memory_order_relaxed); }, nullptr,
        &environment);
    require(work != nullptr, "the system has no work item");
    for (long i = 0; i < items; ++i)
        SubmitThreadpoolWork(work);
    WaitForThreadpoolWorkCallbacks(work, FALSE);
    CloseThreadpoolWork(work);
    CloseThreadpool(pool);
    require(done == items, "the system did not run every item");
}

void asioPool(long items)
{
    done = 0;
    boost::asio::thread_pool pool(kThreads);
    for (long i = 0; i < items; ++i)
        boost::asio::post(pool, [] { done.fetch_add(1, std::memory_order_relaxed); });
    pool.join();
    require(done == items, "Asio did not run every item");
}
} // namespace

std::vector<BenchRow> workRows(BenchScale scale)
{
    const long items = scale(20000);
    const auto ours = [=] { ourPool(items); };
    return {{"queue and run an empty work item", "the system's thread pool", 0, static_cast<double>(items),
             ours, [=] { systemPool(items); }},
            {"queue and run an empty work item", "Boost.Asio thread pool", 0, static_cast<double>(items),
             ours, [=] { asioPool(items); }}};
}
