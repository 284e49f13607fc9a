#pragma once

#include <vector>

#include "core/win32/utils/processmanager/include/Process.h"

/// Ends processes, which it holds from the moment it adds them. Refusals are raised while they are added.
class ProcessEnder
{
public:
    /// `services`: whether to end services as well. Raises a bare code.
    explicit ProcessEnder(bool services);
    ProcessEnder(const ProcessEnder&) = delete;
    ProcessEnder& operator=(const ProcessEnder&) = delete;

    /// Raises 1168 (ended already), 5, 50 (the calling process, the system's), 1052 (a service).
    void add(const ProcessEntry& entry);
    /// Adds the children of those that it holds. Returns whether there were new ones.
    bool addChildren();
    /// Ends all but the first `kept`, the last one first, without looking for further ones.
    void endAll(std::size_t kept);
    /// Raises 1460 when they are not gone in time.
    void wait(unsigned long timeout) const;

private:
    struct Held
    {
        ProcessEntry entry; // without its name
        Win32Handle handle;
        bool isTold; // to end
    };
    [[nodiscard]] bool holds(const ProcessEntry& entry) const noexcept;

    std::vector<Held> m_held;
    std::vector<unsigned long> m_services; // ids of those that may not be ended
};
