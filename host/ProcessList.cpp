#include "ProcessList.h"

#include <windows.h>

#include <algorithm>
#include <map>

#include "Console.h"
#include "TextTable.h"

#include "core/win32/utils/formatting/api.h"

namespace {
constexpr unsigned long long kMillisecond = 10000; // in units of 100 ns

/// A process as it is shown; unavailable fields are empty.
struct Shown
{
    ProcessEntry entry;
    std::size_t depth = 0;
    std::wstring user;
    std::wstring path;
    std::wstring commandLine;
};

unsigned long long timeOf(const ProcessEntry& entry)
{
    return entry.kernelTime + entry.userTime;
}

using Order = bool (*)(const ProcessEntry&, const ProcessEntry&);
const std::map<std::wstring, Order> kOrders = {
    {L"pid", [](const ProcessEntry& a, const ProcessEntry& b) { return a.id < b.id; }},
    {L"name", [](const ProcessEntry& a, const ProcessEntry& b) { return lstrcmpiW(a.name, b.name) < 0; }},
    {L"session", [](const ProcessEntry& a, const ProcessEntry& b) { return a.session < b.session; }},
    {L"threads", [](const ProcessEntry& a, const ProcessEntry& b) { return a.threadCount > b.threadCount; }},
    {L"memory", [](const ProcessEntry& a, const ProcessEntry& b) { return a.workingSet > b.workingSet; }},
    {L"time", [](const ProcessEntry& a, const ProcessEntry& b) { return timeOf(a) > timeOf(b); }},
    {L"start", [](const ProcessEntry& a, const ProcessEntry& b) { return a.startTime < b.startTime; }}};

Shown shownOf(const ProcessEntry& entry)
{
    Shown shown;
    shown.entry = entry;
    const ProcessHandle process(CreateProcessW(entry));
    OwnedBuffer<ProcessDetails> details;
    if (ProcessGetDetails(process.get(), details.target()) != ERROR_SUCCESS)
        return shown;
    const ProcessDetails& told = *details.get();
    shown.user = *told.user == L'\0' ? told.sid : std::wstring(told.domain) + L"\\" + told.user;
    shown.path = told.path;
    shown.commandLine = told.commandLine;
    return shown;
}

bool isUser(const Shown& shown, const std::wstring& wanted)
{
    const std::size_t behind = shown.user.find(L'\\') + 1; // 0 without one
    return lstrcmpiW(shown.user.c_str(), wanted.c_str()) == 0 ||
           lstrcmpiW(shown.user.c_str() + behind, wanted.c_str()) == 0;
}

/// Puts each process after its parent, siblings in their order.
std::vector<Shown> asTree(const std::vector<Shown>& all)
{
    std::map<unsigned long, std::vector<const Shown*>> children;
    std::vector<const Shown*> open;
    for (const Shown& each : all) {
        OwnedBuffer<ProcessEntry> parents;
        const auto chain = processesOf(parents, [&](ProcessEntry** entries, std::size_t* count) {
            return PMGetParents(each.entry.id, entries, count);
        });
        const auto isShown = [&](const Shown& other) { return other.entry.id == chain[0].id; };
        if (!chain.empty() && std::any_of(all.begin(), all.end(), isShown))
            children[chain[0].id].push_back(&each);
        else
            open.push_back(&each);
    }
    std::reverse(open.begin(), open.end());
    std::vector<Shown> tree;
    std::map<unsigned long, std::size_t> depths;
    while (!open.empty()) {
        const Shown& next = *open.back();
        open.pop_back();
        tree.push_back(next);
        tree.back().depth = depths[next.entry.id];
        auto& below = children[next.entry.id];
        for (auto child = below.rbegin(); child != below.rend(); ++child) {
            depths[(*child)->entry.id] = depths[next.entry.id] + 1;
            open.push_back(*child);
        }
    }
    return tree;
}

void printJson(const Shown& shown)
{
    const ProcessEntry& entry = shown.entry;
    std::wstring line = L"{\"pid\":" + std::to_wstring(entry.id);
    const auto number = [&](const wchar_t* name, unsigned long long value) {
        line += std::wstring(L",\"") + name + L"\":" + std::to_wstring(value);
    };
    const auto text = [&](const wchar_t* name, const std::wstring& value) {
        line += std::wstring(L",\"") + name + L"\":" + (value.empty() ? L"null" : jsonString(value));
    };
    number(L"parent", entry.parentId);
    number(L"session", entry.session);
    number(L"threads", entry.threadCount);
    number(L"handles", entry.handleCount);
    number(L"start", entry.startTime);
    number(L"kernelMilliseconds", entry.kernelTime / kMillisecond);
    number(L"userMilliseconds", entry.userTime / kMillisecond);
    number(L"workingSet", entry.workingSet);
    number(L"privateBytes", entry.privateBytes);
    text(L"name", entry.name);
    text(L"user", shown.user);
    text(L"path", shown.path);
    text(L"commandLine", shown.commandLine);
    results().writeLine(line + L"}");
}

std::vector<std::wstring> lineOf(const Shown& shown)
{
    const ProcessEntry& entry = shown.entry;
    const std::wstring time =
        textOf([&](wchar_t** text) { return FormatDuration(timeOf(entry) / kMillisecond, text); });
    return {std::to_wstring(entry.id),
            std::to_wstring(entry.session),
            time,
            formatBytes(entry.workingSet),
            std::to_wstring(entry.threadCount),
            shown.user.empty() ? L"-" : printable(shown.user),
            std::wstring(2 * shown.depth, L' ') + printable(entry.name)};
}
} // namespace

bool isSortColumn(const std::wstring& name)
{
    return kOrders.count(name) != 0;
}

void printProcesses(const ProcessListing& listing)
{
    OwnedBuffer<ProcessEntry> buffer;
    auto entries = processesOf(buffer, PMListProcesses);
    std::stable_sort(entries.begin(), entries.end(), kOrders.at(listing.sort));
    std::vector<Shown> shown;
    for (const ProcessEntry& each : entries) {
        Shown next = shownOf(each);
        if (listing.user.empty() || isUser(next, listing.user))
            shown.push_back(std::move(next));
    }
    if (listing.asTree)
        shown = asTree(shown);
    TextTable table({{L"PID", true},
                     {L"SESSION", true},
                     {L"TIME", true},
                     {L"MEMORY", true},
                     {L"THREADS", true},
                     {L"USER", false},
                     {L"NAME", false}});
    for (const Shown& each : shown) {
        if (listing.asJson)
            printJson(each);
        else
            table.add(lineOf(each));
    }
    if (!listing.asJson)
        table.print();
}
