#pragma once

#include <windows.h>

#include <string>

#include "core/win32/utils/memory/include/UtilityMemory.h"
#include "core/win32/utils/objectmanager/include/ObjectTable.h"
#include "core/win32/utils/objectmanager/include/Win32Handle.h"
#include "core/win32/utils/processmanager/include/ProcessSnapshot.h"

/// One process, identified by its id and start time. Each operation opens it anew and holds it, so nothing is
/// ever done to a later process with the same id.
///
/// The operations raise bare codes. The exported functions document them.
class Process
{
public:
    static constexpr const char* kClassName = "Process";

    explicit Process(const ProcessEntry& entry) noexcept : m_id(entry.id), m_startTime(entry.startTime) {}
    virtual ~Process() = default;

    /// The name of an object created without one: the same for the same process.
    [[nodiscard]] static std::wstring defaultName(const ProcessEntry& entry);

    /// Opens the process with these rights. Raises 1168 when it has ended, 5 when that is unknown.
    [[nodiscard]] Win32Handle open(DWORD access) const;
    [[nodiscard]] bool isRunning() const;
    [[nodiscard]] RecordList<ProcessDetails> details() const;
    [[nodiscard]] unsigned long closeWindows() const;
    /// Its exit code.
    [[nodiscard]] unsigned long wait(unsigned long timeout, HANDLE cancelEvent) const;
    void end(unsigned long options, unsigned long timeout) const;
    void suspend() const;
    void resume() const;
    void setPriority(unsigned long priorityClass) const;

private:
    [[nodiscard]] Win32Handle openUnprotected(DWORD access) const;

    unsigned long m_id;
    unsigned long long m_startTime;
};

/// The table of all process objects.
extern ObjectTable<SharedPtr<Process>> processObjects;

namespace protection {
/// Raises 50 for the calling process, and for those without which the system could not continue. `process`
/// only needs query access.
void requireUnprotected(HANDLE process, unsigned long id, const wchar_t* name);
} // namespace protection
