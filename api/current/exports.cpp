// Every exported function: its frame and one call. Failures end here and become Win32 codes.

#include "core/win32/utils/logger/api.h"
#include "core/win32/utils/logger/include/Logger.h"
#include "core/win32/utils/objectmanager/include/Boundary.h"
#include "core/win32/utils/paths/api.h"
#include "core/win32/utils/paths/include/PathValidatorW.h"
#include "core/win32/utils/scanengine/api.h"
#include "core/win32/utils/scanengine/include/Directory.h"
#include "core/win32/utils/scanengine/include/File.h"
#include "core/win32/utils/scanengine/include/FilePath.h"
#include "core/win32/utils/scanengine/include/FileScanEngine.h"
#include "core/win32/utils/scanengine/include/ScanItems.h"
#include "core/win32/utils/scanengine/include/ScanValidator.h"
#include "core/win32/utils/strings/api.h"
#include "core/win32/utils/strings/include/TextSearch.h"
#include "core/win32/utils/wiper/api.h"
#include "core/win32/utils/wiper/include/BootExecute.h"
#include "core/win32/utils/wiper/include/Wiper.h"

#define SCAN_ENGINE_API "core\\win32\\utils\\scanengine\\api.h"
#define SCAN_PLACE(function) PLACE(SCAN_ENGINE_API, function, __LINE__)
#define LOGGER_API "core\\win32\\utils\\logger\\api.h"
#define LOGGER_PLACE(function) PLACE(LOGGER_API, function, __LINE__)

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
        try {
            return new Object(std::forward<Arguments>(arguments)...);
        } catch (const std::bad_alloc&) {
            throw static_cast<long>(ERROR_NOT_ENOUGH_MEMORY);
        }
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
        try {
            auto item = std::make_unique<Object>();
            primitives::requireSuccess(item->load(loadCode, stream));
            return item.release();
        } catch (const std::bad_alloc&) {
            throw static_cast<long>(ERROR_NOT_ENOUGH_MEMORY);
        }
    });
}

/// Files the item that `make` returns under the caller's name.
template <class Make>
void* fileItem(const char* place, const wchar_t* name, bool argumentsGiven, Make&& make) noexcept
{
    return handleFrame([&]() -> void* {
        if (name == nullptr || !argumentsGiven)
            throw Exception(place, ERROR_INVALID_PARAMETER);
        try {
            const SharedPtr<ScanItem> item = make();
            if (!item)
                throw Exception(place, ERROR_INVALID_ADDRESS);
            const std::wstring key = scanItemKey(name, item->getIdentifier().getIdentifier());
            return scanItems().openOrCreate(key.c_str(), [&] { return item; });
        } catch (const std::bad_alloc&) {
            throw Exception(place, ERROR_NOT_ENOUGH_MEMORY);
        }
    });
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

// ---- File scan engine

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
    return statusFrame(
        SCAN_PLACE("FSEngineRegisterHandler"), fileScanEngines(), engine,
        [&](FileScanEngine& object) { object.registerHandler(handler, first, second, value); });
}

long FSEngineRegisterHandlers(void* engine, INotifyProvider& provider, unsigned long first,
                              unsigned long second)
{
    return statusFrame(SCAN_PLACE("FSEngineRegisterHandlers"), fileScanEngines(), engine,
                       [&](FileScanEngine& object) { object.registerHandlers(provider, first, second); });
}

long FSEngineScan(void* engine, void* cancelEvent, const SharedPtr<IScanValidator>& validator,
                  ScanOptions options)
{
    return statusFrame(SCAN_PLACE("FSEngineScan"), fileScanEngines(), engine,
                       [&](FileScanEngine& object) { return object.scan(cancelEvent, validator, options); });
}

long FSEngineClearHandlers(void* engine)
{
    return statusFrame(SCAN_PLACE("FSEngineClearHandlers"), fileScanEngines(), engine,
                       [](FileScanEngine& object) { object.clearNotifyHandlers(); });
}

long FSEngineClear(void* engine)
{
    return statusFrame(SCAN_PLACE("FSEngineClear"), fileScanEngines(), engine,
                       [](FileScanEngine& object) { object.clear(); });
}

int CloseFileScanEngine(void* engine)
{
    return fileScanEngines().close(engine);
}

// ---- Wiper

IWiper* DllGetWiper()
{
    return makeObject<IWiper, Wiper>();
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
