// Ours against what a user would pick instead: one table, each pair measured in turns in this very run.
//   bench [--quick] [--json] [--only TEXT]

#include <windows.h>

#include <psapi.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <thread>

#include "Bench.h"
#include "support/KernelCalls.h"

namespace {
constexpr int kTurns = 5;

double seconds(const std::function<void()>& work)
{
    LARGE_INTEGER frequency;
    LARGE_INTEGER begin;
    LARGE_INTEGER end;
    QueryPerformanceFrequency(&frequency);
    QueryPerformanceCounter(&begin);
    work();
    QueryPerformanceCounter(&end);
    return static_cast<double>(end.QuadPart - begin.QuadPart) / static_cast<double>(frequency.QuadPart);
}

/// One turn of one side, with what goes before and after it.
double turnOf(const BenchRow& row, const std::function<void()>& side)
{
    if (row.prepare)
        row.prepare();
    const double time = seconds(side);
    if (row.settle)
        row.settle();
    return time;
}

double median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    return values.empty() ? 0 : values[values.size() / 2];
}

double kernelCallsPerOperation(const BenchRow& row)
{
    if (row.prepare)
        row.prepare();
    double calls = 0;
    {
        const KernelCalls counted(GetModuleHandleW(nullptr));
        row.ours();
        calls = static_cast<double>(counted.total()) / row.operations;
    }
    if (row.settle)
        row.settle();
    return calls;
}

void measure(const BenchRow& row, int turns, bool json)
{
    const double calls = kernelCallsPerOperation(row); // warms up, too
    std::vector<double> ours;
    std::vector<double> peers;
    for (int turn = 0; turn < turns; ++turn) {
        ours.push_back(turnOf(row, row.ours));
        if (row.peer)
            peers.push_back(turnOf(row, row.peer));
    }
    const double our = median(ours) / row.operations * 1e9;
    const double peer = median(peers) / row.operations * 1e9;
    const double ratio = our > 0 && !peers.empty() ? peer / our : 0;
    const char* verdict = row.goal <= 0 || peers.empty() ? "" : ratio >= row.goal ? "met" : "MISSED";
    if (json)
        std::printf(R"({"case":"%s","peer":"%s","ours_ns":%.1f,"peer_ns":%.1f,"ratio":%.3f,"goal":%.2f,)"
                    R"("kernel_calls":%.3f})"
                    "\n",
                    row.name.c_str(), row.peerName.c_str(), our, peer, ratio, row.goal, calls);
    else if (!peers.empty())
        std::printf("| %-44s | %-38s | %12.1f | %12.1f | %7.2f | %5.2f %-6s | %8.3f |\n", row.name.c_str(),
                    row.peerName.c_str(), our, peer, ratio, row.goal, verdict, calls);
    else
        std::printf("| %-44s | %-38s | %12.1f | %12s | %7s | %12s | %8.3f |\n", row.name.c_str(),
                    row.peerName.c_str(), our, "", "", "", calls);
    std::fflush(stdout);
}

std::atomic<unsigned long long> g_consumed{0};
} // namespace

void consume(unsigned long long value)
{
    g_consumed.fetch_add(value, std::memory_order_relaxed);
}

void require(bool condition, const char* what)
{
    if (condition)
        return;
    std::fprintf(stderr, "bench: %s\n", what);
    std::exit(1);
}

unsigned long long privateBytes()
{
    // The same as PrivateUsage, which Wine leaves at zero.
    PROCESS_MEMORY_COUNTERS memory{};
    GetProcessMemoryInfo(GetCurrentProcess(), &memory, sizeof memory);
    return memory.PagefileUsage;
}

std::wstring temporaryFolder()
{
    wchar_t folder[MAX_PATH];
    return std::wstring(folder, GetTempPathW(MAX_PATH, folder));
}

void onThreads(int threads, const std::function<void()>& work)
{
    std::vector<std::thread> running;
    for (int i = 0; i < threads; ++i)
        running.emplace_back(work);
    for (std::thread& thread : running)
        thread.join();
}

int main(int count, char** arguments)
{
    bool quick = false;
    bool json = false;
    const char* only = "";
    for (int i = 1; i < count; ++i) {
        if (std::strcmp(arguments[i], "--quick") == 0) {
            quick = true;
        } else if (std::strcmp(arguments[i], "--json") == 0) {
            json = true;
        } else if (std::strcmp(arguments[i], "--only") == 0 && i + 1 < count) {
            only = arguments[++i];
        } else {
            std::fprintf(stderr, "usage: bench [--quick] [--json] [--only TEXT]\n");
            return 2;
        }
    }
    if (!json)
        std::printf("| %-44s | %-38s | %12s | %12s | %7s | %12s | %8s |\n"
                    "|---|---|---|---|---|---|---|\n",
                    "case", "peer", "ours ns/op", "peer ns/op", "ratio", "goal", "calls/op");
    const BenchScale scale{quick};
    int rows = 0;
    // Memory comes first: what an earlier row has used and given back would not count again.
    for (const auto& make : {memoryRows, walkRows, matchingRows, messageRows, topicRows, workRows, logRows,
                             wipeRows, handleRows, loadRows}) {
        for (const BenchRow& row : make(scale)) {
            if (row.name.find(only) == std::string::npos)
                continue;
            measure(row, quick ? 1 : kTurns, json);
            ++rows;
        }
    }
    if (!json) {
        PROCESS_MEMORY_COUNTERS memory{};
        GetProcessMemoryInfo(GetCurrentProcess(), &memory, sizeof memory);
        std::printf("\n%d rows, peak working set %.1f MiB\n", rows,
                    static_cast<double>(memory.PeakWorkingSetSize) / 1048576.0);
    }
    return rows == 0 ? 1 : 0;
}
