// The C interface: processes, threads and modules.

#include "core/win32/utils/processmanager/api.h"

#include "exports/c/CFrames.h"

using cframes::requireArguments;
using cframes::status;

std::int32_t sysmaint_process_create(const ProcessEntry* entry, const wchar_t* name, void** process)
{
    return status(__func__, [&] {
        requireArguments(entry != nullptr && process != nullptr);
        cframes::opened(process, name != nullptr ? CreateProcessW(*entry, name) : CreateProcessW(*entry));
    });
}

std::int32_t sysmaint_process_open(const wchar_t* name, void** process)
{
    return status(__func__, [&] {
        requireArguments(name != nullptr && process != nullptr);
        cframes::opened(process, OpenProcess(name));
    });
}

std::int32_t sysmaint_thread_create(const ThreadEntry* entry, void** thread)
{
    return status(__func__, [&] {
        requireArguments(entry != nullptr && thread != nullptr);
        cframes::opened(thread, CreateThread(*entry));
    });
}

std::int32_t sysmaint_thread_open(const wchar_t* name, void** thread)
{
    return status(__func__, [&] {
        requireArguments(name != nullptr && thread != nullptr);
        cframes::opened(thread, OpenThread(name));
    });
}

std::int32_t sysmaint_module_create(const ModuleEntry* entry, void** module)
{
    return status(__func__, [&] {
        requireArguments(entry != nullptr && module != nullptr);
        cframes::opened(module, CreateModule(*entry));
    });
}
