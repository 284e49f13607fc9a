// The object tables of all families. They are in one place because they die in one order: a table whose
// objects hold handles of another dies before it.

#include "objecttables.h"

#include "core/win32/utils/communication/api.h"
#include "core/win32/utils/communication/include/MessageTopic.h"
#include "core/win32/utils/logger/include/Logger.h"
#include "core/win32/utils/restoremanager/include/RestoreManager.h"
#include "core/win32/utils/scanengine/include/FileScanEngine.h"
#include "core/win32/utils/scanengine/include/RegistryScanEngine.h"
#include "core/win32/utils/scanengine/include/ScanItems.h"
#include "core/win32/utils/threadpool/include/ThreadPool.h"

namespace {
struct ObjectTables
{
    // Destroyed from the last to the first.
    ObjectManager<ThreadPoolPtr> threadPools;
    ObjectManager<SharedPtr<ScanItem>> scanItems;
    ObjectManager<SharedPtr<FileScanEngine>> fileScanEngines;
    ObjectManager<SharedPtr<RegistryScanEngine>> registryScanEngines;
    ObjectManager<SharedPtr<Logger>> loggers;
    ObjectManager<SharedPtr<RestoreManager>> restoreManagers;
    ObjectManager<MessageTopicPtr> messageTopics; // they hold pools, and call handlers that may hold anything

    /// Calls `action` with every table.
    template <class Action>
    void forEach(Action&& action)
    {
        action(threadPools);
        action(scanItems);
        action(fileScanEngines);
        action(registryScanEngines);
        action(loggers);
        action(restoreManagers);
        action(messageTopics);
    }
};

/// Built when the library is loaded. Destroyed by destroyObjectTables alone: at the end of a process its
/// other threads are gone already, perhaps in the middle of a change, and the system takes everything back
/// anyway.
union Storage
{
    Storage() : tables() {}
    ~Storage() {} // NOLINT(modernize-use-equals-default): keeps the tables alive
    ObjectTables tables;
} storage;

template <class Table>
std::wstring classNameOf(const Table&)
{
    const std::string_view name = Table::Object::kClassName; // plain ASCII
    return {name.begin(), name.end()};
}

template <class Table>
long startServing(Table& table)
{
    const CachedIdentifierW name((L"ObjectManager<" + classNameOf(table) + L">").c_str());
    TopicHandle topic = CreateMessageTopic(name.getIdentifier());
    if (!topic.isValid())
        return static_cast<long>(GetLastError());
    // Subscribing again does nothing, so a failure leaves no half-way state behind.
    if (const long code = TopicSubscribe(topic, table); code != ERROR_SUCCESS)
        return code;
    table.setRequestTopic(name, topic);
    return ERROR_SUCCESS;
}

template <class Table>
long stopServing(Table& table)
{
    const TopicHandle topic = table.releaseRequestTopic();
    if (!topic.isValid())
        return ERROR_SUCCESS;
    return TopicUnsubscribe(topic, table, INFINITE);
}
} // namespace

long serveObjectRequests(const wchar_t* className, bool serve)
{
    if (className == nullptr)
        return ERROR_INVALID_PARAMETER;
    long result = ERROR_NOT_FOUND;
    storage.tables.forEach([&](auto& table) {
        if (classNameOf(table) == className)
            result = serve ? startServing(table) : stopServing(table);
    });
    return result;
}

void destroyObjectTables() noexcept
{
    storage.tables.forEach([](auto& table) {
        // While all tables are there: a topic's handle is given back to the table of topics.
        boundary::statusFrame([&] { return stopServing(table); });
    });
    storage.tables.~ObjectTables();
}

ObjectManager<ThreadPoolPtr>& threadPools() noexcept
{
    return storage.tables.threadPools;
}

ObjectManager<MessageTopicPtr>& messageTopics() noexcept
{
    return storage.tables.messageTopics;
}

ObjectManager<SharedPtr<ScanItem>>& scanItems() noexcept
{
    return storage.tables.scanItems;
}

ObjectManager<SharedPtr<FileScanEngine>>& fileScanEngines() noexcept
{
    return storage.tables.fileScanEngines;
}

ObjectManager<SharedPtr<RegistryScanEngine>>& registryScanEngines() noexcept
{
    return storage.tables.registryScanEngines;
}

ObjectManager<SharedPtr<Logger>>& loggers() noexcept
{
    return storage.tables.loggers;
}

ObjectManager<SharedPtr<RestoreManager>>& restoreManagers() noexcept
{
    return storage.tables.restoreManagers;
}
