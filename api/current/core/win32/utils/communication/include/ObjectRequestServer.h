#pragma once

#include <vector>

#include "core/win32/utils/objectmanager/include/ObjectTable.h"
#include "core/win32/utils/objectmanager/include/ReadWriteLock.h"

/// Brings the load and dump requests of callers to the object tables: subscribes a table to the topic
/// "ObjectManager<class name>" when it is asked to.
class ObjectRequestServer
{
public:
    [[nodiscard]] static ObjectRequestServer& getInstance() noexcept;

    /// Subscribes the table of a class to the topic of its requests, or takes it off. Repeating a call has no
    /// effect. Returns 0, 87 for a null name, 1168 for a class without a table, 8, or the topic's code.
    long serve(const wchar_t* className, bool serve);
    /// Takes off every table that is subscribed. To be called before the tables are destroyed.
    void stopAll() noexcept;

private:
    struct Served
    {
        AnyObjectTable* table;
        void* topic; // one opening
    };

    long start(AnyObjectTable& table);
    long stop(const AnyObjectTable& table);
    [[nodiscard]] std::vector<Served>::iterator find(const AnyObjectTable& table) noexcept;

    ReadWriteLock m_lock;
    std::vector<Served> m_served;
};
