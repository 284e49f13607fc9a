// Every exported function: its frame and one call. Failures end here and become Win32 codes.

#include <memory>
#include <string>

#include "core/win32/registry/api.h"
#include "core/win32/registry/include/RegistryPath.h"
#include "core/win32/registry/include/RegistryValue.h"
#include "core/win32/registry/include/UserSession.h"
#include "core/win32/utils/communication/api.h"
#include "core/win32/utils/communication/include/MessageTopic.h"
#include "core/win32/utils/logger/api.h"
#include "core/win32/utils/logger/include/Logger.h"
#include "core/win32/utils/objectmanager/include/Boundary.h"
#include "core/win32/utils/objectmanager/include/ProcessEnd.h"
#include "core/win32/utils/paths/api.h"
#include "core/win32/utils/paths/include/PathValidatorW.h"
#include "core/win32/utils/restoremanager/api.h"
#include "core/win32/utils/restoremanager/include/RestoreManager.h"
#include "core/win32/utils/restoremanager/include/VRL.h"
#include "core/win32/utils/scanengine/api.h"
#include "core/win32/utils/scanengine/include/Directory.h"
#include "core/win32/utils/scanengine/include/File.h"
#include "core/win32/utils/scanengine/include/FilePath.h"
#include "core/win32/utils/scanengine/include/FileScanEngine.h"
#include "core/win32/utils/scanengine/include/RegistryScanEngine.h"
#include "core/win32/utils/scanengine/include/ScanItems.h"
#include "core/win32/utils/scanengine/include/ScanValidator.h"
#include "core/win32/utils/strings/api.h"
#include "core/win32/utils/strings/include/TextSearch.h"
#include "core/win32/utils/threadpool/api.h"
#include "core/win32/utils/threadpool/include/ThreadPool.h"
#include "core/win32/utils/wiper/api.h"
#include "core/win32/utils/wiper/include/BootExecute.h"
#include "core/win32/utils/wiper/include/FileTable.h"
#include "core/win32/utils/wiper/include/ForceDelete.h"
#include "core/win32/utils/wiper/include/Wiper.h"
#include "objecttables.h"

#define SCAN_ENGINE_API "core\\win32\\utils\\scanengine\\api.h"
#define COMMUNICATION_API "core\\win32\\utils\\communication\\api.h"
#define TOPIC_PLACE(function) PLACE(COMMUNICATION_API, function, __LINE__)
#define THREAD_POOL_API "core\\win32\\utils\\threadpool\\api.h"
#define POOL_PLACE(function) PLACE(THREAD_POOL_API, function, __LINE__)
#define SCAN_PLACE(function) PLACE(SCAN_ENGINE_API, function, __LINE__)
#define LOGGER_API "core\\win32\\utils\\logger\\api.h"
#define LOGGER_PLACE(function) PLACE(LOGGER_API, function, __LINE__)

#define RESTORE_API "core\\win32\\utils\\restoremanager\\api.h"
#define RESTORE_PLACE(function) PLACE(RESTORE_API, function, __LINE__)
#define REGISTRY_API "core\\win32\\registry\\api.h"
#define REGISTRY_PLACE(function) PLACE(REGISTRY_API, function, __LINE__)

using boundary::createFrame;
using boundary::handleFrame;
using boundary::resultFrame;
using boundary::statusFrame;

namespace {
/// A factory function: makes an object, or returns null.
template <class Interface, class Object, class... Arguments>
Interface* makeObject(Arguments&&... arguments) noexcept
{
    return resultFrame<Interface*>(nullptr, [&]() -> Interface* {
        // The frame catches it. NOLINTNEXTLINE(bugprone-unhandled-exception-at-new)
        return new Object(std::forward<Arguments>(arguments)...);
    });
}

/// A factory function for an item with a path, which must not be null.
template <class Interface, class Object>
Interface* makeItem(const char* place, const wchar_t* path, int expand) noexcept
{
    if (path == nullptr)
        return resultFrame<Interface*>(
            nullptr, [&]() -> Interface* { throw Exception(place, ERROR_INVALID_PARAMETER); });
    return makeObject<Interface, Object>(path, expand);
}

/// A factory function for an item that a stream holds.
template <class Interface, class Object>
Interface* loadItem(unsigned long loadCode, IInputByteStream& stream) noexcept
{
    return resultFrame<Interface*>(nullptr, [&]() -> Interface* {
        auto item = std::make_unique<Object>();
        primitives::requireSuccess(item->load(loadCode, stream));
        return item.release();
    });
}

/// Files the item that `make` returns under the caller's name.
template <class Make>
void* fileItem(const char* place, const wchar_t* name, bool argumentsGiven, Make&& make) noexcept
{
    return handleFrame([&]() -> void* {
        if (name == nullptr || !argumentsGiven)
            throw Exception(place, ERROR_INVALID_PARAMETER);
        const SharedPtr<ScanItem> item = make();
        if (!item)
            throw Exception(place, ERROR_INVALID_ADDRESS);
        const std::wstring key = scanItemKey(name, item->getIdentifier().getIdentifier());
        bool made = false;
        ScanItemHandle handle(scanItems().openOrCreate(key.c_str(), [&] {
            made = true;
            return item;
        }));
        if (!made) {
            SharedPtr<ScanItem> filed;
            primitives::requireSuccess(scanItems().get(handle.get(), filed));
            if (!item->isInterchangeable(*filed))
                throw Exception(place, ERROR_ALREADY_EXISTS);
        }
        return handle.release();
    });
}

/// A status operation on a pool. What sets it apart: a handle that has been closed gives 487, and at the end
/// of the process, whose threads are gone, it does nothing.
template <class Operation>
long poolFrame(const char* place, void* pool, Operation&& operation) noexcept
{
    if (isProcessEnding())
        return ERROR_SHUTDOWN_IN_PROGRESS;
    const long code = statusFrame(place, threadPools(), pool, std::forward<Operation>(operation));
    if (code != ERROR_INVALID_HANDLE)
        return code;
    return statusFrame([&]() -> long {
        return threadPools().isClosed(pool) ? ERROR_INVALID_ADDRESS : ERROR_INVALID_HANDLE;
    });
}

template <class Key, class Call>
long queueWork(void* pool, Key category, Key work, Call&& call, const HashMessageW& arguments,
               ITHPWorkItem::ScheduleOption option, void** instance) noexcept
{
    return poolFrame(POOL_PLACE("THPQueueWork"), pool, [&](ThreadPool& object) {
        return object.queueWork({category, work}, std::forward<Call>(call), arguments, option, instance);
    });
}

template <class... Keys>
long suspendWork(void* pool, Keys... keys) noexcept
{
    return poolFrame(POOL_PLACE("THPSuspendWork"), pool,
                     [&](ThreadPool& object) { return object.suspendWork(THPWorkKey(keys...)); });
}

template <class... Keys>
long resumeWork(void* pool, Keys... keys) noexcept
{
    return poolFrame(POOL_PLACE("THPResumeWork"), pool,
                     [&](ThreadPool& object) { return object.resumeWork(THPWorkKey(keys...)); });
}

template <class... Keys>
long cancelWork(void* pool, IThreadPool::OperationType operation, Keys... keys) noexcept
{
    return poolFrame(POOL_PLACE("THPCancelWork"), pool,
                     [&](ThreadPool& object) { return object.cancelWork(THPWorkKey(keys...), operation); });
}

template <class... Keys>
long waitForWork(void* pool, unsigned long timeout, void* extraHandle, Keys... keys) noexcept
{
    return poolFrame(POOL_PLACE("THPWait"), pool, [&](ThreadPool& object) {
        return object.wait(THPWorkKey(keys...), timeout, extraHandle);
    });
}

template <class... Keys>
long getWorkResult(void* pool, long& result, Keys... keys) noexcept
{
    return poolFrame(POOL_PLACE("THPGetWorkResult"), pool,
                     [&](ThreadPool& object) { return object.getResult(THPWorkKey(keys...), result); });
}

template <class... Keys>
long isWorkRunning(void* pool, int& running, Keys... keys) noexcept
{
    return poolFrame(POOL_PLACE("THPIsRunning"), pool,
                     [&](ThreadPool& object) { running = object.isRunning(THPWorkKey(keys...)) ? 1 : 0; });
}

/// The name of the topic that is known by a number.
std::wstring topicName(unsigned long number)
{
    return L"#" + std::to_wstring(number);
}

template <class Operation>
long topicFrame(const char* place, const TopicHandle& topic, Operation&& operation) noexcept
{
    if (isProcessEnding())
        return ERROR_SHUTDOWN_IN_PROGRESS;
    return statusFrame(place, messageTopics(), topic.get(), std::forward<Operation>(operation));
}

template <class Subscriber>
long subscribe(const TopicHandle& topic, Subscriber& subscriber) noexcept
{
    return topicFrame(TOPIC_PLACE("TopicSubscribe"), topic,
                      [&](MessageTopic& object) { object.subscribe(subscriber); });
}

template <class Subscriber>
long unsubscribe(const TopicHandle& topic, Subscriber& subscriber, unsigned long timeout) noexcept
{
    return topicFrame(TOPIC_PLACE("TopicUnsubscribe"), topic,
                      [&](MessageTopic& object) { object.unsubscribe(subscriber, timeout); });
}

template <class Type>
long send(const TopicHandle& topic, const Type& message, Type& reply, unsigned long value,
          void* context) noexcept
{
    return topicFrame(TOPIC_PLACE("TopicSendMessage"), topic,
                      [&](MessageTopic& object) { object.sendMessage(message, reply, value, context); });
}

template <class Type>
long post(const TopicHandle& topic, const Type& message, unsigned long value) noexcept
{
    return topicFrame(TOPIC_PLACE("TopicPostMessage"), topic,
                      [&](MessageTopic& object) { object.postMessage(message, value); });
}
} // namespace

// ---- Strings

const wchar_t* _wcsistr(const wchar_t* text, const wchar_t* pattern)
{
    return textsearch::find(text, pattern);
}

long GetTokenW(const wchar_t* text, const wchar_t* separators, unsigned long index, wchar_t* token,
               unsigned long capacity, unsigned long* needed)
{
    if (text == nullptr || separators == nullptr)
        return ERROR_INVALID_PARAMETER;
    return textsearch::copyToken(text, separators, index, token, capacity, needed);
}

wchar_t* SetFirstCharW(wchar_t* text, wchar_t find, wchar_t replacement)
{
    return textsearch::replaceFirst(text, find, replacement);
}

// ---- Paths

IPathValidatorW* DllGetPathValidatorW()
{
    return &PathValidatorW::getInstance();
}

// ---- Scan items

IFile* DllGetFile()
{
    return makeObject<IFile, File>();
}

IFile* DllGetFile(const wchar_t* path, int expand)
{
    return makeItem<IFile, File>(SCAN_PLACE("DllGetFile"), path, expand);
}

IFile* DllGetFile(unsigned long loadCode, IInputByteStream& stream)
{
    return loadItem<IFile, File>(loadCode, stream);
}

IDirectory* DllGetDirectory(const wchar_t* path, int expand)
{
    return makeItem<IDirectory, Directory>(SCAN_PLACE("DllGetDirectory"), path, expand);
}

IDirectory* DllGetDirectory(unsigned long loadCode, IInputByteStream& stream)
{
    return loadItem<IDirectory, Directory>(loadCode, stream);
}

void* CreateScanItem(const wchar_t* name, SharedPtr<ScanItem>& item)
{
    return fileItem(SCAN_PLACE("CreateScanItem"), name, true, [&] { return item; });
}

void* OpenScanItem(const wchar_t* name, const wchar_t* identifier)
{
    return handleFrame([&]() -> void* {
        if (name == nullptr || identifier == nullptr)
            throw Exception(SCAN_PLACE("OpenScanItem"), ERROR_INVALID_PARAMETER);
        return scanItems().lookup(scanItemKey(name, identifier).c_str());
    });
}

long GetScanItemByHandle(void* handle, SharedPtr<ScanItem>& item)
{
    return scanItems().get(handle, item);
}

void* CreateFileW(const wchar_t* name, const wchar_t* path, int expand)
{
    return fileItem(SCAN_PLACE("CreateFileW"), name, path != nullptr,
                    [&] { return makeShared<ScanItem, File>(path, expand); });
}

void* CreateFilePath(const wchar_t* name, const wchar_t* path, int expand, unsigned long level)
{
    return fileItem(SCAN_PLACE("CreateFilePath"), name, path != nullptr,
                    [&] { return makeShared<ScanItem, FilePath>(path, expand, level); });
}

long ScanItemExists(void* handle, int* exists)
{
    return statusFrame(SCAN_PLACE("ScanItemExists"), scanItems(), handle, [&](ScanItem& item) -> long {
        if (exists == nullptr)
            return ERROR_INVALID_PARAMETER;
        *exists = item.exists();
        return ERROR_SUCCESS;
    });
}

int CloseScanItem(void* handle)
{
    return scanItems().close(handle);
}

// ---- Validator

IScanValidator* DllGetScanValidator()
{
    return makeObject<IScanValidator, ScanValidator>();
}

IScanValidator* DllGetScanValidator(const wchar_t* filters, const wchar_t* ignores)
{
    return makeObject<IScanValidator, ScanValidator>(filters, ignores);
}

// ---- Scan engines: one set of operations for both

namespace {
template <class Table>
long registerHandler(const char* place, Table& table, void* engine, INotifyHandler& handler,
                     unsigned long first, unsigned long second, unsigned long long value) noexcept
{
    return statusFrame(place, table, engine,
                       [&](auto& object) { object.registerHandler(handler, first, second, value); });
}

template <class Table>
long registerHandlers(const char* place, Table& table, void* engine, INotifyProvider& provider,
                      unsigned long first, unsigned long second) noexcept
{
    return statusFrame(place, table, engine,
                       [&](auto& object) { object.registerHandlers(provider, first, second); });
}

template <class Table>
long scan(const char* place, Table& table, void* engine, void* cancelEvent,
          const SharedPtr<IScanValidator>& validator, const ScanOptions& options) noexcept
{
    return statusFrame(place, table, engine,
                       [&](auto& object) { return object.scan(cancelEvent, validator, options); });
}

template <class Table>
long clearHandlers(const char* place, Table& table, void* engine) noexcept
{
    return statusFrame(place, table, engine, [](auto& object) { object.clearNotifyHandlers(); });
}

template <class Table>
long clear(const char* place, Table& table, void* engine) noexcept
{
    return statusFrame(place, table, engine, [](auto& object) { object.clear(); });
}
} // namespace

void* CreateFileScanEngine(const wchar_t* name)
{
    return createFrame(SCAN_PLACE("CreateFileScanEngine"), SCAN_PLACE("CreateFileScanEngine"),
                       fileScanEngines(), name, [&] { return new FileScanEngine(name); });
}

void* OpenFileScanEngine(const wchar_t* name)
{
    return fileScanEngines().lookup(name);
}

long FSEngineAddPath(void* engine, const wchar_t* path, int expand)
{
    return statusFrame(SCAN_PLACE("FSEngineAddPath"), fileScanEngines(), engine,
                       [&](FileScanEngine& object) { object.addPath(path, expand); });
}

long FSEngineRegisterHandler(void* engine, INotifyHandler& handler, unsigned long first, unsigned long second,
                             unsigned long long value)
{
    return registerHandler(SCAN_PLACE("FSEngineRegisterHandler"), fileScanEngines(), engine, handler, first,
                           second, value);
}

long FSEngineRegisterHandlers(void* engine, INotifyProvider& provider, unsigned long first,
                              unsigned long second)
{
    return registerHandlers(SCAN_PLACE("FSEngineRegisterHandlers"), fileScanEngines(), engine, provider,
                            first, second);
}

long FSEngineScan(void* engine, void* cancelEvent, const SharedPtr<IScanValidator>& validator,
                  ScanOptions options)
{
    return scan(SCAN_PLACE("FSEngineScan"), fileScanEngines(), engine, cancelEvent, validator, options);
}

long FSEngineClearHandlers(void* engine)
{
    return clearHandlers(SCAN_PLACE("FSEngineClearHandlers"), fileScanEngines(), engine);
}

long FSEngineClear(void* engine)
{
    return clear(SCAN_PLACE("FSEngineClear"), fileScanEngines(), engine);
}

int CloseFileScanEngine(void* engine)
{
    return fileScanEngines().close(engine);
}

IRegistryScanEngine* DllGetRegistryScanEngine()
{
    return makeObject<IRegistryScanEngine, RegistryScanEngine>();
}

void* CreateRegistryScanEngine(const wchar_t* name)
{
    return createFrame(SCAN_PLACE("CreateRegistryScanEngine"), SCAN_PLACE("CreateRegistryScanEngine"),
                       registryScanEngines(), name, [&] { return new RegistryScanEngine(name); });
}

void* OpenRegistryScanEngine(const wchar_t* name)
{
    return registryScanEngines().lookup(name);
}

long RSEngineAddPath(void* engine, HKEY root, const wchar_t* path)
{
    return RSEngineAddPath(engine, root, path, 0);
}

long RSEngineAddPath(void* engine, HKEY root, const wchar_t* path, unsigned long options)
{
    return statusFrame(SCAN_PLACE("RSEngineAddPath"), registryScanEngines(), engine,
                       [&](RegistryScanEngine& object) { object.addPath(root, path, options); });
}

long RSEngineRegisterHandler(void* engine, INotifyHandler& handler, unsigned long first, unsigned long second,
                             unsigned long long value)
{
    return registerHandler(SCAN_PLACE("RSEngineRegisterHandler"), registryScanEngines(), engine, handler,
                           first, second, value);
}

long RSEngineRegisterHandlers(void* engine, INotifyProvider& provider, unsigned long first,
                              unsigned long second)
{
    return registerHandlers(SCAN_PLACE("RSEngineRegisterHandlers"), registryScanEngines(), engine, provider,
                            first, second);
}

long RSEngineScan(void* engine, void* cancelEvent, const SharedPtr<IScanValidator>& validator,
                  ScanOptions options)
{
    return scan(SCAN_PLACE("RSEngineScan"), registryScanEngines(), engine, cancelEvent, validator, options);
}

long RSEngineClearHandlers(void* engine)
{
    return clearHandlers(SCAN_PLACE("RSEngineClearHandlers"), registryScanEngines(), engine);
}

long RSEngineClear(void* engine)
{
    return clear(SCAN_PLACE("RSEngineClear"), registryScanEngines(), engine);
}

int CloseRegistryScanEngine(void* engine)
{
    return registryScanEngines().close(engine);
}

// ---- Registry items

IRegistryKey* DllGetRegistryKey()
{
    return makeObject<IRegistryKey, RegistryKey>();
}

IRegistryKey* DllGetRegistryKey(HKEY root, const wchar_t* subKey)
{
    return makeObject<IRegistryKey, RegistryKey>(root, subKey, 0UL);
}

IRegistryKey* DllGetRegistryKey(unsigned long loadCode, IInputByteStream& stream)
{
    return loadItem<IRegistryKey, RegistryKey>(loadCode, stream);
}

IRegistryValue* DllGetRegistryValue()
{
    return makeObject<IRegistryValue, RegistryValue>();
}

IRegistryValue* DllGetRegistryValue(HKEY root, const wchar_t* subKey, const wchar_t* name)
{
    return makeObject<IRegistryValue, RegistryValue>(root, subKey, name, 0UL);
}

IRegistryValue* DllGetRegistryValue(HKEY root, const wchar_t* subKey, const wchar_t* name,
                                    const wchar_t* text)
{
    return makeObject<IRegistryValue, RegistryValue>(root, subKey, name, text);
}

IRegistryValue* DllGetRegistryValue(unsigned long loadCode, IInputByteStream& stream)
{
    return loadItem<IRegistryValue, RegistryValue>(loadCode, stream);
}

void* CreateRegistryKey(const wchar_t* name, HKEY root, const wchar_t* subKey, unsigned long options)
{
    return fileItem(REGISTRY_PLACE("CreateRegistryKey"), name, true,
                    [&] { return makeShared<ScanItem, RegistryKey>(root, subKey, options); });
}

void* CreateRegistryValue(const wchar_t* name, HKEY root, const wchar_t* subKey, const wchar_t* valueName,
                          unsigned long options)
{
    return fileItem(REGISTRY_PLACE("CreateRegistryValue"), name, true,
                    [&] { return makeShared<ScanItem, RegistryValue>(root, subKey, valueName, options); });
}

void* CreateRegistryPath(const wchar_t* name, HKEY root, const wchar_t* subKey, unsigned long options)
{
    return fileItem(REGISTRY_PLACE("CreateRegistryPath"), name, true,
                    [&] { return makeShared<ScanItem, RegistryPath>(root, subKey, options); });
}

long ImpersonateCurrentUser()
{
    return impersonateLoggedOnUser();
}

// ---- Thread pool

void* THPCreateThreadPool(const wchar_t* name)
{
    return createFrame(POOL_PLACE("THPCreateThreadPool"), POOL_PLACE("THPCreateThreadPool"), threadPools(),
                       name, [] { return new ThreadPool; });
}

void* THPOpenThreadPool(const wchar_t* name)
{
    return threadPools().lookup(name);
}

int THPCloseThreadpool(void* pool)
{
    if (isProcessEnding())
        return 1;
    return threadPools().close(pool, [](ThreadPool& object) { object.close(); });
}

long THPCreateCategory(void* pool, const wchar_t* category, const THPCategoryOptions& options)
{
    return poolFrame(POOL_PLACE("THPCreateCategory"), pool,
                     [&](ThreadPool& object) { object.createCategory(THPIdentifier(category), options); });
}

long THPCreateCategory(void* pool, unsigned long category, const THPCategoryOptions& options)
{
    return poolFrame(POOL_PLACE("THPCreateCategory"), pool,
                     [&](ThreadPool& object) { object.createCategory(THPIdentifier(category), options); });
}

long THPQueueWork(void* pool, const wchar_t* category, const wchar_t* work, THPWorkFunction function,
                  const HashMessageW& arguments, ITHPWorkItem::ScheduleOption option, void** instance)
{
    return queueWork(pool, category, work, function, arguments, option, instance);
}

long THPQueueWork(void* pool, const wchar_t* category, const wchar_t* work, ITHPWorkItem& object,
                  const HashMessageW& arguments, ITHPWorkItem::ScheduleOption option, void** instance)
{
    return queueWork(pool, category, work, object, arguments, option, instance);
}

long THPQueueWork(void* pool, unsigned long category, unsigned long work, THPWorkFunction function,
                  const HashMessageW& arguments, ITHPWorkItem::ScheduleOption option, void** instance)
{
    return queueWork(pool, category, work, function, arguments, option, instance);
}

long THPQueueWork(void* pool, unsigned long category, unsigned long work, ITHPWorkItem& object,
                  const HashMessageW& arguments, ITHPWorkItem::ScheduleOption option, void** instance)
{
    return queueWork(pool, category, work, object, arguments, option, instance);
}

long THPSuspendWork(void* pool, const wchar_t* category)
{
    return suspendWork(pool, category);
}

long THPSuspendWork(void* pool, unsigned long category)
{
    return suspendWork(pool, category);
}

long THPSuspendWork(void* pool, const wchar_t* category, const wchar_t* work)
{
    return suspendWork(pool, category, work);
}

long THPSuspendWork(void* pool, unsigned long category, unsigned long work)
{
    return suspendWork(pool, category, work);
}

long THPResumeWork(void* pool, const wchar_t* category)
{
    return resumeWork(pool, category);
}

long THPResumeWork(void* pool, unsigned long category)
{
    return resumeWork(pool, category);
}

long THPResumeWork(void* pool, const wchar_t* category, const wchar_t* work)
{
    return resumeWork(pool, category, work);
}

long THPResumeWork(void* pool, unsigned long category, unsigned long work)
{
    return resumeWork(pool, category, work);
}

long THPCancelWork(void* pool)
{
    return poolFrame(POOL_PLACE("THPCancelWork"), pool,
                     [](ThreadPool& object) { return object.cancelWork(); });
}

long THPCancelWork(void* pool, const wchar_t* category, IThreadPool::OperationType operation)
{
    return cancelWork(pool, operation, category);
}

long THPCancelWork(void* pool, unsigned long category, IThreadPool::OperationType operation)
{
    return cancelWork(pool, operation, category);
}

long THPCancelWork(void* pool, const wchar_t* category, const wchar_t* work,
                   IThreadPool::OperationType operation)
{
    return cancelWork(pool, operation, category, work);
}

long THPCancelWork(void* pool, unsigned long category, unsigned long work,
                   IThreadPool::OperationType operation)
{
    return cancelWork(pool, operation, category, work);
}

long THPCancelWork(void* pool, const wchar_t* category, const wchar_t* work, void* instance,
                   IThreadPool::OperationType operation)
{
    return cancelWork(pool, operation, category, work, instance);
}

long THPCancelWork(void* pool, unsigned long category, unsigned long work, void* instance,
                   IThreadPool::OperationType operation)
{
    return cancelWork(pool, operation, category, work, instance);
}

long THPWait(void* pool, const wchar_t* category, unsigned long timeout, void* extraHandle)
{
    return waitForWork(pool, timeout, extraHandle, category);
}

long THPWait(void* pool, unsigned long category, unsigned long timeout, void* extraHandle)
{
    return waitForWork(pool, timeout, extraHandle, category);
}

long THPWait(void* pool, const wchar_t* category, const wchar_t* work, unsigned long timeout,
             void* extraHandle)
{
    return waitForWork(pool, timeout, extraHandle, category, work);
}

long THPWait(void* pool, unsigned long category, unsigned long work, unsigned long timeout, void* extraHandle)
{
    return waitForWork(pool, timeout, extraHandle, category, work);
}

long THPWait(void* pool, void* instance, const wchar_t* category, const wchar_t* work, unsigned long timeout,
             void* extraHandle)
{
    return waitForWork(pool, timeout, extraHandle, category, work, instance);
}

long THPWait(void* pool, void* instance, unsigned long category, unsigned long work, unsigned long timeout,
             void* extraHandle)
{
    return waitForWork(pool, timeout, extraHandle, category, work, instance);
}

long THPGetWorkResult(void* pool, const wchar_t* category, const wchar_t* work, long& result)
{
    return getWorkResult(pool, result, category, work);
}

long THPGetWorkResult(void* pool, unsigned long category, unsigned long work, long& result)
{
    return getWorkResult(pool, result, category, work);
}

long THPGetWorkResult(void* pool, const wchar_t* category, const wchar_t* work, void* instance, long& result)
{
    return getWorkResult(pool, result, category, work, instance);
}

long THPGetWorkResult(void* pool, unsigned long category, unsigned long work, void* instance, long& result)
{
    return getWorkResult(pool, result, category, work, instance);
}

long THPIsRunning(void* pool, const wchar_t* category, int& running)
{
    return isWorkRunning(pool, running, category);
}

long THPIsRunning(void* pool, unsigned long category, int& running)
{
    return isWorkRunning(pool, running, category);
}

long THPIsRunning(void* pool, const wchar_t* category, const wchar_t* work, int& running)
{
    return isWorkRunning(pool, running, category, work);
}

long THPIsRunning(void* pool, unsigned long category, unsigned long work, int& running)
{
    return isWorkRunning(pool, running, category, work);
}

long THPIsRunning(void* pool, const wchar_t* category, const wchar_t* work, void* instance, int& running)
{
    return isWorkRunning(pool, running, category, work, instance);
}

long THPIsRunning(void* pool, unsigned long category, unsigned long work, void* instance, int& running)
{
    return isWorkRunning(pool, running, category, work, instance);
}

// ---- Message topics

TopicHandle CreateMessageTopic(const wchar_t* name)
{
    return TopicHandle(createFrame(PLACE(MESSAGE_TOPIC_HEADER, "MessageTopic::MessageTopic", 274),
                                   TOPIC_PLACE("CreateMessageTopic"), messageTopics(), name,
                                   [&] { return new MessageTopic(name); }));
}

TopicHandle CreateMessageTopic(unsigned long number)
{
    return resultFrame<TopicHandle>(TopicHandle(INVALID_HANDLE_VALUE),
                                    [&] { return CreateMessageTopic(topicName(number).c_str()); });
}

TopicHandle OpenMessageTopic(const wchar_t* name)
{
    return TopicHandle(messageTopics().lookup(name));
}

TopicHandle OpenMessageTopic(unsigned long number)
{
    return resultFrame<TopicHandle>(TopicHandle(INVALID_HANDLE_VALUE),
                                    [&] { return OpenMessageTopic(topicName(number).c_str()); });
}

int CloseMessageTopic(void* topic)
{
    if (isProcessEnding())
        return 1;
    return messageTopics().close(topic, [](MessageTopic& object) { object.close(); });
}

long TopicGetNameByHandle(const TopicHandle& topic, const wchar_t** name)
{
    return statusFrame([&]() -> long {
        if (const long code = messageTopics().getName(topic.get(), name); code != ERROR_SUCCESS)
            throw Exception(PLACE(COMMUNICATION_API, "TopicGetNameByHandle", 711),
                            static_cast<unsigned long>(code));
        return ERROR_SUCCESS;
    });
}

long TopicSubscribe(const TopicHandle& topic, IMessageHandler& handler)
{
    return subscribe(topic, handler);
}

long TopicSubscribe(const TopicHandle& topic, MessageFilter& filter)
{
    return subscribe(topic, filter);
}

long TopicUnsubscribe(const TopicHandle& topic, IMessageHandler& handler, unsigned long timeout)
{
    return unsubscribe(topic, handler, timeout);
}

long TopicUnsubscribe(const TopicHandle& topic, MessageFilter& filter, unsigned long timeout)
{
    return unsubscribe(topic, filter, timeout);
}

long TopicSendMessage(const TopicHandle& topic, const MessageW& message, MessageW& reply, void* context)
{
    return send(topic, message, reply, MessageTopic::kNoValue, context);
}

long TopicSendMessage(const TopicHandle& topic, const MessageW& message, MessageW& reply, unsigned long value,
                      void* context)
{
    return send(topic, message, reply, value, context);
}

long TopicSendMessage(const TopicHandle& topic, const DataMessage& message, DataMessage& reply, void* context)
{
    return send(topic, message, reply, MessageTopic::kNoValue, context);
}

long TopicSendMessage(const TopicHandle& topic, const DataMessage& message, DataMessage& reply,
                      unsigned long value, void* context)
{
    return send(topic, message, reply, value, context);
}

long TopicSendMessage(const TopicHandle& topic, const ArrayMessage& message, ArrayMessage& reply,
                      void* context)
{
    return send(topic, message, reply, MessageTopic::kNoValue, context);
}

long TopicSendMessage(const TopicHandle& topic, const ArrayMessage& message, ArrayMessage& reply,
                      unsigned long value, void* context)
{
    return send(topic, message, reply, value, context);
}

long TopicSendMessage(const TopicHandle& topic, const HashMessageW& message, HashMessageW& reply,
                      void* context)
{
    return send(topic, message, reply, MessageTopic::kNoValue, context);
}

long TopicSendMessage(const TopicHandle& topic, const HashMessageW& message, HashMessageW& reply,
                      unsigned long value, void* context)
{
    return send(topic, message, reply, value, context);
}

long TopicPostMessage(const TopicHandle& topic, const MessageW& message)
{
    return post(topic, message, MessageTopic::kNoValue);
}

long TopicPostMessage(const TopicHandle& topic, const MessageW& message, unsigned long value)
{
    return post(topic, message, value);
}

long TopicPostMessage(const TopicHandle& topic, const DataMessage& message)
{
    return post(topic, message, MessageTopic::kNoValue);
}

long TopicPostMessage(const TopicHandle& topic, const DataMessage& message, unsigned long value)
{
    return post(topic, message, value);
}

long TopicPostMessage(const TopicHandle& topic, const ArrayMessage& message)
{
    return post(topic, message, MessageTopic::kNoValue);
}

long TopicPostMessage(const TopicHandle& topic, const ArrayMessage& message, unsigned long value)
{
    return post(topic, message, value);
}

long TopicPostMessage(const TopicHandle& topic, const HashMessageW& message)
{
    return post(topic, message, MessageTopic::kNoValue);
}

long TopicPostMessage(const TopicHandle& topic, const HashMessageW& message, unsigned long value)
{
    return post(topic, message, value);
}

long TopicConsumeAll(const TopicHandle& topic, unsigned long timeout)
{
    return topicFrame(TOPIC_PLACE("TopicConsumeAll"), topic,
                      [&](MessageTopic& object) { object.consumeAll(timeout); });
}

long TopicStopConsumer(const TopicHandle& topic)
{
    return topicFrame(TOPIC_PLACE("TopicStopConsumer"), topic,
                      [](MessageTopic& object) { object.stopWork(); });
}

long ServeObjectRequests(const wchar_t* className, int serve)
{
    return statusFrame([&] { return serveObjectRequests(className, serve != 0); });
}

// ---- Wiper

IWiper* DllGetWiper()
{
    return makeObject<IWiper, Wiper>();
}

long WipeFileTable(const wchar_t* volume, WipeCallback callback, WipeProgress* progress, HANDLE cancelEvent)
{
    return statusFrame([&] { return filetable::wipe(volume, callback, progress, cancelEvent); });
}

int ForceDeleteIsScheduled(const wchar_t* path)
{
    return resultFrame(0, [&] {
        if (path == nullptr)
            throw static_cast<long>(ERROR_INVALID_PARAMETER);
        const int found = forcedelete::isScheduled(path) ? 1 : 0;
        SetLastError(ERROR_SUCCESS);
        return found;
    });
}

long AddBootExecute(const wchar_t* entry)
{
    return statusFrame([&] { return bootexecute::add(entry); });
}

long RemoveBootExecute(const wchar_t* entry)
{
    return statusFrame([&] { return bootexecute::remove(entry); });
}

int BootExecuteIsScheduled(const wchar_t* entry)
{
    return resultFrame(0, [&] { return bootexecute::isScheduled(entry) ? 1 : 0; });
}

// ---- Logger

void* CreateLogger(const wchar_t* name)
{
    return createFrame(LOGGER_PLACE("CreateLogger"), LOGGER_PLACE("CreateLogger"), loggers(), name,
                       [] { return new Logger; });
}

void* OpenLogger(const wchar_t* name)
{
    return loggers().lookup(name);
}

long WriteLogEntry(void* logger, const wchar_t* module, const wchar_t* message)
{
    return statusFrame(LOGGER_PLACE("WriteLogEntry"), loggers(), logger,
                       [&](Logger& object) { object.writeLogEntry(module, message); });
}

int CloseLogger(void* logger)
{
    return loggers().close(logger);
}

// ---- System Restore

void* CreateRestoreManager(const wchar_t* name)
{
    return createFrame(RESTORE_PLACE("CreateRestoreManager"), RESTORE_PLACE("CreateRestoreManager"),
                       restoreManagers(), name, [&] { return new RestoreManager(name); });
}

long CreateRestorePoint(void* manager)
{
    return statusFrame(RESTORE_PLACE("CreateRestorePoint"), restoreManagers(), manager,
                       [](RestoreManager& object) { object.createRestorePoint(); });
}

long DeleteRestorePoint(void* manager, std::int64_t sequenceNumber)
{
    return statusFrame(RESTORE_PLACE("DeleteRestorePoint"), restoreManagers(), manager,
                       [&](RestoreManager& object) { object.deleteRestorePoint(sequenceNumber); });
}

long EnableSystemRestore(void* manager, const wchar_t* drive)
{
    return statusFrame(RESTORE_PLACE("EnableSystemRestore"), restoreManagers(), manager,
                       [&](RestoreManager&) { RestoreManager::enableSystemRestore(drive); });
}

long IsSystemRestoreEnabled(void* manager, int* enabled)
{
    return statusFrame(RESTORE_PLACE("IsSystemRestoreEnabled"), restoreManagers(), manager,
                       [&](RestoreManager&) { RestoreManager::isSystemRestoreEnabled(enabled); });
}

long GetRestorePointID(void* manager, std::int64_t& sequenceNumber)
{
    return statusFrame(RESTORE_PLACE("GetRestorePointID"), restoreManagers(), manager,
                       [&](RestoreManager& object) { sequenceNumber = object.getRestorePointId(); });
}

long GetRestorePointName(void* manager, wchar_t* buffer, std::uint64_t* size)
{
    return statusFrame(RESTORE_PLACE("GetRestorePointName"), restoreManagers(), manager,
                       [&](RestoreManager& object) { object.copyRestorePointName(buffer, size); });
}

int CloseRestoreManager(void* manager)
{
    return restoreManagers().close(manager);
}

IVRL* DllGetVRL()
{
    return makeObject<IVRL, VRL>();
}
