#include "core/win32/utils/processmanager/include/Module.h"

#include <tlhelp32.h>

#include "core/win32/utils/strings/include/Strings.h"

ObjectTable<SharedPtr<Module>> moduleObjects(50);

void modules::forEach(const ProcessEntry& process, const std::function<bool(const ModuleEntry&)>& take)
{
    constexpr int kAttempts = 10; // listing fails while the process is loading a module
    const Win32Handle held = Process(process).open(0);
    Win32Handle list;
    for (int attempt = 0; !list.isValid(); ++attempt) {
        list.reset(CreateToolhelp32Snapshot(TH32CS_SNAPMODULE | TH32CS_SNAPMODULE32, process.id));
        if (!list.isValid() && (GetLastError() != ERROR_BAD_LENGTH || attempt == kAttempts))
            raiseLastError();
    }
    MODULEENTRY32W found{};
    found.dwSize = sizeof found;
    for (BOOL more = Module32FirstW(list.get(), &found); more; more = Module32NextW(list.get(), &found)) {
        const ModuleEntry entry{
            process.id,        process.startTime, reinterpret_cast<ULONG_PTR>(found.modBaseAddr),
            found.modBaseSize, found.szModule,    found.szExePath};
        if (!take(entry))
            return;
    }
    if (GetLastError() != ERROR_NO_MORE_FILES)
        raiseLastError();
}

Module::Module(const ModuleEntry& entry)
    : m_entry(entry), m_name(entry.name != nullptr ? entry.name : L""),
      m_path(entry.path != nullptr ? entry.path : L"")
{
    m_entry.name = m_name.c_str();
    m_entry.path = m_path.c_str();
}

std::wstring Module::defaultName(const ModuleEntry& entry)
{
    return std::to_wstring(entry.processId) + L"@" + std::to_wstring(entry.processStartTime) + L":" +
           std::to_wstring(entry.base);
}

RecordList<ModuleEntry> Module::details() const
{
    RecordList<ModuleEntry> list;
    list.add(m_entry, {{&ModuleEntry::name, m_name}, {&ModuleEntry::path, m_path}});
    return list;
}

bool Module::isLoaded() const
{
    ProcessEntry process{};
    process.id = m_entry.processId;
    process.startTime = m_entry.processStartTime;
    bool found = false;
    try {
        modules::forEach(process, [&](const ModuleEntry& each) {
            found = each.base == m_entry.base && strings::equalsIgnoringCase(each.path, m_path);
            return !found;
        });
    } catch (long code) {
        if (code != ERROR_NOT_FOUND) // it is unloaded when its process has ended
            throw;
    }
    return found;
}
