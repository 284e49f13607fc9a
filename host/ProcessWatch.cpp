#include "ProcessWatch.h"

#include <windows.h>

#include <algorithm>
#include <cstring>

#include "Command.h"
#include "Console.h"
#include "OwnedText.h"

#include "core/win32/utils/communication/api.h"
#include "core/win32/utils/formatting/api.h"
#include "core/win32/utils/processmanager/api.h"

namespace {
constexpr wchar_t kTopic[] = L"sysmaint processes";

/// Prints what the monitor posts. Nothing else is printed on results() meanwhile.
class Printer : public MessageFilter
{
public:
    explicit Printer(bool asJson) : m_asJson(asJson) {}

    using MessageFilter::onMessage;
    void onMessage(const HashMessageW& message, HashMessageW&, void*) override
    {
        std::uint32_t id = 0;
        std::uint32_t parent = 0;
        std::uint32_t session = 0;
        const wchar_t* name = L"";
        const ParameterW* time = nullptr;
        unsigned long long value = 0;
        if (message.getParameter(L"ProcessId", id) != 0 || message.getParameter(L"ParentId", parent) != 0 ||
            message.getParameter(L"SessionId", session) != 0 ||
            message.getParameter(L"ImageName", name) != 0 || message.getParameter(L"Time", time) != 0 ||
            time->getSize() != sizeof value)
            return;
        std::memcpy(&value, time->getData(), sizeof value);
        const bool isStart = message.getId() == kProcessStarted;
        if (m_asJson)
            results().writeLine(std::wstring(L"{\"type\":\"") + (isStart ? L"start" : L"end") +
                                L"\",\"pid\":" + std::to_wstring(id) + L",\"parent\":" +
                                std::to_wstring(parent) + L",\"session\":" + std::to_wstring(session) +
                                L",\"time\":" + std::to_wstring(value) + L",\"name\":" + jsonString(name) +
                                L"}");
        else
            results().writeLine(textOf([&](wchar_t** text) { return FormatDateTime(value, 0, text); }) +
                                (isStart ? L"  start  " : L"  end    ") + std::to_wstring(id) + L"  " +
                                printable(name) + L"  (started by " + std::to_wstring(parent) + L")");
        results().flush();
    }

private:
    bool m_asJson;
};

/// Runs the monitor for a scope, with the printer on its topic.
class Watch
{
public:
    Watch(Printer& printer, const ProcessWatch& wanted) : m_printer(printer)
    {
        long code = CreateProcessMonitor();
        if (code != ERROR_SUCCESS)
            throw code;
        code = TopicSubscribe(m_topic, m_printer);
        if (code == ERROR_SUCCESS)
            code = PMStartMonitor(kTopic, wanted.names.empty() ? nullptr : wanted.names.c_str(),
                                  wanted.interval, wanted.wantsEvents ? 1 : 0);
        if (code != ERROR_SUCCESS) {
            end();
            throw code;
        }
    }
    Watch(const Watch&) = delete;
    Watch& operator=(const Watch&) = delete;
    ~Watch() { end(); }

private:
    void end()
    {
        CloseProcessMonitor();
        TopicConsumeAll(m_topic, INFINITE);
        TopicUnsubscribe(m_topic, m_printer, INFINITE);
    }

    Printer& m_printer;
    TopicHandle m_topic = CreateMessageTopic(kTopic);
};

void tellSource(unsigned long source, const ProcessWatch& wanted)
{
    messages().writeLine(source == kMonitorEvents
                             ? std::wstring(L"watching by the system's events")
                             : L"watching by snapshots every " + std::to_wstring(wanted.interval) +
                                   L" ms: what lives shorter than that may be missed");
    messages().flush();
}
} // namespace

int watchProcesses(const ProcessWatch& wanted)
{
    constexpr DWORD kLook = 200;      // milliseconds
    constexpr ULONGLONG kSoon = 3000; // milliseconds
    constexpr unsigned long long kSecond = 1000;
    Printer printer(wanted.asJson);
    const ULONGLONG begun = GetTickCount64();
    const Watch watch(printer, wanted);
    unsigned long told = kMonitorStopped;
    for (;;) {
        unsigned long source = kMonitorStopped;
        long code = ERROR_SUCCESS;
        // Without a code it is still waiting for events, which usually come soon.
        const bool isSettled = PMGetMonitorState(&source, &code) == ERROR_SUCCESS &&
                               (!wanted.wantsEvents || source == kMonitorEvents || code != ERROR_SUCCESS ||
                                GetTickCount64() - begun >= kSoon);
        if (isSettled && source != told)
            tellSource(told = source, wanted);
        const ULONGLONG passed = GetTickCount64() - begun;
        if (!results().isOpen() || (wanted.seconds != 0 && passed >= wanted.seconds * kSecond))
            return kExitDone;
        const ULONGLONG left = wanted.seconds != 0 ? wanted.seconds * kSecond - passed : kLook;
        if (WaitForSingleObject(cancelEvent(), static_cast<DWORD>(std::min<ULONGLONG>(left, kLook))) !=
            WAIT_TIMEOUT)
            return kExitCancelled;
    }
}
