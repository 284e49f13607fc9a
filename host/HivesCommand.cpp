#include "Command.h"
#include "Console.h"

#include <algorithm>
#include <map>
#include <thread>

#include "OwnedHandle.h"

#include "core/win32/registry/defragmenter/api.h"

namespace {
constexpr const wchar_t* kHelp = LR"(usage: sysmaint hives list | analyze [--json]

The registry hives that the system has loaded. Nothing of them is changed.

  list     shows each hive that has a file, with its path
  analyze  tells how much each would shrink if it were rewritten compactly: copies it from the volume
           into the user's temporary folder, cluster by cluster, saves the copy compactly, and deletes
           both. Needs an administrator's rights, and room for the largest hive and its compact form.
           The bar shows what stays (#) and what would go (.).

  --json   one object per hive, then a summary

A hive that is written to meanwhile may be torn; it is reported, and the others are analyzed all the same.
Ctrl+C stops the copy at once.

example: sysmaint hives analyze
)";

struct Hive
{
    std::wstring name;
    std::wstring file;
};

/// The list of hives. Throws the code.
std::vector<Hive> listHives()
{
    MemoryOutputByteStream written;
    if (const long code = DumpHiveList(written); code != ERROR_SUCCESS)
        throw code;
    MemoryInputByteStream stream(written.getData(), written.getSize());
    std::vector<Hive> hives;
    for (std::uint32_t left = primitives::readU32(stream); left != 0; --left) {
        Hive hive;
        hive.name = primitives::readText<wchar_t>(stream).c_str();
        hive.file = primitives::readText<wchar_t>(stream).c_str();
        hives.push_back(std::move(hive));
    }
    return hives;
}

std::wstring padded(const std::wstring& text, std::size_t width)
{
    return text.size() < width ? std::wstring(width - text.size(), L' ') + text : text;
}

std::wstring jsonField(const wchar_t* name, unsigned long long value)
{
    return std::wstring(L",\"").append(name).append(L"\":").append(std::to_wstring(value));
}

std::wstring jsonNames(const wchar_t* type, const std::wstring& name, const std::wstring& file)
{
    return std::wstring(L"{\"type\":\"")
        .append(type)
        .append(L"\",\"name\":")
        .append(jsonString(name))
        .append(L",\"file\":")
        .append(jsonString(file));
}

int showList(bool json)
{
    const std::vector<Hive> hives = listHives();
    for (const Hive& hive : hives)
        results().writeLine(json ? jsonNames(L"hive", hive.name, hive.file) + L"}"
                                 : printable(hive.name).append(L"  ").append(printable(hive.file)));
    if (!json)
        messages().writeLine(formatCount(hives.size()) + L" hives");
    return kExitDone;
}

/// Sizes before and after. A compact form that is larger saves nothing.
struct Sizes
{
    unsigned long long now = 0;
    unsigned long long compacted = 0;
    [[nodiscard]] unsigned long long saved() const { return now - std::min(now, compacted); }
    [[nodiscard]] unsigned long long savedPerMille() const { return now != 0 ? saved() * 1000 / now : 0; }
};

/// "    1,234,567      234,567    1,000,000  81.0 %  [####................]  "
std::wstring formatRow(const Sizes& sizes)
{
    constexpr std::size_t kNumber = 13;
    constexpr unsigned long long kBar = 20;
    const unsigned long long perMille = sizes.savedPerMille();
    const auto gone = static_cast<std::size_t>(perMille * kBar / 1000);
    return padded(formatCount(sizes.now), kNumber)
        .append(padded(formatCount(sizes.compacted), kNumber))
        .append(padded(formatCount(sizes.saved()), kNumber))
        .append(padded(std::to_wstring(perMille / 10), 5)) // NOLINT(readability-magic-numbers)
        .append(L".")
        .append(std::to_wstring(perMille % 10))
        .append(L" %  [")
        .append(kBar - gone, L'#')
        .append(gone, L'.')
        .append(L"]  ");
}

/// Shows the results, and returns the totals.
Sizes showResults(const RDAnalyzerResults& found, bool json)
{
    if (!json)
        results().writeLine(
            L"          now    compacted       saving                                   hive");
    Sizes totals;
    for (const RDHiveResult& result : found.getResults()) {
        const Sizes sizes{result.oldSize, result.newSize};
        totals.now += sizes.now;
        totals.compacted += std::min(sizes.now, sizes.compacted); // a hive that would grow stays unchanged
        const std::wstring name = result.mountName.c_str();
        const std::wstring file = result.path.c_str();
        results().writeLine(json ? jsonNames(L"hive", name, file) + jsonField(L"bytes", sizes.now) +
                                       jsonField(L"compactedBytes", sizes.compacted) +
                                       jsonField(L"savedBytes", sizes.saved()) + L"}"
                                 : formatRow(sizes) + printable(name) + L"  " + printable(file));
    }
    for (const RDHiveFailure& failure : found.getFailures()) {
        const std::wstring name = failure.mountName.c_str();
        const std::wstring file = failure.path.c_str();
        if (json)
            results().writeLine(jsonNames(L"failure", name, file) + jsonField(L"code", failure.code) +
                                L",\"report\":" + jsonString(failure.report.c_str()) + L"}");
        messages().writeLine(L"hives: " + printable(name) + L" (" + printable(file) + L"): " +
                             formatCode(static_cast<long>(failure.code)));
    }
    return totals;
}

/// Shows the progress of an analysis, by the sizes of the hives' files.
class AnalysisProgress
{
public:
    AnalysisProgress()
    {
        if (!messages().isTerminal())
            return;
        for (const Hive& hive : listHives()) {
            WIN32_FILE_ATTRIBUTE_DATA data{};
            GetFileAttributesExW(hive.file.c_str(), GetFileExInfoStandard, &data);
            m_sizes[hive.name] =
                (static_cast<unsigned long long>(data.nFileSizeHigh) << 32U) | data.nFileSizeLow;
            m_total += m_sizes[hive.name];
        }
    }

    void show(const RDAnalyzerResults& found)
    {
        if (!m_line.isDue())
            return;
        unsigned long long done = 0;
        for (const RDHiveResult& result : found.getResults())
            done += m_sizes[result.mountName.c_str()];
        for (const RDHiveFailure& failure : found.getFailures())
            done += m_sizes[failure.mountName.c_str()];
        done = std::min(done, m_total);
        std::wstring text = std::to_wstring(m_total != 0 ? done * 100 / m_total : 0) + L" %, " +
                            formatCount(found.getResults().size() + found.getFailures().size()) + L" of " +
                            formatCount(m_sizes.size()) + L" hives, " + formatBytes(done) + L" of " +
                            formatBytes(m_total);
        const unsigned long long elapsed = std::max<ULONGLONG>(GetTickCount64() - m_begin, 1);
        if (const unsigned long long rate = done * 1000 / elapsed; rate != 0)
            text += L", " + formatBytes(rate) + L"/s, " + formatCount((m_total - done) / rate) + L" s left";
        m_line.show(text);
    }
    void clear() { m_line.clear(); }

private:
    ProgressLine m_line;
    std::map<std::wstring, unsigned long long> m_sizes;
    unsigned long long m_total = 0;
    ULONGLONG m_begin = GetTickCount64();
};

/// Runs the analysis while a progress line shows it.
long analyze(RDAnalyzerResults& found)
{
    AnalysisProgress progress;
    void* const defragmenter = CreateRegistryDefragmenter(L"sysmaint");
    if (defragmenter == INVALID_HANDLE_VALUE)
        return static_cast<long>(GetLastError());
    constexpr DWORD kLook = 100; // milliseconds
    long code = ERROR_SUCCESS;
    const OwnedHandle done(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    std::thread worker([&] {
        RDAnalyzerResults unused;
        code = RegistryDefragmenterAnalyze(defragmenter, unused, cancelEvent());
        SetEvent(done.get());
    });
    while (WaitForSingleObject(done.get(), kLook) == WAIT_TIMEOUT)
        if (messages().isTerminal() && RegistryDefragmenterGetResults(defragmenter, found) == ERROR_SUCCESS)
            progress.show(found);
    worker.join();
    progress.clear();
    const long asked = RegistryDefragmenterGetResults(defragmenter, found);
    CloseRegistryDefragmenter(defragmenter);
    return code != ERROR_SUCCESS ? code : asked;
}

int showAnalysis(bool json)
{
    RDAnalyzerResults found;
    const long code = analyze(found);
    const Sizes totals = showResults(found, json);
    if (json)
        results().writeLine(L"{\"type\":\"summary\"" + jsonField(L"hives", found.getResults().size()) +
                            jsonField(L"failures", found.getFailures().size()) +
                            jsonField(L"bytes", totals.now) + jsonField(L"compactedBytes", totals.compacted) +
                            jsonField(L"savedBytes", totals.saved()) +
                            jsonField(L"code", static_cast<unsigned long>(code)) + L"}");
    else
        results().writeLine(formatRow(totals) + L"in all");
    if (code == ERROR_CANCELLED) {
        messages().writeLine(L"hives: stopped; the other hives were not analyzed");
        return kExitCancelled;
    }
    if (code != ERROR_SUCCESS && found.getFailures().empty())
        messages().writeLine(L"hives: " + formatCode(code));
    if (code == ERROR_ACCESS_DENIED)
        messages().writeLine(L"hives: reading hives from the volume takes an administrator's rights");
    return code == ERROR_SUCCESS ? kExitDone : kExitFailed;
}

int run(const std::vector<std::wstring>& words)
{
    const Arguments arguments(words, {{L"--json", false}});
    const std::vector<std::wstring>& operands = arguments.operands();
    if (operands.size() == 1 && operands[0] == L"list")
        return showList(arguments.has(L"--json"));
    if (operands.size() == 1 && operands[0] == L"analyze")
        return showAnalysis(arguments.has(L"--json"));
    throw UsageError{L"list or analyze"};
}
} // namespace

const Command kHivesCommand = {L"hives", L"tell how much the loaded registry hives would shrink", kHelp,
                               &run};
