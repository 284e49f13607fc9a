#include "core/win32/utils/processmanager/include/ProcessMonitor.h"

#include "win32/processes/include/ProcessOptions.h"

ObjectTable<SingletonPtr<ProcessMonitor>> processMonitors(5); // it holds a topic

void ProcessMonitor::start(const wchar_t* topic, const wchar_t* filter, unsigned long interval,
                           bool wantsEvents)
{
    const SharedPtr<MonitorRun> run(
        std::make_unique<MonitorRun>(topic, filter, interval, wantsEvents).release());
    {
        const WriteLocker locker(m_lock);
        if (m_run)
            raiseCode(ERROR_ALREADY_EXISTS);
        m_run = run;
    }
    try {
        MonitorRun::begin(run); // without the lock: it may need the loader
    } catch (...) {
        SharedPtr<MonitorRun> dropped;
        const WriteLocker locker(m_lock);
        if (m_run.get() == run.get())
            m_run.swap(dropped);
        throw;
    }
}

void ProcessMonitor::stop() noexcept
{
    SharedPtr<MonitorRun> ended;
    {
        const WriteLocker locker(m_lock);
        ended.swap(m_run);
    }
    if (ended)
        ended->stop();
}

std::tuple<unsigned long, long> ProcessMonitor::getState() noexcept
{
    const ReadLocker locker(m_lock);
    return m_run ? std::tuple(m_run->getSource(), m_run->getCode())
                 : std::tuple(static_cast<unsigned long>(kMonitorStopped), static_cast<long>(ERROR_SUCCESS));
}
