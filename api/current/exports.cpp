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

constexpr char kScanEngineApi[] = "core\\win32\\utils\\scanengine\\api.h";
constexpr char kCommunicationApi[] = "core\\win32\\utils\\communication\\api.h";
constexpr char kThreadPoolApi[] = "core\\win32\\utils\\threadpool\\api.h";
constexpr char kLoggerApi[] = "core\\win32\\utils\\logger\\api.h";

constexpr char kRegistryApi[] = "core\\win32\\registry\\api.h";

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
        requireSuccess(item->load(loadCode, stream));
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
            requireSuccess(scanItems().get(handle.get(), filed));
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
    return poolFrame(PLACE(kThreadPoolApi, "THPQueueWork", __LINE__), pool, [&](ThreadPool& object) {
        return object.queueWork({category, work}, std::forward<Call>(call), arguments, option, instance);
    });
}

template <class... Keys>
long suspendWork(void* pool, Keys... keys) noexcept
{
    return poolFrame(PLACE(kThreadPoolApi, "THPSuspendWork", __LINE__), pool,
                     [&](ThreadPool& object) { return object.suspendWork(THPWorkKey(keys...)); });
}

template <class... Keys>
long resumeWork(void* pool, Keys... keys) noexcept
{
    return poolFrame(PLACE(kThreadPoolApi, "THPResumeWork", __LINE__), pool,
                     [&](ThreadPool& object) { return object.resumeWork(THPWorkKey(keys...)); });
}

template <class... Keys>
long cancelWork(void* pool, IThreadPool::OperationType operation, Keys... keys) noexcept
{
    return poolFrame(PLACE(kThreadPoolApi, "THPCancelWork", __LINE__), pool,
                     [&](ThreadPool& object) { return object.cancelWork(THPWorkKey(keys...), operation); });
}

template <class... Keys>
long waitForWork(void* pool, unsigned long timeout, void* extraHandle, Keys... keys) noexcept
{
    return poolFrame(PLACE(kThreadPoolApi, "THPWait", __LINE__), pool, [&](ThreadPool& object) {
        return object.wait(THPWorkKey(keys...), timeout, extraHandle);
    });
}

template <class... Keys>
long getWorkResult(void* pool, long& result, Keys... keys) noexcept
{
    return poolFrame(PLACE(kThreadPoolApi, "THPGetWorkResult", __LINE__), pool,
                     [&](ThreadPool& object) { return object.getResult(THPWorkKey(keys...), result); });
}

template <class... Keys>
long isWorkRunning(void* pool, int& running, Keys... keys) noexcept
{
    return poolFrame(PLACE(kThreadPoolApi, "THPIsRunning", __LINE__), pool,
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
    return topicFrame(PLACE(kCommunicationApi, "TopicSubscribe", __LINE__), topic,
                      [&](MessageTopic& object) { object.subscribe(subscriber); });
}

template <class Subscriber>
long unsubscribe(const TopicHandle& topic, Subscriber& subscriber, unsigned long timeout) noexcept
{
    return topicFrame(PLACE(kCommunicationApi, "TopicUnsubscribe", __LINE__), topic,
                      [&](MessageTopic& object) { object.unsubscribe(subscriber, timeout); });
}

template <class Type>
long send(const TopicHandle& topic, const Type& message, Type& reply, unsigned long value,
          void* context) noexcept
{
    return topicFrame(PLACE(kCommunicationApi, "TopicSendMessage", __LINE__), topic,
                      [&](MessageTopic& object) { object.sendMessage(message, reply, value, context); });
}

template <class Type>
long post(const TopicHandle& topic, const Type& message, unsigned long value) noexcept
{
    return topicFrame(PLACE(kCommunicationApi, "TopicPostMessage", __LINE__), topic,
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
    return makeItem<IFile, File>(PLACE(kScanEngineApi, "DllGetFile", __LINE__), path, expand);
}

IFile* DllGetFile(unsigned long loadCode, IInputByteStream& stream)
{
    return loadItem<IFile, File>(loadCode, stream);
}

IDirectory* DllGetDirectory(const wchar_t* path, int expand)
{
    return makeItem<IDirectory, Directory>(PLACE(kScanEngineApi, "DllGetDirectory", __LINE__), path, expand);
}

IDirectory* DllGetDirectory(unsigned long loadCode, IInputByteStream& stream)
{
    return loadItem<IDirectory, Directory>(loadCode, stream);
}

void* CreateScanItem(const wchar_t* name, SharedPtr<ScanItem>& item)
{
    return fileItem(PLACE(kScanEngineApi, "CreateScanItem", __LINE__), name, true, [&] { return item; });
}

void* OpenScanItem(const wchar_t* name, const wchar_t* identifier)
{
    return handleFrame([&]() -> void* {
        if (name == nullptr || identifier == nullptr)
            throw Exception(PLACE(kScanEngineApi, "OpenScanItem", __LINE__), ERROR_INVALID_PARAMETER);
        return scanItems().lookup(scanItemKey(name, identifier).c_str());
    });
}

long GetScanItemByHandle(void* handle, SharedPtr<ScanItem>& item)
{
    return scanItems().get(handle, item);
}

void* CreateFileW(const wchar_t* name, const wchar_t* path, int expand)
{
    return fileItem(PLACE(kScanEngineApi, "CreateFileW", __LINE__), name, path != nullptr,
                    [&] { return makeShared<ScanItem, File>(path, expand); });
}

void* CreateFilePath(const wchar_t* name, const wchar_t* path, int expand, unsigned long level)
{
    return fileItem(PLACE(kScanEngineApi, "CreateFilePath", __LINE__), name, path != nullptr,
                    [&] { return makeShared<ScanItem, FilePath>(path, expand, level); });
}

long ScanItemExists(void* handle, int* exists)
{
    return statusFrame(PLACE(kScanEngineApi, "ScanItemExists", __LINE__), scanItems(), handle,
                       [&](ScanItem& item) -> long {
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
    return createFrame(PLACE(kScanEngineApi, "CreateFileScanEngine", __LINE__),
                       PLACE(kScanEngineApi, "CreateFileScanEngine", __LINE__), fileScanEngines(), name,
                       [&] { return new FileScanEngine(name); });
}

void* OpenFileScanEngine(const wchar_t* name)
{
    return fileScanEngines().lookup(name);
}

long FSEngineAddPath(void* engine, const wchar_t* path, int expand)
{
    return statusFrame(PLACE(kScanEngineApi, "FSEngineAddPath", __LINE__), fileScanEngines(), engine,
                       [&](FileScanEngine& object) { object.addPath(path, expand); });
}

long FSEngineRegisterHandler(void* engine, INotifyHandler& handler, unsigned long first, unsigned long second,
                             unsigned long long value)
{
    return registerHandler(PLACE(kScanEngineApi, "FSEngineRegisterHandler", __LINE__), fileScanEngines(),
                           engine, handler, first, second, value);
}

long FSEngineRegisterHandlers(void* engine, INotifyProvider& provider, unsigned long first,
                              unsigned long second)
{
    return registerHandlers(PLACE(kScanEngineApi, "FSEngineRegisterHandlers", __LINE__), fileScanEngines(),
                            engine, provider, first, second);
}

long FSEngineScan(void* engine, void* cancelEvent, const SharedPtr<IScanValidator>& validator,
                  ScanOptions options)
{
    return scan(PLACE(kScanEngineApi, "FSEngineScan", __LINE__), fileScanEngines(), engine, cancelEvent,
                validator, options);
}

long FSEngineClearHandlers(void* engine)
{
    return clearHandlers(PLACE(kScanEngineApi, "FSEngineClearHandlers", __LINE__), fileScanEngines(), engine);
}

long FSEngineClear(void* engine)
{
    return clear(PLACE(kScanEngineApi, "FSEngineClear", __LINE__), fileScanEngines(), engine);
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
    return createFrame(PLACE(kScanEngineApi, "CreateRegistryScanEngine", __LINE__),
                       PLACE(kScanEngineApi, "CreateRegistryScanEngine", __LINE__), registryScanEngines(),
                       name, [&] { return new RegistryScanEngine(name); });
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
    return statusFrame(PLACE(kScanEngineApi, "RSEngineAddPath", __LINE__), registryScanEngines(), engine,
                       [&](RegistryScanEngine& object) { object.addPath(root, path, options); });
}

long RSEngineRegisterHandler(void* engine, INotifyHandler& handler, unsigned long first, unsigned long second,
                             unsigned long long value)
{
    return registerHandler(PLACE(kScanEngineApi, "RSEngineRegisterHandler", __LINE__), registryScanEngines(),
                           engine, handler, first, second, value);
}

long RSEngineRegisterHandlers(void* engine, INotifyProvider& provider, unsigned long first,
                              unsigned long second)
{
    return registerHandlers(PLACE(kScanEngineApi, "RSEngineRegisterHandlers", __LINE__),
                            registryScanEngines(), engine, provider, first, second);
}

long RSEngineScan(void* engine, void* cancelEvent, const SharedPtr<IScanValidator>& validator,
                  ScanOptions options)
{
    return scan(PLACE(kScanEngineApi, "RSEngineScan", __LINE__), registryScanEngines(), engine, cancelEvent,
                validator, options);
}

long RSEngineClearHandlers(void* engine)
{
    return clearHandlers(PLACE(kScanEngineApi, "RSEngineClearHandlers", __LINE__), registryScanEngines(),
                         engine);
}

long RSEngineClear(void* engine)
{
    return clear(PLACE(kScanEngineApi, "RSEngineClear", __LINE__), registryScanEngines(), engine);
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
    return fileItem(PLACE(kRegistryApi, "CreateRegistryKey", __LINE__), name, true,
                    [&] { return makeShared<ScanItem, RegistryKey>(root, subKey, options); });
}

void* CreateRegistryValue(const wchar_t* name, HKEY root, const wchar_t* subKey, const wchar_t* valueName,
                          unsigned long options)
{
    return fileItem(PLACE(kRegistryApi, "CreateRegistryValue", __LINE__), name, true,
                    [&] { return makeShared<ScanItem, RegistryValue>(root, subKey, valueName, options); });
}

void* CreateRegistryPath(const wchar_t* name, HKEY root, const wchar_t* subKey, unsigned long options)
{
    return fileItem(PLACE(kRegistryApi, "CreateRegistryPath", __LINE__), name, true,
                    [&] { return makeShared<ScanItem, RegistryPath>(root, subKey, options); });
}

long ImpersonateCurrentUser()
{
    return impersonateLoggedOnUser();
}

// ---- Thread pool

void* THPCreateThreadPool(const wchar_t* name)
{
    return createFrame(PLACE(kThreadPoolApi, "THPCreateThreadPool", __LINE__),
                       PLACE(kThreadPoolApi, "THPCreateThreadPool", __LINE__), threadPools(), name,
                       [] { return new ThreadPool; });
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
    return poolFrame(PLACE(kThreadPoolApi, "THPCreateCategory", __LINE__), pool,
                     [&](ThreadPool& object) { object.createCategory(THPIdentifier(category), options); });
}

long THPCreateCategory(void* pool, unsigned long category, const THPCategoryOptions& options)
{
    return poolFrame(PLACE(kThreadPoolApi, "THPCreateCategory", __LINE__), pool,
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
    return poolFrame(PLACE(kThreadPoolApi, "THPCancelWork", __LINE__), pool,
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
    return TopicHandle(createFrame(PLACE(kMessageTopicHeader, "MessageTopic::MessageTopic", 274),
                                   PLACE(kCommunicationApi, "CreateMessageTopic", __LINE__), messageTopics(),
                                   name, [&] { return new MessageTopic(name); }));
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
            throw Exception(PLACE(kCommunicationApi, "TopicGetNameByHandle", 711),
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
    return topicFrame(PLACE(kCommunicationApi, "TopicConsumeAll", __LINE__), topic,
                      [&](MessageTopic& object) { object.consumeAll(timeout); });
}

long TopicStopConsumer(const TopicHandle& topic)
{
    return topicFrame(PLACE(kCommunicationApi, "TopicStopConsumer", __LINE__), topic,
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
            raiseCode(ERROR_INVALID_PARAMETER);
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
    return createFrame(PLACE(kLoggerApi, "CreateLogger", __LINE__),
                       PLACE(kLoggerApi, "CreateLogger", __LINE__), loggers(), name,
                       [] { return new Logger; });
}

void* OpenLogger(const wchar_t* name)
{
    return loggers().lookup(name);
}

long WriteLogEntry(void* logger, const wchar_t* module, const wchar_t* message)
{
    return statusFrame(PLACE(kLoggerApi, "WriteLogEntry", __LINE__), loggers(), logger,
                       [&](Logger& object) { object.writeLogEntry(module, message); });
}

int CloseLogger(void* logger)
{
    return loggers().close(logger);
}
