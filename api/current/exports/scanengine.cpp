// The exported functions of scan items, of the validator and of the scan engines.

#include "core/win32/utils/scanengine/api.h"
#include "core/win32/utils/scanengine/include/Directory.h"
#include "core/win32/utils/scanengine/include/File.h"
#include "core/win32/utils/scanengine/include/FilePath.h"
#include "core/win32/utils/scanengine/include/FileScanEngine.h"
#include "core/win32/utils/scanengine/include/RegistryScanEngine.h"
#include "core/win32/utils/scanengine/include/ScanItems.h"
#include "core/win32/utils/scanengine/include/ScanValidator.h"
#include "exports/Frames.h"

using boundary::createFrame;
using boundary::handleFrame;
using boundary::resultFrame;
using boundary::statusFrame;

namespace {
constexpr char kScanEngineApi[] = "core\\win32\\utils\\scanengine\\api.h";

/// A factory function for an item with a path, which must not be null.
template <class Interface, class Object>
Interface* makePathItem(const char* place, const wchar_t* path, int expand) noexcept
{
    return resultFrame<Interface*>(nullptr, [&]() -> Interface* {
        frames::requireArguments(place, path != nullptr);
        return std::make_unique<Object>(path, expand).release();
    });
}

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

IFile* DllGetFile()
{
    return frames::makeObject<IFile, File>();
}

IFile* DllGetFile(const wchar_t* path, int expand)
{
    return makePathItem<IFile, File>(PLACE(kScanEngineApi, "DllGetFile", __LINE__), path, expand);
}

IFile* DllGetFile(unsigned long loadCode, IInputByteStream& stream)
{
    return frames::loadObject<IFile, File>(loadCode, stream);
}

IDirectory* DllGetDirectory(const wchar_t* path, int expand)
{
    return makePathItem<IDirectory, Directory>(PLACE(kScanEngineApi, "DllGetDirectory", __LINE__), path,
                                               expand);
}

IDirectory* DllGetDirectory(unsigned long loadCode, IInputByteStream& stream)
{
    return frames::loadObject<IDirectory, Directory>(loadCode, stream);
}

void* CreateScanItem(const wchar_t* name, SharedPtr<ScanItem>& item)
{
    return createItem(PLACE(kScanEngineApi, "CreateScanItem", __LINE__), name, true, [&] { return item; });
}

void* OpenScanItem(const wchar_t* name, const wchar_t* identifier)
{
    return handleFrame([&]() -> void* {
        frames::requireArguments(PLACE(kScanEngineApi, "OpenScanItem", __LINE__),
                                 name != nullptr && identifier != nullptr);
        SharedPtr<ScanItem> item;
        return openRegisteredItem(name, identifier, item);
    });
}

long GetScanItemByHandle(void* handle, SharedPtr<ScanItem>& item)
{
    return scanItems().get(handle, item);
}

void* CreateFileW(const wchar_t* name, const wchar_t* path, int expand)
{
    return createItem(PLACE(kScanEngineApi, "CreateFileW", __LINE__), name, path != nullptr,
                      [&] { return makeShared<ScanItem, File>(path, expand); });
}

void* CreateFilePath(const wchar_t* name, const wchar_t* path, int expand, unsigned long level)
{
    return createItem(PLACE(kScanEngineApi, "CreateFilePath", __LINE__), name, path != nullptr,
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

IScanValidator* DllGetScanValidator()
{
    return frames::makeObject<IScanValidator, ScanValidator>();
}

IScanValidator* DllGetScanValidator(const wchar_t* filters, const wchar_t* ignores)
{
    return frames::makeObject<IScanValidator, ScanValidator>(filters, ignores);
}

void* CreateFileScanEngine(const wchar_t* name)
{
    return createFrame(PLACE(kScanEngineApi, "CreateFileScanEngine", __LINE__), fileScanEngines(), name,
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
    return frames::makeObject<IRegistryScanEngine, RegistryScanEngine>();
}

void* CreateRegistryScanEngine(const wchar_t* name)
{
    return createFrame(PLACE(kScanEngineApi, "CreateRegistryScanEngine", __LINE__), registryScanEngines(),
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
