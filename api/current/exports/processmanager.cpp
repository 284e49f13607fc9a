// The exported functions of the process manager, its objects and its monitor, and of sessions.

#include "core/win32/utils/processmanager/include/ProcessManager.h"
#include "core/win32/utils/processmanager/api.h"
#include "core/win32/utils/processmanager/include/Module.h"
#include "core/win32/utils/processmanager/include/ProcessMonitor.h"
#include "core/win32/utils/processmanager/include/Sessions.h"
#include "core/win32/utils/processmanager/include/Thread.h"
#include "exports/Frames.h"
#include "exports/UtilityFrame.h"

using boundary::createFrame;
using boundary::statusFrame;
using namespace utilityframe;

namespace {
constexpr char kProcessApi[] = "core\\win32\\utils\\processmanager\\api.h";

/// Creates the one object of a family, or opens it again.
template <class Table>
long openOne(Table& table, const char* place)
{
    using Object = typename Table::Object;
    return statusFrame([&]() -> long {
        return createFrame(place, table, Object::kName, [] { return new Object; }) != INVALID_HANDLE_VALUE
                   ? ERROR_SUCCESS
                   : lastError();
    });
}

template <class Table>
long reopenOne(Table& table)
{
    return statusFrame([&]() -> long {
        return table.lookup(Table::Object::kName) != INVALID_HANDLE_VALUE ? ERROR_SUCCESS : lastError();
    });
}

/// An operation on the one object, for utilityFrame.
template <class Table, class Operation>
auto onOne(Table& table, Operation operation)
{
    return [&table, operation](const auto&... inputs) {
        typename Table::Pointer object;
        requireSuccess(table.getNamed(Table::Object::kName, object));
        return operation(*object, inputs...);
    };
}

/// An operation on the object behind a handle, for utilityFrame.
template <class Table, class Operation>
auto on(Table& table, void* handle, Operation operation)
{
    return [&table, handle, operation] {
        typename Table::Pointer object;
        requireSuccess(table.get(handle, object));
        return operation(*object);
    };
}

template <class Operation>
auto onManager(Operation operation)
{
    return onOne(processManagers(), std::mem_fn(operation));
}

template <class Table, class Entry>
void* createObject(Table& table, const char* place, const Entry& entry, const wchar_t* name)
{
    return createFrame(place, table, name, [&] { return new typename Table::Object(entry); });
}

/// The same for an object named after what it stands for.
template <class Table, class Entry>
void* createObject(Table& table, const char* place, const Entry& entry)
{
    return boundary::handleFrame(
        [&] { return createObject(table, place, entry, Table::Object::defaultName(entry).c_str()); });
}
} // namespace

long CreateProcessManager()
{
    return openOne(processManagers(), PLACE(kProcessApi, "CreateProcessManager", __LINE__));
}

long OpenProcessManager()
{
    return reopenOne(processManagers());
}

int CloseProcessManager()
{
    return processManagers().closeNamed(ProcessManager::kName, [](ProcessManager&) {});
}

long PMRefresh()
{
    return utilityFrame(outputs(), onManager(&ProcessManager::refresh));
}

long PMListProcesses(ProcessEntry** entries, size_t* count)
{
    return utilityFrame(outputs(counted(entries, count)), onManager(&ProcessManager::listProcesses));
}

long PMListThreads(unsigned long process, ThreadEntry** entries, size_t* count)
{
    return utilityFrame(outputs(counted(entries, count)), onManager(&ProcessManager::listThreads), process);
}

long PMListModules(unsigned long process, ModuleEntry** entries, size_t* count)
{
    return utilityFrame(outputs(counted(entries, count)), onManager(&ProcessManager::listModules), process);
}

long PMFindById(unsigned long id, ProcessEntry** entry)
{
    size_t count = 0;
    return utilityFrame(outputs(counted(entry, &count)), onManager(&ProcessManager::findById), id);
}

long PMFindByName(const wchar_t* name, ProcessEntry** entries, size_t* count)
{
    return utilityFrame(outputs(counted(entries, count)), onManager(&ProcessManager::findByName), name);
}

long PMFindByPath(const wchar_t* path, ProcessEntry** entries, size_t* count)
{
    return utilityFrame(outputs(counted(entries, count)), onManager(&ProcessManager::findByPath), path);
}

long PMFindBySession(unsigned long session, ProcessEntry** entries, size_t* count)
{
    return utilityFrame(outputs(counted(entries, count)), onManager(&ProcessManager::findBySession), session);
}

long PMGetParents(unsigned long id, ProcessEntry** entries, size_t* count)
{
    return utilityFrame(outputs(counted(entries, count)), onManager(&ProcessManager::parentsOf), id);
}

long PMGetTree(unsigned long id, ProcessEntry** entries, size_t* count)
{
    return utilityFrame(outputs(counted(entries, count)), onManager(&ProcessManager::treeOf), id);
}

long PMFindUsers(const wchar_t* path, ProcessEntry** entries, size_t* count)
{
    return utilityFrame(outputs(counted(entries, count)), onManager(&ProcessManager::findUsers), path);
}

long CreateProcessMonitor()
{
    return openOne(processMonitors(), PLACE(kProcessApi, "CreateProcessMonitor", __LINE__));
}

long OpenProcessMonitor()
{
    return reopenOne(processMonitors());
}

int CloseProcessMonitor()
{
    return processMonitors().closeNamed(ProcessMonitor::kName, [](ProcessMonitor& object) { object.stop(); });
}

long PMStartMonitor(const wchar_t* topic, const wchar_t* filter, unsigned long interval, int wantsEvents)
{
    return utilityFrame(outputs(), onOne(processMonitors(), std::mem_fn(&ProcessMonitor::start)), topic,
                        optionalText(filter), interval, wantsEvents);
}

long PMStopMonitor()
{
    return utilityFrame(outputs(), onOne(processMonitors(), std::mem_fn(&ProcessMonitor::stop)));
}

long PMGetMonitorState(unsigned long* source, long* code)
{
    return utilityFrame(outputs(source, code),
                        onOne(processMonitors(), std::mem_fn(&ProcessMonitor::getState)));
}

void* CreateProcessW(const ProcessEntry& entry)
{
    return createObject(processObjects(), PLACE(kProcessApi, "CreateProcessW", __LINE__), entry);
}

void* CreateProcessW(const ProcessEntry& entry, const wchar_t* name)
{
    return createObject(processObjects(), PLACE(kProcessApi, "CreateProcessW", __LINE__), entry, name);
}

void* OpenProcess(const wchar_t* name)
{
    return processObjects().lookup(name);
}

int CloseProcess(void* process)
{
    return processObjects().close(process);
}

long ProcessGetNameByHandle(void* process, const wchar_t** name)
{
    return processObjects().getName(process, name);
}

long ProcessIsRunning(void* process, int* isRunning)
{
    return utilityFrame(outputs(isRunning),
                        on(processObjects(), process, [](Process& object) { return object.isRunning(); }));
}

long ProcessGetDetails(void* process, ProcessDetails** details)
{
    size_t count = 0;
    return utilityFrame(outputs(counted(details, &count)),
                        on(processObjects(), process, [](Process& object) { return object.details(); }));
}

long ProcessCloseWindows(void* process, unsigned long* asked)
{
    return utilityFrame(outputs(asked),
                        on(processObjects(), process, [](Process& object) { return object.closeWindows(); }));
}

long ProcessWait(void* process, unsigned long timeout, void* cancelEvent, unsigned long* exitCode)
{
    return utilityFrame(outputs(exitCode), on(processObjects(), process, [&](Process& object) {
                            return object.wait(timeout, cancelEvent);
                        }));
}

long ProcessEnd(void* process, unsigned long options, unsigned long timeout)
{
    return utilityFrame(
        outputs(), on(processObjects(), process, [&](Process& object) { object.end(options, timeout); }));
}

long ProcessSuspend(void* process)
{
    return utilityFrame(outputs(), on(processObjects(), process, [](Process& object) { object.suspend(); }));
}

long ProcessResume(void* process)
{
    return utilityFrame(outputs(), on(processObjects(), process, [](Process& object) { object.resume(); }));
}

long ProcessSetPriority(void* process, unsigned long priorityClass)
{
    return utilityFrame(outputs(), on(processObjects(), process,
                                      [&](Process& object) { object.setPriority(priorityClass); }));
}

void* CreateThread(const ThreadEntry& entry)
{
    return createObject(threadObjects(), PLACE(kProcessApi, "CreateThread", __LINE__), entry);
}

void* OpenThread(const wchar_t* name)
{
    return threadObjects().lookup(name);
}

int CloseThread(void* thread)
{
    return threadObjects().close(thread);
}

long ThreadIsRunning(void* thread, int* isRunning)
{
    return utilityFrame(outputs(isRunning),
                        on(threadObjects(), thread, [](Thread& object) { return object.isRunning(); }));
}

long ThreadGetDetails(void* thread, ThreadEntry* details)
{
    return utilityFrame(outputs(details),
                        on(threadObjects(), thread, [](Thread& object) { return object.details(); }));
}

long ThreadWait(void* thread, unsigned long timeout, void* cancelEvent)
{
    return utilityFrame(
        outputs(), on(threadObjects(), thread, [&](Thread& object) { object.wait(timeout, cancelEvent); }));
}

long ThreadSuspend(void* thread, unsigned long* count)
{
    return utilityFrame(outputs(count),
                        on(threadObjects(), thread, [](Thread& object) { return object.suspend(); }));
}

long ThreadResume(void* thread, unsigned long* count)
{
    return utilityFrame(outputs(count),
                        on(threadObjects(), thread, [](Thread& object) { return object.resume(); }));
}

long ThreadSetPriority(void* thread, long priority)
{
    return utilityFrame(outputs(),
                        on(threadObjects(), thread, [&](Thread& object) { object.setPriority(priority); }));
}

void* CreateModule(const ModuleEntry& entry)
{
    return createObject(moduleObjects(), PLACE(kProcessApi, "CreateModule", __LINE__), entry);
}

void* OpenModule(const wchar_t* name)
{
    return moduleObjects().lookup(name);
}

int CloseModule(void* module)
{
    return moduleObjects().close(module);
}

long ModuleGetDetails(void* module, ModuleEntry** details)
{
    size_t count = 0;
    return utilityFrame(outputs(counted(details, &count)),
                        on(moduleObjects(), module, [](Module& object) { return object.details(); }));
}

long ModuleIsLoaded(void* module, int* isLoaded)
{
    return utilityFrame(outputs(isLoaded),
                        on(moduleObjects(), module, [](Module& object) { return object.isLoaded(); }));
}

long SessionEnumerate(SessionRecord** records, size_t* count)
{
    return utilityFrame(outputs(counted(records, count)), sessions::enumerate);
}

long SessionDuplicateToken(unsigned long session, int elevated, void** token)
{
    return utilityFrame(
        outputs(token),
        [](unsigned long id, bool full) { return sessions::primaryToken(id, full).release(); }, session,
        elevated);
}

long SessionGetKnownFolder(unsigned long session, const GUID* folder, wchar_t** path)
{
    return utilityFrame(
        outputs(path),
        [](unsigned long id, const GUID* wanted) { return sessions::knownFolder(id, *wanted); }, session,
        folder);
}

long SessionRunProgram(const SessionProgram* program, unsigned long* processId, unsigned long* exitCode,
                       char** output, size_t* size)
{
    return utilityFrame(
        outputs(processId, exitCode, counted(output, size)),
        [](const SessionProgram* wanted) {
            SessionRun run(*wanted);
            run.wait();
            return std::tuple(run.getProcessId(), run.getExitCode(), run.getOutput());
        },
        program);
}
