#pragma once

#include <memory>

#include "core/win32/utils/objectmanager/include/ObjectTable.h"
#include "core/win32/utils/objectmanager/include/ReadWriteLock.h"
#include "core/win32/utils/processmanager/include/ProcessSnapshot.h"

/// The one process manager: the latest snapshot and its queries. Each list comes from one snapshot, even if
/// other threads refresh meanwhile.
///
/// The operations raise bare codes. The exported functions document them.
class ProcessManager
{
public:
    static constexpr const char* kClassName = "ProcessManager";
    /// The name of the only object.
    static constexpr const wchar_t* kName = L"ProcessManager";

    ProcessManager() { refresh(); }
    virtual ~ProcessManager() = default;

    void refresh();
    [[nodiscard]] RecordList<ProcessEntry> listProcesses();
    [[nodiscard]] std::vector<ThreadEntry> listThreads(unsigned long process);
    [[nodiscard]] RecordList<ModuleEntry> listModules(unsigned long process);
    [[nodiscard]] RecordList<ProcessEntry> findById(unsigned long id);
    [[nodiscard]] RecordList<ProcessEntry> findByName(const wchar_t* name);
    [[nodiscard]] RecordList<ProcessEntry> findByPath(const wchar_t* path);
    [[nodiscard]] RecordList<ProcessEntry> findBySession(unsigned long session);
    [[nodiscard]] RecordList<ProcessEntry> parentsOf(unsigned long id);
    [[nodiscard]] RecordList<ProcessEntry> treeOf(unsigned long id);
    [[nodiscard]] RecordList<ProcessEntry> findUsers(const wchar_t* path);

private:
    using Snapshot = std::shared_ptr<const ProcessSnapshot>;
    [[nodiscard]] Snapshot latest();

    ReadWriteLock m_lock; // guards only the pointer
    Snapshot m_snapshot;
};

/// The table of the only object.
extern ObjectTable<SingletonPtr<ProcessManager>> processManagers;
