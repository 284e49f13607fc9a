#include "core/win32/utils/processmanager/include/ProcessManager.h"

#include <windows.h>

#include <restartmanager.h>

#include <algorithm>
#include <array>

#include "core/win32/utils/objectmanager/include/SystemLibrary.h"
#include "core/win32/utils/paths/include/Paths.h"
#include "core/win32/utils/processes/include/Processes.h"
#include "core/win32/utils/processmanager/include/Module.h"
#include "core/win32/utils/strings/include/Strings.h"
#include "core/win32/utils/time/include/Time.h"
#include "win32/processes/include/ProcessOptions.h"

ObjectTable<SingletonPtr<ProcessManager>> processManagers(50);

namespace {
const ProcessEntry& required(const ProcessSnapshot& snapshot, unsigned long id)
{
    const ProcessEntry* const entry = snapshot.find(id);
    if (entry == nullptr)
        raiseCode(ERROR_NOT_FOUND);
    return *entry;
}

template <class Condition>
RecordList<ProcessEntry> chosen(const ProcessSnapshot& snapshot, Condition&& condition)
{
    RecordList<ProcessEntry> list;
    for (const ProcessEntry& each : snapshot.getProcesses())
        if (condition(each))
            processlist::add(list, each);
    return list;
}

/// A path in the form that the system uses for images: absolute, without short names.
std::wstring imagePath(const wchar_t* path)
{
    std::wstring whole = paths::normalize(path);
    try {
        return paths::toLongForm(whole);
    } catch (long) { // the file may be gone while its program runs
        return whole;
    }
}

/// Whether a process has that image; it may have ended meanwhile or refuse to tell.
bool hasPath(const ProcessEntry& entry, const std::wstring& path)
{
    try {
        const Win32Handle held = Process(entry).open(0);
        return strings::equalsIgnoringCase(processes::path(entry.id), path);
    } catch (long code) {
        if (code == ERROR_NOT_ENOUGH_MEMORY)
            throw;
        return false;
    }
}

/// A session of the restart manager, which knows who has a file open.
class RestartSession
{
public:
    RestartSession() : m_library(L"rstrtmgr.dll")
    {
        std::array<wchar_t, CCH_RM_SESSION_KEY + 1> key{};
        requireSuccess(static_cast<long>(
            function<decltype(&RmStartSession)>("RmStartSession")(&m_session, 0, key.data())));
    }
    RestartSession(const RestartSession&) = delete;
    RestartSession& operator=(const RestartSession&) = delete;
    ~RestartSession()
    {
        try {
            function<decltype(&RmEndSession)>("RmEndSession")(m_session);
        } catch (long) { // NOLINT(bugprone-empty-catch): the session ends with this process at the latest
        }
    }

    [[nodiscard]] std::vector<RM_UNIQUE_PROCESS> usersOf(const wchar_t* path) const
    {
        requireSuccess(static_cast<long>(function<decltype(&RmRegisterResources)>("RmRegisterResources")(
            m_session, 1, &path, 0, nullptr, 0, nullptr)));
        std::vector<RM_PROCESS_INFO> found(16);
        for (;;) {
            UINT needed = 0;
            auto count = static_cast<UINT>(found.size());
            DWORD reasons = 0;
            const DWORD code = function<decltype(&RmGetList)>("RmGetList")(m_session, &needed, &count,
                                                                           found.data(), &reasons);
            if (code == ERROR_MORE_DATA) {
                found.resize(std::max<std::size_t>(needed, found.size() * 2));
                continue;
            }
            requireSuccess(static_cast<long>(code));
            std::vector<RM_UNIQUE_PROCESS> users;
            std::transform(found.begin(), found.begin() + count, std::back_inserter(users),
                           [](const RM_PROCESS_INFO& each) { return each.Process; });
            return users;
        }
    }

private:
    template <class Function>
    [[nodiscard]] Function function(const char* name) const
    {
        return m_library.function<Function>(name);
    }

    SystemLibrary m_library;
    DWORD m_session = 0;
};

bool hasModule(const ProcessEntry& process, const std::wstring& path)
{
    bool found = false;
    try {
        modules::forEach(process, [&](const ModuleEntry& each) {
            found = strings::equalsIgnoringCase(each.path, path);
            return !found;
        });
    } catch (long code) { // it has ended, or refuses
        if (code == ERROR_NOT_ENOUGH_MEMORY)
            throw;
    }
    return found;
}
} // namespace

void ProcessManager::refresh()
{
    Snapshot taken = std::make_shared<const ProcessSnapshot>();
    const WriteLocker locker(m_lock);
    m_snapshot.swap(taken);
}

ProcessManager::Snapshot ProcessManager::latest()
{
    const ReadLocker locker(m_lock);
    return m_snapshot;
}

RecordList<ProcessEntry> ProcessManager::listProcesses()
{
    return chosen(*latest(), [](const ProcessEntry&) { return true; });
}

std::vector<ThreadEntry> ProcessManager::listThreads(unsigned long process)
{
    const Snapshot snapshot = latest();
    if (process == kAllProcesses)
        return snapshot->getThreads();
    static_cast<void>(required(*snapshot, process));
    std::vector<ThreadEntry> threads;
    std::copy_if(snapshot->getThreads().begin(), snapshot->getThreads().end(), std::back_inserter(threads),
                 [&](const ThreadEntry& each) { return each.processId == process; });
    return threads;
}

RecordList<ModuleEntry> ProcessManager::listModules(unsigned long process)
{
    const Snapshot snapshot = latest();
    RecordList<ModuleEntry> list;
    const auto take = [&](const ModuleEntry& each) {
        list.add(each, {{&ModuleEntry::name, each.name}, {&ModuleEntry::path, each.path}});
        return true;
    };
    if (process != kAllProcesses) {
        modules::forEach(required(*snapshot, process), take);
        return list;
    }
    for (const ProcessEntry& each : snapshot->getProcesses())
        try {
            modules::forEach(each, take);
        } catch (long code) { // it has ended, or refuses
            if (code == ERROR_NOT_ENOUGH_MEMORY)
                throw;
        }
    return list;
}

RecordList<ProcessEntry> ProcessManager::findById(unsigned long id)
{
    RecordList<ProcessEntry> list;
    const Snapshot snapshot = latest();
    processlist::add(list, required(*snapshot, id));
    return list;
}

RecordList<ProcessEntry> ProcessManager::findByName(const wchar_t* name)
{
    return chosen(*latest(),
                  [&](const ProcessEntry& each) { return strings::equalsIgnoringCase(each.name, name); });
}

RecordList<ProcessEntry> ProcessManager::findByPath(const wchar_t* path)
{
    const std::wstring whole = imagePath(path);
    const std::wstring name = whole.substr(whole.find_last_of(L'\\') + 1);
    return chosen(*latest(), [&](const ProcessEntry& each) { // only opens possible candidates
        return strings::equalsIgnoringCase(each.name, name) && hasPath(each, whole);
    });
}

RecordList<ProcessEntry> ProcessManager::findBySession(unsigned long session)
{
    return chosen(*latest(), [&](const ProcessEntry& each) { return each.session == session; });
}

RecordList<ProcessEntry> ProcessManager::parentsOf(unsigned long id)
{
    const Snapshot snapshot = latest();
    RecordList<ProcessEntry> list;
    std::vector<const ProcessEntry*> chain{&required(*snapshot, id)};
    for (;;) {
        const ProcessEntry* const parent = snapshot->parentOf(*chain.back());
        if (parent == nullptr || std::find(chain.begin(), chain.end(), parent) != chain.end())
            return list;
        chain.push_back(parent);
        processlist::add(list, *parent);
    }
}

RecordList<ProcessEntry> ProcessManager::treeOf(unsigned long id)
{
    const Snapshot snapshot = latest();
    RecordList<ProcessEntry> list;
    for (const ProcessEntry* each : snapshot->treeOf(required(*snapshot, id)))
        processlist::add(list, *each);
    return list;
}

RecordList<ProcessEntry> ProcessManager::findUsers(const wchar_t* path)
{
    const std::wstring whole = imagePath(path);
    const std::vector<RM_UNIQUE_PROCESS> users = RestartSession().usersOf(whole.c_str());
    const ProcessSnapshot now;
    return chosen(now, [&](const ProcessEntry& each) {
        return std::any_of(users.begin(), users.end(),
                           [&](const RM_UNIQUE_PROCESS& user) {
                               return user.dwProcessId == each.id &&
                                      timetext::number(user.ProcessStartTime) == each.startTime;
                           }) ||
               hasModule(each, whole);
    });
}
