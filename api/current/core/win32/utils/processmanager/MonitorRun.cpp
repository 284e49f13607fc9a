#include "core/win32/utils/processmanager/include/MonitorRun.h"

#include <algorithm>
#include <memory>

#include "core/win32/utils/objectmanager/include/KeptLibrary.h"
#include "core/win32/utils/objectmanager/include/WaitEvent.h"
#include "core/win32/utils/restoremanager/include/WmiNamespace.h"
#include "core/win32/utils/strings/include/Strings.h"
#include "core/win32/utils/time/include/Time.h"
#include "win32/processes/include/ProcessOptions.h"

constexpr char kMonitorRunHeader[] = "core\\win32\\utils\\processmanager\\include\\MonitorRun.h";

namespace {
constexpr DWORD kStopWait = 900;     // milliseconds
constexpr long kFetchWait = 200;     // milliseconds between two checks for a stop
constexpr unsigned long kLeast = 10; // milliseconds
constexpr unsigned long kMost = 60000;

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
    requireSuccess(KeptLibrary::hold());
    auto own = std::make_unique<SharedPtr<MonitorRun>>(run);
    const Win32Handle thread(::CreateThread(nullptr, 0, &MonitorRun::threadMain, own.get(), 0, nullptr));
    if (!thread.isValid()) {
        const long code = lastError();
        KeptLibrary::release();
        raiseCode(code);
    }
    static_cast<void>(own.release()); // owned by the thread now
}

void MonitorRun::stop() noexcept
{
    SetEvent(m_stop.get());
    WaitForSingleObject(m_done.get(), kStopWait);
}

DWORD WINAPI MonitorRun::threadMain(void* run) noexcept
{
    const HMODULE library = KeptLibrary::reference();
    {
        const std::unique_ptr<SharedPtr<MonitorRun>> own(static_cast<SharedPtr<MonitorRun>*>(run));
        (*own)->work();
    }
    KeptLibrary::exitThread(library, 0);
}

void MonitorRun::work() noexcept
{
    if (m_wantsEvents) {
        const long code = boundary::statusOf([&]() -> long {
            watchEvents();
            return ERROR_SUCCESS;
        });
        m_source = kMonitorSnapshots;
        m_code = code;
    }
    watchSnapshots();
    m_source = kMonitorStopped;
    SetEvent(m_done.get());
}

/// Returns when the run was stopped. Raises why there are no events, or no more.
void MonitorRun::watchEvents()
{
    const ComLibrary com;
    const ComApartment apartment(com, COINIT_MULTITHREADED);
    const WmiNamespace wmi(com, L"ROOT\\CIMV2");
    const ComPtr<IEnumWbemClassObject> events = wmi.subscribe(L"SELECT * FROM Win32_ProcessTrace");
    bool isFirst = true;
    while (!isStopped()) {
        Event event{};
        const bool isThere = fetch(com, *events.get(), event);
        if (std::exchange(isFirst, false)) { // events arrive from now on; catch up on earlier ones
            compare(ProcessSnapshot());
            m_source = kMonitorEvents;
        }
        if (isThere && !isStopped())
            take(event);
    }
}

bool MonitorRun::fetch(const ComLibrary& com, IEnumWbemClassObject& events, Event& event)
{
    const char* const place = PLACE(kMonitorRunHeader, "MonitorRun::fetch", __LINE__);
    ComPtr<IWbemClassObject> object;
    ULONG count = 0;
    const HRESULT result = events.Next(kFetchWait, 1, object.receive(), &count);
    requireComSuccess(place, result);
    if (result == WBEM_S_TIMEDOUT)
        return false;
    if (object.get() == nullptr) // a subscription never ends by itself
        requireComSuccess(place, static_cast<HRESULT>(WBEM_E_NOT_FOUND));
    const auto ask = [&](const wchar_t* name, auto read) {
        ComValue value(com);
        requireComSuccess(place, object->Get(name, 0, value.receive(), nullptr, nullptr));
        return read(value);
    };
    const auto number = [&](const wchar_t* name) {
        return ask(name, [](const ComValue& value) { return value.getNumber(); });
    };
    const auto text = [&](const wchar_t* name) {
        return ask(name, [](const ComValue& value) { return value.getText(); });
    };
    event.isStart = text(L"__CLASS") == L"Win32_ProcessStartTrace";
    event.id = number(L"ProcessID");
    event.time = static_cast<unsigned long long>(strings::toInt64(text(L"TIME_CREATED"), 10));
    event.process = {event.time, false, number(L"ParentProcessID"), number(L"SessionID"),
                     text(L"ProcessName")};
    return true;
}

void MonitorRun::take(const Event& event)
{
    const auto known = m_known.find(event.id);
    if (event.isStart && known == m_known.end()) {
        m_known[event.id] = event.process;
        post(kProcessStarted, event.id, event.process, event.time);
    } else if (!event.isStart && known != m_known.end() && known->second.startTime <= event.time) {
        const Known ended = known->second;
        m_known.erase(known);
        post(kProcessEnded, event.id, ended, event.time);
    } // otherwise a snapshot has reported it already
}

void MonitorRun::watchSnapshots() noexcept
{
    for (DWORD wait = 0; WaitForSingleObject(m_stop.get(), wait) == WAIT_TIMEOUT; wait = m_interval) {
        const long code = boundary::statusOf([&]() -> long {
            compare(ProcessSnapshot());
            return ERROR_SUCCESS;
        });
        if (code != ERROR_SUCCESS)
            m_code = code; // the next snapshot catches up
    }
}

bool MonitorRun::isSame(const Known& known, const ProcessEntry& entry) noexcept
{
    constexpr unsigned long long kDelay = 10000000; // a second, for the event to arrive
    return known.isExact ? entry.startTime == known.startTime : entry.startTime <= known.startTime + kDelay;
}

/// Reports ended processes first, so a reused id ends before it starts.
void MonitorRun::compare(const ProcessSnapshot& snapshot)
{
    for (auto known = m_known.begin(); known != m_known.end();) {
        const ProcessEntry* const entry = snapshot.find(known->first);
        const auto here = known++;
        if (entry != nullptr && isSame(here->second, *entry))
            continue;
        const auto ended = m_known.extract(here);
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
