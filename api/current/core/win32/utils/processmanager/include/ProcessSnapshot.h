#pragma once

#include <memory>
#include <string_view>
#include <vector>

#include "core/win32/utils/memory/include/UtilityMemory.h"
#include "win32/processes/include/ProcessRecords.h"

/// All processes and threads at one moment, from one system call: each once, and complete. Processes that are
/// still being created, and ended ones that somebody's handle keeps, are not part of it.
class ProcessSnapshot
{
public:
    /// Takes the snapshot. Raises the system's bare code, and std::bad_alloc.
    ProcessSnapshot();
    ProcessSnapshot(const ProcessSnapshot&) = delete;
    ProcessSnapshot& operator=(const ProcessSnapshot&) = delete;

    /// Ordered by id.
    [[nodiscard]] const std::vector<ProcessEntry>& getProcesses() const noexcept { return m_processes; }
    [[nodiscard]] const std::vector<ThreadEntry>& getThreads() const noexcept { return m_threads; }
    /// The process of that id, or null.
    [[nodiscard]] const ProcessEntry* find(unsigned long id) const noexcept;
    /// The parent of `process`; null when it has ended, even if its id was reused.
    [[nodiscard]] const ProcessEntry* parentOf(const ProcessEntry& process) const noexcept;
    /// Whether the process of that id is just creating another one.
    [[nodiscard]] bool isBirthBelow(unsigned long id) const noexcept;
    /// The process and all its descendants, parents before their children.
    [[nodiscard]] std::vector<const ProcessEntry*> treeOf(const ProcessEntry& top) const;

private:
    std::vector<ProcessEntry> m_processes;
    std::vector<ThreadEntry> m_threads;
    std::vector<unsigned long> m_births; // the parents of processes that are being created
    std::vector<wchar_t> m_names;        // never grows: the entries point into it
};

namespace processlist {
/// Adds a process with its name to a caller's list.
inline void add(RecordList<ProcessEntry>& list, const ProcessEntry& entry)
{
    list.add(entry, {{&ProcessEntry::name, entry.name}});
}
} // namespace processlist
