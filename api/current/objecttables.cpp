// The object tables of all families. They are in one place because they die in one order: a table whose
// objects hold handles of another dies before it.

#include "objecttables.h"

#include "core/win32/utils/logger/include/Logger.h"
#include "core/win32/utils/scanengine/include/FileScanEngine.h"
#include "core/win32/utils/scanengine/include/ScanItems.h"

namespace {
struct ObjectTables
{
    // Destroyed from the last to the first.
    ObjectManager<SharedPtr<ScanItem>> scanItems;
    ObjectManager<SharedPtr<FileScanEngine>> fileScanEngines;
    ObjectManager<SharedPtr<Logger>> loggers;
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
} // namespace

void destroyObjectTables() noexcept
{
    storage.tables.~ObjectTables();
}

ObjectManager<SharedPtr<ScanItem>>& scanItems() noexcept
{
    return storage.tables.scanItems;
}

ObjectManager<SharedPtr<FileScanEngine>>& fileScanEngines() noexcept
{
    return storage.tables.fileScanEngines;
}

ObjectManager<SharedPtr<Logger>>& loggers() noexcept
{
    return storage.tables.loggers;
}
