// Ours against what a user would pick instead: one table, each pair measured in turns in this very run.
//   bench [--quick] [--json] [--only TEXT]

#include <windows.h>

#include <psapi.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <memory>

#include "Bench.h"
#include "support/KernelCalls.h"

namespace {
double median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    return values.empty() ? 0 : values[values.size() / 2];
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

/// The calls of all threads until the turn has settled, in a turn that is not measured: see KernelCalls.
/// Files and the registry do not count as objects here, because both sides of a row call them.
double objectCallsPerOperation(const BenchRow& row, const std::function<void()>& side)
{
    if (row.prepare)
        row.prepare();
    const KernelCalls calls(GetModuleHandleW(nullptr));
    side();
    if (row.settle)
        row.settle();
    return static_cast<double>(calls.total()) / row.operations;
}

std::string text(const char* format, double value)
{
    char buffer[64];
    std::snprintf(buffer, sizeof buffer, format, value);
    return buffer;
}

void printLine(const std::string& name, const std::string& peerName, const std::string& ours,
               const std::string& peer, const std::string& ratio, const std::string& goal,
               const std::string& calls, const std::string& peerCalls)
{
    std::printf("| %-46s | %-42s | %12s | %12s | %7s | %12s | %8s | %8s |\n", name.c_str(), peerName.c_str(),
                ours.c_str(), peer.c_str(), ratio.c_str(), goal.c_str(), calls.c_str(), peerCalls.c_str());
}

/// A single small turn is not enough for a verdict.
const char* verdict(bool met, int turns)
{
    return turns == 1 ? "" : met ? " met" : " MISSED";
}

int turnsOf(const BenchRow& row)
{
    return row.turns;
}

int turnsOf(const FigureRow&)
{
    constexpr int kTurns = 5;
    return kTurns;
}

void measure(const BenchRow& row, int turns, bool json)
{
    const double calls = objectCallsPerOperation(row, row.ours); // warms up, too
    const std::string peerCalls = row.peerCounted ? text("%.3f", objectCallsPerOperation(row, row.peer)) : "";
    std::vector<double> ours;
    std::vector<double> peers;
    std::vector<double> ratios;
    for (int turn = 0; turn < turns; ++turn) {
        ours.push_back(turnOf(row, row.ours));
        peers.push_back(turnOf(row, row.peer));
        ratios.push_back(ours.back() > 0 ? peers.back() / ours.back() : 0);
    }
    const double our = median(ours) / row.operations * 1e9;
    const double peer = median(peers) / row.operations * 1e9;
    // Of adjacent turns: the machine may change its speed during a run, and the medians might then come from
    // different speeds.
    const double ratio = median(ratios);
    const auto [least, most] = std::minmax_element(ratios.begin(), ratios.end());
    if (json)
        std::printf(
            R"({"case":"%s","peer":"%s","ours_ns":%.1f,"peer_ns":%.1f,"ratio":%.3f,"ratio_least":%.3f,"ratio_most":%.3f,"goal":%.2f,)"
            R"("object_calls":%.3f,"peer_object_calls":%s})"
            "\n",
            row.name.c_str(), row.peerName.c_str(), our, peer, ratio, *least, *most, row.goal, calls,
            peerCalls.empty() ? "null" : peerCalls.c_str());
    else
        printLine(row.name, row.peerName, text("%.1f", our), text("%.1f", peer), text("%.2f", ratio),
                  row.goal > 0 ? text("%.2f", row.goal) + verdict(ratio >= row.goal, turns) : "",
                  text("%.3f", calls), peerCalls);
    std::fflush(stdout);
}

void measure(const FigureRow& row, int turns, bool json)
{
    std::vector<double> ours;
    std::vector<double> peers;
    for (int turn = 0; turn < turns; ++turn) {
        ours.push_back(row.ours());
        if (row.peer)
            peers.push_back(row.peer());
    }
    const auto figure = [&](const std::vector<double>& turned) {
        if (row.of == FigureRow::Of::Median || turned.empty())
            return median(turned);
        return *std::max_element(turned.begin(), turned.end());
    };
    const double our = figure(ours);
    const double peer = figure(peers);
    if (json)
        std::printf(R"({"case":"%s","peer":"%s","unit":"%s","ours":%.1f,"peer":%s,"limit":%.1f})"
                    "\n",
                    row.name.c_str(), row.peerName.c_str(), row.unit.c_str(), our,
                    row.peer ? text("%.1f", peer).c_str() : "null", row.limit);
    else
        printLine(row.name, row.peerName, text("%.1f ", our) + row.unit,
                  row.peer ? text("%.1f ", peer) + row.unit : "", "",
                  row.limit > 0 ? text("<%.0f", row.limit) + verdict(our < row.limit, turns) : "", "", "");
    std::fflush(stdout);
}

std::atomic<unsigned long long> g_consumed{0};
} // namespace

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
    // On Windows the same as PrivateUsage, which Wine leaves at zero.
    PROCESS_MEMORY_COUNTERS memory{};
    require(GetProcessMemoryInfo(GetCurrentProcess(), &memory, sizeof memory) && memory.PagefileUsage != 0,
            "the system does not tell how much memory is used");
    return memory.PagefileUsage;
}

std::wstring temporaryFolder()
{
    wchar_t folder[MAX_PATH + 1];
    const DWORD length = GetTempPathW(MAX_PATH + 1, folder);
    require(length != 0 && length <= MAX_PATH, "there is no temporary folder");
    return std::wstring(folder, length);
}

std::string counted(int number, const char* what)
{
    return std::to_string(number) + " " + what + (number == 1 ? "" : "s");
}

int main(int count, char** arguments)
try {
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
    if (!json) {
        printLine("case", "peer", "ours ns/op", "peer ns/op", "ratio", "goal", "objects", "peer's");
        std::printf("|---|---|---|---|---|---|---|---|\n");
    }
    const BenchScale scale{quick};
    int rows = 0;
    const auto measureAll = [&](const auto& all) {
        for (const auto& row : all) {
            if (row.name.find(only) == std::string::npos)
                continue;
            measure(row, quick ? 1 : turnsOf(row), json);
            ++rows;
        }
    };
    // Memory comes first: what an earlier row has used and freed would not count again.
    for (const auto& make :
         {memoryRows, loadRows, walkRows, registryRows, matchingRows, hashingRows, messageRows, topicRows,
          connectionRows, ftpRows, workRows, logRows, wipeRows, hiveRows, handleRows, processRows}) {
        const BenchRows made = make(scale);
        measureAll(made.figures);
        measureAll(made.timed);
    }
    if (!json) {
        PROCESS_MEMORY_COUNTERS memory{};
        GetProcessMemoryInfo(GetCurrentProcess(), &memory, sizeof memory);
        std::printf(
            "\n%d rows, peak working set %.1f MiB\n"
            "ratio: the median of the turns' ratios, above 1 ours is faster\n"
            "objects: calls per operation, of all threads, that wait, sleep, or make, signal or close an "
            "event, mutex or semaphore;\n"
            "         neither what a side does with files and the registry, nor locks that had to wait\n",
            rows, static_cast<double>(memory.PeakWorkingSetSize) / 1048576.0);
    }
    if (rows == 0)
        std::fprintf(stderr, "bench: no row's name has \"%s\" in it\n", only);
    return rows == 0 ? 1 : 0;
} catch (const std::exception& error) { // a peer's
    std::fprintf(stderr, "bench: %s\n", error.what());
    return 1;
}
