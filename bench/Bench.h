#pragma once

#include <functional>
#include <string>
#include <vector>

/// One comparison. `ours` and `peer` do the same `operations`, in turns. Creating a row costs next to
/// nothing: `prepare` creates what its sides need.
struct BenchRow
{
    std::string name;
    std::string peerName;
    double goal; // least ratio of throughputs, ours to the peer's; 0 for rows that only report
    double operations;
    std::function<void()> ours;
    std::function<void()> peer;
    std::function<void()> prepare = nullptr; // before each turn of either side, not measured
    std::function<void()> settle = nullptr;  // after it, not measured either
    bool peerCounted = false;                // the peer's kernel calls are visible: it is linked with us
    int turns = 5;
};

/// One comparison of figures that the sides report themselves. Without a peer, a figure with a limit.
struct FigureRow
{
    enum class Of // several turns
    {
        Most, // a later turn may reuse the memory that an earlier one has freed
        Median
    };

    std::string name;
    std::string peerName;
    std::string unit;
    double limit; // the most that ours may be; 0 for rows that only report
    Of of;
    std::function<double()> ours;
    std::function<double()> peer;
};

struct BenchRows
{
    std::vector<BenchRow> timed;
    std::vector<FigureRow> figures;
};

/// Rows are created for their turn and destroyed after it, so one does not affect the next.
using BenchMaker = std::function<BenchRows()>;

/// The program's options.
struct BenchScale
{
    bool quick; // every row once, small: to see that it runs
    /// The row's size: as given, or a hundredth of it.
    [[nodiscard]] long operator()(long size) const { return quick ? (size + 99) / 100 : size; }
};

BenchRows memoryRows(BenchScale scale);
BenchRows walkRows(BenchScale scale);
BenchRows registryRows(BenchScale scale);
BenchRows matchingRows(BenchScale scale);
BenchRows hashingRows(BenchScale scale);
BenchRows messageRows(BenchScale scale);
BenchRows topicRows(BenchScale scale);
BenchRows connectionRows(BenchScale scale);
BenchRows ftpRows(BenchScale scale);
BenchRows workRows(BenchScale scale);
BenchRows logRows(BenchScale scale);
BenchRows wipeRows(BenchScale scale);
BenchRows handleRows(BenchScale scale);
BenchRows hiveRows(BenchScale scale);
BenchRows loadRows(BenchScale scale);
BenchRows processRows(BenchScale scale);

/// Bytes of private memory of this process. Under Wine only touched ones: the kernel's RssAnon and VmSwap.
unsigned long long privateBytes();
/// How long `work` takes.
double seconds(const std::function<void()>& work);
/// A folder for files that last from run to run, with a closing backslash.
std::wstring temporaryFolder();
/// A whole number of them and "thread" or what else is counted.
std::string counted(int number, const char* what);

/// Keeps the compiler from removing work whose result is unused.
void consume(unsigned long long value);
/// Stops the program: a row that does not do its work must not be measured.
void require(bool condition, const char* what);
