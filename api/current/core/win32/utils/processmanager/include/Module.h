#pragma once

#include <functional>
#include <string>

#include "core/win32/utils/processmanager/include/Process.h"

/// One module in one process, identified by its address and path. See the exported functions; the operations
/// raise bare codes.
class Module
{
public:
    static constexpr const char* kClassName = "Module";

    explicit Module(const ModuleEntry& entry);
    virtual ~Module() = default;

    [[nodiscard]] static std::wstring defaultName(const ModuleEntry& entry);

    [[nodiscard]] RecordList<ModuleEntry> details() const;
    [[nodiscard]] bool isLoaded() const;

private:
    ModuleEntry m_entry; // its texts are the members below
    std::wstring m_name;
    std::wstring m_path;
};

/// The table of all module objects.
extern ObjectTable<SharedPtr<Module>> moduleObjects;

namespace modules {
/// Passes the modules of a process to `take` one by one, until that returns false. Raises 1168 when it has
/// ended, 5 when it refuses, and the system's code.
void forEach(const ProcessEntry& process, const std::function<bool(const ModuleEntry&)>& take);
} // namespace modules
