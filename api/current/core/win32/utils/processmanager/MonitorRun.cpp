#include "core/win32/utils/processmanager/include/MonitorRun.h"

#include <algorithm>
#include <array>
#include <memory>

#include "core/win32/utils/objectmanager/include/WaitEvent.h"
#include "core/win32/utils/processmanager/include/HeldThread.h"
#include "core/win32/utils/strings/include/Strings.h"
#include "core/win32/utils/time/include/Time.h"
#include "win32/processes/include/ProcessOptions.h"

constexpr char kMonitorRunHeader[] = "core\\win32\\utils\\processmanager\\include\\MonitorRun.h";

namespace {
constexpr DWORD kStopWait = 900;     // milliseconds
constexpr DWORD kEventsWait = 800;   // milliseconds of it
constexpr unsigned long kLeast = 10; // milliseconds
constexpr unsigned long kMost = 60000;
constexpr unsigned long long kDelay = 10000000;    // a second in 100 ns, for an event to be made
constexpr unsigned long long kKeptFor = 600000000; // a minute, for a start that comes after its end

std::vector<std::wstring> patternsOf(const wchar_t* filter)
{
    std::vector<std::wstring> patterns;
    if (filter == nullptr)
        return patterns;
    const std::wstring_view text = filter;
    for (std::size_t begin = 0; begin <= text.size();) {
        const std::size_t end = std::min(text.find(L',', begin), text.size());
        patterns.push_back(strings::trim(text.substr(begin, end - begin), L" "));
        if (patterns.back().empty()) // usually an unset variable
            raiseCode(ERROR_INVALID_PARAMETER);
        begin = end + 1;
    }
    return patterns;
}

Win32Handle makeEvent()
{
    Win32Handle event(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    if (!event.isValid())
        raiseLastError();
    return event;
}

unsigned long long now() noexcept
{
    FILETIME time;
    GetSystemTimeAsFileTime(&time);
    return timetext::number(time);
}
} // namespace

MonitorRun::MonitorRun(const wchar_t* topic, const wchar_t* filter, unsigned long interval, bool wantsEvents)
    : m_topicName(topic), m_patterns(patternsOf(filter)), m_interval(interval), m_wantsEvents(wantsEvents),
      m_stop(makeEvent()), m_done(makeEvent()), m_source(kMonitorSnapshots)
{
    if (interval < kLeast || interval > kMost)
        raiseCode(ERROR_INVALID_PARAMETER);
    m_topic.reset(createTopic(PLACE(kMonitorRunHeader, "MonitorRun::MonitorRun", __LINE__), topic));
    if (!m_topic.isValid())
        raiseLastError();
    const ProcessSnapshot snapshot;
    for (const ProcessEntry& each : snapshot.getProcesses())
        m_known[each.id] = {each.startTime, true, each.parentId, each.session, each.name};
}

void MonitorRun::begin(const SharedPtr<MonitorRun>& run)
{
    startHeldThread<MonitorRun, &MonitorRun::work>(run);
}

void MonitorRun::stop() noexcept
{
    SetEvent(m_stop.get());
    WaitForSingleObject(m_done.get(), kStopWait);
}

void MonitorRun::work() noexcept
{
    if (m_wantsEvents)
        m_code = boundary::statusOf([&]() -> long {
            const SharedPtr<ProcessEvents> events(std::make_unique<ProcessEvents>().release());
            ProcessEvents::begin(events);
            m_events = events;
            return ERROR_SUCCESS;
        });
    watch();
    if (m_events)
        m_events->stop(kEventsWait);
    m_source = kMonitorStopped;
    SetEvent(m_done.get());
}

void MonitorRun::watch() noexcept
{
    std::array<HANDLE, 2> handles{m_stop.get(), nullptr};
    if (m_events)
        handles.back() = m_events->getNewsEvent();
    const DWORD count = m_events ? 2 : 1;
    for (DWORD wait = 0;;) {
        const DWORD signalled = WaitForMultipleObjects(count, handles.data(), FALSE, wait);
        if (signalled == WAIT_OBJECT_0 || signalled == WAIT_FAILED)
            return;
        const long code = boundary::statusOf([&]() -> long {
            follow(signalled == WAIT_TIMEOUT);
            return ERROR_SUCCESS;
        });
        if (code != ERROR_SUCCESS) {
            m_code = code; // the next snapshot catches up
            if (m_eventState == ProcessEvents::State::kServing)
                giveUpEvents();
        }
        wait = getWait();
    }
}

/// While events come, a snapshot is compared only after a long silence: they may have stopped without a word.
DWORD MonitorRun::getWait() const noexcept
{
    constexpr unsigned long kIntervals = 10;
    return m_source == kMonitorEvents ? std::min(kIntervals * m_interval, kMost) : m_interval;
}

/// Posts what has happened since the last call: from the system's events, or from a snapshot while there are
/// none. `isSilent`: nothing has come.
void MonitorRun::follow(bool isSilent)
{
    if (!m_events || m_eventState == ProcessEvents::State::kEnded)
        return static_cast<void>(compare(ProcessSnapshot()));
    const ProcessEvents::News news = m_events->take();
    m_eventState = news.state;
    if (news.state == ProcessEvents::State::kServing && !news.events.empty() && m_source != kMonitorEvents) {
        compare(ProcessSnapshot()); // what happened before the first event
        m_oldestStart = now() - kKeptFor;
        m_source = kMonitorEvents;
    }
    for (const ProcessEvent& each : news.events)
        if (!isStopped())
            take(each);
    if (news.state == ProcessEvents::State::kEnded) {
        m_code = news.code;
        giveUpEvents();
    }
    if (m_source != kMonitorEvents)
        compare(ProcessSnapshot());
    else if (isSilent && news.events.empty() && compare(ProcessSnapshot())) // no event has told what it found
        m_source = kMonitorSnapshots;
}

void MonitorRun::giveUpEvents() noexcept
{
    m_eventState = ProcessEvents::State::kEnded;
    m_source = kMonitorSnapshots;
    m_ends.clear();
    m_told.clear();
    m_events->stop(0);
}

void MonitorRun::take(const ProcessEvent& event)
{
    if (event.isStart)
        return takeStart(event);
    const auto known = m_known.find(event.id);
    if (known != m_known.end() && event.time < known->second.startTime)
        return; // another process had that id before
    rememberEnd(event);
    if (known != m_known.end()) {
        const auto ended = m_known.extract(known);
        post(kProcessEnded, event.id, ended.mapped(), event.time);
    }
}

/// The event of a start may come after that of the end, even if an earlier process with the id was still
/// known.
void MonitorRun::rememberEnd(const ProcessEvent& event)
{
    constexpr std::size_t kRoom = 64;
    if (m_ends.size() >= m_endsRoom) {
        std::erase_if(m_ends, [&](const auto& each) { return each.second + kKeptFor < event.time; });
        m_endsRoom = 2 * m_ends.size() + kRoom;
    }
    unsigned long long& last = m_ends[event.id];
    last = std::max(last, event.time);
}

/// The events of a process may come long after snapshots have told its start and its end.
void MonitorRun::rememberTold(unsigned long id, const Known& ended)
{
    constexpr std::size_t kRoom = 64;
    if (!ended.isExact || !m_events || m_eventState == ProcessEvents::State::kEnded)
        return;
    const unsigned long long time = now();
    if (m_told.size() >= m_toldRoom) {
        std::erase_if(m_told, [&](const auto& each) { return each.second.end + kKeptFor < time; });
        m_toldRoom = 2 * m_told.size() + kRoom;
    }
    m_told.emplace(id, Told{ended.startTime, time});
}

/// Whether a start is that of a process that has been told and has ended, which is so only once.
bool MonitorRun::wasTold(const ProcessEvent& start)
{
    const auto [first, last] = m_told.equal_range(start.id);
    const auto found = std::find_if(first, last, [&](const auto& each) {
        return start.time <= each.second.start + kDelay && each.second.start <= start.time + kDelay;
    });
    if (found == last)
        return start.time < m_oldestStart;
    m_told.erase(found);
    return true;
}

/// Whether the process of this start has ended: an end at the same time may be that of the one before it.
bool MonitorRun::hasEnded(const ProcessEvent& start, unsigned long long end)
{
    if (end < start.time)
        return false;
    const ProcessSnapshot snapshot;
    const ProcessEntry* const entry = snapshot.find(start.id);
    return entry == nullptr || entry->startTime > start.time;
}

void MonitorRun::takeStart(const ProcessEvent& event)
{
    if (wasTold(event))
        return;
    if (const auto known = m_known.find(event.id); known != m_known.end()) {
        if (isAboutKnown(event, known->second))
            return;
        const auto ended = m_known.extract(known); // the event of its end comes later, or never
        post(kProcessEnded, event.id, ended.mapped(), event.time);
    }
    const Known process{event.time, false, event.parentId, event.session, event.name};
    m_known[event.id] = process;
    post(kProcessStarted, event.id, process, event.time);
    if (const auto end = m_ends.find(event.id); end != m_ends.end() && hasEnded(event, end->second)) {
        m_known.erase(event.id);
        post(kProcessEnded, event.id, process, end->second);
    }
}

/// Whether a start is that of the known process with this id, or of an earlier one. The event is made a
/// little later than the process.
bool MonitorRun::isAboutKnown(const ProcessEvent& event, const Known& known)
{
    if (event.time <= known.startTime)
        return true;
    if (!known.isExact) // it was reported by its own event
        return false;
    const ProcessSnapshot snapshot;
    const ProcessEntry* const entry = snapshot.find(event.id);
    if (entry != nullptr && entry->startTime == known.startTime)
        return true;
    return event.time <= known.startTime + kDelay && (entry == nullptr || event.time < entry->startTime);
}

bool MonitorRun::isSame(const Known& known, const ProcessEntry& entry) noexcept
{
    return known.isExact ? entry.startTime == known.startTime : entry.startTime <= known.startTime + kDelay;
}

/// Reports ended processes first, so a reused id ends before it starts. Returns whether there was anything.
bool MonitorRun::compare(const ProcessSnapshot& snapshot)
{
    bool isAnything = false;
    for (auto known = m_known.begin(); known != m_known.end();) {
        const ProcessEntry* const entry = snapshot.find(known->first);
        const auto here = known++;
        if (entry != nullptr && isSame(here->second, *entry))
            continue;
        const auto ended = m_known.extract(here);
        isAnything = true;
        rememberTold(ended.key(), ended.mapped());
        post(kProcessEnded, ended.key(), ended.mapped(), now());
    }
    std::vector<const ProcessEntry*> started;
    for (const ProcessEntry& each : snapshot.getProcesses())
        if (m_known.count(each.id) == 0)
            started.push_back(&each);
    std::stable_sort(started.begin(), started.end(), [](const ProcessEntry* left, const ProcessEntry* right) {
        return left->startTime < right->startTime;
    });
    for (const ProcessEntry* each : started) {
        const Known process{each->startTime, true, each->parentId, each->session, each->name};
        m_known[each->id] = process;
        post(kProcessStarted, each->id, process, each->startTime);
    }
    return isAnything || !started.empty();
}

void MonitorRun::post(unsigned long message, unsigned long id, const Known& process, unsigned long long time)
{
    const bool isWanted = m_patterns.empty() ||
                          std::any_of(m_patterns.begin(), m_patterns.end(), [&](const std::wstring& each) {
                              return strings::matchesPattern(process.name, each);
                          });
    if (!isWanted || isStopped())
        return;
    HashMessageW posted(m_topicName.c_str(), message);
    requireSuccess(posted.setParameter(L"ProcessId", static_cast<std::uint32_t>(id)));
    requireSuccess(posted.setParameter(L"ParentId", static_cast<std::uint32_t>(process.parentId)));
    requireSuccess(posted.setParameter(L"SessionId", static_cast<std::uint32_t>(process.session)));
    requireSuccess(posted.setParameter(L"ImageName", process.name.c_str()));
    requireSuccess(posted.setParameter(L"Time", &time, sizeof time));
    const long code =
        withTopic(PLACE(kMonitorRunHeader, "MonitorRun::post", __LINE__), m_topic.get(),
                  [&](MessageTopic& topic) { topic.postMessage(posted, MessageTopic::kNoValue); });
    if (code != ERROR_SUCCESS)
        m_code = code;
}
