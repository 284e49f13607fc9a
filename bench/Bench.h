#pragma once

#include <functional>
#include <string>
#include <vector>

/// One comparison. `ours` and `peer` do the same `operations`, in turns; null for a row without that side.
struct BenchRow
{
    std::string name;
    std::string peerName;
    double goal; // least ratio of throughputs, ours to the peer's; 0 for rows that only report
    double operations;
    std::function<void()> ours;
    std::function<void()> peer;
    std::function<void()> prepare = nullptr; // before each turn of either, not measured
    std::function<void()> settle = nullptr;  // after it, not measured either
};

/// Rows are made when their turn comes and dropped after it, so that one does not weigh on the next.
using BenchMaker = std::function<std::vector<BenchRow>()>;

/// What the program was asked for.
struct BenchScale
{
    bool quick; // every row once, small: to see that it runs
    /// The row's size: as given, or a hundredth of it.
    [[nodiscard]] long operator()(long size) const { return quick ? (size + 99) / 100 : size; }
};

std::vector<BenchRow> memoryRows(BenchScale scale);
std::vector<BenchRow> walkRows(BenchScale scale);
std::vector<BenchRow> matchingRows(BenchScale scale);
std::vector<BenchRow> messageRows(BenchScale scale);
std::vector<BenchRow> handleRows(BenchScale scale);
std::vector<BenchRow> topicRows(BenchScale scale);
std::vector<BenchRow> workRows(BenchScale scale);
std::vector<BenchRow> logRows(BenchScale scale);
std::vector<BenchRow> wipeRows(BenchScale scale);
std::vector<BenchRow> loadRows(BenchScale scale);

/// Bytes of memory that are this process's alone.
unsigned long long privateBytes();
/// A folder for files that last from run to run, with a closing backslash.
std::wstring temporaryFolder();
/// Runs `work` on so many threads and waits for all.
void onThreads(int threads, const std::function<void()>& work);

/// Keeps the compiler from dropping work whose result nobody wants.
void consume(unsigned long long value);
/// Stops the program: a row that does not do its work must not be measured.
void require(bool condition, const char* what);
