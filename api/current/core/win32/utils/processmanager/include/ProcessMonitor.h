#pragma once

#include <tuple>

#include "core/win32/utils/objectmanager/include/ObjectTable.h"
#include "core/win32/utils/processmanager/include/MonitorRun.h"

/// The one process monitor. See the exported functions; the operations raise bare codes.
class ProcessMonitor
{
public:
    static constexpr const char* kClassName = "ProcessMonitor";
    /// The name of the only object.
    static constexpr const wchar_t* kName = L"ProcessMonitor";

    ProcessMonitor() noexcept = default;
    ProcessMonitor(const ProcessMonitor&) = delete;
    ProcessMonitor& operator=(const ProcessMonitor&) = delete;
    virtual ~ProcessMonitor() { stop(); }

    void start(const wchar_t* topic, const wchar_t* filter, unsigned long interval, bool wantsEvents);
    void stop() noexcept;
    /// Its source, and the code of the last failure.
    [[nodiscard]] std::tuple<unsigned long, long> getState() noexcept;

private:
    ReadWriteLock m_lock;
    SharedPtr<MonitorRun> m_run; // empty while it is stopped
};

/// The table of the only object.
extern ObjectTable<SingletonPtr<ProcessMonitor>> processMonitors;
