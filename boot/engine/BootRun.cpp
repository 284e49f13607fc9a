#include "engine/BootRun.h"

namespace {
constexpr std::size_t kLongestText = 34000; // characters
} // namespace

BootRun::BootRun(const native::Api& api, Text windowsFolder, const RunEvents& events)
    : m_api(api), m_windowsFolder(windowsFolder), m_events(events), m_text(api)
{
}

RunReport BootRun::run()
{
    RunReport report;
    WindowsFolder windows(m_api);
    report.status = windows.open(m_windowsFolder);
    Overwriter overwriter(m_api);
    FileRemover remover(m_api, windows, overwriter, m_events);
    if (report.status >= 0)
        report.status = overwriter.prepare();
    if (report.status >= 0)
        report.status = remover.prepare();
    if (report.status >= 0)
        report.status = m_text.allocate(kLongestText * sizeof(wchar_t));
    if (report.status < 0)
        return report;
    BootLog log(m_api, windows.folder());
    report.isBusy = log.open() == native::kSharingViolation;
    if (report.isBusy)
        return report;
    BootList list(m_api, windows.folder());
    report.status = list.open();
    if (report.status == native::kObjectNameNotFound) {
        report.status = native::kSuccess;
        report.isListEmpty = true;
    } else if (report.status >= 0) {
        FileNumber number;
        report.status = list.number(number);
        remover.protect(number);
        if (log.number(number) >= 0)
            remover.protect(number);
        if (report.status >= 0)
            handleLines(list, log, remover, report);
        report.bytes = overwriter.written();
        const native::Status closed = list.close(report.isListEmpty);
        report.status = report.status < 0 ? report.status : closed;
    }
    if (report.lines != 0 || report.status < 0)
        tellEnd(log, report);
    return report;
}

void BootRun::handleLines(BootList& list, BootLog& log, FileRemover& remover, RunReport& report)
{
    ListLine line;
    for (ListLines all = list.lines(); all.next(line);)
        ++report.lines;
    TextBuilder begin(m_text.as<wchar_t>(), kLongestText);
    if (report.lines != 0)
        log.add(begin.add(Text(L"begin: ")).addNumber(report.lines).add(Text(L" on the list")).text());
    ListLines lines = list.lines();
    for (std::uint32_t at = 1; lines.next(line); ++at) {
        if (m_events.onProgress != nullptr)
            m_events.onProgress(m_events.context, at, report.lines, 0);
        ListedFile listed;
        Result result;
        if (m_events.isOver != nullptr && m_events.isOver(m_events.context)) {
            report.isOver = true;
            report.left += report.lines - at + 1;
            return;
        }
        result.outcome = !isWanted(line) ? Outcome::kNotWanted
                         : !line.isWhole ? Outcome::kCut
                                         : ListedFile::parse(line.text, listed);
        if (result.outcome == Outcome::kDone)
            result = remover.remove(listed, at, report.lines);
        count(result, report);
        if (!isHandled(result.outcome)) {
            tellLeft(log, line, result);
            if (result.outcome == Outcome::kNotDone)
                list.postpone(line);
            continue;
        }
        // Looking again for a missing file is harmless.
        const native::Status dropped = list.drop(line, result.outcome != Outcome::kGone);
        if (dropped < 0)
            report.status = dropped;
    }
}

bool BootRun::isWanted(const ListLine& line) const
{
    return m_events.isWanted == nullptr || m_events.isWanted(m_events.context, line.text);
}

void BootRun::count(const Result& result, RunReport& report) const
{
    switch (result.outcome) {
    case Outcome::kDone:
        ++report.wiped;
        break;
    case Outcome::kGone:
        ++report.gone;
        break;
    case Outcome::kLinkRemoved:
        ++report.links;
        break;
    default:
        ++report.left;
    }
    report.isOver = report.isOver || result.outcome == Outcome::kNotDone;
}

void BootRun::tellLeft(BootLog& log, const ListLine& line, const Result& result)
{
    const Text reason = reasonOf(result.outcome);
    if (m_events.onLeft != nullptr)
        m_events.onLeft(m_events.context, line.text, reason, result.status);
    TextBuilder text(m_text.as<wchar_t>(), kLongestText);
    text.add(Text(L"left: ")).add(reason);
    if (result.status < 0)
        text.add(Text(L" (0x")).addNumber(static_cast<std::uint32_t>(result.status), 16, 8).add(L')');
    log.add(text.add(Text(L": ")).add(line.text.first(kLongestText - 200)).text());
}

void BootRun::tellEnd(BootLog& log, const RunReport& report)
{
    TextBuilder text(m_text.as<wchar_t>(), kLongestText);
    text.add(Text(L"end: "));
    text.addNumber(report.wiped).add(Text(L" overwritten and deleted, "));
    text.addNumber(report.bytes).add(Text(L" bytes; "));
    text.addNumber(report.links).add(Text(L" links removed, "));
    text.addNumber(report.gone).add(Text(L" gone already, "));
    text.addNumber(report.left).add(Text(L" left"));
    if (report.isOver)
        text.add(Text(L"; not all was done in time, the rest waits for the next run"));
    if (report.status < 0)
        text.add(Text(L"; the list failed: 0x")).addNumber(static_cast<std::uint32_t>(report.status), 16, 8);
    log.add(text.text(), true);
}
