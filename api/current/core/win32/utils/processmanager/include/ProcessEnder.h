#pragma once

#include <vector>

#include "core/win32/utils/processmanager/include/Process.h"

/// Ends processes that it holds from the first look on. All that is refused is refused while it gathers them.
class ProcessEnder
{
public:
    /// `services`: whether services are ended as well. Raises a bare code.
    explicit ProcessEnder(bool services);
    ProcessEnder(const ProcessEnder&) = delete;
    ProcessEnder& operator=(const ProcessEnder&) = delete;

    /// Raises 1168 (ended already), 5, 50 (the calling process, the system's), 1052 (a service).
    void add(const ProcessEntry& entry);
    /// Adds what those that it holds have started. Whether there was anything new.
    bool addChildren();
    /// Ends all but the first `kept`, the last one first, and takes no further look.
    void endAll(std::size_t kept);
    /// Raises 1460 when they are not gone at the end of the time.
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
