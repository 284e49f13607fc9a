#include "core/win32/utils/processmanager/include/ProcessEnder.h"

#include <algorithm>
#include <memory>
#include <span>

#include "core/win32/utils/objectmanager/include/ReadWriteLock.h"
#include "core/win32/utils/objectmanager/include/WaitEvent.h"
#include "core/win32/utils/processes/include/Processes.h"
#include "core/win32/utils/services/include/Services.h"

ProcessEnder::ProcessEnder(bool services)
{
    if (services)
        return;
    const RecordList<ServiceRecord> list = services::enumerate(0, SERVICE_ACTIVE);
    const utilitymemory::Owner memory = list.release();
    for (const ServiceRecord& each : std::span(static_cast<const ServiceRecord*>(memory.get()), list.count()))
        if (each.processId != 0)
            m_services.push_back(each.processId);
}

bool ProcessEnder::holds(const ProcessEntry& entry) const noexcept
{
    return std::any_of(m_held.begin(), m_held.end(),
                       [&](const Held& held) { return held.entry.id == entry.id; });
}

void ProcessEnder::add(const ProcessEntry& entry)
{
    const Process process(entry);
    protection::requireUnprotected(process.open(0).get(), entry.id, entry.name);
    if (std::find(m_services.begin(), m_services.end(), entry.id) != m_services.end())
        raiseCode(ERROR_INVALID_SERVICE_CONTROL);
    m_held.push_back({entry, process.open(PROCESS_TERMINATE), false});
    m_held.back().entry.name = nullptr; // it points into the snapshot
}

bool ProcessEnder::addChildren()
{
    constexpr int kLooks = 100;
    constexpr DWORD kPause = 20; // milliseconds
    const std::size_t before = m_held.size();
    auto taken = std::make_unique<const ProcessSnapshot>();
    // A process that one of them is just creating could outlive them unseen.
    const auto isGrowing = [&] {
        return std::any_of(m_held.begin(), m_held.end(),
                           [&](const Held& held) { return taken->isBirthBelow(held.entry.id); });
    };
    for (int look = 0; look < kLooks && isGrowing(); ++look) {
        Sleep(kPause);
        taken = std::make_unique<const ProcessSnapshot>();
    }
    const ProcessSnapshot& snapshot = *taken;
    for (std::size_t i = 0; i < m_held.size(); ++i)
        for (const ProcessEntry& each : snapshot.getProcesses()) {
            // The parent is held, so its id has not been reused.
            const ProcessEntry parent = m_held[i].entry;
            if (each.parentId != parent.id || each.startTime < parent.startTime || holds(each))
                continue;
            try {
                add(each);
            } catch (long code) {
                if (code != ERROR_NOT_FOUND) // it has ended by itself
                    throw;
            }
        }
    return m_held.size() != before;
}

void ProcessEnder::endAll(std::size_t kept)
{
    for (std::size_t i = m_held.size(); i-- > kept;) {
        Held& each = m_held[i];
        if (!each.isTold)
            processes::end(each.handle.get());
        each.isTold = true;
    }
}

void ProcessEnder::wait(unsigned long timeout) const
{
    const Deadline deadline(timeout);
    for (const Held& each : m_held)
        if (const long code = waitForEvent(each.handle.get(), deadline.getLeft(), nullptr);
            code != ERROR_SUCCESS)
            raiseCode(code == WAIT_TIMEOUT ? static_cast<long>(ERROR_TIMEOUT) : code);
}
