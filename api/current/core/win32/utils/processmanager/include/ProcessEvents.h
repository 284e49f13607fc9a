#pragma once

#include <windows.h>

#include <deque>
#include <string>

#include "core/win32/utils/objectmanager/include/ReadWriteLock.h"
#include "core/win32/utils/objectmanager/include/SharedPtr.h"
#include "core/win32/utils/objectmanager/include/WaitEvent.h"
#include "core/win32/utils/objectmanager/include/Win32Handle.h"

class ComLibrary;
struct IEnumWbemClassObject;

/// The start or end of a process, as the system's events report it.
struct ProcessEvent
{
    bool isStart;
    unsigned long id;
    unsigned long long time;
    unsigned long parentId;
    unsigned long session;
    std::wstring name;
};

/// Subscribes to the system's events of processes (WMI) and fetches them, on a thread of its own: each call
/// may block for as long as the system likes. Fetching needs no COM security for the whole process, as being
/// called would.
class ProcessEvents
{
public:
    enum class State
    {
        kAsking,  // no event has come yet
        kServing, // all events from the first one on are fetched
        kEnded
    };
    struct News
    {
        State state;
        long code; // why it has ended
        std::deque<ProcessEvent> events;
    };

    /// Raises the system's bare code.
    ProcessEvents();
    ProcessEvents(const ProcessEvents&) = delete;
    ProcessEvents& operator=(const ProcessEvents&) = delete;

    /// Starts the thread. Raises the system's bare code.
    static void begin(const SharedPtr<ProcessEvents>& events);
    /// Waits for the thread, at most this long.
    void stop(DWORD timeout) noexcept;
    /// Is signalled once after each change of what `take` returns.
    [[nodiscard]] HANDLE getNewsEvent() const noexcept { return m_news.get(); }
    /// The state, and the events since the last call.
    [[nodiscard]] News take();

private:
    void work() noexcept;
    void fetchAll();
    void report(State state, long code, const ProcessEvent* event);
    [[nodiscard]] static bool fetch(const ComLibrary& com, IEnumWbemClassObject& events, ProcessEvent& event);

    Win32Handle m_stop;
    Win32Handle m_done;
    Win32Handle m_news;
    ReadWriteLock m_lock;
    State m_state = State::kAsking;
    long m_code = ERROR_SUCCESS;
    std::deque<ProcessEvent> m_events;
};
