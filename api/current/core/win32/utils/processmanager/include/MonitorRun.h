#pragma once

#include <windows.h>

#include <atomic>
#include <map>
#include <string>
#include <vector>

#include "core/win32/utils/communication/include/MessageTopic.h"
#include "core/win32/utils/objectmanager/include/Win32Handle.h"
#include "core/win32/utils/processmanager/include/ProcessEvents.h"
#include "core/win32/utils/processmanager/include/ProcessSnapshot.h"

/// One run of the process monitor, from a start to the next stop: a thread that watches processes and posts a
/// message for each. The thread holds the run, so it can be left behind when it is blocked in a system call.
class MonitorRun
{
public:
    /// Opens the topic and takes the first snapshot. Raises 87, 8 or the system's bare code.
    MonitorRun(const wchar_t* topic, const wchar_t* filter, unsigned long interval, bool wantsEvents);
    MonitorRun(const MonitorRun&) = delete;
    MonitorRun& operator=(const MonitorRun&) = delete;

    /// Starts the thread. Raises the system's bare code.
    static void begin(const SharedPtr<MonitorRun>& run);
    /// Nothing is posted after it returns. Waits for the thread, at most a second.
    void stop() noexcept;
    [[nodiscard]] unsigned long getSource() const noexcept { return m_source; }
    [[nodiscard]] long getCode() const noexcept { return m_code; }

private:
    struct Known
    {
        unsigned long long startTime;
        bool isExact; // otherwise the time of its event, a little later
        unsigned long parentId;
        unsigned long session;
        std::wstring name;
    };

    void work() noexcept;
    void watch() noexcept;
    void follow(bool isSilent);
    void giveUpEvents() noexcept;
    [[nodiscard]] DWORD getWait() const noexcept;
    bool compare(const ProcessSnapshot& snapshot);
    void rememberTold(unsigned long id, const Known& ended);
    [[nodiscard]] bool wasTold(const ProcessEvent& start);
    void take(const ProcessEvent& event);
    void takeStart(const ProcessEvent& event);
    void rememberEnd(const ProcessEvent& event);
    void post(unsigned long message, unsigned long id, const Known& process, unsigned long long time);
    [[nodiscard]] bool isStopped() const noexcept { return isSignalled(m_stop.get()); }
    [[nodiscard]] static bool isSame(const Known& known, const ProcessEntry& entry) noexcept;
    [[nodiscard]] static bool isAboutKnown(const ProcessEvent& event, const Known& known);
    [[nodiscard]] static bool hasEnded(const ProcessEvent& start, unsigned long long end);

    std::wstring m_topicName;
    std::vector<std::wstring> m_patterns; // none: all
    unsigned long m_interval;
    bool m_wantsEvents;
    Win32Handle m_stop;
    Win32Handle m_done;
    SmartHandle<closeTopic> m_topic;
    // Only used by the thread:
    SharedPtr<ProcessEvents> m_events;
    ProcessEvents::State m_eventState = ProcessEvents::State::kAsking;
    std::map<unsigned long, Known> m_known;
    std::map<unsigned long, unsigned long long> m_ends; // when the last process of an id ended
    std::size_t m_endsRoom = 0;
    /// The start and end of a process that only snapshots told.
    struct Told
    {
        unsigned long long start;
        unsigned long long end;
    };
    std::multimap<unsigned long, Told> m_told; // whose events may still come
    std::size_t m_toldRoom = 0;
    unsigned long long m_oldestStart = 0; // earlier ones are past remembering
    std::atomic<unsigned long> m_source;
    std::atomic<long> m_code{ERROR_SUCCESS};
};
