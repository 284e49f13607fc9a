#include "core/win32/utils/processmanager/include/ProcessEvents.h"

#include "core/win32/utils/objectmanager/include/Boundary.h"
#include "core/win32/utils/processmanager/include/HeldThread.h"
#include "core/win32/utils/restoremanager/include/WmiNamespace.h"
#include "core/win32/utils/strings/include/Strings.h"

constexpr char kProcessEventsHeader[] = "core\\win32\\utils\\processmanager\\include\\ProcessEvents.h";

namespace {
constexpr long kFetchWait = 200; // milliseconds between two checks for a stop

Win32Handle makeEvent(bool isManual)
{
    Win32Handle event(CreateEventW(nullptr, isManual ? TRUE : FALSE, FALSE, nullptr));
    if (!event.isValid())
        raiseLastError();
    return event;
}
} // namespace

ProcessEvents::ProcessEvents() : m_stop(makeEvent(true)), m_done(makeEvent(true)), m_news(makeEvent(false)) {}

void ProcessEvents::begin(const SharedPtr<ProcessEvents>& events)
{
    startHeldThread<ProcessEvents, &ProcessEvents::work>(events);
}

void ProcessEvents::stop(DWORD timeout) noexcept
{
    SetEvent(m_stop.get());
    WaitForSingleObject(m_done.get(), timeout);
}

ProcessEvents::News ProcessEvents::take()
{
    const WriteLocker locker(m_lock);
    News news{m_state, m_code, {}};
    news.events.swap(m_events);
    return news;
}

void ProcessEvents::work() noexcept
{
    const long code = boundary::statusOf([&]() -> long {
        fetchAll();
        return ERROR_SUCCESS;
    });
    report(State::kEnded, code, nullptr);
    SetEvent(m_done.get());
}

void ProcessEvents::report(State state, long code, const ProcessEvent* event)
{
    {
        const WriteLocker locker(m_lock);
        if (event != nullptr)
            m_events.push_back(*event);
        else if (m_state == state)
            return;
        m_state = state;
        m_code = code;
    }
    SetEvent(m_news.get());
}

/// Returns when it was stopped. Raises why there are no events, or no more.
void ProcessEvents::fetchAll()
{
    const ComLibrary com;
    const ComApartment apartment(com, COINIT_MULTITHREADED);
    const WmiNamespace wmi(com, L"ROOT\\CIMV2");
    const ComPtr<IEnumWbemClassObject> events = wmi.subscribe(L"SELECT * FROM Win32_ProcessTrace");
    while (!isSignalled(m_stop.get())) {
        ProcessEvent event{};
        // The system may refuse with the first fetch only, or accept and never deliver anything.
        if (fetch(com, *events.get(), event))
            report(State::kServing, ERROR_SUCCESS, &event);
    }
}

bool ProcessEvents::fetch(const ComLibrary& com, IEnumWbemClassObject& events, ProcessEvent& event)
{
    const char* const place = PLACE(kProcessEventsHeader, "ProcessEvents::fetch", __LINE__);
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
    event.parentId = number(L"ParentProcessID");
    event.session = number(L"SessionID");
    event.name = text(L"ProcessName");
    return true;
}
